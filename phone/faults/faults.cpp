#include "faults/faults.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "base/closest_name.h"
#include "services/property_store.h"
#include "trace/decode.h"

namespace phone {

namespace {

using Kind = FaultEffect::Kind;

constexpr unsigned bit(Kind kind) {
    return 1U << static_cast<unsigned>(kind);
}
constexpr unsigned kAlways = bit(Kind::kFail) | bit(Kind::kSlow);
constexpr unsigned kEverything = kAlways | bit(Kind::kLost) | bit(Kind::kGarbage) | bit(Kind::kResult);

struct PointSyntax {
    std::string_view name;
    FaultPoint point;
    bool keyed;
    unsigned effects;  // those that mean something there
};

constexpr std::array kPoints{
    PointSyntax{"request", FaultPoint::kRequest, true, kEverything},
    PointSyntax{"hub", FaultPoint::kHubCommand, true, kEverything},
    PointSyntax{"open", FaultPoint::kOpen, true, kAlways | bit(Kind::kLost)},
    PointSyntax{"media", FaultPoint::kMediaRequest, true, kEverything},
    PointSyntax{"readlink", FaultPoint::kReadlink, true, kAlways | bit(Kind::kGarbage)},
    PointSyntax{"close", FaultPoint::kClose, true, kAlways},
    PointSyntax{"thread", FaultPoint::kThreadCreate, false, kAlways},
    PointSyntax{"sensor-provider", FaultPoint::kSensorProvider, false, kAlways},
    PointSyntax{"thread-priority", FaultPoint::kThreadPriority, false, kAlways},
    PointSyntax{"thread-schedule", FaultPoint::kThreadSchedule, false, kAlways | bit(Kind::kLost)},
    PointSyntax{"sensor-enable", FaultPoint::kSensorEnable, false, kAlways | bit(Kind::kLost)},
    PointSyntax{"sensor-enabled", FaultPoint::kSensorEnabled, false, kAlways},
    PointSyntax{"sensor-samples", FaultPoint::kSensorSamples, false, kAlways | bit(Kind::kLost)},
    PointSyntax{"sensor-disable", FaultPoint::kSensorDisable, false,
                kAlways | bit(Kind::kLost) | bit(Kind::kResult)},
    PointSyntax{"property", FaultPoint::kProperty, true, kAlways | bit(Kind::kResult)},
    PointSyntax{"customisation", FaultPoint::kCustomisation, false, kAlways},
    PointSyntax{"telemetry", FaultPoint::kTelemetry, false, kAlways | bit(Kind::kLost)},
    PointSyntax{"telemetry-report", FaultPoint::kTelemetryReport, false, kAlways | bit(Kind::kLost)},
};

struct EffectSyntax {
    std::string_view name;
    Kind kind;
    std::string_view value;  // an example of what stands behind '='; empty: nothing does
};

constexpr std::array kEffects{
    EffectSyntax{"fail", Kind::kFail, ""},           EffectSyntax{"errno", Kind::kFail, "EIO"},
    EffectSyntax{"lost", Kind::kLost, ""},           EffectSyntax{"slow", Kind::kSlow, "20ms"},
    EffectSyntax{"garbage", Kind::kGarbage, "ff00"}, EffectSyntax{"result", Kind::kResult, "-1"},
};

constexpr int64_t kLongestDelayUs = 3600LL * 1000 * 1000;

std::string inQuotes(std::string_view text) {
    return '\'' + std::string(text) + '\'';
}

// All errors of one fault's text begin alike.
class FaultText {
  public:
    explicit FaultText(std::string_view text) : mText(text) {}
    [[noreturn]] void refuse(const std::string& why) const {
        throw std::invalid_argument("fault " + inQuotes(mText) + ": " + why);
    }

  private:
    std::string_view mText;
};

template <typename Number>
bool parseNumber(std::string_view text, Number& number) {
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

template <typename Table>
std::vector<std::string_view> namesOf(const Table& table) {
    std::vector<std::string_view> names;
    for (const auto& entry : table) {
        // Of two entries that share a code one name may stand twice.
        if (std::find(names.begin(), names.end(), entry.name) == names.end()) names.push_back(entry.name);
    }
    return names;
}

const PointSyntax* findPoint(std::string_view name) {
    const auto found = std::find_if(kPoints.begin(), kPoints.end(),
                                    [name](const PointSyntax& point) { return point.name == name; });
    return found == kPoints.end() ? nullptr : &*found;
}

// A key is checked where the names are known; paths are taken as they are.
void checkKey(const FaultText& fault, const PointSyntax& point, std::string_view key) {
    if (!point.keyed) {
        fault.refuse(inQuotes(point.name) + " takes no name behind it; write '" + std::string(point.name) +
                     ":fail'");
    }
    if (key.empty()) fault.refuse("a name is missing behind " + inQuotes(std::string(point.name) + "."));
    const auto require = [&](bool known, std::string_view what, const std::vector<std::string_view>& names) {
        if (!known)
            fault.refuse("no " + std::string(what) + ' ' + inQuotes(key) + "; " + nameAdvice(key, names));
    };
    switch (point.point) {
        case FaultPoint::kRequest:
            require(findRequest(key), "request", namesOf(privateRequests()));
            break;
        case FaultPoint::kHubCommand:
            require(findHubCommand(key), "hub command", namesOf(hubCommands()));
            break;
        case FaultPoint::kMediaRequest:
            require(findMediaRequest(key), "media request", namesOf(mediaRequests()));
            break;
        case FaultPoint::kProperty: {
            std::vector<std::string_view> names;
            for (const KnownProperty& property : knownProperties()) names.push_back(property.key);
            require(std::ranges::count(names, key) != 0, "property", names);
            break;
        }
        case FaultPoint::kOpen:
        case FaultPoint::kReadlink:
        case FaultPoint::kClose:
            if (key.front() != '/') fault.refuse(inQuotes(key) + " is no path: paths begin with '/'");
            break;
        default:
            break;
    }
}

// A bare name is a request when it is one, else a hub command.
const PointSyntax& pointOfBareName(const FaultText& fault, std::string_view name) {
    if (findRequest(name) != nullptr) return *findPoint("request");
    if (findHubCommand(name) != nullptr) return *findPoint("hub");
    std::vector<std::string_view> names = namesOf(privateRequests());
    for (const std::string_view more : namesOf(hubCommands())) {
        if (std::find(names.begin(), names.end(), more) == names.end()) names.push_back(more);
    }
    for (const PointSyntax& point : kPoints) names.push_back(point.name);
    fault.refuse("nothing is called " + inQuotes(name) + "; " + nameAdvice(name, names));
}

const PointSyntax& parseTarget(const FaultText& fault, std::string_view target, std::string& key) {
    if (target.empty()) fault.refuse("what shall fail? Write, for example, 'SET_MODE:errno=EIO'");
    if (const PointSyntax* whole = findPoint(target)) return *whole;
    const size_t dot = target.find('.');
    if (dot == std::string_view::npos) {
        const PointSyntax& point = pointOfBareName(fault, target);
        key = target;
        return point;
    }
    const std::string_view prefix = target.substr(0, dot);
    const PointSyntax* point = findPoint(prefix);
    if (point == nullptr)
        fault.refuse("no place " + inQuotes(prefix) + "; " + nameAdvice(prefix, namesOf(kPoints)));
    checkKey(fault, *point, target.substr(dot + 1));
    key = target.substr(dot + 1);
    return *point;
}

uint64_t parseOccurrence(const FaultText& fault, std::string_view text) {
    uint64_t occurrence = 0;
    if (!parseNumber(text, occurrence) || occurrence == 0) {
        fault.refuse("'@" + std::string(text) + "' is no occurrence: they count from 1 on, as in '@3'");
    }
    return occurrence;
}

int parseErrno(const FaultText& fault, std::string_view text) {
    constexpr int kLastErrno = 133;
    int number = 0;
    if (parseNumber(text, number) && number > 0 && strerrorname_np(number) != nullptr) return number;
    std::vector<std::string_view> names;
    for (int error = 1; error <= kLastErrno; ++error) {
        const char* name = strerrorname_np(error);
        if (name == nullptr) continue;
        if (text == name) return error;
        names.emplace_back(name);
    }
    const std::string_view closest = closestName(text, names);
    fault.refuse("no error " + inQuotes(text) + "; " +
                 (closest.empty() ? "it is a name such as EIO, EBUSY, ENODEV, or its number"
                                  : "did you mean " + inQuotes(closest) + "?"));
}

int64_t parseDelayUs(const FaultText& fault, std::string_view text) {
    constexpr std::array<std::pair<std::string_view, double>, 3> kUnits{{{"us", 1}, {"ms", 1e3}, {"s", 1e6}}};
    for (const auto& [unit, us] : kUnits) {
        double number = 0;
        if (!text.ends_with(unit) || !parseNumber(text.substr(0, text.size() - unit.size()), number))
            continue;
        const double delay = number * us;
        if (delay >= 0 && delay <= static_cast<double>(kLongestDelayUs)) return std::llround(delay);
    }
    fault.refuse(inQuotes(text) +
                 " is no delay: write a number up to an hour with us, ms or s, as in 'slow=20ms'");
}

std::vector<uint8_t> parseBytes(const FaultText& fault, std::string_view text) {
    std::vector<uint8_t> bytes;
    for (size_t at = 0; at + 1 < text.size(); at += 2) {
        uint8_t byte = 0;
        const char* first = text.data() + at;
        const auto parsed = std::from_chars(first, first + 2, byte, 16);
        if (parsed.ec != std::errc() || parsed.ptr != first + 2) break;
        bytes.push_back(byte);
    }
    if (bytes.empty() || bytes.size() * 2 != text.size()) {
        fault.refuse(inQuotes(text) + " are no bytes: write pairs of hex digits, as in 'garbage=ff00'");
    }
    return bytes;
}

int64_t parseResult(const FaultText& fault, std::string_view text) {
    int32_t result = 0;  // what any of these calls can return
    if (!parseNumber(text, result))
        fault.refuse(inQuotes(text) + " is no result: write a number, as in 'result=-1'");
    return result;
}

std::string effectList(unsigned allowed) {
    std::string text;
    for (const EffectSyntax& effect : kEffects) {
        if ((allowed & bit(effect.kind)) == 0) continue;
        if (!text.empty()) text += ", ";
        text += effect.name;
        if (!effect.value.empty()) text += '=' + std::string(effect.value);
    }
    return text;
}

const EffectSyntax& findEffect(const FaultText& fault, const PointSyntax& point, std::string_view name) {
    const auto found = std::find_if(kEffects.begin(), kEffects.end(),
                                    [name](const EffectSyntax& effect) { return effect.name == name; });
    const std::string allowed = effectList(point.effects);
    if (found == kEffects.end()) {
        const std::string_view closest = closestName(name, namesOf(kEffects));
        const std::string advice = closest.empty() ? "" : "did you mean " + inQuotes(closest) + "? ";
        fault.refuse("no effect " + inQuotes(name) + "; " + advice + "it may be: " + allowed);
    }
    if ((point.effects & bit(found->kind)) == 0) {
        fault.refuse(inQuotes(name) + " means nothing at " + inQuotes(point.name) +
                     "; it may be: " + allowed);
    }
    return *found;
}

FaultEffect parseEffect(const FaultText& fault, const PointSyntax& point, std::string_view text) {
    const size_t equals = text.find('=');
    const bool hasValue = equals != std::string_view::npos;
    const EffectSyntax& syntax = findEffect(fault, point, text.substr(0, equals));
    const std::string name(syntax.name);
    if (hasValue && syntax.value.empty()) fault.refuse(inQuotes(name) + " takes no value");
    if (!hasValue && !syntax.value.empty()) {
        fault.refuse("a value is missing, as in '" + name + '=' + std::string(syntax.value) + '\'');
    }
    const std::string_view value = hasValue ? text.substr(equals + 1) : std::string_view();
    FaultEffect effect;
    effect.kind = syntax.kind;
    switch (syntax.kind) {
        case Kind::kFail:
            if (hasValue) effect.error = parseErrno(fault, value);
            break;
        case Kind::kLost:
            break;
        case Kind::kSlow:
            effect.delayUs = parseDelayUs(fault, value);
            break;
        case Kind::kGarbage:
            effect.bytes = parseBytes(fault, value);
            break;
        case Kind::kResult:
            effect.result = parseResult(fault, value);
            break;
    }
    return effect;
}

bool matches(const FaultRule& rule, FaultPoint point, std::string_view key) {
    return rule.point == point && (rule.key.empty() || rule.key == key);
}

}  // namespace

FaultRule parseFault(std::string_view text) {
    const FaultText fault(text);
    // Paths may hold a colon, effects never do.
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon + 1 == text.size()) {
        fault.refuse("an effect is missing; write " +
                     inQuotes(std::string(text.substr(0, colon)) + ":EFFECT") +
                     " with one of: " + effectList(kEverything));
    }
    std::string_view target = text.substr(0, colon);
    FaultRule rule;
    rule.text = text;
    if (const size_t at = target.rfind('@'); at != std::string_view::npos) {
        rule.occurrence = parseOccurrence(fault, target.substr(at + 1));
        target = target.substr(0, at);
    }
    const PointSyntax& point = parseTarget(fault, target, rule.key);
    rule.point = point.point;
    rule.effect = parseEffect(fault, point, text.substr(colon + 1));
    return rule;
}

void Faults::add(FaultRule rule) {
    const std::lock_guard lock(mMutex);
    mRules.push_back({std::move(rule)});
    mArmed.store(true, std::memory_order_release);
}

void Faults::clear() {
    const std::lock_guard lock(mMutex);
    mRules.clear();
    mArmed.store(mOverride != nullptr, std::memory_order_release);
}

void Faults::setOverride(Override decide) {
    const std::lock_guard lock(mMutex);
    mOverride = std::move(decide);
    mArmed.store(mOverride != nullptr || !mRules.empty(), std::memory_order_release);
}

std::optional<Faults::Strike> Faults::strike(FaultPoint point, std::string_view key,
                                             std::span<const uint8_t> input) {
    if (!mArmed.load(std::memory_order_acquire)) return std::nullopt;
    std::unique_lock lock(mMutex);
    if (mOverride) {
        // Called unlocked: it may look at the phone, or make further calls itself.
        const Override decide = mOverride;
        lock.unlock();
        if (auto effect = decide(point, key, input)) {
            mStrikes.fetch_add(1, std::memory_order_relaxed);
            return Strike{std::move(*effect), "override"};
        }
        lock.lock();
    }
    Armed* striking = nullptr;
    for (Armed& armed : mRules) {
        if (!matches(armed.rule, point, key)) continue;
        ++armed.seen;
        const bool due = armed.rule.occurrence == 0 || armed.rule.occurrence == armed.seen;
        if (due && striking == nullptr) striking = &armed;
    }
    if (striking == nullptr) return std::nullopt;
    striking->struck = true;
    mStrikes.fetch_add(1, std::memory_order_relaxed);
    return Strike{striking->rule.effect, striking->rule.text};
}

std::vector<std::string> Faults::unused() const {
    const std::lock_guard lock(mMutex);
    std::vector<std::string> texts;
    for (const Armed& armed : mRules) {
        if (!armed.struck) texts.push_back(armed.rule.text);
    }
    return texts;
}

uint64_t Faults::strikes() const {
    return mStrikes.load(std::memory_order_relaxed);
}

}  // namespace phone

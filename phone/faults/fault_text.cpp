// The table of places, and how a fault is written.

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include <fmt/format.h>

#include "base/closest_name.h"
#include "faults/faults.h"
#include "services/property_store.h"
#include "trace/decode.h"
#include "wire/hub_commands.h"

namespace phone {

namespace {

using Kind = FaultEffect::Kind;

constexpr unsigned bit(Kind kind) {
    return 1U << static_cast<unsigned>(kind);
}
constexpr unsigned kFails = bit(Kind::kFail) | bit(Kind::kSlow);
constexpr unsigned kMayBeLost = kFails | bit(Kind::kLost);
constexpr unsigned kEverything = kMayBeLost | bit(Kind::kGarbage) | bit(Kind::kResult);
constexpr unsigned kOfRequests = kEverything | bit(Kind::kMoves);

enum class Naming { kNone, kCommand, kRequest, kHubCommand, kMediaRequest, kPath, kProperty };

constexpr std::string_view kNamingWords[] = {"",      "COMMAND", "REQUEST", "HUB COMMAND", "MEDIA REQUEST",
                                             "/PATH", "PROPERTY"};

struct Range {
    int64_t low = 0;
    int64_t high = -1;
    // The value chooses one of the place's objects, where the fault strikes once unless it says when.
    bool chooses = false;
    bool isEmpty() const { return high < low; }
};

struct Place {
    std::string_view name;
    FaultPoint point;
    unsigned effects;
    std::string_view meaning;
    std::string_view arguments;
    Naming naming = Naming::kNone;
    Range value{};

    // Of a place whose name says what happens: the part behind its first word.
    std::string_view key() const { return effects == 0 ? name.substr(name.find('.') + 1) : ""; }
};

constexpr Range kReads{1, 1000};
constexpr Range kStatusBits{1, UINT8_MAX};
constexpr Range kUpdateBits{1, UINT16_MAX};
constexpr Range kBlocks{0, ois::kFirmwareBlockCount - 1, true};

using enum FaultPoint;
constexpr unsigned kItself = 0;  // the name says what happens

constexpr std::array kPlaces{
    Place{"", kCommand, kEverything, "a command, whichever way it goes", "session --fault SET_MODE@3:lost",
          Naming::kCommand},
    Place{"request", kRequest, kOfRequests, "a private request; UNKNOWN: one that there is not",
          "session -m dw9786 --fault request.SET_MODE@2-5:errno=EIO", Naming::kRequest},
    Place{"hub", kHubCommand, kEverything, "a record to the sensor hub",
          "session --fault hub@after3:slow=20ms", Naming::kHubCommand},
    Place{"media", kMediaRequest, kEverything, "a request to a media device",
          "session -m dw9786 --fault media.ENUM_ENTITIES@2:errno=EIO", Naming::kMediaRequest},
    Place{"open", kOpen, kMayBeLost, "open or fopen; lost: what is written to the file",
          "session -m dw9786 --fault open./dev/v4l-subdev10:errno=EACCES", Naming::kPath},
    Place{"readlink", kReadlink, kFails | bit(Kind::kGarbage), "readlink",
          "session -m dw9786 --fault readlink./sys/dev/char/81:100:errno=ENOENT", Naming::kPath},
    Place{"close", kClose, kFails, "close or fclose", "dump otp -m dw9786 --fault close:errno=EIO",
          Naming::kPath},
    Place{"thread", kThreadCreate, kFails, "pthread_create", "session --fault thread:fail"},
    Place{"thread-priority", kThreadPriority, kFails, "pthread_getschedparam",
          "record -m dw9786 --seconds 0.1 --fault thread-priority:errno=EPERM"},
    Place{"thread-schedule", kThreadSchedule, kMayBeLost, "pthread_setschedparam",
          "record -m dw9786 --seconds 0.1 --fault thread-schedule:errno=EPERM"},
    Place{"sensor-provider", kSensorProvider, kMayBeLost, "createInstance",
          "session --fault sensor-provider:fail"},
    Place{"sensor-enable", kSensorEnable, kMayBeLost, "enableSensor", "session --fault sensor-enable:fail"},
    Place{"sensor-enabled", kSensorEnabled, kFails, "isEnabled", "session --fault sensor-enabled:fail"},
    Place{"sensor-samples", kSensorSamples, kMayBeLost, "getAllSensorData",
          "samples --fault sensor-samples:lost"},
    Place{"sensor-disable", kSensorDisable, kMayBeLost | bit(Kind::kResult), "disableSensor",
          "session --fault sensor-disable:result=-1"},
    Place{"property", kProperty, kFails | bit(Kind::kResult),
          "a property read; failing, it finds the property unset",
          "session --fault property.vendor.debug.ois.bypassen:result=0", Naming::kProperty},
    Place{"customisation", kCustomisation, kFails, "GetOisDriverName; failing, it knows of no OIS",
          "session --fault customisation:fail"},
    Place{"telemetry", kTelemetry, kMayBeLost, "getService of the telemetry service",
          "session --fault telemetry:fail"},
    Place{"telemetry-report", kTelemetryReport, kMayBeLost, "a report to it",
          "session --fault telemetry-report:lost"},
    Place{"chip.never-idle", kChip, kItself, "an idle request is ignored",
          "calibrate --fault chip.never-idle"},
    Place{"chip.idle-on-read", kChip, kItself, "idle at that read of the state after an idle request",
          "calibrate --fault chip.idle-on-read=21", Naming::kNone, kReads},
    Place{"chip.calibration-never-done", kChip, kItself, "a calibration does not end",
          "calibrate --fault chip.calibration-never-done"},
    Place{"chip.calibration-error", kChip, kItself, "a calibration leaves these bits in the status",
          "calibrate --fault chip.calibration-error=0x21", Naming::kNone, kStatusBits},
    Place{"chip.flash-write-error", kChip, kItself, "a flash write fails",
          "calibrate --fault chip.flash-write-error"},
    Place{"chip.flash-data-changed", kChip, kItself, "a flash write damages the other data",
          "calibrate --fault chip.flash-data-changed"},
    Place{"chip.download-error", kChip, kItself, "a block leaves these bits in the update status",
          "firmware-update --fault chip.download-error=8", Naming::kNone, kUpdateBits},
    Place{"chip.check-value-wrong", kChip, kItself, "a good image's check value is refused",
          "firmware-update --fault chip.check-value-wrong"},
    Place{"chip.version-mismatch", kChip, kItself, "a good image reports the version below its own",
          "firmware-update --fault chip.version-mismatch"},
    Place{"chip.block-lost", kChip, kItself, "that block never arrives",
          "firmware-update --fault chip.block-lost=3", Naming::kNone, kBlocks},
    Place{"chip.block-corrupted", kChip, kItself, "a bit of that block is flipped",
          "firmware-update --fault chip.block-corrupted=3", Naming::kNone, kBlocks},
    Place{"chip.power-cut", kChip, kItself, "the chip loses power at that block",
          "firmware-update --fault chip.power-cut=57 --times 2", Naming::kNone, kBlocks},
    Place{"chip.old-clock", kChip, kItself, "the chip runs from the old clock until it is updated",
          "firmware-update --fault chip.old-clock"},
    Place{"lens.stuck", kLens, kItself, "the lens does not move", "detect-defect --fault lens.stuck"},
    Place{"lens.stuck-x", kLens, kItself, "... about x", "detect-defect --fault lens.stuck-x"},
    Place{"lens.stuck-y", kLens, kItself, "... about y", "detect-defect --fault lens.stuck-y"},
    Place{"lens.sluggish", kLens, kItself, "the lens moves at a tenth of its bandwidth",
          "detect-defect --fault lens.sluggish"},
    Place{"lens.sluggish-x", kLens, kItself, "... about x", "detect-defect --fault lens.sluggish-x"},
    Place{"lens.sluggish-y", kLens, kItself, "... about y", "detect-defect --fault lens.sluggish-y"},
    Place{"lens.off-centre", kLens, kItself, "the lens rests beside the hall centre",
          "detect-defect --fault lens.off-centre@after2"},
    Place{"lens.off-centre-x", kLens, kItself, "... about x", "detect-defect --fault lens.off-centre-x"},
    Place{"lens.off-centre-y", kLens, kItself, "... about y", "detect-defect --fault lens.off-centre-y"},
};

struct Effect {
    std::string_view name;
    Kind kind;
    std::string_view value;  // an example of what stands behind '='; empty: nothing does
};

constexpr std::array kEffects{
    Effect{"fail", Kind::kFail, ""},           Effect{"errno", Kind::kFail, "EIO"},
    Effect{"lost", Kind::kLost, ""},           Effect{"slow", Kind::kSlow, "20ms"},
    Effect{"garbage", Kind::kGarbage, "ff00"}, Effect{"result", Kind::kResult, "-1"},
    Effect{"moves", Kind::kMoves, "+8"},
};

std::string effectList(unsigned allowed) {
    std::vector<std::string> texts;
    for (const Effect& effect : kEffects) {
        if ((allowed & bit(effect.kind)) == 0) continue;
        texts.push_back(fmt::format("{}{}{}", effect.name, effect.value.empty() ? "" : "=", effect.value));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

template <typename Table>
std::vector<std::string_view> namesOf(const Table& table) {
    std::vector<std::string_view> names;
    for (const auto& entry : table) {
        if constexpr (requires { entry.key; }) {
            names.push_back(entry.key);
        } else if (!entry.name.empty()) {
            names.push_back(entry.name);
        }
    }
    return names;
}

template <typename Number>
bool parseNumber(std::string_view text, Number& number, int base = 10) {
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number, base);
    return parsed.ec == std::errc() && parsed.ptr == end;
}

bool parseReal(std::string_view text, double& number) {
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    return parsed.ec == std::errc() && parsed.ptr == end;
}

// One fault's text, whose errors all begin alike.
class Parser {
  public:
    explicit Parser(std::string_view text) : mText(text) { mFault.text = text; }

    Fault parse();

  private:
    template <typename... Args>
    [[noreturn]] void refuse(fmt::format_string<Args...> format, Args&&... args) const {
        throw std::invalid_argument(
            fmt::format("fault '{}': {}", mText, fmt::format(format, std::forward<Args>(args)...)));
    }

    const Place& parseTarget(std::string_view target);
    const Place& placeOfBareName(std::string_view name);
    void parseItself(const Place& place, std::string_view rest);
    void parseName(const Place& place, std::string_view name);
    void parseWhen(std::string_view text);
    uint64_t parseCount(std::string_view text, std::string_view whole) const;
    void parseEffect(const Place& place, std::string_view text);
    const Effect& findEffect(const Place& place, std::string_view name) const;
    int parseErrno(std::string_view text) const;
    int64_t parseDelayUs(std::string_view text) const;
    std::vector<uint8_t> parseBytes(std::string_view text) const;
    int64_t parseResult(std::string_view text) const;
    int64_t parseMoved(std::string_view text) const;

    std::string_view mText;
    Fault mFault;
};

const Place* findPlace(std::string_view name) {
    const auto found = std::ranges::find(kPlaces, name, &Place::name);
    return found == kPlaces.end() || name.empty() ? nullptr : &*found;
}

// The names that a NAME may have; empty: any path.
std::vector<std::string_view> knownNames(Naming naming) {
    switch (naming) {
        case Naming::kRequest: {
            std::vector<std::string_view> names = namesOf(privateRequests());
            names.push_back(kUnknownRequest);
            return names;
        }
        case Naming::kHubCommand:
            return namesOf(hubCommands());
        case Naming::kMediaRequest:
            return namesOf(mediaRequests());
        case Naming::kProperty:
            return namesOf(knownProperties());
        case Naming::kCommand: {
            std::vector<std::string_view> names = namesOf(privateRequests());
            for (const std::string_view name : namesOf(hubCommands())) {
                if (std::ranges::find(names, name) == names.end()) names.push_back(name);
            }
            return names;
        }
        case Naming::kPath:
        case Naming::kNone:
            break;
    }
    return {};
}

void Parser::parseName(const Place& place, std::string_view name) {
    if (place.naming == Naming::kNone) {
        refuse("'{}' takes no name behind it; write '{}:fail'", place.name, place.name);
    }
    if (name.empty()) refuse("a name is missing behind '{}.'", place.name);
    if (place.naming == Naming::kPath) {
        if (name.front() != '/') refuse("'{}' is no path: paths begin with '/'", name);
    } else {
        const std::vector<std::string_view> names = knownNames(place.naming);
        if (std::ranges::find(names, name) == names.end()) {
            std::string what(kNamingWords[static_cast<size_t>(place.naming)]);
            std::ranges::transform(what, what.begin(),
                                   [](char c) { return static_cast<char>(std::tolower(c)); });
            refuse("no {} '{}'; {}", what, name, nameAdvice(name, names));
        }
    }
    mFault.key = name;
}

const Place& Parser::placeOfBareName(std::string_view name) {
    const std::vector<std::string_view> names = knownNames(Naming::kCommand);
    if (std::ranges::find(names, name) != names.end()) {
        mFault.key = name;
        return kPlaces.front();
    }
    std::vector<std::string_view> all = names;
    for (const std::string_view place : namesOf(kPlaces)) all.push_back(place);
    refuse("nothing is called '{}'; {}", name, nameAdvice(name, all));
}

// A place whose name says it all, and what stands behind it.
void Parser::parseItself(const Place& place, std::string_view rest) {
    mFault.key = place.key();
    mFault.effect.kind = Kind::kItself;
    if (place.value.isEmpty()) {
        if (!rest.empty()) refuse("'{}' takes no value", place.name);
        return;
    }
    const bool hex = rest.starts_with("=0x") || rest.starts_with("=0X");
    int64_t value = 0;
    const bool isNumber =
        rest.starts_with('=') && parseNumber(rest.substr(hex ? 3 : 1), value, hex ? 16 : 10);
    if (!isNumber || value < place.value.low || value > place.value.high) {
        refuse("write '{}=N' with a number from {} to {}", place.name, place.value.low, place.value.high);
    }
    mFault.effect.result = value;
    if (!place.value.chooses) return;
    mFault.object = value;
    mFault.last = 1;
}

const Place& Parser::parseTarget(std::string_view target) {
    if (target.empty()) refuse("what shall fail? Write, for example, 'SET_MODE:errno=EIO'");
    const size_t equals = target.find('=');
    if (const Place* whole = findPlace(target.substr(0, equals)); whole != nullptr && whole->effects == 0) {
        parseItself(*whole, equals == std::string_view::npos ? "" : target.substr(equals));
        return *whole;
    }
    if (const Place* whole = findPlace(target)) return *whole;
    const size_t dot = target.find('.');
    if (dot == std::string_view::npos) return placeOfBareName(target);
    const std::string_view prefix = target.substr(0, dot);
    const Place* place = findPlace(prefix);
    if (place != nullptr) {
        parseName(*place, target.substr(dot + 1));
        return *place;
    }
    refuse("no place '{}'; {}", target.substr(0, equals),
           nameAdvice(target.substr(0, equals), namesOf(kPlaces)));
}

uint64_t Parser::parseCount(std::string_view text, std::string_view whole) const {
    uint64_t count = 0;
    if (!parseNumber(text, count) || count == 0) {
        refuse(
            "'@{}' says no time: they count from 1 on, as in '@3', '@2-5' or '@after3'; '@always' is all of "
            "them",
            whole);
    }
    return count;
}

void Parser::parseWhen(std::string_view text) {
    constexpr std::string_view kAfter = "after";
    constexpr uint64_t kEver = std::numeric_limits<uint64_t>::max();
    const size_t dash = text.find('-');
    if (text == "always") {
        mFault.last = kEver;
    } else if (text.starts_with(kAfter)) {
        mFault.first = parseCount(text.substr(kAfter.size()), text) + 1;
        mFault.last = kEver;
    } else {
        mFault.first = parseCount(text.substr(0, dash), text);
        mFault.last = dash == std::string_view::npos ? mFault.first : parseCount(text.substr(dash + 1), text);
        if (mFault.last < mFault.first) refuse("'@{}' ends before it begins", text);
    }
}

const Effect& Parser::findEffect(const Place& place, std::string_view name) const {
    const auto found = std::ranges::find(kEffects, name, &Effect::name);
    const std::string allowed = effectList(place.effects);
    if (found == kEffects.end()) {
        const std::string_view closest = closestName(name, namesOf(kEffects));
        refuse("no effect '{}'; {}it may be: {}", name,
               closest.empty() ? "" : fmt::format("did you mean '{}'? ", closest), allowed);
    }
    if ((place.effects & bit(found->kind)) == 0) {
        refuse("'{}' means nothing at '{}'; it may be: {}", name, place.name, allowed);
    }
    return *found;
}

int Parser::parseErrno(std::string_view text) const {
    constexpr int kLastErrno = 133;
    int number = 0;
    if (parseNumber(text, number) && number > 0 && strerrorname_np(number) != nullptr) return number;
    if (const int known = errorByName(text); known != 0) return known;
    std::vector<std::string_view> names;
    for (int error = 1; error <= kLastErrno; ++error) {
        if (const char* name = strerrorname_np(error)) names.emplace_back(name);
    }
    const std::string_view closest = closestName(text, names);
    refuse("no error '{}'; {}", text,
           closest.empty() ? "it is a name such as EIO, EBUSY, ENODEV, or its number"
                           : fmt::format("did you mean '{}'?", closest));
}

int64_t Parser::parseDelayUs(std::string_view text) const {
    constexpr double kLongestUs = 3600e6;
    constexpr std::array<std::pair<std::string_view, double>, 3> kUnits{{{"us", 1}, {"ms", 1e3}, {"s", 1e6}}};
    for (const auto& [unit, us] : kUnits) {
        double number = 0;
        if (!text.ends_with(unit) || !parseReal(text.substr(0, text.size() - unit.size()), number)) continue;
        if (number >= 0 && number * us <= kLongestUs) return std::llround(number * us);
    }
    refuse("'{}' is no delay: write a number up to an hour with us, ms or s, as in 'slow=20ms'", text);
}

std::vector<uint8_t> Parser::parseBytes(std::string_view text) const {
    try {
        if (!text.empty()) return bytesOfHex(text);
    } catch (const std::invalid_argument&) {
    }
    refuse("'{}' are no bytes: write pairs of hex digits, as in 'garbage=ff00'", text);
}

int64_t Parser::parseResult(std::string_view text) const {
    int32_t result = 0;  // what any of these calls can return
    if (!parseNumber(text, result)) refuse("'{}' is no result: write a number, as in 'result=-1'", text);
    return result;
}

int64_t Parser::parseMoved(std::string_view text) const {
    int64_t bytes = 0;
    const bool more = text.starts_with('+');
    if (parseNumber(text.substr(more ? 1 : 0), bytes) && bytes != 0 && std::abs(bytes) <= kMostMoved)
        return bytes;
    refuse("'{}' is no number of bytes: write how many more or fewer, at most {}, as in 'moves=+8'", text,
           kMostMoved);
}

void Parser::parseEffect(const Place& place, std::string_view text) {
    const size_t equals = text.find('=');
    const bool hasValue = equals != std::string_view::npos;
    const Effect& effect = findEffect(place, text.substr(0, equals));
    if (hasValue && effect.value.empty()) refuse("'{}' takes no value", effect.name);
    if (!hasValue && !effect.value.empty()) {
        refuse("a value is missing, as in '{}={}'", effect.name, effect.value);
    }
    const std::string_view value = hasValue ? text.substr(equals + 1) : std::string_view();
    mFault.effect.kind = effect.kind;
    if (effect.kind == Kind::kFail && hasValue) mFault.effect.error = parseErrno(value);
    if (effect.kind == Kind::kSlow) mFault.effect.delayUs = parseDelayUs(value);
    if (effect.kind == Kind::kGarbage) mFault.effect.bytes = parseBytes(value);
    if (effect.kind == Kind::kMoves) mFault.effect.result = parseMoved(value);
    if (effect.kind == Kind::kResult) mFault.effect.result = parseResult(value);
}

Fault Parser::parse() {
    // Places that say it all have no effect behind a colon; of others, paths may hold a colon, effects never
    // do.
    const bool saysAll = mText.starts_with("chip.") || mText.starts_with("lens.");
    const size_t colon = saysAll ? mText.find(':') : mText.rfind(':');
    std::string_view target = mText.substr(0, colon);
    std::string_view when;
    if (const size_t at = target.rfind('@'); at != std::string_view::npos) {
        when = target.substr(at + 1);
        target = target.substr(0, at);
        if (when.empty()) parseCount(when, when);
    }
    const Place& place = parseTarget(target);
    if (!when.empty()) parseWhen(when);
    mFault.point = place.point;
    if (place.effects == 0) {
        if (colon != std::string_view::npos) refuse("'{}' says it all; nothing stands behind it", place.name);
    } else if (colon == std::string_view::npos || colon + 1 == mText.size()) {
        refuse("an effect is missing; write '{}:EFFECT' with one of: {}", target, effectList(place.effects));
    } else {
        parseEffect(place, mText.substr(colon + 1));
    }
    return std::move(mFault);
}

}  // namespace

const std::vector<FaultPlace>& faultPlaces() {
    static const std::vector<FaultPlace> places = [] {
        std::vector<FaultPlace> all;
        for (const Place& place : kPlaces) {
            const std::string value = place.value.isEmpty()
                                          ? std::string()
                                          : fmt::format("{}..{}", place.value.low, place.value.high);
            all.push_back({place.name, place.point, kNamingWords[static_cast<size_t>(place.naming)], value,
                           effectList(place.effects), place.meaning, place.arguments});
        }
        return all;
    }();
    return places;
}

Fault parseFault(std::string_view text) {
    return Parser(text).parse();
}

}  // namespace phone

#include "capture/trace_compare.h"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

#include "base/number.h"
#include "trace/decode.h"

namespace oisctl {

using phone::Event;
using phone::EventKind;

namespace {

constexpr std::string_view kDescriptorField = "fd";

// --- Bytes.

// The address of memory that a request carries, which is another in every process.
std::optional<uint64_t> addressIn(const Event& event) {
    if (event.kind != EventKind::kSubDevice || event.code != ois::code(ois::Request::kReadFlash)) return {};
    return phone::recordOf<uint64_t>(event.sent);
}

void hideAddress(const Event& event, std::vector<uint8_t>& bytes) {
    const std::optional<uint64_t> address = addressIn(event);
    // An answer in place has overwritten it.
    if (address && bytes.size() >= sizeof *address && phone::recordOf<uint64_t>(bytes) == *address)
        std::fill_n(bytes.begin(), sizeof *address, uint8_t{0});
}

const phone::RecordLayout* layoutOf(const Event& event, size_t& start) {
    start = 0;
    if (event.kind == EventKind::kHub) {
        start = offsetof(ois::OisCustomCmd, payload);
        return phone::hubRecord(phone::recordOf<ois::OisCustomCmd>(event.sent), event.phase);
    }
    const phone::RequestInfo* info = phone::findRequest(event.code);
    return info == nullptr ? nullptr : info->record;
}

// The bytes that count.
std::vector<uint8_t> counted(const Event& event, std::vector<uint8_t> bytes, const Aside& aside) {
    hideAddress(event, bytes);
    size_t start = 0;
    const phone::RecordLayout* layout = layoutOf(event, start);
    if (layout == nullptr || aside.fields.empty()) return bytes;
    for (const phone::RecordField& field : layout->fields) {
        if (!aside.fields.contains(field.name)) continue;
        const size_t first = std::min(start + field.offset, bytes.size());
        const size_t last = std::min(first + field.size, bytes.size());
        std::fill(bytes.begin() + static_cast<ptrdiff_t>(first), bytes.begin() + static_cast<ptrdiff_t>(last),
                  uint8_t{0});
    }
    return bytes;
}

void compareBytes(const char* what, const std::vector<uint8_t>& a, const std::vector<uint8_t>& b,
                  std::vector<ValueDifference>& found) {
    if (a == b) return;
    if (a.size() != b.size()) {
        found.push_back({fmt::format("bytes {}", what), std::to_string(a.size()), std::to_string(b.size())});
        return;
    }
    const auto [atA, atB] = std::mismatch(a.begin(), a.end(), b.begin());
    found.push_back({fmt::format("byte {} {}", atA - a.begin(), what), fmt::format("0x{:02x}", *atA),
                     fmt::format("0x{:02x}", *atB)});
}

// --- Fields.

bool isAside(const phone::Field& field, const Aside& aside) {
    return field.name == kDescriptorField || aside.fields.contains(field.name);
}

void compareFields(const std::string& prefix, const std::vector<phone::Field>& a,
                   const std::vector<phone::Field>& b, const Aside& aside,
                   std::vector<ValueDifference>& found) {
    const auto valueIn = [](const std::vector<phone::Field>& fields,
                            const std::string& name) -> std::optional<std::string> {
        const auto at = std::ranges::find(fields, name, &phone::Field::name);
        return at == fields.end() ? std::nullopt : std::optional(toText(*at));
    };
    for (const phone::Field& field : a) {
        if (isAside(field, aside)) continue;
        const auto other = valueIn(b, field.name);
        if (other != toText(field))
            found.push_back({prefix + field.name, toText(field), other.value_or("absent")});
    }
    for (const phone::Field& field : b) {
        if (!isAside(field, aside) && !valueIn(a, field.name))
            found.push_back({prefix + field.name, "absent", toText(field)});
    }
}

// --- Messages.

// A number, or anything else up to the next one.
std::string_view nextToken(std::string_view text) {
    const auto isDigit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; };
    constexpr std::string_view kHexPrefix = "0x";
    if (text.starts_with(kHexPrefix)) {
        const size_t end = text.find_first_not_of("0123456789abcdef", kHexPrefix.size());
        return text.substr(0, end);
    }
    const bool number = isDigit(text.front());
    const auto end = std::find_if(text.begin(), text.end(), [&](char c) { return isDigit(c) != number; });
    return text.substr(0, static_cast<size_t>(end - text.begin()));
}

// Some messages end with a number whose format does not fit it: what is shown is whatever stood in a
// register.
std::string_view defined(std::string_view text) {
    constexpr std::pair<std::string_view, std::string_view> kUndefinedBehind[] = {
        {"[DetectActutorDefect]", "error_y ("}, {"[GetSensorData] <", ","}};
    for (const auto& [sender, mark] : kUndefinedBehind) {
        const std::string_view untilMark = text.substr(0, text.rfind(",>"));
        if (text.starts_with(sender)) return untilMark.substr(0, untilMark.rfind(mark));
    }
    return text;
}

bool sameMessage(std::string_view a, std::string_view b, const StandIns& standIns) {
    a = defined(a);
    b = defined(b);
    while (!a.empty() && !b.empty()) {
        const std::string_view tokenA = nextToken(a);
        const std::string_view tokenB = nextToken(b);
        a.remove_prefix(tokenA.size());
        b.remove_prefix(tokenB.size());
        if (tokenA == tokenB) continue;
        const auto numberA = numberOf<int64_t>(tokenA);
        const auto numberB = numberOf<int64_t>(tokenB);
        if (!numberA || !numberB || !standIns.contains({*numberA, *numberB})) return false;
    }
    return a.empty() && b.empty();
}

// --- Events.

bool opensDescriptor(const Event& event) {
    return event.kind == EventKind::kFile && event.name == "open" && event.result.value_or(-1) >= 0;
}

std::string resultText(const Event& event) {
    if (!event.result) return "none";
    if (opensDescriptor(event)) return "a descriptor";
    return std::to_string(*event.result);
}

std::string eventName(const Event& event) {
    return fmt::format("{} {}", phone::name(event.kind), phone::nameOf(event));
}

// --- Threads.

using Events = std::vector<const TracedEvent*>;

bool counts(const Event& event, const Aside& aside) {
    if (aside.kinds.contains(event.kind)) return false;
    return !phone::isCommand(event.kind) || !aside.commands.contains(phone::nameOf(event));
}

std::map<uint32_t, Events> byThread(const TraceFile& trace, const Aside& aside) {
    std::map<uint32_t, Events> threads;
    for (const TracedEvent& traced : trace.events)
        if (counts(traced.event, aside)) threads[traced.event.thread].push_back(&traced);
    return threads;
}

// Numbers that each trace has in the same place: descriptors that an open gave, addresses.
StandIns standInsOf(const Events& a, const Events& b, std::optional<int64_t> (*numberOf)(const Event&)) {
    const auto numbers = [&](const Events& events) {
        std::vector<int64_t> found;
        for (const TracedEvent* traced : events)
            if (const auto number = numberOf(traced->event)) found.push_back(*number);
        return found;
    };
    const std::vector<int64_t> inA = numbers(a);
    const std::vector<int64_t> inB = numbers(b);
    StandIns pairs;
    for (size_t i = 0; i < std::min(inA.size(), inB.size()); ++i) pairs.emplace(inA[i], inB[i]);
    return pairs;
}

std::optional<int64_t> openedDescriptor(const Event& event) {
    return opensDescriptor(event) ? event.result : std::nullopt;
}

// As far as messages show it.
std::optional<int64_t> shownAddress(const Event& event) {
    const std::optional<uint64_t> address = addressIn(event);
    return address ? std::optional<int64_t>(static_cast<uint32_t>(*address)) : std::nullopt;
}

class Comparer {
  public:
    Comparer(const TraceFile& a, const TraceFile& b, const Aside& aside)
        : mAside(aside), mCutA(a.cut), mCutB(b.cut), mA(byThread(a, aside)), mB(byThread(b, aside)) {
        for (const auto& [thread, events] : mA) {
            for (const auto number : {openedDescriptor, shownAddress})
                mStandIns.merge(standInsOf(events, mB[thread], number));
        }
    }

    TraceComparison compare() {
        for (const auto& [thread, events] : mB) mA.try_emplace(thread);
        for (const auto& [thread, events] : mA) compareThread(thread, events, mB[thread]);
        compareCommands();
        return std::move(mFound);
    }

  private:
    // Up to the thread's first difference; of all threads' the one that stands first counts.
    void compareThread(uint32_t thread, const Events& a, const Events& b) {
        for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
            // A trace that is cut says nothing of what came then.
            if ((i >= a.size() && mCutA) || (i >= b.size() && mCutB)) return;
            EventDifference difference{.thread = thread};
            if (i < a.size()) difference.a = a[i];
            if (i < b.size()) difference.b = b[i];
            if (difference.a != nullptr && difference.b != nullptr) {
                difference.values = differences(a[i]->event, b[i]->event, mAside, mStandIns);
                if (difference.values.empty()) {
                    ++mFound.compared;
                    if (phone::isCommand(a[i]->event.kind)) ++mFound.commandsCompared;
                    continue;
                }
            }
            const size_t line = i < a.size() ? a[i]->line : b[i]->line;
            if (!mFound.first || line < mFirstLine) {
                mFound.first = difference;
                mFirstLine = line;
            }
            return;
        }
    }

    void compareCommands() {
        std::map<std::string, std::map<uint32_t, std::pair<Events, Events>>> byName;
        for (const auto& [threads, side] : {std::pair(&mA, 0), std::pair(&mB, 1)}) {
            for (const auto& [thread, events] : *threads) {
                for (const TracedEvent* traced : events) {
                    if (!phone::isCommand(traced->event.kind)) continue;
                    auto& [a, b] = byName[eventName(traced->event)][thread];
                    (side == 0 ? a : b).push_back(traced);
                }
            }
        }
        for (const auto& [name, threads] : byName) {
            CommandDifference all;
            for (const auto& [thread, sides] : threads) {
                const CommandDifference difference = compareCommand(sides.first, sides.second);
                all.a += difference.a;
                all.b += difference.b;
                all.other += difference.other;
                if (!all.firstOther) all.firstOther = difference.firstOther;
            }
            const bool fewer = (all.a < all.b && !mCutA) || (all.b < all.a && !mCutB);
            if (fewer || all.other > 0) mFound.commands.emplace(name, std::move(all));
        }
    }

    CommandDifference compareCommand(const Events& a, const Events& b) const {
        CommandDifference difference{.a = a.size(), .b = b.size()};
        for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
            std::vector<ValueDifference> values = differences(a[i]->event, b[i]->event, mAside, mStandIns);
            if (values.empty()) continue;
            ++difference.other;
            if (!difference.firstOther)
                difference.firstOther = {a[i], b[i], a[i]->event.thread, std::move(values)};
        }
        return difference;
    }

    const Aside& mAside;
    const bool mCutA, mCutB;
    std::map<uint32_t, Events> mA, mB;
    StandIns mStandIns;
    TraceComparison mFound;
    size_t mFirstLine = 0;
};

}  // namespace

std::vector<ValueDifference> differences(const Event& a, const Event& b, const Aside& aside,
                                         const StandIns& standIns) {
    std::vector<ValueDifference> found;
    if (eventName(a) != eventName(b) || a.result.has_value() != b.result.has_value())
        return {{"event", toText(a, false), toText(b, false)}};
    const phone::Decoded decodedA = phone::decode(a);
    const phone::Decoded decodedB = phone::decode(b);
    const bool carriesBytes = phone::isCommand(a.kind) || a.kind == EventKind::kMedia;
    const auto compare = [&](const char* what, const std::string& prefix, const auto& bytes,
                             const auto& fields) {
        const auto bytesA = counted(a, a.*bytes, aside);
        const auto bytesB = counted(b, b.*bytes, aside);
        if (carriesBytes && bytesA == bytesB) return;
        const size_t before = found.size();
        compareFields(prefix, decodedA.*fields, decodedB.*fields, aside, found);
        if (found.size() == before) compareBytes(what, bytesA, bytesB, found);
    };
    compare("sent", "", &Event::sent, &phone::Decoded::fields);
    compare("received", "answered ", &Event::received, &phone::Decoded::answer);
    if (!sameMessage(a.text, b.text, standIns)) found.push_back({"text", toText(a, false), toText(b, false)});
    if (resultText(a) != resultText(b)) found.push_back({"result", resultText(a), resultText(b)});
    if (a.error != b.error) {
        const auto text = [](int error) { return error == 0 ? "none" : phone::errorName(error); };
        found.push_back({"error", text(a.error), text(b.error)});
    }
    return found;
}

std::set<EventKind> kindsNotIn(const TraceFile& trace) {
    std::set<EventKind> kinds{EventKind::kMessage,  EventKind::kTelemetry, EventKind::kSleep,
                              EventKind::kProperty, EventKind::kSensor,    EventKind::kCustomisation};
    for (const TracedEvent& traced : trace.events) kinds.erase(traced.event.kind);
    return kinds;
}

TraceComparison compareTraces(const TraceFile& a, const TraceFile& b, const Aside& aside) {
    return Comparer(a, b, aside).compare();
}

}  // namespace oisctl

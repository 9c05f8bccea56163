#pragma once
// Whether two traces tell the same story.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "capture/trace_file.h"

namespace oisctl {

// A value that is not the same in both; as text.
struct ValueDifference {
    std::string what;  // "mode", "answered hall_x", "result", "event"
    std::string a, b;
};

// Where the traces part. Null: that trace has no more events of the thread.
struct EventDifference {
    const TracedEvent* a = nullptr;
    const TracedEvent* b = nullptr;
    uint32_t thread = 0;
    std::vector<ValueDifference> values{};
};

// Commands of one name, of each thread the first of one trace beside the first of the other, and so on.
struct CommandDifference {
    uint64_t a = 0, b = 0;  // how many there are
    uint64_t other = 0;     // pairs that are not the same
    std::optional<EventDifference> firstOther{};
};

struct TraceComparison {
    std::optional<EventDifference> first;
    std::map<std::string, CommandDifference> commands;  // those that differ
    uint64_t compared = 0;                              // pairs of events that are the same
    uint64_t commandsCompared = 0;                      // those of them that are commands
};

inline bool isEqual(const TraceComparison& compared) {
    return !compared.first && compared.commands.empty();
}

// What is left aside: kinds of events, fields of records and answers, commands by name.
struct Aside {
    std::set<phone::EventKind> kinds{};
    std::set<std::string, std::less<>> fields{};
    std::set<std::string> commands{};
};

// Kinds of events that not every recorder looks at, as far as the trace has none of them.
std::set<phone::EventKind> kindsNotIn(const TraceFile& trace);

// Compares thread by thread, in order. Times, numbers of descriptors and addresses of memory do not count.
TraceComparison compareTraces(const TraceFile& a, const TraceFile& b, const Aside& aside);

// Numbers of two traces that stand for each other in messages: descriptors, addresses.
using StandIns = std::set<std::pair<int64_t, int64_t>>;
// The values in which two events differ.
std::vector<ValueDifference> differences(const phone::Event& a, const phone::Event& b, const Aside& aside,
                                         const StandIns& standIns);

}  // namespace oisctl

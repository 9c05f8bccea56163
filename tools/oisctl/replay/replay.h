#pragma once
// A recorded session again: the driver is called as it was, and answered as it was.

#include <optional>
#include <set>
#include <string>

#include "capture/trace_compare.h"
#include "capture/trace_file.h"
#include "replay/recorded_answers.h"

namespace oisctl {

struct Replay {
    TraceFile trace;   // what it was to do: of the recording, what the driver's callers and its threads did
    TraceFile done{};  // what it did this time
    TraceComparison compared{};
    std::optional<Unanswered> unanswered{};
    std::set<phone::EventKind> notRecorded{};  // kinds that the recorder did not look at
    Aside aside{};                             // what was not compared
};

// Runs the driver on a simulated clock. `polled`: requests whose number depends on time; how many there are,
// the sleeps between them and what the driver said of them does not count. Throws InputError when the trace
// has no calls of the driver, lacks what a call needs, or has calls of two threads at the same time.
Replay replay(const TraceFile& recorded, const std::set<std::string>& polled);

}  // namespace oisctl

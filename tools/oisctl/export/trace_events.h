#pragma once
// Traces as trace-event JSON, which timeline viewers open.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "capture/trace_file.h"

namespace oisctl {

// A stretch of a thread's time, microseconds.
struct Slice {
    const TracedEvent* traced = nullptr;  // a call that ended: its end
    int64_t fromUs = 0;
    int64_t untilUs = 0;
};

// Calls, requests, records to the hub and sleeps. Those of a thread are apart or one within the other, and
// those without come before those within. A request whose length nobody measured has none; a call that the
// trace saw no end of lasts until the trace ends.
std::vector<Slice> slicesOf(const TraceFile& trace);

// A mode that the controller took, until the next one.
struct ModeSlice {
    std::string name;
    int64_t fromUs = 0;
    int64_t untilUs = 0;
};
std::vector<ModeSlice> modesOf(const TraceFile& trace);

// One JSON object, piece by piece: those slices, everything else as moments, threads by name, and the modes
// as a track of their own.
void exportTraceEvents(const TraceFile& trace, const std::function<void(std::string_view piece)>& put);

}  // namespace oisctl

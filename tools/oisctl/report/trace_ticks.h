#pragma once
// What a report's timeline shows of a trace: calls, commands, and what went wrong, each at its time.

#include <nlohmann/json_fwd.hpp>

#include "capture/trace_file.h"

namespace oisctl {

// {"lanes": [{"kind", "name"}], "ticks": {columns}, "details": [...]}: each tick stands in a lane and has a
// detail, what it carried in words and bytes. Of records that come in thousands, evenly spread ones have it.
nlohmann::ordered_json traceTicks(const TraceFile& trace);

}  // namespace oisctl

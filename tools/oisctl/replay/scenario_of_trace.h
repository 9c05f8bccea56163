#pragma once
// A recorded session as a scenario: what happened once becomes a test.

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "capture/trace_file.h"

namespace oisctl {

struct ToldScenario {
    std::string text;  // TOML; docs/simulated-phone.md has the fields
    uint64_t calls = 0;
    uint64_t faults = 0;
    uint64_t expectations = 0;
    std::vector<std::string> leftOut;  // what of the trace no scenario can tell
};

// Calls at their times, properties and the thermal sensor as they were read, what failed as faults, and what
// the controller was sent as expectations. `polled`: commands whose number depends on time. Throws InputError
// when the trace has no opening of the driver.
ToldScenario scenarioOf(const TraceFile& trace, const std::set<std::string>& polled);

}  // namespace oisctl

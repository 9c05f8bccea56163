#pragma once
// What stands at the end of a session.

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "session/driver_session.h"
#include "session/shake_meter.h"
#include "session/tally.h"

namespace oisctl {

// Frames in one mode, without a break.
struct ModeSpan {
    int32_t mode = 0;
    uint64_t firstFrame = 0;
    uint64_t lastFrame = 0;
};

struct OperationResult {
    int32_t operation = 0;
    int32_t result = 0;
};

struct Summary {
    std::string module;
    std::string way;
    std::string scenario;  // empty: none
    DriverSession::Opening opening = DriverSession::Opening::kNotTried;
    uint64_t requests = 0;
    Tally::Counts counts;
    std::vector<ModeSpan> modes;
    std::vector<OperationResult> operations;
    ShakeLeft shake;
    std::vector<phone::Faults::Count> faults;
    double simulatedS = 0;
    double wallS = 0;
    bool realTime = false;
};

// What the session itself knows; the rest is the caller's.
Summary summarise(DriverSession& session);

// `quiet`: nothing stands above it.
void printSummary(const Summary& summary, bool quiet);
nlohmann::json toJson(const Summary& summary);

// Ends a command: finishes the trace, shows the summary as the settings ask for, and gives the exit status.
int conclude(DriverSession& session, const Summary& summary);
// The same for a command with a result of its own: shows the failures alone, and gives the exit status.
// `good`: the result is as it should be.
int conclude(DriverSession& session, bool good);

}  // namespace oisctl

#pragma once
// What stands at the end of a command that opened the driver.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/report.h"
#include "scenario/expectation_check.h"
#include "session/driver_session.h"
#include "session/shake_meter.h"
#include "session/tally.h"

namespace oisctl {

// Frames in one mode, without a break.
struct ModeSpan {
    int32_t mode = 0;   // that the driver is in
    bool taken = true;  // the command for it got through
    uint64_t firstFrame = 0;
    uint64_t lastFrame = 0;
};

struct OperationResult {
    int32_t operation = 0;
    int32_t result = 0;
};

// An axis' gain as the controller answered, in 1/10000; empty where it did not.
struct GainReading {
    const char* axis;
    int32_t operation;  // that reads it
    std::optional<int32_t> before{};
    std::optional<int32_t> after{};
};

// What a job came to: for programs, for people.
struct Verdict {
    const char* key;
    const char* text;
    bool good = false;
};

struct Summary {
    std::string scenario;  // empty: none
    uint64_t requests = 0;
    std::vector<ModeSpan> modes;
    std::vector<OperationResult> operations;
    std::vector<std::string> leftOut;  // operations that a real controller is not asked for
    std::vector<GainReading> gains;    // of a tour that writes none
    std::optional<ShakeLeft> shake;
    std::vector<Judgement> judgements;  // of what the scenario expects
};

// Who tells of module, failures and time.
enum class Ending {
    kReport,   // the report's text does
    kRemarks,  // the text is a result to go on with; failures are remarks beside it
};

// Ends a command: finishes the trace, prints the report with what all sessions have in common, and gives the
// exit status. `good`: whether the result is as it should be; by default, when nothing failed.
int conclude(DriverSession& session, const Record& report, Ending ending = Ending::kReport,
             std::optional<bool> good = std::nullopt);
int conclude(DriverSession& session, const Summary& summary);

// `text`: what people read instead of the verdict's own.
Field verdictField(const char* key, const Verdict& verdict, const std::string& text = {});

// Commands, calls and failures, as a session's summary has them.
Record trafficFields(const Tally::Counts& counts);

// What all of a session's reports begin with.
Record moduleFields(const DriverSession& session);

}  // namespace oisctl

// oisctl op, oisctl mode: one operation or one mode on an open driver.

#include <fmt/core.h>

#include <memory>

#include "commands/commands.h"
#include "session/detector_run.h"
#include "session/driver_session.h"
#include "session/operations.h"
#include "session/summary.h"

namespace oisctl {

namespace {

struct OperationOptions {
    Settings settings;
    int32_t operation = 0;
    std::optional<double> gain;
    int32_t mode = 0;
};

// Opens, streams, does it, closes.
template <typename Work>
int runOnce(DriverSession& session, const Work& work) {
    Summary summary;
    if (session.openFor() && !session.deviceLost()) {
        work(summary.operations);
        const auto call = session.tally().lastCall();
        if (call && call->sentNothing()) {
            session.fail(fmt::format("{} sent nothing{}{}", call->name, call->lastMessage.empty() ? "" : ": ",
                                     call->lastMessage));
        }
    }
    session.close();
    return conclude(session, summary);
}

int runOperation(const OperationOptions& options) {
    const int32_t operation =
        options.gain ? gainOperation(options.operation, *options.gain) : options.operation;
    DriverSession session(options.settings, Narration::kCalls);
    if (const OperationInfo* info = findOperation(operation); info != nullptr && info->writes)
        session.requireMayWrite("op", info->name);
    return runOnce(session, [&](std::vector<OperationResult>& results) {
        carryOut(session, operation, [&] {
            results.push_back({operation, session.setOperation(operation)});
        });
    });
}

int runMode(const OperationOptions& options) {
    DriverSession session(options.settings, Narration::kCalls);
    return runOnce(session, [&](std::vector<OperationResult>&) { session.setMode(options.mode); });
}

std::string operationList() {
    std::string text = "Operations:\n";
    for (const OperationInfo& info : operations())
        text += fmt::format("  {:<4}{:16}{}\n", info.number, info.name, info.meaning);
    return text + "  Numbers below -2 write the x gain, those above 26 the y gain, in 1/10000.\n";
}

std::string modeList() {
    std::string text = "Modes:\n";
    for (const ModeInfo& info : modes()) text += fmt::format("  {:<4}{}\n", info.number, info.meaning);
    return text;
}

}  // namespace

Command describeOperation() {
    auto options = std::make_shared<OperationOptions>();
    return {
        .options = withPhoneOptions(
            {value("operation", "NAME|NUMBER", "Operation by name or number",
                   [options](const std::string& word) { options->operation = operationNumber(word); },
                   {.words = operationNames, .required = true}),
             value("value", "GAIN", "Gain to write", &options->gain)},
            options->settings),
        .notes = operationList(),
        .examples = {{"oisctl op read-gain-x -m dw9786"},
                     {"oisctl op write-gain-y 1.25 -m dw9781"},
                     {"oisctl op 2 --set bypassen=0 --motion rest",
                      "through the family parser: the whole calibration"},
                     {"oisctl op -- -12500", "writes the x gain 1.25; a negative number goes behind --"}},
        .run = [options] { return runOperation(*options); },
    };
}

Command describeMode() {
    auto options = std::make_shared<OperationOptions>();
    return {
        .options = withPhoneOptions(
            {value("mode", "N", "Mode", &options->mode, {.words = modeNumbers, .required = true})},
            options->settings),
        .notes = modeList(),
        .examples = {{"oisctl mode 2"}, {"oisctl mode 5 --set sineFre=3 --trace"}},
        .run = [options] { return runMode(*options); },
    };
}

}  // namespace oisctl

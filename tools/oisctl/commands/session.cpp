// oisctl session: the main job.

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "base/errors.h"
#include "base/junit.h"
#include "base/terminal.h"
#include "base/units.h"
#include "base/whole_file.h"
#include "commands/commands.h"
#include "scenario/scenario.h"
#include "scenario/scenario_runner.h"
#include "session/detector_run.h"
#include "session/driver_session.h"
#include "session/operations.h"
#include "session/shake_meter.h"
#include "session/summary.h"

namespace oisctl {

namespace {

struct SessionOptions {
    Settings settings;
    std::string scenario;
    std::string junit;
    std::vector<int32_t> modes{0, 2, 3, 6, 8, 9, 10};
    std::vector<int32_t> operations;  // empty: all but the defect detector, which needs a session of its own
    double holdS = 0.5;
};

// Goes through modes and operations, and looks at the lens meanwhile.
class Tour {
  public:
    Tour(DriverSession& session, const SessionOptions& options)
        : mSession(session),
          mOptions(options),
          mShake(session),
          mProgress("session", static_cast<double>(options.modes.size()) * options.holdS) {}

    Summary run() {
        chooseOperations();
        const bool supported = mSession.open();
        if (supported) {
            mSession.notifyStream(true);
            mSession.waitForBringUp();
            if (mSession.channelIsUp() && !mSession.deviceLost()) {
                goThroughTour();
            }
            mSession.notifyStream(false);
        }
        mSession.close();
        mSummary.shake = mShake.result();
        return mSummary;
    }

  private:
    // Where nothing writes a gain, none may have changed.
    void goThroughTour() {
        const bool compares = !mSession.behindHub() && std::ranges::none_of(mOperations, writesCalibration);
        if (compares) {
            mSummary.gains = {{"x", kReadGainX}, {"y", kReadGainY}};
            readGains(&GainReading::before);
        }
        goThroughModes();
        runOperations();
        if (compares && !mSession.deviceLost()) {
            readGains(&GainReading::after);
            compareGains();
        }
    }

    void readGains(std::optional<int32_t> GainReading::*when) {
        for (GainReading& gain : mSummary.gains) {
            const int32_t value = mSession.setOperation(gain.operation);
            const auto call = mSession.tally().lastCall();
            if (call && call->delivered > 0) gain.*when = value;
        }
    }

    void compareGains() {
        for (const GainReading& gain : mSummary.gains) {
            if (!gain.before || !gain.after || *gain.before == *gain.after) continue;
            mSession.fail(fmt::format("the {} gain was {} before, and is {} now, though nothing wrote it",
                                      gain.axis, gainText(*gain.before), gainText(*gain.after)));
        }
    }

    void goThroughModes() {
        for (const int32_t mode : mOptions.modes) {
            if (mSession.endsEarly()) return;
            mSession.setMode(mode);
            hold();
        }
        mSession.setMode(mSession.driver().mOisMode);  // a repeat, which the driver keeps to itself
    }

    void hold() {
        mShake.sleepUntil(mSession.nowUs() + std::llround(mOptions.holdS * kMicrosPerSecond),
                          [this] { mProgress.update(mSession.nowS()); });
    }

    void chooseOperations() {
        mOperations = mOptions.operations;
        if (!mOperations.empty()) return;
        for (const OperationInfo& info : operations()) {
            if (info.number == kDetectDefect) continue;
            const bool isKept = !mSession.settings().state.empty() && !mSession.settings().allowWrite;
            if (info.writes && (isKept || !mSession.mayWrite())) {
                mSummary.leftOut.emplace_back(info.name);
            } else {
                mOperations.push_back(info.number);
            }
        }
    }

    void runOperations() {
        for (const int32_t operation : mOperations) {
            if (mSession.endsEarly()) return;
            carryOut(mSession, operation, [&] {
                mSummary.operations.push_back({operation, mSession.setOperation(operation)});
            });
        }
    }

    DriverSession& mSession;
    const SessionOptions& mOptions;
    ShakeMeter mShake;
    std::vector<int32_t> mOperations;
    Progress mProgress;
    Summary mSummary;
};

// Nothing that the user names is left out in silence.
void requireMayRun(const DriverSession& session, const std::string& option, const std::set<int32_t>& wanted) {
    for (const int32_t operation : wanted)
        if (writesCalibration(operation)) session.requireMayWrite(option, findOperation(operation)->name);
}

int runSession(const SessionOptions& options) {
    if (options.scenario.empty()) {
        if (!options.junit.empty())
            throw InputError("--junit " + options.junit +
                             ": reports what a scenario expects; name one with --scenario");
        DriverSession session(options.settings, Narration::kCalls);
        requireMayRun(session, "--operations", {options.operations.begin(), options.operations.end()});
        session.requireStreaming();
        return conclude(session, Tour(session, options).run());
    }
    const Scenario scenario = scenarioByName(options.scenario, options.settings.seed.value_or(kDefaultSeed));
    if (options.settings.realKernel && options.settings.thermalFolder.empty() && scenario.setsTemperature()) {
        throw InputError("--scenario " + options.scenario +
                         ": sets the temperature, which --kernel real allows only with --thermal-folder");
    }
    if (!options.junit.empty() && scenario.expectations.empty()) {
        throw InputError(fmt::format("--junit {}: {} expects nothing; [[expect]] entries say what it shall",
                                     options.junit, options.scenario));
    }
    requireOther(options.junit, {options.scenario});
    JunitFile junit(options.junit);
    DriverSession session(withScenario(options.settings, scenario), Narration::kCommands);
    requireMayRun(session, "--scenario " + options.scenario, scenario.operations());
    // What the command line says overrides what the scenario says.
    if (scenario.motion && options.settings.motion.empty()) session.phone().motion().set(scenario.motion);
    session.requireStreaming();
    const Summary summary = runScenario(session, scenario);
    junit.write("oisctl session, " + session.module().name, junitCases(scenario.name, summary.judgements));
    return conclude(session, summary);
}

}  // namespace

Command describeSession() {
    auto options = std::make_shared<SessionOptions>();
    return {
        .options = withPhoneOptions(
            {value("--scenario", "NAME|FILE", "Play a timeline of 3A requests instead ('oisctl scenarios')",
                   &options->scenario, {.words = scenarioNames}),
             value("--junit", "FILE", "Write what the scenario expects and what was seen as JUnit XML too",
                   &options->junit),
             value("--modes", "N,N", "Modes to go through", &options->modes,
                   {.words = modeNumbers, .commas = true, .excludes = "--scenario"}),
             value(
                 "--operations", "NAME,NAME", "Operations to run; else all but detect-defect",
                 [options](const std::string& word) { options->operations.push_back(operationNumber(word)); },
                 {.words = operationNames, .commas = true, .excludes = "--scenario"}),
             value("--hold", "S", "Seconds to stay in each mode", &options->holdS,
                   {.range = Range{0, 86400}, .excludes = "--scenario"})},
            options->settings),
        .examples = {{"oisctl session", "the controller behind the sensor hub"},
                     {"oisctl session -m dw9786", "one on the sub-device"},
                     {"oisctl session --set bypassen=0",
                      "hub way through the family parser: register accesses"},
                     {"oisctl session --trace", "everything: files, properties, sleeps, messages"},
                     {"oisctl session -m dw9781 --trace=run.jsonl"},
                     {"oisctl session --scenario video-zoom --motion walk"},
                     {"oisctl session --scenario mine.toml --junit result.xml",
                      "what it expects, for a build server"},
                     {"oisctl session --fault SET_MODE@3:errno=EIO",
                      "the third SET_MODE fails; exit status 1"},
                     {"oisctl session -m mine.toml --kernel real --dump-folder /tmp/dump",
                      "this machine's own sub-device"}},
        .run = [options] { return runSession(*options); },
    };
}

}  // namespace oisctl

// oisctl session: the main job.

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include <CLI/CLI.hpp>

#include "base/cli_options.h"
#include "base/errors.h"
#include "base/interrupt.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "scenario/scenario.h"
#include "scenario/scenario_runner.h"
#include "session/driver_session.h"
#include "session/operations.h"
#include "session/shake_meter.h"
#include "session/summary.h"

namespace oisctl {

namespace {

constexpr double kMicrosPerSecond = 1e6;
constexpr int64_t kLookUs = 5000;  // between two looks at the lens

struct Options {
    Settings settings;
    std::string scenario;
    std::vector<int32_t> modes{0, 2, 3, 6, 8, 9, 10};
    std::vector<std::string> operations{"off",    "on",      "gyro-offset",  "read-gain-x",  "read-gain-y",
                                        "acc-on", "acc-off", "write-gain-x", "write-gain-y", "operation-18"};
    double holdS = 0.5;
};

// Goes through modes and operations, and looks at the lens meanwhile.
class Tour {
  public:
    Tour(DriverSession& session, const Options& options)
        : mSession(session),
          mOptions(options),
          mProgress("session", static_cast<double>(options.modes.size()) * options.holdS) {}

    Summary run();

  private:
    void goThroughModes();
    void hold();
    void runOperations();

    DriverSession& mSession;
    const Options& mOptions;
    Progress mProgress;
    ShakeMeter mShake;
    std::vector<OperationResult> mOperations;
};

Summary Tour::run() {
    const bool supported = mSession.open();
    if (supported) {
        mSession.notifyStream(true);
        mSession.waitForBringUp();
        if (mSession.channelIsUp()) {
            goThroughModes();
            runOperations();
        }
        mSession.notifyStream(false);
    }
    mSession.close();
    Summary summary = summarise(mSession);
    summary.supported = supported;
    summary.operations = mOperations;
    summary.shake = mShake.result();
    return summary;
}

void Tour::goThroughModes() {
    for (const int32_t mode : mOptions.modes) {
        if (interrupted()) return;
        mSession.setMode(mode);
        hold();
    }
    mSession.setMode(mSession.driver().mOisMode);  // a repeat, which the driver keeps to itself
}

void Tour::hold() {
    phone::Stabiliser* stabiliser = mSession.stabiliser();
    const int64_t endUs = mSession.nowUs() + std::llround(mOptions.holdS * kMicrosPerSecond);
    // The lens needs a moment to settle after a change of the mode.
    constexpr int64_t kSettleUs = 100'000;
    const int64_t settledUs = mSession.nowUs() + kSettleUs;
    while (mSession.nowUs() < endUs && !interrupted()) {
        mSession.sleepUs(std::min(kLookUs, endUs - mSession.nowUs()));
        mProgress.update(mSession.nowS());
        if (stabiliser == nullptr || mSession.nowUs() < settledUs) continue;
        mShake.sample(stabiliser->mode(), stabiliser->stateAt(mSession.nowUs()));
    }
}

void Tour::runOperations() {
    for (const std::string& name : mOptions.operations) {
        if (interrupted()) return;
        const int32_t operation = operationNumber(name, std::nullopt);
        mOperations.push_back({operation, mSession.setOperation(operation)});
    }
}

Settings withScenario(Settings settings, const Scenario& scenario) {
    if (scenario.motion && settings.motion.empty()) settings.motion = *scenario.motion;
    // What the command line says overrides what the scenario says.
    std::vector<std::string> assignments;
    for (const auto& [key, value] : scenario.properties)
        assignments.push_back(std::string(key).append("=").append(value));
    settings.assignments.insert(settings.assignments.begin(), assignments.begin(), assignments.end());
    settings.faults.insert(settings.faults.begin(), scenario.faults.begin(), scenario.faults.end());
    return settings;
}

int run(const Options& options) {
    if (options.scenario.empty()) {
        for (const std::string& name : options.operations)
            static_cast<void>(operationNumber(name, std::nullopt));
        DriverSession session(options.settings, Narration::kCalls);
        session.requireStreaming();
        return conclude(session, Tour(session, options).run());
    }
    const Scenario scenario = scenarioByName(options.scenario);
    if (options.settings.kernel == "real" && options.settings.thermalFolder.empty() &&
        scenario.setsTemperature()) {
        throw InputError("--scenario " + options.scenario +
                         ": sets the temperature, which --kernel real allows only with --thermal-folder");
    }
    DriverSession session(withScenario(options.settings, scenario), Narration::kCommands);
    session.requireStreaming();
    return conclude(session, runScenario(session, scenario));
}

}  // namespace

void addSession(CLI::App& app, Job& job) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("session", "Run a camera session: open, stream, modes, operations, close");
    CLI::Option* scenario = command
                                ->add_option("--scenario", options->scenario,
                                             "Play a timeline of 3A requests instead ('oisctl scenarios')")
                                ->type_name("NAME|FILE");
    command->add_option("--modes", options->modes, "Modes to go through")
        ->delimiter(',')
        ->type_name("N,N")
        ->check(inRange(std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()))
        ->allow_extra_args(false)
        ->excludes(scenario);
    command->add_option("--operations", options->operations, "Operations to run")
        ->delimiter(',')
        ->type_name("NAME,NAME")
        ->allow_extra_args(false)
        ->excludes(scenario);
    command->add_option("--hold", options->holdS, "Seconds to stay in each mode")
        ->type_name("S")
        ->check(inRange(0.0, 86400.0))
        ->capture_default_str()
        ->excludes(scenario);
    addPhoneOptions(*command, options->settings);
    command->footer(
        "Examples:\n"
        "  oisctl session                                  the controller behind the sensor hub\n"
        "  oisctl session -m dw9786                        one on the sub-device\n"
        "  oisctl session --set bypassen=0                 hub way through the family parser: register "
        "accesses\n"
        "  oisctl session --trace                          everything: files, properties, sleeps, messages\n"
        "  oisctl session -m dw9781 --trace=run.jsonl --json\n"
        "  oisctl session --scenario video-zoom --motion walk\n"
        "  oisctl session --fault SET_MODE@3:errno=EIO     the third SET_MODE fails; exit status 1\n"
        "  oisctl session -m mine.toml --kernel real --dump-folder /tmp/dump    this machine's own "
        "sub-device");
    command->callback([options, &job] { job = [options] { return run(*options); }; });
}

}  // namespace oisctl

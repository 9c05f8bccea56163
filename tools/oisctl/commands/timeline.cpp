// oisctl timeline: what was sent, and why.

#include "timeline/timeline.h"

#include <filesystem>
#include <memory>
#include <mutex>

#include "base/errors.h"
#include "capture/trace_file.h"
#include "commands/commands.h"
#include "scenario/scenario.h"
#include "scenario/scenario_runner.h"
#include "session/driver_session.h"
#include "timeline/timeline_report.h"

namespace oisctl {

namespace {

struct TimelineOptions {
    Settings settings;
    std::string input;
    bool all = false;
};

std::vector<phone::Event> played(const Settings& settings, const std::string& name) {
    const Scenario scenario = scenarioByName(name, kDefaultSeed);
    DriverSession session(withScenario(settings, scenario), Narration::kNothing);
    if (scenario.motion) session.phone().motion().set(scenario.motion);
    session.requireStreaming();
    std::vector<phone::Event> events;
    const auto observation =
        session.observe([&events](const phone::Event& event) { events.push_back(event); });
    runScenario(session, scenario);
    session.finishTrace();
    return events;
}

std::vector<phone::Event> recorded(const std::string& path) {
    std::vector<phone::Event> events;
    for (TracedEvent& traced : loadTrace(path).events) events.push_back(std::move(traced.event));
    if (events.empty()) throw InputError(path + ": a trace without an event");
    return events;
}

int runTimeline(const TimelineOptions& options) {
    const Settings& settings = options.settings;
    const std::vector<std::string> scenarios = scenarioNames();
    const bool isScenario = std::ranges::find(scenarios, options.input) != scenarios.end() ||
                            std::filesystem::path(options.input).extension() == ".toml";
    if (!isScenario && (!settings.module.empty() || !settings.properties.empty() || !settings.faults.empty()))
        throw InputError(options.input + ": a trace; --module, --set and --fault are for a scenario");
    const std::vector<Episode> episodes =
        timeline(isScenario ? played(settings, options.input) : recorded(options.input), !options.all);
    if (settings.json) {
        print(timelineReport(episodes), true);
    } else {
        printTimeline(episodes);
    }
    return kSuccess;
}

}  // namespace

Command describeTimeline() {
    auto options = std::make_shared<TimelineOptions>();
    return {
        .options = withSomePhoneOptions(
            {value("input", "TRACE|SCENARIO", "A trace, or a scenario to be played", &options->input,
                   {.words = scenarioNames, .required = true}),
             flag("--all", "Every call and every command; else what repeats is told once", &options->all)},
            options->settings, {"--module", "--set", "--fault", "--json"}),
        .notes =
            "Above the commands of a call stands what was not as before: fields of the request, properties, "
            "the module's\ncustomisation. Requests are numbered from 0. A request that changed and sent "
            "nothing was held back by the driver,\nwhich compares with what it sent last.\n",
        .examples = {{"oisctl session -m dw9786 --scenario video-zoom --trace=run.jsonl"},
                     {"oisctl timeline run.jsonl"},
                     {"oisctl timeline video-zoom -m dw9786", "the scenario, played"},
                     {"oisctl timeline run.jsonl --all"}},
        .run = [options] { return runTimeline(*options); },
    };
}

}  // namespace oisctl

// oisctl replay: a recorded session again, on the driver as it is now.

#include "replay/replay.h"

#include <fmt/format.h>

#include <memory>

#include "base/errors.h"
#include "base/suggest.h"
#include "base/whole_file.h"
#include "capture/comparison_report.h"
#include "commands/commands.h"
#include "replay/scenario_of_trace.h"
#include "scenario/scenario.h"
#include "session/settings.h"

namespace oisctl {

namespace {

struct ReplayOptions {
    std::string trace;
    std::set<std::string> polled;
    std::string scenario;  // the file to write; empty: none
    Settings settings;
};

void takePolled(std::set<std::string>& polled, const std::string& word) {
    const std::vector<std::string> names = commandNames();
    if (std::ranges::find(names, word) == names.end())
        throw InputError(fmt::format("{}: no request and no hub command{}", word, suggestion(word, names)));
    polled.insert(word);
}

// Writes the scenario instead of replaying.
int writeScenario(const ReplayOptions& options, const TraceFile& trace) {
    requireOther(options.scenario, {options.trace});
    const ToldScenario told = scenarioOf(trace, options.polled);
    parseScenario(told.text, options.scenario);
    WholeFile file(options.scenario);
    file.write(told.text);
    file.finish();
    print({{"scenario", "scenario", options.scenario,
            fmt::format("{}: {} calls, {} faults, {} expectations", options.scenario, told.calls, told.faults,
                        told.expectations)},
           {"calls", "", told.calls},
           {"faults", "", told.faults},
           {"expectations", "", told.expectations},
           {"left_out", told.leftOut.empty() ? "" : "not told", told.leftOut, joined(told.leftOut, "\n"),
            Style::kWarning}},
          options.settings.json);
    return kSuccess;
}

int runReplay(const ReplayOptions& options) {
    const TraceFile trace = loadTrace(options.trace);
    if (!options.scenario.empty()) return writeScenario(options, trace);
    const Replay replayed = replay(trace, options.polled);
    const bool same = isEqual(replayed.compared) && (!replayed.unanswered || trace.cut);
    const auto names = [](const std::set<phone::EventKind>& kinds) {
        return namesIn(kinds, [](phone::EventKind kind) { return std::string(phone::name(kind)); });
    };
    const std::vector<std::string> notRecorded = names(replayed.notRecorded);
    Record report{{"same", "the driver", same,
                   same ? fmt::format("does as recorded{}: {} events, {} of them commands",
                                      trace.cut ? ", as far as the trace goes, which is cut" : "",
                                      replayed.compared.compared, replayed.compared.commandsCompared)
                        : "does not do as recorded",
                   same ? Style::kGood : Style::kBad},
                  {"not_recorded", notRecorded.empty() ? "" : "not in the trace", notRecorded},
                  {"not_compared", "not compared", names(replayed.aside.kinds)}};
    const auto& missing = replayed.unanswered;
    report.push_back({"unanswered", missing ? "no answer to" : "", missing ? Value(missing->asked) : Value(),
                      missing ? fmt::format("{}, which thread {} asked once more than recorded",
                                            missing->asked, missing->thread)
                              : ""});
    Record compared = comparisonReport(replayed.trace, replayed.done, replayed.compared);
    if (same) {
        for (Field& field : compared) field.label.clear();
    }
    compared.front().label.clear();
    report.insert(report.end(), compared.begin(), compared.end());
    print(report, options.settings.json);
    return same ? kSuccess : kJobFailed;
}

}  // namespace

Command describeReplay() {
    auto options = std::make_shared<ReplayOptions>();
    return {
        .options = {value("trace", "TRACE", "A trace with the driver's calls", &options->trace,
                          {.required = true}),
                    value("--polled", "NAME,...",
                          "Requests whose number depends on time: how many there are, and messages and "
                          "sleeps, does not count",
                          [options](const std::string& word) { takePolled(options->polled, word); },
                          {.words = commandNames, .repeats = true, .commas = true}),
                    value(
                        "--as-scenario", "FILE",
                        "Do not replay it: write a scenario that does and expects the same on the simulated "
                        "phone",
                        &options->scenario),
                    jsonOption(options->settings)},
        .notes =
            "The driver is called as recorded, and kernel, hub and platform answer as recorded. Exit "
            "status 1 when the\ndriver does anything else than it did then.\n",
        .examples = {{"oisctl session -m dw9786 --trace=run.jsonl"},
                     {"oisctl replay run.jsonl", "whether the driver still does the same"},
                     {"oisctl replay field.jsonl --polled READ_STATUS"},
                     {"oisctl replay field.jsonl --as-scenario field.toml",
                      "'oisctl session --scenario field.toml' is then a test"}},
        .run = [options] { return runReplay(*options); },
    };
}

}  // namespace oisctl

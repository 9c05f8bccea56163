// oisctl scenarios: the timelines that ship, and what one may state.

#include <fmt/core.h>

#include <memory>

#include "base/errors.h"
#include "base/report.h"
#include "commands/commands.h"
#include "scenario/scenario.h"
#include "session/settings.h"

namespace oisctl {

namespace {

struct ScenariosOptions {
    std::string name;
    bool fields = false;
    Settings settings;
};

Record fieldTable() {
    Table table;
    for (const SpanField& field : spanFields()) {
        table.push_back({{"name", "field of a span", field.name, "", Style::kName},
                         {"least", "least", field.least},
                         {"greatest", "greatest", field.greatest},
                         {"otherwise", "else", field.store == nullptr ? Value() : Value(field.otherwise)},
                         {"meaning", "meaning", field.meaning}});
    }
    return {{"fields", "", table}};
}

Record fieldsOf(const Scenario& scenario) {
    return {{"name", "name", scenario.name, "", Style::kName},
            {"duration_s", "length", scenario.durationS, fmt::format("{} s", scenario.durationS)},
            {"frames", "frames", scenario.frames()},
            {"title", "title", scenario.title}};
}

// The text of a shipped scenario; of another, that it is one.
std::string textOf(const Scenario& scenario, const std::string& name) {
    for (const ShippedScenario& shipped : shippedScenarios())
        if (shipped.name == name)
            return std::string(shipped.text.substr(0, shipped.text.find_last_not_of('\n') + 1));
    return fmt::format("{}: {} frames in {} s, nothing to complain about", name, scenario.frames(),
                       scenario.durationS);
}

int show(const ScenariosOptions& options) {
    const bool json = options.settings.json;
    Table table;
    if (options.fields) {
        print(fieldTable(), json);
        return kSuccess;
    }
    if (!options.name.empty()) {
        const Scenario scenario = scenarioByName(options.name);
        table.push_back(fieldsOf(scenario));
        if (!json) {
            printLine(textOf(scenario, options.name));
            return kSuccess;
        }
    } else {
        for (const std::string& name : scenarioNames()) table.push_back(fieldsOf(scenarioByName(name)));
    }
    print({{"scenarios", "", table}}, json);
    return kSuccess;
}

}  // namespace

Command describeScenarios() {
    auto options = std::make_shared<ScenariosOptions>();
    return {
        .options = {value("name", "NAME|FILE", "Show this shipped scenario's text, or check this file",
                          &options->name, {.words = scenarioNames}),
                    flag("--fields", "List what a span may state", &options->fields),
                    jsonOption(options->settings)},
        .examples = {{"oisctl scenarios", "what ships"},
                     {"oisctl scenarios video-zoom > mine.toml", "a start for one of your own"},
                     {"oisctl scenarios mine.toml", "checks it"},
                     {"oisctl session --scenario mine.toml", "plays it"}},
        .run = [options] { return show(*options); },
    };
}

}  // namespace oisctl

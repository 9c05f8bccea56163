// oisctl scenarios: the timelines that ship, and what one may state.

#include <memory>
#include <nlohmann/json.hpp>

#include "base/errors.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "scenario/scenario.h"
#include "session/settings.h"

namespace oisctl {

namespace {

struct Options {
    std::string name;
    bool fields = false;
    Settings settings;
};

std::string plain(double value) {
    std::string text = number(value, 1);
    if (text.ends_with(".0")) text.resize(text.size() - 2);
    return text;
}

void printFields(bool json) {
    nlohmann::json list = nlohmann::json::array();
    Table table({"FIELD OF A SPAN", "LEAST", "GREATEST", "ELSE", "MEANING"});
    for (size_t column : {1U, 2U, 3U}) table.alignRight(column);
    for (const SpanField& field : spanFields()) {
        table.addRow({styled(Style::kName, field.name), plain(field.least), plain(field.greatest),
                      field.store == nullptr ? "-" : plain(field.otherwise), std::string(field.meaning)});
        list.push_back(
            {{"name", field.name},
             {"least", field.least},
             {"greatest", field.greatest},
             {"otherwise", field.store == nullptr ? nlohmann::json() : nlohmann::json(field.otherwise)},
             {"meaning", field.meaning}});
    }
    if (json) {
        printLine(list.dump(2));
    } else {
        table.print();
    }
}

nlohmann::json toJson(const Scenario& scenario) {
    return {{"name", scenario.name},
            {"title", scenario.title},
            {"duration_s", scenario.durationS},
            {"frames", scenario.frames()}};
}

void printList(bool json) {
    nlohmann::json list = nlohmann::json::array();
    Table table({"NAME", "LENGTH", "FRAMES", "TITLE"});
    table.alignRight(1);
    table.alignRight(2);
    for (const ShippedScenario& shipped : shippedScenarios()) {
        const Scenario scenario = scenarioByName(std::string(shipped.name));
        table.addRow({styled(Style::kName, scenario.name), plain(scenario.durationS) + " s",
                      std::to_string(scenario.frames()), scenario.title});
        list.push_back(toJson(scenario));
    }
    if (json) {
        printLine(list.dump(2));
    } else {
        table.print();
    }
}

void printOne(const std::string& name, bool json) {
    const Scenario scenario = scenarioByName(name);
    if (json) {
        printLine(toJson(scenario).dump());
        return;
    }
    for (const ShippedScenario& shipped : shippedScenarios()) {
        if (shipped.name != name) continue;
        std::string text(shipped.text);
        if (text.ends_with('\n')) text.pop_back();
        printLine(text);
        return;
    }
    printLine(name + ": " + std::to_string(scenario.frames()) + " frames in " + plain(scenario.durationS) +
              " s, nothing to complain about");
}

int show(const Options& options) {
    if (options.fields) {
        printFields(options.settings.json);
    } else if (options.name.empty()) {
        printList(options.settings.json);
    } else {
        printOne(options.name, options.settings.json);
    }
    return kSuccess;
}

}  // namespace

Command describeScenarios() {
    auto options = std::make_shared<Options>();
    return {
        .options = {{"name",
                     "NAME|FILE",
                     "Show this shipped scenario's text, or check this file",
                     &options->name,
                     {.words = scenarioNames}},
                    {"--fields", "", "List what a span may state", &options->fields},
                    jsonOption(options->settings)},
        .examples = {{"oisctl scenarios", "what ships"},
                     {"oisctl scenarios video-zoom > mine.toml", "a start for one of your own"},
                     {"oisctl scenarios mine.toml", "checks it"},
                     {"oisctl session --scenario mine.toml", "plays it"}},
        .run = [options] { return show(*options); },
    };
}

}  // namespace oisctl

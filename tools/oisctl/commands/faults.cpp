// oisctl faults: what can go wrong on the simulated phone.

#include "faults/faults.h"

#include <fmt/core.h>

#include <memory>

#include "base/errors.h"
#include "base/report.h"
#include "commands/commands.h"
#include "session/settings.h"

namespace oisctl {

namespace {

// As it is written: "open[.PATH]", "chip.power-cut=0..111".
std::string grammar(const phone::FaultPlace& place) {
    std::string text(place.name.empty() ? place.names : place.name);
    if (!place.name.empty() && !place.names.empty()) text += fmt::format("[.{}]", place.names);
    if (!place.value.empty()) text += "=" + place.value;
    return text;
}

int showFaults(const Settings& settings) {
    Table table;
    Table examples;
    for (const phone::FaultPlace& place : phone::faultPlaces()) {
        const auto unless = [](std::string_view text) { return text.empty() ? Value() : Value(text); };
        table.push_back({{"place", "place", unless(place.name), grammar(place), Style::kName},
                         {"names", "", unless(place.names)},
                         {"value", "", unless(place.value)},
                         {"effects", "effect", unless(place.effects)},
                         {"meaning", "meaning", place.meaning},
                         {"example", "", fmt::format("oisctl {}", place.arguments)}});
        examples.push_back({table.back().back()});
        examples.back().back().label = "runs in which they strike";
    }
    print({{"faults", "", table}, {"", "", examples}}, settings.json);
    return kSuccess;
}

}  // namespace

Command describeFaults() {
    auto settings = std::make_shared<Settings>();
    return {
        .options = {jsonOption(*settings)},
        .notes =
            "--fault takes PLACE[@WHEN][:EFFECT]. WHEN counts how often the place was reached: @3, @2-5, "
            "@after3,\n"
            "@always.\n",
        .examples = {{"oisctl session --fault SET_MODE@3:errno=EIO", "the third SET_MODE fails"},
                     {"oisctl calibrate --fault chip.never-idle"},
                     {"oisctl detect-defect --fault lens.stuck-x"}},
        .run = [settings] { return showFaults(*settings); },
    };
}

}  // namespace oisctl

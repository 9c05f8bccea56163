// oisctl modules: the camera modules that ship, or one in detail.

#include <fmt/core.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "base/errors.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "modules/customisation_fields.h"
#include "modules/module_checks.h"
#include "modules/module_description.h"
#include "session/settings.h"

namespace oisctl {

namespace {

using phone::ModuleDescription;

struct Options {
    std::string name;
    bool toml = false;
    Settings settings;
};

std::string chip(const ModuleDescription& module) {
    return module.hasOis ? std::string(module.custInfo.mOisIcName) : "-";
}

std::string way(const ModuleDescription& module) {
    if (!module.hasOis) return "-";
    return module.behindHub() ? "sensor hub" : "sub-device";
}

std::string gainFormat(const ModuleDescription& module) {
    if (!module.hasOis) return "-";
    switch (module.custInfo.gainFormat) {
        case ois::kGainFloat:
            return "float";
        case ois::kGainInteger:
            return "integer";
        case ois::kGainQ31:
            return "Q31";
        default:
            return fmt::format("unknown ({})", module.custInfo.gainFormat);
    }
}

std::vector<std::string> features(const ModuleDescription& module) {
    const ois::OisCustInfo& info = module.custInfo;
    std::vector<std::string> all;
    if (info.accSupport != 0) all.emplace_back("acc");
    if (info.actOisSupport == 1) all.emplace_back("active-ois");
    if (info.zoomActOisSupport != 0) all.emplace_back("zoom-active-ois");
    if (info.actuatorDetectSupport != 0) all.emplace_back("defect-detector");
    if (info.extraParamSupport != 0) all.emplace_back("extra-param");
    if (info.camera_type == 1 || info.camera_type == 2) all.emplace_back("af-drift");
    return all;
}

std::string featureText(const ModuleDescription& module) {
    std::string text;
    for (const std::string& feature : features(module)) text += (text.empty() ? "" : " ") + feature;
    return text.empty() ? "-" : text;
}

// As the driver gets it.
std::vector<phone::Field> customisationOf(const ModuleDescription& module) {
    const phone::RequestInfo* request = phone::findRequest("SET_CUSTOMISATION");
    const auto* bytes = reinterpret_cast<const uint8_t*>(&module.custInfo);
    return phone::decodeRecord(*request->record, {bytes, sizeof module.custInfo});
}

nlohmann::json toJson(const ModuleDescription& module) {
    nlohmann::json json = {
        {"name", module.name},
        {"summary", module.summary},
        {"source", module.source},
        {"has_ois", module.hasOis},
        {"way", way(module)},
        {"chip", chip(module)},
        {"driver_name", module.driverName},
        {"gain_format", gainFormat(module)},
        {"features", features(module)},
        {"firmware_version", module.firmwareVersion},
        {"hall_centre", {module.stabiliser.hallCenterX, module.stabiliser.hallCenterY}},
        {"lens_travel_deg", module.stabiliser.limitAngle},
        {"lens_bandwidth_hz", module.stabiliser.bandwidthHz},
        {"doubts", phone::doubtsAbout(module)},
    };
    for (const phone::Field& field : customisationOf(module)) {
        std::visit([&](const auto& value) { json["customisation"][field.name] = value; }, field.value);
    }
    return json;
}

void printCustomisation(const ModuleDescription& module) {
    Table table({"CUSTOMISATION", "VALUE", "", "MEANING"});
    table.alignRight(1);
    const std::vector<phone::Field> values = customisationOf(module);
    for (const phone::CustomisationField& field : phone::kCustomisationFields) {
        if (field.record.type == phone::FieldType::kFloats) continue;  // too long for a cell
        const auto value = std::ranges::find(values, field.record.name, &phone::Field::name);
        table.addRow({styled(Style::kName, field.record.name), toText(*value), std::string(field.unit),
                      std::string(field.meaning)});
    }
    table.print();
}

void printDetails(const ModuleDescription& module) {
    const phone::StabiliserSettings& lens = module.stabiliser;
    printLine(styled(Style::kBold, module.name) + "  " + module.summary);
    Table table({"", ""});
    table.addRow({"  source", module.source});
    if (module.hasOis) {
        const auto row = [&table](const std::string& label, const std::string& text) {
            table.addRow({"  " + label, text});
        };
        row("way to the controller", way(module));
        row("driver name", module.driverName);
        row("features", featureText(module));
        row("firmware", fmt::format("0x{:08x}", module.firmwareVersion));
        row("hall centre", fmt::format("{}, {}", lens.hallCenterX, lens.hallCenterY));
        row("lens", fmt::format("travel +/-{:.2f} deg, bandwidth {:.0f} Hz, damping {:.2f}", lens.limitAngle,
                                lens.bandwidthHz, lens.damping));
    } else {
        table.addRow({"  OIS", "none: Init answers 0 and the driver sends nothing"});
    }
    table.print();
    if (module.hasOis) printCustomisation(module);
    for (const std::string& doubt : phone::doubtsAbout(module)) {
        printLine(styled(Style::kWarning, "doubtful: " + doubt));
    }
}

void printTable() {
    Table table({"NAME", "WAY", "CHIP", "GAIN", "FEATURES", "SUMMARY"});
    for (const ModuleDescription& module : phone::shippedModules()) {
        table.addRow({styled(Style::kName, module.name), way(module), chip(module), gainFormat(module),
                      featureText(module), module.summary});
    }
    table.print();
}

void showAll(bool json) {
    if (!json) return printTable();
    nlohmann::json list = nlohmann::json::array();
    for (const ModuleDescription& module : phone::shippedModules()) list.push_back(toJson(module));
    printLine(list.dump(2));
}

int show(const Options& options) try {
    if (options.name.empty()) {
        if (options.toml) throw InputError("modules --toml: needs a module's name");
        showAll(options.settings.json);
        return kSuccess;
    }
    const ModuleDescription module = phone::moduleByName(options.name);
    if (options.toml) {
        std::string text = phone::moduleText(options.name);
        if (text.ends_with('\n')) text.pop_back();
        printLine(text);
    } else if (options.settings.json) {
        printLine(toJson(module).dump(2));
    } else {
        printDetails(module);
    }
    return kSuccess;
} catch (const InputError&) {
    throw;
} catch (const std::runtime_error& error) {
    throw InputError(fmt::format("modules {}: {}", options.name, error.what()));
}

}  // namespace

Command describeModules() {
    auto options = std::make_shared<Options>();
    return {
        .options = {{"name",
                     "NAME|FILE",
                     "A shipped module, or a TOML file, which is checked",
                     &options->name,
                     {.words = moduleNames}},
                    {"--toml", "", "Print the description itself, to start one of your own", &options->toml},
                    jsonOption(options->settings)},
        .examples = {{"oisctl modules", "the modules that ship"},
                     {"oisctl modules dw9786", "one in detail"},
                     {"oisctl modules dw9786 --toml > mine.toml", "a start for one of your own"},
                     {"oisctl modules ./mine.toml", "checks a description of your own"},
                     {"oisctl modules --json | jq '.[].name'"}},
        .run = [options] { return show(*options); },
    };
}

}  // namespace oisctl

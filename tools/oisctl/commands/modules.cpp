// oisctl modules: the camera modules that ship, or one in detail.

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "base/errors.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "modules/module_description.h"
#include "session/settings.h"

namespace oisctl {

namespace {

using phone::ModuleDescription;

struct Options {
    std::string name;
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
            return "unknown (" + std::to_string(module.custInfo.gainFormat) + ")";
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

nlohmann::json toJson(const ModuleDescription& module) {
    const ois::OisCustInfo& info = module.custInfo;
    return {
        {"name", module.name},
        {"summary", module.summary},
        {"source", module.source},
        {"has_ois", module.hasOis},
        {"way", way(module)},
        {"chip", chip(module)},
        {"driver_name", module.driverName},
        {"camera_type",
         std::string(info.cameraTypeName, strnlen(info.cameraTypeName, sizeof info.cameraTypeName))},
        {"gain_format", gainFormat(module)},
        {"features", features(module)},
        {"acc_distance_mm", info.accDistance},
        {"angle_amplitude", info.angleAmplitude},
        {"zoom_scale", info.zoomScale},
        {"active_ois_angle", info.actOisAngle},
        {"stream_on_delay_us", info.streamOnDelay},
        {"test_positions", info.coordinateNum},
        {"max_error", info.max_error_threshold},
        {"max_error_sum", info.max_sum_error_threshold},
        {"firmware_version", module.firmwareVersion},
        {"hall_centre", {module.stabiliser.hallCenterX, module.stabiliser.hallCenterY}},
        {"lens_travel_deg", module.stabiliser.limitAngle},
        {"lens_bandwidth_hz", module.stabiliser.bandwidthHz},
    };
}

void printDetails(const ModuleDescription& module) {
    const ois::OisCustInfo& info = module.custInfo;
    printLine(styled(Style::kBold, module.name) + "  " + module.summary);
    Table table({"", ""});
    const auto row = [&table](const std::string& label, const std::string& text) {
        table.addRow({"  " + label, text});
    };
    row("source", module.source);
    if (!module.hasOis) {
        row("OIS", "none: Init answers 0 and the driver sends nothing");
        table.print();
        return;
    }
    row("way to the controller", way(module));
    row("chip", chip(module));
    row("driver name", module.driverName);
    row("camera type",
        std::string(info.cameraTypeName, strnlen(info.cameraTypeName, sizeof info.cameraTypeName)));
    row("gain format", gainFormat(module));
    row("features", featureText(module));
    row("default acc distance", std::to_string(info.accDistance) + " mm");
    row("angle amplitude", number(info.angleAmplitude, 4) + " deg");
    row("zoom factor", info.zoomScale == 0 ? "none of its own" : number(info.zoomScale, 3));
    row("active OIS angle", number(info.actOisAngle, 3));
    row("stream-on delay", std::to_string(info.streamOnDelay) + " us");
    row("defect test", std::to_string(info.coordinateNum) + " coordinates, error below " +
                           number(info.max_error_threshold, 1) + ", sum below " +
                           number(info.max_sum_error_threshold, 1));
    row("firmware", hex(module.firmwareVersion, 8));
    row("hall centre",
        std::to_string(module.stabiliser.hallCenterX) + ", " + std::to_string(module.stabiliser.hallCenterY));
    row("lens", "travel +/-" + number(module.stabiliser.limitAngle, 2) + " deg, bandwidth " +
                    number(module.stabiliser.bandwidthHz, 0) + " Hz, damping " +
                    number(module.stabiliser.damping, 2));
    table.print();
}

void printTable() {
    Table table({"NAME", "WAY", "CHIP", "GAIN", "FEATURES", "SUMMARY"});
    for (const ModuleDescription& module : phone::shippedModules()) {
        table.addRow({styled(Style::kName, module.name), way(module), chip(module), gainFormat(module),
                      featureText(module), module.summary});
    }
    table.print();
}

int show(const Options& options) {
    if (options.name.empty()) {
        if (!options.settings.json) {
            printTable();
            return kSuccess;
        }
        nlohmann::json list = nlohmann::json::array();
        for (const ModuleDescription& module : phone::shippedModules()) list.push_back(toJson(module));
        printLine(list.dump(2));
        return kSuccess;
    }
    ModuleDescription module;
    try {
        module = phone::moduleByName(options.name);
    } catch (const std::runtime_error& error) {
        throw InputError("modules " + options.name + ": " + error.what());
    }
    if (options.settings.json) {
        printLine(toJson(module).dump(2));
    } else {
        printDetails(module);
    }
    return kSuccess;
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
                    jsonOption(options->settings)},
        .examples = {{"oisctl modules", "the modules that ship"},
                     {"oisctl modules dw9786", "one in detail"},
                     {"oisctl modules ./mine.toml", "checks a description of your own"},
                     {"oisctl modules --json | jq '.[].name'"}},
        .run = [options] { return show(*options); },
    };
}

}  // namespace oisctl

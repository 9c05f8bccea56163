// oisctl modules: the camera modules that ship, or one in detail.

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <set>

#include "base/errors.h"
#include "base/report.h"
#include "base/suggest.h"
#include "commands/commands.h"
#include "modules/customisation_fields.h"
#include "modules/module_checks.h"
#include "modules/module_description.h"
#include "session/settings.h"

namespace oisctl {

namespace {

using phone::ModuleDescription;

struct ModulesOptions {
    std::string name;
    bool toml = false;
    Settings settings;
};

Value gainFormat(const ModuleDescription& module) {
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

std::vector<std::string> features(const ois::OisCustInfo& info) {
    std::vector<std::string> all;
    if (info.accSupport != 0) all.emplace_back("acc");
    if (info.actOisSupport == 1) all.emplace_back("active-ois");
    if (info.zoomActOisSupport != 0) all.emplace_back("zoom-active-ois");
    if (info.actuatorDetectSupport != 0) all.emplace_back("defect-detector");
    if (info.extraParamSupport != 0) all.emplace_back("extra-param");
    if (info.camera_type == 1 || info.camera_type == 2) all.emplace_back("af-drift");
    return all;
}

// As the driver gets it.
std::vector<phone::Field> customisationOf(const ModuleDescription& module) {
    const phone::RequestInfo* request = phone::findRequest("SET_CUSTOMISATION");
    const auto* bytes = reinterpret_cast<const uint8_t*>(&module.custInfo);
    return phone::decodeRecord(*request->record, {bytes, sizeof module.custInfo});
}

Value customisationValues(const ModuleDescription& module) {
    Record values;
    for (const phone::Field& field : customisationOf(module))
        std::visit([&](const auto& value) { values.push_back({field.name, "", value}); }, field.value);
    return module.hasOis ? values : Value();
}

Table customisationTable(const ModuleDescription& module) {
    Table table;
    const std::vector<phone::Field> values = customisationOf(module);
    for (const phone::CustomisationField& field : phone::kCustomisationFields) {
        if (field.record.type == phone::FieldType::kFloats) continue;  // too long for a cell
        const auto value = std::ranges::find(values, field.record.name, &phone::Field::name);
        table.push_back(
            {{"name", "customisation", field.record.name, "", Style::kName},
             {"value", "value", std::visit([](const auto& plain) { return Value(plain); }, value->value),
              toText(*value)},
             {"unit", "unit", field.unit},
             {"meaning", "meaning", field.meaning}});
    }
    return table;
}

Record fieldsOf(const ModuleDescription& module) {
    const bool ois = module.hasOis;
    const auto label = [ois](const char* text) { return ois ? text : ""; };
    const auto value = [ois](Value known) { return ois ? std::move(known) : Value(); };
    const phone::StabiliserSettings& lens = module.stabiliser;
    const std::vector<std::string> doubts = phone::doubtsAbout(module);
    return {{"name", "module", module.name, "", Style::kName},
            {"has_ois", ois ? "" : "OIS", ois, "none: Init answers 0 and the driver sends nothing"},
            {"way", label("way"), wayName(module)},
            {"chip", "", value(module.custInfo.mOisIcName)},
            {"driver_name", label("driver name"), value(module.driverName)},
            {"gain_format", "", value(gainFormat(module))},
            {"features", label("features"), value(features(module.custInfo))},
            {"summary", "summary", module.summary},
            {"source", "source", module.source},
            {"firmware_version", label("firmware"), value(module.firmwareVersion),
             fmt::format("0x{:08X}", module.firmwareVersion)},
            byAxis("hall_centre", label("hall centre"), value(lens.hallCenterX), value(lens.hallCenterY)),
            {"lens_travel_deg", label("lens travel"), value(lens.limitAngle),
             fmt::format("+/-{:.2f} deg", lens.limitAngle)},
            {"lens_bandwidth_hz", label("lens bandwidth"), value(lens.bandwidthHz),
             figure(lens.bandwidthHz, 0, " Hz")},
            {"lens_damping", label("lens damping"), value(lens.damping), figure(lens.damping, 2)},
            {"customisation", "", customisationValues(module)},
            {"doubts", doubts.empty() ? "" : "doubtful", doubts, joined(doubts, "\n"), Style::kWarning}};
}

void showList(bool json) {
    static const std::set<std::string_view> kListed{"name",        "way",      "chip",
                                                    "gain_format", "features", "summary"};
    Table table;
    for (const ModuleDescription& module : phone::shippedModules()) {
        table.push_back(fieldsOf(module));
        for (Field& field : table.back()) field.label = kListed.contains(field.key) ? field.key : "";
    }
    print({{"modules", "", table}}, json);
}

void showOne(const ModulesOptions& options) {
    const ModuleDescription module = phone::moduleByName(options.name);
    Record fields = fieldsOf(module);
    if (options.toml) {
        const std::string text = phone::moduleText(options.name);
        printLine(text.substr(0, text.find_last_not_of('\n') + 1));
    } else if (options.settings.json) {
        print({{"modules", "", Table{fields}}}, true);
    } else {
        if (module.hasOis) fields.push_back({"", "", customisationTable(module)});
        print(fields, false);
    }
}

int showModules(const ModulesOptions& options) {
    if (options.toml && options.name.empty()) throw InputError("modules --toml: needs a module's name");
    asInput(fmt::format("modules {}: ", options.name),
            [&] { options.name.empty() ? showList(options.settings.json) : showOne(options); });
    return kSuccess;
}

}  // namespace

Command describeModules() {
    auto options = std::make_shared<ModulesOptions>();
    return {
        .options = {value("name", "NAME|FILE", "A shipped module, or a TOML file, which is checked",
                          &options->name, {.words = moduleNames}),
                    flag("--toml", "Print the description itself, to start one of your own", &options->toml),
                    jsonOption(options->settings)},
        .examples = {{"oisctl modules", "the modules that ship"},
                     {"oisctl modules dw9786", "one in detail"},
                     {"oisctl modules dw9786 --toml > mine.toml", "a start for one of your own"},
                     {"oisctl modules ./mine.toml", "checks a description of your own"},
                     {"oisctl modules --json | jq '.modules[].name'"}},
        .run = [options] { return showModules(*options); },
    };
}

}  // namespace oisctl

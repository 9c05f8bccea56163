// oisctl properties: the system properties that the driver reads.

#include <memory>
#include <nlohmann/json.hpp>

#include "base/errors.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "services/property_store.h"
#include "session/settings.h"

namespace oisctl {

namespace {

std::string typeName(phone::PropertyType type) {
    switch (type) {
        case phone::PropertyType::kBool:
            return "switch";
        case phone::PropertyType::kInt32:
            return "integer";
        case phone::PropertyType::kText:
            return "text";
    }
    return "";
}

int show(const Settings& settings) {
    if (settings.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& property : phone::knownProperties()) {
            list.push_back({{"key", property.key},
                            {"type", typeName(property.type)},
                            {"default", property.defaultValue},
                            {"meaning", property.meaning}});
        }
        printLine(list.dump(2));
        return kSuccess;
    }
    Table table({"PROPERTY", "TYPE", "DEFAULT", "MEANING"});
    for (const auto& property : phone::knownProperties()) {
        const std::string otherwise(property.defaultValue.empty() ? "(state)" : property.defaultValue);
        table.addRow({styled(Style::kName, property.key), typeName(property.type), otherwise,
                      std::string(property.meaning)});
    }
    table.print();
    return kSuccess;
}

}  // namespace

Command describeProperties() {
    auto settings = std::make_shared<Settings>();
    return {
        .options = {jsonOption(*settings)},
        .notes =
            "Where a name begins with \"vendor.debug.ois.\", that may be left out. A default of (state) is "
            "the "
            "driver's own\nvalue of the moment.\n",
        .examples = {{"oisctl session --set vendor.debug.ois.bypassen=0"},
                     {"oisctl session --set fixmode=1 --set gethall=1"},
                     {"oisctl session --properties FILE", "one PROPERTY=VALUE a line"}},
        .run = [settings] { return show(*settings); },
    };
}

}  // namespace oisctl

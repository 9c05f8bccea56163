// oisctl properties: the system properties that the driver reads.

#include <memory>

#include "base/errors.h"
#include "base/report.h"
#include "commands/commands.h"
#include "services/property_store.h"
#include "session/settings.h"

namespace oisctl {

namespace {

// In the order of phone::PropertyType.
constexpr const char* kTypeNames[] = {"switch", "integer", "text"};

int showProperties(const Settings& settings) {
    Table table;
    for (const auto& property : phone::knownProperties()) {
        const bool known = !property.defaultValue.empty();
        table.push_back(
            {{"name", "property", property.key, "", Style::kName},
             {"type", "type", kTypeNames[static_cast<size_t>(property.type)]},
             {"default", "default", known ? Value(property.defaultValue) : Value(), known ? "" : "(state)"},
             {"meaning", "meaning", property.meaning}});
    }
    print({{"properties", "", table}}, settings.json);
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
        .run = [settings] { return showProperties(*settings); },
    };
}

}  // namespace oisctl

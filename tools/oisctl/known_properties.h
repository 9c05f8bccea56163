#pragma once
// The system properties that the driver reads.

#include <string>
#include <string_view>
#include <vector>

namespace oisctl {

enum class PropertyType { kBool, kInt, kText };

struct KnownProperty {
    std::string_view key;
    PropertyType type;
    std::string_view defaultValue;
    std::string_view readWhen;
    std::string_view meaning;
};

const std::vector<KnownProperty>& knownProperties();

// Throws std::invalid_argument whose text says what is wrong with the name or the value and what would be
// right. Names may leave out "vendor.debug.ois."; returns the whole name.
std::string checkedProperty(std::string_view key, std::string_view value);

// Splits "property=value" and checks both. Throws InputError.
struct Assignment {
    std::string key;
    std::string value;
};
Assignment parseAssignment(std::string_view text);

}  // namespace oisctl

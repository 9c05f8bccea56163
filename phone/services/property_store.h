#pragma once
// The phone's system properties: what the driver reads, and what tools and tests set.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <shared_mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace phone {

enum class PropertyType { kBool, kInt32, kText };

// A property that the driver reads.
struct KnownProperty {
    std::string_view key;
    PropertyType type;
    std::string_view defaultValue;  // as the driver passes it; empty where it depends on the driver's state
    std::string_view meaning;       // one line
};
// In the order in which the driver reads them.
std::span<const KnownProperty> knownProperties();

// A property that the driver reads, by its whole name, with a value that its accessor takes.
struct Property {
    std::string key;
    std::string value;
    bool operator==(const Property&) const = default;
};
// Names may leave out "vendor.debug.ois.". Both throw std::invalid_argument that says what would be right.
Property knownProperty(std::string_view name, std::string_view value);
Property parseProperty(std::string_view assignment);  // "bypassen=0"
// Lines of assignments; blank lines and lines that begin with '#' are skipped. Throws std::runtime_error
// "FILE:LINE: reason".
std::vector<Property> loadProperties(const std::filesystem::path& file);
// What of a whole name has to be written.
std::string_view shortPropertyName(std::string_view key);

// The longest value that fits the 256 bytes a reader provides.
constexpr size_t kPropertyValueMax = 255;

// Properties by name, each a text. Any thread; a read takes a shared lock and allocates nothing.
class PropertyStore {
  public:
    // Sets any property. Throws std::invalid_argument when the key is empty or the value longer than
    // kPropertyValueMax.
    void set(std::string_view key, std::string_view value);
    void set(const Property& property) { set(property.key, property.value); }
    void assign(std::string_view assignment) { set(parseProperty(assignment)); }
    // True when it was there.
    bool erase(std::string_view key);
    void clear();

    std::optional<std::string> get(std::string_view key) const;

    // The platform's accessors. A value that is no number, or does not fit, reads as the default; so does a
    // bool that is none of 1 y yes on true 0 n no off false.
    int32_t getInt32(std::string_view key, int32_t defaultValue) const;
    bool getBool(std::string_view key, bool defaultValue) const;
    // Copies the value, or the default, and a NUL into `value`; returns the length without the NUL.
    size_t getText(std::string_view key, std::span<char> value, std::string_view defaultValue) const;

  private:
    mutable std::shared_mutex mMutex;
    std::map<std::string, std::string, std::less<>> mValues;
};

}  // namespace phone

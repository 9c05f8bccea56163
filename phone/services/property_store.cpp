#include "services/property_store.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <mutex>
#include <sstream>
#include <stdexcept>

#include "base/closest_name.h"
#include "base/file_content.h"

namespace phone {

namespace {

constexpr std::string_view kPrefix = "vendor.debug.ois.";

using enum PropertyType;
constexpr std::array kKnownProperties = {
    KnownProperty{"vendor.debug.ois.mode", kBool, "0",
                  "manual control: the mode is the driver's manual mode"},
    KnownProperty{"vendor.debug.ois.dump", kInt32, "0", "dump files, a sum of: 1 status, 2 OTP, 4 flash"},
    KnownProperty{"vendor.debug.ois.dump.interval.time", kInt32, "4",
                  "ms between rows of the status file (0 to 255)"},
    KnownProperty{"vendor.debug.ois.dump.level", kInt32, "15",
                  "value groups asked of the controller for the status file"},
    KnownProperty{"vendor.debug.ois.actuator.dectect", kBool, "0",
                  "actuator defect detection switch; shown only"},
    KnownProperty{"vendor.debug.ois.status.check", kBool, "0",
                  "check the controller's status with every request"},
    KnownProperty{"vendor.debug.ois.actois", kBool, "0", "active OIS in every dynamic mode"},
    KnownProperty{"vendor.debug.ois.fixmode", kBool, "0", "hold the lens at a target instead of stabilising"},
    KnownProperty{"vendor.debug.ois.disable", kInt32, "", "0 switches OIS off; any other value leaves it on"},
    KnownProperty{"vendor.debug.ois.bypassen", kInt32, "1",
                  "behind the hub: 1 relays commands, 0 turns them into register accesses"},
    KnownProperty{"vendor.debug.ois.loglevel", kInt32, "0", "the sensor hub's log level"},
    KnownProperty{"vendor.debug.ois.gethall", kBool, "0", "in fix mode: read the hall position back"},
    KnownProperty{"vendor.debug.ois.dynamic", kInt32, "", "dynamic mode in force of the one asked for"},
    KnownProperty{"vendor.debug.ois.tarx", kInt32, "0", "fix-mode target x of a request, controller units"},
    KnownProperty{"vendor.debug.ois.tary", kInt32, "0", "fix-mode target y of a request, controller units"},
    KnownProperty{"vendor.debug.ois.targetx", kInt32, "",
                  "manual fix-mode target x, controller units; default 2000 on korvas4sw, else 0"},
    KnownProperty{"vendor.debug.ois.targety", kInt32, "",
                  "manual fix-mode target y, controller units; default 2000 on korvas4sw, else 0"},
    KnownProperty{"vendor.debug.ois.sineEn", kInt32, "3", "sine test: axes driven"},
    KnownProperty{"vendor.debug.ois.sineFre", kInt32, "1", "sine test: frequency"},
    KnownProperty{"vendor.debug.ois.sineAmpX", kInt32, "100", "sine test: amplitude x"},
    KnownProperty{"vendor.debug.ois.sineAmpY", kInt32, "100", "sine test: amplitude y"},
    KnownProperty{"ro.product.country.region", kText, "N", "region code; IN sends no telemetry"},
};

const KnownProperty* findKnown(std::string_view key) {
    const auto found = std::ranges::find(kKnownProperties, key, &KnownProperty::key);
    return found == kKnownProperties.end() ? nullptr : &*found;
}

std::optional<bool> parseBool(std::string_view text) {
    static constexpr std::array<std::string_view, 5> kTrue = {"1", "y", "yes", "on", "true"};
    static constexpr std::array<std::string_view, 5> kFalse = {"0", "n", "no", "off", "false"};
    if (std::ranges::find(kTrue, text) != kTrue.end()) return true;
    if (std::ranges::find(kFalse, text) != kFalse.end()) return false;
    return std::nullopt;
}

// Decimal, or hexadecimal after 0x, with an optional minus.
std::optional<int32_t> parseInt32(std::string_view text) {
    const bool negative = text.starts_with('-');
    if (negative) text.remove_prefix(1);
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    if (hex) text.remove_prefix(2);
    uint64_t magnitude = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), magnitude, hex ? 16 : 10);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    const uint64_t limit = uint64_t{INT32_MAX} + (negative ? 1 : 0);
    if (magnitude > limit) return std::nullopt;
    const auto value = static_cast<int64_t>(magnitude);
    return static_cast<int32_t>(negative ? -value : value);
}

void checkStorable(std::string_view key, std::string_view value) {
    if (key.empty()) throw std::invalid_argument("a property needs a name before the '='");
    if (value.size() > kPropertyValueMax) {
        throw std::invalid_argument(fmt::format("property {}: the value has {} characters; at most {} fit",
                                                key, value.size(), kPropertyValueMax));
    }
}

std::string adviceFor(std::string_view key) {
    std::array<std::string_view, kKnownProperties.size()> keys;
    std::ranges::transform(kKnownProperties, keys.begin(), &KnownProperty::key);
    return nameAdvice(key, keys);
}

void checkKnown(const Property& property) {
    const auto& [key, value] = property;
    checkStorable(key, value);
    const KnownProperty* known = findKnown(key);
    if (known == nullptr) {
        throw std::invalid_argument(
            fmt::format("property {}: the driver reads no such property; {}", key, adviceFor(key)));
    }
    if (known->type == kBool && !parseBool(value)) {
        throw std::invalid_argument(fmt::format(
            "property {}: \"{}\" is no switch; use 1, y, yes, on, true or 0, n, no, off, false", key, value));
    }
    if (known->type == kInt32 && !parseInt32(value)) {
        throw std::invalid_argument(
            fmt::format("property {}: \"{}\" is no integer from -2147483648 to 2147483647", key, value));
    }
}

}  // namespace

std::span<const KnownProperty> knownProperties() {
    return kKnownProperties;
}

std::string_view shortPropertyName(std::string_view key) {
    return key.starts_with(kPrefix) ? key.substr(kPrefix.size()) : key;
}

Property knownProperty(std::string_view name, std::string_view value) {
    Property property{std::string(name), std::string(value)};
    const std::string whole = fmt::format("{}{}", kPrefix, name);
    const bool isShort = !name.empty() && name.find('.') == std::string_view::npos;
    if (findKnown(name) == nullptr && (isShort || findKnown(whole) != nullptr)) property.key = whole;
    checkKnown(property);
    return property;
}

Property parseProperty(std::string_view assignment) {
    const size_t equals = assignment.find('=');
    if (equals == std::string_view::npos) {
        throw std::invalid_argument(fmt::format("\"{}\" is no property; write key=value", assignment));
    }
    return knownProperty(trimmed(assignment.substr(0, equals)), trimmed(assignment.substr(equals + 1)));
}

std::vector<Property> loadProperties(const std::filesystem::path& file) {
    std::istringstream in(readTextFile(file));
    std::vector<Property> properties;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::string_view text = trimmed(line);
        if (text.empty() || text.starts_with('#')) continue;
        try {
            properties.push_back(parseProperty(text));
        } catch (const std::invalid_argument& error) {
            throw std::runtime_error(fmt::format("{}:{}: {}", file.string(), number, error.what()));
        }
    }
    return properties;
}

void PropertyStore::set(std::string_view key, std::string_view value) {
    checkStorable(key, value);
    const std::unique_lock lock(mMutex);
    mValues.insert_or_assign(std::string(key), std::string(value));
}

bool PropertyStore::erase(std::string_view key) {
    const std::unique_lock lock(mMutex);
    const auto found = mValues.find(key);
    if (found == mValues.end()) return false;
    mValues.erase(found);
    return true;
}

void PropertyStore::clear() {
    const std::unique_lock lock(mMutex);
    mValues.clear();
}

std::optional<std::string> PropertyStore::get(std::string_view key) const {
    const std::shared_lock lock(mMutex);
    const auto found = mValues.find(key);
    if (found == mValues.end()) return std::nullopt;
    return found->second;
}

int32_t PropertyStore::getInt32(std::string_view key, int32_t defaultValue) const {
    const std::shared_lock lock(mMutex);
    const auto found = mValues.find(key);
    return found == mValues.end() ? defaultValue : parseInt32(found->second).value_or(defaultValue);
}

bool PropertyStore::getBool(std::string_view key, bool defaultValue) const {
    const std::shared_lock lock(mMutex);
    const auto found = mValues.find(key);
    return found == mValues.end() ? defaultValue : parseBool(found->second).value_or(defaultValue);
}

size_t PropertyStore::getText(std::string_view key, std::span<char> value,
                              std::string_view defaultValue) const {
    const std::shared_lock lock(mMutex);
    const auto found = mValues.find(key);
    const std::string_view text = found == mValues.end() ? defaultValue : std::string_view(found->second);
    if (value.empty()) return 0;
    const size_t length = std::min(text.size(), value.size() - 1);
    std::ranges::copy(text.substr(0, length), value.begin());
    value[length] = '\0';
    return length;
}

}  // namespace phone

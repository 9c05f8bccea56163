#include "base/toml_reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "base/closest_name.h"
#include "base/file_content.h"

namespace phone {

namespace {

std::string place(const std::string& source, const toml::source_region& region) {
    return source + ":" + std::to_string(region.begin.line) + ": ";
}

std::string textOf(double value) {
    std::array<char, 32> buffer{};
    const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return error == std::errc() ? std::string(buffer.data(), end) : "?";
}

// A value as the file has it.
std::string valueText(const toml::node& node) {
    if (node.is_table()) return "a table";
    if (const toml::array* array = node.as_array()) return "an array of " + std::to_string(array->size());
    if (const auto* number = node.as_floating_point()) return textOf(number->get());
    std::ostringstream out;
    node.visit([&out](const auto& value) { out << value; });
    return out.str();
}

std::string rangeText(int64_t low, int64_t high) {
    return std::to_string(low) + " to " + std::to_string(high);
}

std::string rangeText(double low, double high) {
    constexpr double kUnbounded = std::numeric_limits<float>::max();
    const bool lowest = low <= -kUnbounded;
    const bool highest = high >= kUnbounded;
    if (lowest && highest) return "finite";
    if (highest) return textOf(low) + " or more";
    if (lowest) return textOf(high) + " or less";
    return textOf(low) + " to " + textOf(high);
}

std::optional<int64_t> integerOf(const toml::node& node, int64_t low, int64_t high) {
    const auto value = node.is_integer() ? node.value<int64_t>() : std::nullopt;
    return value && *value >= low && *value <= high ? value : std::nullopt;
}

std::optional<double> numberOf(const toml::node& node, double low, double high) {
    const auto value = node.is_number() ? node.value<double>() : std::nullopt;
    return value && std::isfinite(*value) && *value >= low && *value <= high ? value : std::nullopt;
}

std::string countText(size_t minCount, size_t maxCount) {
    if (minCount == maxCount) return std::to_string(minCount);
    return std::to_string(minCount) + " to " + std::to_string(maxCount);
}

}  // namespace

toml::table parseToml(std::string_view text, const std::string& source) {
    try {
        return toml::parse(text, source);
    } catch (const toml::parse_error& error) {
        throw std::runtime_error(place(source, error.source()) + std::string(error.description()));
    }
}

toml::table parseTomlFile(const std::string& file) {
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored)) {
        throw std::runtime_error(file + ": is a folder; name a TOML file in it");
    }
    if (!std::filesystem::exists(file, ignored)) throw std::runtime_error(file + ": no such file");
    return parseToml(readTextFile(file), file);
}

TableReader::TableReader(const toml::table& table, std::string path, std::string source)
    : mTable(table), mPath(std::move(path)), mSource(std::move(source)) {}

std::string TableReader::nameOf(std::string_view key) const {
    return mPath.empty() ? std::string(key) : mPath + "." + std::string(key);
}

const toml::node* TableReader::find(std::string_view key) {
    mAsked.emplace_back(key);
    return mTable.get(key);
}

void TableReader::fail(std::string_view key, const std::string& reason) const {
    const toml::node* node = mTable.get(key);
    const toml::source_region& region = node == nullptr ? mTable.source() : node->source();
    throw std::runtime_error(place(mSource, region) + nameOf(key) + " " + reason);
}

void TableReader::require(std::string_view key, std::string_view meaning) {
    if (!has(key)) fail(key, "is missing: " + std::string(meaning));
}

std::optional<int64_t> TableReader::integer(std::string_view key, int64_t low, int64_t high) {
    const toml::node* node = find(key);
    if (node == nullptr) return std::nullopt;
    const auto value = integerOf(*node, low, high);
    if (!value) fail(key, "is " + valueText(*node) + "; it may be an integer, " + rangeText(low, high));
    return value;
}

std::optional<double> TableReader::number(std::string_view key, double low, double high) {
    const toml::node* node = find(key);
    if (node == nullptr) return std::nullopt;
    const auto value = numberOf(*node, low, high);
    if (!value) fail(key, "is " + valueText(*node) + "; it may be a number, " + rangeText(low, high));
    return value;
}

std::optional<bool> TableReader::boolean(std::string_view key) {
    const toml::node* node = find(key);
    if (node == nullptr) return std::nullopt;
    if (!node->is_boolean()) fail(key, "is " + valueText(*node) + "; it may be true or false");
    return node->value<bool>();
}

std::optional<std::string> TableReader::text(std::string_view key, size_t maxLength) {
    const toml::node* node = find(key);
    if (node == nullptr) return std::nullopt;
    const std::string allowed = "; it may be a text of at most " + std::to_string(maxLength) + " characters";
    if (!node->is_string()) fail(key, "is " + valueText(*node) + allowed);
    auto value = node->value<std::string>();
    if (value->size() > maxLength) {
        fail(key, "is \"" + *value + "\", " + std::to_string(value->size()) + " characters" + allowed);
    }
    return value;
}

const toml::array* TableReader::findArray(std::string_view key, size_t minCount, size_t maxCount,
                                          const std::string& of) {
    const toml::node* node = find(key);
    if (node == nullptr) return nullptr;
    const toml::array* array = node->as_array();
    if (array == nullptr || array->size() < minCount || array->size() > maxCount) {
        fail(key, "is " + valueText(*node) + "; it may be an array of " + countText(minCount, maxCount) +
                      " " + of);
    }
    return array;
}

std::optional<std::vector<std::string>> TableReader::texts(std::string_view key) {
    const toml::array* array = findArray(key, 0, std::numeric_limits<uint16_t>::max(), "texts");
    if (array == nullptr) return std::nullopt;
    std::vector<std::string> values;
    for (const toml::node& element : *array) {
        if (!element.is_string()) fail(key, "holds " + valueText(element) + "; it may hold texts");
        values.push_back(*element.value<std::string>());
    }
    return values;
}

std::optional<std::vector<int64_t>> TableReader::integers(std::string_view key, int64_t low, int64_t high,
                                                          size_t minCount, size_t maxCount) {
    const toml::array* array = findArray(key, minCount, maxCount, "integers, " + rangeText(low, high));
    if (array == nullptr) return std::nullopt;
    std::vector<int64_t> values;
    for (const toml::node& element : *array) {
        const auto value = integerOf(element, low, high);
        if (!value)
            fail(key, "holds " + valueText(element) + "; it may hold integers, " + rangeText(low, high));
        values.push_back(*value);
    }
    return values;
}

std::optional<std::vector<double>> TableReader::numbers(std::string_view key, double low, double high,
                                                        size_t minCount, size_t maxCount) {
    const toml::array* array = findArray(key, minCount, maxCount, "numbers, " + rangeText(low, high));
    if (array == nullptr) return std::nullopt;
    std::vector<double> values;
    for (const toml::node& element : *array) {
        const auto value = numberOf(element, low, high);
        if (!value)
            fail(key, "holds " + valueText(element) + "; it may hold numbers, " + rangeText(low, high));
        values.push_back(*value);
    }
    return values;
}

std::optional<TableReader> TableReader::table(std::string_view key) {
    const toml::node* node = find(key);
    if (node == nullptr) return std::nullopt;
    const toml::table* table = node->as_table();
    if (table == nullptr) fail(key, "is " + valueText(*node) + "; it may be a table");
    return TableReader(*table, nameOf(key), mSource);
}

void TableReader::finish() const {
    for (const auto& [key, node] : mTable) {
        if (std::ranges::find(mAsked, key.str()) != mAsked.end()) continue;
        const std::vector<std::string_view> known(mAsked.begin(), mAsked.end());
        fail(key.str(), "is no field of a description; " + nameAdvice(key.str(), known));
    }
}

}  // namespace phone

#include "base/toml_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "base/closest_name.h"
#include "base/file_content.h"

namespace phone {

namespace {

constexpr size_t kAnyCount = std::numeric_limits<uint16_t>::max();

std::string place(const std::string& source, const toml::source_region& region) {
    return fmt::format("{}:{}: ", source, region.begin.line);
}

// A value as the file has it.
std::string valueText(const toml::node& node) {
    if (node.is_table()) return "a table";
    if (const toml::array* array = node.as_array()) return fmt::format("an array of {}", array->size());
    if (const auto* number = node.as_floating_point()) return fmt::format("{}", number->get());
    if (const auto* text = node.as_string()) return fmt::format("\"{}\"", text->get());
    std::ostringstream out;
    node.visit([&out](const auto& value) { out << value; });
    return out.str();
}

std::string rangeText(int64_t low, int64_t high) {
    return fmt::format("an integer, {} to {}", low, high);
}

std::string rangeText(const NumberRange& range) {
    constexpr NumberRange kAny;
    const bool lowest = range.least <= kAny.least;
    const bool highest = range.greatest >= kAny.greatest;
    const char* kind = range.whole ? "whole number" : "number";
    if (lowest && highest) return fmt::format("a finite {}", kind);
    if (highest) return fmt::format("a {}, {} or more", kind, range.least);
    if (lowest) return fmt::format("a {}, {} or less", kind, range.greatest);
    return fmt::format("a {}, {} to {}", kind, range.least, range.greatest);
}

std::string countText(size_t minCount, size_t maxCount) {
    if (minCount == maxCount) return std::to_string(minCount);
    if (maxCount == kAnyCount) return fmt::format("{} or more", minCount);
    return fmt::format("{} to {}", minCount, maxCount);
}

std::optional<int64_t> integerOf(const toml::node& node, int64_t low, int64_t high) {
    const auto value = node.is_integer() ? node.value<int64_t>() : std::nullopt;
    return value && *value >= low && *value <= high ? value : std::nullopt;
}

std::optional<double> numberOf(const toml::node& node, const NumberRange& range) {
    std::optional<double> value;
    if (node.is_number()) value = node.value<double>();
    if (range.whole && node.is_boolean()) value = *node.value<bool>() ? 1 : 0;
    const bool fits = value && std::isfinite(*value) && *value >= range.least && *value <= range.greatest &&
                      (!range.whole || *value == std::floor(*value));
    return fits ? value : std::nullopt;
}

std::optional<std::string> scalarOf(const toml::node& node) {
    if (node.is_boolean()) return *node.value<bool>() ? "1" : "0";
    if (node.is_integer()) return std::to_string(*node.value<int64_t>());
    return node.value_exact<std::string>();
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
    : mTable(&table), mPath(std::move(path)), mSource(std::move(source)) {}

std::string TableReader::nameOf(std::string_view key) const {
    return mPath.empty() ? std::string(key) : fmt::format("{}.{}", mPath, key);
}

const toml::node* TableReader::find(std::string_view key) {
    mAsked.emplace_back(key);
    return mTable->get(key);
}

void TableReader::failAt(const toml::node& node, std::string_view key, const std::string& reason) const {
    throw std::runtime_error(fmt::format("{}{} {}", place(mSource, node.source()), nameOf(key), reason));
}

void TableReader::fail(std::string_view key, const std::string& reason) const {
    const toml::node* node = mTable->get(key);
    failAt(node == nullptr ? *mTable : *node, key, reason);
}

void TableReader::fail(const std::string& reason) const {
    throw std::runtime_error(fmt::format("{}{} {}", place(mSource, mTable->source()), mPath, reason));
}

void TableReader::require(std::string_view key, std::string_view meaning) {
    if (!has(key)) fail(key, fmt::format("is missing: {}", meaning));
}

size_t TableReader::count(std::string_view key) const {
    const toml::array* array = mTable->get_as<toml::array>(key);
    return array == nullptr ? 0 : array->size();
}

template <typename Convert>
auto TableReader::value(std::string_view key, const std::string& allowed, const Convert& convert) {
    const toml::node* node = find(key);
    auto found = node == nullptr ? std::nullopt : convert(*node);
    if (node != nullptr && !found) {
        fail(key, fmt::format("is {}; it may be {}", valueText(*node), allowed));
    }
    return found;
}

std::optional<int64_t> TableReader::integer(std::string_view key, int64_t low, int64_t high) {
    return value(key, rangeText(low, high),
                 [&](const toml::node& node) { return integerOf(node, low, high); });
}

std::optional<double> TableReader::number(std::string_view key, const NumberRange& range) {
    return value(key, rangeText(range), [&](const toml::node& node) { return numberOf(node, range); });
}

std::optional<bool> TableReader::boolean(std::string_view key) {
    return value(key, "true or false", [](const toml::node& node) { return node.value_exact<bool>(); });
}

std::optional<std::string> TableReader::scalar(std::string_view key) {
    return value(key, "a whole number, true, false or a text", scalarOf);
}

std::optional<std::string> TableReader::text(std::string_view key, size_t maxLength) {
    const toml::node* node = find(key);
    if (node == nullptr) return std::nullopt;
    auto value = node->value_exact<std::string>();
    if (value && value->size() <= maxLength) return value;
    const std::string length = value ? fmt::format(", {} characters", value->size()) : "";
    fail(key, fmt::format("is {}{}; it may be a text of at most {} characters", valueText(*node), length,
                          maxLength));
}

const toml::array* TableReader::findArray(std::string_view key, size_t minCount, size_t maxCount,
                                          const std::string& of) {
    const toml::node* node = find(key);
    if (node == nullptr) return nullptr;
    const toml::array* array = node->as_array();
    if (array != nullptr && array->size() >= minCount && array->size() <= maxCount) return array;
    fail(key, fmt::format("is {}; it may be an array of {}, each {}", valueText(*node),
                          countText(minCount, maxCount), of));
}

template <typename Convert>
auto TableReader::elements(std::string_view key, size_t minCount, size_t maxCount, const std::string& of,
                           const Convert& convert) {
    using Value = typename decltype(convert(std::declval<const toml::node&>()))::value_type;
    std::optional<std::vector<Value>> values;
    const toml::array* array = findArray(key, minCount, maxCount, of);
    if (array == nullptr) return values;
    values.emplace();
    for (const toml::node& element : *array) {
        const auto value = convert(element);
        if (!value) failAt(element, key, fmt::format("holds {}; it may hold: {}", valueText(element), of));
        values->push_back(*value);
    }
    return values;
}

std::optional<std::vector<int64_t>> TableReader::integers(std::string_view key, int64_t low, int64_t high,
                                                          size_t minCount, size_t maxCount) {
    return elements(key, minCount, maxCount, rangeText(low, high),
                    [&](const toml::node& node) { return integerOf(node, low, high); });
}

std::optional<std::vector<double>> TableReader::numbers(std::string_view key, const NumberRange& range,
                                                        size_t minCount, size_t maxCount) {
    return elements(key, minCount, maxCount, rangeText(range),
                    [&](const toml::node& node) { return numberOf(node, range); });
}

std::optional<std::vector<TableReader::Point>> TableReader::points(std::string_view key, const NumberRange& x,
                                                                   const NumberRange& y) {
    if (has(key) && count(key) == 0) return std::vector<Point>{{0, *number(key, y)}};
    const auto pointOf = [&](const toml::node& node) -> std::optional<Point> {
        const toml::array* pair = node.as_array();
        if (pair == nullptr || pair->size() != 2) return std::nullopt;
        const std::array found = {numberOf(*pair->get(0), x), numberOf(*pair->get(1), y)};
        for (size_t i = 0; i < found.size(); ++i) {
            const NumberRange& range = i == 0 ? x : y;
            if (found[i]) continue;
            failAt(node, key,
                   fmt::format("has a point whose {} value is {}; it may be {}", i == 0 ? "first" : "second",
                               valueText(*pair->get(i)), rangeText(range)));
        }
        return Point(*found[0], *found[1]);
    };
    auto found = elements(key, 1, kAnyCount, "a point [x, y]", pointOf);
    if (found &&
        std::ranges::adjacent_find(*found, std::ranges::greater_equal{}, &Point::first) != found->end()) {
        fail(key,
             "has points that do not ascend: the first value of each must be above that of the one before");
    }
    return found;
}

std::optional<TableReader> TableReader::table(std::string_view key) {
    return value(key, "a table", [&](const toml::node& node) {
        const toml::table* table = node.as_table();
        return table ? std::optional(TableReader(*table, nameOf(key), mSource)) : std::nullopt;
    });
}

std::vector<TableReader> TableReader::tables(std::string_view key) {
    std::vector<TableReader> readers;
    const toml::node* node = find(key);
    if (node == nullptr) return readers;
    const toml::array* array = node->as_array();
    if (array == nullptr || !std::ranges::all_of(*array, &toml::node::is_table)) {
        fail(key, fmt::format("is {}; its entries begin with [[{}]]", valueText(*node), nameOf(key)));
    }
    for (const toml::node& entry : *array) readers.emplace_back(*entry.as_table(), nameOf(key), mSource);
    return readers;
}

void TableReader::handOver(const toml::node& node, std::string_view key,
                           const std::function<void()>& take) const {
    try {
        take();
    } catch (const std::exception& error) {
        throw std::runtime_error(
            fmt::format("{}{}: {}", place(mSource, node.source()), nameOf(key), error.what()));
    }
}

void TableReader::takeText(std::string_view key, const Taker& taker) {
    if (const auto value = text(key)) handOver(*mTable->get(key), key, [&] { taker(*value); });
}

void TableReader::takeTexts(std::string_view key, const Taker& taker) {
    const auto take = [&](const toml::node& node) {
        auto value = node.value_exact<std::string>();
        if (value) handOver(node, key, [&] { taker(*value); });
        return value;
    };
    static_cast<void>(elements(key, 0, kAnyCount, "a text", take));
}

void TableReader::takeScalars(std::string_view key,
                              const std::function<void(const std::string&, const std::string&)>& taker) {
    auto fields = table(key);
    if (!fields) return;
    for (const auto& [name, node] : *fields->mTable) {
        const std::string value = *fields->scalar(name.str());
        handOver(node, key, [&, &name = name] { taker(std::string(name.str()), value); });
    }
}

void TableReader::finish() const {
    for (const auto& [key, node] : *mTable) {
        if (std::ranges::find(mAsked, key.str()) != mAsked.end()) continue;
        const std::vector<std::string_view> known(mAsked.begin(), mAsked.end());
        failAt(node, key.str(), "is no field here; " + nameAdvice(key.str(), known));
    }
}

}  // namespace phone

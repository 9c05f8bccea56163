#include "base/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <nlohmann/json.hpp>

namespace oisctl {

namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kLeastLabel = 10;

Json toJson(const Record& record);

struct ToJson {
    Json operator()(std::monostate) const { return nullptr; }
    Json operator()(const std::shared_ptr<const Record>& record) const { return toJson(*record); }
    Json operator()(const std::shared_ptr<const Table>& table) const {
        Json rows = Json::array();
        for (const Record& row : *table) rows.push_back(toJson(row));
        return rows;
    }
    // Twelve digits are more than anything here is measured to, and hide what binary fractions add.
    Json operator()(double value) const {
        if (!std::isfinite(value)) return nullptr;
        return std::stod(fmt::format("{:.12g}", value));
    }
    Json operator()(const auto& plain) const { return plain; }
};

Json toJson(const Record& record) {
    Json object = Json::object();
    for (const Field& field : record)
        if (!field.key.empty()) object[field.key] = std::visit(ToJson{}, field.value.data);
    return object;
}

struct ToText {
    std::string operator()(std::monostate) const { return "-"; }
    std::string operator()(bool value) const { return value ? "yes" : "no"; }
    std::string operator()(const std::vector<std::string>& words) const {
        return words.empty() ? "-" : fmt::format("{}", fmt::join(words, ", "));
    }
    std::string operator()(const std::shared_ptr<const Record>&) const { return {}; }
    std::string operator()(const std::shared_ptr<const Table>&) const { return {}; }
    std::string operator()(const auto& plain) const { return fmt::format("{}", plain); }
};

// A cell, padded to its column.
std::string padded(const std::string& text, size_t width, bool right, Style style) {
    const std::string padding(width - std::min(width, columnsOf(text)), ' ');
    return right ? padding + styled(style, text) : styled(style, text) + padding;
}

bool isNumber(const Field& field) {
    const auto is = []<typename T>(const T&) { return std::is_arithmetic_v<T> && !std::is_same_v<T, bool>; };
    return std::visit(is, field.value.data);
}

bool hasColumns(const Table& table) {
    return !table.empty() && !std::ranges::all_of(table.front(), &std::string::empty, &Field::label);
}

// Column by column. Numbers stand to the right.
void printTable(const Table& table, std::string_view indent) {
    std::vector<std::string> lines(table.size() + 1, std::string(indent));
    for (size_t c = 0; c < table.front().size(); ++c) {
        std::string heading = table.front()[c].label;
        if (heading.empty()) continue;
        for (char& letter : heading)
            letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
        size_t width = heading.size();
        for (const Record& row : table) width = std::max(width, columnsOf(textOf(row[c])));
        const bool right = std::ranges::any_of(table, [c](const Record& row) { return isNumber(row[c]); });
        lines[0] += padded(heading, width, right, Style::kBold) + "  ";
        for (size_t i = 0; i < table.size(); ++i)
            lines[i + 1] += padded(textOf(table[i][c]), width, right, table[i][c].style) + "  ";
    }
    for (const std::string& line : lines) printLine(line.substr(0, line.find_last_not_of(' ') + 1));
}

// The label stands in front of the first line only.
void printEntry(const Field& field, size_t width) {
    std::string label = field.label;
    std::string rest = textOf(field);
    for (size_t end = 0; end != std::string::npos; label.clear()) {
        end = rest.find('\n');
        printLine(fmt::format("  {}  {}", styled(Style::kDim, fmt::format("{:{}}", label, width)),
                              styled(field.style, rest.substr(0, end))));
        if (end != std::string::npos) rest.erase(0, end + 1);
    }
}

void printText(const Record& report) {
    size_t width = kLeastLabel;
    bool alone = true;
    for (const Field& field : report) {
        width = std::max(width, field.label.size());
        alone = alone && field.label.empty();
    }
    for (const Field& field : report) {
        const auto* const table = std::get_if<std::shared_ptr<const Table>>(&field.value.data);
        if (table != nullptr && hasColumns(**table)) {
            printTable(**table, alone ? "" : "  ");
        } else if (!field.label.empty()) {
            printEntry(field, width);
        }
    }
}

}  // namespace

// What it reads as, not the binary fraction behind it.
Value::Value(float value) : data(std::isfinite(value) ? std::stod(fmt::to_string(value)) : double{value}) {}
Value::Value(Record value) : data(std::make_shared<const Record>(std::move(value))) {}
Value::Value(Table value) : data(std::make_shared<const Table>(std::move(value))) {}

std::string textOf(const Field& field) {
    return field.text.empty() ? std::visit(ToText{}, field.value.data) : field.text;
}

std::string figure(double value, int decimals, std::string_view unit) {
    if (!std::isfinite(value)) return "-";
    const double half = std::pow(10, -decimals) / 2;
    return fmt::format("{:.{}f}{}", std::abs(value) < half ? 0 : value, decimals, unit);
}

Field byAxis(std::string key, std::string label, const Value& x, const Value& y, std::string_view unit) {
    const Field fields[] = {{"x", "", x}, {"y", "", y}};
    return {std::move(key), std::move(label), Record{fields[0], fields[1]},
            fmt::format("x {}, y {}{}", textOf(fields[0]), textOf(fields[1]), unit)};
}

void print(const Record& report, bool json) {
    if (!json) return printText(report);
    Record whole{{"format", "", kJsonFormat}};
    whole.insert(whole.end(), report.begin(), report.end());
    printLine(toJson(whole).dump(-1, ' ', false, Json::error_handler_t::replace));
}

}  // namespace oisctl

#include "base/report.h"

#include <fmt/format.h>

#include <algorithm>
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
        for (const Record& row : table->rows) rows.push_back(toJson(row));
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

std::string textOf(const Field& field) {
    return field.text.empty() ? std::visit(ToText{}, field.value.data) : field.text;
}

// A cell, padded to its column.
std::string padded(const std::string& text, size_t width, bool right, Style style) {
    const std::string padding(width - std::min(width, columnsOf(text)), ' ');
    return right ? padding + styled(style, text) : styled(style, text) + padding;
}

using Line = std::vector<Field>;

std::vector<Line> linesOf(const Table& table) {
    std::vector<Line> lines(1);
    for (const TableColumn& column : table.columns)
        lines[0].push_back({"", "", {}, std::string(column.heading), Style::kBold});
    for (const Record& row : table.rows) {
        Line& line = lines.emplace_back();
        for (const TableColumn& column : table.columns) {
            const auto found = std::find_if(row.begin(), row.end(),
                                            [&](const Field& field) { return field.key == column.key; });
            line.push_back({"",
                            "",
                            {},
                            found == row.end() ? "-" : textOf(*found),
                            found == row.end() ? Style::kPlain : found->style});
        }
    }
    return lines;
}

void printTable(const Table& table, std::string_view indent) {
    const std::vector<Line> lines = linesOf(table);
    std::vector<size_t> widths(table.columns.size());
    for (const Line& line : lines)
        for (size_t c = 0; c < line.size(); ++c) widths[c] = std::max(widths[c], columnsOf(line[c].text));
    if (!table.columns.empty() && !table.columns.back().right) widths.back() = 0;
    for (const Line& line : lines) {
        std::string text(indent);
        for (size_t c = 0; c < line.size(); ++c) {
            if (c > 0) text += "  ";
            text += padded(line[c].text, widths[c], table.columns[c].right, line[c].style);
        }
        printLine(text);
    }
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
        if (table != nullptr && !(*table)->columns.empty()) {
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

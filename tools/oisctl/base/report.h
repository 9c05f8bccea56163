#pragma once
// What a command found, as data: values with their names for programs and for people. Text or JSON is made of
// it last, here and nowhere else.

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "base/terminal.h"

namespace oisctl {

struct Field;
using Record = std::vector<Field>;
// Records of the same fields. The text shows those with a label, which heads their column; the JSON those
// with a key.
using Table = std::vector<Record>;

struct Value {
    using Data =
        std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, std::vector<std::string>,
                     std::shared_ptr<const Record>, std::shared_ptr<const Table>>;
    Value() = default;  // not known
    Value(bool value) : data(value) {}
    Value(std::signed_integral auto value) : data(int64_t{value}) {}
    Value(std::unsigned_integral auto value) : data(uint64_t{value}) {}
    Value(double value) : data(value) {}
    Value(float value);
    Value(const char* value) : data(std::string(value)) {}
    Value(std::string_view value) : data(std::string(value)) {}
    Value(std::string value) : data(std::move(value)) {}
    Value(std::vector<std::string> value) : data(std::move(value)) {}
    Value(Record value);
    Value(Table value);

    Data data;
};

struct Field {
    std::string key;    // in JSON; empty: in the text alone
    std::string label;  // in the text; empty: in JSON alone, but for tables
    Value value;
    std::string text{};  // what the text says instead of the value; lines ended by newlines
    Style style = Style::kPlain;
};

// What people read of a field.
std::string textOf(const Field& field);

// A value with its unit, as it stands behind the number (" deg"): "-" for NaN and infinity, and never "-0.0".
std::string figure(double value, int decimals, std::string_view unit = {});
Field measured(std::string key, std::string label, std::floating_point auto value, int decimals,
               std::string_view unit) {
    return {std::move(key), std::move(label), value, figure(value, decimals, unit)};
}
// An object with x and y; "x 1, y 2" in the text.
Field byAxis(std::string key, std::string label, const Value& x, const Value& y, std::string_view unit = {});

// Bumped when a key changes its name or its meaning, or goes away.
constexpr int kJsonFormat = 2;

// On standard output: one line of JSON, or text.
void print(const Record& report, bool json);

}  // namespace oisctl

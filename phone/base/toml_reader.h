#pragma once
// Reads tables of a TOML file strictly: what is there must be known, of the right type, and in range.
//
// Everything throws std::runtime_error "FILE:LINE: reason", naming the field, what it holds and what it may
// hold.

#include <toml++/toml.h>
#include <concepts>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace phone {

// The text's root table; `source` is its name in messages.
toml::table parseToml(std::string_view text, const std::string& source);
// The same from a file.
toml::table parseTomlFile(const std::string& file);

// What a number may be; finite in any case. A whole number that may be 0 or 1 may be written as a switch.
struct NumberRange {
    double least = -std::numeric_limits<float>::max();
    double greatest = std::numeric_limits<float>::max();
    bool whole = false;
};

// One table. Ask for every field it may have, then call finish(). Fields that are not there read as nothing.
// The table must outlive the reader.
class TableReader {
  public:
    // `path` is the table's name in messages; empty for the root.
    TableReader(const toml::table& table, std::string path, std::string source);

    bool has(std::string_view key) const { return mTable->contains(key); }
    bool holdsTable(std::string_view key) const { return mTable->get_as<toml::table>(key) != nullptr; }
    size_t size() const { return mTable->size(); }  // fields
    // Elements of an array; 0 when there is none.
    size_t count(std::string_view key) const;

    std::optional<int64_t> integer(std::string_view key, int64_t low, int64_t high);
    // Takes integers as well.
    std::optional<double> number(std::string_view key, const NumberRange& range);
    std::optional<bool> boolean(std::string_view key);
    // A whole number, a switch (1 or 0), or a text, as a text.
    std::optional<std::string> scalar(std::string_view key);
    std::optional<std::string> text(std::string_view key,
                                    size_t maxLength = std::numeric_limits<uint16_t>::max());
    std::optional<std::vector<int64_t>> integers(std::string_view key, int64_t low, int64_t high,
                                                 size_t minCount, size_t maxCount);
    std::optional<std::vector<double>> numbers(std::string_view key, const NumberRange& range,
                                               size_t minCount, size_t maxCount);
    // A curve: one point [x, y] or more, x ascending. Or a number alone: the point [0, y].
    using Point = std::pair<double, double>;
    std::optional<std::vector<Point>> points(std::string_view key, const NumberRange& x,
                                             const NumberRange& y);
    std::optional<TableReader> table(std::string_view key);
    // Of [[key]] entries.
    std::vector<TableReader> tables(std::string_view key);

    // Hands over a text, or every text of an array, or every field of a table and its scalar. What the
    // taker throws is reported with the line of what it was given.
    using Taker = std::function<void(const std::string&)>;
    void takeText(std::string_view key, const Taker& taker);
    void takeTexts(std::string_view key, const Taker& taker);
    void takeScalars(std::string_view key,
                     const std::function<void(const std::string&, const std::string&)>& taker);

    // Into a field of a record; left alone when the key is not there.
    template <std::integral Value>
    void read(std::string_view key, Value& value, int64_t low = std::numeric_limits<Value>::min(),
              int64_t high = std::numeric_limits<Value>::max()) {
        if (const auto found = integer(key, low, high)) value = static_cast<Value>(*found);
    }
    template <std::floating_point Value>
    void read(std::string_view key, Value& value, const NumberRange& range = {}) {
        if (const auto found = number(key, range)) value = static_cast<Value>(*found);
    }
    void read(std::string_view key, bool& value) {
        if (const auto found = boolean(key)) value = *found;
    }
    void read(std::string_view key, std::string& value, size_t maxLength) {
        if (auto found = text(key, maxLength)) value = std::move(*found);
    }
    template <std::integral Value>
    void read(std::string_view key, std::optional<Value>& value) {
        if (has(key)) read(key, value.emplace());
    }

    // Throws when the field is not there; `meaning` says what it is good for.
    void require(std::string_view key, std::string_view meaning);
    // Throws about a field: "FILE:LINE: PATH.KEY reason".
    [[noreturn]] void fail(std::string_view key, const std::string& reason) const;
    // Throws about the table as a whole.
    [[noreturn]] void fail(const std::string& reason) const;
    // Throws when the table has a field that nobody asked for.
    void finish() const;

  private:
    [[noreturn]] void failAt(const toml::node& node, std::string_view key, const std::string& reason) const;
    const toml::node* find(std::string_view key);
    const toml::array* findArray(std::string_view key, size_t minCount, size_t maxCount,
                                 const std::string& of);
    // What `convert` makes of the field; `allowed` says what it takes.
    template <typename Convert>
    auto value(std::string_view key, const std::string& allowed, const Convert& convert);
    template <typename Convert>
    auto elements(std::string_view key, size_t minCount, size_t maxCount, const std::string& of,
                  const Convert& convert);
    void handOver(const toml::node& node, std::string_view key, const std::function<void()>& take) const;
    std::string nameOf(std::string_view key) const;

    const toml::table* mTable;
    std::string mPath;
    std::string mSource;
    std::vector<std::string> mAsked;
};

}  // namespace phone

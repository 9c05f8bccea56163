#pragma once
// Reads tables of a TOML file strictly: what is there must be known, of the right type, and in range.
//
// Everything throws std::runtime_error "FILE:LINE: reason", naming the field, what it holds and what it may
// hold.

#include <toml++/toml.h>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

// The text's root table; `source` is its name in messages.
toml::table parseToml(std::string_view text, const std::string& source);
// The same from a file.
toml::table parseTomlFile(const std::string& file);

// One table. Ask for every field it may have, then call finish(). Fields that are not there read as nothing.
// The table must outlive the reader.
class TableReader {
  public:
    // `path` is the table's name in messages; empty for the root.
    TableReader(const toml::table& table, std::string path, std::string source);

    bool has(std::string_view key) const { return mTable.contains(key); }

    std::optional<int64_t> integer(std::string_view key, int64_t low, int64_t high);
    // Takes integers as well.
    std::optional<double> number(std::string_view key, double low, double high);
    std::optional<bool> boolean(std::string_view key);
    std::optional<std::string> text(std::string_view key, size_t maxLength);
    std::optional<std::vector<std::string>> texts(std::string_view key);
    std::optional<std::vector<int64_t>> integers(std::string_view key, int64_t low, int64_t high,
                                                 size_t minCount, size_t maxCount);
    std::optional<std::vector<double>> numbers(std::string_view key, double low, double high, size_t minCount,
                                               size_t maxCount);
    std::optional<TableReader> table(std::string_view key);

    // Into a field of a record; left alone when the key is not there.
    template <std::integral Value>
    void read(std::string_view key, Value& value, int64_t low = std::numeric_limits<Value>::min(),
              int64_t high = std::numeric_limits<Value>::max()) {
        if (const auto found = integer(key, low, high)) value = static_cast<Value>(*found);
    }
    template <std::floating_point Value>
    void read(std::string_view key, Value& value, double low = -std::numeric_limits<Value>::max(),
              double high = std::numeric_limits<Value>::max()) {
        if (const auto found = number(key, low, high)) value = static_cast<Value>(*found);
    }
    void read(std::string_view key, bool& value) {
        if (const auto found = boolean(key)) value = *found;
    }
    void read(std::string_view key, std::string& value, size_t maxLength) {
        if (auto found = text(key, maxLength)) value = std::move(*found);
    }

    // Throws when the field is not there; `meaning` says what it is good for.
    void require(std::string_view key, std::string_view meaning);
    // Throws about a field: "FILE:LINE: PATH.KEY reason".
    [[noreturn]] void fail(std::string_view key, const std::string& reason) const;
    // Throws when the table has a field that nobody asked for.
    void finish() const;

  private:
    const toml::node* find(std::string_view key);
    const toml::array* findArray(std::string_view key, size_t minCount, size_t maxCount,
                                 const std::string& of);
    std::string nameOf(std::string_view key) const;

    const toml::table& mTable;
    std::string mPath;
    std::string mSource;
    std::vector<std::string> mAsked;
};

}  // namespace phone

#pragma once
// A column of numbers as a report's page reads it: whole numbers, a few bytes each.

#include <cmath>
#include <concepts>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace oisctl {

// Each number is its difference to the one before, in groups of seven bits, the low ones first.
class PackedColumn {
  public:
    void add(std::integral auto value) { addNumber(static_cast<int64_t>(value)); }
    // `steps` of them are one; what is no number stays none.
    void addScaled(double value, double steps) {
        if (std::isfinite(value)) {
            addNumber(std::llround(value * steps));
        } else {
            addNone();
        }
    }
    void addNone();
    void add(std::optional<int64_t> value) { value ? addNumber(*value) : addNone(); }
    // {"count", "bytes"}, the bytes in base64.
    nlohmann::ordered_json json() const;

  private:
    void addNumber(int64_t value);
    void append(uint64_t code);

    std::string mBytes;
    uint64_t mCount = 0;
    int64_t mLast = 0;
};

}  // namespace oisctl

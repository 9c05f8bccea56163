#pragma once
// In which order the rows of a recording belong, by their timestamps.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace oisctl {

enum class RowFate : uint8_t {
    kKept,
    kBegins,      // kept; time runs back here and goes on from there, or a header stands before it
    kRepeated,    // the same time as a row before
    kOutOfOrder,  // a row or a few whose time runs ahead of, or behind, the rows around them
};

// The fate of each row, by its time. The kept ones increase strictly from one kBegins to the next. `headers`:
// rows in front of which a header stands, in order.
std::vector<RowFate> rowFates(const std::vector<int64_t>& timesUs, const std::vector<size_t>& headers);

}  // namespace oisctl

#pragma once
// Numbers as people write them.

#include <charconv>
#include <concepts>
#include <optional>
#include <string_view>
#include <system_error>

namespace oisctl {

// Decimal or, of whole numbers, hex behind 0x; empty for anything else, and for what the type cannot hold.
template <typename Number>
std::optional<Number> numberOf(std::string_view text) {
    Number number{};
    const char* const end = text.data() + text.size();
    std::from_chars_result result{};
    if constexpr (std::integral<Number>) {
        const bool isHex = text.starts_with("0x") || text.starts_with("0X");
        result = std::from_chars(text.data() + (isHex ? 2 : 0), end, number, isHex ? 16 : 10);
    } else {
        result = std::from_chars(text.data(), end, number);
    }
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

}  // namespace oisctl

#pragma once
// What the records of this folder share: a check of where their fields stand, and the reading of their text.

#include <array>
#include <cstddef>
#include <string_view>

// The field stands at that byte, in this record and in the kernel's.
#define OIS_FIELD_AT(OFFSET, RECORD, FIELD, KERNEL_RECORD, KERNEL_FIELD) \
    static_assert(offsetof(RECORD, FIELD) == (OFFSET) &&                 \
                  offsetof(KERNEL_RECORD, KERNEL_FIELD) == (OFFSET) &&   \
                  sizeof(RECORD::FIELD) == sizeof(KERNEL_RECORD::KERNEL_FIELD))

namespace ois {

// The text in a fixed field: up to its NUL, or all of it when it has none.
template <size_t kSize>
std::string_view textOf(const char (&field)[kSize]) {
    const std::string_view whole(field, kSize);
    return whole.substr(0, whole.find('\0'));
}
template <size_t kSize>
std::string_view textOf(const std::array<char, kSize>& field) {
    const std::string_view whole(field.data(), kSize);
    return whole.substr(0, whole.find('\0'));
}

}  // namespace ois

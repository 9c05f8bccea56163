#pragma once
// What the records of this folder share: a check of where their fields stand, and how text is read from a
// field of fixed size.

#include <cstddef>
#include <iterator>
#include <string_view>

// The field stands at that byte, in this record and in the kernel's.
#define OIS_FIELD_AT(OFFSET, RECORD, FIELD, KERNEL_RECORD, KERNEL_FIELD) \
    static_assert(offsetof(RECORD, FIELD) == (OFFSET) &&                 \
                  offsetof(KERNEL_RECORD, KERNEL_FIELD) == (OFFSET) &&   \
                  sizeof(RECORD::FIELD) == sizeof(KERNEL_RECORD::KERNEL_FIELD))

namespace ois {

// The text in an array of characters: up to its NUL, or all of it when it has none.
template <typename Characters>
std::string_view textOf(const Characters& field) {
    const std::string_view whole(std::data(field), std::size(field));
    return whole.substr(0, whole.find('\0'));
}

}  // namespace ois

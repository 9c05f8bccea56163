#pragma once
// The kernel's copies from and to the driver's memory. As on a phone, a thread sanitizer does not see them;
// an address sanitizer does, and finds a record that is shorter than its request says.

#include <cstddef>
#include <span>

namespace phone {

void copyFromUser(std::span<std::byte> to, const void* user);
void copyToUser(void* user, std::span<const std::byte> from);

}  // namespace phone

#include "kernel/user_memory.h"

#include <cstring>

namespace phone {

namespace {

#ifdef __SANITIZE_THREAD__
// Byte by byte: memcpy itself is watched.
__attribute__((no_sanitize("thread"), noinline, optimize("no-tree-loop-distribute-patterns"))) void copyBytes(
    std::byte* to, const std::byte* from, size_t size) {
    for (size_t i = 0; i < size; ++i) to[i] = from[i];
}
#else
inline void copyBytes(std::byte* to, const std::byte* from, size_t size) {
    std::memcpy(to, from, size);
}
#endif

}  // namespace

void copyFromUser(std::span<std::byte> to, const void* user) {
    copyBytes(to.data(), static_cast<const std::byte*>(user), to.size());
}

void copyToUser(void* user, std::span<const std::byte> from) {
    copyBytes(static_cast<std::byte*>(user), from.data(), from.size());
}

}  // namespace phone

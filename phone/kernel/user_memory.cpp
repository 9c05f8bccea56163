#include "kernel/user_memory.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
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
    if (size != 0) std::memcpy(to, from, size);  // an empty record may stand nowhere
}
#endif

constexpr uintptr_t kSmallestPage = 4096;  // no machine has a smaller one; at address 0 there is never any
constexpr uintptr_t kSignalSet = 8;        // bytes of the kernel's own set of signals
constexpr int kNoSuchWay = ~0;
constexpr unsigned kInsecure = 4;  // GRND_INSECURE: also before a machine that just started has entropy

// The machine's kernel reads the set before it looks at what to do with it, and then does nothing.
bool canRead(uintptr_t address) {
    if (address < kSmallestPage) return false;
    const uintptr_t set = address & ~(kSignalSet - 1);
    syscall(SYS_rt_sigprocmask, kNoSuchWay, set, nullptr, kSignalSet);
    return errno != EFAULT;
}

// Leaves any value there.
bool canWrite(uintptr_t address) {
    return syscall(SYS_getrandom, address, 1UL, kInsecure) >= 0 || errno != EFAULT;
}

// Whether all of the bytes may be touched, of which one a page tells.
bool reaches(bool (*can)(uintptr_t), const void* user, size_t size) {
    const int kept = errno;
    const auto begin = reinterpret_cast<uintptr_t>(user);
    bool all = size == 0 || can(begin + size - 1);
    for (size_t at = 0; all && at < size; at += kSmallestPage) all = can(begin + at);
    errno = kept;
    return all;
}

}  // namespace

bool copyFromUser(std::span<std::byte> to, const void* user) {
    if (!reaches(canRead, user, to.size())) return false;
    copyBytes(to.data(), static_cast<const std::byte*>(user), to.size());
    return true;
}

bool copyToUser(void* user, std::span<const std::byte> from) {
    if (!reaches(canWrite, user, from.size())) return false;
    copyBytes(static_cast<std::byte*>(user), from.data(), from.size());
    return true;
}

}  // namespace phone

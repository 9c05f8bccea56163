#include "user_memory.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace spy {

namespace {

constexpr uintptr_t kSmallestPage = 4096;  // no machine has a smaller one; at address 0 there is never any
constexpr uintptr_t kSignalSet = 8;        // bytes of the kernel's own set of signals

// The kernel reads the set before it looks at what to do with it, and then does nothing.
bool canRead(uintptr_t address) {
    constexpr int kNoSuchWay = ~0;
    if (address < kSmallestPage) return false;
    errno = 0;
    syscall(SYS_rt_sigprocmask, kNoSuchWay, address & ~(kSignalSet - 1), nullptr, kSignalSet);
    return errno != EFAULT;
}

}  // namespace

bool readable(const void* address, size_t size, const void* stack) {
    const auto begin = reinterpret_cast<uintptr_t>(address);
    const uintptr_t last = begin + size - 1;
    if (size == 0 || last < begin) return false;
    // Most records lie on the caller's stack, mostly in the very page that is in use: no need to ask.
    const auto here = reinterpret_cast<uintptr_t>(stack) / kSmallestPage;
    const int kept = errno;
    bool all = true;
    for (uintptr_t page = begin / kSmallestPage; all && page <= last / kSmallestPage; ++page)
        all = page == here || canRead(page * kSmallestPage);
    errno = kept;
    return all;
}

std::string_view readableText(const char* address) {
    size_t length = 0;
    while (readable(address + length, 1, nullptr)) {
        const size_t rest = kSmallestPage - reinterpret_cast<uintptr_t>(address + length) % kSmallestPage;
        const size_t more = strnlen(address + length, rest);
        length += more;
        if (more < rest) break;
    }
    return {length > 0 ? address : "", length};
}

UserCopy::UserCopy(const void* address, size_t size, const void* stack) {
    if (!readable(address, size, stack)) return;
    if (size > kUsual) mLarge.reset(new (std::nothrow) uint8_t[size]);
    if (size > kUsual && !mLarge) return;
    mSize = size;
    std::memcpy(mLarge ? mLarge.get() : mSpace.data(), address, size);
}

}  // namespace spy

// Requests, and what leads to the descriptor that they are made on. What is of no interest goes on untouched.

#include <fcntl.h>
#include <linux/ioctl.h>
#include <sys/types.h>

#include <array>
#include <cstdarg>
#include <cstring>

#include "descriptors.h"
#include "next.h"
#include "trace.h"
#include "user_memory.h"
#include "wire/requests.h"

namespace spy {

namespace {

static_assert(sizeof(off_t) == 8, "the names with 64 in them are the same functions");

constexpr unsigned kMediaType = '|';
constexpr size_t kFileLine = 4096;  // room for a path and for where it leads

using Open = int(const char*, int, ...);
using OpenChecked = int(const char*, int);
using OpenAt = int(int, const char*, int, ...);
using OpenAtChecked = int(int, const char*, int);
constinit Next<Open> gOpen("open");
constinit Next<OpenChecked> gOpenChecked("__open_2");
constinit Next<OpenAt> gOpenAt("openat");
constinit Next<OpenAtChecked> gOpenAtChecked("__openat_2");
constinit Next<int(int)> gClose("close");
constinit Next<int(int, unsigned long, ...)> gIoctl("ioctl");
constinit Next<ssize_t(const char*, char*, size_t)> gReadlink("readlink");
constinit Next<ssize_t(const char*, char*, size_t, size_t)> gReadlinkChecked("__readlink_chk");
constinit Next<ssize_t(int, const char*, char*, size_t)> gReadlinkAt("readlinkat");
constinit Next<ssize_t(int, const char*, char*, size_t, size_t)> gReadlinkAtChecked("__readlinkat_chk");

// A signal handler, or a child of fork, may call these, but not search for them.
[[gnu::constructor]] void findAll() {
    gOpen.get();
    gOpenChecked.get();
    gOpenAt.get();
    gOpenAtChecked.get();
    gClose.get();
    gIoctl.get();
    gReadlink.get();
    gReadlinkChecked.get();
    gReadlinkAt.get();
    gReadlinkAtChecked.get();
}

// --- Requests.

// What kind of event a request is; null for those of no interest.
const char* kindOfRequest(int fd, uint32_t code) {
    if (_IOC_TYPE(code) == ois::kRequestType && _IOC_NR(code) >= BASE_VIDIOC_PRIVATE) return "sub-device";
    if (_IOC_TYPE(code) == kMediaType && isMediaDevice(devicePath(fd))) return "media";
    return nullptr;
}

[[gnu::noinline]] int recordRequest(const char* kind, int fd, unsigned long request, void* argument,
                                    const void* stack) {
    const auto code = static_cast<uint32_t>(request);
    const UserCopy sent(argument, _IOC_SIZE(code), stack);
    const int64_t beganNs = nowNs();
    const int result = gIoctl(fd, request, argument);
    const int error = errno;
    const bool answered = result >= 0 && (_IOC_DIR(code) & _IOC_READ) != 0;
    Line<128> line(kind);
    line.number("code", code);
    line.took(beganNs)
        .result(result, error)
        .record(sent.bytes(),
                std::span(static_cast<const uint8_t*>(argument), answered ? sent.bytes().size() : 0));
    return result;
}

// --- Files.

mode_t modeOf(int flags, va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? va_arg(arguments, mode_t) : 0;
}

// "O_RDWR|O_NONBLOCK", and what else there is in hexadecimal.
template <size_t Size>
void openFlags(Text<Size>& text, int flags) {
    const int mode = flags & O_ACCMODE;
    text.raw(mode == O_RDONLY ? "O_RDONLY" : mode == O_WRONLY ? "O_WRONLY" : "O_RDWR");
    if ((flags & O_NONBLOCK) != 0) text.raw("|O_NONBLOCK");
    if ((flags & O_CLOEXEC) != 0) text.raw("|O_CLOEXEC");
    const auto rest = static_cast<unsigned>(flags & ~(O_ACCMODE | O_NONBLOCK | O_CLOEXEC));
    std::array<char, 8> digits;
    const auto [digitsEnd, ignored] = std::to_chars(digits.begin(), digits.end(), rest, 16);
    if (rest != 0) text.raw("|0x").raw({digits.begin(), digitsEnd});
}

// What was opened, or could not be. A path that the kernel did not look at may be none.
int noteOpen(const char* pathOrNull, int flags, int fd) {
    const int error = errno;
    const std::string_view path = fd >= 0 ? pathOrNull : readableText(pathOrNull);
    if (fd >= 0) noteOpened(fd, path);
    if (isDevice(path) && wanted()) {
        Text<64> shown;
        openFlags(shown, flags);
        Line<kFileLine> line("file", "open");
        line.open("fields").text("path", path).text("flags", shown.view()).close();
        line.result(fd, error).record();
    }
    errno = error;
    return fd;
}

ssize_t noteReadlink(const char* pathOrNull, const char* buffer, ssize_t length) {
    constexpr std::string_view kDevicesByNumber = "/sys/dev/char/";
    const std::string_view path = length >= 0 ? pathOrNull : readableText(pathOrNull);
    const int error = errno;
    if (!path.starts_with(kDevicesByNumber)) return length;
    if (wanted()) {
        Line<kFileLine> line("file", "readlink");
        line.open("fields").text("path", path).close();
        if (length >= 0) line.open("answer").text("target", {buffer, static_cast<size_t>(length)}).close();
        line.result(length, error).record();
    }
    errno = error;
    return length;
}

}  // namespace

}  // namespace spy

using namespace spy;

// The names that the process knows these by are in front of its own libraries'; here they are others, so that
// libc's headers, which differ from platform to platform, have no say.
extern "C" {

SPY_EXPORT int spyIoctl(int fd, unsigned long request, ...) __asm__("ioctl");
int spyIoctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    // The kernel, too, looks at the lower 32 bits alone.
    const char* const kind = kindOfRequest(fd, static_cast<uint32_t>(request));
    return kind != nullptr && wanted()
               ? recordRequest(kind, fd, request, argument, __builtin_frame_address(0))
               : gIoctl(fd, request, argument);
}

SPY_EXPORT int spyOpen(const char* path, int flags, ...) __asm__("open");
int spyOpen(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return noteOpen(path, flags, gOpen(path, flags, mode));
}
SPY_EXPORT int spyOpen64(const char* path, int flags, ...) __asm__("open64") __attribute__((alias("open")));

SPY_EXPORT int spyOpenChecked(const char* path, int flags) __asm__("__open_2");
int spyOpenChecked(const char* path, int flags) {
    return noteOpen(path, flags, gOpenChecked(path, flags));
}
SPY_EXPORT int spyOpen64Checked(const char* path, int flags) __asm__("__open64_2")
    __attribute__((alias("__open_2")));

SPY_EXPORT int spyOpenAt(int folder, const char* path, int flags, ...) __asm__("openat");
int spyOpenAt(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return noteOpen(path, flags, gOpenAt(folder, path, flags, mode));
}
SPY_EXPORT int spyOpenAt64(int folder, const char* path, int flags, ...) __asm__("openat64")
    __attribute__((alias("openat")));

SPY_EXPORT int spyOpenAtChecked(int folder, const char* path, int flags) __asm__("__openat_2");
int spyOpenAtChecked(int folder, const char* path, int flags) {
    return noteOpen(path, flags, gOpenAtChecked(folder, path, flags));
}
SPY_EXPORT int spyOpenAt64Checked(int folder, const char* path, int flags) __asm__("__openat64_2")
    __attribute__((alias("__openat_2")));

SPY_EXPORT int spyClose(int fd) __asm__("close");
int spyClose(int fd) {
    const std::string_view path = devicePath(fd);
    if (!path.empty() && inVforkChild()) return gClose(fd);  // the parent's stays open
    if (path.empty() || !wanted()) {
        forget(fd);
        return gClose(fd);
    }
    Line<256> line("file", "close");
    line.open("fields").text("path", path).number("fd", fd).close();
    forget(fd);  // before another thread gets the number for a file of its own
    const int result = gClose(fd);
    line.result(result, errno).record();
    return result;
}

SPY_EXPORT ssize_t spyReadlink(const char* path, char* buffer, size_t size) __asm__("readlink");
ssize_t spyReadlink(const char* path, char* buffer, size_t size) {
    return noteReadlink(path, buffer, gReadlink(path, buffer, size));
}

SPY_EXPORT ssize_t spyReadlinkChecked(const char* path, char* buffer, size_t size,
                                      size_t space) __asm__("__readlink_chk");
ssize_t spyReadlinkChecked(const char* path, char* buffer, size_t size, size_t space) {
    return noteReadlink(path, buffer, gReadlinkChecked(path, buffer, size, space));
}

SPY_EXPORT ssize_t spyReadlinkAt(int folder, const char* path, char* buffer,
                                 size_t size) __asm__("readlinkat");
ssize_t spyReadlinkAt(int folder, const char* path, char* buffer, size_t size) {
    return noteReadlink(path, buffer, gReadlinkAt(folder, path, buffer, size));
}

SPY_EXPORT ssize_t spyReadlinkAtChecked(int folder, const char* path, char* buffer, size_t size,
                                        size_t space) __asm__("__readlinkat_chk");
ssize_t spyReadlinkAtChecked(int folder, const char* path, char* buffer, size_t size, size_t space) {
    return noteReadlink(path, buffer, gReadlinkAtChecked(folder, path, buffer, size, space));
}

}  // extern "C"

// The libc functions that the driver calls, taken over while the process has a Phone. What is not the phone's
// goes to libc untouched.

#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "entry/libc.h"
#include "entry/phone_in_use.h"
#include "kernel/kernel.h"

static_assert(sizeof(off_t) == 8, "the names with 64 in them are the same functions");

namespace {

using phone::Kernel;
using phone::libc;
using phone::PhoneInUse;

// A file that open creates takes a further argument.
mode_t modeOf(int flags, va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

// libc's headers name the parameters in their own way.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    if (const PhoneInUse phone{Kernel::isDeviceNode(path)}) return phone->kernel().open(path, flags);
    return libc().open(path, flags, mode);
}
int open64(const char* path, int flags, ...) __attribute__((alias("open")));

int __open_2(const char* path, int flags) {
    if (const PhoneInUse phone{Kernel::isDeviceNode(path)}) return phone->kernel().open(path, flags);
    return libc().openChecked(path, flags);
}
int __open64_2(const char* path, int flags) __attribute__((alias("__open_2")));

int close(int fd) {
    if (const PhoneInUse phone; phone && phone->kernel().owns(fd)) return phone->kernel().close(fd);
    return libc().close(fd);
}

int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    // The kernel, too, looks at the lower 32 bits alone.
    const auto code = static_cast<uint32_t>(request);
    if (const PhoneInUse phone; phone && phone->kernel().takes(fd, code)) {
        return phone->kernel().ioctl(fd, code, argument);
    }
    return libc().ioctl(fd, request, argument);
}

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    if (const PhoneInUse phone{Kernel::isSysfsLink(path)})
        return phone->kernel().readlink(path, buffer, size);
    return libc().readlink(path, buffer, size);
}

ssize_t __readlink_chk(const char* path, char* buffer, size_t size, size_t bufferSize) {
    // libc ends the process when the buffer is too small, as it should.
    if (const PhoneInUse phone{size <= bufferSize && Kernel::isSysfsLink(path)}) {
        return phone->kernel().readlink(path, buffer, size);
    }
    return libc().readlinkChecked(path, buffer, size, bufferSize);
}

int usleep(unsigned us) {
    if (const PhoneInUse phone{}) return phone->kernel().usleep(us);
    return libc().usleep(us);
}

FILE* fopen(const char* path, const char* mode) {
    if (const PhoneInUse phone{Kernel::isFile(path)}) return phone->kernel().fopen(path, mode);
    return libc().fopen(path, mode);
}
FILE* fopen64(const char* path, const char* mode) __attribute__((alias("fopen")));

int fclose(FILE* file) {
    if (const PhoneInUse phone; phone && phone->kernel().owns(file)) return phone->kernel().fclose(file);
    return libc().fclose(file);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
    if (const PhoneInUse phone{}) return phone->kernel().createThread(thread, attributes, start, argument);
    return libc().pthreadCreate(thread, attributes, start, argument);
}

int pthread_join(pthread_t thread, void** result) {
    if (const PhoneInUse phone{}) return phone->kernel().joinThread(thread, result);
    return libc().pthreadJoin(thread, result);
}

int pthread_setschedparam(pthread_t thread, int policy, const sched_param* param) noexcept {
    if (const PhoneInUse phone{}) return phone->kernel().setScheduling(thread, policy, param);
    return libc().pthreadSetSchedParam(thread, policy, param);
}

int pthread_getschedparam(pthread_t thread, int* policy, sched_param* param) noexcept {
    if (const PhoneInUse phone{}) return phone->kernel().getScheduling(thread, policy, param);
    return libc().pthreadGetSchedParam(thread, policy, param);
}

}  // extern "C"
#pragma GCC visibility pop
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

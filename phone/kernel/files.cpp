// Links of sysfs, and the files that the driver writes and reads.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <utility>

#include "entry/libc.h"
#include "kernel/file_tree.h"
#include "kernel/kernel_call.h"
#include "kernel/media_graph.h"
#include "kernel/user_memory.h"
#include "time/clock.h"

namespace phone {

namespace {

constexpr std::string_view kSysfsPath = "/sys/dev/char/";

// What somebody who opens the file now finds there; a little of it is enough for anything the driver reads.
std::vector<uint8_t> contentOf(const char* file) {
    constexpr size_t kMost = 4096;
    std::vector<uint8_t> content(kMost);
    const int fd = libc().open(file, O_RDONLY | O_CLOEXEC);
    const ssize_t size = fd < 0 ? 0 : read(fd, content.data(), content.size());
    if (fd >= 0) libc().close(fd);
    content.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return content;
}

}  // namespace

bool Kernel::isSysfsLink(const char* path) {
    return beginsWith(path, kSysfsPath);
}

bool Kernel::isFile(const char* path) {
    return (beginsWith(path, kDumpFolder) && path[kDumpFolder.size()] == '/') ||
           (beginsWith(path, kThermalFolder) && path[kThermalFolder.size()] == '/');
}

bool Kernel::owns(FILE* file) const {
    const std::lock_guard lock(mMutex);
    return mOpenFiles.contains(file);
}

// The target and its length, or a negative errno.
ssize_t Kernel::followLink(const char* path, std::string& target) const {
    if (mReal) {
        target.resize(PATH_MAX);
        const ssize_t length = libc().readlink(path, target.data(), target.size());
        if (length < 0) return -errno;
        target.resize(static_cast<size_t>(length));
        return length;
    }
    unsigned major = 0;
    unsigned minor = 0;
    if (std::sscanf(path + kSysfsPath.size(), "%u:%u", &major, &minor) != 2) return -ENOENT;
    auto link = mMedia.sysfsLink(major, minor);
    if (!link) return -ENOENT;
    target = std::move(*link);
    return static_cast<ssize_t>(target.size());
}

ssize_t Kernel::readlink(const char* path, char* buffer, size_t size) {
    mClock.enter();
    const Fate fate = mFaults.consult(FaultPoint::kReadlink, path);
    std::string target;
    ssize_t length = -fate.error();
    if (length == 0 && fate.answered()) {
        target.assign(fate.bytes().begin(), fate.bytes().end());
    } else if (length == 0) {
        length = followLink(path, target);
    }
    if (length >= 0) {
        fate.spoil(std::as_writable_bytes(std::span(target)));
        target.resize(std::min(target.size(), size));
        length = static_cast<ssize_t>(target.size());
        if (!copyToUser(buffer, std::as_bytes(std::span(target)))) length = -EFAULT;
    }
    if (mTrace.enabled()) {
        std::vector<Field> answer;
        if (length >= 0) answer.push_back(textField("target", target));
        traceCall(EventKind::kFile, "readlink", {textField("path", path)}, std::max<ssize_t>(length, -1),
                  static_cast<int>(std::max<ssize_t>(-length, 0)), fate, std::move(answer));
    }
    return toResult(length);
}

FILE* Kernel::fopen(const char* path, const char* mode) {
    mClock.enter();
    const Fate fate = mFaults.consult(FaultPoint::kOpen, path);
    const auto place = mFiles.place(path);
    FILE* file = nullptr;
    std::vector<uint8_t> content;
    int error = fate.error();
    if (error == 0 && place) error = place->error;
    if (error == 0) {
        const char* target = place ? place->file.c_str() : path;
        // Every write fails there, and there is nothing to read but zeros.
        if (fate.lost()) target = "/dev/full";
        file = libc().fopen(target, mode);
        if (file == nullptr) error = errno;
        if (file != nullptr && *mode == 'r' && mTrace.enabled()) content = contentOf(target);
    }
    if (file != nullptr) {
        const std::lock_guard lock(mMutex);
        mOpenFiles[file] = path;
    }
    if (mTrace.enabled()) {
        mTrace.record({.kind = EventKind::kFile,
                       .name = "fopen",
                       .received = std::move(content),
                       .fields = {textField("path", path), textField("mode", mode)},
                       .result = error == 0 ? 0 : -1,
                       .error = error,
                       .fault = fate.fault()});
    }
    if (error != 0) errno = error;
    return file;
}

int Kernel::fclose(FILE* file) {
    mClock.enter();
    std::string path;
    {
        const std::lock_guard lock(mMutex);
        path = std::move(mOpenFiles.extract(file).mapped());
    }
    const Fate fate = mFaults.consult(FaultPoint::kClose, path);
    int result = libc().fclose(file);
    int error = result != 0 ? errno : 0;
    // The file is gone even when closing it failed.
    if (fate.error() != 0) error = fate.error();
    if (error != 0) result = EOF;
    if (mTrace.enabled()) {
        traceCall(EventKind::kFile, "fclose", {textField("path", path)}, result, error, fate);
    }
    if (error != 0) errno = error;
    return result;
}

size_t Kernel::openFiles() const {
    const std::lock_guard lock(mMutex);
    return mOpenFiles.size();
}

}  // namespace phone

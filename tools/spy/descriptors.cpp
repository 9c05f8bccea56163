#include "descriptors.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>

namespace spy {

namespace {

constexpr std::string_view kMediaPath = "/dev/media";
constexpr std::string_view kSubDevicePath = "/dev/v4l-subdev";

struct Descriptor {
    std::atomic<size_t> length{0};  // of the path; 0: none of interest
    std::array<char, 56> path;
};
// By number. Higher ones are as good as unknown: what is asked of them is recorded all the same where it can
// be told by itself.
constinit std::array<Descriptor, 4096> gDescriptors{};

Descriptor* find(int fd) {
    return fd >= 0 && static_cast<size_t>(fd) < gDescriptors.size() ? &gDescriptors[static_cast<size_t>(fd)]
                                                                    : nullptr;
}

}  // namespace

bool isMediaDevice(std::string_view path) {
    return path.starts_with(kMediaPath);
}

bool isDevice(std::string_view path) {
    return isMediaDevice(path) || path.starts_with(kSubDevicePath);
}

void noteOpened(int fd, std::string_view path) {
    Descriptor* const descriptor = find(fd);
    if (descriptor == nullptr) return;
    const bool kept = isDevice(path) && path.size() <= descriptor->path.size();
    if (!kept && descriptor->length.load(std::memory_order_relaxed) == 0) return;
    if (kept) std::memcpy(descriptor->path.data(), path.data(), path.size());
    descriptor->length.store(kept ? path.size() : 0, std::memory_order_release);
}

std::string_view devicePath(int fd) {
    const Descriptor* const descriptor = find(fd);
    if (descriptor == nullptr) return {};
    return {descriptor->path.data(), descriptor->length.load(std::memory_order_acquire)};
}

void forget(int fd) {
    noteOpened(fd, {});
}

}  // namespace spy

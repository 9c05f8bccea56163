#include "kernel/kernel.h"

#include <fcntl.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <fmt/core.h>

#include "controllers/controller.h"
#include "entry/libc.h"
#include "kernel/kernel_call.h"
#include "kernel/media_graph.h"
#include "time/clock.h"

namespace phone {

namespace {

constexpr std::string_view kMediaPath = "/dev/media";
constexpr std::string_view kSubDevicePath = "/dev/v4l-subdev";
constexpr std::string_view kDevFolder = "/dev/";

// "O_RDWR|O_NONBLOCK", and what else there is in hexadecimal.
std::string openFlags(int flags) {
    const int mode = flags & O_ACCMODE;
    std::string text = mode == O_RDONLY ? "O_RDONLY" : mode == O_WRONLY ? "O_WRONLY" : "O_RDWR";
    unsigned rest = static_cast<unsigned>(flags) & ~static_cast<unsigned>(O_ACCMODE);
    for (const auto& [flag, name] :
         {std::pair(O_NONBLOCK, "|O_NONBLOCK"), std::pair(O_CLOEXEC, "|O_CLOEXEC")}) {
        if ((flags & flag) == 0) continue;
        text += name;
        rest &= ~static_cast<unsigned>(flag);
    }
    if (rest != 0) text += fmt::format("|0x{:x}", rest);
    return text;
}

}  // namespace

Kernel::Kernel(const KernelParts& parts) : KernelParts(parts) {}

Kernel::~Kernel() = default;

bool Kernel::isDeviceNode(const char* path) {
    return beginsWith(path, kMediaPath) || beginsWith(path, kSubDevicePath);
}

Kernel::Node* Kernel::nodeOf(int fd) const {
    if (fd < 0 || fd >= kDescriptors) return nullptr;
    return mDescriptors[static_cast<size_t>(fd)].load(std::memory_order_acquire);
}

void Kernel::traceCall(EventKind kind, const char* name, std::vector<Field> fields, int64_t result, int error,
                       const Fate& fate, std::vector<Field> answer) {
    mTrace.record({.kind = kind,
                   .name = name,
                   .fields = std::move(fields),
                   .answer = std::move(answer),
                   .result = result,
                   .error = error,
                   .fault = fate.fault()});
}

// What a path leads to at this moment; null when there is no such device.
Kernel::Node* Kernel::findNode(const std::string& path) {
    if (mReal) return keepNode({path, Node::Kind::kMachine, 0, nullptr});
    if (path.starts_with(kMediaPath)) {
        const std::string number = path.substr(kMediaPath.size());
        for (const MediaDevice& device : mMedia.devices()) {
            if (std::to_string(device.number) != number) continue;
            return keepNode({path, Node::Kind::kMedia, device.number, nullptr});
        }
        return nullptr;
    }
    auto entity = mMedia.entityByNode(std::string_view(path).substr(kDevFolder.size()));
    if (!entity) return nullptr;
    return keepNode({path, Node::Kind::kSubDevice, 0, std::move(entity->controller)});
}

// The same node as ever for the same device behind the same path.
Kernel::Node* Kernel::keepNode(Node node) {
    const std::lock_guard lock(mMutex);
    const auto known = std::ranges::find_if(mNodes, [&](const std::unique_ptr<Node>& other) {
        return other->path == node.path && other->kind == node.kind && other->controller == node.controller;
    });
    if (known != mNodes.end()) return known->get();
    return mNodes.emplace_back(std::make_unique<Node>(std::move(node))).get();
}

// A descriptor, or a negative errno.
int Kernel::openNode(const char* path, int flags, bool answered, Node*& node) {
    node = answered ? keepNode({path, Node::Kind::kAnswers, 0, nullptr}) : findNode(path);
    if (node == nullptr) return -ENOENT;
    // A simulated node is a descriptor of its own, so that numbers are the machine's and no other file has
    // them.
    const int fd = node->kind == Node::Kind::kMachine
                       ? libc().open(path, flags)
                       : eventfd(0, (flags & O_CLOEXEC) != 0 ? EFD_CLOEXEC : 0);
    if (fd < 0) return -errno;
    if (fd < kDescriptors) return fd;
    libc().close(fd);
    return -EMFILE;
}

int Kernel::open(const char* path, int flags) {
    mClock.enter();
    const Fate fate = mFaults.consult(FaultPoint::kOpen, path);
    Node* node = nullptr;
    int fd = 0;
    if (fate.error() != 0) {
        fd = -fate.error();
    } else {
        fd = openNode(path, flags, fate.answered(), node);
        if (fd >= 0) mDescriptors[static_cast<size_t>(fd)].store(node, std::memory_order_release);
    }
    if (mTrace.enabled()) {
        traceCall(EventKind::kFile, "open", {textField("path", path), textField("flags", openFlags(flags))},
                  std::max(fd, -1), std::max(-fd, 0), fate);
    }
    return toResult(fd);
}

int Kernel::close(int fd) {
    mClock.enter();
    const Node* node = mDescriptors[static_cast<size_t>(fd)].exchange(nullptr);
    if (node == nullptr) return libc().close(fd);
    const Fate fate = mFaults.consult(FaultPoint::kClose, node->path);
    int result = libc().close(fd) == 0 ? 0 : -errno;
    // The descriptor is gone even when closing it failed.
    if (fate.error() != 0) result = -fate.error();
    if (mTrace.enabled()) {
        traceCall(EventKind::kFile, "close", {textField("path", node->path), {"fd", int64_t{fd}}},
                  std::max(result, -1), std::max(-result, 0), fate);
    }
    return toResult(result);
}

size_t Kernel::openNodes() const {
    return static_cast<size_t>(
        std::ranges::count_if(mDescriptors, [](const auto& node) { return node != nullptr; }));
}

}  // namespace phone

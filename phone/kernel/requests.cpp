// Requests to device nodes: what moves, who answers, and what of it goes into the trace.

#include <fcntl.h>
#include <linux/media.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "controllers/controller.h"
#include "entry/libc.h"
#include "kernel/kernel_call.h"
#include "kernel/media_graph.h"
#include "kernel/user_memory.h"
#include "time/clock.h"
#include "trace/decode.h"

namespace phone {

namespace {

constexpr size_t kLargestRecord = sizeof(ois::OisCustInfo);  // of the requests that the phone answers
constexpr size_t kLargestMoved = kLargestRecord + static_cast<size_t>(kMostMoved);
static_assert(kLargestRecord >= sizeof(media_device_info) && kLargestRecord >= sizeof(media_entity_desc));
static_assert(kLargestRecord >= sizeof(media_links_enum));
static_assert(kLargestRecord >= sizeof(ois::OisFlashRecord));

bool isPrivateRequest(uint32_t request) {
    return _IOC_TYPE(request) == ois::kRequestType && _IOC_NR(request) >= BASE_VIDIOC_PRIVATE;
}

bool goesIn(uint32_t request) {
    return (_IOC_DIR(request) & _IOC_WRITE) != 0;
}

bool comesBack(uint32_t request) {
    return (_IOC_DIR(request) & _IOC_READ) != 0;
}

// As many as the fault says instead of `size`.
size_t movedBytes(size_t size, const Fate& fate) {
    return static_cast<size_t>(std::max<int64_t>(0, static_cast<int64_t>(size) + fate.moves()));
}

std::span<const uint8_t> asUint8(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

}  // namespace

bool Kernel::takes(int fd, uint32_t request) const {
    return owns(fd) || isPrivateRequest(request);
}

Fate Kernel::consultRequest(uint32_t request, std::span<const std::byte> record) {
    const RequestInfo* info = findRequest(request);
    const auto point = isPrivateRequest(request) ? FaultPoint::kRequest : FaultPoint::kMediaRequest;
    return mFaults.consult(point, info != nullptr ? info->name : kUnknownRequest, record);
}

void Kernel::traceRequest(uint32_t request, std::span<const std::byte> in, std::span<const std::byte> out,
                          int32_t result, const Fate& fate, int64_t beganUs) {
    Event event = requestEvent(request, asUint8(in), asUint8(out));
    event.tookUs = mClock.nowUs() - beganUs;
    event.result = std::max(result, -1);
    event.error = std::max(-result, 0);
    event.fault = fate.fault();
    mTrace.record(std::move(event));
}

int Kernel::ioctl(int fd, uint32_t request, void* argument) {
    mClock.enter();
    const Node* node = nodeOf(fd);
    const bool simulated = node != nullptr && node->kind != Node::Kind::kMachine;
    return toResult(simulated ? this->request(*node, request, argument)
                              : passRequest(fd, request, argument, node));
}

int32_t Kernel::carryOut(const Node& node, uint32_t request, std::span<std::byte> record) {
    [[maybe_unused]] const InsideKernel inside;
    if (node.kind == Node::Kind::kSubDevice) return node.controller->handle(request, record);
    if (node.kind == Node::Kind::kAnswers) return 0;
    if (request == MEDIA_IOC_DEVICE_INFO) {
        return mMedia.deviceInfo(node.number, *reinterpret_cast<media_device_info*>(record.data()));
    }
    if (request == MEDIA_IOC_ENUM_LINKS) {
        return mMedia.enumerateLinks(node.number, *reinterpret_cast<media_links_enum*>(record.data()));
    }
    return mMedia.enumerateEntity(node.number, *reinterpret_cast<media_entity_desc*>(record.data()));
}

bool Kernel::knows(const Node& node, uint32_t request) {
    if (node.kind == Node::Kind::kAnswers) return _IOC_SIZE(request) <= kLargestRecord;
    const RequestInfo* info = findRequest(request);
    if (info == nullptr) return false;
    if (node.kind == Node::Kind::kMedia) return info->kind == EventKind::kMedia;
    return info->kind == EventKind::kSubDevice && node.controller != nullptr;
}

// A sub-device copies the record of any request in before it finds that it does not know it; a media device
// looks at the code first.
int32_t Kernel::refuse(const Node& node, uint32_t request, const void* argument) {
    const int64_t beganUs = mClock.nowUs();
    std::vector<std::byte> record(goesIn(request) ? _IOC_SIZE(request) : 0);
    const bool reached = copyFromUser(record, argument);
    int32_t result = !reached && node.kind == Node::Kind::kSubDevice ? -EFAULT : -ENOTTY;
    if (!reached) record.clear();
    const bool asked = reached && isPrivateRequest(request);
    const Fate fate = asked ? consultRequest(request, record) : Fate{};
    if (fate.error() != 0) result = -fate.error();
    if (fate.lost()) result = 0;
    result = static_cast<int32_t>(fate.result().value_or(result));
    if (mTrace.enabled()) traceRequest(request, record, {}, result, fate, beganUs);
    return result;
}

// Carries a request out that has come in whole, and gives its result.
int32_t Kernel::serve(const Node& node, uint32_t request, std::span<std::byte> record, const Fate& fate) {
    if (fate.error() != 0) return -fate.error();
    if (fate.lost()) return 0;
    const int32_t result = carryOut(node, request, record);
    fate.spoil(record);
    return result;
}

// The simulated kernel: the request's code alone says how much moves; the record is copied at entry, and back
// as a whole unless the request failed.
int32_t Kernel::request(const Node& node, uint32_t request, void* argument) {
    if (!knows(node, request)) return refuse(node, request, argument);
    const int64_t beganUs = mClock.nowUs();
    alignas(std::max_align_t) std::array<std::byte, kLargestMoved> space;
    const std::span record(space.data(), _IOC_SIZE(request));
    bool reached = copyFromUser(record, argument);
    const Fate fate = consultRequest(request, record.first(reached ? record.size() : 0));
    if (fate.moves() != 0) {
        reached = copyFromUser(std::span(space).first(movedBytes(record.size(), fate)), argument);
        std::ranges::fill(std::span(space).subspan(record.size()), std::byte{});
    }
    std::vector<std::byte> sent;
    if (reached && mTrace.enabled()) sent.assign(record.begin(), record.end());

    int32_t result = reached ? serve(node, request, record, fate) : -EFAULT;
    result = static_cast<int32_t>(fate.result().value_or(result));
    const bool succeeded = reached && result >= 0 && !fate.lost();
    bool answered = succeeded && comesBack(request);
    const size_t back = movedBytes(comesBack(request) ? record.size() : 0, fate);
    if (succeeded && back != 0 && !copyToUser(argument, std::span(space).first(back))) {
        answered = false;
        result = static_cast<int32_t>(fate.result().value_or(-EFAULT));
    }
    if (mTrace.enabled()) {
        traceRequest(request, sent,
                     answered ? std::span<const std::byte>(record) : std::span<const std::byte>{}, result,
                     fate, beganUs);
    }
    return result;
}

// A request to a device of the machine's kernel, or to a descriptor that is none of the phone's.
int32_t Kernel::passRequest(int fd, uint32_t request, void* argument, const Node* node) {
    const bool traced = mTrace.enabled();
    const int64_t beganUs = mClock.nowUs();
    std::vector<std::byte> record(node != nullptr || traced ? _IOC_SIZE(request) : 0);
    // Of a bad pointer the kernel itself shall speak.
    if (!goesIn(request) || !copyFromUser(record, argument)) record.clear();
    const std::vector<std::byte> sent = traced ? record : std::vector<std::byte>{};

    const Fate fate = node != nullptr ? consultRequest(request, record) : Fate{};
    int32_t result = -fate.error();
    bool answered = false;
    if (result == 0 && !fate.lost()) {
        // A machine that emulates another looks at the request before it looks at the descriptor.
        const bool open = node != nullptr || fcntl(fd, F_GETFD) >= 0;
        result = open ? libc().ioctl(fd, request, argument) : -EBADF;
        // An emulating machine says ENOSYS of a request that it does not know.
        if (open && result < 0) result = errno == ENOSYS ? -ENOTTY : -errno;
        record.resize(_IOC_SIZE(request));
        answered = result >= 0 && comesBack(request) && copyFromUser(record, argument);
        if (answered && fate.spoils()) {
            fate.spoil(record);
            answered = copyToUser(argument, record);
        }
        result = static_cast<int32_t>(fate.result().value_or(result));
        answered = answered && result >= 0;
    }
    if (traced) {
        traceRequest(request, sent,
                     answered ? std::span<const std::byte>(record) : std::span<const std::byte>{}, result,
                     fate, beganUs);
    }
    return result;
}

}  // namespace phone

#include "kernel.h"

#include <fcntl.h>
#include <linux/media.h>
#include <sched.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "clock.h"
#include "controller.h"
#include "decode.h"
#include "file_tree.h"
#include "libc.h"
#include "media_graph.h"
#include "phone.h"
#include "user_memory.h"

namespace phone {

namespace {

constexpr std::string_view kMediaPath = "/dev/media";
constexpr std::string_view kSubDevicePath = "/dev/v4l-subdev";
constexpr std::string_view kDevFolder = "/dev/";
constexpr std::string_view kSysfsPath = "/sys/dev/char/";
constexpr size_t kLargestRecord = 1704;  // of the requests that the phone answers
constexpr int kMaxErrno = 4095;          // results from -1 down to here are error numbers
static_assert(kLargestRecord >= sizeof(ois::OisCustInfo) && kLargestRecord >= sizeof(media_entity_desc));

bool beginsWith(const char* path, std::string_view beginning) {
    return path != nullptr && std::strncmp(path, beginning.data(), beginning.size()) == 0;
}

bool isPrivateRequest(uint32_t request) {
    return _IOC_TYPE(request) == ois::kRequestType && _IOC_NR(request) >= BASE_VIDIOC_PRIVATE;
}

std::span<const uint8_t> asUint8(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

// The names under which faults know requests, by number; found once, since every request asks.
std::string_view privateRequestName(uint32_t request) {
    static const auto names = [] {
        std::array<std::string_view, 256> found{};
        for (const RequestInfo& info : privateRequests()) found[_IOC_NR(info.code)] = info.name;
        return found;
    }();
    return names[_IOC_NR(request)];
}

void fill(std::span<std::byte> record, const std::vector<uint8_t>& pattern) {
    if (pattern.empty()) return;
    for (size_t i = 0; i < record.size(); ++i) record[i] = std::byte{pattern[i % pattern.size()]};
}

// A system call's result from the kernel's: negative numbers are errors.
template <typename Result>
Result toResult(Result kernelResult) {
    if (kernelResult >= 0 || kernelResult < -kMaxErrno) return kernelResult;
    errno = static_cast<int>(-kernelResult);
    return -1;
}

Field textField(const char* name, std::string_view text) {
    return {name, std::string(text)};
}

std::vector<Field> threadFields(std::optional<uint32_t> thread) {
    if (!thread) return {textField("thread", "unknown")};
    return {{"thread", uint64_t{*thread}}};
}

void addScheduling(std::vector<Field>& fields, int policy, int priority) {
    switch (policy) {
        case SCHED_OTHER:
            fields.push_back(textField("policy", "SCHED_OTHER"));
            break;
        case SCHED_FIFO:
            fields.push_back(textField("policy", "SCHED_FIFO"));
            break;
        case SCHED_RR:
            fields.push_back(textField("policy", "SCHED_RR"));
            break;
        default:
            fields.push_back({"policy", int64_t{policy}});
    }
    fields.push_back({"priority", int64_t{priority}});
}

}  // namespace

// What is behind a descriptor.
struct Kernel::Node {
    enum class Kind { kMedia, kSubDevice, kMachine };  // kMachine: a device of the machine's own kernel

    std::string path;
    Kind kind = Kind::kMachine;
    int number = 0;                          // of a media device
    std::shared_ptr<Controller> controller;  // of a sub-device; null: it knows no private request
};

// What a fault, if any, makes of a call.
struct Kernel::Fate {
    std::optional<Faults::Strike> strike;

    const FaultEffect* effect() const { return strike ? &strike->effect : nullptr; }
    bool is(FaultEffect::Kind kind) const { return strike && strike->effect.kind == kind; }
    // The error of a call that fails, or 0.
    int error() const { return is(FaultEffect::Kind::kFail) ? strike->effect.error : 0; }
};

Kernel::Kernel(Phone& phone) : mPhone(phone), mReal(phone.options().kernel == KernelKind::kReal) {}

Kernel::~Kernel() = default;

bool Kernel::isDeviceNode(const char* path) {
    return beginsWith(path, kMediaPath) || beginsWith(path, kSubDevicePath);
}

bool Kernel::isSysfsLink(const char* path) {
    return beginsWith(path, kSysfsPath);
}

bool Kernel::isFile(const char* path) {
    return (beginsWith(path, kDumpFolder) && path[kDumpFolder.size()] == '/') ||
           (beginsWith(path, kThermalFolder) && path[kThermalFolder.size()] == '/');
}

bool Kernel::takes(int fd, uint32_t request) const {
    return owns(fd) || isPrivateRequest(request);
}

bool Kernel::owns(FILE* file) const {
    const std::lock_guard lock(mMutex);
    return mFiles.contains(file);
}

Kernel::Node* Kernel::nodeOf(int fd) const {
    if (fd < 0 || fd >= kDescriptors) return nullptr;
    return mDescriptors[static_cast<size_t>(fd)].load(std::memory_order_acquire);
}

// --- Faults and trace

Kernel::Fate Kernel::consult(FaultPoint point, std::string_view key, std::span<const std::byte> input) {
    Fate fate{mPhone.faults().strike(point, key, asUint8(input))};
    if (fate.is(FaultEffect::Kind::kSlow)) mPhone.clock().sleepUs(fate.effect()->delayUs);
    return fate;
}

Kernel::Fate Kernel::consultRequest(uint32_t request, std::span<const std::byte> record) {
    if (isPrivateRequest(request)) return consult(FaultPoint::kRequest, privateRequestName(request), record);
    const RequestInfo* info = findMediaRequest(request);
    return consult(FaultPoint::kMediaRequest, info != nullptr ? info->name : std::string_view{}, record);
}

void Kernel::traceRequest(uint32_t request, std::span<const std::byte> in, std::span<const std::byte> out,
                          int32_t result, const Fate& fate) {
    Event event = decodeRequest(request, asUint8(in), asUint8(out));
    event.hasResult = true;
    event.result = result < 0 ? -1 : result;
    event.error = result < 0 ? -result : 0;
    if (fate.strike) event.fault = fate.strike->text;
    mPhone.trace().record(std::move(event));
}

void Kernel::traceCall(EventKind kind, const char* name, std::vector<Field> fields, int64_t result, int error,
                       const Fate& fate, std::vector<Field> answer) {
    Event event;
    event.kind = kind;
    event.name = name;
    event.fields = std::move(fields);
    event.answer = std::move(answer);
    event.hasResult = true;
    event.result = result;
    event.error = error;
    if (fate.strike) event.fault = fate.strike->text;
    mPhone.trace().record(std::move(event));
}

// --- Descriptors

// What a path leads to at this moment; null when there is no such device.
Kernel::Node* Kernel::findNode(const std::string& path) {
    if (mReal) return keepNode({path, Node::Kind::kMachine, 0, nullptr});
    if (path.starts_with(kMediaPath)) {
        const std::string number = path.substr(kMediaPath.size());
        for (const MediaDevice& device : mPhone.media().devices()) {
            if (std::to_string(device.number) != number) continue;
            return keepNode({path, Node::Kind::kMedia, device.number, nullptr});
        }
        return nullptr;
    }
    auto entity = mPhone.media().entityByNode(std::string_view(path).substr(kDevFolder.size()));
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
int Kernel::openNode(const char* path, int flags, Node*& node) {
    node = findNode(path);
    if (node == nullptr) return -ENOENT;
    // A simulated node is a descriptor of its own, so that numbers are the machine's and no other file has
    // them.
    const int fd = mReal ? libc().open(path, flags) : eventfd(0, (flags & O_CLOEXEC) != 0 ? EFD_CLOEXEC : 0);
    if (fd < 0) return -errno;
    if (fd < kDescriptors) return fd;
    libc().close(fd);
    return -EMFILE;
}

int Kernel::open(const char* path, int flags) {
    mPhone.clock().enter();
    const Fate fate = consult(FaultPoint::kOpen, path);
    Node* node = nullptr;
    int fd = 0;
    if (fate.error() != 0) {
        fd = -fate.error();
    } else if (fate.is(FaultEffect::Kind::kResult)) {
        fd = static_cast<int>(fate.effect()->result);
    } else {
        fd = openNode(path, flags, node);
        if (fd >= 0) mDescriptors[static_cast<size_t>(fd)].store(node, std::memory_order_release);
    }
    if (mPhone.trace().enabled()) {
        traceCall(EventKind::kFile, "open", {textField("path", path)}, std::max(fd, -1), std::max(-fd, 0),
                  fate);
    }
    return toResult(fd);
}

int Kernel::close(int fd) {
    mPhone.clock().enter();
    const Node* node = mDescriptors[static_cast<size_t>(fd)].exchange(nullptr);
    if (node == nullptr) return libc().close(fd);
    const Fate fate = consult(FaultPoint::kClose, node->path);
    int result = libc().close(fd) == 0 ? 0 : -errno;
    // The descriptor is gone even when closing it failed.
    if (fate.error() != 0) result = -fate.error();
    if (mPhone.trace().enabled()) {
        traceCall(EventKind::kFile, "close", {textField("path", node->path), {"fd", int64_t{fd}}},
                  std::max(result, -1), std::max(-result, 0), fate);
    }
    return toResult(result);
}

size_t Kernel::openNodes() const {
    return static_cast<size_t>(
        std::ranges::count_if(mDescriptors, [](const auto& node) { return node != nullptr; }));
}

// --- Requests

int Kernel::ioctl(int fd, uint32_t request, void* argument) {
    mPhone.clock().enter();
    const Node* node = nodeOf(fd);
    const bool simulated = node != nullptr && node->kind != Node::Kind::kMachine;
    return toResult(simulated ? this->request(*node, request, argument)
                              : passRequest(fd, request, argument, node));
}

int32_t Kernel::carryOut(const Node& node, uint32_t request, std::span<std::byte> record) {
    if (node.kind == Node::Kind::kSubDevice) return node.controller->handle(request, record);
    if (request == MEDIA_IOC_DEVICE_INFO) {
        return mPhone.media().deviceInfo(node.number, *reinterpret_cast<media_device_info*>(record.data()));
    }
    return mPhone.media().enumerateEntity(node.number, *reinterpret_cast<media_entity_desc*>(record.data()));
}

// The simulated kernel: the request's code alone says how much moves; the record is copied at entry, and back
// as a whole unless the request failed.
int32_t Kernel::request(const Node& node, uint32_t request, void* argument) {
    const bool known = node.kind == Node::Kind::kMedia
                           ? request == MEDIA_IOC_DEVICE_INFO || request == MEDIA_IOC_ENUM_ENTITIES
                           : node.controller != nullptr && Controller::knows(request);
    const bool traced = mPhone.trace().enabled();
    if (!known || argument == nullptr) {
        const int32_t error = known ? -EFAULT : -ENOTTY;
        if (traced) traceRequest(request, {}, {}, error, {});
        return error;
    }
    alignas(std::max_align_t) std::array<std::byte, kLargestRecord> space;
    const std::span record(space.data(), _IOC_SIZE(request));
    copyFromUser(record, argument);
    std::vector<std::byte> sent;
    if (traced) sent.assign(record.begin(), record.end());

    const Fate fate = consultRequest(request, record);
    const bool lost = fate.is(FaultEffect::Kind::kLost);
    int32_t result = 0;
    if (fate.error() != 0) {
        result = -fate.error();
    } else if (!lost) {
        result = carryOut(node, request, record);
        if (fate.is(FaultEffect::Kind::kGarbage)) fill(record, fate.effect()->bytes);
        if (fate.is(FaultEffect::Kind::kResult)) result = static_cast<int32_t>(fate.effect()->result);
    }
    const bool answered = result >= 0 && !lost && (_IOC_DIR(request) & _IOC_READ) != 0;
    if (answered) copyToUser(argument, record);
    if (traced) {
        traceRequest(request, sent,
                     answered ? std::span<const std::byte>(record) : std::span<const std::byte>{}, result,
                     fate);
    }
    return result;
}

// A request to a device of the machine's kernel, or to a descriptor that is none of the phone's.
int32_t Kernel::passRequest(int fd, uint32_t request, void* argument, const Node* node) {
    const bool traced = mPhone.trace().enabled();
    const size_t size = argument != nullptr ? _IOC_SIZE(request) : 0;
    std::vector<std::byte> record(node != nullptr || traced ? size : 0);
    copyFromUser(record, argument);
    const std::vector<std::byte> sent = traced ? record : std::vector<std::byte>{};

    const Fate fate = node != nullptr ? consultRequest(request, record) : Fate{};
    int32_t result = -fate.error();
    if (result == 0 && !fate.is(FaultEffect::Kind::kLost)) {
        result = libc().ioctl(fd, request, argument);
        if (result < 0) result = -errno;
        if (fate.is(FaultEffect::Kind::kGarbage) && (_IOC_DIR(request) & _IOC_READ) != 0) {
            fill(record, fate.effect()->bytes);
            copyToUser(argument, record);
        }
        if (fate.is(FaultEffect::Kind::kResult)) result = static_cast<int32_t>(fate.effect()->result);
    }
    if (traced) {
        const bool answered = result >= 0 && (_IOC_DIR(request) & _IOC_READ) != 0;
        if (answered) copyFromUser(record, argument);
        traceRequest(request, sent,
                     answered ? std::span<const std::byte>(record) : std::span<const std::byte>{}, result,
                     fate);
    }
    return result;
}

// --- Links and files

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
    auto link = mPhone.media().sysfsLink(major, minor);
    if (!link) return -ENOENT;
    target = std::move(*link);
    return static_cast<ssize_t>(target.size());
}

ssize_t Kernel::readlink(const char* path, char* buffer, size_t size) {
    mPhone.clock().enter();
    const Fate fate = consult(FaultPoint::kReadlink, path);
    std::string target;
    ssize_t length = fate.error() != 0 ? -fate.error() : followLink(path, target);
    if (length >= 0) {
        fill(std::as_writable_bytes(std::span(target)),
             fate.is(FaultEffect::Kind::kGarbage) ? fate.effect()->bytes : std::vector<uint8_t>{});
        target.resize(std::min(target.size(), size));
        length = static_cast<ssize_t>(target.size());
        copyToUser(buffer, std::as_bytes(std::span(target)));
    }
    if (mPhone.trace().enabled()) {
        std::vector<Field> answer;
        if (length >= 0) answer.push_back(textField("target", target));
        traceCall(EventKind::kFile, "readlink", {textField("path", path)}, std::max<ssize_t>(length, -1),
                  static_cast<int>(std::max<ssize_t>(-length, 0)), fate, std::move(answer));
    }
    return toResult(length);
}

FILE* Kernel::fopen(const char* path, const char* mode) {
    mPhone.clock().enter();
    const Fate fate = consult(FaultPoint::kOpen, path);
    const auto place = mPhone.files().place(path);
    FILE* file = nullptr;
    int error = fate.error();
    if (error == 0 && place) error = place->error;
    if (error == 0) {
        file = libc().fopen(place ? place->file.c_str() : path, mode);
        if (file == nullptr) error = errno;
    }
    if (file != nullptr) {
        const std::lock_guard lock(mMutex);
        mFiles[file] = path;
    }
    if (mPhone.trace().enabled()) {
        traceCall(EventKind::kFile, "fopen", {textField("path", path), textField("mode", mode)},
                  error == 0 ? 0 : -1, error, fate);
    }
    if (error != 0) errno = error;
    return file;
}

int Kernel::fclose(FILE* file) {
    mPhone.clock().enter();
    std::string path;
    {
        const std::lock_guard lock(mMutex);
        path = std::move(mFiles.extract(file).mapped());
    }
    const Fate fate = consult(FaultPoint::kClose, path);
    int result = libc().fclose(file);
    int error = result != 0 ? errno : 0;
    // The file is gone even when closing it failed.
    if (fate.error() != 0) error = fate.error();
    if (error != 0) result = EOF;
    if (fate.is(FaultEffect::Kind::kResult)) result = static_cast<int>(fate.effect()->result);
    if (mPhone.trace().enabled()) {
        traceCall(EventKind::kFile, "fclose", {textField("path", path)}, result, error, fate);
    }
    if (error != 0) errno = error;
    return result;
}

size_t Kernel::openFiles() const {
    const std::lock_guard lock(mMutex);
    return mFiles.size();
}

// --- Sleeps and threads

int Kernel::usleep(uint32_t us) {
    mPhone.clock().enter();
    if (mPhone.trace().enabled()) {
        Event event;
        event.kind = EventKind::kSleep;
        event.name = "usleep";
        event.fields = {{"us", uint64_t{us}}};
        mPhone.trace().record(std::move(event));
    }
    mPhone.clock().sleepUs(us);
    return 0;
}

int Kernel::createThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                         void* argument) {
    Clock& clock = mPhone.clock();
    clock.enter();
    const Fate fate = consult(FaultPoint::kThreadCreate, {});
    const int error =
        fate.error() != 0 ? fate.error() : clock.createThread(thread, attributes, start, argument);
    if (mPhone.trace().enabled()) {
        auto fields = error == 0 ? threadFields(clock.threadNumber(*thread)) : std::vector<Field>{};
        traceCall(EventKind::kThread, "pthread_create", std::move(fields), error, error, fate);
    }
    return error;
}

int Kernel::joinThread(pthread_t thread, void** result) {
    Clock& clock = mPhone.clock();
    clock.enter();
    const std::optional<uint32_t> number = clock.threadNumber(thread);
    const int error = clock.joinThread(thread, result);
    if (mPhone.trace().enabled()) {
        traceCall(EventKind::kThread, "pthread_join", threadFields(number), error, error, {});
    }
    return error;
}

int Kernel::setScheduling(pthread_t thread, int policy, const sched_param* param) {
    Clock& clock = mPhone.clock();
    clock.enter();
    clock.threadNumber();  // so that a thread that asks for itself is known
    const std::optional<uint32_t> number = clock.threadNumber(thread);
    int error = 0;
    if (mReal) {
        error = libc().pthreadSetSchedParam(thread, policy, param);
    } else if (!number) {
        error = ESRCH;
    } else if (param->sched_priority < sched_get_priority_min(policy) ||
               param->sched_priority > sched_get_priority_max(policy)) {
        error = EINVAL;
    }
    if (error == 0 && number) {
        const std::lock_guard lock(mMutex);
        mScheduling[*number] = {policy, param->sched_priority};
    }
    if (mPhone.trace().enabled()) {
        std::vector<Field> fields = threadFields(number);
        addScheduling(fields, policy, param->sched_priority);
        traceCall(EventKind::kThread, "pthread_setschedparam", std::move(fields), error, error, {});
    }
    return error;
}

int Kernel::getScheduling(pthread_t thread, int* policy, sched_param* param) {
    Clock& clock = mPhone.clock();
    clock.enter();
    clock.threadNumber();
    const std::optional<uint32_t> number = clock.threadNumber(thread);
    int error = 0;
    if (mReal) {
        error = libc().pthreadGetSchedParam(thread, policy, param);
    } else if (!number) {
        error = ESRCH;
    } else {
        const Scheduling known = scheduling(*number).value_or(Scheduling{});
        *policy = known.policy;
        param->sched_priority = known.priority;
    }
    if (mPhone.trace().enabled()) {
        std::vector<Field> answer;
        if (error == 0) addScheduling(answer, *policy, param->sched_priority);
        traceCall(EventKind::kThread, "pthread_getschedparam", threadFields(number), error, error, {},
                  std::move(answer));
    }
    return error;
}

std::optional<Scheduling> Kernel::scheduling(uint32_t threadNumber) const {
    const std::lock_guard lock(mMutex);
    const auto found = mScheduling.find(threadNumber);
    if (found == mScheduling.end()) return std::nullopt;
    return found->second;
}

}  // namespace phone

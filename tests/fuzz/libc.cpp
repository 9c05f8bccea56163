// The calls of libc that the driver makes. The fuzzer's own go on to libc.

#include <fcntl.h>
#include <pthread.h>
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "platform.h"
#include "workers.h"

using fuzz::Platform;

namespace fuzz {
namespace {

enum class State { kFree, kReady, kDone };

struct Worker {
    State state = State::kFree;
    void* (*body)(void*) = nullptr;
    void* argument = nullptr;
    ucontext_t context{};
    std::vector<char> stack = std::vector<char>(1 << 18);
};

constexpr pthread_t kWorkers = 3;  // their ids are 1 to 3, which no thread of libc has
Worker gWorkers[kWorkers];
Worker* gRunning = nullptr;
ucontext_t gCaller;
const void* gCallersStack = nullptr;
size_t gCallersStackSize = 0;

void resume(Worker& worker) {
    void* frames = nullptr;
    gRunning = &worker;
    __sanitizer_start_switch_fiber(&frames, worker.stack.data(), worker.stack.size());
    swapcontext(&gCaller, &worker.context);
    __sanitizer_finish_switch_fiber(frames, nullptr, nullptr);
    gRunning = nullptr;
}

void suspend(Worker& worker) {
    void* frames = nullptr;
    __sanitizer_start_switch_fiber(worker.state == State::kDone ? nullptr : &frames, gCallersStack,
                                   gCallersStackSize);
    swapcontext(&worker.context, &gCaller);
    __sanitizer_finish_switch_fiber(frames, &gCallersStack, &gCallersStackSize);
}

void run() {
    __sanitizer_finish_switch_fiber(nullptr, &gCallersStack, &gCallersStackSize);
    gRunning->body(gRunning->argument);
    gRunning->state = State::kDone;
    suspend(*gRunning);
}

Worker* workerOf(pthread_t thread) {
    return thread >= 1 && thread <= kWorkers ? &gWorkers[thread - 1] : nullptr;
}

}  // namespace

bool hasWorkers() {
    return std::any_of(std::begin(gWorkers), std::end(gWorkers),
                       [](const Worker& worker) { return worker.state != State::kFree; });
}

void letWorkersRun(uint8_t choice) {
    if (gRunning != nullptr) {
        if (choice % 2 == 1) suspend(*gRunning);
        return;
    }
    Worker& worker = gWorkers[choice / 2 % kWorkers];
    if (choice % 2 == 0 && worker.state == State::kReady) resume(worker);
}

}  // namespace fuzz

extern "C" {

int __interceptor_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                                 void* argument);
int __interceptor_pthread_join(pthread_t thread, void** result);
FILE* __interceptor_fopen(const char* path, const char* mode);

int open(const char* path, int flags, ...) {
    if (Platform* platform = Platform::current(); platform != nullptr && std::strncmp(path, "/dev/", 5) == 0)
        return platform->open();
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int close(int descriptor) {
    Platform* platform = Platform::current();
    if (platform == nullptr) return static_cast<int>(syscall(SYS_close, descriptor));
    platform->close(descriptor);
    return 0;
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* record = va_arg(arguments, void*);
    va_end(arguments);
    if (Platform* platform = Platform::current()) return platform->ioctl(descriptor, request, record);
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, record));
}

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    if (Platform* platform = Platform::current()) return platform->readlink(buffer, size);
    return syscall(SYS_readlink, path, buffer, size);
}

int usleep(useconds_t /*us*/) {
    if (Platform* platform = Platform::current()) platform->pause();
    return 0;
}

FILE* fopen(const char* path, const char* mode) {
    Platform* platform = Platform::current();
    const bool ofDriver =
        std::strncmp(path, "/mnt/vendor/", 12) == 0 || std::strncmp(path, "/sys/cam_", 9) == 0;
    return platform != nullptr && ofDriver ? platform->fopen(*mode == 'w') : __interceptor_fopen(path, mode);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    Platform* platform = Platform::current();
    if (platform == nullptr) return __interceptor_pthread_create(thread, attributes, body, argument);
    pthread_t id = 1;
    while (id <= fuzz::kWorkers && fuzz::workerOf(id)->state != fuzz::State::kFree) ++id;
    if (id > fuzz::kWorkers || platform->script.rarely()) return EAGAIN;
    fuzz::Worker& worker = *fuzz::workerOf(id);
    worker.state = fuzz::State::kReady;
    worker.body = body;
    worker.argument = argument;
    getcontext(&worker.context);
    worker.context.uc_stack = {worker.stack.data(), 0, worker.stack.size()};
    ASAN_UNPOISON_MEMORY_REGION(worker.stack.data(), worker.stack.size());
    makecontext(&worker.context, fuzz::run, 0);
    *thread = id;
    fuzz::letWorkersRun(static_cast<uint8_t>((id - 1) * 2 + platform->script.byte() % 2));
    return 0;
}

int pthread_join(pthread_t thread, void** result) {
    fuzz::Worker* worker = fuzz::workerOf(thread);
    if (worker == nullptr) return __interceptor_pthread_join(thread, result);
    while (worker->state == fuzz::State::kReady) fuzz::resume(*worker);
    worker->state = fuzz::State::kFree;
    return 0;
}

int pthread_setschedparam(pthread_t thread, int /*policy*/, const sched_param* /*param*/) noexcept {
    fuzz::require(fuzz::workerOf(thread) != nullptr);
    return EPERM;
}

}  // extern "C"

// What the driver's library does by libc's help besides its requests: sleeps, files, threads.

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "driver.h"
#include "next.h"
#include "trace.h"

namespace spy {

namespace {

using Start = void*(void*);

constinit Next<int(useconds_t)> gUsleep("usleep");
constinit Next<FILE*(const char*, const char*)> gFopen("fopen");
constinit Next<int(FILE*)> gFclose("fclose");
constinit Next<int(pthread_t*, const pthread_attr_t*, Start*, void*)> gThreadCreate("pthread_create");
constinit Next<int(pthread_t, void**)> gThreadJoin("pthread_join");
constinit Next<int(pthread_t, int, const sched_param*)> gSetScheduling("pthread_setschedparam");
constinit Next<int(pthread_t, int*, sched_param*)> gGetScheduling("pthread_getschedparam");

constexpr size_t kFileLine = 4096;

// A few things that are known for a while, by what is an address or a handle; without a lock, which a child
// of fork might find taken for ever. When all places are taken, further ones are as good as unknown.
template <typename Value>
class Known {
  public:
    void add(uintptr_t key, const Value& value) {
        for (Place& place : mPlaces) {
            uintptr_t free = kFree;
            if (!place.key.compare_exchange_strong(free, kBusy)) continue;
            place.value = value;
            place.key = key;
            return;
        }
    }
    std::optional<Value> find(uintptr_t key) { return lookUp(key, key); }
    std::optional<Value> take(uintptr_t key) { return lookUp(key, kFree); }

  private:
    std::optional<Value> lookUp(uintptr_t key, uintptr_t left) {
        for (Place& place : mPlaces) {
            uintptr_t found = key;
            if (!place.key.compare_exchange_strong(found, kBusy)) continue;
            const Value value = place.value;
            place.key = left;
            return value;
        }
        return std::nullopt;
    }

    static constexpr uintptr_t kFree = 0;
    static constexpr uintptr_t kBusy = 1;
    struct Place {
        std::atomic<uintptr_t> key{kFree};
        Value value{};
    };
    std::array<Place, 64> mPlaces{};
};

using Path = std::array<char, 256>;
constinit Known<Path> gFiles;
constinit Known<uint32_t> gThreads;

uintptr_t keyOf(const FILE* file) {
    return reinterpret_cast<uintptr_t>(file);
}
uintptr_t keyOf(pthread_t thread) {
    return static_cast<uintptr_t>(thread);
}

// --- Files.

// What the driver will find in it, read beside it; a little is enough for anything that the driver reads.
size_t contentOf(FILE* file, std::span<uint8_t> content) {
    const long size = syscall(SYS_pread64, fileno(file), content.data(), content.size(), 0L);
    return size > 0 ? static_cast<size_t>(size) : 0;
}

FILE* noteFopen(const char* path, const char* mode, FILE* file) {
    const int error = errno;
    std::array<uint8_t, 4096> content;
    const size_t size = file != nullptr && *mode == 'r' ? contentOf(file, content) : 0;
    Path kept{};
    std::strncpy(kept.data(), path, kept.size() - 1);
    if (file != nullptr) gFiles.add(keyOf(file), kept);
    Line<kFileLine> line("file", "fopen");
    line.open("fields").text("path", path).text("mode", mode).close();
    line.result(file != nullptr ? 0 : -1, error).record({}, std::span(content).first(size));
    errno = error;
    return file;
}

// --- Threads.

// A thread of the driver's, which is in the driver as long as it runs.
struct Worker {
    Start* start;
    void* argument;
    uint32_t number;
};

void* run(void* worker) {
    const std::unique_ptr<Worker> own(static_cast<Worker*>(worker));
    const InDriver in;
    beThread(own->number);
    return own->start(own->argument);
}

using ThreadLine = Line<256>;

void threadField(ThreadLine& line, pthread_t thread) {
    const std::optional<uint32_t> known =
        pthread_equal(thread, pthread_self()) != 0 ? threadNumber() : gThreads.find(keyOf(thread));
    if (known) {
        line.number("thread", *known);
    } else {
        line.text("thread", "unknown");
    }
}

void schedulingFields(ThreadLine& line, int policy, int priority) {
    const std::string_view name = policy == SCHED_OTHER  ? "SCHED_OTHER"
                                  : policy == SCHED_FIFO ? "SCHED_FIFO"
                                  : policy == SCHED_RR   ? "SCHED_RR"
                                                         : "";
    if (name.empty()) {
        line.number("policy", policy);
    } else {
        line.text("policy", name);
    }
    line.number("priority", priority);
}

// The thread functions return their error.
int noteThread(ThreadLine& line, int error) {
    line.result(error);
    if (error != 0) line.error(error);
    line.record();
    return error;
}

int createWorker(pthread_t* thread, const pthread_attr_t* attributes, Start* start, void* argument) {
    auto worker = std::unique_ptr<Worker>(new (std::nothrow) Worker{start, argument, nextThreadNumber()});
    if (!worker) return EAGAIN;
    const uint32_t number = worker->number;
    const int error = gThreadCreate(thread, attributes, run, worker.get());
    ThreadLine line("thread", "pthread_create");
    if (error == 0) {
        static_cast<void>(worker.release());  // run deletes it
        gThreads.add(keyOf(*thread), number);
        line.open("fields").number("thread", number).close();
    }
    return noteThread(line, error);
}

}  // namespace

}  // namespace spy

using namespace spy;

extern "C" {

SPY_EXPORT int spyUsleep(useconds_t us) __asm__("usleep");
int spyUsleep(useconds_t us) {
    if (inDriver() && wanted()) {
        Line<128> line("sleep", "usleep");
        line.open("fields").number("us", us).close();
        line.record();
    }
    return gUsleep(us);
}

SPY_EXPORT FILE* spyFopen(const char* path, const char* mode) __asm__("fopen");
FILE* spyFopen(const char* path, const char* mode) {
    FILE* const file = gFopen(path, mode);
    return inDriver() && wanted() ? noteFopen(path, mode, file) : file;
}
SPY_EXPORT FILE* spyFopen64(const char* path, const char* mode) __asm__("fopen64")
    __attribute__((alias("fopen")));

SPY_EXPORT int spyFclose(FILE* file) __asm__("fclose");
int spyFclose(FILE* file) {
    const std::optional<Path> path = inDriver() ? gFiles.take(keyOf(file)) : std::nullopt;
    const int result = gFclose(file);
    if (path && wanted()) {
        Line<kFileLine> line("file", "fclose");
        line.open("fields").text("path", path->data()).close();
        line.result(result, errno).record();
    }
    return result;
}

SPY_EXPORT int spyThreadCreate(pthread_t* thread, const pthread_attr_t* attributes, Start* start,
                               void* argument) __asm__("pthread_create");
int spyThreadCreate(pthread_t* thread, const pthread_attr_t* attributes, Start* start, void* argument) {
    return inDriver() && wanted() ? createWorker(thread, attributes, start, argument)
                                  : gThreadCreate(thread, attributes, start, argument);
}

SPY_EXPORT int spyThreadJoin(pthread_t thread, void** result) __asm__("pthread_join");
int spyThreadJoin(pthread_t thread, void** result) {
    const std::optional<uint32_t> number = gThreads.take(keyOf(thread));
    const int error = gThreadJoin(thread, result);
    if (!number || !wanted()) return error;
    ThreadLine line("thread", "pthread_join");
    line.open("fields").number("thread", *number).close();
    return noteThread(line, error);
}

SPY_EXPORT int spySetScheduling(pthread_t thread, int policy,
                                const sched_param* param) __asm__("pthread_setschedparam");
int spySetScheduling(pthread_t thread, int policy, const sched_param* param) {
    const int error = gSetScheduling(thread, policy, param);
    if (!inDriver() || !wanted()) return error;
    ThreadLine line("thread", "pthread_setschedparam");
    line.open("fields");
    threadField(line, thread);
    schedulingFields(line, policy, param->sched_priority);
    line.close();
    return noteThread(line, error);
}

SPY_EXPORT int spyGetScheduling(pthread_t thread, int* policy,
                                sched_param* param) __asm__("pthread_getschedparam");
int spyGetScheduling(pthread_t thread, int* policy, sched_param* param) {
    const int error = gGetScheduling(thread, policy, param);
    if (!inDriver() || !wanted()) return error;
    ThreadLine line("thread", "pthread_getschedparam");
    line.open("fields");
    threadField(line, thread);
    line.close();
    if (error == 0) {
        line.open("answer");
        schedulingFields(line, *policy, param->sched_priority);
        line.close();
    }
    return noteThread(line, error);
}

}  // extern "C"

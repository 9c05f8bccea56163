#pragma once
// The system calls that the driver makes, as the phone answers them. The interposed C functions
// (entry/syscalls.cpp) come here.

#include <pthread.h>
#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "faults/faults.h"
#include "trace/trace.h"

namespace phone {

class Clock;
class FileTree;
class MediaGraph;

// What the kernel works with.
struct KernelParts {
    Clock& mClock;
    Trace& mTrace;
    Faults& mFaults;
    MediaGraph& mMedia;
    FileTree& mFiles;
    const bool mReal;  // the machine's own kernel answers
};

struct Scheduling {
    int policy = 0;  // SCHED_OTHER
    int priority = 0;
};

// Thread-safe; requests share no lock. The calls return what libc's functions of that name return, and set
// errno like them. With the real kernel they pass on to libc, and are traced all the same.
class Kernel : private KernelParts {
  public:
    explicit Kernel(const KernelParts& parts);
    ~Kernel();
    Kernel(const Kernel&) = delete;
    Kernel& operator=(const Kernel&) = delete;

    // Which calls are the phone's; all others are libc's.
    static bool isDeviceNode(const char* path);
    static bool isSysfsLink(const char* path);
    static bool isFile(const char* path);
    // Also of descriptors that are not the phone's: a private request to a closed device is worth a line.
    bool takes(int fd, uint32_t request) const;
    bool owns(int fd) const { return nodeOf(fd) != nullptr; }
    bool owns(FILE* file) const;

    int open(const char* path, int flags);
    int close(int fd);
    int ioctl(int fd, uint32_t request, void* argument);
    ssize_t readlink(const char* path, char* buffer, size_t size);
    FILE* fopen(const char* path, const char* mode);
    int fclose(FILE* file);
    int usleep(uint32_t us);
    int createThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                     void* argument);
    int joinThread(pthread_t thread, void** result);
    int setScheduling(pthread_t thread, int policy, const sched_param* param);
    int getScheduling(pthread_t thread, int* policy, sched_param* param);

    // State side: what the driver holds open.
    size_t openNodes() const;
    size_t openFiles() const;

  private:
    struct Node;

    static constexpr int kDescriptors = 1024;

    Node* nodeOf(int fd) const;
    Node* findNode(const std::string& path);
    Node* keepNode(Node node);
    int openNode(const char* path, int flags, bool answered, Node*& node);
    static bool knows(const Node& node, uint32_t request);
    int32_t refuse(const Node& node, uint32_t request, const void* argument);
    int32_t request(const Node& node, uint32_t request, void* argument);
    int32_t passRequest(int fd, uint32_t request, void* argument, const Node* node);
    int32_t serve(const Node& node, uint32_t request, std::span<std::byte> record, const Fate& fate);
    int32_t carryOut(const Node& node, uint32_t request, std::span<std::byte> record);
    ssize_t followLink(const char* path, std::string& target) const;

    Fate consultRequest(uint32_t request, std::span<const std::byte> record);
    void traceRequest(uint32_t request, std::span<const std::byte> in, std::span<const std::byte> out,
                      int32_t result, const Fate& fate, int64_t beganUs);
    void traceCall(EventKind kind, const char* name, std::vector<Field> fields, int64_t result, int error,
                   const Fate& fate, std::vector<Field> answer = {});

    std::array<std::atomic<Node*>, kDescriptors> mDescriptors{};
    mutable std::mutex mMutex;
    std::vector<std::unique_ptr<Node>> mNodes;  // all that were ever opened: a request may still be under way
    std::unordered_map<FILE*, std::string> mOpenFiles;
    std::map<uint32_t, Scheduling> mScheduling;
};

}  // namespace phone

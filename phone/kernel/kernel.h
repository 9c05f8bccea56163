#pragma once
// The system calls that the driver makes, as the phone answers them. The interposed C functions
// (syscalls.cpp) come here.

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
#include <string>
#include <string_view>
#include <unordered_map>

namespace phone {

class Phone;
struct DeviceNode;

struct Scheduling {
    int policy = 0;  // SCHED_OTHER
    int priority = 0;
};

// Thread-safe. The calls return what libc's functions of that name return and set errno like them.
class Kernel {
  public:
    explicit Kernel(Phone& phone);
    ~Kernel();
    Kernel(const Kernel&) = delete;
    Kernel& operator=(const Kernel&) = delete;

    // Whether a path is the phone's; all other paths are libc's.
    bool isDeviceNode(const char* path) const;
    bool isSysfsLink(const char* path) const;
    bool isFile(const char* path) const;

    int open(const char* path, int flags);
    bool owns(int fd) const;
    int close(int fd);
    int ioctl(int fd, uint32_t request, void* argument);
    ssize_t readlink(const char* path, char* buffer, size_t size);
    FILE* fopen(const char* path, const char* mode);
    bool owns(FILE* file);
    int fclose(FILE* file);
    void usleep(uint32_t us);
    int createThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                     void* argument);
    int joinThread(pthread_t thread, void** result);
    int setScheduling(pthread_t thread, int policy, const sched_param* param);
    int getScheduling(pthread_t thread, int* policy, sched_param* param);

    // State side: how many device nodes and files the driver holds open, and what a thread's scheduling was
    // last set to.
    size_t openNodes() const;
    size_t openFiles() const;
    std::optional<Scheduling> scheduling(uint32_t threadNumber) const;

  private:
    static constexpr int kDescriptors = 1024;

    Phone& mPhone;
    std::array<std::atomic<DeviceNode*>, kDescriptors> mDescriptors{};
    mutable std::mutex mMutex;
    std::map<std::string, std::unique_ptr<DeviceNode>, std::less<>> mNodes;
    std::unordered_map<FILE*, std::string> mFiles;
    std::map<uint32_t, Scheduling> mScheduling;
};

}  // namespace phone

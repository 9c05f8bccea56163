#pragma once
// The boundary between driver and kernel as sanitizers see it. What a kernel does is hidden from a thread
// sanitizer, on a phone as here: its locks bring no order into the driver's threads, and hide no race of
// theirs.

#include <cstddef>
#include <span>

#ifdef __SANITIZE_THREAD__
// The sanitizer's runtime has these; its headers do not declare them.
extern "C" void __tsan_ignore_thread_begin();
extern "C" void __tsan_ignore_thread_end();
extern "C" void AnnotateIgnoreSyncBegin(const char* file, int line);
extern "C" void AnnotateIgnoreSyncEnd(const char* file, int line);
#endif

namespace phone {

// The kernel's copies from and to the driver's memory; false, EFAULT to the caller, where the driver has no
// such memory. An address sanitizer does see them, and finds a record that is shorter than its request says.
[[nodiscard]] bool copyFromUser(std::span<std::byte> to, const void* user);
[[nodiscard]] bool copyToUser(void* user, std::span<const std::byte> from);

// While it lives, the calling thread is inside the kernel.
class InsideKernel {
  public:
#ifdef __SANITIZE_THREAD__
    InsideKernel() {
        AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
        __tsan_ignore_thread_begin();
    }
    ~InsideKernel() {
        __tsan_ignore_thread_end();
        AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
    }
#else
    InsideKernel() = default;
#endif
    InsideKernel(const InsideKernel&) = delete;
    InsideKernel& operator=(const InsideKernel&) = delete;
};

}  // namespace phone

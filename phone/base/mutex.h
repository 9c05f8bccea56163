#pragma once
// A mutex for what the phone does while the driver sleeps or joins. In those two calls a thread sanitizer
// looks away from mutexes but not from memory; this one tells it in so many words who came before whom.

#include <mutex>

#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

namespace phone {

class Mutex {
  public:
    void lock() {
        mMutex.lock();
#ifdef __SANITIZE_THREAD__
        __tsan_acquire(this);
#endif
    }
    void unlock() {
#ifdef __SANITIZE_THREAD__
        __tsan_release(this);
#endif
        mMutex.unlock();
    }

  private:
    std::mutex mMutex;
};

}  // namespace phone

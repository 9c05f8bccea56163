#pragma once
// The phone's clock, and the order in which threads run while time is simulated.

#include <pthread.h>

#include <cstdint>
#include <memory>
#include <optional>

namespace phone {

enum class ClockMode {
    // Time stands still while any thread works and jumps to the next wake-up when all sleep or join. A new
    // thread takes its first turn when its creator sleeps or joins. One run is like the next.
    kSimulated,
    // Sleeps last as long as they say; the clock is the machine's.
    kRealTime,
    // For stress tests: sleeps return at once and only add to the clock; the machine schedules the threads.
    kFreeRunning,
};

class Clock {
  public:
    // The constructing thread takes part from the start.
    explicit Clock(ClockMode mode);
    // As close().
    ~Clock();
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;

    // Threads that sleep or wait for a turn go on at once, now and from now on.
    void close();

    ClockMode mode() const { return mMode; }
    // Microseconds since construction. Any thread may ask, without taking a turn.
    int64_t nowUs() const;
    // Blocks the calling thread until that much time has passed; other threads take their turns meanwhile. 0
    // lets them run until they sleep beyond now. A thread that does not take part yet does so from its first
    // sleep on.
    void sleepUs(int64_t us);
    void sleepUntilUs(int64_t us);

    // A small number for the calling thread, in order of creation; the constructing thread is 0.
    uint32_t threadNumber();
    // The same of another thread; nullopt when the clock does not know it.
    std::optional<uint32_t> threadNumber(pthread_t thread) const;
    // The same of one that has ended and was not joined yet.
    std::optional<uint32_t> endedThreadNumber(pthread_t thread) const;

    // For the interposed calls and the platform's functions. A thread takes its first turn at its first call
    // into the phone: every entry point calls enter(). A thread that calls very often without ever sleeping
    // is taken to have been busy until the next other thread is due, so that polling without a pause cannot
    // stop time.
    void enter() {
        if (mMode == ClockMode::kSimulated) takeTurn();
    }
    int createThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                     void* argument);
    int joinThread(pthread_t thread, void** result);

  private:
    struct State;

    void takeTurn();

    const ClockMode mMode;
    std::shared_ptr<State> mState;  // threads that know the clock may outlive it
};

}  // namespace phone

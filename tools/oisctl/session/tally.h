#pragma once
// Counts what passes between driver and controller, as it passes.

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "trace/trace.h"

namespace oisctl {

struct Failure {
    double timeS = 0;
    std::string text;
};

// Whether an event is a command that the controller, or the hub in front of it, was given.
bool isCommand(const phone::Event& event);

// Any thread.
class Tally {
  public:
    // Takes an event of the trace.
    void count(const phone::Event& event);
    void addFailure(double timeS, std::string text);
    void addRepeat();

    // What was counted so far.
    struct Counts {
        uint64_t sent = 0;
        std::map<std::string, uint64_t> byName;
        uint64_t repeats = 0;
        uint64_t undelivered = 0;  // commands to a device that is not open, which the driver sends blindly
        uint64_t failures = 0;
        std::vector<Failure> firstFailures;  // no more than kKeptFailures of them
    };
    Counts counts() const;
    // Commands of one thread of the phone's clock.
    uint64_t sentBy(uint32_t thread) const;

    static constexpr size_t kKeptFailures = 20;

  private:
    void keepFailure(double timeS, std::string text);

    mutable std::mutex mMutex;
    Counts mCounts;
    std::map<uint32_t, uint64_t> mSentByThread;
};

}  // namespace oisctl

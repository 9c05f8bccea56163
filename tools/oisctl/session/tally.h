#pragma once
// Counts what passes between driver and controller, as it passes.

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "session/calls.h"
#include "session/device_loss.h"
#include "trace/trace.h"

namespace oisctl {

// Something that went wrong: what the trace shows, or what the tool noticed.
struct Failure {
    double timeS = 0;
    std::optional<phone::Event> event;
    std::string remark;
};
std::string toText(const Failure& failure);

// Whether a fault took effect, or a command was refused.
bool isFailure(const phone::Event& event);

// Calls of one operation of the driver.
struct CallCount {
    uint64_t made = 0;
    uint64_t sentNothing = 0;
};

// Any thread.
class Tally {
  public:
    // Takes an event of the trace, and the call that ended with it, if any.
    void count(const phone::Event& event, const std::optional<EndedCall>& ended);
    void addFailure(double timeS, std::string remark);

    // What was counted so far.
    struct Counts {
        uint64_t sent = 0;         // commands that went out
        uint64_t delivered = 0;    // those of them that were neither refused nor lost on the way
        uint64_t undelivered = 0;  // commands to a device that is not open, which the driver sends blindly
        std::map<std::string, uint64_t> byName;
        std::map<std::string, CallCount> calls;
        uint64_t failures = 0;
        std::vector<Failure> firstFailures;  // no more than kKeptFailures of them
        // The request that told that the device went away, if it did; what failed after it is not counted.
        std::optional<phone::Event> loss;
    };
    Counts counts() const;
    bool deviceLost() const { return mDeviceLost.load(); }
    // The call that ended last.
    std::optional<EndedCall> lastCall() const;

    static constexpr size_t kKeptFailures = 20;

  private:
    void keepFailure(Failure failure);

    mutable std::mutex mMutex;
    Counts mCounts;
    std::optional<EndedCall> mLastCall;
    DeviceLoss mLoss;
    std::atomic<bool> mDeviceLost{false};
};

}  // namespace oisctl

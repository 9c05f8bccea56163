#pragma once
// Whether a device went away, as its requests tell.

#include <cstdint>
#include <optional>
#include <set>

#include "trace/trace.h"

namespace oisctl {

class DeviceLoss {
  public:
    // Takes the commands in order, one at a time; of those to a sub-device, one that says that there is no
    // device, or a row of those that worked before and now get nowhere.
    void take(const phone::Event& command);
    // The request that told first; empty while the device is there.
    const std::optional<phone::Event>& evidence() const { return mEvidence; }

  private:
    // More than a scene of interference takes, and less than a person waits for.
    static constexpr int kRowThatTells = 8;

    std::set<uint32_t> mWorked;  // requests, by code
    std::optional<phone::Event> mFirstOfRow;
    int mRow = 0;
    std::optional<phone::Event> mEvidence;
};

}  // namespace oisctl

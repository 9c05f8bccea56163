#pragma once
// Whether a device went away, as its requests tell.

#include <optional>

#include "trace/trace.h"

namespace oisctl {

class DeviceLoss {
  public:
    // Takes the commands in order, one at a time; of those to a sub-device, one that says that there is no
    // device, or, once any got through, a row of them that get nowhere.
    void take(const phone::Event& command);
    // The request that told; empty while the device is there.
    const std::optional<phone::Event>& evidence() const { return mEvidence; }

  private:
    // More than a scene of interference takes, and less than a person waits for.
    static constexpr int kRowThatTells = 8;
    // Nothing comes behind the end of a session; of those that go out with it there are three.
    static constexpr int kRowToTheEnd = 4;

    bool mWasThere = false;
    int mRow = 0;
    std::optional<phone::Event> mEvidence;
};

// Whether the request itself says that the device is gone; else it ends a row from which that is judged.
bool saysSo(const phone::Event& evidence);

}  // namespace oisctl

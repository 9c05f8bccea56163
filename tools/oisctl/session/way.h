#pragma once
// How far the driver came on its way to a controller, from what it tried: the trace's events alone.

#include <mutex>
#include <optional>
#include <string>

#include "device/way_end.h"
#include "trace/trace.h"

namespace oisctl {

// Any thread.
class Way {
  public:
    void take(const phone::Event& event);

    // Where the way ended, once nothing was delivered. `driverName`: the module's.
    WayEnd end(const std::string& driverName) const;

  private:
    void takeMedia(const phone::Event& event);
    void takeFile(const phone::Event& event);

    mutable std::mutex mMutex;
    WaySeen mSeen;
    std::string mMediaPath;  // opened last
    bool mHubMissing = false;
    std::optional<WaySeen::Step> mFirstCommand;  // that did not get through
};

}  // namespace oisctl

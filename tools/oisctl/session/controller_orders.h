#pragma once
// What a controller on a sub-device was told last, as the trace shows it.

#include <mutex>
#include <optional>

#include "trace/trace.h"
#include "wire/records.h"

namespace oisctl {

// Any thread.
class ControllerOrders {
  public:
    void take(const phone::Event& event);

    struct Last {
        bool customised = false;                // the module's customisation was taken
        bool stabilising = false;               // may be: what asked for it need not have arrived
        std::optional<ois::OisFixMode> target;  // that the lens may be held at
    };
    Last last() const;

  private:
    mutable std::mutex mMutex;
    Last mLast;
};

}  // namespace oisctl

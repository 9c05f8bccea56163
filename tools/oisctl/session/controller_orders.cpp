#include "session/controller_orders.h"

#include "session/calls.h"
#include "trace/decode.h"
#include "wire/requests.h"

namespace oisctl {

using ois::Request;

void ControllerOrders::take(const phone::Event& event) {
    if (event.kind != phone::EventKind::kSubDevice) return;
    const std::lock_guard lock(mMutex);
    const bool delivered = wasDelivered(event);
    switch (Request{event.code}) {
        case Request::kSetCustomisation:
            mLast.customised |= delivered;
            break;
        case Request::kSetMode:
            if (phone::recordOf<uint32_t>(event.sent) != 0) {
                mLast.stabilising = true;
            } else if (delivered) {
                mLast.stabilising = false;
                // Whether it also ends a fix mode that was enabled is the controller's own affair.
                if (mLast.target && mLast.target->manualEnable == 0) mLast.target.reset();
            }
            break;
        case Request::kSetFixMode:
            mLast.target = phone::recordOf<ois::OisFixMode>(event.sent);
            break;
        default:
            break;
    }
}

ControllerOrders::Last ControllerOrders::last() const {
    const std::lock_guard lock(mMutex);
    return mLast;
}

}  // namespace oisctl

// Stream start and stop.

#include <unistd.h>

#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

namespace {

constexpr int32_t kStreamOn = 1;
constexpr int32_t kScenarioIgnoringStream = 29;

}  // namespace

int32_t OISDrv::NotifyStream(ois_stream_info* info) {
    // No stream change overtakes the bring-up.
    if (mInitDrvThread.joinable()) mInitDrvThread.join();
    if (!isOpen() || info == nullptr) return 0;
    const int32_t state = info->notify_stream;
    if (state == mStreamState || mOisParams.scenario == kScenarioIgnoringStream) return 0;

    // A new stream gets everything afresh: no mode equals -1, and no temperature is near 0.
    mLastTemp = 0;
    mOisDynamic = -1;
    mOisMode = -1;
    mOisTempStrategy = 0;
    mStreamState = state;
    const int32_t result = send(ois::command::kNotifyStream, *info);
    OIS_LOG(kDebug, "Dev %d, notify_stream %d\n", mSensorDev, state);
    const uint16_t delayUs = ois::loadShared(mOisCustInfo.streamOnDelay);
    if (state == kStreamOn && delayUs != 0) {
        usleep(delayUs);
        OIS_LOG(kDebug, "streamOnDelay %d\n", delayUs);
    }
    return result;
}

// Angle-based active OIS, and stream start and stop.

#include <unistd.h>

#include "log.h"
#include "ois_drv.h"

using ois::HubCommand;
using ois::Request;

namespace {

// The hub is told 2 of the record's 8 bytes.
constexpr int32_t kActiveOisHubLength = 2;

constexpr int32_t kStreamOn = 1;
constexpr int32_t kScenarioIgnoringStream = 29;

bool sceneAllowsActiveOis(int32_t scene) {
    return scene == 4 || scene == 12 || scene == 14;
}

}  // namespace

int32_t OISDrv::SetActOis(ois_act_parameters params) {
    if (!isOpen() || mOisCustInfo.actOisSupport != 1 || !sceneAllowsActiveOis(mOisParams.act_scene) ||
        mOisMode == 0 || params.enable == mPreviousActEn) {
        return 0;
    }
    const int32_t result =
        transfer(Request::kSetActiveOis, HubCommand::kSetActiveOis, params, kActiveOisHubLength);
    OIS_DEBUG("need update, act ois enable %d, act ois angle 0x%08x", params.enable, params.angle);
    return result;
}

int32_t OISDrv::SetActOisBySoftTrigger(int32_t /*trigger*/) {
    return 0;
}

void OISDrv::GimbalCalibration() {}

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
    const int32_t result =
        transfer(Request::kNotifyStream, HubCommand::kNotifyStream, *info, sizeof info->notify_stream);
    OIS_DEBUG("Dev %d, notify_stream %d\n", mSensorDev, state);
    const uint16_t delayUs = mOisCustInfo.streamOnDelay;
    if (state == kStreamOn && delayUs != 0) {
        usleep(delayUs);
        OIS_DEBUG("streamOnDelay %d\n", delayUs);
    }
    return result;
}

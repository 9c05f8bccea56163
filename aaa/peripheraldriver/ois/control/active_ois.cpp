// Angle-based active OIS.

#include "control/mode_choice.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

namespace {

// The scene codes are the 3A layer's.
bool sceneAllowsActiveOis(int32_t scene) {
    return scene == 4 || scene == 12 || scene == 14;
}

}  // namespace

int32_t OISDrv::SetActOis(ois_act_parameters params) {
    if (!isOpen() || ois::loadShared(mOisCustInfo.actOisSupport) != 1 ||
        !sceneAllowsActiveOis(mOisParams.act_scene) || mOisMode == ois::kModeOff ||
        params.enable == mPreviousActEn) {
        return 0;
    }
    const int32_t result = send(ois::command::kSetActiveOis, params);
    OIS_LOG(kDebug, "need update, act ois enable %d, act ois angle 0x%08x", params.enable, params.angle);
    return result;
}

int32_t OISDrv::SetActOisBySoftTrigger(int32_t /*trigger*/) {
    return 0;
}

void OISDrv::GimbalCalibration() {}

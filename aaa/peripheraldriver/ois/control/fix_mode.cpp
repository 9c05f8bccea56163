// Fix mode: holds the lens at a target and reads the hall sensors back.

#include <string_view>

#include "camera_platform/properties.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using NSCam::Utils::Properties;

namespace {

struct Target {
    int32_t x;
    int32_t y;
};

constexpr int32_t kKorvaDefaultTarget = 2000;  // controller units

Target readTarget(int32_t defaultValue) {
    const int32_t x = Properties::property_get_int32("vendor.debug.ois.targetx", defaultValue);
    const int32_t y = Properties::property_get_int32("vendor.debug.ois.targety", defaultValue);
    return {x, y};
}

// A chip without fix mode stays at 0 and reads no property.
Target chooseTarget(std::string_view chip) {
    if (chip == "korvas4sw") return readTarget(kKorvaDefaultTarget);
    if (chip == "dw9786" || chip == "dw9781") return readTarget(0);
    return {0, 0};
}

}  // namespace

int32_t OISDrv::SetFixMode() {
    if (!isOpen() || mFixMode.manualEnable == 0) return 0;
    const Target target = chooseTarget(ois::textOf(ois::snapshot(mOisCustInfo.mOisIcName)));
    if (target.x == mFixMode.target_x && target.y == mFixMode.target_y) return 0;
    mFixMode.target_x = target.x;
    mFixMode.target_y = target.y;
    const int32_t result = send(ois::command::kSetFixMode, mFixMode);
    OIS_LOG(kInfo, "OIS_SET_FIX_MODE, target_x (%d), target_y (%d)\n", mFixMode.target_x, mFixMode.target_y);
    return result;
}

int32_t OISDrv::GetHall() {
    const int32_t result = send(ois::command::kGetHall, mFixMode);
    OIS_LOG(kInfo,
            "OIS_GET_HALL_AFTER_SET_FIX_MODE, target_x (%d), target_y (%d), hall_x (%d), hall_y (%d)\n",
            mFixMode.target_x, mFixMode.target_y, mFixMode.hall_x, mFixMode.hall_y);
    return result;
}

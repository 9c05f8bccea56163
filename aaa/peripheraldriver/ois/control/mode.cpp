// The working mode.

#include <algorithm>
#include <array>

#include "camera_platform/properties.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using NSCam::Utils::Properties;

namespace {

// Those that the controller knows by number. What they do there is its own affair.
bool isControllerMode(int32_t mode) {
    constexpr std::array<int32_t, 7> kModes = {0, 2, 3, 6, 8, 9, 10};
    return std::find(kModes.begin(), kModes.end(), mode) != kModes.end();
}

// Test drives of the lens.
bool isSineTestMode(int32_t mode) {
    return mode == 5 || mode == 7;
}

}  // namespace

int32_t OISDrv::SetMode(int32_t mode) {
    if (!isOpen() || mode == mOisMode) return 0;
    mOisMode = mode;  // before it is looked at: an unsupported mode is remembered too
    if (isControllerMode(mode)) {
        const int32_t result = sendModeWord(static_cast<uint32_t>(mode));
        OIS_LOG(kDebug, "need update mode %d\n", mode);
        return result;
    }
    if (isSineTestMode(mode)) {
        loadSineParameters();
    } else {
        OIS_LOG(kDebug, "unsupport mode %d\n", mode);
    }
    return 0;
}

// Kept, but no command carries them.
void OISDrv::loadSineParameters() {
    mSineParam.enable = Properties::property_get_int32("vendor.debug.ois.sineEn", 3);
    mSineParam.frequency = Properties::property_get_int32("vendor.debug.ois.sineFre", 1);
    mSineParam.amplitudeX = Properties::property_get_int32("vendor.debug.ois.sineAmpX", 100);
    mSineParam.amplitudeY = Properties::property_get_int32("vendor.debug.ois.sineAmpY", 100);
}

int32_t OISDrv::sendModeWord(uint32_t word) {
    return send(ois::command::kSetMode, word);
}

int32_t OISDrv::EnableOis(int32_t dynamic) {
    if (mIsOisSupport == 0 || !isOpen()) return 0;
    mOisDynamic = dynamic;
    OIS_LOG(kDebug, "mOisDynamic %d", mOisDynamic);
    return 0;
}

int32_t OISDrv::CheckIcStatus() {
    // The hub way does not count as open here.
    return ois::loadShared(fd_driver) >= 1 ? checkStatus() : 0;
}

int32_t OISDrv::checkStatus() {
    uint32_t zero = 0;
    return send(ois::command::kCheckStatus, zero);
}

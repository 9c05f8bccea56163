// Accelerometer compensation, from the distance of what is in focus.

#include <cstdint>

#include "control/acc_distance.h"
#include "control/mode_choice.h"
#include "log.h"
#include "numeric.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::loadShared;

namespace {

constexpr const char* kSetAccParam = "SetAccParam";  // the operation in whose name its steps log

constexpr float kLowestDiopter = 0.1F;
constexpr float kMmPerM = 1000.0F;

// The dead band is a tenth of the distance from a focus value, a twentieth of a measured one.
constexpr int32_t kFocusDivisor = 10;
constexpr int32_t kDistanceDivisor = 20;

// Compensation works near; the limits leave a band in which it stays as it is. In mm.
constexpr int32_t kSwitchOnAtMost = 499;
constexpr int32_t kSwitchOffAtLeast = 601;
constexpr int32_t kUpdateAtLeast = 91;

struct ObjectDistance {
    int32_t mm;
    int32_t deadBandDivisor;
};

ObjectDistance chooseDistance(ois_focus_params& focus) {
    if (focus.distanceValid != 0 && focus.useFocus == 0) return {focus.distance, kDistanceDivisor};
    if (focus.focusDiopter < kLowestDiopter) {
        OIS_LOG_AS(kSetAccParam, kDebug, "invalid focus params (%f)\n",
                   static_cast<double>(focus.focusDiopter));
        focus.focusDiopter = kLowestDiopter;
    }
    return {ois::toInt32(kMmPerM / focus.focusDiopter), kFocusDivisor};
}

bool insideDeadBand(const ObjectDistance& object, uint32_t lastMm) {
    const int32_t change = ois::wrappingSubtract(object.mm, static_cast<int32_t>(lastMm));
    return ois::wrappingAbs(change) < object.mm / object.deadBandDivisor;
}

// Switches compensation by the distance in the record; true when the record is to be sent.
bool decideSwitch(ois_acc_params& params) {
    switch (params.enable) {
        case 1:
            if (params.distance >= kSwitchOffAtLeast) {
                params.enable = 0;
                OIS_LOG_AS(kSetAccParam, kDebug, "turn acc off\n");
                return true;
            }
            if (params.distance < kUpdateAtLeast) return false;
            OIS_LOG_AS(kSetAccParam, kDebug, "common update distance\n");
            return true;
        case 0:
            if (params.distance > kSwitchOnAtMost) return false;
            params.enable = 1;
            OIS_LOG_AS(kSetAccParam, kDebug, "turn acc on\n");
            return true;
        default:
            return false;
    }
}

}  // namespace

int32_t OISDrv::SetAccParam(long focus) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the interface passes the record's address as a number
    auto* record = reinterpret_cast<ois_focus_params*>(focus);
    if (loadShared(mOisCustInfo.accSupport) == 0 || !isOpen() || mOisMode != ois::kModeStill ||
        record == nullptr)
        return 0;
    const ObjectDistance object = chooseDistance(*record);
    if (insideDeadBand(object, mAccParams.lastDistance)) return 0;

    mAccParams.count = 0;
    ois::setAccDistance(mAccParams, object.mm);
    if (!decideSwitch(mAccParams)) return 0;
    const int32_t result = send(ois::command::kUpdateAccParams, mAccParams);
    mAccParams.lastDistance = static_cast<uint32_t>(object.mm);
    return result;
}

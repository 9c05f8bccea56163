// Compensation of what the lens drifts with the position of the autofocus actuator.

#include <cstdint>

#include "log.h"
#include "numeric.h"
#include "ois_drv.h"
#include "shared_field.h"

namespace {

constexpr int32_t kPositionScaledBy64 = 1;  // camera types
constexpr int32_t kPositionPlain = 2;
constexpr int32_t kPositionScale = 64;

}  // namespace

int32_t OISDrv::SetOisAFdriftParams(int32_t AF_position) {
    if (AF_position < 1 || !isOpen() || AF_position == mLastAfPosition) return 0;
    mLastAfPosition = AF_position;  // also when no module wants it
    const int32_t cameraType = ois::loadShared(mOisCustInfo.camera_type);
    if (cameraType != kPositionScaledBy64 && cameraType != kPositionPlain) {
        OIS_LOG(kDebug, "no_AF_drift_compensation: AF_position(%d)\n", AF_position);
        return 0;
    }
    const int32_t scale = cameraType == kPositionScaledBy64 ? kPositionScale : 1;
    auto coded = static_cast<uint16_t>(ois::wrappingMultiply(AF_position, scale));
    const int32_t result = send(ois::command::kSetAfPosition, coded);
    OIS_LOG(kDebug, "AF_drift: AF_position(%d) camera_type(%d)\n", AF_position, cameraType);
    return result;
}

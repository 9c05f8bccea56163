// Gyro offset calibration of a Korva S4SW controller.

#include <unistd.h>

#include <cstdint>

#include "korva/register_access.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::korva::Register;
using ois::korva::RegisterAccess;

namespace {

constexpr uint8_t kStart = 1;
constexpr int kDonePolls = 50;
constexpr useconds_t kDonePollUs = 10000;
constexpr const char* kCalibration = "korvas4sw_set_offset_calibration";

struct GyroOffset {
    int x;
    int y;
};

GyroOffset readOffset(const RegisterAccess& controller, uint32_t valueWord = 0) {
    const int x = controller.read<int16_t>(Register::kGyroOffsetX, valueWord);
    const int y = controller.read<int16_t>(Register::kGyroOffsetY, valueWord);
    return {x, y};
}

// A time-out is no error by itself: the status register decides.
void waitUntilDone(const RegisterAccess& controller) {
    for (int poll = 0; poll < kDonePolls; ++poll) {
        usleep(kDonePollUs);
        OIS_LOG(ois::log::Severity::kDebug, kCalibration, "wait 10ms!\n");
        if (controller.read<uint8_t>(Register::kGyroCalibration, kStart) == 0) return;
    }
    OIS_LOG(ois::log::Severity::kDebug, kCalibration, "wait calibration done timep_err!\n");
}

}  // namespace

int32_t OISDrv::korvas4sw_set_offset_calibration() {
    const RegisterAccess controller(ois::loadShared(mpSensorProvider));
    const GyroOffset before = readOffset(controller);
    OIS_DEBUG("before cal offset (%d %d) return vale (%d)\n", before.x, before.y, 0);
    if (korvas4sw_set_idle() == 0) {
        OIS_DEBUG("invalid ic status, skip calibration\n");
        return 0;
    }

    controller.write8(Register::kGyroCalibration, kStart);
    waitUntilDone(controller);
    const uint8_t status = controller.read<uint8_t>(Register::kStatus);
    if ((status & ois::korva::kCalibrationErrorBits) != 0) {
        OIS_DEBUG("error in gyro offset calibration(%x)\n", status);
        return -1;
    }

    korvas4sw_flash_save();  // its outcome does not change this one
    const GyroOffset after = readOffset(controller, kStart);
    OIS_DEBUG("X after cal offset(%d %d), return value (%d)\n", after.x, after.y, 0);
    OIS_DEBUG("end\n");
    return 0;
}

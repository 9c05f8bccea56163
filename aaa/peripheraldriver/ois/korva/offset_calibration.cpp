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

constexpr int kDonePolls = 50;
constexpr useconds_t kDonePollUs = 10000;
constexpr const char* kCalibration = "korvas4sw_set_offset_calibration";

struct GyroOffset {
    int x;
    int y;
};

GyroOffset readOffset(const RegisterAccess& controller, uint32_t valueWord = 0) {
    const int x = controller.read(Register::kGyroOffsetX, valueWord);
    const int y = controller.read(Register::kGyroOffsetY, valueWord);
    return {x, y};
}

// A time-out is no error by itself: the status register decides.
void waitUntilDone(const RegisterAccess& controller) {
    for (int poll = 0; poll < kDonePolls; ++poll) {
        usleep(kDonePollUs);
        OIS_LOG_AS(kCalibration, kDebug, "wait 10ms!\n");
        if (controller.read(Register::kGyroCalibration, ois::korva::kStart) == 0) return;
    }
    OIS_LOG_AS(kCalibration, kDebug, "wait calibration done timep_err!\n");
}

}  // namespace

int32_t OISDrv::korvas4sw_set_offset_calibration() {
    const RegisterAccess controller = registers();
    const GyroOffset before = readOffset(controller);
    OIS_LOG(kDebug, "before cal offset (%d %d) return vale (%d)\n", before.x, before.y, 0);
    if (korvas4sw_set_idle() == 0) {
        OIS_LOG(kDebug, "invalid ic status, skip calibration\n");
        return 0;
    }

    controller.write(Register::kGyroCalibration, ois::korva::kStart);
    waitUntilDone(controller);
    const uint8_t status = controller.read(Register::kStatus);
    if ((status & ois::korva::kCalibrationErrorBits) != 0) {
        OIS_LOG(kDebug, "error in gyro offset calibration(%x)\n", status);
        return -1;
    }

    korvas4sw_flash_save();  // its outcome does not change this one
    const GyroOffset after = readOffset(controller, ois::korva::kStart);
    OIS_LOG(kDebug, "X after cal offset(%d %d), return value (%d)\n", after.x, after.y, 0);
    OIS_LOG(kDebug, "end\n");
    return 0;
}

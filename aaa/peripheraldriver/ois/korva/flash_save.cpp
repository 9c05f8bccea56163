// Saving a Korva S4SW controller's working data to its flash.

#include <unistd.h>

#include <cstdint>

#include "korva/register_access.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::korva::Register;
using ois::korva::RegisterAccess;

namespace {

constexpr useconds_t kCheckValueUs = 5000;
constexpr useconds_t kBeforeWriteUs = 2000;
constexpr useconds_t kFlashWriteUs = 500000;
constexpr useconds_t kApplyUs = 15000;

// The check value of the flash data that a save must leave as it is. These reads carry the value that was
// written just before them.
uint16_t readOtherFlashCheckValue(const RegisterAccess& controller) {
    controller.write(Register::kFlashCheckRequest, ois::korva::kStart);
    usleep(kCheckValueUs);
    return controller.read(Register::kFlashCheckValue, ois::korva::kStart);
}

}  // namespace

int32_t OISDrv::korvas4sw_flash_save() {
    const RegisterAccess controller = registers();
    const auto savedMode = controller.read(Register::kStabilisationMode);
    // Writes 0 to kControl, and reads kState, every 10 ms and 21 times at most, until it is 1.
    if (korvas4sw_set_idle() == 0) {
        OIS_LOG(kDebug, "invalid ic status, skip calibration\n");
        return 0;
    }
    const uint16_t checkBefore = readOtherFlashCheckValue(controller);
    usleep(kBeforeWriteUs);
    controller.write(Register::kFlashWrite, ois::korva::kStart);
    usleep(kFlashWriteUs);
    if (controller.read(Register::kStatus, ois::korva::kStart) != 0) {
        OIS_LOG(kDebug, "flash write error\n");
        return 0;  // idle, the mode not restored
    }
    OIS_LOG(kDebug, "flash write success\n");

    ois::korva::applySettings(controller);
    usleep(kApplyUs);
    const uint16_t checkAfter = readOtherFlashCheckValue(controller);
    if (checkAfter != checkBefore) {
        OIS_LOG(kDebug, "flash write error, other flash data was rewrite\n");
        return 0;  // likewise
    }
    OIS_LOG(kDebug, "flash write success, other flash data was default\n");
    controller.write(Register::kStabilisationMode, savedMode);
    controller.write(Register::kControl, ois::korva::kControlRestart);
    OIS_LOG(kDebug, "ois flash save success (%d)\n", 0);
    return 0;
}

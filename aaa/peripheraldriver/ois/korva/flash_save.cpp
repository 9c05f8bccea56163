// Saving a Korva S4SW controller's working data to its flash, and the checksum of firmware images.

#include <unistd.h>

#include <array>
#include <cstdint>

#include "korva/register_access.h"
#include "log.h"
#include "ois_drv.h"

using ois::korva::Register;
using ois::korva::RegisterAccess;

namespace {

constexpr uint8_t kStart = 1;
constexpr useconds_t kCheckValueUs = 5000;
constexpr useconds_t kBeforeWriteUs = 2000;
constexpr useconds_t kFlashWriteUs = 500000;
constexpr useconds_t kApplyUs = 15000;

// The check value of the flash data that a save must leave as it is.
uint16_t readOtherFlashCheckValue(const RegisterAccess& controller) {
    controller.write8(Register::kFlashCheckRequest, kStart);
    usleep(kCheckValueUs);
    return controller.read<uint16_t>(Register::kFlashCheckValue, kStart);
}

}  // namespace

int32_t OISDrv::korvas4sw_flash_save() {
    const RegisterAccess controller(mpSensorProvider.get());
    const auto savedMode = controller.read<uint8_t>(Register::kStabilisationMode);
    if (korvas4sw_set_idle() == 0) {
        OIS_DEBUG("invalid ic status, skip calibration\n");
        return 0;
    }
    const uint16_t checkBefore = readOtherFlashCheckValue(controller);
    usleep(kBeforeWriteUs);
    controller.write8(Register::kFlashWrite, kStart);
    usleep(kFlashWriteUs);
    if (controller.read<uint8_t>(Register::kStatus, kStart) != 0) {
        OIS_DEBUG("flash write error\n");
        return 0;  // idle, the mode not restored
    }
    OIS_DEBUG("flash write success\n");

    ois::korva::applySettings(controller);
    usleep(kApplyUs);
    const uint16_t checkAfter = readOtherFlashCheckValue(controller);
    if (checkAfter != checkBefore) {
        OIS_DEBUG("flash write error, other flash data was rewrite\n");
        return 0;  // likewise
    }
    OIS_DEBUG("flash write success, other flash data was default\n");
    controller.write8(Register::kStabilisationMode, savedMode);
    controller.write8(Register::kControl, ois::korva::kControlRestart);
    OIS_DEBUG("ois flash save success (%d)\n", 0);
    return 0;
}

uint16_t OISDrv::korvas4sw_fw_checksum(const void* image, uint16_t size) {
    // Independent lanes, so that the compiler can add many words at a time; the sum wraps, so their order is
    // free.
    constexpr size_t kLanes = 32;
    const auto* bytes = static_cast<const uint8_t*>(image);
    const size_t words = size / sizeof(uint16_t);
    const auto word = [bytes](size_t index) {
        return static_cast<uint16_t>(bytes[2 * index] | (bytes[2 * index + 1] << 8));
    };
    std::array<uint16_t, kLanes> lanes{};
    size_t next = 0;
    for (; next + kLanes <= words; next += kLanes) {
        for (size_t lane = 0; lane < kLanes; ++lane) {
            lanes[lane] = static_cast<uint16_t>(lanes[lane] + word(next + lane));
        }
    }
    uint16_t sum = 0;
    for (const uint16_t lane : lanes) sum = static_cast<uint16_t>(sum + lane);
    for (; next < words; ++next) sum = static_cast<uint16_t>(sum + word(next));
    return sum;
}

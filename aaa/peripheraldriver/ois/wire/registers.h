#pragma once
// Register map of the Korva S4SW controller family, as far as the driver uses it, and the values it writes.

#include <cstdint>

namespace ois::korva {

enum class Register : uint32_t {
    kControl = 0x0000,            // 1 byte: 0 idle request, 1 restart
    kState = 0x0001,              // 1 byte: 1 when idle
    kStabilisationMode = 0x0002,  // 1 byte: 16 on, 5 off
    kFlashWrite = 0x0003,         // 1 byte: 1 starts the flash write
    kStatus = 0x0004,             // 1 byte: error bits of calibration and flash write
    kUpdateStatus = 0x0006,       // 2 bytes: error status of a firmware update
    kImageCheckValue = 0x0008,    // 4 bytes: the image's check value with bit 31 set
    kFlashDownload = 0x000c,      // 1 byte: 117 opens the flash for a download
    kApplyUnlock = 0x000d,        // 1 byte: 1, then
    kApplyCommand = 0x000e,       // 1 byte: 6
    kGyroCalibration = 0x0014,    // 1 byte: 1 starts the offset calibration; 0 when done
    kPidInit = 0x0036,            // 1 byte: PID init value
    kFlashCheckRequest = 0x0060,  // 1 byte: 1 computes the check value of the other flash data
    kFlashCheckValue = 0x0064,    // 2 bytes: that check value
    kFirmwareVersion = 0x00fc,    // 4 bytes
    kGyroOffsetX = 0x0248,        // 2 bytes, signed
    kGyroOffsetY = 0x024a,        // 2 bytes, signed
    kClock = 0x03f0,              // 4 bytes, Hz
    kAccCompensation = 0x0558,    // 1 byte: 1 on, 0 off
    kAccObjectDistance = 0x0588,  // 4 bytes: float32 object distance
};

constexpr uint32_t address(Register reg) {
    return static_cast<uint32_t>(reg);
}

constexpr uint8_t kControlIdle = 0;
constexpr uint8_t kControlRestart = 1;
constexpr uint8_t kStateIdle = 1;
constexpr uint8_t kModeOn = 16;
constexpr uint8_t kModeOff = 5;
constexpr uint8_t kCalibrationErrorBits = 0x23;
constexpr uint8_t kPidInitValue = 0x21;
constexpr uint8_t kApplyUnlockValue = 1;
constexpr uint8_t kApplyCommandValue = 6;
constexpr uint8_t kFlashDownloadOpen = 0x75;
constexpr uint32_t kOldClockHz = 19200000;
constexpr uint32_t kImageCheckValid = 0x80000000;  // bit 31 beside the image's check value
constexpr float kAccDistanceOff = 5000.0F;         // object distance while compensation is off

}  // namespace ois::korva

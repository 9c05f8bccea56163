#pragma once
// Register map of the Korva S4SW controller family, as far as the driver uses it, and the values it writes.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace ois::korva {

// A register's address, with the type of what it holds: so its width and sign are known wherever it is named.
template <typename ValueType>
struct RegisterOf {
    using Value = ValueType;
    static constexpr size_t kWidth = sizeof(Value);  // bytes

    uint32_t address;
};

struct Register {
    static constexpr RegisterOf<uint8_t> kControl{0x0000};            // 0 idle request, 1 restart
    static constexpr RegisterOf<uint8_t> kState{0x0001};              // 1 when idle
    static constexpr RegisterOf<uint8_t> kStabilisationMode{0x0002};  // 16 on, 5 off
    static constexpr RegisterOf<uint8_t> kFlashWrite{0x0003};         // 1 starts the flash write
    static constexpr RegisterOf<uint8_t> kStatus{0x0004};         // error bits of calibration and flash write
    static constexpr RegisterOf<uint16_t> kUpdateStatus{0x0006};  // error status of a firmware update
    static constexpr RegisterOf<uint32_t> kImageCheckValue{
        0x0008};                                                  // the image's check value with bit 31 set
    static constexpr RegisterOf<uint8_t> kFlashDownload{0x000c};  // 117 opens the flash for a download
    // Written 1 and then 6, one directly after the other, at the end of a clock update and of a flash write.
    static constexpr RegisterOf<uint8_t> kApplyUnlock{0x000d};
    static constexpr RegisterOf<uint8_t> kApplyCommand{0x000e};
    static constexpr RegisterOf<uint8_t> kGyroCalibration{
        0x0014};                                            // 1 starts the offset calibration; 0 when done
    static constexpr RegisterOf<uint8_t> kPidInit{0x0036};  // PID init value
    // Written 1, the first makes the controller compute what the second then holds: the check value of the
    // flash data that a flash write must leave alone.
    static constexpr RegisterOf<uint8_t> kFlashCheckRequest{0x0060};
    static constexpr RegisterOf<uint16_t> kFlashCheckValue{0x0064};
    static constexpr RegisterOf<uint32_t> kFirmwareVersion{0x00fc};
    static constexpr RegisterOf<int16_t> kGyroOffsetX{0x0248};
    static constexpr RegisterOf<int16_t> kGyroOffsetY{0x024a};
    static constexpr RegisterOf<uint32_t> kClock{0x03f0};           // Hz
    static constexpr RegisterOf<uint8_t> kAccCompensation{0x0558};  // 1 on, 0 off
    static constexpr RegisterOf<float> kAccObjectDistance{0x0588};  // mm
};

// A register's value as the word of a register access, and back: a float by its bits.
template <typename Value>
constexpr uint32_t toWord(Value value) {
    if constexpr (std::is_same_v<Value, float>)
        return std::bit_cast<uint32_t>(value);
    else
        return static_cast<uint32_t>(value);
}
template <typename Value>
constexpr Value fromWord(uint32_t word) {
    if constexpr (std::is_same_v<Value, float>)
        return std::bit_cast<float>(word);
    else
        return static_cast<Value>(word);
}

template <typename Value>
constexpr uint32_t address(RegisterOf<Value> reg) {
    return reg.address;
}

constexpr uint8_t kControlIdle = 0;
constexpr uint8_t kControlRestart = 1;
constexpr uint8_t kStateIdle = 1;
constexpr uint8_t kModeOn = 16;
constexpr uint8_t kModeOff = 5;
constexpr uint8_t kStart = 1;                    // of what a register starts
constexpr uint8_t kCalibrationErrorBits = 0x23;  // 0x01, 0x02 and 0x20; the others are no errors
constexpr uint8_t kPidInitValue = 0x21;
constexpr uint8_t kApplyUnlockValue = 1;
constexpr uint8_t kApplyCommandValue = 6;
constexpr uint8_t kFlashDownloadOpen = 0x75;
constexpr uint32_t kOldClockHz = 19200000;
constexpr uint32_t kImageCheckValid = 0x80000000;  // bit 31 beside the image's check value
constexpr float kAccDistanceOff = 5000.0F;         // object distance while compensation is off, mm

}  // namespace ois::korva

#pragma once
// The records that travel to and from the OIS controller and belong to the driver (those its callers pass
// stand in ois_drv.h). All little-endian, exactly as on the wire.

#include <cstddef>
#include <cstdint>

namespace ois {

// Coding of per-axis values, named by the module's customisation.
enum GainFormat : uint16_t {
    kGainFloat = 1,
    kGainInteger = 2,
    kGainQ31 = 3,
};

// Per-axis value; which pair counts is up to the gain format.
struct OisGain {
    uint32_t axis;  // 0: X, 1: Y
    uint32_t unused;
    float valueXf;
    float valueYf;
    int32_t valueXi;
    int32_t valueYi;
};
static_assert(sizeof(OisGain) == 24);
static_assert(offsetof(OisGain, axis) == 0);
static_assert(offsetof(OisGain, valueXf) == 8);
static_assert(offsetof(OisGain, valueYf) == 12);
static_assert(offsetof(OisGain, valueXi) == 16);
static_assert(offsetof(OisGain, valueYi) == 20);

// Hall calibration of the lens. The span of an axis is its half of `upperWord` minus its half of `lowerWord`
// (x in the low half, y in the high half).
struct OisHallInfo {
    int32_t centerX;
    int32_t centerY;
    uint32_t upperWord;
    uint32_t lowerWord;
};
static_assert(sizeof(OisHallInfo) == 16);
static_assert(offsetof(OisHallInfo, upperWord) == 8);
static_assert(offsetof(OisHallInfo, lowerWord) == 12);

// Holds the lens at a target; the controller fills the hall position on request. Controller units.
struct OisFixMode {
    int32_t manualEnable;
    int32_t gethall;
    int32_t target_x;
    int32_t target_y;
    int32_t hall_x;
    int32_t hall_y;
};
static_assert(sizeof(OisFixMode) == 24);
static_assert(offsetof(OisFixMode, gethall) == 4);
static_assert(offsetof(OisFixMode, target_x) == 8);
static_assert(offsetof(OisFixMode, target_y) == 12);
static_assert(offsetof(OisFixMode, hall_x) == 16);
static_assert(offsetof(OisFixMode, hall_y) == 20);

// One sample of the controller's state.
struct OisStatusRecord {
    uint8_t chose;  // in: the dump level asked for
    uint8_t reserved0[7];
    uint64_t timestampSeconds;
    uint64_t timestampFraction;  // microseconds
    int16_t gyro_raw_x;
    int16_t gyro_raw_y;
    int16_t gyro_raw_z;
    int16_t acc_raw_x;
    int16_t acc_raw_y;
    int16_t acc_raw_z;
    int16_t gyro_target_x;  // targets: thousandths of the angle unit
    int16_t gyro_target_y;
    int16_t acc_target_x;
    int16_t acc_target_y;
    int16_t hall_x;
    int16_t hall_y;
    int16_t synthetic_x;
    int16_t synthetic_y;
    uint8_t reserved1[4];
};
static_assert(sizeof(OisStatusRecord) == 56);
static_assert(offsetof(OisStatusRecord, timestampSeconds) == 8);
static_assert(offsetof(OisStatusRecord, timestampFraction) == 16);
static_assert(offsetof(OisStatusRecord, gyro_raw_x) == 24);
static_assert(offsetof(OisStatusRecord, acc_raw_x) == 30);
static_assert(offsetof(OisStatusRecord, gyro_target_x) == 36);
static_assert(offsetof(OisStatusRecord, acc_target_x) == 40);
static_assert(offsetof(OisStatusRecord, hall_x) == 44);
static_assert(offsetof(OisStatusRecord, synthetic_x) == 48);

constexpr size_t kFlashDataSize = 1536;

// The controller's flash data area.
struct OisFlashRecord {
    uint32_t length;  // bytes of `data` that count
    uint32_t base;    // flash address of data[0]
    uint8_t data[kFlashDataSize];
};
static_assert(sizeof(OisFlashRecord) == 1544);
static_assert(offsetof(OisFlashRecord, base) == 4);
static_assert(offsetof(OisFlashRecord, data) == 8);

// The module's camera type, which tells the kernel driver which firmware to load.
struct OisCameraType {
    char name[16];
};
static_assert(sizeof(OisCameraType) == 16);

}  // namespace ois

#pragma once
// The records that travel between driver and controller, on either way: those of ois_ioctl.h with the names
// and types that the driver and its callers use. All little-endian, exactly as on the wire.

#include <cstddef>
#include <cstdint>

#include "wire/layout.h"
#include "wire/ois_ioctl.h"

// Angle-based active OIS.
struct ois_act_parameters {
    int32_t enable;  // active OIS state; 2 comes with an angle
    uint32_t angle;  // bits of a float32 angle, or the integer 1 when none applies
};
static_assert(sizeof(ois_act_parameters) == 8);
OIS_FIELD_AT(0, ois_act_parameters, enable, ois_ioc_active_ois, enable);
OIS_FIELD_AT(4, ois_act_parameters, angle, ois_ioc_active_ois, angle);

struct ois_stream_info {
    int32_t notify_stream;  // 1: stream on, 0: stream off
    int32_t reserved;
};
static_assert(sizeof(ois_stream_info) == 8);
OIS_FIELD_AT(0, ois_stream_info, notify_stream, ois_ioc_stream, notify_stream);

// Accelerometer compensation, which corrects the shift of a camera that moves sideways.
struct ois_acc_params {
    uint32_t reserved;
    uint32_t enable;        // 1: on
    uint32_t lastDistance;  // distance last sent, mm
    int32_t distance;       // object distance, mm
    float distanceF;        // the same as a float
    int32_t distanceQ31;    // a sixteenth of the reciprocal distance in metres, Q31
    uint32_t count;
};
static_assert(sizeof(ois_acc_params) == 28);
OIS_FIELD_AT(4, ois_acc_params, enable, ois_ioc_acc_params, enable);
OIS_FIELD_AT(8, ois_acc_params, lastDistance, ois_ioc_acc_params, last_distance);
OIS_FIELD_AT(12, ois_acc_params, distance, ois_ioc_acc_params, distance);
OIS_FIELD_AT(16, ois_acc_params, distanceF, ois_ioc_acc_params, distance_f);
OIS_FIELD_AT(20, ois_acc_params, distanceQ31, ois_ioc_acc_params, distance_q31);
OIS_FIELD_AT(24, ois_acc_params, count, ois_ioc_acc_params, count);

namespace ois {

// How the values of an axis are coded, as the module's customisation says. A value is a fraction; operations
// that read or write one count in 1/10000 of it.
enum GainFormat : uint16_t {
    kGainFloat = OIS_GAIN_FLOAT,      // valueXf and valueYf hold it plainly
    kGainInteger = OIS_GAIN_INTEGER,  // valueXi and valueYi hold it in 1/10000
    kGainQ31 = OIS_GAIN_Q31,          // valueXi and valueYi hold it in units of 2^-31
};
constexpr float kGainUnitsPerOne = 10000.0F;  // of an operation's value, and of kGainInteger
constexpr float kQ31PerOne = 2147483648.0F;
constexpr float kOnePerQ31 = 4.656613e-10F;

// How a hall amplitude, in hall counts per unit of angle, follows from the calibration. These numbers are the
// controllers' own.
constexpr int kHallRangeSteps = 6;  // kGainQ31: hall range * 6 over a tenth of the span
constexpr double kHallSpanUnit = 0.1;
constexpr int32_t kIntegerGainNumerator = 1333;  // kGainInteger: gain * 1333 / 8192
constexpr int32_t kIntegerGainDenominator = 8192;
constexpr float kFloatGainScale = 1000.0F;  // kGainFloat: gain * angle amplitude * 1000

enum Axis : uint32_t {
    kAxisX = OIS_AXIS_X,
    kAxisY = OIS_AXIS_Y,
};

// Values of the axes; which pair counts is up to the gain format.
struct OisGain {
    uint32_t axis;  // Axis
    uint32_t unused;
    float valueXf;
    float valueYf;
    int32_t valueXi;
    int32_t valueYi;
};
static_assert(sizeof(OisGain) == 24);
OIS_FIELD_AT(0, OisGain, axis, ois_ioc_gain, axis);
OIS_FIELD_AT(8, OisGain, valueXf, ois_ioc_gain, value_xf);
OIS_FIELD_AT(12, OisGain, valueYf, ois_ioc_gain, value_yf);
OIS_FIELD_AT(16, OisGain, valueXi, ois_ioc_gain, value_xi);
OIS_FIELD_AT(20, OisGain, valueYi, ois_ioc_gain, value_yi);

// Hall calibration of the lens. The span of an axis is its half of `upperWord` minus its half of `lowerWord`
// (x in the low half, y in the high half).
struct OisHallInfo {
    int32_t centerX;
    int32_t centerY;
    uint32_t upperWord;
    uint32_t lowerWord;
};
static_assert(sizeof(OisHallInfo) == 16);
OIS_FIELD_AT(0, OisHallInfo, centerX, ois_ioc_hall_info, center_x);
OIS_FIELD_AT(4, OisHallInfo, centerY, ois_ioc_hall_info, center_y);
OIS_FIELD_AT(8, OisHallInfo, upperWord, ois_ioc_hall_info, upper_word);
OIS_FIELD_AT(12, OisHallInfo, lowerWord, ois_ioc_hall_info, lower_word);

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
OIS_FIELD_AT(0, OisFixMode, manualEnable, ois_ioc_fix_mode, manual_enable);
OIS_FIELD_AT(4, OisFixMode, gethall, ois_ioc_fix_mode, gethall);
OIS_FIELD_AT(8, OisFixMode, target_x, ois_ioc_fix_mode, target_x);
OIS_FIELD_AT(12, OisFixMode, target_y, ois_ioc_fix_mode, target_y);
OIS_FIELD_AT(16, OisFixMode, hall_x, ois_ioc_fix_mode, hall_x);
OIS_FIELD_AT(20, OisFixMode, hall_y, ois_ioc_fix_mode, hall_y);

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
OIS_FIELD_AT(0, OisStatusRecord, chose, ois_ioc_status, chose);
OIS_FIELD_AT(8, OisStatusRecord, timestampSeconds, ois_ioc_status, timestamp_seconds);
OIS_FIELD_AT(16, OisStatusRecord, timestampFraction, ois_ioc_status, timestamp_fraction);
OIS_FIELD_AT(24, OisStatusRecord, gyro_raw_x, ois_ioc_status, gyro_raw_x);
OIS_FIELD_AT(26, OisStatusRecord, gyro_raw_y, ois_ioc_status, gyro_raw_y);
OIS_FIELD_AT(28, OisStatusRecord, gyro_raw_z, ois_ioc_status, gyro_raw_z);
OIS_FIELD_AT(30, OisStatusRecord, acc_raw_x, ois_ioc_status, acc_raw_x);
OIS_FIELD_AT(32, OisStatusRecord, acc_raw_y, ois_ioc_status, acc_raw_y);
OIS_FIELD_AT(34, OisStatusRecord, acc_raw_z, ois_ioc_status, acc_raw_z);
OIS_FIELD_AT(36, OisStatusRecord, gyro_target_x, ois_ioc_status, gyro_target_x);
OIS_FIELD_AT(38, OisStatusRecord, gyro_target_y, ois_ioc_status, gyro_target_y);
OIS_FIELD_AT(40, OisStatusRecord, acc_target_x, ois_ioc_status, acc_target_x);
OIS_FIELD_AT(42, OisStatusRecord, acc_target_y, ois_ioc_status, acc_target_y);
OIS_FIELD_AT(44, OisStatusRecord, hall_x, ois_ioc_status, hall_x);
OIS_FIELD_AT(46, OisStatusRecord, hall_y, ois_ioc_status, hall_y);
OIS_FIELD_AT(48, OisStatusRecord, synthetic_x, ois_ioc_status, synthetic_x);
OIS_FIELD_AT(50, OisStatusRecord, synthetic_y, ois_ioc_status, synthetic_y);

constexpr size_t kFlashDataSize = OIS_FLASH_DATA_SIZE;

// The controller's flash data area.
struct OisFlashRecord {
    uint32_t length;  // bytes of `data` that count
    uint32_t base;    // flash address of data[0]
    uint8_t data[kFlashDataSize];
};
static_assert(sizeof(OisFlashRecord) == 1544);
OIS_FIELD_AT(0, OisFlashRecord, length, ois_ioc_flash, length);
OIS_FIELD_AT(4, OisFlashRecord, base, ois_ioc_flash, base);
OIS_FIELD_AT(8, OisFlashRecord, data, ois_ioc_flash, data);

// The module's camera type, which tells the kernel driver which firmware to load.
struct OisCameraType {
    char name[OIS_CAMERA_TYPE_SIZE];  // not terminated when full
};
static_assert(sizeof(OisCameraType) == 16 && sizeof(OisCameraType) == sizeof(ois_ioc_camera_type));

}  // namespace ois

#pragma once
// The module's customisation blocks, as the lens customisation library fills them. The first one also goes to
// the kernel, which may change it.

#include <cstddef>
#include <cstdint>

#include "wire/layout.h"
#include "wire/ois_ioctl.h"

namespace ois {

constexpr size_t kCoordinateCapacity = OIS_COORDINATES;
constexpr size_t kDriverNameSize = OIS_NAME_SIZE;

struct OisCustInfo {
    uint16_t gainFormat;             // coding of per-axis values: 1 float, 2 integer, 3 Q31
    uint16_t hallRange;              // hall range of the lens, for gain format 3
    uint16_t accSupport;             // nonzero: accelerometer compensation
    uint16_t accDistance;            // default object distance, mm
    uint16_t actOisSupport;          // 1: angle-based active OIS
    uint16_t zoomActOisSupport;      // nonzero: zoom-triggered active OIS
    uint16_t actuatorDetectSupport;  // nonzero: actuator defect detection
    uint16_t extraParamSupport;      // nonzero: requests carry an extra parameter
    uint16_t camera_type;            // AF-drift coding: 1 position * 64, 2 position
    uint16_t streamOnDelay;          // us to wait after a stream start
    uint8_t reserved0[8];
    uint16_t coordinateNum;  // test coordinates of the defect detector
    uint8_t useSensorHub;    // 0: V4L2 sub-device, else sensor hub
    uint8_t reserved1;
    float angleAmplitude;  // angle unit per lens amplitude
    float max_error_threshold;
    float max_sum_error_threshold;
    float zoomScale;    // zoom factor of the module; 0: none
    float actOisAngle;  // angle sent with active OIS state 2
    uint8_t reserved2[4];
    float coordinateX[kCoordinateCapacity];  // relative to the hall centre
    float coordinateY[kCoordinateCapacity];
    char mOisIcName[OIS_CHIP_NAME_SIZE];        // controller chip
    char cameraTypeName[OIS_CAMERA_TYPE_SIZE];  // camera type, for dump files and firmware
};
static_assert(sizeof(OisCustInfo) == 1704);
OIS_FIELD_AT(0, OisCustInfo, gainFormat, ois_ioc_customisation, gain_format);
OIS_FIELD_AT(2, OisCustInfo, hallRange, ois_ioc_customisation, hall_range);
OIS_FIELD_AT(4, OisCustInfo, accSupport, ois_ioc_customisation, acc_support);
OIS_FIELD_AT(6, OisCustInfo, accDistance, ois_ioc_customisation, acc_distance);
OIS_FIELD_AT(8, OisCustInfo, actOisSupport, ois_ioc_customisation, act_ois_support);
OIS_FIELD_AT(10, OisCustInfo, zoomActOisSupport, ois_ioc_customisation, zoom_act_ois_support);
OIS_FIELD_AT(12, OisCustInfo, actuatorDetectSupport, ois_ioc_customisation, actuator_detect_support);
OIS_FIELD_AT(14, OisCustInfo, extraParamSupport, ois_ioc_customisation, extra_param_support);
OIS_FIELD_AT(16, OisCustInfo, camera_type, ois_ioc_customisation, camera_type);
OIS_FIELD_AT(18, OisCustInfo, streamOnDelay, ois_ioc_customisation, stream_on_delay);
OIS_FIELD_AT(28, OisCustInfo, coordinateNum, ois_ioc_customisation, coordinate_num);
OIS_FIELD_AT(30, OisCustInfo, useSensorHub, ois_ioc_customisation, use_sensor_hub);
OIS_FIELD_AT(32, OisCustInfo, angleAmplitude, ois_ioc_customisation, angle_amplitude);
OIS_FIELD_AT(36, OisCustInfo, max_error_threshold, ois_ioc_customisation, max_error_threshold);
OIS_FIELD_AT(40, OisCustInfo, max_sum_error_threshold, ois_ioc_customisation, max_sum_error_threshold);
OIS_FIELD_AT(44, OisCustInfo, zoomScale, ois_ioc_customisation, zoom_scale);
OIS_FIELD_AT(48, OisCustInfo, actOisAngle, ois_ioc_customisation, act_ois_angle);
OIS_FIELD_AT(56, OisCustInfo, coordinateX, ois_ioc_customisation, coordinate_x);
OIS_FIELD_AT(856, OisCustInfo, coordinateY, ois_ioc_customisation, coordinate_y);
OIS_FIELD_AT(1656, OisCustInfo, mOisIcName, ois_ioc_customisation, ic_name);
OIS_FIELD_AT(1688, OisCustInfo, cameraTypeName, ois_ioc_customisation, camera_type_name);

constexpr size_t kCustExtPlatformSize = 160;  // what the platform fills
constexpr size_t kOtpAddressCount = 82;

// The module's OTP address map: entry by entry the address of a field (otp_fields.h says which). The platform
// fills the first 160 bytes, 80 entries. Entry 80 is read too; it lies in the four bytes that the driver owns
// behind them, which Init clears.
struct OisCustExt {
    uint16_t otpAddress[kOtpAddressCount];
};
static_assert(sizeof(OisCustExt) == kCustExtPlatformSize + 4);

}  // namespace ois

#pragma once
// The module's customisation blocks, as the lens customisation library fills them.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ois {

constexpr size_t kCoordinateCapacity = 200;
constexpr size_t kDriverNameSize = 32;

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
    char mOisIcName[32];      // controller chip
    char cameraTypeName[16];  // camera type, for dump files and firmware
};
static_assert(sizeof(OisCustInfo) == 1704);
static_assert(offsetof(OisCustInfo, gainFormat) == 0);
static_assert(offsetof(OisCustInfo, hallRange) == 2);
static_assert(offsetof(OisCustInfo, accSupport) == 4);
static_assert(offsetof(OisCustInfo, accDistance) == 6);
static_assert(offsetof(OisCustInfo, actOisSupport) == 8);
static_assert(offsetof(OisCustInfo, zoomActOisSupport) == 10);
static_assert(offsetof(OisCustInfo, actuatorDetectSupport) == 12);
static_assert(offsetof(OisCustInfo, extraParamSupport) == 14);
static_assert(offsetof(OisCustInfo, camera_type) == 16);
static_assert(offsetof(OisCustInfo, streamOnDelay) == 18);
static_assert(offsetof(OisCustInfo, coordinateNum) == 28);
static_assert(offsetof(OisCustInfo, useSensorHub) == 30);
static_assert(offsetof(OisCustInfo, angleAmplitude) == 32);
static_assert(offsetof(OisCustInfo, max_error_threshold) == 36);
static_assert(offsetof(OisCustInfo, max_sum_error_threshold) == 40);
static_assert(offsetof(OisCustInfo, zoomScale) == 44);
static_assert(offsetof(OisCustInfo, actOisAngle) == 48);
static_assert(offsetof(OisCustInfo, coordinateX) == 56);
static_assert(offsetof(OisCustInfo, coordinateY) == 856);
static_assert(offsetof(OisCustInfo, mOisIcName) == 1656);
static_assert(offsetof(OisCustInfo, cameraTypeName) == 1688);

// The text in a fixed field, up to its NUL or its end.
template <size_t kSize>
std::string_view textOf(const char (&field)[kSize]) {
    const std::string_view whole(field, kSize);
    return whole.substr(0, whole.find('\0'));
}

constexpr size_t kCustExtPlatformSize = 160;  // what the platform fills
constexpr size_t kOtpAddressCount = 82;

// OTP addresses of the module's calibration fields. The last map entry in use, 80, lies in the four bytes
// that the driver owns behind the platform's 160.
struct OisCustExt {
    uint16_t otpAddress[kOtpAddressCount];
};
static_assert(sizeof(OisCustExt) == kCustExtPlatformSize + 4);

}  // namespace ois

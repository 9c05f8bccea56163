#pragma once
// The private ioctl requests of the OIS sub-device, as a type of their own. The kernel moves as many bytes as
// the code says, whatever length a caller names.

#include <cstdint>

#include "wire/ois_ioctl.h"

namespace ois {

constexpr unsigned kRequestType = 'V';

enum class Request : uint32_t {
    kSetMode = OIS_IOC_SET_MODE,                      // mode word, or a capture value
    kSetGyroOffset = OIS_IOC_SET_GYRO_OFFSET,         // zero word
    kUpdateFirmware = OIS_IOC_UPDATE_FIRMWARE,        // camera type name
    kSetCustomisation = OIS_IOC_SET_CUSTOMISATION,    // OisCustInfo
    kEndSession = OIS_IOC_END_SESSION,                // -1
    kSetAccParams = OIS_IOC_SET_ACC_PARAMS,           // ois_acc_params
    kSetAfPosition = OIS_IOC_SET_AF_POSITION,         // coded AF position
    kOperation18 = OIS_IOC_OPERATION_18,              // zero word
    kWriteGain = OIS_IOC_WRITE_GAIN,                  // OisGain
    kReadGain = OIS_IOC_READ_GAIN,                    // OisGain
    kReadHallInfo = OIS_IOC_READ_HALL_INFO,           // OisHallInfo
    kSetFixMode = OIS_IOC_SET_FIX_MODE,               // OisFixMode
    kNotifyStream = OIS_IOC_NOTIFY_STREAM,            // ois_stream_info
    kCheckStatus = OIS_IOC_CHECK_STATUS,              // zero byte
    kStartEngineering = OIS_IOC_START_ENGINEERING,    // zero byte
    kSetActiveOis = OIS_IOC_SET_ACTIVE_OIS,           // ois_act_parameters
    kGetHall = OIS_IOC_GET_HALL,                      // OisFixMode, hall values filled
    kReadStatus = OIS_IOC_READ_STATUS,                // OisStatusRecord
    kReadFlash = OIS_IOC_READ_FLASH,                  // OisFlashRecord
    kSetZoomActiveOis = OIS_IOC_SET_ZOOM_ACTIVE_OIS,  // on/off word
};

constexpr uint32_t code(Request request) {
    return static_cast<uint32_t>(request);
}
constexpr unsigned sizeOf(Request request) {
    return _IOC_SIZE(code(request));
}

// The numbers that kernel drivers know.
static_assert(code(Request::kSetMode) == 0x400456C2);
static_assert(code(Request::kSetGyroOffset) == 0xC00456C4);
static_assert(code(Request::kUpdateFirmware) == 0xC01056C5);
static_assert(code(Request::kSetCustomisation) == 0xC6A856C7);
static_assert(code(Request::kEndSession) == 0xC00456C8);
static_assert(code(Request::kSetAccParams) == 0xC01C56C9);
static_assert(code(Request::kSetAfPosition) == 0xC00256CA);
static_assert(code(Request::kOperation18) == 0xC00456CD);
static_assert(code(Request::kWriteGain) == 0xC01856CE);
static_assert(code(Request::kReadGain) == 0xC01856D0);
static_assert(code(Request::kReadHallInfo) == 0xC01056D2);
static_assert(code(Request::kSetFixMode) == 0xC01856D4);
static_assert(code(Request::kNotifyStream) == 0xC00856D5);
static_assert(code(Request::kCheckStatus) == 0xC00156D6);
static_assert(code(Request::kStartEngineering) == 0xC00156D7);
static_assert(code(Request::kSetActiveOis) == 0xC00856D8);
static_assert(code(Request::kGetHall) == 0xC01856D9);
static_assert(code(Request::kReadStatus) == 0xC03856DA);
static_assert(code(Request::kReadFlash) == 0xC60856DB);
static_assert(code(Request::kSetZoomActiveOis) == 0xC00456DC);

}  // namespace ois

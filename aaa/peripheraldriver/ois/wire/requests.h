#pragma once
// The private ioctl requests of the OIS sub-device.
//
// Every code is the kernel's own encoding: type 'V', number 192 (the V4L2 private base) plus an index, and
// the size of the record that travels. The kernel moves exactly that many bytes, whatever length a caller
// names.

#include <linux/ioctl.h>
#include <linux/videodev2.h>

#include <cstdint>

namespace ois {

constexpr unsigned kRequestType = 'V';

constexpr uint32_t requestCode(unsigned direction, unsigned index, unsigned size) {
    return static_cast<uint32_t>(_IOC(direction, kRequestType, BASE_VIDIOC_PRIVATE + index, size));
}
constexpr uint32_t writeRequest(unsigned index, unsigned size) {
    return requestCode(_IOC_WRITE, index, size);
}
constexpr uint32_t readWriteRequest(unsigned index, unsigned size) {
    return requestCode(_IOC_READ | _IOC_WRITE, index, size);
}

enum class Request : uint32_t {
    kSetMode = writeRequest(2, 4),                  // mode word, or a capture value
    kSetGyroOffset = readWriteRequest(4, 4),        // zero word
    kUpdateFirmware = readWriteRequest(5, 16),      // camera type name
    kSetCustomisation = readWriteRequest(7, 1704),  // OisCustInfo
    kEndSession = readWriteRequest(8, 4),           // -1 on the sub-device way, 0 on the hub way
    kSetAccParams = readWriteRequest(9, 28),        // ois_acc_params
    kSetAfPosition = readWriteRequest(10, 2),       // coded AF position
    kOperation18 = readWriteRequest(13, 4),         // zero word
    kWriteGain = readWriteRequest(14, 24),          // OisGain
    kReadGain = readWriteRequest(16, 24),           // OisGain
    kReadHallInfo = readWriteRequest(18, 16),       // OisHallInfo
    kSetFixMode = readWriteRequest(20, 24),         // OisFixMode
    kNotifyStream = readWriteRequest(21, 8),        // ois_stream_info
    kCheckStatus = readWriteRequest(22, 1),         // zero byte
    kStartEngineering = readWriteRequest(23, 1),    // zero byte; always a bare ioctl
    kSetActiveOis = readWriteRequest(24, 8),        // ois_act_parameters
    kGetHall = readWriteRequest(25, 24),            // OisFixMode, hall values filled
    kReadStatus = readWriteRequest(26, 56),         // OisStatusRecord
    kReadFlash = readWriteRequest(27, 1544),        // OisFlashRecord
    kSetZoomActiveOis = readWriteRequest(28, 4),    // on/off word; always a bare ioctl
};

constexpr uint32_t code(Request request) {
    return static_cast<uint32_t>(request);
}
constexpr unsigned sizeOf(Request request) {
    return _IOC_SIZE(code(request));
}

// The numbers that the kernel driver knows.
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

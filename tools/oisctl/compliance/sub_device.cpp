#include "compliance/sub_device.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "trace/decode.h"

namespace oisctl {

using ois::Request;

bool requestWritesCalibration(uint32_t request) {
    for (const Request writing : {Request::kSetGyroOffset, Request::kUpdateFirmware, Request::kWriteGain})
        if (_IOC_NR(request) == _IOC_NR(ois::code(writing))) return true;
    return false;
}

SubDevice::SubDevice(const Subject& subject)
    : mAllowWrite(subject.allowWrite), mDescriptor(::open(subject.node.c_str(), O_RDWR | O_CLOEXEC)) {
    if (mDescriptor < 0) throw NodeLost{errno, "open"};
}

SubDevice::~SubDevice() {
    close();
}

int32_t SubDevice::ask(uint32_t request, std::span<std::byte> record) const {
    std::vector<std::byte> roomy(record.begin(), record.end());
    roomy.resize(record.size() + kSlack);
    const int32_t result = askAt(request, roomy.data());
    std::copy_n(roomy.begin(), record.size(), record.begin());
    return result;
}

int32_t SubDevice::askAt(uint32_t request, void* record) const {
    if (requestWritesCalibration(request) && !mAllowWrite)
        throw std::logic_error("a request that writes calibration was about to be sent unasked");
    const int result = ioctl(mDescriptor, static_cast<unsigned long>(request), record);
    if (result >= 0) return result;
    const int error = errno;
    if (error == ENODEV) throw NodeLost{error, "ioctl"};
    return -error;
}

int32_t SubDevice::close() {
    if (mDescriptor < 0) return 0;
    const int result = ::close(mDescriptor);
    const int error = errno;
    mDescriptor = -1;
    return result == 0 ? 0 : -error;
}

std::string resultText(int32_t result) {
    return result >= 0 ? std::to_string(result) : phone::errorName(-result);
}

}  // namespace oisctl

// Every command to the controller passes here: by ioctl to the sub-device, or as a record to the sensor hub.

#include <sys/ioctl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::loadShared;

bool OISDrv::isOpen() const {
    return loadShared(fd_driver) >= 1 || loadShared(mSensorHubEnabled) != 0;
}

int32_t OISDrv::ConfigOisTransfer(uint32_t request, int32_t commandId, void* in, void* out, int32_t inLength,
                                  int32_t outLength) {
    int32_t result = 0;
    if (loadShared(mOisCustInfo.useSensorHub) == 0 || loadShared(mSensorHubEnabled) == 0) {
        result = subDeviceTransfer(request, in);
    } else if (loadShared(mUseCustomCmd) != 0) {
        CustomCmdPackage(commandId, in, out, inLength, outLength);
    } else {
        KorvaCmdParse(commandId, in, out, inLength, outLength);
    }
    OIS_LOG(kDebug, "ConfigOisTransfer oisMode: %d   \n", commandId);
    return result;
}

// 0 also when nothing is open: callers cannot tell that from success.
int32_t OISDrv::subDeviceTransfer(uint32_t request, void* record) const {
    const int32_t descriptor = loadShared(fd_driver);
    return descriptor >= 1 ? ioctl(descriptor, request, record) : 0;
}

void OISDrv::ioctlSubDevice(ois::Request request, void* record) const {
    ioctl(loadShared(fd_driver), ois::code(request), record);
}

int32_t OISDrv::CustomCmdPackage(int32_t commandId, void* in, void* out, int32_t inLength,
                                 int32_t outLength) {
    ois::OisCustomCmd command{};
    command.id = static_cast<uint8_t>(commandId);
    if (in == nullptr || inLength == 0) {
        OIS_LOG(kError, "WrData OR WrLens ERROR");
        return 0;
    }
    if (inLength < 0 || static_cast<size_t>(inLength) > ois::kHubPayloadSize) std::abort();
    std::memcpy(command.payload, in, static_cast<size_t>(inLength));
    command.inputLength = static_cast<uint8_t>(inLength);
    command.outputLength = static_cast<uint8_t>(outLength);
    const bool sent = sendToHub(command);
    // What the hub did not answer is still the input, and is copied all the same. No more than the payload is
    // there to be copied, whatever the caller asks for.
    if (sent && out != nullptr && outLength > 0) {
        std::memcpy(out, command.payload, std::min(static_cast<size_t>(outLength), ois::kHubPayloadSize));
    }
    return 0;
}

// The hub's result is not looked at.
bool OISDrv::sendToHub(ois::OisCustomCmd& record) const {
    // A worker that outlives the session keeps the provider for as long as its command takes.
    const auto provider = loadShared(mpSensorProvider);
    if (!provider) return false;
    provider->customCmd(ois::kOisSensorType, &record);
    return true;
}

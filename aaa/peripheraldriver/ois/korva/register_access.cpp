// Register access of the Korva family through the sensor hub. The hub's results are not looked at: a lost
// command only shows in what is read back.

#include "korva/register_access.h"

#include <unistd.h>

#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

namespace ois::korva {

void RegisterAccess::disableBypass() const {
    send(command::kDisableBypass, {});
}

int32_t RegisterAccess::firmware(FirmwareOp op, uint32_t argument1, uint32_t argument2) const {
    return send(command::kFirmware, {op, argument1, argument2});
}

void initPid(const RegisterAccess& controller) {
    constexpr useconds_t kSettleUs = 200000;
    controller.write(Register::kPidInit, kPidInitValue);
    usleep(kSettleUs);
    const int value = controller.read(Register::kPidInit, kPidInitValue);
    OIS_ANDROID_LOG(DEBUG, "current init pid %d", value);
}

void applySettings(const RegisterAccess& controller) {
    controller.write(Register::kApplyUnlock, kApplyUnlockValue);
    controller.write(Register::kApplyCommand, kApplyCommandValue);
}

}  // namespace ois::korva

ois::korva::RegisterAccess OISDrv::registers() const {
    return ois::korva::RegisterAccess(ois::loadShared(mpSensorProvider));
}

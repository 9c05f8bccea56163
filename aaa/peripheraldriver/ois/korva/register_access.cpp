// Register access of the Korva family through the sensor hub. The hub's results are not looked at: a lost
// command only shows in what is read back.

#include "korva/register_access.h"

#include <unistd.h>

#include "android/log.h"
#include "log.h"

namespace ois::korva {

void RegisterAccess::disableBypass() const {
    constexpr uint32_t kNoWords[3] = {};
    send(HubCommand::kKorvaBypassDisable, kNoWords);
}

void RegisterAccess::write8(Register reg, uint8_t value) const {
    send(HubCommand::kKorvaWriteReg, HubRegisterAccess{address(reg), sizeof value, value});
}

void RegisterAccess::write32(Register reg, uint32_t value) const {
    send(HubCommand::kKorvaWriteReg, HubRegisterAccess{address(reg), sizeof value, value});
}

int32_t RegisterAccess::firmware(FirmwareOp op, uint32_t argument1, uint32_t argument2) const {
    return send(HubCommand::kKorvaFwCmd, HubFirmwareCommand{op, argument1, argument2});
}

void initPid(const RegisterAccess& controller) {
    constexpr useconds_t kSettleUs = 200000;
    controller.write8(Register::kPidInit, kPidInitValue);
    usleep(kSettleUs);
    const int value = controller.read<uint8_t>(Register::kPidInit, kPidInitValue);
    __android_log_print(ANDROID_LOG_DEBUG, log::kTag, "current init pid %d", value);
}

void applySettings(const RegisterAccess& controller) {
    controller.write8(Register::kApplyUnlock, kApplyUnlockValue);
    controller.write8(Register::kApplyCommand, kApplyCommandValue);
}

}  // namespace ois::korva

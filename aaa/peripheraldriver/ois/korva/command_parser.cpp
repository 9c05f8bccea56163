// Commands of the driver as register accesses of a Korva S4SW controller, and the family's simple commands.

#include <unistd.h>

#include <bit>
#include <cstdint>
#include <cstring>

#include "korva/register_access.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::HubCommand;
using ois::korva::Register;
using ois::korva::RegisterAccess;

namespace {

constexpr useconds_t kBypassSettleUs = 2000;
constexpr useconds_t kAccEnableSettleUs = 2000;
constexpr useconds_t kIdleRequestUs = 2000;
constexpr useconds_t kIdlePollUs = 10000;
constexpr int kIdlePolls = 20;

}  // namespace

int32_t OISDrv::KorvaCmdParse(int32_t commandId, void* in, void* out, int32_t inLength, int32_t outLength) {
    switch (commandId) {
        case ois::id(HubCommand::kSetMode): {
            if (in == nullptr) return 0;
            int32_t mode = 0;
            std::memcpy(&mode, in, sizeof mode);
            registers().disableBypass();
            korvas4sw_set_mode(mode);
            return 0;
        }
        case ois::id(HubCommand::kSetAccParams):
            registers().disableBypass();
            usleep(kBypassSettleUs);
            korvas4sw_set_acc(&mAccParams);  // the member, whatever the caller passed
            return 0;
        case ois::id(HubCommand::kSetGyroOffset):
            return korvas4sw_set_offset_calibration();
        case ois::id(HubCommand::kKorvaBypassDisable):
            registers().disableBypass();
            return 0;
        default:
            CustomCmdPackage(commandId, in, out, inLength, outLength);
            OIS_LOG(kDebug, "bypass disable not support:%d   \n", commandId);
            return 0;
    }
}

int32_t OISDrv::korvas4sw_set_mode(int32_t on) {
    const uint8_t mode = on != 0 ? ois::korva::kModeOn : ois::korva::kModeOff;
    registers().write(Register::kStabilisationMode, mode);
    OIS_LOG(kDebug, "change mode expmode:%d \n", mode);
    return 0;
}

int32_t OISDrv::korvas4sw_set_acc(ois_acc_params* params) {
    const RegisterAccess controller = registers();
    const bool enable = params->enable != 0;
    controller.write(Register::kAccCompensation, enable ? 1 : 0);
    usleep(kAccEnableSettleUs);
    // The distance comes from the member, not through `params`.
    const float distance = enable ? mAccParams.distanceF : ois::korva::kAccDistanceOff;
    controller.write(Register::kAccObjectDistance, distance);
    OIS_LOG(kDebug, "change mode expmode:%d \n", 0);  // the mode's message, always with 0
    return 0;
}

int32_t OISDrv::korvas4sw_set_idle() {
    const RegisterAccess controller = registers();
    controller.write(Register::kControl, ois::korva::kControlIdle);
    usleep(kIdleRequestUs);
    int state = controller.read(Register::kState);
    for (int poll = 0; poll < kIdlePolls; ++poll) {
        if (state == ois::korva::kStateIdle) {
            OIS_ANDROID_LOG(DEBUG, "state (%d)\n", state);
            return 1;
        }
        usleep(kIdlePollUs);
        state = controller.read(Register::kState);
    }
    // Also when the last read found the controller idle.
    OIS_ANDROID_LOG(DEBUG, "retry timep_err, state (%d)\n", state);
    OIS_ANDROID_LOG(DEBUG, "state (%d)\n", state);
    return state == ois::korva::kStateIdle ? 1 : 0;
}

int32_t OISDrv::korvas4sw_init_pid() {
    ois::korva::initPid(registers());
    return 0;
}

// The family's simple commands: mode, acceleration, idle and PID init.

#include <unistd.h>

#include <cstdint>

#include "korva/register_access.h"
#include "log.h"
#include "ois_drv.h"

using ois::korva::Register;
using ois::korva::RegisterAccess;

namespace {

constexpr useconds_t kAccEnableSettleUs = 2000;
constexpr useconds_t kIdleRequestUs = 2000;
constexpr useconds_t kIdlePollUs = 10000;
constexpr int kIdlePolls = 20;

}  // namespace

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

// Commands of the driver as register accesses of a Korva S4SW controller.

#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "korva/register_access.h"
#include "log.h"
#include "ois_drv.h"

using ois::HubCommand;

namespace {

constexpr useconds_t kBypassSettleUs = 2000;

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

// The lens customisation library, answered from the modules fitted to the current phone.

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "camera_platform/lens_customisation.h"
#include "entry/phone_in_use.h"
#include "modules/module_description.h"
#include "wire/customisation.h"

namespace {

struct Answer {
    int32_t supported = 0;
    int32_t status = 0;
    char driverName[ois::kDriverNameSize]{};
    ois::OisCustInfo custInfo{};
    std::array<uint16_t, ois::kCustExtPlatformSize / 2> otpAddresses{};
};

Answer answerFor(const phone::ModuleDescription& module) {
    Answer answer;
    answer.supported = module.hasOis ? 1 : 0;
    answer.status = module.status;
    // A name that fills the field has no NUL.
    const size_t length = std::min(module.driverName.size(), sizeof answer.driverName);
    std::memcpy(answer.driverName, module.driverName.data(), length);
    answer.custInfo = module.custInfo;
    answer.otpAddresses = module.otpAddresses;
    return answer;
}

}  // namespace

int32_t GetOisDriverName(int32_t sensorDev, int32_t sensorId, int32_t moduleId, int32_t* status,
                         char* driverName, void* custInfo, void* custExt) {
    const phone::PhoneInUse phone;
    if (phone) phone->clock().enter();
    const phone::ModuleDescription* module = phone ? phone->module(sensorDev) : nullptr;
    phone::Fate fate;
    if (phone) fate = phone->faults().consult(phone::FaultPoint::kCustomisation);
    const Answer answer = fate.fails() || module == nullptr ? Answer{} : answerFor(*module);

    if (!fate.fails()) {
        if (status != nullptr) *status = answer.status;
        if (driverName != nullptr) std::memcpy(driverName, answer.driverName, sizeof answer.driverName);
        if (custInfo != nullptr) std::memcpy(custInfo, &answer.custInfo, sizeof answer.custInfo);
        if (custExt != nullptr) std::memcpy(custExt, answer.otpAddresses.data(), sizeof answer.otpAddresses);
    }

    if (phone && phone->trace().enabled()) {
        phone->trace().record({.kind = phone::EventKind::kCustomisation,
                               .name = "GetOisDriverName",
                               .fields = {{"sensor_dev", int64_t{sensorDev}},
                                          {"sensor_id", int64_t{sensorId}},
                                          {"module_id", int64_t{moduleId}},
                                          {"module", module == nullptr ? std::string("none") : module->name},
                                          {"driver_name", std::string(ois::textOf(answer.driverName))}},
                               .result = answer.supported,
                               .fault = fate.fault()});
    }
    return answer.supported;
}

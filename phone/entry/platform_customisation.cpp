// The lens customisation library, answered from the modules fitted to the current phone.

#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "camera_platform/lens_customisation.h"
#include "entry/phone_in_use.h"
#include "modules/module_description.h"
#include "wire/customisation.h"

namespace {

// The blocks, one behind the other.
std::vector<uint8_t> bytesOf(const phone::ModuleDescription& module) {
    const auto bytes = [](const auto& block) {
        const auto* first = reinterpret_cast<const uint8_t*>(&block);
        return std::span(first, sizeof block);
    };
    std::vector<uint8_t> all;
    for (const auto block : {bytes(module.custInfo), bytes(module.otpAddresses)})
        all.insert(all.end(), block.begin(), block.end());
    return all;
}

}  // namespace

int32_t GetOisDriverName(int32_t sensorDev, int32_t sensorId, int32_t moduleId, int32_t* status,
                         char* driverName, void* custInfo, void* custExt) {
    const phone::PhoneInUse phone;
    if (phone) phone->clock().enter();
    phone::Fate fate;
    if (phone) fate = phone->faults().consult(phone::FaultPoint::kCustomisation);
    const phone::ModuleDescription* module = phone ? phone->module(sensorDev) : nullptr;
    const bool known = module != nullptr && !fate.fails();
    const phone::ModuleDescription answer = known ? *module : phone::ModuleDescription{};
    const int32_t supported = known && answer.hasOis ? 1 : 0;

    if (!fate.fails()) {
        if (status != nullptr) *status = answer.status;
        // A name that fills the field has no NUL.
        if (driverName != nullptr) std::strncpy(driverName, answer.driverName.c_str(), ois::kDriverNameSize);
        if (custInfo != nullptr) std::memcpy(custInfo, &answer.custInfo, sizeof answer.custInfo);
        if (custExt != nullptr) std::memcpy(custExt, answer.otpAddresses.data(), sizeof answer.otpAddresses);
    }

    if (phone && phone->trace().enabled()) {
        const bool answered = !fate.fails();
        phone->trace().record(
            {.kind = phone::EventKind::kCustomisation,
             .name = "GetOisDriverName",
             .received = answered ? bytesOf(answer) : std::vector<uint8_t>{},
             .fields = {{"sensor_dev", int64_t{sensorDev}},
                        {"sensor_id", int64_t{sensorId}},
                        {"module_id", int64_t{moduleId}}},
             .answer = {{"status", int64_t{answer.status}}, {"driver_name", answer.driverName}},
             .result = supported,
             .fault = fate.fault()});
    }
    return supported;
}

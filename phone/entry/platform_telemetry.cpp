// The telemetry service's interface and the HIDL types of its reports.

#include "entry/phone_in_use.h"
#include "hidl/HidlSupport.h"
#include "services/telemetry.h"
#include "vendor/quor/hardware/ruvex/1.0/IRuvex.h"

namespace android::hardware {

hidl_string::hidl_string(const char* text) : mText(text) {}
hidl_string::hidl_string(const std::string& text) : mText(text) {}
const char* hidl_string::c_str() const {
    return mText.c_str();
}
size_t hidl_string::size() const {
    return mText.size();
}

}  // namespace android::hardware

namespace vendor::quor::hardware::ruvex::V1_0 {

android::sp<IRuvex> IRuvex::getService(const std::string& serviceName, bool getStub) {
    const phone::PhoneInUse phone;
    return phone ? phone->telemetry().lookUp(serviceName, getStub) : android::sp<IRuvex>();
}

void IRuvex::incStrong(const void* /*id*/) const {
    mStrongCount.fetch_add(1, std::memory_order_relaxed);
}

void IRuvex::decStrong(const void* /*id*/) const {
    if (mStrongCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

}  // namespace vendor::quor::hardware::ruvex::V1_0

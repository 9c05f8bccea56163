// The report to the phone's telemetry service at the end of a session behind the sensor hub.

#include <cstdio>
#include <string_view>

#include "camera_platform/properties.h"
#include "log.h"
#include "ois_drv.h"
#include "vendor/quor/hardware/ruvex/1.0/IRuvex.h"

using android::hardware::hidl_string;
using NSCam::Utils::Properties;
using vendor::quor::hardware::ruvex::V1_0::IRuvex;

namespace {

constexpr const char* kModuleId = "N87";
constexpr const char* kEventId = "N87|10014";
constexpr size_t kTextSize = 256;
constexpr std::string_view kRegionWithoutReport = "IN";

}  // namespace

int32_t OISDrv::GetDataRuvex() {
    const android::sp<IRuvex> service = IRuvex::getService("default", false);
    char region[kTextSize] = {};
    Properties::property_get("ro.product.country.region", region, "N");
    if (std::string_view(region) == kRegionWithoutReport) {
        OIS_LOG(kDebug, "IN not get  to ruvex");
    } else if (service) {
        char content[kTextSize] = {};
        std::snprintf(content, sizeof content, "c_ois_error:%d", mOisErrorFlag);
        service->report(hidl_string(kModuleId), hidl_string(kEventId), hidl_string(content));
    } else {
        OIS_LOG(kError, "Failed to get RuVex service");
    }
    return 0;
}

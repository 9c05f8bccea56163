// The debug switches that hold from one Init to the next.

#include "camera_platform/properties.h"

#include "ois_drv.h"
#include "shared_field.h"

using ois::storeShared;

namespace {

using NSCam::Utils::Properties;

uint8_t readSwitch(const char* key) {
    return Properties::property_get_bool(key, false) ? 1 : 0;
}

// A byte member keeps the low byte of the property.
uint8_t readByte(const char* key, int32_t defaultValue) {
    return static_cast<uint8_t>(Properties::property_get_int32(key, defaultValue));
}

}  // namespace

void OISDrv::readProperties() {
    storeShared(mProperty.manual, readSwitch("vendor.debug.ois.mode"));
    storeShared(mProperty.dump, readByte("vendor.debug.ois.dump", 0));
    storeShared(mProperty.dumpIntervalTime, readByte("vendor.debug.ois.dump.interval.time", 4));
    storeShared(mProperty.dumpLevel, readByte("vendor.debug.ois.dump.level", 15));
    // The property's name is spelt this way on the phones.
    storeShared(mProperty.actuatorDetect, readSwitch("vendor.debug.ois.actuator.dectect"));
    storeShared(mProperty.statusCheck, readSwitch("vendor.debug.ois.status.check"));
    storeShared(mProperty.actOis, readSwitch("vendor.debug.ois.actois"));
    storeShared(mFixMode.manualEnable, readSwitch("vendor.debug.ois.fixmode"));
    // Its default is what the module reports, so the property can switch OIS off but never on.
    mIsOisSupport = Properties::property_get_int32("vendor.debug.ois.disable", mIsOisSupport);
    storeShared(mUseCustomCmd, readByte("vendor.debug.ois.bypassen", 1));
    storeShared(logLevel, readByte("vendor.debug.ois.loglevel", 0));
}

// The platform's way to a sensor provider, answered by the current phone's hub.

#include "camera_platform/sensor_provider.h"
#include "entry/phone_in_use.h"
#include "hub/sensor_hub.h"

std::shared_ptr<NSCam::Utils::SensorProvider> NSCam::Utils::SensorProvider::createInstance(
    const char* userName) {
    const phone::PhoneInUse phone;
    return phone ? phone->hub().createProvider(userName) : nullptr;
}

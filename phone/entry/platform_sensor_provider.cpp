// The platform's way to a sensor provider, answered by the current phone's hub.

#include "camera_platform/sensor_provider.h"
#include "hub/sensor_hub.h"
#include "phone.h"

std::shared_ptr<NSCam::Utils::SensorProvider> NSCam::Utils::SensorProvider::createInstance(
    const char* userName) {
    phone::Phone* phone = phone::Phone::current();
    return phone == nullptr ? nullptr : phone->hub().createProvider(userName);
}

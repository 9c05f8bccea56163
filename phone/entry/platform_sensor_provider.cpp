// The platform's way to a sensor provider, answered by the current phone's hub.

#include "camera_platform/sensor_provider.h"
#include "hub/sensor_hub.h"
#include "phone.h"

std::shared_ptr<NSCam::Utils::SensorProvider> NSCam::Utils::SensorProvider::createInstance(
    const char* userName) {
    const phone::Phone::Use phone;
    return phone ? phone->hub().createProvider(userName) : nullptr;
}

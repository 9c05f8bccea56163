#pragma once
// The platform that the benchmarks give the driver: every call is answered at next to no cost, so that what
// is measured is the driver. It also stands in for a few libc calls (see platform.cpp).

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "camera_platform/sensor_provider.h"
#include "ois_drv.h"

namespace bench {

// Sensor positions: which way leads to the controller there.
constexpr int32_t kSubDeviceSensor = 0;
constexpr int32_t kHubSensor = 1;

// An open driver; closed at the end.
class OpenDriver {
  public:
    // `descriptor` takes the place of the controller's sub-device; it is closed with the driver.
    static OpenDriver onSubDevice(int descriptor) { return OpenDriver(kSubDeviceSensor, descriptor); }
    static OpenDriver onHub() { return OpenDriver(kHubSensor, -1); }
    ~OpenDriver();
    OpenDriver(const OpenDriver&) = delete;
    OpenDriver& operator=(const OpenDriver&) = delete;
    OISDrv* operator->() const { return mDriver; }

  private:
    OpenDriver(int32_t sensorDev, int descriptor);
    OISDrv* mDriver;
};

// A descriptor on which the machine's own kernel refuses every private request, as cheap as a request can be.
int kernelDescriptor();
// A descriptor whose requests never reach a kernel: `handler` sees their records.
int handledDescriptor(std::function<void(void* record)> handler);

// Allocations of this process so far, of any kind.
uint64_t allocations();

// Where the driver's files go: a folder on a memory file system, removed at the end.
const std::string& folder();

// What the next getAllSensorData hands over.
std::vector<NSCam::Utils::SensorData>& queuedSamples();

enum class Messages { kOff, kInfoToUnifiedLogger };
void setMessages(Messages messages);

}  // namespace bench

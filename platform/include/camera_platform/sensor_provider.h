#pragma once
// The phone's sensor service as the camera process sees it. Declarations only; the phone provides the code.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace NSCam::Utils {

enum eSensorType : int32_t {
    SENSOR_TYPE_OIS = 8,  // the OIS channel: motion samples from, and commands to, the OIS controller
};

// One motion sample of a channel.
struct SensorData {
    uint8_t reserved0[108];
    float values[6];  // three pairs; their meaning is the sensor hub's
    uint8_t reserved1[172];
    int64_t timestamp;  // nanoseconds
};
static_assert(sizeof(SensorData) == 312);
static_assert(offsetof(SensorData, values) == 108);
static_assert(offsetof(SensorData, timestamp) == 304);

class SensorProvider {
  public:
    // A handle on the sensor service for the named user; empty on failure.
    static std::shared_ptr<SensorProvider> createInstance(const char* userName);

    virtual ~SensorProvider() = default;
    virtual bool enableSensor(eSensorType type, uint32_t intervalMs) = 0;
    virtual bool isEnabled(eSensorType type) = 0;
    // -1 on failure.
    virtual int32_t disableSensor(eSensorType type) = 0;
    // Moves all queued samples of the channel into `samples`.
    virtual bool getAllSensorData(eSensorType type, std::vector<SensorData>& samples) = 0;
    // Sends one 64-byte record to the sensor hub; the hub answers in place.
    virtual int32_t customCmd(eSensorType type, void* record) = 0;
};

}  // namespace NSCam::Utils

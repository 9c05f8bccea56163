// What the driver's library asks of the phone's platform, and what it is answered: customisation, properties,
// and the way to the sensor hub.

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "camera_platform/lens_customisation.h"
#include "camera_platform/properties.h"
#include "camera_platform/sensor_provider.h"
#include "driver.h"
#include "next.h"
#include "trace.h"
#include "wire/customisation.h"
#include "wire/hub_commands.h"

namespace spy {

namespace {

using NSCam::Utils::eSensorType;
using NSCam::Utils::SensorData;
using NSCam::Utils::SensorProvider;
using Provider = std::shared_ptr<SensorProvider>;

constinit Next<int32_t(int32_t, int32_t, int32_t, int32_t*, char*, void*, void*)> gDriverName(
    "GetOisDriverName");
constinit Next<int32_t(const char*, int32_t)> gNumber("_ZN5NSCam5Utils10Properties18property_get_int32EPKci");
constinit Next<bool(const char*, bool)> gSwitch("_ZN5NSCam5Utils10Properties17property_get_boolEPKcb");
constinit Next<int32_t(const char*, char*, const char*)> gText(
    "_ZN5NSCam5Utils10Properties12property_getEPKcPcS3_");
constinit Next<Provider(const char*)> gCreateProvider("_ZN5NSCam5Utils14SensorProvider14createInstanceEPKc");

// --- Properties. Of all that a process reads, those count that the driver reads.

using PropertyLine = Line<4096>;

template <typename Value>
Value noteProperty(const char* key, const char* type, Value byDefault, Value value) {
    if (inDriver() && wanted()) {
        PropertyLine line("property", key);
        line.open("fields").word("type", type).number("default", int64_t{byDefault}).close();
        line.result(int64_t{value}).record();
    }
    return value;
}

// --- The hub.

// What the platform does when it is asked.
template <typename Ask>
auto asked(Ask ask) {
    const OutOfDriver out;
    return ask();
}

// The bytes of a record, which may stand anywhere.
using HubRecord = std::array<uint8_t, sizeof(ois::OisCustomCmd)>;
HubRecord hubRecord(const void* record) {
    HubRecord copy;
    std::memcpy(copy.data(), record, copy.size());
    return copy;
}

// The driver's handle on the hub, and what passes through it. On another platform's class, which may have
// more operations, these are to be passed on as well.
class SpiedProvider final : public SensorProvider {
  public:
    explicit SpiedProvider(Provider provider) : mProvider(std::move(provider)) {}
    ~SpiedProvider() override { Line<64>("sensor", "release").record(); }
    SpiedProvider(const SpiedProvider&) = delete;
    SpiedProvider& operator=(const SpiedProvider&) = delete;

    bool enableSensor(eSensorType type, uint32_t intervalMs) override {
        const bool enabled = asked([&] { return mProvider->enableSensor(type, intervalMs); });
        if (enabled) mBringUp = true;
        Line<256> line("sensor", "enableSensor");
        line.open("fields").number("type", int32_t{type}).number("interval_ms", intervalMs).close();
        line.result(enabled ? 1 : 0).record();
        return enabled;
    }

    bool isEnabled(eSensorType type) override {
        const bool enabled = asked([&] { return mProvider->isEnabled(type); });
        note("isEnabled", type, enabled ? 1 : 0);
        return enabled;
    }

    int32_t disableSensor(eSensorType type) override {
        const int32_t result = asked([&] { return mProvider->disableSensor(type); });
        if (result == 0) mBringUp = false;
        note("disableSensor", type, result);
        return result;
    }

    bool getAllSensorData(eSensorType type, std::vector<SensorData>& samples) override {
        const bool drained = asked([&] { return mProvider->getAllSensorData(type, samples); });
        Line<256> line("sensor", "getAllSensorData");
        line.open("fields").number("type", int32_t{type}).number("samples", samples.size()).close();
        const auto* const bytes = reinterpret_cast<const uint8_t*>(samples.data());
        line.result(drained ? 1 : 0).record({}, {bytes, samples.size() * sizeof(SensorData)});
        return drained;
    }

    int32_t customCmd(eSensorType type, void* record) override {
        const HubRecord sent = hubRecord(record);
        constexpr auto kInit = static_cast<uint8_t>(ois::HubCommand::kInit);
        const uint8_t id = sent[offsetof(ois::OisCustomCmd, id)];
        // The first after the channel was enabled; its bytes may be those of another command.
        const bool bringUp = id == kInit && mBringUp.exchange(false);
        const int64_t beganNs = nowNs();
        const int32_t result = asked([&] { return mProvider->customCmd(type, record); });
        Line<256> line("hub");
        line.took(beganNs);
        line.number("code", id).word("phase", bringUp ? "bring-up" : "running").number("result", result);
        if (result < 0) line.error(-result);
        const HubRecord answered = hubRecord(record);
        line.record(sent, std::span(answered).first(result < 0 ? 0 : answered.size()));
        return result;
    }

  private:
    static void note(const char* name, eSensorType type, int64_t result) {
        Line<256> line("sensor", name);
        line.open("fields").number("type", int32_t{type}).close();
        line.result(result).record();
    }

    const Provider mProvider;
    std::atomic<bool> mBringUp{false};
};

// --- Customisation.

void noteCustomisation(const std::array<int32_t, 3>& ids, int32_t supported, const int32_t* status,
                       const char* driverName, const void* custInfo, const void* custExt) {
    constexpr size_t kExtent = ois::kCustExtPlatformSize;
    std::array<uint8_t, sizeof(ois::OisCustInfo) + kExtent> blocks{};
    if (custInfo != nullptr) std::memcpy(blocks.data(), custInfo, sizeof(ois::OisCustInfo));
    if (custExt != nullptr) std::memcpy(blocks.data() + sizeof(ois::OisCustInfo), custExt, kExtent);
    Line<512> line("customisation", "GetOisDriverName");
    line.open("fields").number("sensor_dev", ids[0]).number("sensor_id", ids[1]).number("module_id", ids[2]);
    line.close().open("answer");
    if (status != nullptr) line.number("status", *status);
    if (driverName != nullptr)
        line.text("driver_name", {driverName, strnlen(driverName, ois::kDriverNameSize)});
    line.close();
    line.result(supported).record({}, blocks);
}

}  // namespace

}  // namespace spy

using namespace spy;

SPY_EXPORT int32_t GetOisDriverName(int32_t sensorDev, int32_t sensorId, int32_t moduleId, int32_t* status,
                                    char* driverName, void* custInfo, void* custExt) {
    const int32_t supported =
        gDriverName(sensorDev, sensorId, moduleId, status, driverName, custInfo, custExt);
    if (wanted())
        noteCustomisation({sensorDev, sensorId, moduleId}, supported, status, driverName, custInfo, custExt);
    return supported;
}

SPY_EXPORT int32_t NSCam::Utils::Properties::property_get_int32(const char* key, int32_t defaultValue) {
    return noteProperty(key, "int32", defaultValue, gNumber(key, defaultValue));
}

SPY_EXPORT bool NSCam::Utils::Properties::property_get_bool(const char* key, bool defaultValue) {
    return noteProperty(key, "bool", defaultValue, gSwitch(key, defaultValue));
}

SPY_EXPORT int32_t NSCam::Utils::Properties::property_get(const char* key, char* value,
                                                          const char* defaultValue) {
    const int32_t length = gText(key, value, defaultValue);
    if (inDriver() && wanted()) {
        PropertyLine line("property", key);
        line.open("fields")
            .word("type", "string")
            .text("default", defaultValue == nullptr ? "" : defaultValue);
        line.text("value", value).close();
        line.record();
    }
    return length;
}

SPY_EXPORT std::shared_ptr<NSCam::Utils::SensorProvider> NSCam::Utils::SensorProvider::createInstance(
    const char* userName) {
    Provider provider = asked([&] { return gCreateProvider(userName); });
    if (!inDriver() || !wanted()) return provider;
    Line<512> line("sensor", "createInstance");
    line.open("fields").text("user", userName).close();
    line.result(provider ? 1 : 0).record();
    return provider ? std::make_shared<SpiedProvider>(std::move(provider)) : provider;
}

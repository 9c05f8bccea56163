// Motion samples that the sensor hub has queued.

#include <cstring>

#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using NSCam::Utils::SensorData;

namespace {

// Byte positions in a sample; the platform's field names differ from phone to phone.
enum SamplePosition : size_t {
    kValue5 = 108,
    kValue6 = 112,
    kValue3 = 116,
    kValue4 = 120,
    kValue1 = 124,
    kValue2 = 128,
    kTimestamp = 304,
};
static_assert(sizeof(SensorData) == kTimestamp + sizeof(int64_t));

template <typename T>
T field(const SensorData& sample, SamplePosition position) {
    T value;
    std::memcpy(&value, reinterpret_cast<const std::byte*>(&sample) + position, sizeof value);
    return value;
}

}  // namespace

void OISDrv::GetSensorData() {
    OIS_LOG(kDebug, "OISDRV::getAllSensorData\n");
    if (ois::loadShared(mSensorHubEnabled) == 0) return;
    const auto provider = ois::loadShared(mpSensorProvider);
    if (!provider || !provider->isEnabled(ois::kOisSensorType)) return;
    std::vector<SensorData> samples;
    provider->getAllSensorData(ois::kOisSensorType, samples);
    if (samples.empty()) return;
    // The hub may deliver newest first.
    const bool oldestFirst =
        field<int64_t>(samples.front(), kTimestamp) < field<int64_t>(samples.back(), kTimestamp);
    // Grown once for the whole batch.
    const size_t kept = mSensorTimestamps.size();
    const size_t total = kept + samples.size();
    mSensorTimestamps.resize(total);
    for (auto* values :
         {&mSensorValue1, &mSensorValue2, &mSensorValue3, &mSensorValue4, &mSensorValue5, &mSensorValue6}) {
        values->resize(total);
    }
    for (size_t i = 0; i < samples.size(); ++i) {
        const SensorData& sample = samples[oldestFirst ? i : samples.size() - 1 - i];
        const auto timestamp = field<int64_t>(sample, kTimestamp);
        const auto value1 = field<float>(sample, kValue1);
        const auto value2 = field<float>(sample, kValue2);
        const auto value3 = field<float>(sample, kValue3);
        const auto value4 = field<float>(sample, kValue4);
        const auto value5 = field<float>(sample, kValue5);
        const auto value6 = field<float>(sample, kValue6);
        mSensorTimestamps[kept + i] = static_cast<unsigned long>(timestamp);
        mSensorValue1[kept + i] = value1;
        mSensorValue2[kept + i] = value2;
        mSensorValue3[kept + i] = value3;
        mSensorValue4[kept + i] = value4;
        mSensorValue5[kept + i] = value5;
        mSensorValue6[kept + i] = value6;
        // Seven conversions for six values, deliberately: the timestamp meets none of them and the last
        // prints whatever is there.
        OIS_LOG_UNCHECKED(kDebug, "<GetSensorData,%f,%f,%f,%f,%f,%f,%f,>\n", timestamp,
                          static_cast<double>(value1), static_cast<double>(value2),
                          static_cast<double>(value3), static_cast<double>(value4),
                          static_cast<double>(value5), static_cast<double>(value6));
    }
}

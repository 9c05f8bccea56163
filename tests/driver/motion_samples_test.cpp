// Motion samples drained from the sensor hub.

#include <algorithm>
#include <array>

#include "driver/driver_fixture.h"

namespace {

using driver_test::DriverTest;
using NSCam::Utils::SensorData;

constexpr const char* kHubModule = "korvas4sw-hub";

// A sample whose float at byte 108 + 4 i is first + i.
SensorData sample(int64_t timestamp, float first) {
    SensorData data{};
    auto* raw = reinterpret_cast<char*>(&data);
    for (int i = 0; i < 6; ++i) {
        const float value = first + static_cast<float>(i);
        std::memcpy(raw + 108 + 4 * i, &value, sizeof value);
    }
    std::memcpy(raw + 304, &timestamp, sizeof timestamp);
    return data;
}

class MotionSamples : public DriverTest {
  protected:
    std::vector<size_t> sizes() const {
        return {driver.mSensorTimestamps.size(), driver.mSensorValue1.size(), driver.mSensorValue2.size(),
                driver.mSensorValue3.size(),     driver.mSensorValue4.size(), driver.mSensorValue5.size(),
                driver.mSensorValue6.size()};
    }
};

TEST_F(MotionSamples, AreVisitedOldestFirst) {
    using Times = std::vector<int64_t>;
    const std::pair<Times, Times> cases[] = {
        {{30, 20, 10}, {10, 20, 30}},
        {{10, 20, 30}, {10, 20, 30}},
        {{10, 50, 20}, {10, 50, 20}},  // only the ends are compared
        {{10, 30, 20, 10}, {10, 20, 30, 10}},
        {{7}, {7}},
        {{}, {}},
        {{-5, 5}, {-5, 5}},
        {{5, -5}, {-5, 5}},
    };
    open(kHubModule);
    for (const auto& [delivered, kept] : cases) {
        driver.mSensorTimestamps.clear();
        driver.mSensorValue1.clear();
        std::vector<SensorData> samples;
        for (const int64_t timestamp : delivered)
            samples.push_back(sample(timestamp, static_cast<float>(timestamp) - 4.0F));
        phone.hub().setNextSamples(samples);
        driver.GetSensorData();
        EXPECT_EQ(driver.mSensorTimestamps, std::vector<unsigned long>(kept.begin(), kept.end()));
        EXPECT_EQ(driver.mSensorValue1, std::vector<float>(kept.begin(), kept.end()));
    }
}

TEST_F(MotionSamples, ComeFromTheirBytePositions) {
    open(kHubModule);
    phone.hub().setReportedEnabled(false);
    forget();
    driver.GetSensorData();
    expectCourse("samples", "not enabled");
    phone.hub().setReportedEnabled({});
    phone.hub().setNextSamples({sample(11, 100.5F)});
    driver.GetSensorData();
    EXPECT_EQ(driver.mSensorTimestamps, std::vector<unsigned long>{11});
    const std::vector<float>* const values[] = {&driver.mSensorValue5, &driver.mSensorValue6,
                                                &driver.mSensorValue3, &driver.mSensorValue4,
                                                &driver.mSensorValue1, &driver.mSensorValue2};
    float expected = 100.5F;
    for (const auto* value : values) EXPECT_EQ(*value, std::vector<float>{expected++});
    // The timestamp meets no conversion; what the seventh prints is open.
    const std::string all = course();
    const std::string written = driver_test::writtenCourse("samples", "one");
    EXPECT_EQ(all.substr(0, written.size() - 1), written.substr(0, written.size() - 1));
    EXPECT_TRUE(all.ends_with(",>\\n\"\n")) << all;
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), std::count(written.begin(), written.end(), '\n'));
}

TEST_F(MotionSamples, AccumulateUntilTheLastUninit) {
    open(kHubModule);
    phone.hub().setNextSamples({sample(3, 0.0F), sample(2, 0.0F)});
    driver.GetSensorData();
    phone.hub().setNextSamples({sample(1, 0.0F)});
    driver.GetSensorData();
    EXPECT_EQ(driver.mSensorTimestamps, (std::vector<unsigned long>{2, 3, 1}));
    EXPECT_EQ(sizes(), std::vector<size_t>(7, 3));
    const size_t capacity = driver.mSensorValue6.capacity();
    driver.Uninit();
    EXPECT_EQ(sizes(), std::vector<size_t>(7, 0));
    EXPECT_EQ(driver.mSensorValue6.capacity(), capacity);
}

}  // namespace

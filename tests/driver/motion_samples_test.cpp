// Motion samples drained from the sensor hub.

#include <algorithm>
#include <array>

#include "driver/driver_fixture.h"

namespace {

using driver_test::DriverTest;
using driver_test::kBringUpUs;
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
    int64_t drains() {
        const auto events = phone.trace().events(phone::EventKind::kSensor);
        return std::ranges::count(events, "getAllSensorData", &phone::Event::name);
    }
    std::vector<size_t> sizes() const {
        return {driver.mSensorTimestamps.size(), driver.mSensorValue1.size(), driver.mSensorValue2.size(),
                driver.mSensorValue3.size(),     driver.mSensorValue4.size(), driver.mSensorValue5.size(),
                driver.mSensorValue6.size()};
    }
};

TEST_F(MotionSamples, AreVisitedOldestFirst) {
    struct Case {
        std::vector<int64_t> delivered;
        std::vector<int64_t> kept;
    };
    const Case cases[] = {
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
    for (const Case& c : cases) {
        driver.mSensorTimestamps.clear();
        driver.mSensorValue1.clear();
        std::vector<SensorData> samples;
        for (const int64_t timestamp : c.delivered)
            samples.push_back(sample(timestamp, static_cast<float>(timestamp) - 4.0F));
        phone.hub().setNextSamples(samples);
        driver.GetSensorData();
        EXPECT_EQ(driver.mSensorTimestamps, std::vector<unsigned long>(c.kept.begin(), c.kept.end()));
        EXPECT_EQ(driver.mSensorValue1, std::vector<float>(c.kept.begin(), c.kept.end()));
    }
}

TEST_F(MotionSamples, ComeFromTheirBytePositions) {
    open(kHubModule);
    phone.hub().setNextSamples({sample(11, 100.5F)});
    driver.GetSensorData();
    EXPECT_EQ(driver.mSensorTimestamps, std::vector<unsigned long>{11});
    EXPECT_EQ(driver.mSensorValue5, std::vector<float>{100.5F});
    EXPECT_EQ(driver.mSensorValue6, std::vector<float>{101.5F});
    EXPECT_EQ(driver.mSensorValue3, std::vector<float>{102.5F});
    EXPECT_EQ(driver.mSensorValue4, std::vector<float>{103.5F});
    EXPECT_EQ(driver.mSensorValue1, std::vector<float>{104.5F});
    EXPECT_EQ(driver.mSensorValue2, std::vector<float>{105.5F});
    ASSERT_EQ(messages().size(), 2U);
    EXPECT_EQ(messages()[0], "[GetSensorData] OISDRV::getAllSensorData\n");
    // The timestamp meets no conversion; what the seventh prints is open.
    const std::string line =
        "[GetSensorData] <GetSensorData,104.500000,105.500000,102.500000,103.500000,100.500000,101.500000,";
    EXPECT_EQ(messages()[1].substr(0, line.size()), line);
    EXPECT_TRUE(messages()[1].ends_with(",>\n"));
    EXPECT_TRUE(sent().empty());
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

TEST_F(MotionSamples, AreNotFetchedFromAChannelThatIsNotReady) {
    driver.GetSensorData();  // never opened
    fit(phone::moduleByName(kHubModule));
    ASSERT_EQ(driver.Init(1, 2), 1);
    driver.GetSensorData();  // not up yet
    phone.clock().sleepUs(kBringUpUs);
    phone.hub().setReportedEnabled(false);
    driver.GetSensorData();
    EXPECT_EQ(drains(), 0);
    EXPECT_TRUE(driver.mSensorTimestamps.empty());

    phone.hub().setReportedEnabled({});
    driver.mSensorHubEnabled = 0;
    driver.GetSensorData();
    EXPECT_EQ(drains(), 0);
    driver.mSensorHubEnabled = 1;
    driver.GetSensorData();
    EXPECT_EQ(drains(), 1);
    driver.Uninit();
    driver.GetSensorData();
    EXPECT_EQ(drains(), 1);
}

TEST_F(MotionSamples, FollowTheMotionInEitherOrderOfDelivery) {
    open(kHubModule);
    driver.GetSensorData();
    for (const auto order : {phone::SampleOrder::kOldestFirst, phone::SampleOrder::kNewestFirst}) {
        phone.hub().setSampleOrder(order);
        const size_t before = driver.mSensorTimestamps.size();
        phone.clock().sleepUs(1000000);
        driver.GetSensorData();
        EXPECT_EQ(driver.mSensorTimestamps.size() - before, 200U);  // one per 5 ms
    }
    EXPECT_TRUE(std::ranges::is_sorted(driver.mSensorTimestamps));
    EXPECT_EQ(sizes(), std::vector<size_t>(7, driver.mSensorTimestamps.size()));
}

}  // namespace

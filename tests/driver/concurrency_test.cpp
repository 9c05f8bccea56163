// Workers and caller at once, on a phone whose sleeps return at once and which keeps no record, so that a
// thread sanitizer sees the driver's own order of things.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "driver/dump_fixture.h"

namespace {

using driver_test::kSensor;
using driver_test::linesOf;
using driver_test::textOf;
using phone::FlashAnswer;

constexpr uint16_t kEndlessCoordinates = 65535;
constexpr int kColumns = 22;
constexpr const char* kSubDeviceModule = "dw9786";
constexpr const char* kHubModule = "korvas4sw-hub";

ois_params request(int32_t engineerMode, bool video) {
    ois_params params{};
    params.ois_mode_from_tag = 1;
    params.engineer_mode = engineerMode;
    params.engineer_operation = -1;
    params.video_mode = video ? 1 : 0;
    params.zoom_ratio = 1.0F;
    params.sensor_dev = kSensor;
    return params;
}

// A module whose detector trips only when told.
phone::ModuleDescription patientModule(const char* name) {
    auto module = phone::moduleByName(name);
    module.custInfo.actuatorDetectSupport = 1;
    if (module.behindHub()) module.custInfo.coordinateNum = kEndlessCoordinates;
    module.custInfo.max_error_threshold = 1e9F;
    module.custInfo.max_sum_error_threshold = 1e30F;
    return module;
}

// Waits for the bring-up.
void startStream(OISDrv& driver) {
    ois_stream_info on{1, 0};
    driver.NotifyStream(&on);
}

// Looks until it holds; false after ten seconds.
template <typename Condition>
bool eventually(Condition&& holds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

bool channelComesUp(OISDrv& driver) {
    return eventually([&] {
        return std::atomic_ref(driver.fd_driver) >= 1 || std::atomic_ref(driver.mSensorHubEnabled) != 0;
    });
}

void expectClosed(const OISDrv& driver) {
    EXPECT_EQ(driver_test::stateOf(driver), driver_test::kClosed);
}

class Concurrency : public ::testing::Test {
  protected:
    void setDump(int bits) {
        phone.properties().set("vendor.debug.ois.dump", std::to_string(bits));
        phone.properties().set("vendor.debug.ois.dump.interval.time", "1");
        phone.properties().set("vendor.debug.ois.dynamic", "1");
    }
    std::filesystem::path dumpFile(const std::string& suffix) {
        return phone.files().dumpFolder() / ("ois_dump_tele_dw9786" + suffix);
    }
    std::string dumped(const std::string& suffix) { return textOf(dumpFile(suffix)).value_or("none"); }
    // All of the module's 768 bytes.
    bool flashIsWhole() {
        const std::string text = dumped("_flash.txt");
        return text.starts_with("address: 0x5000  ") && linesOf(text).size() == 96 && text.ends_with('\n');
    }
    void expectNothingOpen() {
        EXPECT_EQ(phone.kernel().openNodes() + phone.kernel().openFiles(), 0U);
        EXPECT_EQ(phone.hub().providers(), 0);
    }
    // A recording of one recorder: nothing torn, nothing cut off.
    void expectWholeRecording() {
        const std::string text = dumped("_status.txt");
        ASSERT_TRUE(text.ends_with('\n'));
        for (const std::string& line : linesOf(text))
            ASSERT_EQ(std::count(line.begin(), line.end(), ' '), 2 * (kColumns - 1)) << line;
    }

    phone::Phone phone{{phone::KernelKind::kSimulated, phone::ClockMode::kFreeRunning, {}, {}, {}, false}};
};

TEST_F(Concurrency, RecordersDetectorAndRequestsShareASession) {
    constexpr int kRequests = 300;
    setDump(7);
    phone.fit(kSensor, patientModule(kSubDeviceModule));
    phone::Controller& controller = *phone.controller(kSensor);
    OISDrv driver{kSensor};
    ASSERT_EQ(driver.Init(1, 2), 1);
    ASSERT_TRUE(channelComesUp(driver));
    driver.mActuatorDefectError = -7;
    ois_params engineering = request(8, false);
    driver.SetOisParams(&engineering);
    driver.SetOperation(19);
    auto otp = std::make_unique<ois_otp_data>();
    for (int i = 0; i < kRequests; ++i) {
        ois_params params = request(0, i % 2 == 0);
        EXPECT_EQ(driver.SetOisParams(&params), 0);
        driver.SetOperation(19);
        driver.CheckIcStatus();
        if (i % 50 == 0) driver.GetOisOtpData(otp.get());
    }
    driver.SetOisParams(&engineering);
    ASSERT_TRUE(eventually([&] { return controller.count(ois::Request::kReadStatus) > 100; }));
    ASSERT_TRUE(eventually([&] { return flashIsWhole(); }));
    EXPECT_EQ(driver.Uninit(), 0);

    expectClosed(driver);
    EXPECT_FALSE(driver.mDumpThread.joinable());
    if (driver.mDefectDetectThread.joinable()) driver.mDefectDetectThread.join();
    expectNothingOpen();
    EXPECT_EQ(driver.mDefectDetectDone, 0);
    EXPECT_EQ(driver.mActuatorDefectError, -7);
    EXPECT_EQ(controller.count(ois::Request::kSetMode), kRequests);
    EXPECT_EQ(dumped("_otp.txt"), "");
}

TEST_F(Concurrency, TheFlashDumpSurvivesUsersThatReplaceItsBuffer) {
    constexpr int kRounds = 60;
    setDump(4);
    for (int round = 0; round < kRounds; ++round) {
        phone.fit(kSensor, patientModule(kSubDeviceModule));
        phone.controller(kSensor)->setFlashAnswer(round % 2 == 0 ? FlashAnswer::kInPlace
                                                                 : FlashAnswer::kThroughPointer);
        std::filesystem::remove(dumpFile("_flash.txt"));
        OISDrv driver{kSensor};
        ASSERT_EQ(driver.Init(1, 2), 1);
        EXPECT_TRUE(round % 4 != 0 || eventually([&] { return flashIsWhole(); }));
        if (round % 3 != 0) driver.Init(1, 2);
        if (round % 3 != 1) driver.Uninit();
        while (driver.m_user_count > 0) driver.Uninit();
        expectClosed(driver);
        expectNothingOpen();
        // The buffer was there or gone when the controller answered; nothing between.
        const std::string text = dumped("_flash.txt");
        EXPECT_TRUE(flashIsWhole() || (round % 4 != 0 && (text.empty() || text == "none"))) << text;
    }
}

TEST_F(Concurrency, TheLastUninitWaitsForARecordingOfTwoRequests) {
    constexpr int kRounds = 30;
    setDump(2);
    phone.fit(kSensor, patientModule(kSubDeviceModule));
    for (int round = 0; round < kRounds; ++round) {
        const bool waits = round % 2 == 0;
        const uint64_t polls = phone.controller(kSensor)->count(ois::Request::kReadStatus);
        OISDrv driver{kSensor};
        ASSERT_EQ(driver.Init(1, 2), 1);
        // A bring-up that was still under way would see the request's count and record beside it.
        startStream(driver);
        ois_params engineering = request(8, false);
        driver.SetOisParams(&engineering);
        if (waits) driver.SetOisParams(&engineering);
        ASSERT_TRUE(eventually(
            [&] { return phone.controller(kSensor)->count(ois::Request::kReadStatus) > polls + 3; }));
        driver.Uninit();
        expectClosed(driver);
        EXPECT_EQ(driver.mDumpThread.joinable(), !waits);
        // Left alone it ends by itself, though buffer and descriptor are gone.
        if (!waits) driver.mDumpThread.join();
        expectNothingOpen();
        expectWholeRecording();
    }
}

TEST_F(Concurrency, ADetectorOutlivesItsHubSession) {
    constexpr int kRounds = 15;
    phone.fit(kSensor, patientModule(kHubModule));
    for (int round = 0; round < kRounds; ++round) {
        OISDrv driver{kSensor};
        ASSERT_EQ(driver.Init(1, 2), 1);
        startStream(driver);
        EXPECT_EQ(driver.mSensorHubEnabled, 1);
        const uint64_t commands = phone.hub().commands();
        driver.SetOperation(19);
        ASSERT_TRUE(eventually([&] { return phone.hub().commands() > commands + 4; }));
        for (int i = 0; i < 20; ++i) {
            ois_params params = request(0, i % 2 == 0);
            driver.SetOisParams(&params);
            driver.GetSensorData();
        }
        driver.Uninit();
        expectClosed(driver);
        EXPECT_FALSE(phone.hub().channelEnabled());
        ASSERT_TRUE(driver.mDefectDetectThread.joinable());
        // Some more coordinates without a session.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::atomic_ref(driver.mOisCustInfo.coordinateNum).store(0);
        driver.mDefectDetectThread.join();
        EXPECT_EQ(phone.hub().providers(), 0);
    }
}

TEST_F(Concurrency, OpeningAndClosingAHundredTimes) {
    constexpr int kRounds = 100;
    OISDrv driver{kSensor};
    for (int round = 0; round < kRounds; ++round) {
        setDump(round % 4 < 2 ? 7 : 0);
        phone.fit(kSensor, round % 2 == 0 ? patientModule(kHubModule) : patientModule(kSubDeviceModule));
        ASSERT_EQ(driver.Init(1, 2), 1);
        // Mostly the session closes before its channel is up.
        EXPECT_TRUE(round % 3 != 0 || channelComesUp(driver));
        driver.SetMode(2);
        driver.Uninit();
        expectClosed(driver);
        expectNothingOpen();
    }
}

TEST_F(Concurrency, ObjectsOfSeveralSensorsWorkSideBySide) {
    constexpr int kRounds = 15;
    constexpr int32_t kSensors = 4;  // the first behind the hub
    setDump(2);
    phone.fit(0, patientModule(kHubModule));
    for (int32_t sensor = 1; sensor < kSensors; ++sensor) {
        auto module = patientModule(kSubDeviceModule);
        module.entityName = "dw9786 " + std::to_string(sensor) + "-0069";
        module.driverName = module.entityName;
        std::strcpy(module.custInfo.cameraTypeName, ("tele" + std::to_string(sensor)).c_str());
        phone.fit(sensor, module);
    }
    std::vector<std::thread> users;
    for (int32_t sensor = 0; sensor < kSensors; ++sensor) {
        users.emplace_back([sensor] {
            for (int round = 0; round < kRounds; ++round) {
                OISDrv driver{sensor};
                ASSERT_EQ(driver.Init(1, 2), 1);
                startStream(driver);
                for (int i = 0; i < 10; ++i) {
                    ois_params params = request(i < 2 ? 8 : 0, i % 2 == 0);
                    driver.SetOisParams(&params);
                }
                driver.Uninit();
                expectClosed(driver);
                EXPECT_FALSE(driver.mDumpThread.joinable());
            }
        });
    }
    for (std::thread& user : users) user.join();
    expectNothingOpen();
    for (int32_t sensor = 1; sensor < kSensors; ++sensor) {
        EXPECT_EQ(phone.controller(sensor)->count(ois::Request::kSetMode), 8U * kRounds);
    }
}

}  // namespace

// Opening and closing, the registry and the properties.

#include <atomic>
#include <system_error>

#include "driver_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::DriverTest;
using driver_test::kBringUpUs;
using driver_test::kSensor;
using Keys = std::vector<std::string>;

constexpr const char* kHubModule = "korvas4sw-hub";
constexpr const char* kSubDeviceModule = "dw9786";

class Session : public DriverTest {
  protected:
    // What passed between driver and phone, without what it read and said.
    std::vector<std::string> course() {
        std::vector<std::string> lines;
        for (const phone::Event& event : phone.trace().events()) {
            if (event.kind != phone::EventKind::kProperty && event.kind != phone::EventKind::kMessage &&
                event.kind != phone::EventKind::kThread && event.kind != phone::EventKind::kCustomisation) {
                lines.push_back(phone::toText(event, false));
            }
        }
        return lines;
    }
};

TEST(Registry, KnowsEightIndices) {
    const phone::Phone phone;
    EXPECT_EQ(OISDrv::GetInstance(8), nullptr);
    EXPECT_EQ(OISDrv::GetInstance(-1), nullptr);
    ASSERT_NE(OISDrv::GetInstance(7), nullptr);
    EXPECT_EQ(OISDrv::GetInstance(7), OISDrv::GetInstance(7));
    EXPECT_NE(OISDrv::GetInstance(7), OISDrv::GetInstance(0));
    EXPECT_EQ(OISDrv::GetInstance(7)->mSensorDev, 7);
}

TEST(Registry, ConcurrentFirstCallsBuildOneObject) {
    std::array<std::atomic<OISDrv*>, 4> seen{};
    std::vector<std::thread> threads;
    for (auto& slot : seen) threads.emplace_back([&slot] { slot = OISDrv::GetInstance(5); });
    for (std::thread& thread : threads) thread.join();
    for (const auto& slot : seen) EXPECT_EQ(slot, OISDrv::GetInstance(5));
}

TEST_F(Session, ANewObjectIsClosedWithItsDefaults) {
    EXPECT_EQ(driver.fd_driver, -1);
    EXPECT_EQ(driver.m_user_count, 0);
    EXPECT_EQ(driver.mOisDynamic, 0);
    EXPECT_EQ(driver.mScaleFactor, 1.0F);
    EXPECT_EQ(driver.mSensorInterval, 5);
    EXPECT_EQ(driver.mReserved[1], -1);
    EXPECT_FALSE(driver.mInitDrvThread.joinable());
    EXPECT_TRUE(phone.trace().events().empty());
}

TEST_F(Session, AModuleWithoutOisIsRefusedBeforeAnyProperty) {
    fit(phone::moduleByName("no-ois"));
    EXPECT_EQ(driver.Init(3, 4), 0);
    EXPECT_TRUE(phone.trace().events(phone::EventKind::kProperty).empty());
    EXPECT_EQ(messages(), Keys{"[Init] Dev(2), the current module isn't support OIS"});
    EXPECT_EQ(driver.Uninit(), 0);
    EXPECT_EQ(driver.m_user_count, 0);
}

TEST_F(Session, TheDisablePropertySwitchesOisOffNotOn) {
    fit(phone::moduleByName(kSubDeviceModule));
    phone.properties().set("vendor.debug.ois.disable", "0");
    EXPECT_EQ(driver.Init(3, 4), 0);
    EXPECT_EQ(driver.m_user_count, 0);
    phone.properties().set("vendor.debug.ois.disable", "1");
    fit(phone::moduleByName("no-ois"));
    EXPECT_EQ(driver.Init(3, 4), 0);
}

TEST_F(Session, InitReadsElevenPropertiesInOrder) {
    fit(phone::moduleByName(kSubDeviceModule));
    phone.properties().set("vendor.debug.ois.dump", "256");  // the low byte is 0
    ASSERT_EQ(driver.Init(3, 4), 1);
    Keys keys;
    for (const phone::Event& event : phone.trace().events(phone::EventKind::kProperty))
        keys.push_back(event.name);
    const std::string prefix = "vendor.debug.ois.";
    EXPECT_EQ(keys,
              (Keys{prefix + "mode", prefix + "dump", prefix + "dump.interval.time", prefix + "dump.level",
                    prefix + "actuator.dectect", prefix + "status.check", prefix + "actois",
                    prefix + "fixmode", prefix + "disable", prefix + "bypassen", prefix + "loglevel"}));
    EXPECT_EQ(driver.mProperty.dump, 0);
    EXPECT_EQ(driver.mProperty.dumpIntervalTime, 4);
    EXPECT_EQ(driver.mProperty.dumpLevel, 15);
    EXPECT_EQ(driver.mUseCustomCmd, 1);
}

TEST_F(Session, TheHubChannelComesUpAndGoesDownInOrder) {
    fit(phone::moduleByName(kHubModule));
    phone.properties().set("vendor.debug.ois.loglevel", "3");
    ASSERT_EQ(driver.Init(3, 4), 1);
    EXPECT_EQ(driver.mSensorHubEnabled, 0);  // not before the bring-up thread has run
    phone.clock().sleepUs(kBringUpUs);
    EXPECT_EQ(driver.mSensorHubEnabled, 1);
    EXPECT_EQ(driver.mStreamState, 1);
    ASSERT_EQ(sentKeys(), (Keys{"INIT", "NOTIFY_STREAM"}));
    const std::vector<uint8_t> init = sent()[0].bytes;
    EXPECT_EQ((std::vector<uint8_t>(init.begin(), init.begin() + 20)),
              bytes("11 0c 00 00  01 00 00 00  03 00 00 00  00 00 00 00  00 00 00 00"));
    const std::vector<uint8_t> stream = sent()[1].bytes;
    EXPECT_EQ((std::vector<uint8_t>(stream.begin(), stream.begin() + 12)),
              bytes("16 04 00 00 01 00 00 00 00 00 00 00"));

    EXPECT_EQ(course(), (Keys{"sensor  createInstance user=OisDrv -> 1",
                              "sensor  enableSensor type=8 interval_ms=5 -> 1", "sleep  10 ms",
                              "sensor  isEnabled type=8 -> 1", "hub  INIT(17) bypass=1 log_level=3",
                              "hub  NOTIFY_STREAM(22) notify_stream=1", "sleep  10 ms"}));

    forget();
    driver.mSensorValue3.push_back(1.0F);
    driver.Uninit();
    EXPECT_EQ(course(),
              (Keys{"telemetry  getService service=default -> 1",
                    "telemetry  report module_id=N87 event_id=N87|10014 content=c_ois_error:0",
                    "hub  END_SESSION(26) value=0", "sleep  2 ms", "sensor  disableSensor type=8 -> 0"}));
    const std::vector<uint8_t> end = sent()[0].bytes;
    EXPECT_EQ((std::vector<uint8_t>(end.begin(), end.begin() + 8)), bytes("1a 04 00 00 00 00 00 00"));
    EXPECT_EQ(phone.telemetry().reports().size(), 1U);
    EXPECT_EQ(driver.mSensorHubEnabled, 0);
    EXPECT_EQ(driver.mpSensorProvider, nullptr);
    EXPECT_TRUE(driver.mSensorValue3.empty());
}

TEST_F(Session, TheSubDeviceComesUpAndGoesDownInOrder) {
    const phone::ModuleDescription module = phone::moduleByName(kSubDeviceModule);
    fit(module);
    ASSERT_EQ(driver.Init(3, 4), 1);
    EXPECT_EQ(driver.fd_driver, -1);
    phone.clock().sleepUs(kBringUpUs);
    EXPECT_GE(driver.fd_driver, 1);
    EXPECT_EQ(driver.mControllerState, -1);
    ASSERT_EQ(sentKeys(), (Keys{"SET_CUSTOMISATION", "READ_GAIN", "READ_HALL_INFO"}));
    ASSERT_EQ(sent()[0].bytes.size(), 1704U);
    EXPECT_EQ(std::memcmp(sent()[0].bytes.data(), &module.custInfo, 1704), 0);
    EXPECT_EQ(driver.mOisCalibInfo.hall_center_x, module.hallInfo.centerX);

    forget();
    driver.Uninit();
    ASSERT_EQ(sentKeys(), Keys{"END_SESSION"});
    EXPECT_EQ(sent()[0].bytes, bytes("ff ff ff ff"));
    EXPECT_EQ(driver.fd_driver, -1);
    EXPECT_EQ(driver.mIsOisSupport, 0);
}

TEST_F(Session, UsersAreCountedAndTheLastOneCloses) {
    open(kSubDeviceModule);
    const int32_t descriptor = driver.fd_driver;
    EXPECT_EQ(driver.Init(3, 4), 1);
    phone.clock().sleepUs(kBringUpUs);
    EXPECT_TRUE(sentKeys().empty());
    EXPECT_EQ(driver.m_user_count, 2);
    driver.Uninit();
    EXPECT_EQ(driver.fd_driver, descriptor);
    driver.Uninit();
    EXPECT_EQ(driver.fd_driver, -1);
    driver.Uninit();
    EXPECT_EQ(driver.m_user_count, 0);
    open(kSubDeviceModule);
    EXPECT_GE(driver.fd_driver, 1);
}

TEST_F(Session, EveryInitResetsTheOpenRecordsAndNothingElse) {
    open(kSubDeviceModule);
    driver.mOisErrorFlag = 1;
    driver.mLastAfPosition = 5;
    driver.mStreamState = 1;
    driver.mOisMode = 3;
    driver.mPreviousActEn = 3;
    driver.mLastTemp = 40;
    driver.mAccParams.enable = 1;
    driver.Init(3, 9);
    EXPECT_EQ(driver.mModuleId, 9);
    EXPECT_EQ(driver.mOisMode, 0);
    EXPECT_EQ(driver.mPreviousActEn, 0);
    EXPECT_EQ(driver.mOisDynamic, -1);
    EXPECT_EQ(driver.mStatusWord, -1);
    EXPECT_EQ(driver.mLastTemp, 0);
    EXPECT_EQ(driver.mAccParams.enable, 0U);
    EXPECT_EQ(driver.mOisErrorFlag, 1);
    EXPECT_EQ(driver.mLastAfPosition, 5);
    EXPECT_EQ(driver.mStreamState, 1);
}

TEST_F(Session, AFailedBringUpLeavesTheChannelDown) {
    fit(phone::moduleByName(kHubModule));
    phone.faults().add({.point = phone::FaultPoint::kSensorProvider, .effect = {}});
    ASSERT_EQ(driver.Init(3, 4), 1);
    phone.clock().sleepUs(kBringUpUs);
    EXPECT_EQ(messages().back(), "[InitDrv] mpSensorProvider is NULL");
    EXPECT_EQ(driver.SetMode(2), 0);
    EXPECT_TRUE(sentKeys().empty());
    driver.Uninit();

    phone.media().change([](std::vector<phone::MediaDevice>& devices) { devices.clear(); });
    phone.trace().clear();
    fit(phone::moduleByName(kSubDeviceModule));
    phone.media().change([](std::vector<phone::MediaDevice>& devices) { devices.clear(); });
    ASSERT_EQ(driver.Init(3, 4), 1);
    phone.clock().sleepUs(kBringUpUs);
    EXPECT_EQ(messages().back(), "[InitDrv] Dev -1 , OIS error opening\n");
    driver.Uninit();
}

TEST_F(Session, AThreadThatCannotBeCreatedIsASystemError) {
    fit(phone::moduleByName(kSubDeviceModule));
    phone.faults().add({.point = phone::FaultPoint::kThreadCreate, .effect = {.error = EAGAIN}});
    try {
        driver.Init(3, 4);
        FAIL() << "no exception";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EAGAIN);
        EXPECT_NE(std::string(error.what()).find("thread constructor failed"), std::string::npos);
    }
    EXPECT_EQ(driver.m_user_count, 0);
}

TEST_F(Session, TelemetryReportsTheErrorFlagUnlessTheRegionForbids) {
    struct Case {
        const char* region;
        int32_t flag;
        size_t reports;
    };
    for (const Case& c : {Case{"", 0, 1}, {"N", 1, 1}, {"IN", 1, 0}, {"INDIA", 0, 1}}) {
        open(kHubModule);
        const size_t before = phone.telemetry().reports().size();
        if (*c.region != '\0') phone.properties().set("ro.product.country.region", c.region);
        driver.mOisErrorFlag = c.flag;
        driver.Uninit();
        const auto reports = phone.telemetry().reports();
        ASSERT_EQ(reports.size() - before, c.reports) << c.region;
        if (c.reports == 0) continue;
        EXPECT_EQ(reports.back().moduleId, "N87");
        EXPECT_EQ(reports.back().eventId, "N87|10014");
        EXPECT_EQ(reports.back().content, "c_ois_error:" + std::to_string(c.flag));
    }
    EXPECT_EQ(phone.telemetry().references(), 0);
}

TEST_F(Session, TelemetryNotSentIsOneLine) {
    phone.properties().set("ro.product.country.region", "IN");
    EXPECT_EQ(driver.GetDataRuvex(), 0);
    EXPECT_EQ(messages(), Keys{"[GetDataRuvex] IN not get  to ruvex"});
    phone.properties().clear();
    phone.trace().clear();
    phone.faults().add({.point = phone::FaultPoint::kTelemetry, .effect = {}});
    EXPECT_EQ(driver.GetDataRuvex(), 0);
    EXPECT_EQ(messages(), Keys{"[GetDataRuvex] Failed to get RuVex service"});
    EXPECT_TRUE(phone.telemetry().reports().empty());
}

TEST_F(Session, HallAmplitudesFollowTheGainFormat) {
    auto module = phone::moduleByName(kSubDeviceModule);
    module.custInfo.angleAmplitude = 0.5F;
    module.custInfo.hallRange = 100;
    module.gain.valueXf = 2.0F;
    module.gain.valueYf = -1.0F;
    module.gain.valueXi = 1000;
    module.gain.valueYi = -1000;
    module.hallInfo = {10, -20, 0x00300200, 0x00300100};  // spans 256 and 0
    struct Case {
        uint16_t format;
        float x;
        float y;
    };
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const Case& c :
         {Case{1, 1000.0F, -500.0F}, {2, 162.0F, -162.0F}, {3, 23.4375F, kInfinity}, {4, 0.0F, 0.0F}}) {
        module.custInfo.gainFormat = c.format;
        open(module);
        EXPECT_EQ(driver.mOisCalibInfo.hall_amplitude_x, c.x) << c.format;
        EXPECT_EQ(driver.mOisCalibInfo.hall_amplitude_y, c.y) << c.format;
        EXPECT_EQ(driver.mOisCalibInfo.angle_amplitude, 0.5F);
        EXPECT_EQ(driver.mOisCalibInfo.hall_center_y, -20);
        driver.Uninit();
    }
}

}  // namespace

// Opening and closing, the registry and the properties.

#include <atomic>
#include <set>
#include <system_error>

#include "driver/driver_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::DriverTest;
using driver_test::kBringUpUs;
using Keys = std::vector<std::string>;

constexpr const char* kHubModule = "korvas4sw-hub";
constexpr const char* kSubDeviceModule = "dw9786";

class Session : public DriverTest {
  protected:
    // What passed between driver and phone, without what it read and said.
    Keys course() {
        using phone::EventKind;
        const std::set skipped{EventKind::kProperty, EventKind::kMessage, EventKind::kThread,
                               EventKind::kCustomisation};
        Keys lines;
        for (const phone::Event& event : phone.trace().events()) {
            if (!skipped.contains(event.kind)) lines.push_back(phone::toText(event, false));
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

TEST_F(Session, WithoutOisOrWithOisDisabledItIsRefused) {
    // The property is not asked where the module has no OIS, so it cannot switch it on.
    for (const auto& [module, disable] : {std::pair("no-ois", 1), std::pair(kSubDeviceModule, 0)}) {
        SCOPED_TRACE(module);
        fit(phone::moduleByName(module));
        setProperty("disable", disable);
        forget();
        EXPECT_EQ(driver.Init(3, 4), 0);
        EXPECT_EQ(phone.trace().events(phone::EventKind::kProperty).empty(), disable == 1);
        EXPECT_EQ(messages().back(), "[Init] Dev(2), the current module isn't support OIS");
        EXPECT_EQ(driver.Uninit(), 0);
        EXPECT_EQ(driver.m_user_count, 0);
    }
}

TEST_F(Session, InitReadsElevenPropertiesInOrder) {
    fit(phone::moduleByName(kSubDeviceModule));
    setProperty("dump", 256);  // the low byte is 0
    ASSERT_EQ(driver.Init(3, 4), 1);
    Keys keys;
    for (const phone::Event& event : phone.trace().events(phone::EventKind::kProperty))
        keys.push_back(event.name.substr(std::strlen("vendor.debug.ois.")));
    EXPECT_EQ(keys, (Keys{"mode", "dump", "dump.interval.time", "dump.level", "actuator.dectect",
                          "status.check", "actois", "fixmode", "disable", "bypassen", "loglevel"}));
    EXPECT_EQ(driver.mProperty.dump, 0);
    EXPECT_EQ(driver.mProperty.dumpIntervalTime, 4);
    EXPECT_EQ(driver.mProperty.dumpLevel, 15);
    EXPECT_EQ(driver.mUseCustomCmd, 1);
}

TEST_F(Session, TheHubChannelComesUpAndGoesDownInOrder) {
    fit(phone::moduleByName(kHubModule));
    setProperty("loglevel", 3);
    ASSERT_EQ(driver.Init(3, 4), 1);
    EXPECT_EQ(driver.mSensorHubEnabled, 0);  // not before the bring-up thread has run
    phone.clock().sleepUs(kBringUpUs);
    EXPECT_EQ(driver.mSensorHubEnabled, 1);
    EXPECT_EQ(driver.mStreamState, 1);
    EXPECT_EQ(course(), (Keys{"sensor  createInstance user=OisDrv -> 1",
                              "sensor  enableSensor type=8 interval_ms=5 -> 1", "sleep  10 ms",
                              "sensor  isEnabled type=8 -> 1", "hub  INIT(17) bypass=1 log_level=3",
                              "hub  NOTIFY_STREAM(22) notify_stream=1", "sleep  10 ms"}));
    EXPECT_EQ(sent()[0].head(20), bytes("11 0c 00 00  01 00 00 00  03 00 00 00  00 00 00 00  00 00 00 00"));
    EXPECT_EQ(sent()[1].head(12), bytes("16 04 00 00  01 00 00 00  00 00 00 00"));

    forget();
    driver.Uninit();
    EXPECT_EQ(course(), (Keys{"telemetry  getService service=default get_stub=0 -> 1",
                              "telemetry  report module_id=N87 event_id=N87|10014 content=c_ois_error:0",
                              "hub  END_SESSION(26) value=0", "sleep  2 ms",
                              "sensor  disableSensor type=8 -> 0", "sensor  release"}));
    EXPECT_EQ(sent()[0].head(8), bytes("1a 04 00 00  00 00 00 00"));
    EXPECT_EQ(driver.mSensorHubEnabled, 0);
    EXPECT_EQ(driver.mpSensorProvider, nullptr);
}

TEST_F(Session, HubCourse) {
    fit(phone::moduleByName(kHubModule));
    forget();
    ASSERT_EQ(driver.Init(3, 4), 1);
    phone.clock().sleepUs(kBringUpUs);
    expectCourse("session", "hub up", {{"driver", phone.module(driver_test::kSensor)->driverName}});
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
    driver.mOisErrorFlag = driver.mLastAfPosition = driver.mStreamState = 7;
    driver.mOisMode = driver.mPreviousActEn = driver.mLastTemp = 7;
    driver.mAccParams.enable = 1;
    driver.Init(3, 9);
    EXPECT_EQ(driver.mModuleId, 9);
    EXPECT_EQ(driver.mOisMode, 0);
    EXPECT_EQ(driver.mPreviousActEn, 0);
    EXPECT_EQ(driver.mOisDynamic, -1);
    EXPECT_EQ(driver.mStatusWord, -1);
    EXPECT_EQ(driver.mLastTemp, 0);
    EXPECT_EQ(driver.mAccParams.enable, 0U);
    EXPECT_EQ(driver.mOisErrorFlag, 7);
    EXPECT_EQ(driver.mLastAfPosition, 7);
    EXPECT_EQ(driver.mStreamState, 7);
}

TEST_F(Session, AFailedBringUpLeavesTheChannelDown) {
    struct Case {
        const char* module;
        const char* fault;
        const char* said;
    };
    for (const Case& c :
         {Case{kHubModule, "sensor-provider:fail", "[InitDrv] mpSensorProvider is NULL"},
          {kSubDeviceModule, "open./dev/media1:errno=EACCES", "[InitDrv] Dev -1 , OIS error opening\n"}}) {
        fit(phone::moduleByName(c.module));
        fault(c.fault);
        ASSERT_EQ(driver.Init(3, 4), 1);
        phone.clock().sleepUs(kBringUpUs);
        EXPECT_EQ(messages().back(), c.said);
        EXPECT_EQ(driver.SetMode(2), 0);
        EXPECT_TRUE(sent().empty());
        driver.Uninit();
    }
}

TEST_F(Session, AThreadThatCannotBeCreatedIsASystemError) {
    fit(phone::moduleByName(kSubDeviceModule));
    fault("thread:errno=EAGAIN");
    EXPECT_THROW(driver.Init(3, 4), std::system_error);
    EXPECT_EQ(driver.m_user_count, 0);
}

TEST_F(Session, TelemetryReportsTheErrorFlagUnlessTheRegionForbids) {
    const std::string service = "telemetry  getService service=default get_stub=0 -> ";
    const std::string report = "telemetry  report module_id=N87 event_id=N87|10014 content=c_ois_error:";
    struct Case {
        const char* region;
        bool present;
        int32_t flag;
        Keys course;
        Keys said;
    };
    for (const Case& c :
         {Case{"N", true, 1, {service + "1", report + "1"}, {}},
          Case{"INDIA", true, 0, {service + "1", report + "0"}, {}},
          Case{"IN", true, 1, {service + "1"}, {"[GetDataRuvex] IN not get  to ruvex"}},
          Case{"", false, 1, {service + "0"}, {"[GetDataRuvex] Failed to get RuVex service"}}}) {
        SCOPED_TRACE(c.region);
        phone.properties().set("ro.product.country.region", c.region);
        phone.telemetry().setPresent(c.present);
        driver.mOisErrorFlag = c.flag;
        forget();
        EXPECT_EQ(driver.GetDataRuvex(), 0);
        EXPECT_EQ(course(), c.course);
        EXPECT_EQ(messages(), c.said);
    }
    EXPECT_EQ(phone.telemetry().references(), 0);
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

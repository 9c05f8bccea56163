// Opening and closing, the registry, the properties and the telemetry report.

#include <unistd.h>

#include <atomic>
#include <tuple>

#include "driver/dump_fixture.h"
#include "test_support.h"

namespace {

using driver_test::courseRecord;
using driver_test::DumpTest;
using driver_test::kBringUpUs;
using driver_test::stateOf;
using driver_test::Values;

constexpr const char* kSubDeviceModule = "dw9786";

class Session : public DumpTest {};

TEST_F(Session, TheRegistryKnowsEightIndices) {
    for (const int32_t index : {8, -1, 1 << 30}) {
        EXPECT_EQ(OISDrv::GetInstance(index), nullptr);
        expectCourse("session", "no such sensor", {{"index", std::to_string(index)}});
    }
    for (const int32_t index : {7, 0}) {
        ASSERT_NE(OISDrv::GetInstance(index), nullptr);
        EXPECT_EQ(OISDrv::GetInstance(index), OISDrv::GetInstance(index));
        EXPECT_EQ(OISDrv::GetInstance(index)->mSensorDev, index);
        EXPECT_EQ(OISDrv::GetInstance(index)->mSensorIdx, index);
    }
    EXPECT_EQ(DriverTest::course(), "");
}

TEST_F(Session, ConcurrentFirstCallsBuildOneObject) {
    std::array<std::atomic<OISDrv*>, 4> seen{};
    std::vector<std::thread> threads;
    for (auto& slot : seen) threads.emplace_back([&slot] { slot = OISDrv::GetInstance(5); });
    for (std::thread& thread : threads) thread.join();
    for (const auto& slot : seen) EXPECT_EQ(slot, OISDrv::GetInstance(5));
}

// --- Whole stories, each from Init to the last Uninit. The file has, for the story NAME, its setting [NAME],
// what the session came to, and the courses [NAME up] and [NAME down].

phone::ModuleDescription withGains(uint16_t format) {
    auto module = phone::moduleByName(kSubDeviceModule);
    module.custInfo.gainFormat = format;
    module.custInfo.angleAmplitude = 0.5F;
    module.custInfo.hallRange = 100;
    module.gain = {0, 0, 2.0F, -1.0F, 1000, -1000};
    module.hallInfo = {10, -20, 0x00300200, 0x00300100};  // spans 256 and 0
    return module;
}

class SessionStory : public DumpTest, public testing::WithParamInterface<const char*> {
  protected:
    SessionStory() {
        std::istringstream setting(driver_test::writtenCourse("session", GetParam()));
        for (std::string word, rest; setting >> word >> std::ws && std::getline(setting, rest);) {
            if (word == "module") module = phone::moduleByName(rest);
            if (word == "gains") module = withGains(static_cast<uint16_t>(std::stoi(rest)));
            if (word == "set") phone.properties().assign("vendor.debug.ois." + rest);
            if (word == "fault") fault(rest);
            if (word == "init") init = rest;
            if (word == "comes-to") outcome = rest;
            if (word == "leaves") left = rest;
        }
    }
    phone::ModuleDescription module;
    std::string init = "1";  // what Init returns or throws
    std::string outcome;
    std::string left = driver_test::kClosed;
};

TEST_P(SessionStory, GoesAsWritten) {
    fit(module);
    driver.mStreamState = driver.mControllerState = 7;
    forget();
    std::string returned;
    const std::string thrown = test_support::thrown([&] { returned = std::to_string(driver.Init(3, 4)); });
    EXPECT_EQ(returned + thrown, init);
    EXPECT_EQ(driver.mSensorHubEnabled, 0);  // not before the bring-up thread has run
    EXPECT_EQ(driver.fd_driver, -1);
    phone.clock().sleepUs(kBringUpUs);
    std::ostringstream state;
    const OisCalibInfo& calibration = driver.mOisCalibInfo;
    state << "hub " << int{driver.mSensorHubEnabled} << " device " << (driver.fd_driver >= 1) << " stream "
          << driver.mStreamState << " controller " << driver.mControllerState << " amplitudes "
          << calibration.hall_amplitude_x << ' ' << calibration.hall_amplitude_y << " angle "
          << calibration.angle_amplitude << " centre " << calibration.hall_center_x << ' '
          << calibration.hall_center_y << " axis values " << driver.mOisGain.valueXi << ' '
          << driver.mHallInfo.upperWord;
    EXPECT_EQ(state.str(), outcome);
    EXPECT_EQ(courseRecord(driver.mOisCustInfo), courseRecord(module.custInfo));
    EXPECT_EQ(std::memcmp(&driver.mOisCustExt, &module.otpAddresses, sizeof module.otpAddresses), 0);
    EXPECT_EQ(driver.mOisDriverName, module.driverName);
    const Values values = words({{"t", "t1 "},
                                 {"driver", module.driverName},
                                 {"block", courseRecord(module.custInfo)},
                                 {"us", "60000"}});
    expectCourse("session", GetParam() + std::string(" up"), values);
    EXPECT_EQ(driver.Uninit(), 0);
    expectCourse("session", GetParam() + std::string(" down"), values);
    EXPECT_EQ(stateOf(driver), left);
    EXPECT_EQ(phone.telemetry().references(), 0);
    EXPECT_EQ(phone.kernel().openNodes() + phone.kernel().openFiles(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Session, SessionStory,
                         testing::Values("hub", "hub, properties set", "hub, through the parser",
                                         "hub, all fails", "hub, odd end", "hub, no provider", "sub-device",
                                         "sub-device, all fails", "sub-device, not found",
                                         "sub-device, not opened", "sub-device, dumping", "gains 1",
                                         "gains 2", "gains 3", "gains 4", "no module", "switched off",
                                         "no thread"),
                         [](const auto& story) {
                             std::string name = story.param;
                             std::erase_if(name, [](char c) { return !std::isalnum(c); });
                             return name;
                         });

// --- Who opens and closes what

TEST_F(Session, UsersAreCountedAndTheLastOneCloses) {
    open(kSubDeviceModule);
    const auto* status = driver.mStatusBuf;
    const auto* flash = driver.mOisFlashData;
    EXPECT_EQ(driver.Init(3, 4), 1);
    phone.clock().sleepUs(kBringUpUs);
    expectCourse("session", "counted up", words());
    EXPECT_EQ(driver.m_user_count, 2);
    EXPECT_NE(driver.mStatusBuf, status);
    EXPECT_NE(driver.mOisFlashData, flash);
    EXPECT_EQ(flash->length, 0U);  // whoever holds it may still look
    driver.Uninit();
    expectCourse("session", "counted down", words());
    EXPECT_NE(driver.mOisFlashData, nullptr);
    const Values values = words();
    driver.Uninit();
    expectCourse("session", "sub-device down", values);
    driver.Uninit();
    open(kSubDeviceModule);
    EXPECT_GE(driver.fd_driver, 1);
}

TEST_F(Session, EveryInitResetsTheOpenRecordsAndNothingElse) {
    const auto fill = [](auto&... records) { (std::memset(&records, 0x55, sizeof records), ...); };
    auto reset = std::tie(driver.mSensorHubEnabled, driver.mPreviousActEn, driver.mParamsCallCount,
                          driver.mOisCustInfo, driver.mOisCustExt, driver.mProperty, driver.mUseCustomCmd,
                          driver.logLevel, driver.mFixMode, driver.mOisGain, driver.mHallInfo,
                          driver.mOisCalibInfo, driver.mOisMode, driver.mSineParam, driver.mAccParams,
                          driver.mOisParams, driver.mOisExtraParam, driver.mActOisIoctlState,
                          driver.mLastEngOperation, driver.mLastTemp, driver.mOisTempStrategy);
    std::apply(fill, reset);
    fill(driver.mTargetStatus, driver.mStatusWord, driver.mOisDynamic, driver.mIsOisSupport);
    driver.mOisErrorFlag = driver.mLastAfPosition = driver.mStreamState = driver.mDefectDetectDone = 7;
    driver.mOtpData.image[5] = 7;
    EXPECT_EQ(driver.Init(3, 9), 0);  // no module is there
    const auto expectZero = [](const auto& record) {
        EXPECT_EQ(driver_test::courseRecord(record), "..") << "record of " << sizeof record << " bytes";
    };
    std::apply([&](const auto&... records) { (expectZero(records), ...); }, reset);
    EXPECT_EQ(std::to_array(driver.mTargetStatus), (std::array{-1, -1, 0, 0, 0}));
    EXPECT_EQ(driver.mModuleId, 9);
    EXPECT_EQ(driver.mStatusWord, -1);
    EXPECT_EQ(driver.mOisDynamic, -1);
    EXPECT_EQ(driver.mIsOisSupport, 0);
    for (const int32_t kept : {driver.mOisErrorFlag, driver.mLastAfPosition, driver.mStreamState,
                               driver.mDefectDetectDone, int32_t{driver.mOtpData.image[5]}}) {
        EXPECT_EQ(kept, 7);
    }
}

// --- What the bring-up takes over

TEST_F(Session, AnotherFormatLeavesTheAmplitudesAsTheyStand) {
    const auto module = withGains(2);
    open(module);
    const int32_t first = driver.fd_driver;
    driver.mOisCustInfo.gainFormat = 4;
    EXPECT_EQ(driver.InitDrv(), 0);
    expectCourse("session", "brought up once more", words({{"block", courseRecord(withGains(4).custInfo)}}));
    EXPECT_EQ(driver.mOisCalibInfo.hall_amplitude_x, 162.0F);
    EXPECT_EQ(driver.mOisCalibInfo.hall_amplitude_y, -162.0F);
    close(first);
}

// The kernel may correct the block: what it wrote back is what everybody reads from then on.
TEST_F(Session, TheBlockThatTheKernelWritesBackIsKept) {
    auto corrected = phone::moduleByName(kSubDeviceModule).custInfo;
    std::strcpy(corrected.cameraTypeName, "front");
    std::strcpy(corrected.mOisIcName, "dw9799");
    corrected.angleAmplitude = 0.25F;
    corrected.coordinateNum = 3;
    onCommand("SET_CUSTOMISATION", [&](auto) { return answerWith(corrected); });
    setProperty("dump", 4);
    open(kSubDeviceModule);
    EXPECT_EQ(courseRecord(driver.mOisCustInfo), courseRecord(corrected));
    EXPECT_EQ(driver.mOisCalibInfo.angle_amplitude, 0.25F);
    EXPECT_TRUE(std::filesystem::exists(phone.files().dumpFolder() / "ois_dump_front_dw9799_flash.txt"));
}

// A driver name may fill its field without a NUL.
TEST_F(Session, ADriverNameIsReadWithinItsField) {
    auto module = phone::moduleByName(kSubDeviceModule);
    module.driverName = std::string(32, 'd');
    fit(module);
    forget();
    ASSERT_EQ(driver.Init(3, 4), 1);
    expectCourse("session", "named in full", words({{"driver", module.driverName}}));
    phone.clock().sleepUs(kBringUpUs);
    EXPECT_NE(DriverTest::course().find("driver name:" + module.driverName + " entity name:dw9786 4-0069\""),
              std::string::npos);
}

// No message, and the same session.
TEST_F(Session, NothingIsSaidWhileTheLogsAreOff) {
    phone.log().setLevel(phone::LogLevel::kOff);
    for (const char* module : {"dw9786", "korvas4sw-hub"}) {
        fit(phone::moduleByName(module));
        forget();
        ASSERT_EQ(driver.Init(3, 4), 1);
        phone.clock().sleepUs(driver_test::kBringUpUs);
        EXPECT_TRUE(driver.fd_driver >= 1 || driver.mSensorHubEnabled != 0) << module;
        driver.SetMode(2);
        driver.SetOperation(0);
        driver.update_temp_cmp();
        driver.Uninit();
        EXPECT_TRUE(phone.trace().events(phone::EventKind::kMessage).empty()) << module;
    }
}

}  // namespace

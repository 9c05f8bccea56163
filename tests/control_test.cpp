// Mode and operations, active OIS and stream, fix mode, focus compensation.

#include "driver_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::DriverTest;
using driver_test::kBringUpUs;
using Keys = std::vector<std::string>;

constexpr const char* kHubModule = "korvas4sw-hub";
constexpr const char* kSubDeviceModule = "dw9786";

class Control : public DriverTest {};

TEST_F(Control, AClosedDeviceSendsNothing) {
    EXPECT_EQ(driver.SetMode(2), 0);
    EXPECT_EQ(driver.SetOperation(1), -1);
    EXPECT_EQ(driver.EnableOis(1), 0);
    EXPECT_EQ(driver.CheckIcStatus(), 0);
    ois_stream_info stream{1, 0};
    EXPECT_EQ(driver.NotifyStream(&stream), 0);
    EXPECT_EQ(driver.SetOisAFdriftParams(3), 0);
    EXPECT_EQ(driver.mLastAfPosition, 0);
    EXPECT_TRUE(sent().empty());
}

TEST_F(Control, ModesAreSentLoadedOrRefused) {
    open(kSubDeviceModule);
    for (int32_t mode = -1; mode <= 12; ++mode) {
        driver.mOisMode = 100;
        forget();
        EXPECT_EQ(driver.SetMode(mode), 0);
        EXPECT_EQ(driver.mOisMode, mode);
        const bool isSent =
            mode == 0 || mode == 2 || mode == 3 || mode == 6 || mode == 8 || mode == 9 || mode == 10;
        const bool isSine = mode == 5 || mode == 7;
        EXPECT_EQ(sent().size(), isSent ? 1U : 0U) << mode;
        EXPECT_EQ(phone.trace().events(phone::EventKind::kProperty).size(), isSine ? 4U : 0U) << mode;
        const bool unsupported =
            messages().size() == 1 && messages()[0].find("unsupport mode") != std::string::npos;
        EXPECT_EQ(unsupported, !isSent && !isSine) << mode;
        forget();
        driver.SetMode(mode);  // a second time
        EXPECT_TRUE(phone.trace().events().empty()) << mode;
    }
    EXPECT_EQ(driver.mSineParam.enable, 3);
    EXPECT_EQ(driver.mSineParam.amplitudeY, 100);
}

TEST_F(Control, OperationsSendWhatTheirNumberSays) {
    struct Case {
        int32_t operation;
        const char* key;  // empty: nothing is sent
        const char* firstWord;
        int32_t logged;
    };
    constexpr Case kCases[] = {
        {0, "SET_MODE", "00 00 00 00", 0},
        {1, "SET_MODE", "02 00 00 00", 1},
        {2, "SET_GYRO_OFFSET", "00 00 00 00", 2},
        {11, "SET_ACC_PARAMS", "00 00 00 00", 11},
        {12, "SET_ACC_PARAMS", "00 00 00 00", 12},
        {15, "WRITE_GAIN", "00 00 00 00", 15},
        {16, "WRITE_GAIN", "01 00 00 00", 16},
        {-5, "WRITE_GAIN", "00 00 00 00", 5},
        {100, "WRITE_GAIN", "01 00 00 00", 100},
        {18, "OPERATION_18", "00 00 00 00", 18},
        {3, "", "", 3},
        {17, "", "", 17},
        {20, "", "", 20},
        {-1, "", "", -1},
    };
    open(kSubDeviceModule);
    for (const Case& c : kCases) {
        forget();
        EXPECT_EQ(driver.SetOperation(c.operation), 0) << c.operation;
        if (*c.key == '\0') {
            EXPECT_TRUE(sent().empty()) << c.operation;
            EXPECT_EQ(messages().at(0),
                      "[SetOperation] unsurpport operation " + std::to_string(c.logged) + "\n");
        } else {
            ASSERT_EQ(sentKeys(), Keys{c.key}) << c.operation;
            const std::vector<uint8_t> record = sent()[0].bytes;
            EXPECT_EQ((std::vector<uint8_t>(record.begin(), record.begin() + 4)), bytes(c.firstWord))
                << c.operation;
        }
        EXPECT_EQ(messages().back(),
                  "[SetOperation] ois_mode " + std::to_string(c.logged) + ", return_value 0\n");
    }
}

TEST_F(Control, GainsAreCodedByTheModulesFormat) {
    struct Case {
        uint16_t format;
        const char* written;  // bytes 8 to 23 of the record for X = 5000
        int32_t readBack;
    };
    constexpr Case kCases[] = {
        {1, "00 00 00 3f 00 00 00 00 00 00 00 00 00 00 00 00", 5000},
        {2, "00 00 00 00 00 00 00 00 88 13 00 00 00 00 00 00", 5000},
        {3, "00 00 00 00 00 00 00 00 00 00 00 40 00 00 00 00", 5000},
        {4, "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", 0},
    };
    for (const Case& c : kCases) {
        auto module = phone::moduleByName(kSubDeviceModule);
        module.custInfo.gainFormat = c.format;
        module.gain = {};
        open(module);
        EXPECT_EQ(driver.SetOperation(-5000), 0);
        const std::vector<uint8_t> record = sent().back().bytes;
        EXPECT_EQ((std::vector<uint8_t>(record.begin() + 8, record.end())), bytes(c.written)) << c.format;
        driver.mOisGain = {};
        EXPECT_EQ(driver.SetOperation(5), c.readBack) << c.format;
        EXPECT_EQ(driver.SetOperation(6), 0) << c.format;
        driver.Uninit();
    }
}

TEST_F(Control, ExtremeGainsSaturate) {
    auto module = phone::moduleByName(kSubDeviceModule);
    module.custInfo.gainFormat = 3;
    open(module);
    driver.SetOperation(std::numeric_limits<int32_t>::max());
    EXPECT_EQ(driver.mOisGain.valueYi, std::numeric_limits<int32_t>::max());
    driver.SetOperation(std::numeric_limits<int32_t>::min());
    EXPECT_EQ(driver.mOisGain.valueXi, std::numeric_limits<int32_t>::min());
}

TEST_F(Control, TheErrorFlagIsRaisedBySuccessAlone) {
    open(kSubDeviceModule);
    phone.faults().add(phone::parseFault("SET_GYRO_OFFSET@1:errno=EIO"));
    EXPECT_EQ(driver.SetOperation(2), -1);
    EXPECT_EQ(driver.mOisErrorFlag, 0);
    EXPECT_EQ(driver.SetOperation(2), 0);
    EXPECT_EQ(driver.mOisErrorFlag, 1);
}

TEST_F(Control, DefaultDistanceCompensationUsesTheParser) {
    auto module = phone::moduleByName(kSubDeviceModule);
    module.custInfo.accDistance = 400;
    open(module);
    driver.SetOperation(11);
    EXPECT_EQ(driver.mUseCustomCmd, 0);
    // enable 1, distance 400, 400.0, 0.15625 in Q31, count 8
    EXPECT_EQ(sent().back().bytes,
              bytes("00 00 00 00 01 00 00 00 00 00 00 00 90 01 00 00 00 00 c8 43 ff ff ff 13 08 00 00 00"));
    driver.SetOperation(12);
    EXPECT_EQ(sent().back().bytes,
              bytes("00 00 00 00 00 00 00 00 00 00 00 00 90 01 00 00 00 00 c8 43 ff ff ff 13 08 00 00 00"));
}

TEST_F(Control, StatusCheckIsForTheSubDeviceAlone) {
    open(kSubDeviceModule);
    decide = [](phone::FaultPoint, std::string_view, std::span<const uint8_t>) {
        return std::optional(phone::FaultEffect{.kind = phone::FaultEffect::Kind::kResult, .result = 7});
    };
    EXPECT_EQ(driver.CheckIcStatus(), 7);
    EXPECT_EQ(sent().back().bytes, bytes("00"));
    driver.Uninit();
    open(kHubModule);
    EXPECT_EQ(driver.CheckIcStatus(), 0);
    EXPECT_TRUE(sent().empty());
}

TEST_F(Control, EnableOisWaitsForTheNextRequest) {
    open(kSubDeviceModule);
    EXPECT_EQ(driver.EnableOis(2), 0);
    EXPECT_EQ(driver.mOisDynamic, 2);
    EXPECT_TRUE(sent().empty());
    driver.mIsOisSupport = 0;
    driver.EnableOis(5);
    EXPECT_EQ(driver.mOisDynamic, 2);
}

TEST_F(Control, ActiveOisNeedsSceneModeSupportAndChange) {
    struct Case {
        int32_t scene;
        int32_t mode;
        uint16_t support;
        int32_t previous;
        bool isSent;
    };
    for (const Case& c : {Case{4, 2, 1, 0, true},
                          {12, 2, 1, 0, true},
                          {14, -1, 1, 0, true},
                          {13, 2, 1, 0, false},
                          {4, 0, 1, 0, false},
                          {4, 2, 2, 0, false},
                          {4, 2, 1, 1, false}}) {
        auto module = phone::moduleByName(kSubDeviceModule);
        module.custInfo.actOisSupport = c.support;
        open(module);
        driver.mOisParams.act_scene = c.scene;
        driver.mOisMode = c.mode;
        driver.mPreviousActEn = c.previous;
        driver.SetActOis({1, 0x3fc00000});
        EXPECT_EQ(sent().size(), c.isSent ? 1U : 0U) << c.scene << ' ' << c.mode;
        EXPECT_EQ(driver.mPreviousActEn, c.previous);
        if (c.isSent) {
            EXPECT_EQ(messages().back(),
                      "[SetActOis] need update, act ois enable 1, act ois angle 0x3fc00000");
        }
        driver.Uninit();
    }
}

TEST_F(Control, ActiveOisTellsTheHubTwoBytes) {
    auto module = phone::moduleByName(kHubModule);
    module.custInfo.actOisSupport = 1;
    open(module);
    driver.mOisParams.act_scene = 4;
    driver.mOisMode = 2;
    driver.SetActOis({0x01020304, 5});
    const std::vector<uint8_t> record = sent().at(0).bytes;
    EXPECT_EQ((std::vector<uint8_t>(record.begin(), record.begin() + 8)), bytes("18 02 00 00 04 03 00 00"));
}

TEST_F(Control, AStreamChangeResetsAndWaits) {
    auto module = phone::moduleByName(kSubDeviceModule);
    module.custInfo.streamOnDelay = 700;
    fit(module);
    ASSERT_EQ(driver.Init(1, 2), 1);
    ois_stream_info on{1, 0};
    driver.NotifyStream(&on);  // waits for the bring-up
    EXPECT_FALSE(driver.mInitDrvThread.joinable());
    EXPECT_TRUE(controller().streaming());
    EXPECT_EQ(messages().back(), "[NotifyStream] streamOnDelay 700\n");
    driver.SetMode(2);
    driver.mLastTemp = 30;
    forget();
    driver.NotifyStream(&on);
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(driver.mOisMode, 2);
    ois_stream_info off{0, 0};
    driver.mOisParams.scenario = 29;
    driver.NotifyStream(&off);
    EXPECT_TRUE(sent().empty());
    driver.mOisParams.scenario = 0;
    driver.NotifyStream(&off);
    EXPECT_EQ(sent().back().bytes, bytes("00 00 00 00 00 00 00 00"));
    EXPECT_EQ(driver.mOisMode, -1);
    EXPECT_EQ(driver.mOisDynamic, -1);
    EXPECT_EQ(driver.mLastTemp, 0);
    EXPECT_EQ(driver.NotifyStream(nullptr), 0);
}

TEST_F(Control, AFailedStreamChangeIsNotRepeated) {
    open(kSubDeviceModule);
    phone.faults().add(phone::parseFault("NOTIFY_STREAM:errno=EIO"));
    ois_stream_info on{1, 0};
    EXPECT_EQ(driver.NotifyStream(&on), -1);
    EXPECT_EQ(driver.NotifyStream(&on), 0);
}

TEST_F(Control, FixModeTargetsDependOnTheChip) {
    struct Case {
        const char* chip;
        const char* property;  // empty: not set
        int32_t target;
        bool isSent;
    };
    for (const Case& c : {Case{"korvas4sw", "", 2000, true},
                          {"korvas4sw", "50", 50, true},
                          {"dw9781", "", 0, false},
                          {"dw9786", "50", 50, true},
                          {"dw9786x", "50", 0, false},
                          {"dw978", "50", 0, false}}) {
        auto module = phone::moduleByName(kSubDeviceModule);
        std::memset(module.custInfo.mOisIcName, 0, sizeof module.custInfo.mOisIcName);
        std::strcpy(module.custInfo.mOisIcName, c.chip);
        phone.properties().clear();
        phone.properties().set("vendor.debug.ois.fixmode", "1");
        if (*c.property != '\0') {
            phone.properties().set("vendor.debug.ois.targetx", c.property);
            phone.properties().set("vendor.debug.ois.targety", c.property);
        }
        open(module);
        driver.SetFixMode();
        EXPECT_EQ(sent().size(), c.isSent ? 1U : 0U) << c.chip;
        EXPECT_EQ(driver.mFixMode.target_x, c.target) << c.chip;
        driver.SetFixMode();
        EXPECT_EQ(sent().size(), c.isSent ? 1U : 0U) << c.chip;
        driver.Uninit();
    }
}

TEST_F(Control, AccelerometerCompensationHasDeadBandAndHysteresis) {
    struct Step {
        ois_focus_params focus;
        bool isSent;
        uint32_t enable;
    };
    constexpr Step kSteps[] = {
        {{1, 500, 0, 0.0F}, false, 0},  // not below the switch-on limit
        {{1, 499, 0, 0.0F}, true, 1},   // on
        {{1, 523, 0, 0.0F}, false, 1},  // under 5 %
        {{1, 526, 0, 0.0F}, true, 1},   // update
        {{1, 600, 0, 0.0F}, true, 1},   //
        {{1, 601, 0, 0.0F}, false, 1},  // inside the dead band
        {{1, 640, 0, 0.0F}, true, 0},   // off
        {{1, 80, 0, 0.0F}, true, 1},    // on again, very near
        {{1, 90, 0, 0.0F}, false, 1},   // too near to update
        {{1, 90, 1, 4.0F}, true, 1},    // 250 mm from the focus value
        {{0, 90, 0, 3.7F}, false, 1},   // 270 mm: under 10 %
        {{0, 90, 0, 0.05F}, true, 0},   // 10 m
    };
    auto module = phone::moduleByName(kSubDeviceModule);
    module.custInfo.accSupport = 1;
    open(module);
    driver.mOisMode = 2;
    int step = 0;
    for (Step s : kSteps) {
        SCOPED_TRACE(step++);
        forget();
        EXPECT_EQ(driver.SetAccParam(reinterpret_cast<long>(&s.focus)), 0);
        EXPECT_EQ(sent().size(), s.isSent ? 1U : 0U);
        EXPECT_EQ(driver.mAccParams.enable, s.enable);
        if (s.focus.distanceValid == 0) {
            EXPECT_GE(s.focus.focusDiopter, 0.1F);
        }
    }
    EXPECT_EQ(driver.mAccParams.distance, 10000);
    EXPECT_EQ(driver.SetAccParam(0), 0);
    driver.mOisMode = 3;
    forget();
    ois_focus_params near{1, 100, 0, 0.0F};
    driver.SetAccParam(reinterpret_cast<long>(&near));
    EXPECT_TRUE(sent().empty());
}

TEST_F(Control, AfPositionIsCodedByCameraType) {
    struct Case {
        uint16_t cameraType;
        int32_t position;
        const char* payload;  // empty: nothing is sent
    };
    for (const Case& c : {Case{2, 300, "2c 01"}, {1, 300, "00 4b"}, {3, 300, ""}, {2, 0, ""}, {2, -4, ""}}) {
        auto module = phone::moduleByName(kSubDeviceModule);
        module.custInfo.camera_type = c.cameraType;
        driver.mLastAfPosition = 0;
        open(module);
        EXPECT_EQ(driver.SetOisAFdriftParams(c.position), 0);
        driver.SetOisAFdriftParams(c.position);
        EXPECT_EQ(sent().size(), *c.payload != '\0' ? 1U : 0U) << c.cameraType << ' ' << c.position;
        if (*c.payload != '\0') {
            EXPECT_EQ(sent()[0].bytes, bytes(c.payload));
        }
        EXPECT_EQ(driver.mLastAfPosition, c.position >= 1 ? c.position : 0);
        driver.Uninit();
    }
}

}  // namespace

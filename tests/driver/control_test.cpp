// Mode and operations, active OIS and stream, fix mode, focus compensation.

#include <functional>
#include <limits>
#include <set>

#include "driver/driver_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::DriverTest;
using Keys = std::vector<std::string>;

constexpr const char* kHubModule = "korvas4sw-hub";
constexpr const char* kSubDeviceModule = "dw9786";

class Control : public DriverTest {
  protected:
    // Opens the driver on a sub-device module with what `change` makes of its customisation.
    void openWith(const std::function<void(ois::OisCustInfo&)>& change,
                  const char* module = kSubDeviceModule) {
        phone::ModuleDescription description = phone::moduleByName(module);
        change(description.custInfo);
        open(description);
    }
};

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
        SCOPED_TRACE(mode);
        driver.mOisMode = 100;
        forget();
        EXPECT_EQ(driver.SetMode(mode), 0);
        EXPECT_EQ(driver.mOisMode, mode);
        const bool isSent = std::set{0, 2, 3, 6, 8, 9, 10}.contains(mode);
        const bool isSine = mode == 5 || mode == 7;
        EXPECT_EQ(sent().size(), isSent ? 1U : 0U);
        EXPECT_EQ(phone.trace().events(phone::EventKind::kProperty).size(), isSine ? 4U : 0U);
        const Keys refusal = {"[SetMode] unsupport mode " + std::to_string(mode) + "\n"};
        EXPECT_EQ(messages() == refusal, !isSent && !isSine);
        forget();
        driver.SetMode(mode);  // a second time
        EXPECT_TRUE(phone.trace().events().empty());
    }
    EXPECT_EQ(driver.mSineParam.enable, 3);
    EXPECT_EQ(driver.mSineParam.amplitudeY, 100);
}

TEST_F(Control, OperationsSendWhatTheirNumberSays) {
    struct Case {
        const char* key;  // empty: nothing is sent
        uint8_t firstByte;
        std::vector<int32_t> operations;
    };
    open(kSubDeviceModule);
    const auto check = [&](const Case& c, int32_t operation) {
        SCOPED_TRACE(operation);
        forget();
        EXPECT_EQ(driver.SetOperation(operation), 0);
        const std::string number = std::to_string(operation == -5 ? 5 : operation);
        EXPECT_EQ(messages().back(), "[SetOperation] ois_mode " + number + ", return_value 0\n");
        if (*c.key == '\0') {
            EXPECT_TRUE(sent().empty());
            EXPECT_EQ(messages().at(0), "[SetOperation] unsurpport operation " + number + "\n");
        } else {
            ASSERT_EQ(sentKeys(), Keys{c.key});
            EXPECT_EQ(sent()[0].head(4), (std::vector<uint8_t>{c.firstByte, 0, 0, 0}));
        }
    };
    for (const Case& c : {Case{"SET_MODE", 0, {0}},
                          {"SET_MODE", 2, {1}},
                          {"SET_GYRO_OFFSET", 0, {2}},
                          {"SET_ACC_PARAMS", 0, {11, 12}},
                          {"WRITE_GAIN", 0, {15, -5}},
                          {"WRITE_GAIN", 1, {16, 100}},
                          {"OPERATION_18", 0, {18}},
                          {"", 0, {3, 17, 20, -1}}}) {
        for (const int32_t operation : c.operations) check(c, operation);
    }
}

TEST_F(Control, GainsAreCodedByTheModulesFormatAndSaturate) {
    constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
    struct Case {
        uint16_t format;
        int32_t operation;
        const char* written;  // bytes 8 to 23 of the record
        int32_t readBackX;
        int32_t readBackY;
    };
    constexpr Case kCases[] = {
        {1, -5000, "00 00 00 3f 00 00 00 00 00 00 00 00 00 00 00 00", 5000, 0},
        {2, -5000, "00 00 00 00 00 00 00 00 88 13 00 00 00 00 00 00", 5000, 0},
        {3, -5000, "00 00 00 00 00 00 00 00 00 00 00 40 00 00 00 00", 5000, 0},
        {4, -5000, "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", 0, 0},
        {3, kMost, "00 00 00 00 00 00 00 00 00 00 00 00 ff ff ff 7f", 0, 10000},
        {3, -kMost - 1, "00 00 00 00 00 00 00 00 00 00 00 80 00 00 00 00", -10000, 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        auto module = phone::moduleByName(kSubDeviceModule);
        module.custInfo.gainFormat = c.format;
        module.gain = {};
        open(module);
        EXPECT_EQ(driver.SetOperation(c.operation), 0);
        const std::vector<uint8_t> record = sent().back().bytes;
        EXPECT_EQ((std::vector<uint8_t>(record.begin() + 8, record.end())), bytes(c.written));
        driver.mOisGain = {};
        EXPECT_EQ(driver.SetOperation(5), c.readBackX);
        EXPECT_EQ(driver.SetOperation(6), c.readBackY);
        driver.Uninit();
    }
}

TEST_F(Control, TheErrorFlagIsRaisedBySuccessAlone) {
    open(kSubDeviceModule);
    fault("SET_GYRO_OFFSET@1:errno=EIO");
    EXPECT_EQ(driver.SetOperation(2), -1);
    EXPECT_EQ(driver.mOisErrorFlag, 0);
    EXPECT_EQ(driver.SetOperation(2), 0);
    EXPECT_EQ(driver.mOisErrorFlag, 1);
}

TEST_F(Control, DefaultDistanceCompensationUsesTheParser) {
    openWith([](auto& info) { info.accDistance = 400; });
    driver.SetOperation(11);
    EXPECT_EQ(driver.mUseCustomCmd, 0);
    driver.SetOperation(12);
    // The switch, distance 400, 400.0, 0.15625 in Q31, count 8
    const std::string rest = "00 00 00 00 00 00 00 90 01 00 00 00 00 c8 43 ff ff ff 13 08 00 00 00";
    EXPECT_EQ(sent().at(0).bytes, bytes("00 00 00 00 01 " + rest));
    EXPECT_EQ(sent().at(1).bytes, bytes("00 00 00 00 00 " + rest));
}

TEST_F(Control, StatusCheckIsForTheSubDeviceAlone) {
    open(kSubDeviceModule);
    fault("CHECK_STATUS:result=7");
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
        const char* module;
        int32_t scene;
        int32_t mode;
        uint16_t support;
        int32_t previous;
        const char* head;  // of the record; empty: nothing is sent
    };
    constexpr const char* kRecord = "01 00 00 00 00 00 c0 3f";
    for (const Case& c : {Case{kSubDeviceModule, 4, 2, 1, 0, kRecord},
                          {kSubDeviceModule, 12, 2, 1, 0, kRecord},
                          {kSubDeviceModule, 14, -1, 1, 0, kRecord},
                          {kSubDeviceModule, 13, 2, 1, 0, ""},
                          {kSubDeviceModule, 4, 0, 1, 0, ""},
                          {kSubDeviceModule, 4, 2, 2, 0, ""},
                          {kSubDeviceModule, 4, 2, 1, 1, ""},
                          {kHubModule, 4, 2, 1, 0, "18 02 00 00 01 00 00 00"}}) {
        SCOPED_TRACE(std::to_string(c.scene) + ' ' + std::to_string(c.mode));
        openWith([&](auto& info) { info.actOisSupport = c.support; }, c.module);
        driver.mOisParams.act_scene = c.scene;
        driver.mOisMode = c.mode;
        driver.mPreviousActEn = c.previous;
        driver.SetActOis({1, 0x3fc00000});
        ASSERT_EQ(sent().size(), *c.head != '\0' ? 1U : 0U);
        for (const driver_test::Sent& command : sent()) {
            EXPECT_EQ(command.head(8), bytes(c.head));
            EXPECT_EQ(messages().back(),
                      "[SetActOis] need update, act ois enable 1, act ois angle 0x3fc00000");
        }
        EXPECT_EQ(driver.mPreviousActEn, c.previous);
        driver.Uninit();
    }
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

    fault("NOTIFY_STREAM:errno=EIO");
    EXPECT_EQ(driver.NotifyStream(&on), -1);
    EXPECT_EQ(driver.NotifyStream(&on), 0);  // a failure is not repeated
}

TEST_F(Control, FixModeTargetsDependOnTheChip) {
    struct Case {
        const char* chip;
        std::optional<int> property;
        int32_t target;
    };
    setProperty("fixmode", 1);
    for (const Case& c : {Case{"korvas4sw", {}, 2000},
                          {"dw9781", {}, 0},
                          {"korvas4sw", 50, 50},
                          {"dw9786", 50, 50},
                          {"dw9786x", 50, 0},
                          {"dw978", 50, 0}}) {
        SCOPED_TRACE(c.chip);
        if (c.property) {
            setProperty("targetx", *c.property);
            setProperty("targety", *c.property);
        }
        openWith([&](auto& info) { std::strcpy(info.mOisIcName, c.chip); });
        driver.SetFixMode();
        driver.SetFixMode();  // nothing has changed
        EXPECT_EQ(sent().size(), c.target != 0 ? 1U : 0U);
        EXPECT_EQ(driver.mFixMode.target_x, c.target);
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
    openWith([](auto& info) { info.accSupport = 1; });
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
        SCOPED_TRACE(std::to_string(c.cameraType) + ' ' + std::to_string(c.position));
        driver.mLastAfPosition = 0;
        openWith([&](auto& info) { info.camera_type = c.cameraType; });
        EXPECT_EQ(driver.SetOisAFdriftParams(c.position), 0);
        driver.SetOisAFdriftParams(c.position);  // nothing has changed
        ASSERT_EQ(sent().size(), *c.payload != '\0' ? 1U : 0U);
        for (const driver_test::Sent& command : sent()) EXPECT_EQ(command.bytes, bytes(c.payload));
        EXPECT_EQ(driver.mLastAfPosition, std::max(c.position, 0));
        driver.Uninit();
    }
}

}  // namespace

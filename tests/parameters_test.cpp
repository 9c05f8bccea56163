// The per-request path.

#include <cmath>

#include "driver_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::DriverTest;
using driver_test::kSensor;
using Keys = std::vector<std::string>;

constexpr const char* kHubModule = "korvas4sw-hub";

// A module on the sub-device with nothing optional.
phone::ModuleDescription plainModule() {
    phone::ModuleDescription module = phone::moduleByName("dw9786");
    module.custInfo.actOisSupport = 0;
    module.custInfo.zoomActOisSupport = 0;
    module.custInfo.extraParamSupport = 0;
    module.custInfo.zoomScale = 0;
    return module;
}

phone::ModuleDescription zoomActiveModule() {
    phone::ModuleDescription module = plainModule();
    module.custInfo.zoomActOisSupport = 1;
    return module;
}

phone::ModuleDescription angleActiveModule() {
    phone::ModuleDescription module = plainModule();
    module.custInfo.actOisSupport = 1;
    module.custInfo.actOisAngle = 1.5F;
    return module;
}

ois_params request() {
    ois_params params{};
    params.ois_mode_from_tag = 1;
    params.engineer_operation = -1;
    params.zoom_ratio = 1.0F;
    params.sensor_dev = kSensor;
    return params;
}

class Parameters : public DriverTest {
  protected:
    int32_t apply(ois_params params) { return driver.SetOisParams(&params); }
    void setDynamic(int value) { phone.properties().set("vendor.debug.ois.dynamic", std::to_string(value)); }
    size_t count(const std::string& key) {
        size_t found = 0;
        for (const driver_test::Sent& command : sent()) found += command.key == key ? 1 : 0;
        return found;
    }
};

TEST_F(Parameters, ClosedOrUnsupportedOnlyLogs) {
    EXPECT_EQ(apply(request()), 0);
    EXPECT_EQ(messages(), Keys{"[SetOisParams] not support OIS\n"});
    open(plainModule());
    driver.fd_driver = -1;
    phone.trace().clear();
    EXPECT_EQ(apply(request()), 0);
    EXPECT_EQ(messages(), Keys{"[SetOisParams] Dev -1 , OIS error opening\n"});
}

TEST_F(Parameters, ModeFollowsTheRequestAndIsSentOnce) {
    open(plainModule());
    setDynamic(1);
    ois_params params = request();
    EXPECT_EQ(apply(params), 0);
    EXPECT_EQ(apply(params), 0);
    params.zoom_ratio = 9.0F;
    EXPECT_EQ(apply(params), 0);
    params.video_mode = 1;
    EXPECT_EQ(apply(params), 0);
    ASSERT_EQ(sentKeys(), (Keys{"SET_MODE", "SET_MODE", "SET_MODE"}));
    EXPECT_EQ(sent()[0].bytes, bytes("02 00 00 00"));
    EXPECT_EQ(sent()[1].bytes, bytes("06 00 00 00"));
    EXPECT_EQ(sent()[2].bytes, bytes("03 00 00 00"));
}

TEST_F(Parameters, ZoomFactorIsTheModulesOrTheDriversOwn) {
    struct Case {
        float zoomScale;
        int32_t enabled;
        float zoom;
        int32_t mode;
    };
    for (const Case& c : {Case{2.0F, 1, 4.1F, 6}, Case{2.0F, 0, 4.1F, 2}, Case{0.0F, 1, 4.1F, 2}}) {
        auto module = plainModule();
        module.custInfo.zoomScale = c.zoomScale;
        open(module);
        setDynamic(1);
        ois_params params = request();
        params.zoom_scale_en = c.enabled;
        params.zoom_ratio = c.zoom;
        apply(params);
        EXPECT_EQ(driver.mOisMode, c.mode) << c.zoomScale << ' ' << c.enabled;
        driver.Uninit();
    }
}

TEST_F(Parameters, ManualModeRunsModeZeroAndLogsNoZoom) {
    phone.properties().set("vendor.debug.ois.mode", "1");
    open(plainModule());
    driver.mOisMode = 3;
    ois_params params = request();
    params.zoom_ratio = 5.0F;
    apply(params);
    EXPECT_EQ(sent().at(0).bytes, bytes("00 00 00 00"));
    EXPECT_NE(messages().back().find("ois_mode_execute 0, video_mode 0, zoom_ratio 0.000000, result 0\n"),
              std::string::npos);
}

TEST_F(Parameters, LastMessageNamesTheEngineerModeInPlaceOfTheResult) {
    open(plainModule());
    ois_params params = request();
    params.engineer_mode = 7;
    params.zoom_ratio = 2.5F;
    apply(params);
    EXPECT_EQ(messages().back(),
              "[SetOisParams] Device_id 2, engineer_mode 7, engineer_operation -1, ois_mode_from_tag 1, "
              "ois_mode_execute 2, video_mode 0, zoom_ratio 2.500000, result 7\n");
}

TEST_F(Parameters, ZoomActiveOisIsSwitchedAtTheLimitOnly) {
    open(zoomActiveModule());
    setDynamic(3);
    ois_params params = request();
    for (const float zoom : {24.9F, 25.0F, 26.0F, 24.9F, 24.0F}) {
        params.zoom_ratio = zoom;
        apply(params);
    }
    EXPECT_EQ(count("SET_ZOOM_ACTIVE_OIS"), 2U);
    EXPECT_EQ(driver.mActOisIoctlState, 0);
    // The state of the last switch still stands, so a second rise sends nothing.
    params.zoom_ratio = 25.0F;
    apply(params);
    EXPECT_EQ(count("SET_ZOOM_ACTIVE_OIS"), 2U);
}

TEST_F(Parameters, ZoomActiveOisGoesOffWithAnotherDynamicMode) {
    open(zoomActiveModule());
    setDynamic(3);
    ois_params params = request();
    params.zoom_ratio = 25.0F;
    apply(params);
    EXPECT_EQ(controller().state().zoomActiveOis, 1);
    setDynamic(1);
    apply(params);
    EXPECT_EQ(controller().state().zoomActiveOis, 0);
    EXPECT_EQ(driver.mPreviousActEn, 1);
    apply(params);
    EXPECT_EQ(count("SET_ZOOM_ACTIVE_OIS"), 2U);
}

TEST_F(Parameters, AngleActiveOisFollowsDynamicModeSceneAndSwitch) {
    open(angleActiveModule());
    ois_params params = request();
    params.act_scene = 12;
    setDynamic(1);
    apply(params);  // from 0 to 1
    ASSERT_EQ(count("SET_ACTIVE_OIS"), 1U);
    EXPECT_EQ(sent().back().bytes, bytes("01 00 00 00 01 00 00 00"));
    setDynamic(2);
    apply(params);
    ASSERT_EQ(count("SET_ACTIVE_OIS"), 2U);
    EXPECT_EQ(sent().back().bytes, bytes("02 00 00 00 00 00 c0 3f"));  // 1.5
    apply(params);
    EXPECT_EQ(count("SET_ACTIVE_OIS"), 2U);
    setDynamic(5);  // nothing, and the state before stands
    apply(params);
    EXPECT_EQ(driver.mPreviousActEn, 2);
    params.act_scene = 13;
    setDynamic(1);
    apply(params);  // blocked by the scene, yet remembered
    EXPECT_EQ(count("SET_ACTIVE_OIS"), 2U);
    EXPECT_EQ(driver.mPreviousActEn, 1);
}

TEST_F(Parameters, ExtraParameterIsKeptWhenTheModuleHasIt) {
    auto module = plainModule();
    ois_params params = request();
    params.extra_param = 0xabcd;
    open(module);
    apply(params);
    EXPECT_EQ(driver.mOisExtraParam, 0U);
    driver.Uninit();
    module.custInfo.extraParamSupport = 1;
    open(module);
    apply(params);
    EXPECT_EQ(driver.mOisExtraParam, 0xabcdU);
}

TEST_F(Parameters, CaptureGoesToTheHubFromTheLimitOn) {
    open(kHubModule);
    ois_params params = request();
    params.capture_en = 1;
    params.capture_value = 124999;
    apply(params);
    EXPECT_EQ(count("CAPTURE"), 0U);
    phone.trace().clear();
    params.capture_value = 125000;
    apply(params);
    ASSERT_EQ(count("CAPTURE"), 1U);
    std::vector<std::string> captureLines;
    for (const phone::Event& event : phone.trace().events()) {
        if (event.name == "CAPTURE") captureLines.emplace_back("sent");
        if (event.text.find("ois capture") != std::string::npos) captureLines.push_back(event.text);
    }
    const std::string line = "[SetOisParams] ois capture: 125000 ! ++ ++\n";
    EXPECT_EQ(captureLines, (Keys{line, line, "sent", line}));
}

TEST_F(Parameters, FixModeTakesTheRequestsPlace) {
    phone.properties().set("vendor.debug.ois.fixmode", "1");
    phone.properties().set("vendor.debug.ois.targetx", "120");
    phone.properties().set("vendor.debug.ois.targety", "-80");
    open(plainModule());
    phone.properties().set("vendor.debug.ois.gethall", "1");
    ois_params params = request();
    params.op_result_ptr = &params.op_result;
    EXPECT_EQ(driver.SetOisParams(&params), 0);
    EXPECT_EQ(params.op_result_ptr, &params.op_result);  // the record is not looked at
    ASSERT_EQ(sentKeys(), (Keys{"SET_FIX_MODE", "GET_HALL"}));
    // gethall is read after the send, so the first record still says 0.
    EXPECT_EQ(sent()[0].bytes,
              bytes("01 00 00 00 00 00 00 00 78 00 00 00 b0 ff ff ff 00 00 00 00 00 00 00 00"));
    driver.SetOisParams(nullptr);
    EXPECT_EQ(sentKeys(), (Keys{"SET_FIX_MODE", "GET_HALL", "GET_HALL"}));
}

TEST_F(Parameters, EngineeringOperationRunsOncePerValue) {
    open(plainModule());
    ois_params params = request();
    params.engineer_mode = 8;
    params.engineer_operation = 1;
    EXPECT_EQ(driver.SetOisParams(&params), 0);
    EXPECT_EQ(params.op_result_ptr, &params.op_result);
    EXPECT_EQ(sentKeys(), (Keys{"CHECK_STATUS", "START_ENGINEERING", "SET_MODE"}));
    forget();
    driver.SetOisParams(&params);
    EXPECT_EQ(params.op_result_ptr, nullptr);
    EXPECT_EQ(sentKeys(), Keys{"CHECK_STATUS"});
    driver.SetOisParams(&params);
    EXPECT_EQ(driver.mParamsCallCount, 2);
    params.engineer_operation = -1;
    driver.SetOisParams(&params);
    EXPECT_EQ(driver.mLastEngOperation, 1);
}

TEST_F(Parameters, FailedOperationIsNotRemembered) {
    open(plainModule());
    decide = [](phone::FaultPoint, std::string_view key,
                std::span<const uint8_t>) -> std::optional<phone::FaultEffect> {
        if (key != "SET_MODE") return std::nullopt;
        return phone::FaultEffect{};
    };
    ois_params params = request();
    params.engineer_mode = 8;
    params.engineer_operation = 1;
    EXPECT_EQ(driver.SetOisParams(&params), -1);
    EXPECT_EQ(params.op_result_ptr, nullptr);
    EXPECT_EQ(driver.mLastEngOperation, 0);
}

TEST_F(Parameters, FixTargetSendsTheRecordAtTheEnd) {
    open(plainModule());
    driver.mProperty.fixTarget = 1;
    driver.mProperty.statusCheck = 1;
    phone.properties().set("vendor.debug.ois.tarx", "7");
    phone.properties().set("vendor.debug.ois.tary", "9");
    apply(request());
    EXPECT_EQ(sentKeys(), (Keys{"SET_MODE", "CHECK_STATUS", "SET_FIX_MODE"}));
    EXPECT_EQ(sent().back().bytes,
              bytes("01 00 00 00 00 00 00 00 07 00 00 00 09 00 00 00 00 00 00 00 00 00 00 00"));
}

TEST_F(Parameters, TemperatureIsSentInStepsOfFiveDegrees) {
    open(kHubModule);
    ois_params params = request();
    const auto temperaturesSent = [&] { return count("SET_TEMPERATURE"); };
    struct Reading {
        const char* text;
        size_t sentSoFar;
    };
    for (const Reading& reading : {Reading{"10", 0},
                                   {"80", 0},
                                   {"30", 1},
                                   {"33", 1},
                                   {"35", 2},
                                   {"31\n", 2},
                                   {"30", 3},
                                   {"hot", 3},
                                   {"", 3},
                                   {"79", 4},
                                   {"11", 5}}) {
        phone.files().setThermal(reading.text);
        apply(params);
        EXPECT_EQ(temperaturesSent(), reading.sentSoFar) << reading.text;
    }
    phone.files().setThermalAbsent();
    phone.trace().clear();
    apply(params);
    EXPECT_EQ(messages().at(0).substr(0, 50), "[update_temp_cmp] failed to open temppath");
    EXPECT_EQ(driver.mLastTemp, 11);
}

TEST_F(Parameters, TemperatureStrategyIsSentOncePerStreamForStillScenario) {
    open(kHubModule);
    ois_params params = request();
    params.scenario = 31;
    params.video_mode = 1;
    phone.files().setThermal("30");
    apply(params);
    EXPECT_EQ(count("SET_TEMP_STRATEGY"), 0U);
    params.video_mode = 0;
    apply(params);  // no temperature is sent, so the strategy is not looked at
    EXPECT_EQ(count("SET_TEMP_STRATEGY"), 0U);
    phone.files().setThermal("40");
    apply(params);
    phone.files().setThermal("50");
    apply(params);
    EXPECT_EQ(count("SET_TEMP_STRATEGY"), 1U);
    for (int32_t state : {0, 1}) {
        params.scenario = 0;
        apply(params);
        ois_stream_info stream{state, 0};
        driver.NotifyStream(&stream);
    }
    params.scenario = 31;
    apply(params);
    EXPECT_EQ(count("SET_TEMP_STRATEGY"), 2U);
}

}  // namespace

// The per-request path.

#include <functional>

#include "driver/driver_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::DriverTest;
using driver_test::kSensor;
using Keys = std::vector<std::string>;

constexpr const char* kHubModule = "korvas4sw-hub";

// A module on the sub-device with nothing optional.
phone::ModuleDescription plainModule() {
    phone::ModuleDescription module = phone::moduleByName("dw9786");
    ois::OisCustInfo& info = module.custInfo;
    info.actOisSupport = info.zoomActOisSupport = info.extraParamSupport = 0;
    info.zoomScale = 0;
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
    int32_t apply() { return driver.SetOisParams(&params); }
    // Opens the driver on the plain module with what `change` makes of it.
    void openWith(const std::function<void(ois::OisCustInfo&)>& change) {
        phone::ModuleDescription module = plainModule();
        change(module.custInfo);
        open(module);
    }

    ois_params params = request();
};

TEST_F(Parameters, ClosedOrUnsupportedOnlyLogs) {
    EXPECT_EQ(apply(), 0);
    EXPECT_EQ(messages(), Keys{"[SetOisParams] not support OIS\n"});
    open(plainModule());
    driver.fd_driver = -1;
    forget();
    EXPECT_EQ(apply(), 0);
    EXPECT_EQ(messages(), Keys{"[SetOisParams] Dev -1 , OIS error opening\n"});
}

TEST_F(Parameters, ModeFollowsTheRequestAndIsSentOnce) {
    struct Case {
        float zoomScale;  // of the module; 0: the driver's own
        int32_t zoomScaleEnabled;
        float zoom;
        int32_t video;
        int manual;
        int32_t mode;
        const char* said;
    };
    for (const Case& c : {Case{0, 0, 8.0F, 0, 0, 2, "video_mode 0, zoom_ratio 8.000000"},
                          {0, 0, 9.0F, 0, 0, 6, "video_mode 0, zoom_ratio 9.000000"},
                          {0, 1, 4.5F, 0, 0, 2, "video_mode 0, zoom_ratio 4.500000"},
                          {2, 0, 4.5F, 0, 0, 2, "video_mode 0, zoom_ratio 4.500000"},
                          {2, 1, 4.5F, 0, 0, 6, "video_mode 0, zoom_ratio 9.000000"},
                          {0, 0, 9.0F, 1, 0, 3, "video_mode 1, zoom_ratio 9.000000"},
                          {0, 0, 9.0F, 1, 1, 0, "video_mode 1, zoom_ratio 0.000000"}}) {
        SCOPED_TRACE(c.said);
        setProperty("mode", c.manual);
        setProperty("dynamic", 1);
        openWith([&](auto& info) { info.zoomScale = c.zoomScale; });
        driver.mOisMode = 100;
        params.zoom_scale_en = c.zoomScaleEnabled;
        params.zoom_ratio = c.zoom;
        params.video_mode = c.video;
        params.engineer_mode = 7;
        EXPECT_EQ(apply(), 0);
        // The request's engineer_mode stands in place of the result.
        EXPECT_EQ(messages().back(),
                  "[SetOisParams] Device_id 2, engineer_mode 7, engineer_operation -1, ois_mode_from_tag 1, "
                  "ois_mode_execute " +
                      std::to_string(c.mode) + ", " + c.said + ", result 7\n");
        apply();
        ASSERT_EQ(sentKeys(), Keys{"SET_MODE"});
        EXPECT_EQ(sent()[0].bytes, (std::vector<uint8_t>{static_cast<uint8_t>(c.mode), 0, 0, 0}));
        driver.Uninit();
    }
}

TEST_F(Parameters, ZoomActiveOisIsSwitchedAtTheLimitAndByTheDynamicMode) {
    struct Step {
        int dynamic;
        float zoom;
        int64_t sentSoFar;
        int32_t on;
        int32_t previous;
    };
    openWith([](auto& info) { info.zoomActOisSupport = 1; });
    for (const Step& step : {Step{3, 24.9F, 0, 0, 0},
                             {3, 25.0F, 1, 1, 3},
                             {1, 25.0F, 2, 0, 1},
                             {1, 25.0F, 2, 0, 1},
                             {3, 25.0F, 3, 1, 3},
                             {3, 26.0F, 3, 1, 3},
                             {3, 24.9F, 4, 0, 3},
                             {3, 24.0F, 4, 0, 3},
                             // The state of the last switch still stands, so a second rise sends nothing.
                             {3, 25.0F, 4, 0, 3}}) {
        SCOPED_TRACE(std::to_string(step.sentSoFar) + " at " + std::to_string(step.zoom));
        setProperty("dynamic", step.dynamic);
        params.zoom_ratio = step.zoom;
        apply();
        EXPECT_EQ(count("SET_ZOOM_ACTIVE_OIS"), step.sentSoFar);
        EXPECT_EQ(controller().state().zoomActiveOis, step.on);
        EXPECT_EQ(driver.mPreviousActEn, step.previous);
    }
}

TEST_F(Parameters, AngleActiveOisFollowsDynamicModeSceneAndSwitch) {
    struct Step {
        int dynamic;
        uint8_t withoutAngle;  // the switch
        int32_t scene;
        const char* record;  // empty: nothing is sent
        int32_t previous;
    };
    openWith([](auto& info) {
        info.actOisSupport = 1;
        info.actOisAngle = 1.5F;
    });
    for (const Step& step : {Step{1, 0, 12, "01 00 00 00 01 00 00 00", 1},
                             {2, 0, 12, "02 00 00 00 00 00 c0 3f", 2},
                             {2, 0, 12, "", 2},
                             {5, 0, 12, "", 2},  // nothing, and the state before stands
                             {5, 1, 12, "05 00 00 00 01 00 00 00", 5},
                             {1, 0, 13, "", 1}}) {  // blocked by the scene, yet remembered
        SCOPED_TRACE(step.dynamic);
        setProperty("dynamic", step.dynamic);
        driver.mProperty.actOis = step.withoutAngle;
        params.act_scene = step.scene;
        forget();
        apply();
        ASSERT_EQ(count("SET_ACTIVE_OIS"), *step.record != '\0' ? 1 : 0);
        if (count("SET_ACTIVE_OIS") > 0) {
            EXPECT_EQ(sent().back().bytes, bytes(step.record));
        }
        EXPECT_EQ(driver.mPreviousActEn, step.previous);
    }
}

TEST_F(Parameters, ExtraParameterIsKeptWhenTheModuleHasIt) {
    params.extra_param = 0xabcd;
    for (const bool supported : {false, true}) {
        openWith([&](auto& info) { info.extraParamSupport = supported; });
        apply();
        EXPECT_EQ(driver.mOisExtraParam, supported ? 0xabcdU : 0U);
        driver.Uninit();
    }
}

TEST_F(Parameters, CaptureGoesToTheHubFromTheLimitOn) {
    open(kHubModule);
    params.capture_en = 1;
    params.capture_value = 124999;
    apply();
    EXPECT_EQ(count("CAPTURE"), 0);
    params.capture_value = 125000;
    apply();
    Keys course;
    for (const phone::Event& event : phone.trace().events()) {
        if (event.name == "CAPTURE") course.emplace_back("sent");
        if (event.text.find("ois capture") != std::string::npos) course.push_back(event.text);
    }
    const std::string line = "[SetOisParams] ois capture: 125000 ! ++ ++\n";
    EXPECT_EQ(course, (Keys{line, line, "sent", line}));
}

TEST_F(Parameters, FixModeTakesTheRequestsPlace) {
    setProperty("fixmode", 1);
    setProperty("targetx", 120);
    setProperty("targety", -80);
    open(plainModule());
    setProperty("gethall", 1);
    params.op_result_ptr = &params.op_result;
    EXPECT_EQ(apply(), 0);
    EXPECT_EQ(params.op_result_ptr, &params.op_result);  // the record is not looked at
    driver.SetOisParams(nullptr);
    ASSERT_EQ(sentKeys(), (Keys{"SET_FIX_MODE", "GET_HALL", "GET_HALL"}));
    // gethall is read after the send, so the first record still says 0.
    EXPECT_EQ(sent()[0].bytes,
              bytes("01 00 00 00 00 00 00 00 78 00 00 00 b0 ff ff ff 00 00 00 00 00 00 00 00"));
}

TEST_F(Parameters, EngineeringOperationRunsOncePerValue) {
    open(plainModule());
    params.engineer_mode = 8;
    params.engineer_operation = 1;
    EXPECT_EQ(apply(), 0);
    EXPECT_EQ(params.op_result_ptr, &params.op_result);
    EXPECT_EQ(sentKeys(), (Keys{"CHECK_STATUS", "START_ENGINEERING", "SET_MODE"}));
    forget();
    apply();
    EXPECT_EQ(params.op_result_ptr, nullptr);
    EXPECT_EQ(sentKeys(), Keys{"CHECK_STATUS"});
    apply();
    EXPECT_EQ(driver.mParamsCallCount, 2);
    params.engineer_operation = -1;
    apply();
    EXPECT_EQ(driver.mLastEngOperation, 1);
}

TEST_F(Parameters, FailedOperationIsNotRemembered) {
    open(plainModule());
    fault("SET_MODE:errno=EIO");
    params.engineer_mode = 8;
    params.engineer_operation = 1;
    EXPECT_EQ(apply(), -1);
    EXPECT_EQ(params.op_result_ptr, nullptr);
    EXPECT_EQ(driver.mLastEngOperation, 0);
}

TEST_F(Parameters, FixTargetSendsTheRecordAtTheEndAndTheHubLessOfIt) {
    const std::string record = "01 00 00 00 00 00 00 00 07 00 00 00 09 00 00 00 00 00 00 00 ";
    setProperty("tarx", 7);
    setProperty("tary", 9);
    for (const bool hub : {false, true}) {
        open(hub ? phone::moduleByName(kHubModule) : plainModule());
        driver.mProperty.fixTarget = driver.mProperty.statusCheck = 1;
        apply();
        EXPECT_EQ(sent().back().key, "SET_FIX_MODE");
        EXPECT_EQ(sent().back().head(24), bytes(hub ? "14 14 00 00 " + record : record + "00 00 00 00"));
        EXPECT_EQ(count("CHECK_STATUS"), hub ? 0 : 1);
        driver.Uninit();
    }
}

TEST_F(Parameters, TemperatureIsSentInStepsOfFiveDegrees) {
    open(kHubModule);
    const std::pair<const char*, int64_t> readings[] = {{"10", 0}, {"80", 0},   {"30", 1}, {"33", 1},
                                                        {"35", 2}, {"31\n", 2}, {"30", 3}, {"hot", 3},
                                                        {"", 3},   {"79", 4},   {"11", 5}};
    for (const auto& [text, sentSoFar] : readings) {
        phone.files().setThermal(text);
        apply();
        EXPECT_EQ(count("SET_TEMPERATURE"), sentSoFar) << text;
    }
    phone.files().setThermalAbsent();
    forget();
    apply();
    EXPECT_EQ(messages().at(0), "[update_temp_cmp] failed to open temppath");
    EXPECT_EQ(driver.mLastTemp, 11);
}

TEST_F(Parameters, TemperatureStrategyIsSentOncePerStreamForStillScenario) {
    struct Step {
        const char* temperature;
        int32_t scenario;
        int32_t video;
        int64_t sentSoFar;
    };
    open(kHubModule);
    const auto play = [&](const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            phone.files().setThermal(step.temperature);
            params.scenario = step.scenario;
            params.video_mode = step.video;
            apply();
            EXPECT_EQ(count("SET_TEMP_STRATEGY"), step.sentSoFar) << step.temperature;
        }
    };
    // Without a temperature sent, the strategy is not looked at.
    play({{"30", 31, 1, 0}, {"30", 31, 0, 0}, {"40", 31, 0, 1}, {"50", 31, 0, 1}, {"50", 0, 0, 1}});
    for (const int32_t state : {0, 1}) {
        ois_stream_info stream{state, 0};
        driver.NotifyStream(&stream);
    }
    play({{"50", 31, 0, 2}});
}

}  // namespace

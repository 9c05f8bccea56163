// Scenarios: what a timeline says at a moment, and what is refused, with its line.

#include "scenario.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "errors.h"

namespace {

using namespace oisctl;

Scenario parse(const std::string& text) {
    return parseScenario(text, "test.toml");
}

std::string complaint(const std::string& text) {
    try {
        parse(text);
    } catch (const InputError& error) {
        return error.what();
    }
    return "accepted";
}

TEST(Scenario, ValuesFollowSpansRampsAndCurves) {
    const Scenario scenario = parse(R"(
        frame_rate = 10
        duration_s = 10
        [[span]]
        act_scene = 12
        zoom_ratio = { from = 1.0, to = 11.0 }
        temperature_c = [[1, 20], [3, 40]]
        [[span]]
        from_s = 4.0
        to_s = 6.0
        zoom_ratio = 5
        video_mode = true
        [[span]]
        from_s = 8.0
        frames = 2
        capture_en = 1
        capture_value = 125000
    )");
    EXPECT_EQ(scenario.frames(), 100U);

    struct Case {
        double timeS;
        float zoom;
        int32_t video;
        int32_t capture;
    };
    for (const Case& c : std::vector<Case>{{0, 1, 0, 0},
                                           {2.5, 3.5F, 0, 0},
                                           {3.9, 4.9F, 0, 0},
                                           {4.0, 5, 1, 0},
                                           {5.9, 5, 1, 0},
                                           {6.0, 7, 0, 0},
                                           {7.9, 8.9F, 0, 0},
                                           {8.0, 9, 0, 125000},
                                           {8.1, 9.1F, 0, 125000},
                                           {8.2, 9.2F, 0, 0}}) {
        SCOPED_TRACE(c.timeS);
        const ois_params params = scenario.requestAt(c.timeS, 5);
        EXPECT_FLOAT_EQ(params.zoom_ratio, c.zoom);
        EXPECT_EQ(params.video_mode, c.video);
        EXPECT_EQ(params.capture_value, c.capture);
        EXPECT_EQ(params.act_scene, 12);
        EXPECT_EQ(params.sensor_dev, 5);
    }
    EXPECT_EQ(scenario.value("temperature_c", 0.5), 20);
    EXPECT_EQ(scenario.value("temperature_c", 2), 30);
    EXPECT_EQ(scenario.value("temperature_c", 9), 40);
    EXPECT_EQ(scenario.value("af_position", 2), std::nullopt);
}

TEST(Scenario, RequestsOfSilentScenarioAskForStabilisationAlone) {
    const ois_params params = parse("duration_s = 1").requestAt(0, 3);
    EXPECT_EQ(params.ois_mode_from_tag, 1);
    EXPECT_EQ(params.engineer_operation, -1);
    EXPECT_FLOAT_EQ(params.zoom_ratio, 1);
    EXPECT_EQ(params.sensor_dev, 3);
    EXPECT_EQ(params.video_mode, 0);
}

TEST(Scenario, MomentsComeInOrderOfTime) {
    const Scenario scenario = parse(R"(
        duration_s = 4
        [[at]]
        s = 3
        stream = "off"
        [[at]]
        s = 1
        dynamic = 3
        set = { dynamic = 2, "vendor.debug.ois.gethall" = true }
        faults = ["SET_MODE@2:lost"]
    )");
    ASSERT_EQ(scenario.moments.size(), 2U);
    EXPECT_EQ(scenario.moments[0].dynamic, 3);
    const std::vector<std::pair<std::string, std::string>> set{{"vendor.debug.ois.dynamic", "2"},
                                                               {"vendor.debug.ois.gethall", "1"}};
    EXPECT_EQ(scenario.moments[0].properties, set);
    EXPECT_EQ(scenario.moments[1].stream, false);
    EXPECT_TRUE(scenario.drivesStream());
    EXPECT_FALSE(parse("duration_s = 1").drivesStream());
}

// What is wrong, the line it is reported for, and a piece of the advice.
TEST(Scenario, RefusesWhatCannotBePlayed) {
    struct Case {
        const char* text;
        const char* place;
        const char* advice;
    };
    const std::vector<Case> cases{
        {"title = \"x\"", "test.toml:1:", "duration_s = 10"},
        {"duration_s = 0", "test.toml:1:", "'duration_s' is 0"},
        {"duration_s = 1\nframe_rate = 5000", "test.toml:2:", "1 to 1000"},
        {"duration_s = 1\ndurations = 2", "test.toml:2:", "did you mean 'duration_s'"},
        {"duration_s = 1\nmotion = \"jump\"", "test.toml:2:", "hand"},
        {"duration_s = 1\nspan = 3", "test.toml:2:", "[[span]]"},
        {"duration_s = 1\n[[span]]", "test.toml:2:", "states no value"},
        {"duration_s = 1\n[[span]]\nzoom_ration = 2", "test.toml:3:", "did you mean 'zoom_ratio'"},
        {"duration_s = 1\n[[span]]\nzoom_ratio = -1", "test.toml:3:", "0 to 1000"},
        {"duration_s = 1\n[[span]]\nzoom_ratio = nan", "test.toml:3:", "0 to 1000"},
        {"duration_s = 1\n[[span]]\nzoom_ratio = \"big\"", "test.toml:3:", "takes a number"},
        {"duration_s = 1\n[[span]]\nvideo_mode = 0.5", "test.toml:3:", "whole numbers"},
        {"duration_s = 1\n[[span]]\ncapture_value = 3000000000", "test.toml:3:", "2147483647"},
        {"duration_s = 1\n[[span]]\nzoom_ratio = { from = 1 }", "test.toml:3:", "both ends"},
        {"duration_s = 1\n[[span]]\nzoom_ratio = { from = 1, two = 2 }", "test.toml:3:", "did you mean 'to'"},
        {"duration_s = 1\n[[span]]\nzoom_ratio = [[0, 1], [0, 2]]", "test.toml:3:", "ascend"},
        {"duration_s = 1\n[[span]]\nfrom_s = 0.5\nto_s = 0.2\nvideo_mode = 1",
         "test.toml:2:", "before it begins"},
        {"duration_s = 1\n[[span]]\nto_s = 2\nvideo_mode = 1", "test.toml:3:", "0 to 1"},
        {"duration_s = 1\n[[at]]\nstream = \"on\"", "test.toml:2:", "s = 1.5"},
        {"duration_s = 1\n[[at]]\ns = 0", "test.toml:2:", "does nothing"},
        {"duration_s = 1\n[[at]]\ns = 0\nstream = \"maybe\"", "test.toml:4:", "\"on\" or \"off\""},
        {"duration_s = 1\n[[at]]\ns = 0\nset = { dinamic = 3 }", "test.toml:4:", "vendor.debug.ois.dynamic"},
        {"duration_s = 1\n[[at]]\ns = 0\nset = { dynamic = \"x\" }", "test.toml:4:", "integer"},
        {"duration_s = 1\n[[at]]\ns = 0\nfaults = [\"SET_MOD:lost\"]", "test.toml:4:", "SET_MODE"},
        {"duration_s = 1\n[[at]]\ns = 0\nfaults = [\"chip.never-idel\"]", "test.toml:4:", "chip.never-idle"},
        {"duration_s = = 1", "test.toml:1:", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const std::string text = complaint(c.text);
        EXPECT_EQ(text.substr(0, std::string(c.place).size()), c.place) << text;
        EXPECT_NE(text.find(c.advice), std::string::npos) << text;
        EXPECT_EQ(text.find('\n'), std::string::npos) << text;
    }
}

TEST(Scenario, EveryShippedOneIsSound) {
    EXPECT_GE(shippedScenarios().size(), 7U);
    for (const ShippedScenario& shipped : shippedScenarios()) {
        SCOPED_TRACE(shipped.name);
        const Scenario scenario = scenarioByName(std::string(shipped.name));
        EXPECT_FALSE(scenario.title.empty());
        EXPECT_FALSE(scenario.spans.empty());
    }
}

}  // namespace

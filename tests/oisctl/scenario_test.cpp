// Scenarios: what a timeline says at a moment, and what is refused, with its line.

#include "scenario/scenario.h"

#include <tuple>

#include "test_support.h"

namespace {

using namespace oisctl;

Scenario parse(const std::string& text) {
    return parseScenario(text, "test.toml");
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

    // Zoom, video mode and capture value at that time.
    const std::tuple<double, float, int32_t, int32_t> cases[] = {
        {0, 1, 0, 0},   {2.5, 3.5F, 0, 0}, {3.9, 4.9F, 0, 0},   {4.0, 5, 1, 0},         {5.9, 5, 1, 0},
        {6.0, 7, 0, 0}, {7.9, 8.9F, 0, 0}, {8.0, 9, 0, 125000}, {8.1, 9.1F, 0, 125000}, {8.2, 9.2F, 0, 0}};
    for (const auto& [timeS, zoom, video, capture] : cases) {
        SCOPED_TRACE(timeS);
        const ois_params params = scenario.requestAt(timeS, 5);
        EXPECT_FLOAT_EQ(params.zoom_ratio, zoom);
        EXPECT_EQ(params.video_mode, video);
        EXPECT_EQ(params.capture_value, capture);
        EXPECT_EQ(params.act_scene, 12);
        EXPECT_EQ(params.sensor_dev, 5);
        // What nobody states.
        EXPECT_EQ(params.ois_mode_from_tag, 1);
        EXPECT_EQ(params.engineer_operation, -1);
    }
    EXPECT_EQ(scenario.value("temperature_c", 0.5), 20);
    EXPECT_EQ(scenario.value("temperature_c", 2), 30);
    EXPECT_EQ(scenario.value("temperature_c", 9), 40);
    EXPECT_EQ(scenario.value("af_position", 2), std::nullopt);
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
    const std::vector<phone::Property> set{{"vendor.debug.ois.dynamic", "2"},
                                           {"vendor.debug.ois.gethall", "1"}};
    EXPECT_EQ(scenario.moments[0].properties, set);
    EXPECT_EQ(scenario.moments[1].stream, false);
    EXPECT_TRUE(scenario.drivesStream());
    EXPECT_FALSE(parse("duration_s = 1").drivesStream());
}

// What is wrong, the line it is reported for, and a piece of the advice.
TEST(Scenario, RefusesWhatCannotBePlayed) {
    const std::string span = "duration_s = 1\n[[span]]\n", at = "duration_s = 1\n[[at]]\n";
    const std::tuple<std::string, int, const char*> cases[] = {
        {"title = \"x\"", 1, "duration_s = 10"},
        {"duration_s = 0", 1, "duration_s is 0; it may be a number, 0.0333"},
        {"duration_s = 1\nframe_rate = 5000", 2, "1 to 1000"},
        {"duration_s = 1\ndurations = 2", 2, "did you mean 'duration_s'"},
        {"duration_s = 1\nmotion = \"jump\"", 2, "hand"},
        {"duration_s = 1\nspan = 3", 2, "[[span]]"},
        {span, 2, "states no value"},
        {span + "zoom_ration = 2", 3, "did you mean 'zoom_ratio'"},
        {span + "zoom_ratio = nan", 3, "0 to 1000"},
        {span + "zoom_ratio = \"big\"", 3, "span.zoom_ratio is \"big\"; it may be a number"},
        {span + "video_mode = 0.5", 3, "whole number"},
        {span + "capture_value = 3000000000", 3, "2147483647"},
        {span + "zoom_ratio = { from = 1 }", 3, "both ends"},
        {span + "zoom_ratio = { from = 1, to = 2, two = 2 }", 3, "did you mean 'to'"},
        {span + "zoom_ratio = []", 3, "it may be a number"},
        {span + "zoom_ratio = [[0, 1], [0, 2]]", 3, "ascend"},
        {span + "zoom_ratio = [\n[0, 1],\n[0.5, 2000]]", 5, "second value is 2000; it may be a number, 0 to"},
        {span + "zoom_ratio = [[0, 1], 2]", 3, "holds 2; it may hold: a point"},
        {span + "from_s = 0.5\nzoom_ratio = [[0, 1], [1, 2]]", 4,
         "has a point at 1 s; its span is 0.5 s long"},
        {span + "from_s = 0.5\nto_s = 0.2\nvideo_mode = 1", 2, "before it begins"},
        {span + "to_s = 2\nvideo_mode = 1", 3, "0 to 1"},
        {span + "to_s = 1\nframes = 2\nvideo_mode = 1", 4, "one of them"},
        {at + "stream = \"on\"", 2, "s = 1.5"},
        {at + "s = 0", 2, "does nothing"},
        {at + "s = 0\nstream = \"maybe\"", 4, "\"on\" or \"off\""},
        {at + "s = 0\nset = { dinamic = 3 }", 4, "vendor.debug.ois.dynamic"},
        {at + "s = 0\nset = { dynamic = \"x\" }", 4, "integer"},
        {at + "s = 0\nfaults = [\"SET_MOD:lost\"]", 4, "SET_MODE"},
        {at + "s = 0\nfaults = [\"chip.never-idel\"]", 4, "chip.never-idle"},
        {"duration_s = = 1", 1, ""},
    };
    for (const auto& [text, line, advice] : cases) {
        const std::string said = test_support::thrown([&text = text] { parse(text); });
        EXPECT_TRUE(said.starts_with("test.toml:" + std::to_string(line) + ":")) << text << said;
        EXPECT_NE(said.find(advice), std::string::npos) << said;
        EXPECT_EQ(said.find('\n'), std::string::npos) << said;
    }
}

}  // namespace

// What scenarios expect: each kind holds, and fails for what it is there for.

#include <tuple>

#include "oisctl_fixture.h"
#include "scenario/scenario.h"
#include "test_support.h"

namespace {

using Expectations = Oisctl;

constexpr const char* kSession = R"(duration_s = 2
[[span]]
to_s = 1.0
ois_mode_from_tag = 1
[[span]]
from_s = 1.0
video_mode = 1
[[expect]]
)";

TEST_F(Expectations, EachKindHoldsAndFails) {
    // On dw9786: what holds; what fails, and what of the session is told then.
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"command = 'SET_MODE'\ncount = 3", "command = 'SET_MODE'\ncount = 2", "3; one too many: sub-device"},
        {"command = 'SET_MODE mode=3'\ncount = '1..2'", "command = 'SET_MODE mode=3'\ncount = '2..'",
         "1; the last: sub-device  SET_MODE(0x400456C2) mode=3 -> 0 at 1.0080 s, line "},
        {"command = 'SET_MODE'\nwithin_s = '..0.5'\ncount = 1",
         "command = 'SET_MODE'\nwithin_s = '0.5..'\ncount = 1", "2; one too many"},
        {"command = 'SET_MODE'\nfields = 'mode=0..3'", "command = 'SET_MODE'\nfields = 'mode=1..3'",
         "another: sub-device  SET_MODE(0x400456C2) mode=0"},
        {"command = 'READ_GAIN'\nfields = 'axis=0'", "command = 'READ_GAIN'\nfields = 'valueXf=0.5'",
         "valueXf="},
        {"command = 'SET_CUSTOMISATION'\nfields = 'cameraTypeName=tele'",
         "command = 'SET_CUSTOMISATION'\nfields = 'cameraTypeName=tele_dw9785'", "SET_CUSTOMISATION"},
        {"command = 'SET_MODE mode=2'\nsent = '02 00 00 00'", "command = 'SET_MODE'\nsent = '02000000'",
         "mode=3"},
        {"command = 'READ_HALL_INFO'\nreceived = '40000000 d8ffffff da07c107 34030203'",
         "command = 'READ_HALL_INFO'\nreceived = '40000000'", "centerX=64"},
        {"command = 'SET_MODE'\nresult = 0", "command = 'SET_MODE'\nerror = 'EIO'", "mode=2"},
        {"call = 'SetOisParams'\ncount = 60\nresult = '0..1'", "call = 'NotifyStream'\ncount = 1",
         "NotifyStream(0 off)"},
        {"command = 'SET_MODE mode=3'\nafter = 'SET_MODE mode=2'\ndelay_s = 1",
         "command = 'SET_MODE mode=3'\nafter = 'SET_MODE mode=2'\ndelay_s = '..0.9'", "1.000000 s after it"},
        {"command = 'SET_MODE mode=3'\nafter = 'SET_MODE mode=2'",
         "command = 'SET_MODE mode=2'\nafter = 'SET_MODE mode=3'", "none before it"},
        {"order = ['SET_MODE mode=2', 'SET_MODE mode=3', 'END_SESSION']",
         "order = ['SET_MODE mode=3', 'SET_MODE mode=2']", "instead of SET_MODE mode=3"},
        {"order = ['SET_MODE', 'END_SESSION']", "order = ['END_SESSION', 'SET_MODE']", "instead of END"},
        {"order = ['NOTIFY_STREAM', 'SET_MODE', 'NOTIFY_STREAM', 'SET_MODE']",
         "order = ['NOTIFY_STREAM', 'SET_MODE']", "behind the last of them"},
        {"order = ['SET_MODE mode=2', 'SET_MODE mode=3']", "order = ['SET_MODE mode=2', 'SET_MODE mode=6']",
         "no SET_MODE mode=6 at the end"},
        {"shake_left_db = '..-12'", "shake_left_db = '..-60'", "dB"},
        {"shake_left_deg = '..0.1'", "shake_left_deg = '..0.0001'", "deg"},
        {"no_message_above = 'info'", "no_message_above = 'debug'", "level info: message"},
        {"failures = 0", "failures = '1..'", "0"},
    };
    for (const auto& [holding, failing, seen] : cases) {
        for (const char* const expected : {holding, failing}) {
            write("mine.toml", std::string(kSession) + expected);
            const auto result = run("session -m dw9786 --scenario mine.toml -q");
            EXPECT_EQ(result.status, expected == failing) << expected << result.out << result.err;
            EXPECT_EQ(result.out.find("  seen ") != std::string::npos, expected == failing) << result.out;
            if (expected == holding) continue;
            EXPECT_NE(result.out.find(seen), std::string::npos) << result.out;
        }
    }
}

TEST_F(Expectations, ShippedScenariosDoWhatTheyShow) {
    for (const std::string& scenario : oisctl::scenarioNames()) {
        for (const char* module :
             {"dw9781", "dw9786", "korvas4sw-hub", "korvas4sw-subdev", "korvas4sw-hub --set bypassen=0"}) {
            size_t held = 0;
            const json report = runJson("session -q --scenario " + scenario + " -m " + module);
            for (const json& expectation : report["expectations"]) held += expectation["verdict"] == "held";
            EXPECT_GT(held, 0U) << scenario << module;
        }
        EXPECT_EQ(run("session -q --motion rest -m dw9781 --scenario " + scenario).status, 0) << scenario;
    }
}

TEST_F(Expectations, FailuresFailASessionUnlessTheyAreExpected) {
    const std::string fault = "faults = ['SET_MODE@2:errno=EIO']\n", counted = "command = 'SET_MODE'\n";
    const std::tuple<std::string, int> cases[] = {{fault + kSession + counted + "count = 3", 1},
                                                  {fault + kSession + "failures = 1", 0},
                                                  {fault + kSession + counted + "error = 'EIO'", 1},
                                                  {fault + kSession + "failures = '2..'", 1}};
    for (const auto& [text, status] : cases) {
        write("mine.toml", text);
        const auto result = run("session -m dw9786 --scenario mine.toml -q");
        EXPECT_EQ(result.status, status) << text << result.out;
    }
}

// What cannot be told is neither held nor failed, and a build server is told why.
TEST_F(Expectations, JunitHasACaseForEach) {
    write("mine.toml", std::string(kSession) + "command = 'SET_MODE'\ncount = 3\nresult = 1\n[[expect]]\n" +
                           "on = 'hub'\ncommand = 'INIT'\ncount = 5\n[[expect]]\nno_message_above = 'debug'");
    const auto result = run("session -m dw9786 --scenario mine.toml -q --junit x.xml --log-level error");
    EXPECT_EQ(result.status, 1) << result.out << result.err;
    const std::string scenario = readFile(mFolder / "mine.toml");
    EXPECT_EQ(run("session -m dw9786 --scenario mine.toml -q --junit ./mine.toml").status, 2);
    EXPECT_EQ(readFile(mFolder / "mine.toml"), scenario);
    const std::string xml = readFile(mFolder / "x.xml");
    for (const char* part :
         {"<testsuite name=\"oisctl session, dw9786\" tests=\"4\" failures=\"1\" errors=\"0\" skipped=\"2\">",
          "<testcase classname=\"mine\" name=\"3 SET_MODE\"/>",
          "expected each SET_MODE with result=1; seen another: sub-device  SET_MODE", "it is for hub",
          "--log-level and --log-sinks let through: error"})
        EXPECT_NE(xml.find(part), std::string::npos) << part << '\n' << xml;
}

// What is wrong, and a piece of the advice; all in the line behind the entry's head.
TEST(Expectation, RefusesWhatCanNotBe) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "expects nothing"},
        {"command = 'SET_MOOD'", "did you mean 'SET_MODE'"},
        {"command = 'SET_MODE'", "expects nothing"},
        {"command = 'SET_MODE mode'", "needs its value"},
        {"command = 'SET_MODE gethall=1'", "SET_MODE has no field gethall"},
        {"command = 'SET_MODE mode=on'", "the field is a number"},
        {"command = 'SET_MODE mode=5..2'", "mode=2..5"},
        {"command = 'WRITE_REGISTER register=STABILISATON_MODE', count = 1", "STABILISATION_MODE"},
        {"command = 'SET_MODE', count = -1", "2..5"},
        {"command = 'SET_MODE', count = '5..2'", "2..5"},
        {"command = 'SET_MODE', count = 0, result = 0", "none of it"},
        {"command = 'SET_MODE', error = 'EOI'", "no error's name"},
        {"command = 'SET_MODE', sent = '0'", "half a byte"},
        {"command = 'SET_MODE', fields = 'axis=1'", "it may be: mode, result, error"},
        {"command = 'SET_MODE', call = 'SetMode', count = 1", "state one"},
        {"command = 'SET_MODE', delay_s = 1", "after = \"COMMAND\""},
        {"command = 'SET_MODE', within_s = '3..', count = 1", "ends at 1 s"},
        {"call = 'SetMood', count = 1", "did you mean 'SetMode'"},
        {"call = 'SetMode mode=1', count = 1", "SetMode has no field mode"},
        {"command = 'SET_MODE', result = 0, error = 'EIO'", "a result below 0"},
        {"command = 'SET_MODE error=EIO', error = 'EBUSY'", "error is stated twice"},
        {"command = 'SET_MODE mode=2', fields = 'mode=3..5'", "mode is stated twice"},
        {"order = ['SET_MODE']", "two commands or more"},
        {"order = ['GET_HALL', 'SET_MODE', 'SET_MODE']", "SET_MODE twice in a row"},
        {"on = 'hob', failures = 0", "did you mean 'hub'"},
        {"no_message_above = 'error'", "info or debug"},
        {"count = 3", "is no field here"},
    };
    for (const auto& [entry, advice] : cases) {
        const std::string text = std::string("duration_s = 1\nexpect = [\n{ ") + entry + " }]";
        const std::string said = test_support::thrown([&] { oisctl::parseScenario(text, "test.toml"); });
        EXPECT_TRUE(said.starts_with("test.toml:3: expect")) << entry << '\n' << said;
        EXPECT_NE(said.find(advice), std::string::npos) << entry << '\n' << said;
    }
}

}  // namespace

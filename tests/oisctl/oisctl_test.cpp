// The tool as its user has it: commands with good and bad input, their exit status, and what they say.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string readFile(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

size_t lines(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

// In a folder of the test's own.
class Oisctl : public testing::Test {
  protected:
    void SetUp() override { fs::create_directories(mFolder); }
    void TearDown() override { fs::remove_all(mFolder); }

    Outcome run(const std::string& arguments, const std::string& before = {}) const {
        const fs::path err = mFolder / "stderr";
        const std::string command = "cd " + mFolder.string() + " && " + before + " " OISCTL_COMMAND " " +
                                    arguments + " 2>" + err.string();
        Outcome result;
        std::FILE* pipe = popen(command.c_str(), "r");
        if (pipe == nullptr) return result;
        std::array<char, 4096> buffer{};
        while (const size_t length = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
            result.out.append(buffer.data(), length);
        }
        const int status = pclose(pipe);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.err = readFile(err);
        // Whatever status the test expects: a sanitizer's is no answer of the tool.
        EXPECT_EQ(result.err.find("Sanitizer"), std::string::npos) << arguments << '\n' << result.err;
        return result;
    }
    json runJson(const std::string& arguments) const {
        const Outcome result = run(arguments + " --json");
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        return json::parse(result.out.substr(result.out.rfind("\n{") + 1), nullptr, false);
    }
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(mFolder / name) << text;
    }

    const fs::path mFolder = fs::path(testing::TempDir()) / ("oisctl_test_" + std::to_string(getpid()));
};

TEST_F(Oisctl, WrongInputIsOneLineThatSaysWhatWouldBeRight) {
    write("bad_scenario.toml", "duration_s = 1\n[[span]]\nzoom_ration = 2\n");
    write("bad_module.toml", "name = \"mine\"\n");
    write("bad_properties", "vendor.debug.ois.dump=none\n");
    struct Case {
        const char* arguments;
        const char* says;
    };
    const std::vector<Case> cases{
        {"sesion", "did you mean 'session'"},
        {"session --modul dw9786", "did you mean '--module'"},
        {"session --module bad_module.toml", "bad_module.toml"},
        {"session --sensor 8", "--sensor"},
        {"session --set dunp=1", "vendor.debug.ois.dump"},
        {"session --set dump=all", "integer"},
        {"session -m dw9786 --set dump=1", "oisctl record"},
        {"session --properties bad_properties", "bad_properties:1"},
        {"session --fault SET_MODD:lost", "SET_MODE"},
        {"session -m dw9786 --fault chip.never-idle", "hub"},
        {"session --scenario vidoe-zoom", "did you mean 'video-zoom'"},
        {"session --scenario bad_scenario.toml", "bad_scenario.toml:3:"},
        {"session --scenario .", "folder"},
        {"session --scenario video-zoom --hold 2", "excludes --hold"},
        {"session --modes ''", "no number"},
        {"session --properties /dev/zero", "too large"},
        {"session --module .", "folder"},
        {"session --dump-folder .", "--kernel real"},
        {"op read-gain-z", "did you mean 'read-gain-x'"},
        {"op off 3", "takes no value"},
        {"op write-gain-x 0.0001", "0.0003"},
        {"mode two", "mode"},
        {"dump flash -m korvas4sw-hub", "sub-device"},
        {"registers --write STABILIZATION_MODE=1", "STABILISATION_MODE"},
        {"registers --write STABILISATION_MODE=on", "no number"},
        {"detect-defect --defect stuk-x", "did you mean 'stuck-x'"},
        {"firmware-update --from new", "0x"},
        {"plot bad_scenario.toml", "bad_scenario.toml"},
        {"scenarios bad_scenario.toml", "did you mean 'zoom_ratio'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Outcome result = run(c.arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(lines(result.err), 1U) << result.err;
        EXPECT_EQ(result.err.substr(0, 8), "oisctl: ") << result.err;
        EXPECT_NE(result.err.find(c.says), std::string::npos) << result.err;
    }
}

TEST_F(Oisctl, HelpOfEveryCommandTeachesByExample) {
    const Outcome overview = run("--help");
    EXPECT_EQ(overview.status, 0);
    for (const char* command :
         {"session", "op", "mode", "decode", "calibrate", "firmware-update", "registers", "detect-defect",
          "record", "plot", "stats", "dump", "samples", "modules", "scenarios"}) {
        SCOPED_TRACE(command);
        EXPECT_NE(overview.out.find(command), std::string::npos);
        const Outcome help = run(std::string(command) + " --help");
        EXPECT_EQ(help.status, 0);
        EXPECT_NE(help.out.find("  oisctl " + std::string(command)), std::string::npos) << help.out;
    }
}

TEST_F(Oisctl, SessionShowsEveryCommandOnBothWays) {
    const Outcome hub = run("session");
    EXPECT_EQ(hub.status, 0) << hub.err;
    EXPECT_NE(hub.out.find("hub  INIT(17)"), std::string::npos) << hub.out;
    EXPECT_NE(hub.out.find("SetMode(3)"), std::string::npos) << hub.out;
    EXPECT_NE(hub.out.find("repeats     2 suppressed"), std::string::npos) << hub.out;
    EXPECT_EQ(hub.out.find('\x1b'), std::string::npos) << "colours without a terminal";

    const Outcome parser = run("session --set bypassen=0");
    EXPECT_NE(parser.out.find("hub  write register 0x0002 STABILISATION_MODE = 16"), std::string::npos)
        << parser.out;

    const Outcome subDevice = run("session -m dw9786");
    EXPECT_NE(subDevice.out.find("sub-device  SET_MODE(0x400456C2) mode=2 -> 0"), std::string::npos)
        << subDevice.out;
    EXPECT_NE(subDevice.out.find("END_SESSION"), std::string::npos) << subDevice.out;
}

TEST_F(Oisctl, SameSeedGivesTheSameTrace) {
    for (const char* way : {"-m korvas4sw-hub --set bypassen=0", "-m dw9781"}) {
        SCOPED_TRACE(way);
        const std::string arguments = std::string("session --json --seed 7 ") + way;
        EXPECT_EQ(run(arguments + " --trace=first").status, 0);
        EXPECT_EQ(run(arguments + " --trace=second").status, 0);
        const std::string first = readFile(mFolder / "first");
        EXPECT_GT(lines(first), 100U);
        EXPECT_TRUE(first == readFile(mFolder / "second"));
    }
}

const std::vector<std::string> kModules{"korvas4sw-hub", "korvas4sw-subdev", "dw9781", "dw9786", "no-ois"};

TEST_F(Oisctl, ModulesAreThoseThatTheScenariosRunOn) {
    std::vector<std::string> names;
    for (const json& module : json::parse(run("modules --json").out)) names.push_back(module["name"]);
    EXPECT_EQ(names, kModules);
}

class OisctlModule : public Oisctl, public testing::WithParamInterface<std::string> {};

TEST_P(OisctlModule, PlaysEveryScenario) {
    const bool hasOis = json::parse(run("modules --json " + GetParam()).out)["has_ois"];
    const json scenarios = json::parse(run("scenarios --json").out);
    ASSERT_GE(scenarios.size(), 7U);
    for (const json& scenario : scenarios) {
        SCOPED_TRACE(scenario);
        const json summary =
            runJson("session -m " + GetParam() + " --scenario " + scenario["name"].get<std::string>());
        ASSERT_TRUE(summary.is_object());
        EXPECT_GT(summary["requests"].get<int>(), 100);
        EXPECT_LE(summary["requests"], scenario["frames"]);
        EXPECT_EQ(summary["failures"], 0) << summary;
        EXPECT_EQ(summary["commands_sent"].get<int>() > 0, hasOis) << summary;
    }
}

INSTANTIATE_TEST_SUITE_P(Shipped, OisctlModule, testing::ValuesIn(kModules),
                         [](const testing::TestParamInfo<std::string>& tested) {
                             std::string name = tested.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST_F(Oisctl, ScenarioSummaryTellsModesAndRepeats) {
    const json summary = runJson("session -m dw9786 --scenario video-zoom");
    std::vector<std::array<int, 3>> modes;
    for (const json& span : summary["modes"]) {
        modes.push_back(
            {span["mode"].get<int>(), span["first_frame"].get<int>(), span["last_frame"].get<int>()});
    }
    const std::vector<std::array<int, 3>> expected{{2, 0, 59}, {3, 60, 329}, {0, 330, 359}};
    EXPECT_EQ(modes, expected);
    EXPECT_EQ(summary["commands"]["SET_MODE"], 3);
    EXPECT_EQ(summary["repeats_suppressed"], 357);
    EXPECT_LT(summary["shake_left_rms_deg"]["on"].get<double>(),
              summary["shake_left_rms_deg"]["off"].get<double>());
}

TEST_F(Oisctl, FaultsFailTheSession) {
    for (const char* module : {"dw9786", "korvas4sw-hub"}) {  // a bare name strikes on the module's own way
        const Outcome failing = run(std::string("session --fault SET_MODE@2:errno=EIO -m ") + module);
        EXPECT_EQ(failing.status, 1);
        EXPECT_NE(failing.out.find("EIO"), std::string::npos) << failing.out;
        EXPECT_EQ(failing.out.find("never struck"), std::string::npos);
    }
    EXPECT_EQ(run("session --modes 2,4 --operations off").status, 1);  // there is no mode 4
    const Outcome noDevice = run("session -m dw9786 --fault open./dev/media1:errno=EACCES");
    EXPECT_EQ(noDevice.status, 1);
    EXPECT_NE(noDevice.out.find("did not reach the controller"), std::string::npos) << noDevice.out;
    const json spared = runJson("session --fault SET_MODE@99:lost --fault SET_MODE@98:slow=1ms");
    EXPECT_EQ(spared["unused_faults"], (json{"SET_MODE@99:lost", "SET_MODE@98:slow=1ms"}));
    const Outcome noThread = run("session --fault thread:errno=EAGAIN");
    EXPECT_NE(noThread.out.find("thread constructor failed"), std::string::npos) << noThread.out;
}

TEST_F(Oisctl, OutputThatGetsLostIsAFailure) {
    const Outcome full = run("modules > /dev/full");
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(lines(full.err), 1U) << full.err;
}

TEST_F(Oisctl, OperationsAndModesByNameAndNumber) {
    EXPECT_EQ(runJson("op write-gain-x 1.25 -m dw9781")["failures"], 0);
    const json gain = runJson("op read-gain-x -m dw9786");
    EXPECT_EQ(gain["operations"][0]["operation"], 5);
    EXPECT_NEAR(gain["operations"][0]["result"].get<int>(), 6200, 1);  // 0.62, as the module says
    EXPECT_EQ(runJson("mode 6")["commands"]["SET_MODE"], 1);
    EXPECT_EQ(run("op 3").status, 1);
    EXPECT_EQ(run("mode 4").status, 1);
    EXPECT_EQ(run("op on -m no-ois").status, 1);
}

TEST_F(Oisctl, CalibrationVerdictsInWords) {
    EXPECT_TRUE(runJson("calibrate")["good"]);
    struct Case {
        const char* arguments;
        const char* says;
    };
    for (const Case& c : std::vector<Case>{{"--fault chip.never-idle", "skipped: controller not idle"},
                                           {"--motion walk", "the phone moved"},
                                           {"--fault chip.flash-write-error", "write failed"}}) {
        SCOPED_TRACE(c.arguments);
        const Outcome result = run(std::string("calibrate ") + c.arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.out.find(c.says), std::string::npos) << result.out;
    }
}

TEST_F(Oisctl, FirmwareUpdateTellsWhatTheHubReceived) {
    const json updated = runJson("firmware-update --from 0x100 --image-version 0x200");
    EXPECT_EQ(updated["code"], 1);
    EXPECT_EQ(updated["blocks"], 112);
    EXPECT_EQ(updated["version_after"], 0x200);
    EXPECT_EQ(runJson("firmware-update --from 0x200 --image-version 0x200")["code"], 4);
    EXPECT_EQ(run("firmware-update --fault chip.never-idle").status, 1);
    EXPECT_EQ(run("firmware-update --fault chip.power-cut=57").status, 1);
    EXPECT_EQ(run("firmware-update --fault chip.power-cut=57 --times 2").status, 0);
    EXPECT_EQ(run("firmware-update -m dw9786").status, 0);
}

TEST_F(Oisctl, DefectsHaveAVerdictPerAxis) {
    EXPECT_FALSE(runJson("detect-defect")["defective"]);
    const Outcome stuck = run("detect-defect --defect stuck-x --json");
    EXPECT_EQ(stuck.status, 1);
    const json verdict = json::parse(stuck.out);
    EXPECT_FALSE(verdict["x"]["good"]);
    EXPECT_TRUE(verdict["y"]["good"]);
}

TEST_F(Oisctl, RecordsPlotsAndDumps) {
    const json recorded = runJson("record --seconds 4 -o out");
    EXPECT_GT(recorded["rows"].get<int>(), 900);
    const std::string file = recorded["file"];
    EXPECT_EQ(run("stats " + file).status, 0);
    EXPECT_EQ(run("dump flash -o out").status, 0);
    const Outcome otp = run("dump otp -m korvas4sw-hub");
    EXPECT_NE(otp.out.find("adress:  0x"), std::string::npos) << otp.out;
    const Outcome samples = run("samples --json");
    EXPECT_GT(lines(samples.out), 10U);
}

TEST_F(Oisctl, RegistersByName) {
    const Outcome table = run("registers --write STABILISATION_MODE=16 --json");
    const json registers = json::parse(table.out);
    const auto mode = std::find_if(registers.begin(), registers.end(),
                                   [](const json& entry) { return entry["name"] == "STABILISATION_MODE"; });
    ASSERT_NE(mode, registers.end());
    EXPECT_EQ((*mode)["value"], 16);
}

}  // namespace

// What the tool does to a controller that outlives it: what it writes, and how it leaves it.

#include "oisctl_fixture.h"

namespace {

TEST_F(Oisctl, WritesToARealControllerAreRefusedUnlessAllowed) {
    write("nowhere.toml", moduleOfNoDevice());
    write("once.toml", "duration_s = 0.1\n[[at]]\ns = 0\noperation = 2\n");
    for (const char* command :
         {"op gyro-offset", "op write-gain-x 1.2", "op write-gain-y", "op 27", "op -- -3", "calibrate",
          "firmware-update", "session --operations on,write-gain-x", "session --scenario engineering",
          "session --scenario once.toml"}) {
        SCOPED_TRACE(command);
        const std::string onDevice = " -m nowhere.toml --kernel real ";
        const std::string name(command);
        const size_t options = name.find(' ');
        const std::string line =
            name.substr(0, options) + onDevice + (options == std::string::npos ? "" : name.substr(options));
        const Outcome refused = run(line);
        EXPECT_EQ(refused.status, 2);
        EXPECT_EQ(refused.out, "");
        EXPECT_NE(refused.err.find("--allow-write"), std::string::npos) << refused.err;
        const std::string allowed = std::regex_replace(line, std::regex("--kernel real"), "$& --allow-write");
        EXPECT_EQ(run(allowed).status, 1) << "there is no such lens";
    }
}

TEST_F(Oisctl, TheTourOfARealControllerLeavesOutWhatWrites) {
    write("nowhere.toml", moduleOfNoDevice());
    const auto leftOut = [this](const std::string& options) {
        return json::parse(run("session --json " + options).out)["left_out"];
    };
    const json writing{"gyro-offset", "write-gain-x", "write-gain-y"};
    EXPECT_EQ(leftOut("-m nowhere.toml --kernel real"), writing);
    EXPECT_EQ(leftOut("-m nowhere.toml --kernel real --allow-write"), json::array());
    EXPECT_EQ(leftOut("-m dw9786"), json::array());
}

TEST_F(Oisctl, ATourThatWritesNoGainNoticesOneThatChanged) {
    // The bring-up's reading comes first, then the tour's two of x and y, then two more.
    const Outcome changed =
        run("session -m dw9786 --operations on --json --fault READ_GAIN@4:garbage=00000010");
    const json report = json::parse(changed.out);
    EXPECT_EQ(changed.status, 1);
    const std::string what = report["first_failures"].back()["what"];
    const std::string before = "0.6200";
    EXPECT_NE(what.find(before), std::string::npos) << what;
    EXPECT_EQ(report["gains"][0]["before"], 6200);
    EXPECT_NE(report["gains"][0]["after"], 6200);
    EXPECT_EQ(report["gains"][1]["after"], report["gains"][1]["before"]);
}

// However a command goes about it, the last that the controller hears is mode 0, and no fix mode before it.
TEST_F(Oisctl, ASubDeviceIsLeftWithStabilisationOffAndNoTargetHeld) {
    const std::string interrupt = "timeout --foreground --preserve-status -s INT 0.4";
    const std::pair<const char*, std::string> cases[] = {
        {"mode 2", ""},
        {"op on", ""},
        {"op detect-defect", ""},
        {"detect-defect", ""},
        {"record --seconds 0.2", ""},
        {"session --hold 0 --operations on", ""},
        {"session --hold 0 --operations detect-defect", ""},
        {"session --scenario fix-mode", ""},
        {"session --modes 2 --hold 60 --real-time", interrupt},
        {"session --scenario fix-mode --set targetx=100 --real-time", interrupt},
    };
    for (const auto& [command, before] : cases) {
        SCOPED_TRACE(command);
        int64_t mode = -1;
        int64_t held = 0;
        for (const json& event : trace(std::string(command) + " -m dw9786", before)) {
            if (event["name"] == "SET_MODE") mode = event["fields"]["mode"];
            if (event["name"] == "SET_FIX_MODE") {
                held = event["fields"]["manualEnable"];
                mode = -1;
            }
        }
        EXPECT_EQ(mode, 0);
        EXPECT_EQ(held, 0);
    }
}

}  // namespace

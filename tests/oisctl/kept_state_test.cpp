// What a controller keeps without power, from one run of the tool to the next.

#include <fcntl.h>
#include <sys/file.h>

#include "oisctl_fixture.h"

namespace {

using KeptState = Oisctl;

TEST_F(KeptState, IsThereInTheNextRun) {
    for (const char* module : {"dw9786", "korvas4sw-hub"}) {
        const std::string options = std::string(" -q --state kept-") + module + " -m " + module;
        EXPECT_EQ(runJson("op read-gain-x" + options)["operations"][0]["result"],
                  runJson("op read-gain-x -q -m " + std::string(module))["operations"][0]["result"]);
        EXPECT_FALSE(fs::exists(mFolder / ("kept-" + std::string(module)) / "state.toml"))
            << "nothing changed";
        run("op write-gain-x 0.7" + options);
        EXPECT_EQ(runJson("op read-gain-x" + options)["operations"][0]["result"], 7000) << module;
    }
    // Calibrated once, the next power-on finds it; and so does who updates firmware.
    const std::string hub = " -q --state kept-korvas4sw-hub -m korvas4sw-hub";
    const json calibrated = runJson("calibrate" + hub), again = runJson("calibrate" + hub);
    EXPECT_EQ(calibrated["offset_before"]["x"], 0);
    EXPECT_NE(calibrated["offset_after"]["x"], 0);
    EXPECT_EQ(again["offset_before"], calibrated["offset_after"]);
    EXPECT_EQ(runJson("firmware-update" + hub)["updates"][0]["outcome"], "updated");
    EXPECT_EQ(runJson("firmware-update" + hub)["updates"][0]["outcome"], "up to date");
    EXPECT_EQ(runJson("op read-gain-x" + hub)["operations"][0]["result"], 7000);
}

// A download that a power cut ended.
TEST_F(KeptState, AnUpdateRepairsWhatAnEarlierRunLeft) {
    const std::string hub = " --state kept -m korvas4sw-hub";
    run("firmware-update --fault chip.power-cut=40" + hub);
    const json repaired = runJson("firmware-update" + hub);
    EXPECT_EQ(repaired["updates"][0]["version_before"], 0);
    EXPECT_EQ(repaired["updates"][0]["outcome"], "updated");
}

TEST_F(KeptState, OfAnotherModuleOrInUseIsRefused) {
    run("op write-gain-x 0.7 -q --state kept -m dw9786");
    const std::string good = readFile(mFolder / "kept/state.toml");
    const auto refuses = [this](const std::string& options, const char* words) {
        const Outcome result = run("mode 2 " + options);
        EXPECT_EQ(result.status, 2) << options << result.out;
        EXPECT_EQ(lines(result.err), 1U) << result.err;
        EXPECT_NE(result.err.find(words), std::string::npos) << result.err;
    };
    refuses("--state kept -m dw9781", "state.toml:3: module is \"dw9786\", and this run is of dw9781");
    refuses("--state kept -m dw9786 --kernel real", "it keeps that itself");
    refuses("--state kept -m no-ois", "no controller that could keep anything");
    write("kept/state.toml", replaced(good, "format = 1", "format = 2"));
    refuses("--state kept -m dw9786", "state.toml:2: format is 2; this tool reads format 1");
    write("kept/state.toml", good.substr(0, good.size() / 2));
    refuses("--state kept -m dw9786", "state.toml:");
    write("kept/state.toml", good);
    const int held = open((mFolder / "kept/lock").c_str(), O_RDWR);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    refuses("--state kept -m dw9786", "another run uses it");
    close(held);
    EXPECT_EQ(run("mode 2 --state kept -m dw9786").status, 0);
}

// What cannot be written is said, and what stood there stays.
TEST_F(KeptState, AStateThatCannotBeWrittenIsSaid) {
    run("op write-gain-x 0.7 -q --state kept -m dw9786");
    fs::create_directories(mFolder / "kept/state.toml.new/in the way");
    const Outcome result = run("op write-gain-x 0.8 -q --state kept -m dw9786 --json");
    EXPECT_EQ(result.status, 1) << result.out;
    EXPECT_NE(asText(parsed(result.out)["error"]).find("--state kept: the controller's state could not"),
              std::string::npos)
        << result.out;
    EXPECT_EQ(runJson("op read-gain-x -q --state kept -m dw9786")["operations"][0]["result"], 7000);
}

}  // namespace

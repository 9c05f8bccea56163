// Where the way to a controller ended, the same whatever the command.

#include "oisctl_fixture.h"

namespace {

struct Ending {
    const char* arguments;
    const char* end;
};

class WayEnds : public Oisctl {
  protected:
    void expect(const std::string& command, const Ending& ending) const {
        const Outcome outcome = run(command + ' ' + ending.arguments + " --json");
        SCOPED_TRACE(command + ' ' + ending.arguments);
        const json report = parsed(outcome.out);
        EXPECT_EQ(report["way_end"], ending.end);
        EXPECT_EQ(report["good"], false);
        EXPECT_EQ(outcome.status, 1);
    }
};

TEST_F(WayEnds, WhereTheDriverSawThemOnTheSubDevice) {
    const Ending endings[] = {
        {"--fault open:errno=ENOENT", "no media device"},
        {"--fault open./dev/media1:errno=EACCES", "media device refused"},
        {"--fault media.DEVICE_INFO:errno=EIO", "media device refused"},
        {"--fault media.ENUM_ENTITIES@2:errno=EIO", "media device refused"},
        {"--fault open./dev/media1:errno=ENOENT", "no lens device"},
        {"--fault media.ENUM_ENTITIES@2:errno=EINVAL", "no such lens"},
        {"--fault readlink:errno=ENOENT", "node not known"},
        {"--fault open./dev/v4l-subdev10:errno=EBUSY", "node refused"},
        {"--fault request:errno=ENOTTY", "no command got through"},
        {"--fault thread:fail", "Init failed"},
    };
    for (const Ending& ending : endings) expect("mode 2 -m dw9786", ending);
    for (const char* command :
         {"session --hold 0", "session --scenario fix-mode", "op on", "calibrate", "detect-defect",
          "record --seconds 0.1", "dump flash", "dump otp", "firmware-update"}) {
        expect(std::string(command) + " -m dw9786", endings[7]);
        expect(std::string(command) + " -m dw9786", endings[8]);
    }
    // Others that could not be opened do not matter behind the one that is looked through.
    write("nowhere.toml", moduleOfNoDevice());
    expect("mode 2 -m nowhere.toml", {"--fault open./dev/media0:errno=EACCES", "no such lens"});
}

TEST_F(WayEnds, WhereTheDriverSawThemBehindTheHub) {
    for (const char* command : {"session --hold 0", "mode 2", "calibrate", "samples", "registers",
                                "firmware-update", "dump otp -m korvas4sw-hub"}) {
        expect(command, {"--fault sensor-provider:fail", "no hub"});
        expect(command, {"--fault hub:lost", "no command got through"});
    }
    expect("op on", {"-m no-ois", "no OIS"});
}

TEST_F(WayEnds, WhatGotThroughIsNoEnd) {
    EXPECT_EQ(runJson("mode 2 -m dw9786")["way_end"], nullptr);
    const Outcome failed = run("mode 2 -m dw9786 --fault SET_MODE:errno=EIO --json");
    EXPECT_EQ(parsed(failed.out)["way_end"], nullptr);
    EXPECT_EQ(failed.status, 1);
}

TEST_F(WayEnds, TextNamesPlaceErrorAndCure) {
    const Outcome outcome = run("record -m dw9786 --fault open./dev/v4l-subdev10:errno=EACCES");
    for (const char* part : {"/dev/v4l-subdev10", "EACCES", "as root"})
        EXPECT_NE(outcome.out.find(part), std::string::npos) << outcome.out;
}

TEST_F(WayEnds, TheRealKernelSleepsReallyAndItsHubIsSaidToBeSimulated) {
    const Outcome outcome =
        run("session -m korvas4sw-hub --kernel real --modes 2 --hold 0.2 --wall-time --json");
    EXPECT_EQ(outcome.err.substr(0, outcome.err.find('\n')).find("oisctl: korvas4sw-hub sits behind"), 0U);
    EXPECT_NE(outcome.err.find("simulated"), std::string::npos);
    const json report = parsed(outcome.out);
    EXPECT_EQ(report["hub"], "simulated");
    EXPECT_EQ(report["kernel"], "real");
    EXPECT_GE(report["wall_s"], 0.2);
}

}  // namespace

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
        const std::string allowed = replaced(line, "--kernel real", "$& --allow-write");
        EXPECT_EQ(run(allowed).status, 1) << "there is no such lens";
    }
}

TEST_F(Oisctl, TheTourOfARealControllerLeavesOutWhatWrites) {
    write("nowhere.toml", moduleOfNoDevice());
    const auto leftOut = [this](const std::string& options) {
        return parsed(run("session --json " + options).out)["left_out"];
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
    const json report = parsed(changed.out);
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
    const std::pair<const char*, std::string> cases[] = {
        {"mode 2", ""},
        {"op on", ""},
        {"op detect-defect", ""},
        {"detect-defect", ""},
        {"record --seconds 0.2", ""},
        {"session --hold 0 --operations on", ""},
        {"session --hold 0 --operations detect-defect", ""},
        {"session --scenario fix-mode", ""},
        {"session --modes 2 --hold 60 --real-time", interruptedAt("SET_MODE")},
        {"session --scenario fix-mode --set targetx=100 --real-time", interruptedAt("SET_FIX_MODE")},
    };
    for (const auto& [command, before] : cases) {
        SCOPED_TRACE(command);
        int64_t mode = 0;  // as it is before anything was sent
        int64_t held = 0;
        for (const json& event : trace(std::string(command) + " -m dw9786", before)) {
            if (event.value("name", "") == "SET_MODE") mode = event["fields"]["mode"];
            if (event.value("name", "") == "SET_FIX_MODE") {
                held = event["fields"]["manualEnable"];
                mode = -1;
            }
        }
        EXPECT_EQ(mode, 0);
        EXPECT_EQ(held, 0);
    }
}

// A device that goes away ends the job once: no flood of failures, and no claim about what was not there.
TEST_F(Oisctl, ALostDeviceEndsTheJobOnce) {
    struct Case {
        const char* command;
        const char* fault;
        int failures;
        const char* key;  // of a claim, and what it is
        const char* claim;
    };
    const Case cases[] = {
        {"session", "request@after9:errno=ENODEV", 1, "operations", "[]"},
        {"session --operations on,off,on", "READ_GAIN@after3:errno=ENODEV", 1, "gains/0/after", "null"},
        {"session --scenario video-zoom", "SET_MODE@after2:errno=ENODEV", 1, "scenario", "video-zoom"},
        {"session --scenario fix-mode --set gethall=1", "GET_HALL@after9:errno=EIO", 8, "modes/0/last_frame",
         "16"},
        {"record --seconds 20", "READ_STATUS@after100:errno=ENODEV", 1, "rows", "100"},
        {"record --seconds 20", "READ_STATUS@after100:errno=EIO", 8, "rows", "100"},
        {"record --seconds 20", "request@after6:errno=ENODEV", 1, "rows", "0"},
        {"record --seconds 20", "request@after6:errno=ENODEV", 1, "file", "null"},
        {"record --seconds 20", "READ_STATUS:errno=EIO", 8, "file", "null"},
        {"record --seconds 20", "request@after4:errno=EIO", 8, "file", "null"},
        {"session --scenario video-zoom", "request@after5:errno=ETIMEDOUT", 5, "scenario", "video-zoom"},
        {"session --scenario fix-mode --set gethall=1", "GET_HALL:errno=EIO", 8, "scenario", "fix-mode"},
        {"dump flash -o .", "READ_FLASH:errno=ENODEV", 1, "file", "null"},
        {"detect-defect", "request@after20:errno=ENODEV", 1, "axes/0/verdict", "not told"},
        {"detect-defect", "request@after20:errno=ENODEV", 1, "defective", "null"},
        {"detect-defect", "request@after4:errno=ENODEV", 1, "axes/0/largest_error", "null"},
        {"op detect-defect", "request@after20:errno=ENODEV", 1, "opened", "true"},
        {"op read-gain-x", "READ_GAIN@2:errno=ENODEV", 1, "opened", "true"},
        {"calibrate", "SET_GYRO_OFFSET:errno=ENODEV", 1, "calibration", "not told"},
        {"firmware-update --times 3", "request:errno=ENODEV", 1, "updates/0/outcome", "no outcome"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.command) + " " + c.fault);
        const Outcome outcome = run(std::string(c.command) + " -m dw9786 --json --fault " + c.fault);
        EXPECT_EQ(outcome.status, 1);
        const json report = parsed(outcome.out);
        ASSERT_TRUE(report.is_object()) << outcome.out << outcome.err;
        EXPECT_EQ(report["failures"], c.failures);
        EXPECT_TRUE(report.value("device_lost_s", json()).is_number());
        const json claim = report.value(json::json_pointer(std::string("/") + c.key), json("missing"));
        EXPECT_EQ(claim.is_string() ? claim.get<std::string>() : asText(claim), c.claim);
    }
}

TEST_F(Oisctl, TroubleThatPassesIsNoLostDevice) {
    const std::string readBack = "session -m dw9786 --scenario fix-mode --set gethall=1 ";
    for (const std::string& options :
         {std::string("session -m dw9786 --fault SET_MODE@2-5:errno=EIO"),
          std::string("mode 2 -m dw9786 --fault request:errno=EIO"),  // which was never there
          readBack + "--fault GET_HALL@2-6:errno=EIO --fault GET_HALL@8-12:errno=EIO"}) {
        const json report = parsed(run(options + " --json").out);
        EXPECT_EQ(report.value("device_lost_s", json("missing")), json()) << options;
    }
}

TEST_F(Oisctl, ALossIsSaidAsItWasSeen) {
    const std::pair<const char*, const char*> cases[] = {{"ENODEV", "went away at"}, {"EIO", "noticed at"}};
    for (const auto& [error, says] : cases) {
        const Outcome outcome = run(std::string("record -m dw9786 --fault READ_STATUS:errno=") + error);
        EXPECT_NE(outcome.out.find(says), std::string::npos) << outcome.out;
        EXPECT_EQ(outcome.out.find("went away") == std::string::npos, std::string(error) == "EIO");
    }
}

TEST_F(Oisctl, ARecordingThatIsRefusedEndsAndKeepsNothing) {
    for (const char* fault : {"READ_STATUS:errno=ENOTTY", "READ_STATUS:lost"}) {
        const json report = parsed(run(std::string("record --seconds 1 -o out --json --fault ") + fault).out);
        EXPECT_EQ(report["good"], false) << fault;
        EXPECT_EQ(report.value("file", json("missing")), json()) << fault;
        EXPECT_TRUE(fs::is_empty(mFolder / "out")) << fault;
        EXPECT_EQ(report["time_s"] < 0.5, std::string(fault) != "READ_STATUS:lost") << fault;
    }
}

// Only the request for the update tells whether it was taken.
TEST_F(Oisctl, AnUpdateIsJudgedByItsOwnRequest) {
    write("nowhere.toml", moduleOfNoDevice());
    const std::pair<const char*, const char*> cases[] = {
        {"-m dw9786", "accepted"},
        {"-m dw9786 --fault readlink:errno=EACCES", "not asked"},
        {"-m dw9786 --fault UPDATE_FIRMWARE:errno=EIO", "refused"},
        {"-m dw9786 --fault UPDATE_FIRMWARE:errno=ENODEV", "no outcome"},
        {"-m dw9786 --fault close:errno=EIO", "accepted"},
        {"-m dw9786 --fault media.DEVICE_INFO:errno=EIO", "not asked"},
        {"-m nowhere.toml --kernel real --allow-write", "not asked"},
    };
    for (const auto& [options, outcome] : cases) {
        const json report = parsed(run(std::string("firmware-update --json ") + options).out);
        EXPECT_EQ(report["updates"][0]["outcome"], outcome) << options;
    }
}

TEST_F(Oisctl, WhatADescriptionSaysIsNotCalledTheDevices) {
    write("nowhere.toml", moduleOfNoDevice());
    const Outcome dump = run("dump otp -m nowhere.toml --kernel real --dump-folder .");
    EXPECT_EQ(dump.status, 2);
    EXPECT_NE(dump.err.find("the module's description"), std::string::npos) << dump.err;
    run("record --seconds 0.2");
    const json about = parsed(readFile(mFolder / "ois_dump_tele_dw9786_status.txt.about.json"));
    EXPECT_EQ(about["limit_from"], "module description");
    EXPECT_TRUE(about["firmware_version"].is_number());
}

// A mode that was only asked for is none of the recording's, and excuses no lens that stands still.
TEST_F(Oisctl, ARecordingHasTheModesThatTheControllerTook) {
    const struct {
        const char* arguments;
        const char* modes;
        bool good;
    } cases[] = {
        {"--mode 2", "[2]", true},
        {"--mode 0", "[0]", true},
        {"--mode 0 --fault SET_MODE:errno=EIO", "[]", false},
        {"--mode 0 --fault SET_MODE:lost", "[]", false},
    };
    for (const auto& c : cases) {
        const json report = parsed(run(std::string("record --seconds 2 --json ") + c.arguments).out);
        const json about = parsed(readFile(mFolder / "ois_dump_tele_dw9786_status.txt.about.json"));
        json modes = json::array();
        for (const json& change : about["modes"]) modes.push_back(change["mode"]);
        EXPECT_EQ(asText(modes), c.modes) << c.arguments;
        EXPECT_EQ(report["recording_good"], c.good) << c.arguments;
    }
}

// The driver believes in a mode that was refused, by whatever command.
TEST_F(Oisctl, ASessionSaysWhichModesTheControllerTook) {
    const struct {
        const char *arguments, *taken;
    } cases[] = {
        {"video-zoom -m dw9786 --fault SET_MODE@2:errno=EIO", "[true,false,true]"},
        {"video-zoom --fault hub.SET_MODE@2:lost", "[true,false,true]"},
        {"video-zoom --set bypassen=0 --fault WRITE_REGISTER@2:lost", "[true,false,true]"},
        {"engineering --set bypassen=0 --fault WRITE_REGISTER@3:lost", "[true]"},  // of another register
    };
    for (const auto& [arguments, expected] : cases) {
        json taken = json::array();
        const json report = parsed(run(std::string("session --json --scenario ") + arguments).out);
        for (const json& span : report["modes"]) taken.push_back(span["taken"]);
        EXPECT_EQ(asText(taken), expected) << arguments;
    }
}

// Where a dump stands already, only a new one counts.
TEST_F(Oisctl, ADumpIsOneThatThisCallWrote) {
    const std::pair<const char*, const char*> cases[] = {
        {"dump flash", "open./mnt/vendor/nvcfg/camera/ois_dump_tele_dw9786_flash.txt:errno=EACCES"},
        {"dump flash", "open./mnt/vendor/nvcfg/camera/ois_dump_tele_dw9786_flash.txt:lost"},
        {"dump flash", "READ_FLASH:lost"},
        {"dump otp", "property.vendor.debug.ois.dump:fail"},
        {"record --seconds 0.5", "open./mnt/vendor/nvcfg/camera/ois_dump_tele_dw9786_status.txt:lost"},
    };
    for (const auto& [command, fault] : cases) {
        SCOPED_TRACE(fault);
        const std::string line = std::string(command) + " -m dw9786 --folder phone -o out";
        ASSERT_EQ(run(line).status, 0);
        fs::remove_all(mFolder / "out");
        const Outcome outcome = run(line + " --json --fault " + fault);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(parsed(outcome.out).value("file", json()), json());
        EXPECT_TRUE(fs::is_empty(mFolder / "out"));
    }
}

TEST_F(Oisctl, ADumpFolderThatIsNoneIsSaidBeforeAnythingOpens) {
    write("nowhere.toml", moduleOfNoDevice());
    write("file", "");
    const fs::path standard = "/mnt/vendor/nvcfg/camera";
    if (fs::exists(standard)) GTEST_SKIP() << "this machine has the phones' folder";
    for (const char* command : {"session --set dump=2", "dump flash", "dump otp", "record"}) {
        const Outcome outcome = run(std::string(command) + " -m nowhere.toml --kernel real");
        EXPECT_EQ(outcome.status, 2) << command;
        EXPECT_EQ(outcome.out, "") << command;
        EXPECT_NE(outcome.err.find(standard), std::string::npos) << outcome.err;
        EXPECT_NE(outcome.err.find("--dump-folder"), std::string::npos) << outcome.err;
    }
}

TEST_F(Oisctl, AStatusFileThatStopsGrowingEndsTheRecording) {
    const Outcome outcome = run("record --seconds 60 --json --fault READ_STATUS@101:slow=30s");
    const json report = parsed(outcome.out);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(report["rows"], 101);
    EXPECT_LT(report["time_s"], 35);
}

TEST_F(Oisctl, NothingIsToldOfNoSamples) {
    const Outcome outcome = run("samples --fault sensor-samples:lost");
    EXPECT_NE(outcome.err.find("no motion sample"), std::string::npos) << outcome.err;
}

}  // namespace

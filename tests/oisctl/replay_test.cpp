// Recorded sessions again.

#include <gtest/gtest.h>

#include <sstream>
#include <string_view>

#include "oisctl_fixture.h"

namespace {

using Replay = Oisctl;

// What the driver does is told from the trace alone: without the faults, the motion and the module it was
// recorded with.
TEST_F(Replay, TheDriverDoesAsRecorded) {
    for (const char* command :
         {"session", "session --set bypassen=0 --fault chip.never-idle", "session -m dw9786 --set dump=4",
          "session -m dw9781 --fault READ_HALL_INFO:errno=EIO --fault open./dev/media0:errno=EACCES",
          "session --scenario warming-phone", "session --scenario fix-mode -m dw9786", "calibrate", "samples",
          "firmware-update --fault chip.power-cut=57 --times 2", "detect-defect -m dw9786",
          "dump otp -m korvas4sw-hub", "op read-gain-x --fault READ_GAIN:result=-22 -m dw9786",
          "registers --seconds 0.1", "record --seconds 1",
          "session --sensor 3 --set ro.product.country.region=IN"}) {
        run(std::string(command) + " --trace=run.jsonl");
        const auto replayed = run("replay run.jsonl");
        EXPECT_EQ(replayed.status, 0) << command << '\n' << replayed.out << replayed.err;
        EXPECT_NE(replayed.out.find("does as recorded"), std::string::npos) << command << '\n'
                                                                            << replayed.out;
    }
}

// The lines that hold `where`, with `from` made `to`; gone when `from` is empty.
std::string changed(const std::string& trace, std::string_view where, std::string_view from,
                    std::string_view to) {
    std::string all;
    std::istringstream lines(trace);
    for (std::string line; std::getline(lines, line);) {
        if (line.find(where) != std::string::npos) {
            if (from.empty()) continue;
            const size_t at = line.find(from);
            if (at != std::string::npos) line.replace(at, from.size(), to);
        }
        all += line + '\n';
    }
    return all;
}

// A trace with one thing changed: the first command at which the driver differs from it is named.
TEST_F(Replay, OneChangedByteIsFoundAndNamed) {
    run("session -m dw9786 --trace=run.jsonl");
    const std::string trace = readFile(mFolder / "run.jsonl");
    const struct {
        const char *where, *from, *to;
        int status;
        const char* words;
    } cases[] = {
        // An answer: what the driver makes of it.
        {"READ_HALL_INFO", R"("received":"40)", R"("received":"77)", 1, "hall_center_x 119"},
        // A command, a call, a property: what the driver does now.
        {"SET_MODE", R"("sent":"03)", R"("sent":"05)", 1, "with mode 5 and 3"},
        {R"("name":"SetMode")", R"("mode":3)", R"("mode":6)", 1, "mode=6"},
        {"vendor.debug.ois.fixmode", R"("result":0)", R"("result":1)", 1, "manualEnable (1)"},
        {R"("name":"READ_GAIN")", "", "", 1, "request READ_GAIN"},
        {R"("kind":"trace")", R"("format":1)", R"("format":2)", 2, "changed.jsonl:1: is a trace of format 2"},
        {R"("name":"NotifyStream")", R"("sent":"0100000000000000")", R"("sent":"")", 2,
         "changed.jsonl:23: NotifyStream: the trace has 0 bytes"},
        {R"("kind":"customisation")", R"(,"received":")", R"(,"sent":")", 2,
         "has 0 bytes of the customisation"},
        {R"("kind":"call")", "", "", 2, "holds no call"},
        {R"("kind":"call")", R"("name":"SetMode")", R"("name":"SetMood")", 2, "SetMood"},
    };
    for (const auto& [where, from, to, status, words] : cases) {
        write("changed.jsonl", changed(trace, where, from, to));
        const auto replayed = run("replay changed.jsonl");
        EXPECT_EQ(replayed.status, status) << where << from << replayed.out << replayed.err;
        EXPECT_NE((replayed.out + replayed.err).find(words), std::string::npos)
            << where << from << '\n'
            << replayed.out << replayed.err;
    }
}

TEST_F(Replay, WhatTheProgramDoesBesideIsNoneOfTheDriversAffair) {
    run("session -m dw9786 --trace=run.jsonl");
    const std::string trace = readFile(mFolder / "run.jsonl");
    const size_t first = trace.find('\n') + 1;
    const std::string foreign =
        R"({"time_us":0,"thread":9,"kind":"file","name":"open","fields":{"path":"/dev/media0"},"result":4})";
    write("beside.jsonl", trace.substr(0, first) + foreign + '\n' + trace.substr(first));
    EXPECT_EQ(run("replay beside.jsonl").status, 0);
    // Calls of two threads, one after the other, and at the same time.
    write("two.jsonl", changed(trace, R"("name":"SetOperation")", R"("thread":0)", R"("thread":9)"));
    EXPECT_EQ(run("replay two.jsonl").status, 0);
    const std::string call = R"({"time_us":0,"thread":9,"kind":"call","name":"SetFixMode","fields":{}})";
    const size_t second = trace.find('\n', first) + 1;
    write("meanwhile.jsonl", trace.substr(0, second) + call + '\n' + trace.substr(second));
    const Outcome meanwhile = run("replay meanwhile.jsonl");
    EXPECT_EQ(meanwhile.status, 2);
    EXPECT_NE(meanwhile.err.find("meanwhile.jsonl:3: a call begins while another thread's, of line 2"),
              std::string::npos)
        << meanwhile.err;
}

// What is known to be cut says nothing of what came then; a whole trace that is too short does.
TEST_F(Replay, ATraceCountsAsFarAsItGoes) {
    run("session -m dw9786 --trace=run.jsonl -q");
    const std::string trace = readFile(mFolder / "run.jsonl");
    write("cut.jsonl", trace.substr(0, trace.size() * 2 / 3));
    const Outcome cut = run("replay cut.jsonl");
    EXPECT_EQ(cut.status, 0) << cut.out;
    EXPECT_NE(cut.out.find("as far as the trace goes"), std::string::npos) << cut.out;
    EXPECT_NE(cut.err.find("the last line is cut"), std::string::npos) << cut.err;
    EXPECT_EQ(run("compare cut.jsonl run.jsonl").status, 0);
    const size_t lastNewline = trace.rfind('\n', trace.size() * 2 / 3);
    write("short.jsonl", trace.substr(0, lastNewline + 1));
    EXPECT_EQ(run("compare short.jsonl run.jsonl").status, 1);
    EXPECT_EQ(run("replay run.jsonl --as-scenario run.jsonl").status, 2);
    EXPECT_EQ(readFile(mFolder / "run.jsonl"), trace);
}

TEST_F(Replay, PollsMayBeAsManyAsTimeAllows) {
    run("record --seconds 1 --trace=run.jsonl");
    EXPECT_EQ(run("replay run.jsonl --polled READ_STATUS").status, 0);
    EXPECT_EQ(run("replay run.jsonl --polled READ_STATS").status, 2);
}

// A session with something that went wrong is told as a scenario, which passes; without what went wrong, or
// with another call, it does not.
TEST_F(Replay, AFieldProblemBecomesATest) {
    for (const char* command :
         {"session -m dw9786 --fault SET_MODE@3:errno=EIO --fault READ_GAIN@2-3:errno=EBUSY",
          "session --scenario warming-phone --fault hub.SET_TEMPERATURE@2:lost",
          "session --scenario fix-mode -m dw9781 --fault open./dev/media0:errno=EACCES --fault "
          "GET_HALL@2:errno=EIO",
          "session --set bypassen=0 --fault chip.never-idle",
          "session --scenario near-focus -m dw9786 --fault thread:fail",
          "registers --seconds 0.05 --fault READ_REGISTER@3:result=-5",
          "record --seconds 1 --fault READ_STATUS@5:errno=EIO",
          "session -m korvas4sw-subdev --scenario engineering --fault WRITE_GAIN:result=-22"}) {
        run(std::string(command) + " --trace=run.jsonl -q");
        const json told = runJson("replay run.jsonl --as-scenario field.toml");
        EXPECT_GT(told["faults"], 0U) << command;
        const Outcome played = run("session --scenario field.toml -q");
        EXPECT_EQ(played.status, 0) << command << '\n' << played.out << played.err;
        const std::string text = readFile(mFolder / "field.toml");
        write("field.toml", replaced(text, "faults = \\[[^\\]]*\\]", ""));
        const Outcome without = run("session --scenario field.toml -q");
        EXPECT_EQ(without.status, 1) << command << '\n' << without.out << without.err;
        EXPECT_NE(without.out.find("expected "), std::string::npos) << without.out;
    }
}

// Calls keep their times, and whatever is no scenario's is named.
TEST_F(Replay, AScenarioKeepsTimesAndNamesWhatItCannotTell) {
    run("session --scenario video-zoom -m dw9786 -q --trace=run.jsonl");
    run("replay run.jsonl --as-scenario field.toml");
    run("session --scenario field.toml -q --trace=again.jsonl");
    const auto sent = [this](const char* file) {
        std::vector<std::pair<int64_t, std::string>> all;
        std::istringstream trace(readFile(mFolder / file));
        for (std::string line; std::getline(trace, line);) {
            const json event = parsed(line);
            if (event["kind"] == "sub-device") all.emplace_back(event["time_us"], event["name"]);
        }
        return all;
    };
    EXPECT_EQ(sent("again.jsonl"), sent("run.jsonl"));
    // What a command says counts, too.
    write("changed.jsonl",
          changed(readFile(mFolder / "run.jsonl"), "SET_MODE", R"("sent":"03)", R"("sent":"05)"));
    run("replay changed.jsonl --as-scenario other.toml");
    EXPECT_EQ(run("session --scenario other.toml -q").status, 1);

    run("samples --trace=run.jsonl");
    const json told = runJson("replay run.jsonl --as-scenario field.toml");
    EXPECT_NE(asText(told["left_out"]).find("the motion samples"), std::string::npos) << told;
    run("firmware-update --trace=run.jsonl");
    EXPECT_NE(run("replay run.jsonl --as-scenario field.toml").err.find("no Init that ended"),
              std::string::npos);
}

}  // namespace

// What the capture library leaves behind, and that a program does not notice it.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "capture/spied_program.h"
#include "capture/trace_compare.h"
#include "capture/trace_file.h"
#include "trace/decode.h"

namespace {

namespace fs = std::filesystem;
using oisctl::TraceFile;
using phone::Event;
using phone::EventKind;

struct Outcome {
    std::string out;
    int status = 0;
};

class Spy : public testing::Test {
  protected:
    void SetUp() override {
        std::string name = testing::TempDir() + "ois_spy_XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        mFolder = name;
    }
    void TearDown() override { fs::remove_all(mFolder); }

    // A command, in a folder of its own.
    Outcome run(const std::string& command) const {
        std::FILE* pipe = popen(("cd " + mFolder.string() + " && " + command + " 2>&1").c_str(), "r");
        Outcome outcome;
        std::array<char, 4096> part{};
        while (const size_t count = std::fread(part.data(), 1, part.size(), pipe))
            outcome.out.append(part.data(), count);
        const int status = pclose(pipe);
        outcome.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        return outcome;
    }
    Outcome spied(const std::string& way, const std::string& file = "t.jsonl") const {
        return run("exec env LD_PRELOAD=" + oisctl::spyLibrary().string() + " OIS_SPY_TRACE=" + file +
                   " " OIS_SPIED_PROGRAM " " + way);
    }
    TraceFile trace(const std::string& file = "t.jsonl") const { return oisctl::loadTrace(mFolder / file); }

    fs::path mFolder;
};

// The values of all SET_MODE requests, in order.
std::vector<uint32_t> modes(const TraceFile& trace) {
    std::vector<uint32_t> values;
    for (const auto& [line, event] : trace.events)
        if (event.code == 0x400456C2) values.push_back(phone::recordOf<uint32_t>(event.sent));
    return values;
}

std::vector<uint32_t> upTo(uint32_t count) {
    std::vector<uint32_t> values(count);
    for (uint32_t n = 0; n < count; ++n) values[n] = n;
    return values;
}

constexpr uint32_t kMany = 2000;

TEST_F(Spy, LeavesResultsAndErrnoAsTheyAre) {
    const Outcome alone = run(OIS_SPIED_PROGRAM " results");
    const Outcome together = spied("results");
    EXPECT_EQ(together.out, alone.out);
    EXPECT_EQ(together.status, 3);
    std::vector<std::string> seen;
    for (const auto& [line, event] : trace().events) seen.push_back(phone::toText(event, false));
    const std::string refused = " -> -1 ENOTTY (Inappropriate ioctl for device)";
    ASSERT_EQ(seen.size(), 8U);
    EXPECT_EQ(seen[0], "sub-device  SET_MODE(0x400456C2) mode=2" + refused);
    EXPECT_EQ(trace().events[1].event.sent, std::vector<uint8_t>(8000, 0xab));
    EXPECT_EQ(seen[2], "sub-device  SET_MODE(0x400456C2) mode=2 -> -1 EBADF (Bad file descriptor)");
    for (const size_t unreadable : {3U, 4U, 5U})
        EXPECT_EQ(seen[unreadable], "sub-device  GET_HALL(0xC01856D9)" + refused);
    EXPECT_EQ(
        seen[6],
        "file  open path=/dev/media4711 flags=O_RDWR|O_NONBLOCK -> -1 ENOENT (No such file or directory)");
    EXPECT_EQ(seen[7], "file  readlink path=/sys/dev/char/1:3 -> 16: target=../../devices/vi");
}

TEST_F(Spy, ThreadsWriteWholeLinesInOrder) {
    spied("threads");
    const TraceFile all = trace();
    std::map<uint32_t, std::vector<uint32_t>> byThread;
    uint64_t sequence = 0;
    int64_t timeUs = 0;
    for (const auto& [line, event] : all.events) {
        EXPECT_EQ(event.sequence, ++sequence);
        EXPECT_GE(event.timeUs, timeUs);
        timeUs = event.timeUs;
        byThread[event.thread].push_back(phone::recordOf<uint32_t>(event.sent));
    }
    ASSERT_EQ(byThread.size(), 4U);
    for (const auto& [thread, values] : byThread) EXPECT_EQ(values, upTo(kMany)) << thread;
}

TEST_F(Spy, ChildrenWriteTracesOfTheirOwn) {
    spied("forks");
    std::multiset<uint32_t> own;
    for (const uint32_t value : modes(trace()))
        if (value != 1000) own.insert(value);
    EXPECT_EQ(own, (std::multiset<uint32_t>{0, 1, 2}));
    std::multiset<uint32_t> children;
    for (const fs::path& file : oisctl::spiedTraces(mFolder / "t.jsonl")) {
        if (file.filename() == "t.jsonl") continue;
        // They end without leave, so their lines are still pending.
        oisctl::appendPendingLines(file);
        EXPECT_FALSE(fs::exists(file.string() + ".pending"));
        const TraceFile child = oisctl::loadTrace(file);
        ASSERT_EQ(child.events.size(), 1U);
        children.insert(modes(child)[0]);
    }
    EXPECT_EQ(children, (std::multiset<uint32_t>{100, 101, 102}));
}

TEST_F(Spy, WhatStandsInItsPlaceIsNotLost) {
    const std::string spy = OISCTL_COMMAND " spy -o t.jsonl -- ";
    std::ofstream(mFolder / "t.jsonl") << "precious\n";
    EXPECT_EQ(run(spy + "true").status, 2);
    EXPECT_EQ(run("cat t.jsonl").out, "precious\n");
    const std::string before = "{\"kind\":\"trace\",\"format\":1}\n";
    std::ofstream(mFolder / "t.jsonl") << before;
    run(spy + "./nonexistent");
    run(spy + "true");
    EXPECT_EQ(run("cat t.jsonl").out, before);
    run("ASAN_OPTIONS=verify_asan_link_order=0 " + spy + OIS_SPIED_PROGRAM " results");
    EXPECT_GT(modes(trace()).size(), 0U);
    EXPECT_EQ(run("ls").out, "t.jsonl\n");
}

TEST_F(Spy, GoesOnWhenEveryDescriptorIsClosed) {
    EXPECT_EQ(spied("closes").out, "own file 0 \n");
    EXPECT_EQ(modes(trace()), upTo(kMany));
}

TEST_F(Spy, AKilledProgramsTraceIsWhole) {
    EXPECT_EQ(spied("killed").status, 128 + SIGKILL);
    EXPECT_EQ(modes(trace()), upTo(kMany));
    // As if it had been killed while it wrote them.
    const std::string pending = oisctl::pendingLines(mFolder / "t.jsonl");
    std::ofstream(mFolder / "t.jsonl", std::ios::app) << pending.substr(0, pending.size() / 2);
    EXPECT_EQ(modes(trace()), upTo(kMany));
    oisctl::appendPendingLines(mFolder / "t.jsonl");
    EXPECT_EQ(modes(trace()), upTo(kMany));
}

TEST_F(Spy, ALimitEndsTheTraceAndNotTheProgram) {
    const Outcome outcome = spied("limit");
    EXPECT_EQ(outcome.out, "alive\n");
    EXPECT_EQ(outcome.status, 3);
    const std::vector<uint32_t> recorded = modes(trace());
    EXPECT_EQ(recorded, upTo(static_cast<uint32_t>(recorded.size())));
    EXPECT_GT(recorded.size(), 1000U);
    EXPECT_FALSE(fs::exists(mFolder / "t.jsonl.pending"));
    EXPECT_TRUE(oisctl::endsEarly(mFolder / "t.jsonl"));
}

TEST_F(Spy, WithoutAPlaceForItNothingIsRecordedAndNothingElseChanges) {
    const std::string alone = run(OIS_SPIED_PROGRAM " results").out;
    ASSERT_EQ(run("mkfifo pipe").status, 0);
    for (const char* place : {"pipe", "missing/t.jsonl", "''"})
        EXPECT_EQ(spied("results", place).out, alone) << place;
    EXPECT_EQ(run("ls").out, "pipe\n");
}

TEST_F(Spy, ASignalInTheMidstOfItIsCounted) {
    const uint64_t made = std::stoull(spied("signals").out);
    uint64_t lost = 0;
    const TraceFile all = trace();
    for (const auto& [line, event] : all.events)
        if (event.kind == EventKind::kNote)
            lost += std::get<uint64_t>(phone::findField(event, "events")->value);
    EXPECT_EQ(modes(all).size() + lost, made);
}

// The tool's own trace of the same run, which the simulated phone wrote, is the measure: what it knows
// besides is set aside.
TEST_F(Spy, SeesOfTheDriverWhatTheSimulatedPhoneSees) {
    const char* const sessions[] = {
        "session -m korvas4sw-hub --set bypassen=0",
        "session -m korvas4sw-hub --scenario warming-phone",
        "session -m dw9786 --scenario engineering --set dump=6",
        "session -m dw9786 --fault open:errno=EACCES",
        "session -m dw9786 --fault SET_MODE@2:errno=EIO --fault thread@1:errno=EAGAIN",
        "session -m korvas4sw-hub --fault sensor-provider:fail",
        "session --sensor 3",
        "registers --seconds 0.1",
        "samples",
        "dump otp",
        "detect-defect"};
    for (const char* session : sessions) {
        SCOPED_TRACE(session);
        run("exec env ASAN_OPTIONS=verify_asan_link_order=0 " +
            std::string(OISCTL_COMMAND " spy -o s.jsonl -- ") + OISCTL_COMMAND " " + session +
            " -q --trace=t.jsonl");
        oisctl::Aside aside;
        aside.kinds = {EventKind::kMessage, EventKind::kTelemetry, EventKind::kNote};
        const TraceFile spied = trace("s.jsonl");
        const TraceFile own = trace("t.jsonl");
        const oisctl::TraceComparison compared = oisctl::compareTraces(spied, own, aside);
        if (compared.first) {
            const auto text = [](const auto* traced) {
                return traced == nullptr ? "nothing" : phone::toText(traced->event);
            };
            ADD_FAILURE() << text(compared.first->a) << "\n" << text(compared.first->b);
        }
        EXPECT_TRUE(compared.commands.empty());
        EXPECT_GT(compared.compared, 5U);
        EXPECT_EQ(run(OISCTL_COMMAND " compare s.jsonl t.jsonl").status, 0);
        const Outcome replayed = run(OISCTL_COMMAND " replay s.jsonl");
        EXPECT_EQ(replayed.status, 0) << replayed.out;
    }
}

TEST_F(Spy, TellsTheReaderWhatItIs) {
    spied("results", "./other.jsonl");
    std::vector<std::string> names;
    const TraceFile all = trace("other.jsonl");
    for (const phone::Field& field : all.about) names.push_back(field.name);
    EXPECT_EQ(names, (std::vector<std::string>{"recorder", "kernel", "pid", "program", "clock_us"}));
}

}  // namespace

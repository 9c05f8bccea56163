// The status recorder: when it starts and stops, and what it writes.

#include <functional>

#include "driver/dump_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::DumpTest;
using driver_test::kBringUpUs;
using driver_test::linesOf;
using driver_test::textOf;
using driver_test::Values;
using driver_test::writtenCourse;
using Keys = std::vector<std::string>;

constexpr const char* kStatus = "_status.txt";
const std::string kHeader = writtenCourse("status_dump", "header");

class StatusRecorder : public DumpTest {
  protected:
    // Records on the calling thread for that many polls, at least 1; `onPoll` may answer each.
    int32_t record(size_t polls, const std::function<Effect(size_t)>& onPoll) {
        size_t poll = 0;
        onCommand("READ_STATUS", [&](auto) {
            if (poll + 1 == polls) driver.mProperty.isRun = 0;
            return onPoll(poll++);
        });
        driver.mProperty.isRun = 1;
        forget();
        const int32_t outcome = driver.DumpGyroAccRawTargetHallData2File();
        decide = nullptr;
        EXPECT_EQ(poll, polls);
        return outcome;
    }
    // An open session that records only when told.
    void openQuiet() {
        DumpTest::openQuiet(1);
        driver.mProperty.dumpIntervalTime = 4;
    }
    Keys rows() {
        Keys lines = linesOf(dumped(kStatus).value_or(""));
        if (lines.empty()) return {"no file"};
        EXPECT_EQ(lines.front() + '\n', kHeader);
        lines.erase(lines.begin());
        return lines;
    }
    void engineeringRequest() {
        ois_params params{};
        params.engineer_mode = 8;
        params.engineer_operation = -1;
        EXPECT_EQ(driver.SetOisParams(&params), 0);
    }
};

TEST_F(StatusRecorder, OnePollAsTyped) {
    openQuiet();
    driver.mOisCalibInfo = {0.0F, 4.0F, -3.0F, 100, 200};
    const auto reply = bytes(
        "0e 00 00 00 00 00 00 00  e8 03 00 00 00 00 00 00  8f 13 00 00 00 00 00 00 "
        "01 00 ff ff 03 00  fc ff 05 00 fa ff  e8 03 18 fc  01 00 00 80 "
        "66 00 c8 00  ff 7f 00 80  00 00 00 00");
    EXPECT_EQ(record(1, [&](size_t) { return answer(reply); }), 0);
    EXPECT_EQ(dumped(kStatus), writtenCourse("status_dump", "one row"));
    expectCourse("status_dump", "one poll", words({{"us", "4000"}}));
}

TEST_F(StatusRecorder, NumbersReadAsAStreamWouldWriteThem) {
    openQuiet();
    std::istringstream cases(writtenCourse("status_dump", "angles"));
    int32_t center = 0;
    int16_t hall = 0;
    for (std::string amplitude, angle; cases >> hall >> center >> amplitude >> angle;) {
        driver.mOisCalibInfo = {0.0F, 1.0F, std::stof(amplitude), 0, center};
        std::vector<uint8_t> raw(56);
        raw[0] = 255;
        std::fill_n(raw.begin() + 8, 16, uint8_t{0xff});
        std::memcpy(&raw[46], &hall, sizeof hall);
        EXPECT_EQ(record(1, [&](size_t) { return answer(raw); }), 0);
        const std::string row = rows().at(0);
        EXPECT_TRUE(row.starts_with("255  18446744073709551615.18446744073709551615  0")) << row;
        EXPECT_TRUE(row.ends_with("  " + angle)) << row;
    }
}

TEST_F(StatusRecorder, AFailedPollWritesWhatTheRecordHolds) {
    const std::string zeros = "  0.000000  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  -0.5  0";
    openQuiet();
    driver.mOisCalibInfo = {0.0F, 2.0F, 2.0F, 1, 0};
    const auto run = [&](size_t polls, size_t answered, uint8_t byte) {
        return record(polls, [&](size_t poll) {
            // Every row is in the file before the next request leaves.
            EXPECT_EQ(rows().size(), poll);
            driver.mProperty.dumpLevel = static_cast<uint8_t>(driver.mProperty.dumpLevel + 100);
            return poll == answered ? answer(std::vector<uint8_t>(56, byte)) : phone::FaultEffect{};
        });
    };
    // The level is read anew for each poll and wraps in its byte; the last poll's result counts.
    EXPECT_EQ(run(3, 2, 0), 0);
    EXPECT_EQ(rows(), (Keys{"15" + zeros, "115" + zeros, "0" + zeros}));
    EXPECT_EQ(run(2, 0, 7), -1);
    EXPECT_EQ(rows().back(), "159" + zeros);  // nothing is left of the answer before
}

TEST_F(StatusRecorder, TheIntervalIsReadOnce) {
    openQuiet();
    for (const int interval : {0, 255}) {
        driver.mProperty.dumpIntervalTime = static_cast<uint8_t>(interval);
        record(2, [&](size_t) {
            driver.mProperty.dumpIntervalTime = 99;
            return std::nullopt;
        });
        expectCourse("status_dump", interval == 0 ? "back to back" : "two polls",
                     words({{"us", std::to_string(interval * 1000)}}));
    }
}

TEST_F(StatusRecorder, EngineeringRequestsStartItAndTheirCountDecidesWhoWaits) {
    setProperty("dump", 2);  // any bit will do
    open(dumpModule());
    engineeringRequest();
    engineeringRequest();
    phone.clock().sleepUs(40000);
    EXPECT_EQ(rows().size(), 10U);  // at 0, 4, ... 36 ms
    forget();
    Values now = words();
    driver.Uninit();
    expectCourse("status_dump", "two requests", now);
    EXPECT_EQ(rows().size(), 10U);

    open(dumpModule());
    engineeringRequest();
    phone.clock().sleepUs(40000);
    forget();
    now = words({{"up", "t3"}});
    driver.Uninit();
    expectCourse("status_dump", "one request", now);
    // It ends by itself, on the storage of the session that is gone.
    ASSERT_TRUE(driver.mDumpThread.joinable());
    driver.mDumpThread.join();
    EXPECT_EQ(rows().size(), 10U);
}

TEST_F(StatusRecorder, NamesAreBoundedByTheirFields) {
    auto module = dumpModule();
    std::memset(module.custInfo.cameraTypeName, 'c', sizeof module.custInfo.cameraTypeName);
    std::memset(module.custInfo.mOisIcName, 'i', sizeof module.custInfo.mOisIcName);
    open(module);
    driver.mProperty.dump = 1;
    EXPECT_EQ(driver.DumpGyroAccRawTargetHallData2File(), 0);
    const std::string name = std::string(16, 'c') + '_' + std::string(32, 'i');
    EXPECT_EQ(textOf(phone.files().dumpFolder() / ("ois_dump_" + name + kStatus)), kHeader);
    expectCourse("status_dump", "header only", words({{"file", name}, {"us", "4000"}}));
}

}  // namespace

// The status recorder: when it starts and stops, and what it writes.

#include <functional>
#include <limits>

#include "driver/dump_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::DumpTest;
using driver_test::kBringUpUs;
using driver_test::linesOf;
using driver_test::textOf;
using Keys = std::vector<std::string>;

constexpr const char* kStatus = "_status.txt";
constexpr const char* kHeader =
    "chose  sys_timestamp  gyro_raw_x  gyro_raw_y  gyro_raw_z  acc_raw_x  acc_raw_y  acc_raw_z  "
    "gyro_target_x  gyro_target_y  acc_target_x  acc_target_y  hall_x  hall_y  synthetic_x  synthetic_y  "
    "angle_gyro_target_x  angle_gyro_target_y  angle_acc_target_x  angle_acc_target_y  angle_hall_x  "
    "angle_hall_y";

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
        const int32_t outcome = driver.DumpGyroAccRawTargetHallData2File();
        decide = nullptr;
        EXPECT_EQ(poll, polls);
        return outcome;
    }
    // An open session that records only when told.
    void openQuiet() {
        open(dumpModule());
        driver.mProperty.dump = 1;
        driver.mProperty.dumpIntervalTime = 4;
        driver.mProperty.dumpLevel = 15;
    }
    Keys rows() {
        Keys lines = linesOf(dumped(kStatus).value_or(""));
        if (lines.empty()) return {"no file"};
        EXPECT_EQ(lines.front(), kHeader);
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

TEST_F(StatusRecorder, OnePollAtATimeAsTyped) {
    openQuiet();
    driver.mOisCalibInfo = {0.0F, 4.0F, -3.0F, 100, 200};
    forget();
    const auto reply = bytes(
        "0e 00 00 00 00 00 00 00  e8 03 00 00 00 00 00 00  8f 13 00 00 00 00 00 00 "
        "01 00 ff ff 03 00  fc ff 05 00 fa ff  e8 03 18 fc  01 00 00 80 "
        "66 00 c8 00  ff 7f 00 80  00 00 00 00");
    EXPECT_EQ(record(1, [&](size_t) { return answer(reply); }), 0);
    EXPECT_EQ(dumped(kStatus), std::string(kHeader) +
                                   "\n14  1000.005007  1  -1  3  -4  5  -6  1000  -1000  1  -32768  102  "
                                   "200  32767  -32768  1  -1  0.001  -32.768  0.5  -0\n");
    EXPECT_EQ(course(), (Keys{"READ_STATUS", "sleep 4000"}));
    std::vector<uint8_t> request(56);
    request[0] = 15;
    EXPECT_EQ(sent().at(0).bytes, request);
    EXPECT_EQ(messages().at(0),
              "[DumpGyroAccRawTargetHallData2File] DumpGyroAccRawTargetHallData2File: "
              "/mnt/vendor/nvcfg/camera/ois_dump_tele_dw9786_status.txt, dumpIntervalTime 4000\n");
}

TEST_F(StatusRecorder, NumbersReadAsAStreamWouldWriteThem) {
    struct Case {
        int16_t hall;
        int32_t center;
        float amplitude;
        const char* angle;
    };
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
    openQuiet();
    for (const Case& c : {Case{1, 0, 3.0F, "0.333333"},
                          {-2, 0, 3.0F, "-0.666667"},
                          {12345, 0, 0.01F, "1.2345e+06"},
                          {12345, 0, 0.1F, "123450"},
                          {12345, 0, 1e9F, "1.2345e-05"},
                          {1, 0, 1e4F, "0.0001"},
                          {32767, -32768, 1.0F, "65535"},
                          {32767, kLeast, 1.0F, "-2.14745e+09"},
                          {5, 0, 0.0F, "inf"},
                          {5, 0, -0.0F, "-inf"},
                          {-5, 0, kInfinity, "-0"},
                          {5, 0, std::numeric_limits<float>::quiet_NaN(), "nan"},
                          {3, 0, 3e38F, "1e-38"}}) {
        driver.mOisCalibInfo = {0.0F, 1.0F, c.amplitude, 0, c.center};
        std::vector<uint8_t> raw(56);
        raw[0] = 255;
        std::fill_n(raw.begin() + 8, 16, uint8_t{0xff});
        std::memcpy(&raw[46], &c.hall, sizeof c.hall);
        EXPECT_EQ(record(1, [&](size_t) { return answer(raw); }), 0);
        const std::string row = rows().at(0);
        EXPECT_TRUE(row.starts_with("255  18446744073709551615.18446744073709551615  0")) << row;
        EXPECT_TRUE(row.ends_with(std::string("  ") + c.angle)) << row;
    }
}

TEST_F(StatusRecorder, ConditionsDecideBeforeTheFirstPoll) {
    struct Case {
        int32_t descriptor;
        uint8_t dump;
        int32_t requests;
        bool isWritten;
    };
    open(dumpModule());
    const int32_t descriptor = driver.fd_driver;
    for (const Case& c :
         {Case{-1, 7, 1, false}, {0, 1, 0, true}, {descriptor, 6, 0, false}, {descriptor, 6, 1, true}}) {
        SCOPED_TRACE(std::to_string(c.descriptor) + ' ' + std::to_string(c.dump));
        std::filesystem::remove(dumpFile(kStatus));
        forget();
        driver.fd_driver = c.descriptor;
        driver.mProperty.dump = c.dump;
        driver.mParamsCallCount = c.requests;
        EXPECT_EQ(driver.DumpGyroAccRawTargetHallData2File(), 0);
        EXPECT_EQ(dumped(kStatus).value_or(""), c.isWritten ? kHeader + std::string("\n") : "");
        EXPECT_EQ(logged("[DumpGyroAccRawTargetHallData2File] Dev -1 , OIS error opening\n"),
                  c.descriptor < 0);
        EXPECT_TRUE(sent().empty());
    }
}

TEST_F(StatusRecorder, AMissingFolderIsReported) {
    openQuiet();
    removeDumpFolder();
    driver.mProperty.isRun = 1;
    EXPECT_EQ(driver.DumpGyroAccRawTargetHallData2File(), -3);
    EXPECT_EQ(messages().back(), "[DumpGyroAccRawTargetHallData2File] creat ois ic dump file failed!\n");
    EXPECT_TRUE(sent().empty());
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
    const auto run = [&](uint8_t interval) {
        driver.mProperty.dumpIntervalTime = interval;
        forget();
        record(2, [&](size_t) {
            driver.mProperty.dumpIntervalTime = 99;
            return std::nullopt;
        });
        return course();
    };
    EXPECT_EQ(run(0), (Keys{"READ_STATUS", "READ_STATUS"}));
    EXPECT_EQ(run(255), (Keys{"READ_STATUS", "sleep 255000", "READ_STATUS", "sleep 255000"}));
}

TEST_F(StatusRecorder, EngineeringRequestsStartItAndTheirCountDecidesWhoWaits) {
    for (const int requests : {1, 3}) {
        SCOPED_TRACE(requests);
        setProperty("dump", 2);  // any bit will do
        open(dumpModule());
        for (int i = 0; i < requests; ++i) engineeringRequest();
        EXPECT_EQ(driver.mProperty.isRun, 1);
        EXPECT_EQ(driver.mParamsCallCount, std::min(requests, 2));
        EXPECT_TRUE(logged("[SetOisParams] change current thread priority 20"));
        phone.clock().sleepUs(40000);
        EXPECT_EQ(rows().size(), 10U);  // at 0, 4, ... 36 ms
        driver.Uninit();
        EXPECT_EQ(driver.mDumpThread.joinable(), requests < 2);
        // It ends by itself, on the storage of the session that is gone.
        if (requests < 2) driver.mDumpThread.join();
        EXPECT_EQ(rows().size(), 10U);
    }
}

TEST_F(StatusRecorder, TheBringUpRecordsOnTheSubDeviceWay) {
    setProperty("dump", 1);
    setProperty("dump.level", 3);
    fit(dumpModule());
    ASSERT_EQ(driver.Init(1, 2), 1);
    phone.clock().sleepUs(kBringUpUs);
    Keys keys = sentKeys();
    keys.resize(5);
    EXPECT_EQ(keys, (Keys{"SET_CUSTOMISATION", "READ_GAIN", "READ_HALL_INFO", "READ_FLASH", "READ_STATUS"}));
    driver.Uninit();
    EXPECT_FALSE(driver.mInitDrvThread.joinable());
    EXPECT_EQ(phone.kernel().openFiles(), 0U);
    EXPECT_EQ(rows().front().substr(0, 3), "3  ");
}

TEST_F(StatusRecorder, NothingIsRecordedBehindTheHub) {
    setProperty("dump", 7);
    open("korvas4sw-hub");
    engineeringRequest();
    phone.clock().sleepUs(kBringUpUs);
    EXPECT_TRUE(logged("[DumpGyroAccRawTargetHallData2File] Dev -1 , OIS error opening\n"));
    EXPECT_TRUE(sent().empty());
    EXPECT_FALSE(anythingDumped());
}

TEST_F(StatusRecorder, NamesAreBoundedByTheirFields) {
    auto module = dumpModule();
    std::memset(module.custInfo.cameraTypeName, 'c', sizeof module.custInfo.cameraTypeName);
    std::memset(module.custInfo.mOisIcName, 'i', sizeof module.custInfo.mOisIcName);
    open(module);
    driver.mProperty.dump = 1;
    EXPECT_EQ(driver.DumpGyroAccRawTargetHallData2File(), 0);
    const std::string name = "ois_dump_" + std::string(16, 'c') + '_' + std::string(32, 'i') + kStatus;
    EXPECT_EQ(textOf(phone.files().dumpFolder() / name), kHeader + std::string("\n"));
}

}  // namespace

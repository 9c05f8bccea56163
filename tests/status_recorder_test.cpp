// The status recorder: when it starts and stops, and what it writes.

#include <array>
#include <functional>
#include <iomanip>
#include <limits>
#include <sstream>

#include "dump_fixture.h"

namespace {

using driver_test::answer;
using driver_test::bytes;
using driver_test::DumpTest;
using driver_test::failure;
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

// What the controller answers to one poll, and the calibration at that moment.
struct Sample {
    uint8_t chose = 15;
    uint64_t seconds = 0;
    uint64_t fraction = 0;
    std::array<int16_t, 14> values{};  // in the record's order
    OisCalibInfo calibration{};

    std::vector<uint8_t> record() const {
        std::vector<uint8_t> raw(56);
        raw[0] = chose;
        std::memcpy(&raw[8], &seconds, 8);
        std::memcpy(&raw[16], &fraction, 8);
        std::memcpy(&raw[24], values.data(), 28);
        return raw;
    }
    std::string row() const {
        std::ostringstream text;
        text << static_cast<int>(chose) << "  " << seconds << '.' << std::setw(6) << std::setfill('0')
             << fraction;
        for (const int16_t value : values) text << "  " << value;
        for (size_t i = 6; i < 10; ++i) text << "  " << static_cast<float>(values[i]) / 1000.0F;
        text << "  " << hallAngle(values[10], calibration.hall_center_x, calibration.hall_amplitude_x);
        text << "  " << hallAngle(values[11], calibration.hall_center_y, calibration.hall_amplitude_y);
        return text.str();
    }

  private:
    static float hallAngle(int16_t hall, int32_t center, float amplitude) {
        const auto difference = static_cast<uint32_t>(int32_t{hall}) - static_cast<uint32_t>(center);
        return static_cast<float>(static_cast<int32_t>(difference)) / amplitude;
    }
};

class StatusRecorder : public DumpTest {
  protected:
    using OnPoll = std::function<std::optional<phone::FaultEffect>(size_t)>;

    // Records on the calling thread for that many polls, at least 1; `onPoll` may answer each.
    int32_t record(size_t polls, const OnPoll& onPoll) {
        size_t poll = 0;
        decide = [&](phone::FaultPoint, std::string_view key,
                     std::span<const uint8_t>) -> std::optional<phone::FaultEffect> {
            if (key != "READ_STATUS") return std::nullopt;
            if (poll + 1 == polls) driver.mProperty.isRun = 0;
            return onPoll(poll++);
        };
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
        "0e 00 00 00 00 00 00 00  e8 03 00 00 00 00 00 00  8f 13 00 00 00 00 00 00"
        "01 00 ff ff 03 00  fc ff 05 00 fa ff  e8 03 18 fc  01 00 00 80"
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

TEST_F(StatusRecorder, RowsReadAsAStreamWouldWriteThem) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr int16_t kValues[] = {0, 1, -1, 5, -7, 10, 99, -100, 999, 1000, -1001, 12345, 32767, -32768};
    constexpr float kAmplitudes[] = {1.0F,   -1.0F, 3.0F,    0.0F,      -0.0F, 1e-6F,
                                     1e-38F, 1e9F,  3.4e38F, kInfinity, kNaN,  -250.5F};
    constexpr int32_t kCenters[] = {0, -40, 32767, 1 << 24, std::numeric_limits<int32_t>::min()};
    constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();
    constexpr uint64_t kTimes[] = {0, 7, 5007, 99999, 999999, 1000000, kMost};
    std::vector<Sample> samples;
    for (const float amplitude : kAmplitudes) {
        for (const int32_t center : kCenters) {
            Sample sample;
            const size_t n = samples.size();
            sample.chose = static_cast<uint8_t>(n * 5);
            sample.seconds = kTimes[n % std::size(kTimes)];
            sample.fraction = kTimes[(n / 3) % std::size(kTimes)];
            for (size_t i = 0; i < sample.values.size(); ++i)
                sample.values[i] = kValues[(n * 3 + i) % std::size(kValues)];
            sample.calibration = {0.0F, amplitude, kAmplitudes[n % std::size(kAmplitudes)], center,
                                  kCenters[n % std::size(kCenters)]};
            samples.push_back(sample);
        }
    }
    openQuiet();
    EXPECT_EQ(record(samples.size(),
                     [&](size_t poll) {
                         driver.mOisCalibInfo = samples[poll].calibration;
                         return answer(samples[poll].record());
                     }),
              0);
    const Keys written = rows();
    ASSERT_EQ(written.size(), samples.size());
    for (size_t i = 0; i < samples.size(); ++i) EXPECT_EQ(written[i], samples[i].row());
}

TEST_F(StatusRecorder, ConditionsDecideBeforeTheFirstPoll) {
    struct Case {
        int32_t descriptor;
        uint8_t dump;
        int32_t requests;
        bool isWritten;
    };
    for (const Case& c : {Case{-1, 7, 1, false}, {0, 1, 0, true}, {5, 6, 0, false}, {5, 6, 1, true}}) {
        SCOPED_TRACE(std::to_string(c.descriptor) + ' ' + std::to_string(c.dump));
        open(dumpModule());
        const int32_t open = driver.fd_driver;
        driver.fd_driver = c.descriptor < 1 ? c.descriptor : open;
        driver.mProperty.dump = c.dump;
        driver.mParamsCallCount = c.requests;
        EXPECT_EQ(driver.DumpGyroAccRawTargetHallData2File(), 0);
        EXPECT_EQ(dumped(kStatus).value_or(""), c.isWritten ? kHeader + std::string("\n") : "");
        EXPECT_EQ(logged("[DumpGyroAccRawTargetHallData2File] Dev -1 , OIS error opening\n"),
                  c.descriptor < 0);
        EXPECT_TRUE(sent().empty());
        driver.fd_driver = open;
        driver.Uninit();
        std::filesystem::remove(dumpFile(kStatus));
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
    const auto run = [&](size_t polls) {
        return record(polls, [&](size_t poll) -> std::optional<phone::FaultEffect> {
            // Every row is in the file before the next request leaves.
            EXPECT_EQ(rows().size(), poll);
            driver.mProperty.dumpLevel = static_cast<uint8_t>(driver.mProperty.dumpLevel + 100);
            if (poll == 2) return answer(std::vector<uint8_t>(56));
            return failure();
        });
    };
    EXPECT_EQ(run(2), -1);
    EXPECT_EQ(rows(), (Keys{"15" + zeros, "115" + zeros}));
    driver.mProperty.dumpLevel = 200;
    EXPECT_EQ(run(3), 0);  // the level is read anew for each poll and wraps in its byte
    EXPECT_EQ(rows(), (Keys{"200" + zeros, "44" + zeros, "0" + zeros}));
    driver.mProperty.dumpLevel = 1;
    const auto answerOnce = [&](size_t poll) {
        return poll == 0 ? answer(std::vector<uint8_t>(56, 7)) : failure();
    };
    EXPECT_EQ(record(2, answerOnce), -1);
    EXPECT_EQ(rows().back(), "1" + zeros);  // nothing is left of the answer before
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
    for (const bool recorded : {true, false}) {
        setProperty("dump", recorded ? 1 : 2);
        setProperty("dump.level", 3);
        fit(dumpModule());
        forget();
        ASSERT_EQ(driver.Init(1, 2), 1);
        phone.clock().sleepUs(kBringUpUs);
        Keys keys = sentKeys();
        keys.resize(5);
        EXPECT_EQ(keys, (Keys{"SET_CUSTOMISATION", "READ_GAIN", "READ_HALL_INFO", "READ_FLASH",
                              recorded ? "READ_STATUS" : ""}));
        driver.Uninit();
        EXPECT_FALSE(driver.mInitDrvThread.joinable());
        EXPECT_EQ(phone.kernel().openFiles(), 0U);
        ASSERT_EQ(dumped(kStatus).has_value(), recorded);
        if (recorded) {
            EXPECT_EQ(rows().front().substr(0, 3), "3  ");
        }
        std::filesystem::remove(dumpFile(kStatus));
    }
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

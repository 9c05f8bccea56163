// The controller family behind the hub: parser, simple commands, calibration, flash save, checksum.

#include <map>
#include <random>

#include "driver/korva_course.h"

namespace {

using driver_test::bytes;
using driver_test::idleAfter;
using driver_test::kIdleAtOnce;
using driver_test::kIdleNever;
using driver_test::Lines;
using driver_test::operator+;

class Korva : public driver_test::KorvaTest {
  protected:
    // Idle before the driver asks, so that it is so at the first read.
    void openIdle() {
        openHub();
        chip().writeRegister(0x0000, 1, 0);
        phone.clock().sleepUs(50000);
        forget();
    }
};

// --- Parser and simple commands

TEST_F(Korva, TheParserTranslatesFourIdsAndRelaysTheRest) {
    const std::map<int32_t, Lines> translated = {
        {4, {"bypass off", "write 0002:1 10", "[korvas4sw_set_mode] change mode expmode:16 \n"}},
        {6,
         {"bypass off", "sleep 2000", "write 0558:1 0", "sleep 2000", "write 0588:4 459c4000",
          "[korvas4sw_set_acc] change mode expmode:0 \n"}},
        {17, {"bypass off"}}};
    openIdle();
    answers(0x0004, {{0x02}});  // the calibration fails, which ends it
    for (int32_t id = -1; id <= 18; ++id) {
        SCOPED_TRACE(id);
        forget();
        int32_t input = 2;
        EXPECT_EQ(driver.KorvaCmdParse(id, &input, nullptr, sizeof input, 0), id == 12 ? -1 : 0);
        if (translated.contains(id)) {
            EXPECT_EQ(course(), translated.at(id));
        } else if (id == 12) {
            EXPECT_EQ(course().front(), "read 0248:2 0");
        } else {
            ASSERT_EQ(sent().size(), 1U);
            EXPECT_EQ(sent()[0].head(8),
                      (std::vector<uint8_t>{static_cast<uint8_t>(id), 4, 0, 0, 2, 0, 0, 0}));
            EXPECT_EQ(messages(),
                      Lines{"[KorvaCmdParse] bypass disable not support:" + std::to_string(id) + "   \n"});
        }
    }
}

TEST_F(Korva, ModeOffAndCompensation) {
    openIdle();
    int32_t off = 0;
    EXPECT_EQ(driver.KorvaCmdParse(4, nullptr, nullptr, 4, 0), 0);  // no mode, nothing sent
    driver.KorvaCmdParse(4, &off, nullptr, 4, 0);
    driver.mAccParams.enable = 7;
    driver.mAccParams.distanceF = 250.0F;
    ois_acc_params other{};
    driver.KorvaCmdParse(6, &other, nullptr, sizeof other, 0);  // the member counts, not what is passed
    // Called by itself, the switch comes from the argument and the distance from the member all the same.
    other.enable = 1;
    other.distanceF = 1.0F;
    driver.mAccParams.enable = 0;
    EXPECT_EQ(driver.korvas4sw_set_acc(&other), 0);
    const Lines on = {"write 0558:1 1", "sleep 2000", "write 0588:4 437a0000",
                      "[korvas4sw_set_acc] change mode expmode:0 \n"};
    EXPECT_EQ(course(), (Lines{"bypass off", "write 0002:1 5",
                               "[korvas4sw_set_mode] change mode expmode:5 \n", "bypass off", "sleep 2000"} +
                         on + on));
}

TEST_F(Korva, IdleIsPolledTwentyTimes) {
    struct Case {
        const char* fault;
        int32_t result;
        size_t polls;
        Lines said;
    };
    const std::string timeOut = "log retry timep_err, state ";
    for (const Case& c : {Case{"chip.idle-on-read=1", 1, 0, {"log state (1)\n"}},
                          Case{"chip.idle-on-read=21", 1, 20, {timeOut + "(1)\n", "log state (1)\n"}},
                          Case{"chip.never-idle", 0, 20, {timeOut + "(2)\n", "log state (2)\n"}}}) {
        SCOPED_TRACE(c.fault);
        openHub();
        chip().inject(c.fault);
        EXPECT_EQ(driver.korvas4sw_set_idle(), c.result);
        EXPECT_EQ(course(), idleAfter(c.polls) + c.said);
        driver.Uninit();
    }
}

// --- Flash save

const Lines kSaveStart = Lines{"read 0002:1 0"} + kIdleAtOnce +
                         Lines{"write 0060:1 1", "sleep 5000",   "read 0064:2 1", "sleep 2000",
                               "write 0003:1 1", "sleep 500000", "read 0004:1 1"};
const std::string kSave = "[korvas4sw_flash_save] ";
const Lines kSaveWritten = {kSave + "flash write success\n",
                            "write 000d:1 1",
                            "write 000e:1 6",
                            "sleep 15000",
                            "write 0060:1 1",
                            "sleep 5000",
                            "read 0064:2 1"};
Lines saveEnd(const std::string& mode) {
    return {kSave + "flash write success, other flash data was default\n", "write 0002:1 " + mode,
            "write 0000:1 1", kSave + "ois flash save success (0)\n"};
}

TEST_F(Korva, FlashSaveRestoresTheModeItFound) {
    openIdle();
    driver.korvas4sw_set_mode(1);
    chip().writeRegister(0x0000, 1, 0);
    phone.clock().sleepUs(50000);
    forget();
    EXPECT_EQ(driver.korvas4sw_flash_save(), 0);
    EXPECT_EQ(course(), kSaveStart + kSaveWritten + saveEnd("10"));
    phone.clock().sleepUs(50000);
    EXPECT_EQ(chip().state(), phone::KorvaState::kRunning);
}

TEST_F(Korva, FlashSaveStopsWhereItFails) {
    struct Case {
        std::string what;
        uint32_t reg;
        std::deque<std::vector<uint8_t>> values;
        Lines expected;
    };
    const Lines writeError = {kSave + "flash write error\n"};
    const Lines rewritten = {kSave + "flash write error, other flash data was rewrite\n"};
    for (const Case& c :
         {Case{"status 1", 0x0004, {{0x01}}, kSaveStart + writeError},
          Case{"status 0x80", 0x0004, {{0x80}}, kSaveStart + writeError},
          Case{"low byte", 0x0064, {{0x34, 0x12}, {0x35, 0x12}}, kSaveStart + kSaveWritten + rewritten},
          Case{"high byte", 0x0064, {{0x34, 0x12}, {0x34, 0x92}}, kSaveStart + kSaveWritten + rewritten},
          Case{"equal", 0x0064, {{0xff, 0xff}, {0xff, 0xff}}, kSaveStart + kSaveWritten + saveEnd("5")}}) {
        SCOPED_TRACE(c.what);
        openIdle();
        answers(c.reg, c.values);
        EXPECT_EQ(driver.korvas4sw_flash_save(), 0);
        EXPECT_EQ(course(), c.expected);
        driver.Uninit();
    }
    openHub();
    chip().inject("chip.never-idle");
    EXPECT_EQ(driver.korvas4sw_flash_save(), 0);
    EXPECT_EQ(course(),
              Lines{"read 0002:1 0"} + kIdleNever + Lines{kSave + "invalid ic status, skip calibration\n"});
}

// --- Offset calibration

const std::string kCalibration = "[korvas4sw_set_offset_calibration] ";
const Lines kPoll = {"sleep 10000", kCalibration + "wait 10ms!\n", "read 0014:1 1"};
Lines calibrationStart(const std::string& offsets) {
    return Lines{"read 0248:2 0", "read 024a:2 0",
                 kCalibration + "before cal offset (" + offsets + ") return vale (0)\n"} +
           kIdleAtOnce + Lines{"write 0014:1 1"};
}
Lines calibrationEnd(const std::string& offsets) {
    return {"read 0248:2 1", "read 024a:2 1",
            kCalibration + "X after cal offset(" + offsets + "), return value (0)\n", kCalibration + "end\n"};
}

TEST_F(Korva, CalibrationMeasuresChecksAndSaves) {
    openIdle();
    answers(0x0248, {{0xf6, 0xff}, {0xff, 0x7f}});
    answers(0x024a, {{0x0a, 0x00}, {0x00, 0x80}});
    answers(0x0014, {{0x01}, {0x80}, {0x00}});
    answers(0x0004, {{0x50}});  // none of the error bits
    EXPECT_EQ(driver.korvas4sw_set_offset_calibration(), 0);
    EXPECT_EQ(course(), calibrationStart("-10 10") + kPoll + kPoll + kPoll + Lines{"read 0004:1 0"} +
                            kSaveStart + kSaveWritten + saveEnd("5") + calibrationEnd("32767 -32768"));
}

TEST_F(Korva, CalibrationThatNeverEndsIsJudgedByItsStatus) {
    for (const uint8_t status : {uint8_t{0x00}, uint8_t{0x20}}) {
        openIdle();
        chip().inject("chip.calibration-never-done");
        answers(0x0004, {{status}});
        EXPECT_EQ(driver.korvas4sw_set_offset_calibration(), status == 0 ? 0 : -1);
        Lines expected = calibrationStart("0 0");
        for (int poll = 0; poll < 50; ++poll) expected = expected + kPoll;
        expected = expected + Lines{kCalibration + "wait calibration done timep_err!\n", "read 0004:1 0"};
        const Lines rest = status == 0 ? kSaveStart + kSaveWritten + saveEnd("5") + calibrationEnd("0 0")
                                       : Lines{kCalibration + "error in gyro offset calibration(20)\n"};
        EXPECT_EQ(course(), expected + rest) << int{status};
        driver.Uninit();
    }
}

TEST_F(Korva, CalibrationStatusBitsDecide) {
    openIdle();
    for (int status = 0; status <= 0xff; ++status) {
        SCOPED_TRACE(status);
        forgetAnswers();
        answers(0x0014, {{0x00}});
        answers(0x0004, {{static_cast<uint8_t>(status)}, {0x01}});  // the save, if any, fails at once
        forget();
        const bool fails = (status & 0x01) != 0 || (status & 0x02) != 0 || (status & 0x20) != 0;
        EXPECT_EQ(driver.korvas4sw_set_offset_calibration(), fails ? -1 : 0);
        char line[96];
        std::snprintf(line, sizeof line, "error in gyro offset calibration(%x)\n",
                      static_cast<unsigned>(status));
        EXPECT_EQ(messages().back(), kCalibration + (fails ? line : "end\n"));
    }
}

TEST_F(Korva, AChipThatIsNotIdleIsNotCalibrated) {
    openHub();
    chip().inject("chip.never-idle");
    int32_t zero = 0;
    EXPECT_EQ(driver.KorvaCmdParse(12, &zero, nullptr, 4, 0), 0);
    const Lines start = calibrationStart("0 0");
    EXPECT_EQ(course(), Lines(start.begin(), start.begin() + 3) + kIdleNever +
                            Lines{kCalibration + "invalid ic status, skip calibration\n"});
}

// --- Checksum

TEST_F(Korva, ChecksumIsTheWrappingWordSum) {
    const auto sum = [&](const std::vector<uint8_t>& image) {
        return driver.korvas4sw_fw_checksum(image.data(), static_cast<uint16_t>(image.size()));
    };
    EXPECT_EQ(driver.korvas4sw_fw_checksum(nullptr, 1), 0);
    EXPECT_EQ(sum(bytes("34 12 77")), 0x1234);
    EXPECT_EQ(sum(bytes("ff ff 01 00")), 0);

    std::mt19937 random(5);
    for (size_t size = 0; size <= 65535; size += size < 200 || size >= 65530 ? 1 : 6533) {
        // At an odd address, and exactly that many bytes, so that a read past the end is one past an
        // allocation.
        std::vector<uint8_t> image(size + 1);
        for (uint8_t& byte : image) byte = static_cast<uint8_t>(random());
        unsigned expected = 0;
        for (size_t i = 1; i + 1 < image.size(); i += 2) expected += image[i] + 256U * image[i + 1];
        EXPECT_EQ(driver.korvas4sw_fw_checksum(image.data() + 1, static_cast<uint16_t>(size)),
                  expected % 65536U)
            << size;
    }
}

}  // namespace

// The controller family behind the hub: parser, simple commands, calibration, flash save, checksum.

#include <random>

#include "korva_course.h"

namespace {

using driver_test::bytes;
using driver_test::idleNever;
using driver_test::kIdleAtOnce;
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
    int64_t elapsedUs(const std::function<void()>& work) {
        const int64_t start = phone.clock().nowUs();
        work();
        return phone.clock().nowUs() - start;
    }
};

// --- Parser and simple commands

TEST_F(Korva, TheParserTranslatesFourIdsAndRelaysTheRest) {
    openIdle();
    answers(0x0004, {{0x02}});  // the calibration fails, which ends it
    for (int32_t id = -1; id <= 18; ++id) {
        SCOPED_TRACE(id);
        forget();
        int32_t input = 2;
        const int32_t result = driver.KorvaCmdParse(id, &input, nullptr, sizeof input, 0);
        EXPECT_EQ(result, id == 12 ? -1 : 0);
        if (id == 4) {
            EXPECT_EQ(course(), (Lines{"bypass off", "write 0002:1 10",
                                       "[korvas4sw_set_mode] change mode expmode:16 \n"}));
        } else if (id == 6) {
            EXPECT_EQ(course(),
                      (Lines{"bypass off", "sleep 2000", "write 0558:1 0", "sleep 2000",
                             "write 0588:4 459c4000", "[korvas4sw_set_acc] change mode expmode:0 \n"}));
        } else if (id == 12) {
            EXPECT_EQ(course().front(), "read 0248:2 0");
        } else if (id == 17) {
            EXPECT_EQ(course(), Lines{"bypass off"});
        } else {
            ASSERT_EQ(sent().size(), 1U);
            std::vector<uint8_t> record(64);
            record[0] = static_cast<uint8_t>(id);
            record[1] = 4;
            record[4] = 2;
            EXPECT_EQ(sent()[0].bytes, record);
            EXPECT_EQ(messages(),
                      Lines{"[KorvaCmdParse] bypass disable not support:" + std::to_string(id) + "   \n"});
        }
    }
}

TEST_F(Korva, RegisterRecordsByteByByte) {
    openHub();
    int32_t off = 0;
    driver.KorvaCmdParse(4, &off, nullptr, 4, 0);
    driver.mAccParams.enable = 7;
    driver.mAccParams.distanceF = 250.0F;
    ois_acc_params other{};
    driver.KorvaCmdParse(6, &other, nullptr, sizeof other, 0);  // the member counts, not what is passed
    driver.korvas4sw_set_idle();
    const char* const records[] = {
        "11 0c 00 00  00 00 00 00 00 00 00 00 00 00 00 00",  // bypass off
        "01 0c 00 00  02 00 00 00 01 00 00 00 05 00 00 00",  // mode off
        "11 0c 00 00  00 00 00 00 00 00 00 00 00 00 00 00",
        "01 0c 00 00  58 05 00 00 01 00 00 00 01 00 00 00",  // compensation on
        "01 0c 00 00  88 05 00 00 04 00 00 00 00 00 7a 43",  // 250.0
        "01 0c 00 00  00 00 00 00 01 00 00 00 00 00 00 00",  // idle request
        "00 0c 01 00  01 00 00 00 01 00 00 00 00 00 00 00",  // state
    };
    size_t next = 0;
    for (const char* record : records) {
        SCOPED_TRACE(record);
        auto expected = bytes(record);
        expected.resize(64);
        EXPECT_EQ(sent().at(next++).bytes, expected);
    }
    // Called by itself, the switch comes from the argument and the distance from the member all the same.
    forget();
    other.enable = 1;
    other.distanceF = 1.0F;
    driver.mAccParams.enable = 0;
    EXPECT_EQ(driver.korvas4sw_set_acc(&other), 0);
    EXPECT_EQ(course(), (Lines{"write 0558:1 1", "sleep 2000", "write 0588:4 437a0000",
                               "[korvas4sw_set_acc] change mode expmode:0 \n"}));
}

TEST_F(Korva, IdleIsPolledTwentyTimes) {
    struct Case {
        const char* fault;
        int32_t result;
        size_t reads;
        Lines said;
    };
    const std::string timeOut = "log retry timep_err, state ";
    for (const Case& c : {Case{"chip.idle-on-read=1", 1, 1, {"log state (1)\n"}},
                          Case{"chip.idle-on-read=21", 1, 21, {timeOut + "(1)\n", "log state (1)\n"}},
                          Case{"chip.never-idle", 0, 21, {timeOut + "(2)\n", "log state (2)\n"}}}) {
        SCOPED_TRACE(c.fault);
        openHub();
        chip().inject(c.fault);
        Lines expected = {"write 0000:1 0", "sleep 2000", "read 0001:1 0"};
        for (size_t read = 1; read < c.reads; ++read)
            expected = expected + Lines{"sleep 10000", "read 0001:1 0"};
        const int64_t us = elapsedUs([&] { EXPECT_EQ(driver.korvas4sw_set_idle(), c.result); });
        EXPECT_EQ(course(), expected + c.said);
        EXPECT_EQ(us, 2000 + 10000 * static_cast<int64_t>(c.reads - 1));
        driver.Uninit();
    }
}

TEST_F(Korva, WithoutAProviderNothingIsSentAndTheRequestsOwnBytesAreRead) {
    EXPECT_EQ(driver.korvas4sw_set_mode(1), 0);
    EXPECT_EQ(driver.korvas4sw_init_pid(), 0);
    EXPECT_EQ(course(), (Lines{"[korvas4sw_set_mode] change mode expmode:16 \n", "sleep 200000",
                               "log current init pid 54"}));  // 0x36, the address
}

// --- Flash save

const Lines kSaveStart = Lines{"read 0002:1 0"} + kIdleAtOnce +
                         Lines{"write 0060:1 1", "sleep 5000",   "read 0064:2 1", "sleep 2000",
                               "write 0003:1 1", "sleep 500000", "read 0004:1 1"};
const Lines kSaveWritten = {"[korvas4sw_flash_save] flash write success\n",
                            "write 000d:1 1",
                            "write 000e:1 6",
                            "sleep 15000",
                            "write 0060:1 1",
                            "sleep 5000",
                            "read 0064:2 1"};
Lines saveEnd(const std::string& mode) {
    return {"[korvas4sw_flash_save] flash write success, other flash data was default\n",
            "write 0002:1 " + mode, "write 0000:1 1", "[korvas4sw_flash_save] ois flash save success (0)\n"};
}

TEST_F(Korva, FlashSaveRestoresTheModeItFound) {
    openIdle();
    driver.korvas4sw_set_mode(1);
    chip().writeRegister(0x0000, 1, 0);
    phone.clock().sleepUs(50000);
    forget();
    const int64_t us = elapsedUs([&] { EXPECT_EQ(driver.korvas4sw_flash_save(), 0); });
    EXPECT_EQ(course(), kSaveStart + kSaveWritten + saveEnd("10"));
    EXPECT_EQ(us, 529000);
    phone.clock().sleepUs(50000);
    EXPECT_EQ(chip().state(), phone::KorvaState::kRunning);
}

TEST_F(Korva, FlashSaveStopsWhereItFails) {
    struct Case {
        std::string what;
        uint32_t reg;
        std::vector<std::vector<uint8_t>> values;
        Lines expected;
    };
    const std::string function = "[korvas4sw_flash_save] ";
    const Lines writeError = {function + "flash write error\n"};
    const Lines rewritten = {function + "flash write error, other flash data was rewrite\n"};
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
    EXPECT_EQ(course(), Lines{"read 0002:1 0"} + idleNever() +
                            Lines{function + "invalid ic status, skip calibration\n"});
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
    EXPECT_EQ(course(), Lines(start.begin(), start.begin() + 3) + idleNever() +
                            Lines{kCalibration + "invalid ic status, skip calibration\n"});
}

// --- Checksum

uint16_t plainSum(const std::vector<uint8_t>& image, size_t from, size_t size) {
    unsigned sum = 0;
    for (size_t i = 0; i + 1 < size; i += 2) sum += image[from + i] + 256U * image[from + i + 1];
    return static_cast<uint16_t>(sum % 65536U);
}

TEST_F(Korva, ChecksumIsTheWrappingWordSum) {
    const auto sum = [&](const std::vector<uint8_t>& image) {
        return driver.korvas4sw_fw_checksum(image.data(), static_cast<uint16_t>(image.size()));
    };
    EXPECT_EQ(driver.korvas4sw_fw_checksum(nullptr, 1), 0);
    EXPECT_EQ(sum(bytes("34 12 77")), 0x1234);
    EXPECT_EQ(sum(bytes("ff ff 01 00")), 0);

    std::mt19937 random(5);
    std::vector<uint8_t> image(65535 + 3);
    for (uint8_t& byte : image) byte = static_cast<uint8_t>(random());
    const auto check = [&](size_t from, size_t size) {
        // Exactly that many bytes, so that a read past the end is one past an allocation.
        const std::vector<uint8_t> part(image.begin() + static_cast<std::ptrdiff_t>(from),
                                        image.begin() + static_cast<std::ptrdiff_t>(from + size));
        ASSERT_EQ(sum(part), plainSum(image, from, size)) << size;
        ASSERT_EQ(driver.korvas4sw_fw_checksum(image.data() + from, static_cast<uint16_t>(size)),
                  plainSum(image, from, size))
            << from << ' ' << size;
    };
    for (size_t size = 0; size < 200; ++size) {
        for (size_t from = 0; from < 3; ++from) check(from, size);
    }
    for (const size_t size : {28672UL, 28673UL, 65533UL, 65534UL, 65535UL}) {
        for (size_t from = 0; from < 3; ++from) check(from, size);
    }
}

}  // namespace

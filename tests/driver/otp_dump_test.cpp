// The OTP dump, held to the byte against files typed by hand.

#include <array>

#include "driver/dump_fixture.h"

namespace {

using driver_test::DumpTest;
using driver_test::linesOf;
using driver_test::writtenCourse;
using Keys = std::vector<std::string>;

constexpr const char* kOtp = "_otp.txt";
constexpr size_t kControllerFields = 34;

class OtpDump : public DumpTest {
  protected:
    OtpDump() {
        // No session is needed.
        std::strcpy(driver.mOisCustInfo.cameraTypeName, "tele");
        std::strcpy(driver.mOisCustInfo.mOisIcName, "dw9786");
        driver.mProperty.dump = 2;
        for (size_t i = 0; i < sizeof otp.image; ++i) otp.image[i] = static_cast<uint8_t>(i);
        otp.image[0] = 1;
        std::fill(std::begin(otp.reserved), std::end(otp.reserved), uint8_t{0xee});
        for (size_t i = 0; i < 15; ++i) map[i] = static_cast<uint16_t>(0x101 + 3 * i);
        for (size_t i = 16; i < 75; ++i) map[i] = static_cast<uint16_t>(0xb000 + 3 * i);
        map[8] = 0x3fe;
        map[15] = 0xb000;
        setTables({0xb100, 0xb107, 0xb110, 0xb113, 0xb120, 0xb122});
    }
    void setTables(const std::array<uint16_t, 6>& addresses) {
        std::copy(addresses.begin(), addresses.end(), map.begin() + 75);
    }
    std::string dump() {
        std::memcpy(driver.mOisCustExt.otpAddress, map.data(), sizeof map);
        driver.GetOisOtpData(&otp);
        return dumped(kOtp).value_or("no file");
    }
    Keys labels() {
        Keys found;
        for (const std::string& line : linesOf(dump())) found.push_back(line.substr(0, line.find(' ')));
        return found;
    }

    ois_otp_data otp{};
    std::array<uint16_t, 82> map{};
};

TEST_F(OtpDump, EveryField) {
    EXPECT_EQ(dump(), writtenCourse("otp_dump", "every field"));
    expectCourse("otp_dump", "written");
}

TEST_F(OtpDump, GroupsAppearByTheirFlags) {
    struct Case {
        size_t flag;  // its address in the image
        std::ptrdiff_t first;
        std::ptrdiff_t last;  // lines that go with it
    };
    const Keys all = labels();
    const auto lines = static_cast<std::ptrdiff_t>(all.size());
    for (const Case& c : {Case{0, 0, 4}, {map[11], 4, 5}, {map[7], 5, 6}, {0x3ff, 6, lines}}) {
        SCOPED_TRACE(c.flag);
        Keys expected = all;
        expected.erase(expected.begin() + c.first, expected.begin() + c.last);
        const uint8_t kept = std::exchange(otp.image[c.flag], uint8_t{0});
        EXPECT_EQ(labels(), expected);
        otp.image[c.flag] = kept;
    }
    otp = {};
    EXPECT_EQ(dump(), "");
}

TEST_F(OtpDump, TablesNeedAWholeWordBetweenTwoAddresses) {
    struct Case {
        uint16_t start;
        uint16_t end;
        size_t words;
    };
    constexpr Case kCases[] = {{0xb010, 0xb013, 1},  {0xb010, 0xb012, 0}, {0xb010, 0xb016, 1},
                               {0xb010, 0xb00f, 0},  {0, 0xb010, 0},      {0xb010, 0, 0},
                               {0xb000, 0xb02b, 11}, {0xfff0, 0xffff, 4}};
    for (const Case& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        setTables({c.start, c.end, c.start, c.end, c.start, c.end});
        const Keys found = labels();
        ASSERT_EQ(found.size(), 6 + kControllerFields + 3 * c.words);
        if (c.words > 0) {
            EXPECT_EQ(found.back(), "CROSSTALK_COEFF_" + std::to_string(c.words - 1));
        }
    }
}

TEST_F(OtpDump, AddressesOutsideTheImageReadAsZero) {
    struct Case {
        uint16_t controllerFlag;
        uint16_t base;
        uint16_t address;
        const char* rest;  // of the line
    };
    for (const Case& c : {Case{0x3fe, 0xb000, 0, "0x00  value:  00"},        // below zero
                          Case{0, 0xb002, 0xb000, "0xb000  value:  00"},     // just below zero
                          Case{2110, 0xb000, 0xb000, "0xb000  value:  3f"},  // the last byte
                          Case{2110, 0xb000, 0xb001, "0xb001  value:  00"},  // behind it
                          Case{0x3fe, 0x10, 0xffff, "0xffff  value:  00"}}) {
        map[8] = c.controllerFlag;
        map[15] = c.base;
        map[18] = c.address;
        EXPECT_NE(dump().find(std::string("HPOLA  adress:  ") + c.rest + '\n'), std::string::npos) << c.rest;
    }
    map[1] = 2111;
    map[3] = 0xffff;
    map[5] = 2111;
    map[6] = 2112;
    map[7] = 2112;
    map[8] = 0xffff;
    map[14] = static_cast<uint16_t>(map[13] - 1);
    EXPECT_EQ(dump(), writtenCourse("otp_dump", "outside", {{"nothing", ""}}));
}

TEST_F(OtpDump, TheRecordIsKeptAndTheSwitchDecidesOnTheFile) {
    for (int dump = 0; dump < 8; ++dump) {
        driver.mProperty.dump = static_cast<uint8_t>(dump);
        otp.reserved[3] = static_cast<uint8_t>(dump);
        otp.image[2111] = static_cast<uint8_t>(100 + dump);
        std::filesystem::remove(dumpFile(kOtp));
        driver.GetOisOtpData(&otp);
        EXPECT_EQ(std::memcmp(&driver.mOtpData, &otp, 2116), 0);
        EXPECT_EQ(dumped(kOtp).has_value(), dump == 2 || dump == 3 || dump == 6 || dump == 7) << dump;
    }
    driver.GetOisOtpData(nullptr);  // changes nothing
    EXPECT_EQ(std::memcmp(&driver.mOtpData, &otp, 2116), 0);
    forget();
    EXPECT_EQ(driver.DumpOtp2File(), 0);
    expectCourse("otp_dump", "written");
    removeDumpFolder();
    EXPECT_EQ(driver.DumpOtp2File(), -1);
    expectCourse("otp_dump", "no folder");
}

}  // namespace

// The OTP dump, held to the byte against files typed by hand.

#include <array>

#include "driver/dump_fixture.h"

namespace {

using driver_test::DumpTest;
using driver_test::linesOf;
using Keys = std::vector<std::string>;

constexpr const char* kOtp = "_otp.txt";
constexpr size_t kControllerFields = 34;

// Every byte of the image is the low byte of its address, and so is one of the controller's block less 1.
constexpr const char* kEveryField = R"(sensor_id  adress:  0x104  value:  014
lens_id  adress:  0x107  value:  07
actuor_id  adress:  0x10a  value:  0a
material_id  adress:  0x110  value:  10111213
fuse_id  adress:  0x128  value:  28292a2b
SN  adress:  0x11c  value:  1c1d1e1f
OIS_FW_VER  adress:  0xb033  value:  32333435
HPOLA  adress:  0xb036  value:  35
HCRETRY  adress:  0xb039  value:  38
HDRANGE  adress:  0xb03c  value:  3b3c
XHMAXLMT  adress:  0xb042  value:  3e41
XHMINLMT  adress:  0xb048  value:  4447
YHMAXLMT  adress:  0xb04e  value:  4a4d
YHMINLMT  adress:  0xb054  value:  5053
XHGAIN  adress:  0xb057  value:  56
YHGAIN  adress:  0xb05a  value:  59
XHOFS  adress:  0xb05d  value:  5c
YHOFS  adress:  0xb060  value:  5f
XHG  adress:  0xb063  value:  62
YHG  adress:  0xb066  value:  65
XHMAX  adress:  0xb06c  value:  686b
XHMIN  adress:  0xb072  value:  6e71
YHMAX  adress:  0xb078  value:  7477
YHMIN  adress:  0xb07e  value:  7a7d
XMECHACENTER  adress:  0xb084  value:  8083
YMECHACENTER  adress:  0xb08a  value:  8689
XHCMAXLMT  adress:  0xb08d  value:  8c
XHCMINLMT  adress:  0xb090  value:  8f
YHCMAXLMT  adress:  0xb093  value:  92
YHCMINLMT  adress:  0xb096  value:  95
GYRO_POLA_X  adress:  0xb099  value:  98
GYRO_POLA_Y  adress:  0xb09c  value:  9b
XGG  adress:  0xb0b4  value:  b0b1b2b3
YGG  adress:  0xb0ba  value:  b6b7b8b9
SR_X  adress:  0xb0cc  value:  c8cb
SR_Y  adress:  0xb0d2  value:  ced1
LOOP_GAIN_X  adress:  0xb0c0  value:  bcbdbebf
LOOP_GAIN_Y  adress:  0xb0c6  value:  c2c3c4c5
gyroOrient  adress:  0xb09f  value:  9e
gyroMirror  adress:  0xb0a2  value:  a1
AF_DRIFT_0  adress:  0xb103  value:  020100ff
AF_DRIFT_1  adress:  0xb107  value:  06050403
LINEARITY_COEFF_0  adress:  0xb113  value:  1211100f
)";

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
    EXPECT_EQ(dump(), kEveryField);
    EXPECT_EQ(messages(), Keys{"[DumpOtp2File] open_DumpOtp2File_success, "
                               "/mnt/vendor/nvcfg/camera/ois_dump_tele_dw9786_otp.txt\n"});
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
    // Ranges and flags, too; a range that ends before it starts is empty.
    map[1] = 2111;
    map[3] = 0xffff;
    map[5] = 2111;
    map[6] = 2112;
    map[7] = 2112;
    map[8] = 0xffff;
    map[14] = static_cast<uint16_t>(map[13] - 1);
    EXPECT_EQ(dump(),
              "sensor_id  adress:  0x83f  value:  013f\n"
              "lens_id  adress:  0x107  value:  07\n"
              "actuor_id  adress:  0xffff  value:  00\n"
              "material_id  adress:  0x83f  value:  3f00\n"
              "fuse_id  adress:  0x128  value:  \n");
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
}

TEST_F(OtpDump, AMissingFolderIsReported) {
    removeDumpFolder();
    EXPECT_EQ(driver.DumpOtp2File(), -1);
    EXPECT_EQ(messages(), Keys{"[DumpOtp2File] creat ois otp dump file failed!"});
}

TEST_F(OtpDump, ShippedModulesDumpWhatTheirDescriptionSays) {
    const auto module = dumpModule();
    open(module);
    driver.mProperty.dump = 2;
    std::memcpy(otp.image, module.otpImage.data(), module.otpImage.size());
    driver.GetOisOtpData(&otp);
    const std::string text = dumped(kOtp).value_or("");
    EXPECT_TRUE(
        text.starts_with("sensor_id  adress:  0x02  value:  0563\nlens_id  adress:  0x03  value:  24\n"));
    EXPECT_NE(text.find("YMECHACENTER  adress:  0xb022  value:  ffd8\n"), std::string::npos);
    EXPECT_EQ(text.find("CROSSTALK"), std::string::npos);
}

}  // namespace

// The OTP dump, held to the byte against a description of its own.

#include <array>
#include <iomanip>
#include <random>
#include <sstream>

#include "dump_fixture.h"

namespace {

using driver_test::DumpTest;
using driver_test::linesOf;
using Keys = std::vector<std::string>;
using Map = std::array<uint16_t, 82>;

constexpr const char* kOtp = "_otp.txt";

// The fields of the controller's group: label, entry whose address is printed, and the bytes as entry+offset.
constexpr const char* kControllerFields = R"(
OIS_FW_VER 17 17 17+1 17+2 17+3
HPOLA 18 18
HCRETRY 19 19
HDRANGE 20 20 20+1
XHMAXLMT 22 21 22
XHMINLMT 24 23 24
YHMAXLMT 26 25 26
YHMINLMT 28 27 28
XHGAIN 29 29
YHGAIN 30 30
XHOFS 31 31
YHOFS 32 32
XHG 33 33
YHG 34 34
XHMAX 36 35 36
XHMIN 38 37 38
YHMAX 40 39 40
YHMIN 42 41 42
XMECHACENTER 44 43 44
YMECHACENTER 46 45 46
XHCMAXLMT 47 47
XHCMINLMT 48 48
YHCMAXLMT 49 49
YHCMINLMT 50 50
GYRO_POLA_X 51 51
GYRO_POLA_Y 52 52
XGG 60 59 59+1 59+2 60
YGG 62 61 61+1 61+2 62
SR_X 68 67 68
SR_Y 70 69 70
LOOP_GAIN_X 64 63 63+1 63+2 64
LOOP_GAIN_Y 66 65 65+1 65+2 66
gyroOrient 53 53
gyroMirror 54 54
)";

// Writes what the file has to hold.
class Expectation {
  public:
    Expectation(const ois_otp_data& otp, const Map& map) : mOtp(otp), m(map) {}

    std::string file() {
        mText << std::hex << std::setfill('0');
        if (image(0) != 0) moduleIds();
        if (image(m[11]) != 0) range("fuse_id", 13, 14);
        if (image(m[7]) != 0) range("SN", 9, 10);
        if (image(m[8] + 1) != 0) {
            controllerFields();
            words("AF_DRIFT_", m[75], m[76]);
            words("LINEARITY_COEFF_", m[77], m[78]);
            words("CROSSTALK_COEFF_", m[79], m[80]);
        }
        return mText.str();
    }

  private:
    int image(int64_t address) const {
        uint8_t byte = 0;
        if (address >= 0 && address < 2112)
            std::memcpy(&byte, reinterpret_cast<const char*>(&mOtp) + 4 + address, 1);
        return byte;
    }
    int controllerByte(int64_t address) const { return image(address - m[15] + m[8] + 1); }
    void head(const std::string& label, int64_t address) {
        mText << label << "  adress:  0x" << std::setw(2) << address << "  value:  ";
    }
    void byte(int value) { mText << std::setw(2) << value; }
    void moduleIds() {
        head("sensor_id", m[1]);
        byte(image(m[0]));
        mText << image(m[1]) << '\n';
        head("lens_id", m[2]);
        byte(image(m[2]));
        mText << '\n';
        head("actuor_id", m[3]);
        byte(image(m[3]));
        mText << '\n';
        range("material_id", 5, 6);
    }
    void range(const char* label, size_t first, size_t last) {
        head(label, m[first]);
        for (int address = m[first]; address <= m[last]; ++address) byte(image(address));
        mText << '\n';
    }
    void controllerFields() {
        std::istringstream fields(kControllerFields);
        for (std::string line; std::getline(fields, line);) {
            if (line.empty()) continue;
            std::istringstream words(line);
            std::string label;
            size_t printed = 0;
            words >> label >> printed;
            head(label, m[printed]);
            for (std::string word; words >> word;) {
                const size_t plus = word.find('+');
                const int offset = plus == std::string::npos ? 0 : std::stoi(word.substr(plus));
                byte(controllerByte(m[std::stoul(word)] + offset));
            }
            mText << '\n';
        }
    }
    void words(const std::string& label, int start, int end) {
        if (start == 0 || end == 0 || start == end || end - start + 1 < 4) return;
        for (int k = 0; k < (end - start + 1) / 4; ++k) {
            head(label + std::to_string(k), start + 4 * k + 3);
            for (int i = 3; i >= 0; --i) byte(controllerByte(start + 4 * k + i));
            mText << '\n';
        }
    }

    const ois_otp_data& mOtp;
    const Map& m;
    std::ostringstream mText;
};

class OtpDump : public DumpTest {
  protected:
    OtpDump() {
        // No session is needed.
        std::strcpy(driver.mOisCustInfo.cameraTypeName, "tele");
        std::strcpy(driver.mOisCustInfo.mOisIcName, "dw9786");
        driver.mProperty.dump = 2;
        std::mt19937 random(1);
        for (uint8_t& byte : otp.image) byte = static_cast<uint8_t>(random());
        // Module addresses below 0x400, the controller's block of 1 KiB from 0x400 on.
        for (size_t i = 0; i < 15; ++i) map[i] = static_cast<uint16_t>(random() % 0x400);
        map[8] = 0x3ff;
        map[15] = 0xb000;
        for (size_t i = 16; i < map.size(); ++i) map[i] = static_cast<uint16_t>(0xb000 + random() % 0x400);
        map[6] = static_cast<uint16_t>(map[5] + 7);
        map[10] = map[9];
        map[14] = static_cast<uint16_t>(map[13] + 40);
        setFlags(true, true, true, true);
    }
    void setFlags(bool ids, bool fuse, bool serial, bool controller) {
        const auto flag = [](bool set) { return static_cast<uint8_t>(set ? 1 : 0); };
        map[11] = 0x401;
        map[7] = 0x402;
        otp.image[0] = flag(ids);
        otp.image[0x401] = flag(fuse);
        otp.image[0x402] = flag(serial);
        otp.image[0x400] = flag(controller);
    }
    // Dumps, and holds the file against the expectation.
    void check() {
        std::memcpy(driver.mOisCustExt.otpAddress, map.data(), sizeof map);
        driver.GetOisOtpData(&otp);
        EXPECT_EQ(dumped(kOtp), Expectation(otp, map).file());
    }
    Keys labels() {
        Keys found;
        for (const std::string& line : linesOf(dumped(kOtp).value_or("?")))
            found.push_back(line.substr(0, line.find(' ')));
        return found;
    }

    ois_otp_data otp{};
    Map map{};
};

TEST_F(OtpDump, AFewLinesAsTyped) {
    otp = {};
    map = {};
    for (const int at : {0, 5, 6, 7, 8, 0x20, 0x123})
        otp.image[at] = static_cast<uint8_t>(at == 5 ? 0xab : 9);
    map[0] = 5;
    map[1] = 6;
    map[2] = 0x123;
    map[3] = 0xfff;  // outside the image
    map[5] = 7;
    map[6] = 9;
    map[7] = 0x20;
    map[8] = 0x30;
    map[9] = 0x10;
    map[10] = 0x0f;  // an empty range
    map[11] = 0x21;
    check();
    EXPECT_EQ(dumped(kOtp),
              "sensor_id  adress:  0x06  value:  ab9\n"
              "lens_id  adress:  0x123  value:  09\n"
              "actuor_id  adress:  0xfff  value:  00\n"
              "material_id  adress:  0x07  value:  090900\n"
              "SN  adress:  0x10  value:  \n");
    EXPECT_EQ(messages(), Keys{"[DumpOtp2File] open_DumpOtp2File_success, "
                               "/mnt/vendor/nvcfg/camera/ois_dump_tele_dw9786_otp.txt\n"});
}

TEST_F(OtpDump, GroupsAppearByTheirFlags) {
    for (int flags = 0; flags < 16; ++flags) {
        SCOPED_TRACE(flags);
        setFlags((flags & 1) != 0, (flags & 2) != 0, (flags & 4) != 0, (flags & 8) != 0);
        check();
        if (flags == 0) {
            EXPECT_EQ(dumped(kOtp), "");
        }
        if (flags == 14) {
            EXPECT_EQ(labels().front(), "fuse_id");
        }
    }
}

TEST_F(OtpDump, TablesNeedAWholeWordBetweenTwoAddresses) {
    struct Case {
        uint16_t start;
        uint16_t end;
        size_t words;
    };
    const size_t before = 34 + 4 + 2;  // lines of the fields in front
    for (const Case& c : {Case{0xb010, 0xb017, 2},
                          {0xb010, 0xb013, 1},
                          {0xb010, 0xb012, 0},
                          {0xb010, 0xb016, 1},
                          {0xb010, 0xb010, 0},
                          {0xb010, 0xb00f, 0},
                          {0, 0xb010, 0},
                          {0xb010, 0, 0},
                          {0xb000, 0xb02b, 11},
                          {0xfff0, 0xffff, 4}}) {
        SCOPED_TRACE(c.start);
        for (const size_t entry : {75U, 77U, 79U}) {
            map[75] = map[76] = map[77] = map[78] = map[79] = map[80] = 0;
            map[entry] = c.start;
            map[entry + 1] = c.end;
            check();
            EXPECT_EQ(labels().size(), before + c.words) << entry;
        }
    }
    map[75] = 0xb010;
    map[76] = 0xb017;
    check();
    const Keys found = labels();
    EXPECT_EQ(found[before], "AF_DRIFT_0");
    EXPECT_EQ(found[before + 1], "AF_DRIFT_1");
}

TEST_F(OtpDump, AddressesOutsideTheImageReadAsZero) {
    struct Case {
        const char* what;
        uint16_t controllerFlag;
        uint16_t base;
        uint16_t address;  // of every controller field
    };
    for (const Case& c : {Case{"below zero", 0x3ff, 0xb000, 0},
                          {"just below zero", 0, 0xb002, 0xb000},
                          {"across the end", 0x3ff, 0xb000, 0xb43e},
                          {"beyond", 0x3ff, 0x10, 0xffff},
                          {"the flag itself", 0xffff, 0xb000, 0xb000},
                          {"the last byte", 2111, 0xb000, 0xafff}}) {
        SCOPED_TRACE(c.what);
        map[8] = c.controllerFlag;
        map[15] = c.base;
        for (size_t i = 16; i < map.size(); ++i) map[i] = c.address;
        otp.image[1] = 1;  // the flag behind controller flag 0
        check();
    }
    // Ranges and flags, too.
    map[0] = map[2] = 2112;
    map[1] = 2111;
    map[3] = 0xffff;
    map[5] = 2100;
    map[6] = 0xffff;
    map[7] = 2112;
    map[11] = 0xffff;
    check();
    EXPECT_EQ(labels(), (Keys{"sensor_id", "lens_id", "actuor_id", "material_id"}));
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
    // What the platform does not fill, the driver has cleared.
    map = {};
    std::memcpy(map.data(), module.otpAddresses.data(), 160);
    driver.GetOisOtpData(&otp);
    EXPECT_EQ(dumped(kOtp), Expectation(otp, map).file());
    const std::string text = dumped(kOtp).value_or("");
    EXPECT_TRUE(
        text.starts_with("sensor_id  adress:  0x02  value:  0563\n"
                         "lens_id  adress:  0x03  value:  24\n"
                         "actuor_id  adress:  0x04  value:  14\n"
                         "material_id  adress:  0x06  value:  4d41543030303133\n"));
    EXPECT_NE(text.find("YMECHACENTER  adress:  0xb022  value:  ffd8\n"), std::string::npos);
    EXPECT_EQ(text.find("CROSSTALK"), std::string::npos);
}

}  // namespace

// The phone's platform services and module descriptions, called as a driver calls them.

#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "allocation_count.h"
#include "camera_platform/lens_customisation.h"
#include "camera_platform/log.h"
#include "camera_platform/properties.h"
#include "kernel/file_tree.h"
#include "modules/module_description.h"
#include "ois_drv.h"
#include "phone.h"
#include "services/log_service.h"
#include "services/property_store.h"
#include "services/telemetry.h"
#include "vendor/quor/hardware/ruvex/1.0/IRuvex.h"

namespace {

using NSCam::Utils::Properties;
using NSCam::Utils::ULog::ULogger;
using phone::Event;
using phone::EventKind;
using phone::LogLevel;
using phone::Phone;
using phone::PropertyStore;
using vendor::quor::hardware::ruvex::V1_0::IRuvex;

// What a call throws, or nothing.
template <typename Call>
std::string thrown(Call&& call) {
    try {
        call();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& content)
        : mPath(std::filesystem::temp_directory_path() /
                ("phone_services_" + std::to_string(::getpid()) + ".txt")) {
        std::ofstream(mPath) << content;
    }
    ~TemporaryFile() { std::filesystem::remove(mPath); }
    const std::filesystem::path& path() const { return mPath; }

  private:
    std::filesystem::path mPath;
};

TEST(PropertiesTest, ReadAsThePlatformReadsThem) {
    PropertyStore store;
    constexpr int32_t kDefault = 77;
    struct {
        const char* text;
        int32_t number;
        bool boolean;  // with the default true
    } const cases[] = {
        {"0", 0, false},
        {"1", 1, true},
        {"-5", -5, true},
        {"0x10", 16, true},
        {"2147483647", INT32_MAX, true},
        {"-2147483648", INT32_MIN, true},
        {"2147483648", kDefault, true},
        {"12a", kDefault, true},
        {"", kDefault, true},
        {"no", kDefault, false},
        {"off", kDefault, false},
        {"false", kDefault, false},
        {"n", kDefault, false},
        {"yes", kDefault, true},
        {"TRUE", kDefault, true},
        {"--1", kDefault, true},
        {"0x", kDefault, true},
        {"-0x80000000", INT32_MIN, true},
    };
    for (const auto& c : cases) {
        store.set("key", c.text);
        EXPECT_EQ(store.getInt32("key", kDefault), c.number) << c.text;
        EXPECT_EQ(store.getBool("key", true), c.boolean) << c.text;
    }
    store.set("key", "on");
    EXPECT_TRUE(store.getBool("key", false));
    EXPECT_FALSE(store.getBool("absent", false));
    EXPECT_TRUE(store.erase("key"));
    EXPECT_FALSE(store.erase("key"));
    EXPECT_EQ(store.getInt32("key", kDefault), kDefault);
}

TEST(PropertiesTest, TextFitsTheReadersBuffer) {
    Phone phone;
    std::array<char, 256> value{};
    phone.properties().set("ro.product.country.region", std::string(255, 'x'));
    EXPECT_EQ(Properties::property_get("ro.product.country.region", value.data(), "N"), 255);
    EXPECT_EQ(std::strlen(value.data()), 255U);
    EXPECT_EQ(Properties::property_get("absent", value.data(), "N"), 1);
    EXPECT_STREQ(value.data(), "N");
    EXPECT_EQ(Properties::property_get("absent", value.data(), nullptr), 0);
    EXPECT_EQ(thrown([&] { phone.properties().set("key", std::string(256, 'x')); }),
              "property key: the value has 256 characters; at most 255 fit");
}

TEST(PropertiesTest, FilesAreTakenWholeOrNotAtAll) {
    PropertyStore store;
    store.set("ro.product.country.region", "IN");
    const TemporaryFile good("# switches\n\n vendor.debug.ois.dump = 7 \r\nro.product.country.region=\n");
    store.load(good.path());
    EXPECT_EQ(store.getInt32("vendor.debug.ois.dump", 0), 7);
    EXPECT_EQ(store.get("ro.product.country.region"), "");

    struct {
        const char* content;
        const char* reason;
    } const cases[] = {
        {"vendor.debug.ois.dump=1\nvendor.debug.ois.dump",
         ":2: \"vendor.debug.ois.dump\" is no property; write key=value"},
        {"vendor.debug.ois.dump=much",
         ":1: property vendor.debug.ois.dump: \"much\" is no integer from -2147483648 to 2147483647"},
        {"vendor.debug.ois.mode=2",
         ":1: property vendor.debug.ois.mode: \"2\" is no switch; use 1, y, yes, on, true or 0, n, no, off, "
         "false"},
        {"# a\n# b\nvendor.debug.ois.dumb=1",
         ":3: property vendor.debug.ois.dumb: the driver reads no such property; did you mean"},
        {"=1", ":1: a property needs a name before the '='"},
    };
    for (const auto& c : cases) {
        const TemporaryFile file(c.content);
        EXPECT_EQ(thrown([&] { store.load(file.path()); }).find(file.path().string() + c.reason), 0U)
            << c.content;
    }
    EXPECT_EQ(store.getInt32("vendor.debug.ois.dump", 0), 7);
    EXPECT_EQ(thrown([&] { store.load("/nowhere"); }), "/nowhere: cannot be opened");
}

// The list that tools show holds what the driver reads, with the driver's own defaults.
TEST(PropertiesTest, TheListCoversWhatTheDriverReads) {
    Phone phone;
    phone.fit(0, phone::moduleByName("korvas4sw-hub"));
    phone.properties().setKnown("vendor.debug.ois.fixmode", "1");
    OISDrv driver(0);
    ASSERT_EQ(driver.Init(1, 2), 1);
    phone.clock().sleepUs(100000);
    ois_params params{};
    driver.SetOisParams(&params);
    driver.mFixMode.manualEnable = 0;
    driver.SetOisParams(&params);
    driver.mProperty.fixTarget = 1;
    driver.SetOisParams(&params);
    driver.SetMode(5);
    driver.Uninit();

    std::vector<std::string> read;
    for (const Event& event : phone.trace().events(EventKind::kProperty)) {
        const auto known =
            std::ranges::find(phone::knownProperties(), event.name, &phone::KnownProperty::key);
        ASSERT_NE(known, phone::knownProperties().end()) << event.name;
        if (known->type == phone::PropertyType::kText || known->defaultValue.empty()) continue;
        EXPECT_EQ(std::to_string(std::get<int64_t>(event.fields.at(0).value)), known->defaultValue)
            << event.name;
        read.push_back(event.name);
    }
    std::ranges::sort(read);
    read.erase(std::unique(read.begin(), read.end()), read.end());
    const auto withDefault =
        std::ranges::count_if(phone::knownProperties(), [](const phone::KnownProperty& known) {
            return known.type != phone::PropertyType::kText && !known.defaultValue.empty();
        });
    EXPECT_EQ(read.size(), static_cast<size_t>(withDefault));
}

TEST(PropertiesTest, ReadsAllocateNothingAndMayRaceWithWrites) {
    phone::PhoneOptions options;
    options.trace = false;
    options.clock = phone::ClockMode::kFreeRunning;
    Phone phone(options);
    phone.properties().set("vendor.debug.ois.dump.interval.time", "9");
    std::array<char, 256> value{};
    Properties::property_get_int32("vendor.debug.ois.dump.interval.time",
                                   4);  // the clock gets to know the thread
    const uint64_t before = allocationCount();
    EXPECT_EQ(Properties::property_get_int32("vendor.debug.ois.dump.interval.time", 4), 9);
    EXPECT_FALSE(Properties::property_get_bool("vendor.debug.ois.status.check.absent", false));
    Properties::property_get("ro.product.country.region", value.data(), "N");
    EXPECT_EQ(allocationCount(), before);

    std::vector<std::thread> readers;
    std::atomic<int> wrong{0};
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&wrong] {
            for (int k = 0; k < 1000; ++k) {
                const int32_t read = Properties::property_get_int32("vendor.debug.ois.dump.interval.time", 4);
                if (read != 9 && read != 12) ++wrong;
            }
        });
    }
    for (int k = 0; k < 1000; ++k)
        phone.properties().set("vendor.debug.ois.dump.interval.time", k % 2 == 0 ? "12" : "9");
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong, 0);
}

TEST(NoPhoneTest, EverythingHasAHarmlessAnswer) {
    ASSERT_EQ(Phone::current(), nullptr);
    std::array<char, 256> value{};
    EXPECT_EQ(Properties::property_get_int32("vendor.debug.ois.dump", 3), 3);
    EXPECT_TRUE(Properties::property_get_bool("vendor.debug.ois.mode", true));
    EXPECT_EQ(
        Properties::property_get("ro.product.country.region", value.data(), std::string(300, 'N').c_str()),
        255);
    EXPECT_EQ(log_dbg_print("tag", 1, "%s", "text"), 0);
    EXPECT_EQ(__android_log_print(ANDROID_LOG_ERROR, "tag", "%s", "text"), 0);
    EXPECT_EQ(ULogger::sULogger, nullptr);
    EXPECT_EQ(ULogger::sMode, 0U);
    EXPECT_EQ(IRuvex::getService("default", false), nullptr);
    EXPECT_EQ(NSCam::Utils::SensorProvider::createInstance("test"), nullptr);
    EXPECT_EQ(GetOisDriverName(0, 0, 0, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_STREQ(get_filename_log_control("a/b/c.cpp"), "c.cpp");
    EXPECT_STREQ(get_filename_log_control("c.cpp"), "c.cpp");
}

// Blocks with guard bytes behind each.
struct CustomisationCall {
    static constexpr std::byte kGuard{0xa5};
    int32_t status = -1;
    std::array<std::byte, 32 + 8> name;
    std::array<std::byte, 1704 + 8> info;
    std::array<std::byte, 160 + 8> ext;
    int32_t result = 0;

    explicit CustomisationCall(int32_t sensorDev) {
        name.fill(kGuard);
        info.fill(kGuard);
        ext.fill(kGuard);
        result = GetOisDriverName(sensorDev, 1, 2, &status, reinterpret_cast<char*>(name.data()), info.data(),
                                  ext.data());
    }
    bool guardsIntact() const {
        const auto intact = [](std::span<const std::byte> block) {
            return std::ranges::all_of(block.last(8), [](std::byte b) { return b == kGuard; });
        };
        return intact(name) && intact(info) && intact(ext);
    }
};

TEST(CustomisationTest, FillsExactlyTheBlocks) {
    Phone phone;
    phone::ModuleDescription module = phone::moduleByName("dw9786");
    module.status = 5;
    module.driverName = std::string(40, 'd');
    module.otpAddresses[79] = 0x1234;
    phone.fit(3, module);
    const CustomisationCall fitted(3);
    EXPECT_EQ(fitted.result, 1);
    EXPECT_EQ(fitted.status, 5);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(fitted.name.data())), std::string(31, 'd'));
    EXPECT_EQ(std::memcmp(fitted.info.data(), &module.custInfo, 1704), 0);
    EXPECT_EQ(std::to_integer<int>(fitted.ext[158]), 0x34);
    EXPECT_EQ(std::to_integer<int>(fitted.ext[159]), 0x12);
    EXPECT_TRUE(fitted.guardsIntact());

    for (const int32_t sensorDev : {0, -1, 8}) {
        const CustomisationCall empty(sensorDev);
        EXPECT_EQ(empty.result, 0);
        EXPECT_EQ(empty.status, 0);
        EXPECT_TRUE(std::ranges::all_of(std::span(empty.info).first(1704),
                                        [](std::byte b) { return b == std::byte{0}; }));
        EXPECT_TRUE(empty.guardsIntact());
    }
    phone.fit(1, phone::moduleByName("no-ois"));
    EXPECT_EQ(CustomisationCall(1).result, 0);
}

class LogTest : public ::testing::Test {
  protected:
    // "unified error text" for each message so far.
    std::vector<std::string> lines() {
        std::vector<std::string> result;
        for (const Event& event : phone.trace().events(EventKind::kMessage)) {
            result.push_back(event.name + ' ' + std::get<std::string>(event.fields.at(0).value) + ' ' +
                             event.text);
        }
        phone.trace().clear();
        return result;
    }
    // The driver's own messages: an error, an info and some debug ones.
    void provoke() {
        driver.fd_driver = 1;
        driver.mSineParam = {};
        driver.SetOperation(3);
        driver.SetMode(1);
        driver.mOisMode = 0;
        driver.fd_driver = -1;
    }

    Phone phone;
    OISDrv driver{0};
};

TEST_F(LogTest, EachLevelOpensTheChosenSinks) {
    const std::string error = "unified error [SetOperation] unsurpport operation 3\n";
    const std::string info = "unified info [SetOperation] ois_mode 3, return_value 0\n";
    const std::string debug = "unified debug [SetMode] unsupport mode 1\n";
    const std::vector<std::pair<LogLevel, std::vector<std::string>>> cases = {
        {LogLevel::kOff, {}},
        {LogLevel::kError, {error}},
        {LogLevel::kInfo, {error, info}},
        {LogLevel::kDebug, {error, info, debug}},
    };
    for (const auto& [level, expected] : cases) {
        phone.log().setLevel(level);
        provoke();
        EXPECT_EQ(lines(), expected) << name(level);
    }
    EXPECT_EQ(phone.log().count(LogLevel::kError), 3U);

    phone.log().setSinks(true, true);
    provoke();
    const std::vector<std::string> both = lines();
    ASSERT_EQ(both.size(), 6U);
    EXPECT_EQ(both[0].find("debug-log error [E][OisDrv] "), 0U) << both[0];
    EXPECT_EQ(both[4].find("debug-log debug [D][OisDrv] "), 0U) << both[4];
    phone.log().setSinks(false, false);
    provoke();
    EXPECT_TRUE(lines().empty());
}

TEST_F(LogTest, OutputHasOneLineForEachMessageThatTheLevelShows) {
    const TemporaryFile file("");
    std::FILE* out = std::fopen(file.path().c_str(), "w");
    phone.log().setOutput(out);
    phone.log().setLevel(LogLevel::kInfo);
    provoke();
    __android_log_print(ANDROID_LOG_DEBUG, "OisDrv", "state (%d)\n", 1);
    __android_log_print(ANDROID_LOG_ERROR, "OisDrv", "Dev (%d)", 2);
    phone.log().setOutput(nullptr);
    provoke();
    std::fclose(out);
    std::stringstream content;
    content << std::ifstream(file.path()).rdbuf();
    EXPECT_EQ(content.str(),
              "E/OisDrv: [SetOperation] unsurpport operation 3\n"
              "I/OisDrv: [SetOperation] ois_mode 3, return_value 0\n"
              "E/OisDrv: Dev (2)\n");
    // The trace has the Android log's message that the level hides.
    const std::vector<std::string> traced = lines();
    EXPECT_NE(std::ranges::find(traced, "android debug state (1)\n"), traced.end());
}

TEST(LogLevelTest, NamesGoBothWays) {
    for (const LogLevel level : {LogLevel::kOff, LogLevel::kError, LogLevel::kInfo, LogLevel::kDebug}) {
        EXPECT_EQ(phone::logLevelByName(name(level)), level);
    }
    EXPECT_EQ(thrown([] { phone::logLevelByName("loud"); }),
              "\"loud\" is no log level; use off, error, info or debug");
}

TEST(TelemetryTest, ReportsAreKeptAndReferencesCounted) {
    android::sp<IRuvex> survivor;
    {
        Phone phone;
        phone::Telemetry& telemetry = phone.telemetry();
        {
            const android::sp<IRuvex> service = IRuvex::getService("default", false);
            const android::sp<IRuvex> copy = service;
            EXPECT_EQ(telemetry.references(), 1);
            EXPECT_TRUE(copy->report("N87", "N87|10014", "c_ois_error:1").isOk());
            survivor = IRuvex::getService("default", false);
            EXPECT_EQ(telemetry.references(), 2);
        }
        EXPECT_EQ(telemetry.references(), 1);
        ASSERT_EQ(telemetry.reports().size(), 1U);
        EXPECT_EQ(telemetry.reports()[0].content, "c_ois_error:1");
        EXPECT_EQ(telemetry.reports()[0].eventId, "N87|10014");

        telemetry.setPresent(false);
        EXPECT_EQ(IRuvex::getService("default", false), nullptr);
        telemetry.setPresent(true);
        phone.faults().add(phone::parseFault("telemetry@1:fail"));
        EXPECT_EQ(IRuvex::getService("default", false), nullptr);
        EXPECT_NE(IRuvex::getService("default", false), nullptr);
        EXPECT_EQ(telemetry.lookups(), 5U);
    }
    EXPECT_FALSE(survivor->report("a", "b", "c").isOk());
}

TEST(ModulesTest, ShippedOnesCoverEveryKind) {
    std::vector<std::string> names;
    std::vector<uint16_t> formats;
    for (const phone::ModuleDescription& module : phone::shippedModules()) {
        names.push_back(module.name);
        EXPECT_FALSE(module.summary.empty());
        EXPECT_EQ(module.source, "built in");
        if (!module.hasOis) continue;
        formats.push_back(module.custInfo.gainFormat);
        EXPECT_EQ(module.otpImage.size(), 2112U);
        EXPECT_FALSE(module.flashData.empty());
        EXPECT_GE(module.custInfo.coordinateNum, 20);
        EXPECT_TRUE(module.behindHub() || module.entityName.starts_with(module.driverName));
        const auto farthest = std::ranges::max(module.custInfo.coordinateX);
        EXPECT_LT(farthest, module.stabiliser.limitAngle * module.stabiliser.hallPerAngleX) << module.name;
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"korvas4sw-hub", "korvas4sw-subdev", "dw9781", "dw9786", "no-ois"}));
    std::ranges::sort(formats);
    EXPECT_EQ(formats, (std::vector<uint16_t>{1, 1, 2, 3}));
    const std::string reason = thrown([] { phone::moduleByName("dw9999"); });
    EXPECT_EQ(reason,
              "dw9999: neither a file nor a module; there are korvas4sw-hub, korvas4sw-subdev, dw9781, "
              "dw9786, no-ois");
}

class ShippedModuleTest : public ::testing::TestWithParam<const char*> {};

// What the driver derives from gains and hall calibration is what the lens does.
TEST_P(ShippedModuleTest, CalibrationAgreesWithTheLens) {
    const phone::ModuleDescription module = phone::moduleByName(GetParam());
    Phone phone;
    phone.fit(0, module);
    OISDrv driver(0);
    ASSERT_EQ(driver.Init(1, 2), 1);
    phone.clock().sleepUs(100000);
    EXPECT_NEAR(driver.mOisCalibInfo.hall_amplitude_x, module.stabiliser.hallPerAngleX, 0.01);
    EXPECT_NEAR(driver.mOisCalibInfo.hall_amplitude_y, module.stabiliser.hallPerAngleY, 0.01);
    EXPECT_EQ(driver.mOisCalibInfo.hall_center_x, module.stabiliser.hallCenterX);
    EXPECT_EQ(driver.mOisCalibInfo.hall_center_y, module.stabiliser.hallCenterY);
    EXPECT_GT(driver.mOisCalibInfo.hall_amplitude_x, 500);
    driver.Uninit();
}

// A dump of the image by the driver has every field once, with the bytes that the description names.
TEST_P(ShippedModuleTest, OtpImageAnswersItsAddressMap) {
    const phone::ModuleDescription module = phone::moduleByName(GetParam());
    Phone phone;
    phone.fit(0, module);
    phone.properties().setKnown("vendor.debug.ois.dump", "2");
    OISDrv driver(0);
    ASSERT_EQ(driver.Init(1, 2), 1);
    phone.clock().sleepUs(100000);
    ois_otp_data otp{};
    std::ranges::copy(module.otpImage, otp.image);
    driver.GetOisOtpData(&otp);
    driver.Uninit();

    std::string dump;
    for (const auto& entry : std::filesystem::directory_iterator(phone.files().dumpFolder())) {
        if (!entry.path().filename().string().ends_with("_otp.txt")) continue;
        std::stringstream content;
        content << std::ifstream(entry.path()).rdbuf();
        dump = content.str();
    }
    const auto valueOf = [text = "\n" + dump](const std::string& label) {
        const std::string key = "  value:  ";
        const size_t line = text.find("\n" + label + "  adress:  0x");
        if (line == std::string::npos) return std::string("missing");
        const size_t value = text.find(key, line) + key.size();
        return text.substr(value, text.find('\n', value) - value);
    };
    const auto word = [](int32_t value) {
        std::array<char, 8> text{};
        std::snprintf(text.data(), text.size(), "%04x", static_cast<uint16_t>(value));
        return std::string(text.data());
    };
    EXPECT_EQ(valueOf("XMECHACENTER"), word(module.hallInfo.centerX));
    EXPECT_EQ(valueOf("YMECHACENTER"), word(module.hallInfo.centerY));
    EXPECT_EQ(valueOf("XHMAX"), word(static_cast<int32_t>(module.hallInfo.upperWord & 0xffff)));
    EXPECT_EQ(valueOf("GYRO_POLA_Y"), "ff");
    EXPECT_EQ(valueOf("SN").substr(0, 14), "4f495332343036");
    EXPECT_EQ(valueOf("fuse_id").size(), 32U);
    EXPECT_EQ(valueOf("LOOP_GAIN_X").size(), 8U);
    EXPECT_EQ(valueOf("AF_DRIFT_0").size(), 8U);
    EXPECT_EQ(valueOf("LINEARITY_COEFF_9").size(), 8U);
    EXPECT_EQ(dump.find("CROSSTALK"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(OnTheSubDevice, ShippedModuleTest,
                         ::testing::Values("korvas4sw-subdev", "dw9781", "dw9786"));

TEST(ModulesTest, AWrongDescriptionIsRefusedWithLineAndReason) {
    const std::string head =
        "name = \"x\"\n[customisation]\ndriverName = \"x\"\ngainFormat = 1\nmOisIcName = "
        "\"x\"\ncameraTypeName = \"x\"\n";
    EXPECT_EQ(thrown([&] { phone::parseModule(head, "x.toml"); }), "");
    struct {
        std::string text;
        std::string reason;
    } const cases[] = {
        {"name = ", "x.toml:1: "},
        {"summary = \"x\"\n", "x.toml:1: name is missing: tools refer to the module by it"},
        {"name = \"x\"\n[customisation]\n",
         "x.toml:2: customisation.driverName is missing: it finds the controller"},
        {head + "gainFormt = 1\n",
         "x.toml:7: customisation.gainFormt is no field of a description; did you mean 'gainFormat'?"},
        {head + "streamOnDelay = 65536\n",
         "x.toml:7: customisation.streamOnDelay is 65536; it may be an integer, 0 to 65535"},
        {head + "accSupport = true\n",
         "x.toml:7: customisation.accSupport is true; it may be an integer, 0 to 65535"},
        {head + "accSupport = \"yes\"\n", "x.toml:7: customisation.accSupport is"},
        {head + "zoomScale = nan\n",
         "x.toml:7: customisation.zoomScale is nan; it may be a number, 0 or more"},
        {head + "zoomScale = 1e39\n", "x.toml:7: customisation.zoomScale is 1e+39; it may be a number"},
        {head + "coordinateX = [1, 2]\ncoordinateY = [1]\n",
         "x.toml:8: customisation.coordinateY has 1 values; coordinateX has 2"},
        {head + "coordinateX = [1, \"2\"]\n", "x.toml:7: customisation.coordinateX holds"},
        {head + "[controller]\nentityName = \"" + std::string(32, 'e') + "\"\n",
         "x.toml:8: controller.entityName is \"" + std::string(32, 'e') +
             "\", 32 characters; it may be a text of at most 31"},
        {head + "[stabiliser]\nlimitAngle = 0\n",
         "x.toml:8: stabiliser.limitAngle is 0; it may be a number, 0.001 or more"},
        {head + "[stabiliser]\ngyroBiasRadS = [0, 1]\n",
         "x.toml:8: stabiliser.gyroBiasRadS is an array of 2; it may be an array of 3"},
        {head + "[flash]\nlength = 1537\n",
         "x.toml:8: flash.length is 1537; it may be an integer, 0 to 1536"},
        {head + "[flash]\ndata = [1]\nlength = 1\n", "x.toml:9: flash.length goes with seed"},
        {head + "flash = 1\n[controller]\n", "x.toml:7: customisation.flash is no field"},
        {head + "[otp]\nseed = 1\n", "x.toml:7: otp.address is missing"},
        {head + "[otp.address]\nSN = [2100, 2112]\n",
         "x.toml:8: otp.address.SN is not in the memory, which reaches from 0 to 2111"},
        {head + "[otp.address]\ncontroller_flag = 255\ncontroller_base = 0x8000\nHPOLA = 0x7eff\n",
         "x.toml:10: otp.address.HPOLA is not in the memory, which reaches from 32512 to 34623"},
        {head + "[otp]\n[otp.address]\nSN = [9, 10]\n[otp.value]\nSN = [1]\n",
         "x.toml:11: otp.value.SN is an array of 1; it may be an array of 2"},
        {head + "[otp]\nprogrammed = [\"modul\"]\n[otp.address]\n",
         "x.toml:8: otp.programmed holds \"modul\"; it may hold"},
    };
    for (const auto& c : cases) {
        const std::string reason = thrown([&] { phone::parseModule(c.text, "x.toml"); });
        EXPECT_EQ(reason.find(c.reason), 0U) << c.text << "\n-> " << reason;
    }
    const TemporaryFile file(head + "actOisAngle = []\n");
    EXPECT_EQ(thrown([&] {
                  phone::moduleByName(file.path());
              }).find(file.path().string() + ":7: customisation.actOisAngle"),
              0U);
}

TEST(ModulesTest, TextsMayFillTheirFields) {
    const phone::ModuleDescription module =
        phone::parseModule("name = \"x\"\n[customisation]\nhasOis = false\nmOisIcName = \"" +
                               std::string(31, 'i') + "\"\ncameraTypeName = \"" + std::string(16, 'c') +
                               "\"\ncoordinateX = [1.5]\ncoordinateY = [2]\ncoordinateNum = 200\n",
                           "x.toml");
    EXPECT_EQ(std::string(module.custInfo.mOisIcName), std::string(31, 'i'));
    EXPECT_EQ(std::string(module.custInfo.cameraTypeName, 16), std::string(16, 'c'));
    EXPECT_EQ(module.custInfo.coordinateNum, 200);
    EXPECT_EQ(module.custInfo.coordinateY[0], 2.0F);
}

}  // namespace

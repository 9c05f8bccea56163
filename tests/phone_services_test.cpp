// The phone's platform services and module descriptions, called as a driver calls them.

#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "allocation_count.h"
#include "camera_platform/lens_customisation.h"
#include "camera_platform/log.h"
#include "camera_platform/properties.h"
#include "modules/module_description.h"
#include "ois_drv.h"
#include "phone.h"
#include "services/log_service.h"
#include "services/property_store.h"
#include "services/telemetry.h"
#include "vendor/quor/hardware/ruvex/1.0/IRuvex.h"

namespace {

using NSCam::Utils::Properties;
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
        {"0x10", 16, true},
        {"2147483647", INT32_MAX, true},
        {"2147483648", kDefault, true},
        {"", kDefault, true},
        {"no", kDefault, false},
        {"yes", kDefault, true},
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
    EXPECT_EQ(thrown([&] { phone.properties().set("key", std::string(256, 'x')); }),
              "property key: the value has 256 characters; at most 255 fit");
}

TEST(PropertiesTest, FilesAreTakenWholeOrNotAtAll) {
    PropertyStore store;
    store.set("ro.product.country.region", "IN");
    const TemporaryFile good("# switches\n\n vendor.debug.ois.dump = 7 \r\nro.product.country.region=\n");
    store.load(good.path());
    EXPECT_EQ(store.get("ro.product.country.region"), "");

    const std::pair<const char*, const char*> cases[] = {
        {"vendor.debug.ois.dump=1\nvendor.debug.ois.dump",
         ":2: \"vendor.debug.ois.dump\" is no property; write key=value"},
        {"vendor.debug.ois.dump=much",
         ":1: property vendor.debug.ois.dump: \"much\" is no integer from -2147483648 to 2147483647"},
        {"# a\n# b\nvendor.debug.ois.dumb=1",
         ":3: property vendor.debug.ois.dumb: the driver reads no such property; did you mean"},
    };
    for (const auto& [content, reason] : cases) {
        const TemporaryFile file(content);
        EXPECT_EQ(thrown([&] { store.load(file.path()); }).find(file.path().string() + reason), 0U)
            << content;
    }
    EXPECT_EQ(store.getInt32("vendor.debug.ois.dump", 0), 7);
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

    const auto hasNumber = [](const phone::KnownProperty& known) {
        return known.type != phone::PropertyType::kText && !known.defaultValue.empty();
    };
    std::set<std::string> read;
    for (const Event& event : phone.trace().events(EventKind::kProperty)) {
        const auto known =
            std::ranges::find(phone::knownProperties(), event.name, &phone::KnownProperty::key);
        ASSERT_NE(known, phone::knownProperties().end()) << event.name;
        if (!hasNumber(*known)) continue;
        EXPECT_EQ(std::to_string(std::get<int64_t>(event.fields.at(0).value)), known->defaultValue)
            << event.name;
        read.insert(event.name);
    }
    EXPECT_EQ(std::ssize(read), std::ranges::count_if(phone::knownProperties(), hasNumber));
}

TEST(PropertiesTest, ReadsAllocateNothingAndMayRaceWithWrites) {
    phone::PhoneOptions options;
    options.trace = false;
    options.clock = phone::ClockMode::kFreeRunning;
    Phone phone(options);
    phone.properties().set("vendor.debug.ois.dump.interval.time", "9");
    std::array<char, 256> value{};
    Properties::property_get_bool("absent", false);  // the clock gets to know the thread
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
    const std::string longDefault(300, 'N');
    EXPECT_EQ(Properties::property_get_int32("vendor.debug.ois.dump", 3), 3);
    EXPECT_EQ(Properties::property_get("ro.product.country.region", value.data(), longDefault.c_str()), 255);
    EXPECT_EQ(log_dbg_print("tag", 1, "%s", "text"), 0);
    EXPECT_EQ(__android_log_print(ANDROID_LOG_ERROR, "tag", "%s", "text"), 0);
    EXPECT_EQ(NSCam::Utils::ULog::ULogger::sULogger, nullptr);
    EXPECT_EQ(IRuvex::getService("default", false), nullptr);
    EXPECT_EQ(NSCam::Utils::SensorProvider::createInstance("test"), nullptr);
    EXPECT_EQ(GetOisDriverName(0, 0, 0, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_STREQ(get_filename_log_control("a/b/c.cpp"), "c.cpp");
}

TEST(CustomisationTest, FillsExactlyTheBlocks) {
    Phone phone;
    phone::ModuleDescription module = phone::moduleByName("dw9786");
    module.status = 5;
    module.driverName = std::string(40, 'd');
    module.otpAddresses[79] = 0x1234;
    phone.fit(3, module);
    int32_t status = -1;
    // The blocks, and bytes behind each that nobody may write.
    std::string name, info, ext;
    const auto call = [&](int32_t sensorDev) {
        name.assign(32 + 8, '#');
        info.assign(1704 + 8, '#');
        ext.assign(160 + 8, '#');
        const int32_t result =
            GetOisDriverName(sensorDev, 1, 2, &status, name.data(), info.data(), ext.data());
        for (const std::string& block : {name, info, ext}) EXPECT_TRUE(block.ends_with("########"));
        return result;
    };
    EXPECT_EQ(call(3), 1);
    EXPECT_EQ(status, 5);
    EXPECT_STREQ(name.c_str(), std::string(31, 'd').c_str());
    EXPECT_EQ(std::memcmp(info.data(), &module.custInfo, 1704), 0);
    EXPECT_EQ(ext.substr(158, 2), "\x34\x12");
    for (const int32_t sensorDev : {0, -1, 8}) {
        EXPECT_EQ(call(sensorDev), 0);
        EXPECT_EQ(status, 0);
    }
}

TEST(LogTest, LevelAndSinksDecideWhatArrives) {
    Phone phone;
    OISDrv driver{0};
    // The driver's own messages: an error, an info and a debug one.
    const auto provoke = [&driver] {
        driver.fd_driver = 1;
        driver.SetOperation(3);
        driver.SetMode(1);
        driver.mOisMode = 0;
        driver.fd_driver = -1;
    };
    const auto arrive = [&phone] {
        std::string result;
        for (const Event& event : phone.trace().events(EventKind::kMessage))
            result += event.name + ' ' + event.text;
        phone.trace().clear();
        return result;
    };
    const std::string error = "unified [SetOperation] unsurpport operation 3\n";
    const std::string info = "unified [SetOperation] ois_mode 3, return_value 0\n";
    const std::string debug = "unified [SetMode] unsupport mode 1\n";
    const std::pair<LogLevel, std::string> cases[] = {{LogLevel::kOff, ""},
                                                      {LogLevel::kError, error},
                                                      {LogLevel::kInfo, error + info},
                                                      {LogLevel::kDebug, error + info + debug}};
    for (const auto& [level, expected] : cases) {
        phone.log().setLevel(level);
        provoke();
        EXPECT_EQ(arrive(), expected) << name(level);
    }
    phone.log().setSinks(false, false);
    provoke();
    EXPECT_EQ(arrive(), "");
    phone.log().setSinks(false, true);

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
}

TEST(TelemetryTest, AReferenceOutlivesThePhoneHarmlessly) {
    android::sp<IRuvex> survivor;
    {
        Phone phone;
        survivor = IRuvex::getService("default", false);
        {
            const android::sp<IRuvex> copy = survivor, second = IRuvex::getService("default", false);
            EXPECT_TRUE(copy->report("N87", "N87|10014", "c_ois_error:1").isOk());
            EXPECT_EQ(phone.telemetry().references(), 2);
        }
        EXPECT_EQ(phone.telemetry().references(), 1);
    }
    EXPECT_FALSE(survivor->report("a", "b", "c").isOk());
}

// What the driver derives from gains and hall calibration is what the lens does.
TEST(ModulesTest, CalibrationAgreesWithTheLens) {
    for (const char* name : {"korvas4sw-subdev", "dw9781", "dw9786"}) {
        SCOPED_TRACE(name);
        const phone::ModuleDescription module = phone::moduleByName(name);
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
}

TEST(ModulesTest, AWrongDescriptionIsRefusedWithLineAndReason) {
    const std::string head =
        "name = \"x\"\n[customisation]\ndriverName = \"x\"\ngainFormat = 1\nmOisIcName = "
        "\"x\"\ncameraTypeName = \"x\"\n";
    EXPECT_EQ(thrown([&] { phone::parseModule(head, "x.toml"); }), "");
    const std::pair<std::string, std::string> cases[] = {
        {"name = ", "1: "},
        {"summary = \"x\"\n", "1: name is missing: tools refer to the module by it"},
        {head + "gainFormt = 1\n",
         "7: customisation.gainFormt is no field of a description; did you mean 'gainFormat'?"},
        {head + "streamOnDelay = 65536\n",
         "7: customisation.streamOnDelay is 65536; it may be an integer, 0 to 65535"},
        {head + "[stabiliser]\ngyroBiasRadS = [0, 1]\n",
         "8: stabiliser.gyroBiasRadS is an array of 2; it may be an array of 3"},
        {head + "[otp.address]\nSN = [2100, 2112]\n",
         "8: otp.address.SN is not in the memory, which reaches from 0 to 2111"},
    };
    for (const auto& [text, reason] : cases) {
        const std::string said = thrown([&] { phone::parseModule(text, "x.toml"); });
        EXPECT_EQ(said.find("x.toml:" + reason), 0U) << text << "\n-> " << said;
    }
}

}  // namespace

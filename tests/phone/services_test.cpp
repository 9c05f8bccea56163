// The phone's platform services, called as a driver calls them.

#include <android/log.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>
#include <thread>

#include "allocation_count.h"
#include "camera_platform/lens_customisation.h"
#include "camera_platform/log.h"
#include "camera_platform/properties.h"
#include "driver/dump_fixture.h"
#include "log.h"
#include "test_support.h"
#include "vendor/quor/hardware/ruvex/1.0/IRuvex.h"

namespace {

using driver_test::kBringUpUs;
using NSCam::Utils::Properties;
using phone::Event;
using phone::EventKind;
using phone::LogLevel;
using phone::Phone;
using phone::PropertyStore;
using test_support::TemporaryFile;
using test_support::thrown;
using vendor::quor::hardware::ruvex::V1_0::IRuvex;

class ServicesTest : public driver_test::DriverTest {};

TEST(PropertiesTest, ReadAsThePlatformReadsThem) {
    PropertyStore store;
    constexpr int32_t kDefault = 77;
    // The number and, with the default true, the switch.
    const std::tuple<const char*, int32_t, bool> cases[] = {
        {"0", 0, false},         {"0x10", 16, true},      {"2147483647", INT32_MAX, true},
        {"", kDefault, true},    {"0x", kDefault, true},  {"2147483648", kDefault, true},
        {"no", kDefault, false}, {"yes", kDefault, true}, {"-0x80000000", INT32_MIN, true},
    };
    for (const auto& [text, number, boolean] : cases) {
        store.set("key", text);
        EXPECT_EQ(store.getInt32("key", kDefault), number) << text;
        EXPECT_EQ(store.getBool("key", true), boolean) << text;
    }
    store.set("key", "on");
    EXPECT_TRUE(store.getBool("key", false));
    EXPECT_FALSE(store.getBool("absent", false));
    EXPECT_TRUE(store.erase("key"));
    EXPECT_FALSE(store.erase("key"));
    EXPECT_EQ(store.getInt32("key", kDefault), kDefault);
}

TEST_F(ServicesTest, PropertyTextFitsTheReadersBuffer) {
    std::array<char, 256> value{};
    phone.properties().set("key", std::string(255, 'x'));
    EXPECT_EQ(Properties::property_get("key", value.data(), "N"), 255);
    EXPECT_EQ(std::strlen(value.data()), 255U);
    EXPECT_EQ(Properties::property_get("absent", value.data(), "N"), 1);
    EXPECT_STREQ(value.data(), "N");
    EXPECT_EQ(thrown([&] { phone.properties().set("key", std::string(256, 'x')); }),
              "property key: the value has 256 characters; at most 255 fit");
}

TEST(PropertiesTest, AssignmentsAreCheckedAndNamesMayBeShort) {
    const TemporaryFile good(
        "# switches\n\n vendor.debug.ois.dump = 7 \r\ndump.level=3\nro.product.country.region=\n");
    const std::vector<phone::Property> expected{{"vendor.debug.ois.dump", "7"},
                                                {"vendor.debug.ois.dump.level", "3"},
                                                {"ro.product.country.region", ""}};
    EXPECT_EQ(phone::loadProperties(good.path), expected);

    const std::pair<const char*, const char*> cases[] = {
        {"dump=1\ndump", ":2: \"dump\" is no property; write key=value"},
        {"dump=much",
         ":1: property vendor.debug.ois.dump: \"much\" is no integer from -2147483648 to 2147483647"},
        {"# a\n# b\ndumb=1",
         ":3: property vendor.debug.ois.dumb: the driver reads no such property; did you"},
        {"=1", ":1: a property needs a name"},
    };
    for (const auto& [content, reason] : cases) {
        const TemporaryFile file(content);
        EXPECT_EQ(thrown([&] { phone::loadProperties(file.path); }).find(file.path.string() + reason), 0U)
            << content;
    }
}

// The list that tools show holds what the driver reads, with the driver's own defaults.
TEST_F(ServicesTest, ThePropertyListCoversWhatTheDriverReads) {
    fit(phone::moduleByName("korvas4sw-hub"));
    phone.properties().assign("fixmode=1");
    ASSERT_EQ(driver.Init(1, 2), 1);
    phone.clock().sleepUs(kBringUpUs);
    const auto request = [this] {
        ois_params params{};
        driver.SetOisParams(&params);
    };
    request();
    driver.mFixMode.manualEnable = 0;
    request();
    driver.mProperty.fixTarget = 1;
    request();
    driver.SetMode(5);
    driver.Uninit();

    std::set<std::string_view> unread;
    for (const phone::KnownProperty& known : phone::knownProperties()) {
        if (known.type != phone::PropertyType::kText && !known.defaultValue.empty()) unread.insert(known.key);
    }
    for (const Event& event : phone.trace().events(EventKind::kProperty)) {
        const auto known =
            std::ranges::find(phone::knownProperties(), event.name, &phone::KnownProperty::key);
        ASSERT_NE(known, phone::knownProperties().end()) << event.name;
        unread.erase(known->key);
        if (known->type == phone::PropertyType::kText || known->defaultValue.empty()) continue;
        EXPECT_EQ(phone::toText(event.fields.at(1)), known->defaultValue) << event.name;
    }
    EXPECT_TRUE(unread.empty()) << *unread.begin();
}

TEST(PropertiesTest, ReadsAllocateNothingAndMayRaceWithWrites) {
    Phone phone({phone::KernelKind::kSimulated, phone::ClockMode::kFreeRunning, {}, {}, {}, false});
    phone.properties().set("key", "9");
    std::array<char, 256> value{};
    Properties::property_get_bool("absent", false);  // the clock gets to know the thread
    const uint64_t before = allocationCount();
    EXPECT_EQ(Properties::property_get_int32("key", 4), 9);
    EXPECT_FALSE(Properties::property_get_bool("absent, and longer than what a string holds", false));
    Properties::property_get("key", value.data(), "N");
    EXPECT_EQ(allocationCount(), before);

    const auto read = [] {
        for (int k = 0; k < 1000; ++k) EXPECT_EQ(Properties::property_get_int32("key", 4) % 3, 0);
    };
    const std::jthread a(read), b(read), c(read);
    for (int k = 0; k < 1000; ++k) phone.properties().set("key", k % 2 == 0 ? "12" : "9");
}

TEST(NoPhoneTest, EverythingHasAHarmlessAnswer) {
    ASSERT_EQ(Phone::current(), nullptr);
    std::array<char, 256> value{};
    const std::string longDefault(300, 'N');
    EXPECT_EQ(Properties::property_get_int32("vendor.debug.ois.dump", 3), 3);
    EXPECT_EQ(Properties::property_get("ro.product.country.region", value.data(), longDefault.c_str()), 255);
    EXPECT_EQ(log_dbg_print("tag", 1, "%s", "text"), 0);
    EXPECT_EQ(__android_log_print(ANDROID_LOG_ERROR, "tag", "%s", "text"), 0);
    EXPECT_EQ(NSCam::Utils::ULog::ULogger::sMode, 0U);
    EXPECT_EQ(IRuvex::getService("default", false), nullptr);
    EXPECT_EQ(NSCam::Utils::SensorProvider::createInstance("test"), nullptr);
    EXPECT_EQ(GetOisDriverName(0, 0, 0, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_STREQ(get_filename_log_control("a/b/c.cpp"), "c.cpp");
}

TEST_F(ServicesTest, TheCustomisationFillsExactlyItsBlocks) {
    phone::ModuleDescription module = phone::moduleByName("dw9786");
    module.status = 5;
    module.driverName = std::string(40, 'd');
    module.otpAddresses[79] = 0x1234;
    phone.fit(3, module);
    int32_t status = -1;
    // The blocks, and bytes behind each that nobody may write.
    std::string name, info, ext;
    const auto call = [&](int32_t sensorDev) {
        name.assign(32, ' ').append("####");
        info.assign(1704, ' ').append("####");
        ext.assign(160, ' ').append("####");
        const int32_t result =
            GetOisDriverName(sensorDev, 1, 2, &status, name.data(), info.data(), ext.data());
        for (const std::string& block : {name, info, ext}) EXPECT_TRUE(block.ends_with("####"));
        return result;
    };
    EXPECT_EQ(call(3), 1);
    EXPECT_EQ(status, 5);
    EXPECT_EQ(name.substr(0, 32), std::string(32, 'd')) << "a name may fill its field";
    EXPECT_EQ(std::memcmp(info.data(), &module.custInfo, 1704), 0);
    EXPECT_EQ(ext.substr(158, 2), "\x34\x12");
    for (const int32_t sensorDev : {0, -1, 8}) {
        EXPECT_EQ(call(sensorDev), 0);
        EXPECT_EQ(status, 0);
    }
}

TEST_F(ServicesTest, LevelAndSinksOfTheLogDecideWhatArrives) {
    const auto arrive = [&] {
        forget();
        OIS_LOG(kError, "E");
        OIS_LOG(kInfo, "I");
        OIS_LOG(kDebug, "D");
        std::string arrived;
        for (const Event& event : phone.trace().events(EventKind::kMessage))
            arrived += event.name + event.text.back();
        return arrived;
    };
    const std::pair<LogLevel, const char*> cases[] = {{LogLevel::kOff, ""},
                                                      {LogLevel::kError, "unifiedE"},
                                                      {LogLevel::kInfo, "unifiedEunifiedI"},
                                                      {LogLevel::kDebug, "unifiedEunifiedIunifiedD"}};
    for (const auto& [level, expected] : cases) {
        phone.log().setLevel(level);
        EXPECT_EQ(arrive(), expected);
    }
    phone.log().setSinks(false, false);
    EXPECT_EQ(arrive(), "");
    phone.log().setSinks(false, true);

    const TemporaryFile file("");
    std::FILE* out = std::fopen(file.path.c_str(), "w");
    phone.log().setOutput(out);
    phone.log().setLevel(LogLevel::kInfo);
    arrive();
    __android_log_print(ANDROID_LOG_DEBUG, "OisDrv", "state (%d)\n", 1);
    __android_log_print(ANDROID_LOG_ERROR, "OisDrv", "Dev (%d)\n", 2);
    phone.log().setOutput(nullptr);
    arrive();
    std::fclose(out);
    EXPECT_EQ(driver_test::textOf(file.path),
              "E/OisDrv: [operator()] E\nI/OisDrv: [operator()] I\nE/OisDrv: Dev (2)\n");
}

TEST(TelemetryTest, AReferenceOutlivesThePhoneHarmlessly) {
    android::sp<IRuvex> survivor;
    {
        Phone phone;
        survivor = IRuvex::getService("default", false);
        EXPECT_TRUE(survivor->report("N87", "N87|10014", "c_ois_error:1").isOk());
        EXPECT_EQ(phone.telemetry().references(), 1);
    }
    EXPECT_FALSE(survivor->report("a", "b", "c").isOk());
}

}  // namespace

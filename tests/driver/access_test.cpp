// The media walk, and the transport on both ways.

#include <linux/media.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "driver/dump_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::DumpTest;
using phone::FaultPoint;
using phone::MediaDevice;
using phone::MediaEntity;

// --- Media walk

constexpr uint32_t kLens = 0x20003;

MediaEntity entity(uint32_t id, const std::string& name, uint32_t type = kLens, bool hasLink = true) {
    const std::string node = "v4l-subdev" + std::to_string(100 + id);
    return {id, name, type, 7, 81, 200 + id, node, hasLink, nullptr};
}
MediaDevice device(int number, const std::string& model, std::vector<MediaEntity> entities = {}) {
    return {number, model, "some-driver", "", "", std::move(entities)};
}

class Walk : public DumpTest {
  protected:
    ~Walk() override { EXPECT_EQ(phone.kernel().openNodes(), 0U); }

    // The lens device as media1, with these entities.
    void setEntities(std::vector<MediaEntity> entities) {
        phone.media().setDevices({device(1, "nxa_camera_af", std::move(entities))});
    }
    // The walk goes as the section says.
    int32_t expectWalk(const std::string& driverName, const std::string& section,
                       driver_test::Values values = {}) {
        forget();
        const int32_t descriptor = driver.GetV4l2SubDevice(driverName.c_str());
        const int error = errno;
        values["fd"] = std::to_string(descriptor);
        expectCourse("media", section, words(values));
        EXPECT_EQ(phone.kernel().openNodes(), descriptor >= 0 ? 1U : 0U);
        if (descriptor >= 0) close(descriptor);
        errno = error;
        return descriptor;
    }
};

TEST_F(Walk, MediaDevicesAreMatchedByTheBeginningOfTheirModel) {
    const std::string whole(32, 'm');  // fills its field without a NUL; the serial number stands behind it
    bool full = false;
    phone.media().setDevices({device(0, "nxa_camera_isp"), device(2, "nxa_camera_af"),
                              device(5, "nxa_camera_af2"), device(31, "last"), device(32, "beyond")});
    decide = [&](FaultPoint, std::string_view key, std::span<const uint8_t>) -> Effect {
        if (key != "DEVICE_INFO" || !full) return {};
        media_device_info info{};
        std::memset(info.serial, 'm', sizeof info.serial - 1);
        std::memcpy(info.model, whole.data(), whole.size());
        return answerWith(info);
    };
    const struct {
        const std::string model;
        bool full;
        int number;  // of the node opened last, where it is found
    } cases[] = {{"nxa_camera_af", false, 2},
                 {"nxa_camera_af2", false, 5},
                 {"", false, 0},
                 {"last", false, 31},
                 {"beyond", false, -1},
                 {"nxa_camera_af22", false, -1},
                 {"some-driver", false, -1},
                 {whole, true, 0},
                 {whole + 'm', true, -1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.model);
        full = c.full;
        forget();
        const int32_t descriptor = driver.GetV4l2MediaDevice(c.model.c_str());
        EXPECT_EQ(descriptor >= 0, c.number >= 0);
        std::string last;
        for (const phone::Event& event : phone.trace().events(phone::EventKind::kFile)) {
            if (event.name == "open") last = std::get<std::string>(phone::findField(event, "path")->value);
        }
        EXPECT_EQ(last, "/dev/media" + std::to_string(c.number < 0 ? 31 : c.number));
        if (descriptor >= 0) close(descriptor);
        EXPECT_EQ(phone.kernel().openNodes(), 0U);
    }
    forget();
    EXPECT_EQ(driver.GetV4l2MediaDevice(nullptr), -1);
    EXPECT_EQ(DriverTest::course(), "");
}

TEST_F(Walk, LensesAreMatchedByTheBeginningOfTheirName) {
    setEntities(
        {entity(1, "abc 1-000a", 0x20001), entity(2, "ab"), entity(3, "abc 2-000c"), entity(4, "abcd")});
    EXPECT_GE(expectWalk("abc", "abc"), 0);
    EXPECT_EQ(expectWalk("ABC", "ABC"), -1);
    EXPECT_GE(expectWalk("", "no name"), 0);
    setEntities({entity(1, "one"), entity(40, "forty"), entity(41, "lens")});
    EXPECT_EQ(expectWalk("lens", "sparse"), -1);
    setEntities({entity(1, "lens a", kLens, false), entity(3, "lens b", kLens, false), entity(4, "lens c")});
    EXPECT_GE(expectWalk("lens", "broken links"), 0);
}

// An entity's name may fill its field without a NUL; the type stands behind it.
TEST_F(Walk, EntityNamesAreReadWithinTheirField) {
    const std::string name(32, 'n');
    int seen = 0;
    setEntities({entity(3, "any")});
    decide = [&](FaultPoint, std::string_view key, std::span<const uint8_t>) -> Effect {
        if (key != "ENUM_ENTITIES") return {};
        if (++seen > 1) return phone::FaultEffect{.error = EINVAL};
        media_entity_desc full{};
        std::memcpy(full.name, name.data(), name.size());
        full.type = kLens;
        full.group_id = 7;
        full.dev.major = 81;
        full.dev.minor = 203;
        return answerWith(full);
    };
    EXPECT_GE(expectWalk(name, "whole names", {{"name", name}}), 0);
    // The type's first byte is no part of the name.
    const std::string longer = name + static_cast<char>(kLens & 0xff);
    seen = 0;
    EXPECT_EQ(expectWalk(longer, "beyond the name", {{"name", name}, {"longer", longer}}), -1);
}

TEST_F(Walk, WhatCannotBeOpenedOrAskedIsSkippedAndTheMediaNodeIsClosedLast) {
    setEntities({entity(3, "lens 2-000c")});
    phone.media().change(
        [](auto& devices) { devices.push_back(device(3, "nxa_camera_af", devices[0].entities)); });
    fault("open./dev/media0:errno=EACCES");
    fault("media.DEVICE_INFO@1:errno=EIO");
    EXPECT_GE(expectWalk("lens", "skipped devices"), 0);
    phone.faults().clear();
    setEntities({entity(3, "lens")});
    fault("open./dev/v4l-subdev103:errno=EBUSY");
    fault("close./dev/media1:errno=EIO");
    errno = 0;
    EXPECT_EQ(expectWalk("lens", "busy"), -1);
    EXPECT_EQ(errno, EBUSY);  // which FirmwareUpdate prints
}

TEST_F(Walk, PathsAreCutToTheirBuffers) {
    MediaEntity longNode = entity(1, "lens");
    longNode.node = std::string(400, 'n');
    setEntities({longNode});
    const struct {
        int32_t number;
        const char* section;
        const char* path;
    } cases[] = {{0, "long node", "/dev/nnnnnnnnnnnnnnnnnnnnnnnnnn"},
                 {-1, "unsigned numbers", ""},
                 {1, "no slash", "/dev/aaaaaaaaaaaaaaaaaaaaaaaaaa"}};
    for (const auto& c : cases) {
        if (c.number > 0) fault("readlink:garbage=61");  // a target without a slash
        char path[33] = {};
        path[32] = '!';
        const bool all = c.number < 0;
        EXPECT_EQ(driver.GetV4l2SubDevName(all ? -1 : 81, all ? -1 : 201, path), all ? 0 : 1);
        EXPECT_STREQ(path, c.path);
        EXPECT_EQ(path[32], '!');
        expectCourse("media", c.section);
    }
}

// --- Transport

constexpr uint32_t kSetModeRequest = 0x400456C2;

class Transport : public DumpTest {
  protected:
    int32_t setMode(int32_t mode) {
        return driver.ConfigOisTransfer(kSetModeRequest, 4, &mode, nullptr, sizeof mode, 0);
    }
};

TEST_F(Transport, TheWayFollowsFromWhatIsUp) {
    const struct {
        bool useSensorHub;
        bool hubEnabled;
        bool useCustomCmd;
        int32_t descriptor;  // 1: the sub-device's
        const char* course;
    } cases[] = {
        {false, true, true, 1, "sub-device"},  // a hub left over
        {false, true, true, -1, "nothing"},    // nothing open
        {false, false, false, 0, "nothing"},   // a descriptor, but not one of a sub-device
        {true, false, true, 1, "sub-device"},  // hub not up, sub-device open
        {true, false, true, -1, "nothing"},    // hub not up, nothing open
        {true, true, true, 1, "hub"},          // relayed
        {true, true, false, 1, "family"},      // as register accesses
    };
    open("dw9786");
    const int32_t descriptor = driver.fd_driver;
    driver.mpSensorProvider = NSCam::Utils::SensorProvider::createInstance("test");
    forget();
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        driver.mOisCustInfo.useSensorHub = c.useSensorHub;
        driver.mSensorHubEnabled = c.hubEnabled;
        driver.mUseCustomCmd = c.useCustomCmd;
        driver.fd_driver = c.descriptor == 1 ? descriptor : c.descriptor;
        EXPECT_EQ(setMode(2), 0);
        expectCourse("transport", c.course);
    }
    driver.mOisCustInfo.useSensorHub = driver.mSensorHubEnabled = 0;
    driver.fd_driver = descriptor;
    driver.mpSensorProvider = nullptr;
}

TEST_F(Transport, RequestResultsArePassedOn) {
    open("dw9786");
    const struct {
        const char* fault;
        int32_t result;
        int error;
        const char* seen;
    } cases[] = {{"SET_MODE:result=7", 7, 0, "7"},
                 {"SET_MODE:errno=EIO", -1, EIO, "-1 EIO"},
                 {"SET_MODE:lost", 0, 0, "0"}};
    for (const auto& c : cases) {
        phone.faults().clear();
        fault(c.fault);
        errno = 0;
        EXPECT_EQ(setMode(2), c.result);
        EXPECT_EQ(errno, c.error);
        expectCourse("transport", "answered", {{"result", c.seen}});
    }
}

class Package : public DumpTest {
  protected:
    void SetUp() override { open("korvas4sw-hub"); }
};

TEST_F(Package, RecordsAreZeroPaddedAndKeepTheLowBytes) {
    uint8_t input[60];
    for (size_t i = 0; i < std::size(input); ++i) input[i] = static_cast<uint8_t>(0x80 + i);
    const std::pair<std::array<int32_t, 3>, const char*> cases[] = {{{28, 60, 60}, "full"},
                                                                    {{0x105, 1, 0}, "low byte of the id"},
                                                                    {{28, 4, 0x104}, "low byte of a length"}};
    for (const auto& [arguments, section] : cases) {
        const auto& [id, inLength, outLength] = arguments;
        EXPECT_EQ(driver.CustomCmdPackage(id, input, nullptr, inLength, outLength), 0);
        expectCourse("transport", section);
    }
}

TEST_F(Package, TheAnswerReplacesTheFirstBytesOfTheOutput) {
    std::vector<uint8_t> request(24);
    std::vector<uint8_t> out(32, 0xaa);
    EXPECT_EQ(driver.CustomCmdPackage(9, request.data(), out.data(), 24, 24), 0);
    const ois::OisGain gain = phone.hub().gain();
    EXPECT_EQ(std::memcmp(out.data(), &gain, 24), 0);
    // No output asked for.
    EXPECT_EQ(driver.CustomCmdPackage(9, request.data(), out.data() + 24, 24, 0), 0);
    EXPECT_EQ(driver.CustomCmdPackage(9, request.data(), out.data() + 24, 24, -1), 0);
    EXPECT_EQ(driver.CustomCmdPackage(9, request.data(), nullptr, 24, 24), 0);
    EXPECT_EQ(std::count(out.begin() + 24, out.end(), 0xaa), 8);
    // The same buffer on both sides.
    EXPECT_EQ(driver.CustomCmdPackage(9, request.data(), request.data(), 24, 24), 0);
    EXPECT_EQ(std::memcmp(request.data(), &gain, 24), 0);
    // No more than a payload comes back.
    fault("hub.COMMAND_28:garbage=5a");
    for (const int32_t outLength : {1, 59, 60, 61, 300}) {
        std::vector<uint8_t> large(300, 0xaa);
        EXPECT_EQ(driver.CustomCmdPackage(28, request.data(), large.data(), 1, outLength), 0);
        EXPECT_EQ(std::count(large.begin(), large.end(), 0xaa), 300 - std::min(outLength, 60)) << outLength;
    }
}

TEST_F(Package, WhatCannotBeSentIsNotAndFailuresAreNotSeen) {
    uint8_t input = 1;
    for (const auto& [in, length] : {std::pair<void*, int32_t>{nullptr, 4}, {&input, 0}, {nullptr, 61}}) {
        EXPECT_EQ(driver.CustomCmdPackage(5, in, &input, length, 1), 0);
        expectCourse("transport", "empty");
        EXPECT_EQ(input, 1);
    }
    fault("hub.COMMAND_28:errno=EIO");
    EXPECT_EQ(driver.ConfigOisTransfer(kSetModeRequest, 28, &input, nullptr, 1, 0), 0);
    expectCourse("transport", "failed");
    const auto provider = std::exchange(driver.mpSensorProvider, nullptr);
    EXPECT_EQ(driver.CustomCmdPackage(28, &input, nullptr, 1, 0), 0);
    EXPECT_EQ(DriverTest::course(), "");
    driver.mpSensorProvider = provider;
}

using PackageDeathTest = DumpTest;

TEST_F(PackageDeathTest, MoreInputThanAPayloadEndsTheProcess) {
    std::vector<uint8_t> input(300);
    for (const int32_t length : {61, 256, -1}) {
        EXPECT_EXIT(driver.CustomCmdPackage(28, input.data(), nullptr, length, 0),
                    testing::KilledBySignal(SIGABRT), "")
            << length;
    }
}

}  // namespace

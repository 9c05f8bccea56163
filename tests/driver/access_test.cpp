// The media walk, and the transport on both ways.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

#include "driver/driver_fixture.h"
#include "kernel/kernel.h"

namespace {

using driver_test::bytes;
using driver_test::DriverTest;
using phone::FaultPoint;
using phone::MediaDevice;
using phone::MediaEntity;
using Texts = std::vector<std::string>;

// --- Media walk

constexpr uint32_t kLens = 0x20003;

MediaEntity entity(uint32_t id, const std::string& name, uint32_t type = kLens, bool hasLink = true) {
    const std::string node = "v4l-subdev" + std::to_string(100 + id);
    return {id, name, type, 7, 81, 200 + id, node, hasLink, nullptr};
}
MediaDevice device(int number, const std::string& model, std::vector<MediaEntity> entities = {}) {
    return {number, model, "some-driver", "", "", std::move(entities)};
}

class Walk : public DriverTest {
  protected:
    ~Walk() override { EXPECT_EQ(phone.kernel().openNodes(), 0U); }

    // The lens device as media1, with these entities.
    void setEntities(std::vector<MediaEntity> entities) {
        phone.media().setDevices({device(1, "nxa_camera_af", std::move(entities))});
        phone.trace().clear();
    }
    // The node that the walk opens, or "" when it finds none; what it opened is closed again.
    std::string found(const char* driverName) {
        phone.trace().clear();
        const int32_t descriptor = driver.GetV4l2SubDevice(driverName);
        EXPECT_EQ(phone.kernel().openNodes(), descriptor >= 0 ? 1U : 0U);
        if (descriptor < 0) {
            EXPECT_EQ(descriptor, -1);
            return "";
        }
        close(descriptor);
        return paths("open").back();
    }
    static std::string text(const phone::Event& event, const char* field) {
        const phone::Field* const found = phone::findField(event, field);
        return found == nullptr ? "" : std::get<std::string>(found->value);
    }
    // Calls of that name, as their paths.
    Texts paths(const std::string& call) {
        Texts paths;
        for (const phone::Event& event : phone.trace().events(phone::EventKind::kFile)) {
            if (event.name == call) paths.push_back(text(event, "path"));
        }
        return paths;
    }
    size_t enumerations() { return phone.trace().events(phone::EventKind::kMedia).size() - 1; }
};

TEST_F(Walk, MediaDevicesAreMatchedByTheBeginningOfTheirModel) {
    phone.media().setDevices({device(0, "nxa_camera_isp"), device(2, "nxa_camera_af"),
                              device(5, "nxa_camera_af2"), device(31, "last"), device(32, "beyond")});
    const std::pair<const char*, int> cases[] = {
        {"nxa_camera_af", 2}, {"nxa_camera_af2", 5}, {"", 0}, {"last", 31}, {"nxa_camera_af22", -1},
        {"beyond", -1},       {"some-driver", -1}};
    for (const auto& [model, number] : cases) {
        SCOPED_TRACE(model);
        phone.trace().clear();
        const int32_t descriptor = driver.GetV4l2MediaDevice(model);
        EXPECT_EQ(descriptor >= 0, number >= 0);
        EXPECT_EQ(paths("open").back(), "/dev/media" + std::to_string(number < 0 ? 31 : number));
        if (descriptor >= 0) close(descriptor);
        EXPECT_EQ(phone.kernel().openNodes(), 0U);
    }
    EXPECT_EQ(driver.GetV4l2MediaDevice(nullptr), -1);
}

TEST_F(Walk, LensesAreMatchedByTheBeginningOfTheirName) {
    setEntities(
        {entity(1, "abc 1-000a", 0x20001), entity(2, "ab"), entity(3, "abc 2-000c"), entity(4, "abcd")});
    const std::pair<const char*, const char*> cases[] = {{"abc", "/dev/v4l-subdev103"},
                                                         {"abc 2-000c", "/dev/v4l-subdev103"},
                                                         {"", "/dev/v4l-subdev102"},  // the first lens
                                                         {"ABC", ""},
                                                         {"abc 1", ""}};  // no lens
    for (const auto& [name, node] : cases) EXPECT_EQ(found(name), node) << name;
    EXPECT_EQ(messages().back(), "[GetV4l2SubDevice] Done enumerating media entities, Invalid argument\n");
    EXPECT_EQ(enumerations(), 5U);
}

TEST_F(Walk, SparseIdsAreSeenAsOftenAsTheCounterReachesThem) {
    setEntities({entity(1, "one"), entity(40, "forty"), entity(41, "lens")});
    EXPECT_EQ(found("lens"), "");
    EXPECT_EQ(enumerations(), 32U);
    EXPECT_EQ(found("forty"), "/dev/v4l-subdev140");
}

TEST_F(Walk, BrokenLinksAreSkipped) {
    setEntities({entity(1, "lens a", kLens, false), entity(9, "lens b", kLens, false), entity(11, "lens c")});
    EXPECT_EQ(found("lens"), "/dev/v4l-subdev111");
    EXPECT_EQ(paths("readlink").size(), 10U);  // the counter meets the second entity eight times
    setEntities({entity(3, "lens", kLens, false)});
    EXPECT_EQ(found("lens"), "");
    EXPECT_EQ(messages().at(messages().size() - 2),
              "[GetV4l2SubDevName] readlink failed error(No such file or directory).");
}

TEST_F(Walk, WhatCannotBeOpenedOrAskedIsSkippedAndTheMediaNodeIsClosedLast) {
    setEntities({entity(3, "lens 2-000c")});
    phone.media().change(
        [](auto& devices) { devices.push_back(device(3, "nxa_camera_af", devices[0].entities)); });
    fault("open./dev/media0:errno=EACCES");
    fault("media.DEVICE_INFO@1:errno=EIO");
    const int32_t descriptor = driver.GetV4l2SubDevice("lens");
    Texts calls;
    for (const phone::Event& event : phone.trace().events()) {
        const std::string path = text(event, "path");
        calls.push_back(!event.text.empty() ? event.text : event.name + (path.empty() ? "" : " " + path));
    }
    const std::string device = "[GetV4l2MediaDevice] ";
    const std::string walk = "[GetV4l2SubDevice] ";
    EXPECT_EQ(calls,
              (Texts{"open /dev/media0", device + "Cannot open '/dev/media0': 13, Permission denied",
                     "open /dev/media1", "DEVICE_INFO", device + "Failed to get device info for /dev/media1",
                     "close /dev/media1", "open /dev/media2",
                     device + "Cannot open '/dev/media2': 2, No such file or directory", "open /dev/media3",
                     "DEVICE_INFO", device + "Found media device (nxa_camera_af)", "ENUM_ENTITIES",
                     walk + "entity name lens 2-000c, type 0x20003, group id 7, major 81 minor 203\n",
                     walk + "driver name:lens entity name:lens 2-000c", "readlink /sys/dev/char/81:203",
                     "[GetV4l2SubDevName] readlink:/dev/v4l-subdev103\n", "open /dev/v4l-subdev103",
                     walk + "Open subdev : " + std::to_string(descriptor) + " (/dev/v4l-subdev103)\n",
                     "close /dev/media3"}));
    close(descriptor);
}

TEST_F(Walk, ASubDeviceThatCannotBeOpenedLeavesItsErrno) {
    setEntities({entity(3, "lens")});
    fault("open./dev/v4l-subdev103:errno=EBUSY");
    fault("close./dev/media1:errno=EIO");
    errno = 0;
    EXPECT_EQ(driver.GetV4l2SubDevice("lens"), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(messages().back(), "[GetV4l2SubDevice] Open subdev : -1 (/dev/v4l-subdev103)\n");
}

TEST_F(Walk, PathsAreCutToTheirBuffers) {
    MediaEntity longNode = entity(1, "lens");
    longNode.node = std::string(400, 'n');
    setEntities({longNode});
    char path[33];
    path[32] = '!';
    EXPECT_EQ(driver.GetV4l2SubDevName(81, 201, path), 1);
    EXPECT_EQ(path, "/dev/" + std::string(26, 'n'));
    EXPECT_EQ(path[32], '!');
    EXPECT_EQ(messages(), Texts{"[GetV4l2SubDevName] readlink:" + std::string(path) + "\n"});

    phone.trace().clear();
    EXPECT_EQ(driver.GetV4l2SubDevName(-1, -1, path), 0);
    EXPECT_EQ(paths("readlink"), Texts{"/sys/dev/char/4294967295:429496"});

    // A target without a slash is the component itself.
    fault("readlink:garbage=61");
    EXPECT_EQ(driver.GetV4l2SubDevName(81, 201, path), 1);
    EXPECT_EQ(path, "/dev/" + std::string(26, 'a'));
}

// --- Transport

constexpr uint32_t kSetModeRequest = 0x400456C2;

class Transport : public DriverTest {
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
        bool subDeviceOpen;
        Texts keys;
        FaultPoint point;
    } cases[] = {
        {false, true, true, true, {"SET_MODE"}, FaultPoint::kRequest},    // sub-device; a hub left over
        {false, true, true, false, {}, {}},                               // nothing open
        {true, false, true, true, {"SET_MODE"}, FaultPoint::kRequest},    // hub not up, sub-device open
        {true, false, true, false, {}, {}},                               // hub not up, nothing open
        {true, true, true, true, {"SET_MODE"}, FaultPoint::kHubCommand},  // hub, relayed
        {true, true, false, true, {"BYPASS_DISABLE", "WRITE_REGISTER"}, FaultPoint::kHubCommand},
    };
    open("dw9786");
    const int32_t descriptor = driver.fd_driver;
    driver.mpSensorProvider = NSCam::Utils::SensorProvider::createInstance("test");
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        driver.mOisCustInfo.useSensorHub = c.useSensorHub;
        driver.mSensorHubEnabled = c.hubEnabled;
        driver.mUseCustomCmd = c.useCustomCmd;
        driver.fd_driver = c.subDeviceOpen ? descriptor : -1;
        forget();
        EXPECT_EQ(setMode(2), 0);
        EXPECT_EQ(sentKeys(), c.keys);
        for (const driver_test::Sent& command : sent()) EXPECT_EQ(command.point, c.point);
    }
    driver.mOisCustInfo.useSensorHub = driver.mSensorHubEnabled = 0;
    driver.fd_driver = 0;  // a descriptor, but not one of a sub-device
    forget();
    EXPECT_EQ(setMode(2), 0);
    EXPECT_EQ(phone.trace().events().size(), 1U);  // its message alone
    driver.fd_driver = descriptor;
    driver.mpSensorProvider = nullptr;
}

TEST_F(Transport, RequestResultsArePassedOn) {
    open("dw9786");
    const struct {
        const char* fault;
        int32_t result;
        int error;
    } cases[] = {{"SET_MODE:result=7", 7, 0}, {"SET_MODE:errno=EIO", -1, EIO}, {"SET_MODE:lost", 0, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        forget();
        phone.faults().clear();
        fault(c.fault);
        errno = 0;
        EXPECT_EQ(setMode(2), c.result);
        EXPECT_EQ(errno, c.error);
        EXPECT_EQ(messages(), Texts{"[ConfigOisTransfer] ConfigOisTransfer oisMode: 4   \n"});
    }
}

class Package : public DriverTest {
  protected:
    void SetUp() override { open("korvas4sw-hub"); }
    std::vector<uint8_t> record() { return sent().at(0).bytes; }
};

TEST_F(Package, RecordsAreZeroPaddedAndKeepTheLowBytes) {
    std::vector<uint8_t> input(60);
    for (size_t i = 0; i < input.size(); ++i) input[i] = static_cast<uint8_t>(0x80 + i);
    const struct {
        int32_t id;
        int32_t inLength;
        int32_t outLength;
        const char* head;
    } cases[] = {{28, 60, 60, "1c 3c 3c 00"}, {0x105, 1, 0, "05 01 00 00"}, {28, 4, 0x104, "1c 04 04 00"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.head);
        forget();
        EXPECT_EQ(driver.CustomCmdPackage(c.id, input.data(), nullptr, c.inLength, c.outLength), 0);
        std::vector<uint8_t> expected = bytes(c.head);
        expected.insert(expected.end(), input.begin(), input.begin() + c.inLength);
        expected.resize(64);
        EXPECT_EQ(record(), expected);
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
}

TEST_F(Package, NoMoreThanAPayloadComesBack) {
    fault("hub.COMMAND_28:garbage=5a");
    uint8_t input = 1;
    for (const int32_t outLength : {60, 61, 300}) {
        std::vector<uint8_t> out(300, 0xaa);
        EXPECT_EQ(driver.CustomCmdPackage(28, &input, out.data(), 1, outLength), 0);
        EXPECT_EQ(std::count(out.begin(), out.end(), 0xaa), 240) << outLength;
        EXPECT_NE(out[0], 0xaa);
    }
}

TEST_F(Package, EmptyInputIsAnErrorLine) {
    uint8_t input = 1;
    for (const auto& [in, length] : {std::pair<void*, int32_t>{nullptr, 4}, {&input, 0}, {nullptr, 61}}) {
        forget();
        EXPECT_EQ(driver.CustomCmdPackage(5, in, &input, length, 1), 0);
        EXPECT_TRUE(sent().empty());
        EXPECT_EQ(messages(), Texts{"[CustomCmdPackage] WrData OR WrLens ERROR"});
        EXPECT_EQ(input, 1);
    }
}

TEST_F(Package, TheHubsFailuresAreNotSeen) {
    uint8_t input = 1;
    for (const char* text : {"hub.COMMAND_28:errno=EIO", "hub.COMMAND_28:result=-9"}) {
        phone.faults().clear();
        fault(text);
        EXPECT_EQ(driver.CustomCmdPackage(28, &input, nullptr, 1, 0), 0);
        EXPECT_EQ(driver.ConfigOisTransfer(kSetModeRequest, 28, &input, nullptr, 1, 0), 0);
    }
    const auto provider = std::exchange(driver.mpSensorProvider, nullptr);
    EXPECT_EQ(driver.CustomCmdPackage(28, &input, nullptr, 1, 0), 0);
    driver.mpSensorProvider = provider;
}

using PackageDeathTest = DriverTest;

TEST_F(PackageDeathTest, MoreInputThanAPayloadEndsTheProcess) {
    std::vector<uint8_t> input(300);
    for (const int32_t length : {61, 256, -1}) {
        EXPECT_EXIT(driver.CustomCmdPackage(28, input.data(), nullptr, length, 0),
                    testing::KilledBySignal(SIGABRT), "")
            << length;
    }
}

}  // namespace

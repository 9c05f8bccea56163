// The media walk, and the transport on both ways.

#include <linux/media.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "driver/dump_fixture.h"

namespace {

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
        int number;  // of the node that is closed last, by the test when it was found
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
        if (descriptor >= 0) close(descriptor);
        const std::string number = std::to_string(c.number < 0 ? 31 : c.number);
        EXPECT_TRUE(DriverTest::course().ends_with("close /dev/media" + number + '\n'));
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

class Package : public DumpTest {
  protected:
    void SetUp() override { open("korvas4sw-hub"); }
};

TEST_F(Package, NoMoreThanWasAskedForAndThanAPayloadComesBack) {
    fault("hub.COMMAND_28:garbage=5a");
    uint8_t input = 1;
    for (const int32_t outLength : {-1, 0, 1, 59, 60, 61, 300}) {
        std::vector<uint8_t> large(300, 0xaa);
        EXPECT_EQ(driver.CustomCmdPackage(28, &input, large.data(), 1, outLength), 0);
        EXPECT_EQ(std::count(large.begin(), large.end(), 0xaa), 300 - std::clamp(outLength, 0, 60))
            << outLength;
    }
    EXPECT_EQ(driver.CustomCmdPackage(28, &input, nullptr, 1, 60), 0);
    // The same buffer on both sides.
    std::vector<uint8_t> record(60);
    EXPECT_EQ(driver.CustomCmdPackage(28, record.data(), record.data(), 24, 24), 0);
    EXPECT_EQ(std::count(record.begin(), record.end(), 0x5a), 24);
    forget();
    EXPECT_EQ(driver.CustomCmdPackage(28, &input, nullptr, 0, 60), 0);
    EXPECT_EQ(driver.CustomCmdPackage(28, nullptr, &input, 61, 60), 0);
    expectCourse("transport", "empty");
    EXPECT_EQ(input, 1);
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

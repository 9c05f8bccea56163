// Clock check and firmware update.

#include "driver/korva_course.h"
#include "kernel/kernel.h"

namespace {

using driver_test::bytes;
using driver_test::kIdleAtOnce;
using driver_test::kIdleNever;
using driver_test::kSensor;
using driver_test::Lines;
using driver_test::operator+;

constexpr uint32_t kOldVersion = 0x01020304;  // 16909060
constexpr uint32_t kNewVersion = 0x81020304;  // 2164392708: the same number read as signed is negative

phone::ModuleDescription hubModule() {
    auto module = phone::moduleByName("korvas4sw-hub");
    module.firmwareVersion = kOldVersion;
    return module;
}

class Firmware : public driver_test::KorvaTest {
  protected:
    // The hub and its chip as a phone has them; no session is open.
    void fitHub() {
        fit(hubModule());
        phone.hub().setFirmware(phone::FirmwareImage::generate(kNewVersion));
        phone.clock().sleepUs(50000);
        forget();
    }
    // The steps of one procedure on an idle chip, outside FirmwareUpdate.
    void provide() {
        fitHub();
        chip().writeRegister(0x0000, 1, 0);
        phone.clock().sleepUs(50000);
        driver.mpSensorProvider = NSCam::Utils::SensorProvider::createInstance("test");
        scriptReads();
        forget();
    }
};

// --- Clock check

TEST_F(Firmware, OnlyTheOldClockIsReplaced) {
    provide();
    for (const uint32_t clock : {0U, 19200001U, 24000000U}) {
        forget();
        chip().poke(0x03f0, 4, clock);
        driver.check_ois_clock();
        const std::string number = std::to_string(clock);
        EXPECT_EQ(course(), (Lines{"read 03f0:4 0", "log don't need to update clock\n",
                                   "log currclock " + number + ", newclock " + number + "\n"}));
    }
    forget();
    chip().inject("chip.old-clock");
    driver.check_ois_clock();
    EXPECT_EQ(course(),
              (Lines{"read 03f0:4 0", "log need to update clock start\n"} + kIdleAtOnce +
               Lines{"write 0036:1 21", "sleep 200000", "read 0036:1 21", "log current init pid 33",
                     "write 000d:1 1", "write 000e:1 6", "sleep 20000", "read 03f0:4 0",
                     "log need to update clock end\n", "log currclock 19200000, newclock 24000000\n"}));

    forget();
    chip().inject("chip.old-clock");
    chip().inject("chip.never-idle");
    chip().writeRegister(0x0002, 1, 5);
    driver.check_ois_clock();
    EXPECT_EQ(course(),
              (Lines{"read 03f0:4 0", "log need to update clock start\n"} + kIdleNever +
               Lines{"log invalid ic status, skip fw update\n", "log currclock 19200000, newclock 0\n"}));
}

// --- Update, step by step

const Lines kVersions = {"firmware 1 0 0 -> 4", "sleep 5000", "read 00fc:4 0", "log current FW 16909060\n"};
const Lines kDiffer = {"log current FW 16909060, new FW 2164392708"};

Lines download() {
    Lines lines = {"write 000c:1 75", "sleep 55000"};
    for (unsigned block = 0; block < 112; ++block) {
        char line[64];
        std::snprintf(line, sizeof line, "firmware 1 %x 100", block * 256);
        lines.emplace_back(line);
        std::snprintf(line, sizeof line, "log flash[%u] write: address %u, success (0)", block, block * 256);
        lines.emplace_back(line);
        lines.emplace_back("sleep 15000");
    }
    return lines + Lines{"read 0006:2 0"};
}
Lines verification(const std::string& value) {
    return {"firmware 3 0 0 -> 2", "write 0008:4 " + value, "sleep 190000", "read 0006:2 0"};
}
const Lines kRestart = {"write 0036:1 21", "sleep 200000", "read 0036:1 21", "log current init pid 33",
                        "read 00fc:4 0"};

TEST_F(Firmware, EqualVersionsEndAfterTwoExchangesWithTheHubsResult) {
    provide();
    phone.hub().setFirmware(phone::FirmwareImage::generate(kOldVersion));
    fault("hub.FIRMWARE@2:result=-7");
    EXPECT_EQ(driver.update_fw_func(), -7);
    EXPECT_EQ(course(), (kVersions + Lines{"log no need to update ois FW(16909060)", "firmware 0 4 0"}));
}

TEST_F(Firmware, EveryOutcomeStepByStep) {
    fitHub();
    char value[16];
    std::snprintf(value, sizeof value, "%x", 0x80000000U | phone.hub().firmware().checkValue());
    const Lines toVerification = kDiffer + kIdleAtOnce + download() + verification(value);
    const std::string report = "firmware 0 ";  // the outcome's code and value
    const std::pair<std::string, Lines> cases[] = {
        {"", toVerification + kRestart +
                 Lines{"log firmware version 2164392708", "sleep 10000", "write 0000:1 0", "sleep 2000",
                       report + "1 0"}},
        {"chip.never-idle",
         kDiffer + kIdleNever + Lines{"log invalid ic status, skip fw update", report + "4 0"}},
        {"chip.download-error=0x12",
         kDiffer + kIdleAtOnce + download() +
             Lines{"log Err ! F/W Update Error Status (0x0012)", report + "2 100"}},
        {"chip.check-value-wrong",
         toVerification + Lines{"log FW update error status (0x0002)", report + "2 " + value}},
        {"chip.version-mismatch",
         toVerification + kRestart +
             Lines{"log FW update fail (2164392707, 2164392708), ret(0)", report + "4 " + value}}};
    for (const auto& [chipFault, afterVersions] : cases) {
        SCOPED_TRACE(chipFault);
        provide();
        if (!chipFault.empty()) chip().inject(chipFault);
        if (chipFault == "chip.never-idle") chip().writeRegister(0x0002, 1, 5);
        forget();
        driver.update_fw_func();
        EXPECT_EQ(course(), kVersions + afterVersions);
    }
}

// --- FirmwareUpdate

TEST_F(Firmware, ClosedHubIsOpenedUpdatedAndClosed) {
    fitHub();
    const int64_t start = phone.clock().nowUs();
    EXPECT_EQ(driver.FirmwareUpdate(3, 4), 1);
    // The stated waits, and a first idle request that is answered late.
    EXPECT_EQ(phone.clock().nowUs() - start,
              10000 + 5000 + 12000 + 55000 + 112 * 15000 + 190000 + 200000 + 12000);
    const Lines lines = course();
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 3),
              (Lines{"sleep 10000", "read 03f0:4 0", "log don't need to update clock\n"}));
    EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
              (Lines{"firmware 0 1 0", "log OIS_SENSORHUB UNINIT SUCCEED",
                     "log ois_drv Dev (2), m_user_count (0), camera_type (main)"}));
    EXPECT_EQ(chip().peek(0x00fc, 4), kNewVersion);
    EXPECT_EQ(phone.hub().providers(), 0);
    EXPECT_FALSE(phone.hub().channelEnabled());
    EXPECT_EQ(driver.mpSensorProvider, nullptr);
    EXPECT_EQ(driver.m_user_count, 0);
    EXPECT_EQ(driver.mSensorHubEnabled, 0);
    EXPECT_EQ(driver.mIsOisSupport, 1);
    const auto asked = phone.trace().events(phone::EventKind::kCustomisation);
    ASSERT_EQ(asked.size(), 1U);
    EXPECT_NE(phone::toText(asked[0], false).find("sensor_dev=2 sensor_id=3 module_id=4"), std::string::npos);
}

TEST_F(Firmware, AnOpenSessionIsBorrowed) {
    open(hubModule());
    const auto provider = driver.mpSensorProvider;
    EXPECT_EQ(driver.FirmwareUpdate(3, 4), 1);
    EXPECT_EQ(driver.mpSensorProvider, provider);
    EXPECT_EQ(messages().back(), "ois_drv Dev (2), m_user_count (1), camera_type (main)");
    EXPECT_EQ(driver_test::recordLine(sent().back().bytes), "firmware 0 1 0");
    forget();
    driver.SetMode(2);
    EXPECT_EQ(sentKeys(), Lines{"SET_MODE"});
}

TEST_F(Firmware, SubDeviceGetsTheCameraTypeAlone) {
    auto module = phone::moduleByName("dw9786");
    std::memcpy(module.custInfo.cameraTypeName, "ultrawide-camera", 16);  // fills the field, no NUL
    fit(module);
    EXPECT_EQ(driver.FirmwareUpdate(3, 4), 1);
    ASSERT_EQ(sentKeys(), Lines{"UPDATE_FIRMWARE"});
    EXPECT_EQ(sent()[0].bytes, bytes("75 6c 74 72 61 77 69 64 65 2d 63 61 6d 65 72 61"));
    EXPECT_EQ(phone.kernel().openNodes(), 0U);
    EXPECT_EQ(messages().back(), "ois_drv Dev (2), m_user_count (0), camera_type (ultrawide-camera)");

    // A short name is padded with zeros, and a session's descriptor is used and stays.
    std::memcpy(module.custInfo.cameraTypeName, "uw\0garbage______", 16);
    open(module);
    const int32_t descriptor = driver.fd_driver;
    fault("UPDATE_FIRMWARE:errno=EIO");
    EXPECT_EQ(driver.FirmwareUpdate(3, 4), 1);
    ASSERT_EQ(sentKeys(), Lines{"UPDATE_FIRMWARE"});
    EXPECT_EQ(sent()[0].bytes, bytes("75 77 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
    EXPECT_EQ(driver.fd_driver, descriptor);
    EXPECT_EQ(driver.m_user_count, 1);
}

TEST_F(Firmware, WithoutOisOrSubDeviceItIsRefusedWithAnErrorLine) {
    fit(phone::moduleByName("no-ois"));
    EXPECT_EQ(driver.FirmwareUpdate(3, 4), 0);
    EXPECT_EQ(course(), Lines{"error Dev (2), the current module isn't support OIS"});
    EXPECT_EQ(driver.m_user_count, 0);

    fit(phone::moduleByName("dw9786"));
    fault("open./dev/" + phone::MediaGraph::lensNode(kSensor) + ":errno=EACCES");
    EXPECT_EQ(driver.FirmwareUpdate(3, 4), 0);
    EXPECT_EQ(course().back(), "error Dev(2) ,error opening (Permission denied)");
    EXPECT_EQ(driver.m_user_count, 0);
    EXPECT_EQ(driver.fd_driver, -1);
    EXPECT_EQ(phone.kernel().openNodes(), 0U);
}

TEST_F(Firmware, AMissingProviderIsNoCrash) {
    fitHub();
    fault("sensor-provider:fail");
    EXPECT_EQ(driver.FirmwareUpdate(3, 4), 1);
    EXPECT_TRUE(sent().empty());
    const Lines said = messages();
    EXPECT_EQ(said[1], "currclock 0, newclock 0\n");
    EXPECT_EQ(said[3], "no need to update ois FW(0)");
    EXPECT_EQ(driver.m_user_count, 0);
}

}  // namespace

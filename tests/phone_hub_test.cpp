// The phone's sensor hub and the chip behind it, driven by the driver's own procedures where it has one.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "allocation_count.h"
#include "hub/sensor_hub.h"
#include "modules/module_description.h"
#include "motion/motion.h"
#include "ois_drv.h"
#include "phone.h"
#include "services/property_store.h"

namespace {

using NSCam::Utils::SensorData;
using NSCam::Utils::SensorProvider;
using phone::Event;
using phone::EventKind;
using phone::FirmwareImage;
using phone::KorvaChip;
using phone::KorvaState;
using phone::Phone;

constexpr auto kOis = NSCam::Utils::SENSOR_TYPE_OIS;
constexpr uint32_t kOldVersion = 0x100;
constexpr uint32_t kNewVersion = 0x101;
constexpr int64_t kSecondUs = 1000000;

ois::OisCustomCmd command(uint8_t id, std::vector<uint32_t> words, uint8_t outputLength = 0) {
    ois::OisCustomCmd record{};
    record.id = id;
    record.inputLength = static_cast<uint8_t>(words.size() * 4);
    record.outputLength = outputLength;
    std::memcpy(record.payload, words.data(), words.size() * 4);
    return record;
}

class HubTest : public ::testing::Test {
  protected:
    explicit HubTest(phone::PhoneOptions options = {}) : phone(options) {
        phone::ModuleDescription module = phone::moduleByName("korvas4sw-hub");
        module.firmwareVersion = kOldVersion;
        phone.fit(0, module);
        phone.clock().sleepUs(kSecondUs);
        provider = SensorProvider::createInstance("test");
    }
    ~HubTest() override { driver.mpSensorProvider = nullptr; }

    KorvaChip& chip() { return phone.hub().chip(); }
    int32_t send(ois::OisCustomCmd record) { return provider->customCmd(kOis, &record); }
    uint32_t ask(ois::OisCustomCmd record) {
        provider->customCmd(kOis, &record);
        uint32_t word = 0;
        std::memcpy(&word, record.payload, sizeof word);
        return word;
    }
    uint32_t readRegister(uint32_t address, uint32_t bytes) {
        return ask(command(0, {address, bytes, 0}, static_cast<uint8_t>(bytes)));
    }
    void writeRegister(uint32_t address, uint32_t bytes, uint32_t value) {
        send(command(1, {address, bytes, value}));
    }

    int32_t calibrate() {
        driver.mpSensorProvider = provider;
        return driver.korvas4sw_set_offset_calibration();
    }
    // The outcome as reported to the hub.
    std::pair<uint32_t, uint32_t> updateFirmware() {
        EXPECT_EQ(driver.FirmwareUpdate(1, 2), 1);
        const std::vector<phone::FirmwareReport> reports = phone.hub().firmwareReports();
        if (reports.empty()) return {0, 0};
        return {reports.back().code, reports.back().value};
    }
    bool wasSaid(const std::string& part) {
        return std::ranges::any_of(phone.trace().events(EventKind::kMessage), [&](const Event& event) {
            return event.text.find(part) != std::string::npos;
        });
    }
    bool struck(const std::string& fault) {
        return std::ranges::any_of(phone.trace().events(EventKind::kNote),
                                   [&](const Event& event) { return event.fault.find(fault) == 0; });
    }

    Phone phone;
    std::shared_ptr<SensorProvider> provider;
    OISDrv driver{0};
};

// --- The chip: idle state and loop.

TEST_F(HubTest, ModeAndAccelerationRegistersDriveTheLoop) {
    EXPECT_EQ(chip().state(), KorvaState::kRunning);
    EXPECT_EQ(chip().stabiliser().mode(), phone::StabiliserMode::kOff);
    writeRegister(0x0002, 1, 16);
    EXPECT_EQ(chip().stabiliser().mode(), phone::StabiliserMode::kOn);
    driver.mpSensorProvider = provider;
    EXPECT_EQ(driver.korvas4sw_set_idle(), 1);
    EXPECT_EQ(readRegister(0x0001, 1), 1U);
    EXPECT_EQ(chip().stabiliser().mode(), phone::StabiliserMode::kOff);
    EXPECT_EQ(readRegister(0x0002, 1), 16U);
    driver.korvas4sw_set_mode(1);
    EXPECT_EQ(chip().stabiliser().mode(), phone::StabiliserMode::kOn);
    driver.korvas4sw_set_mode(0);
    EXPECT_EQ(chip().stabiliser().mode(), phone::StabiliserMode::kOff);

    phone.motion().set(phone::makeBuiltinMotion("walk"));
    driver.mAccParams.enable = 1;
    driver.mAccParams.distanceF = 200.0F;
    driver.korvas4sw_set_acc(&driver.mAccParams);
    EXPECT_EQ(std::bit_cast<float>(readRegister(0x0588, 4)), 200.0F);
    phone.clock().sleepUs(kSecondUs);
    EXPECT_NE(chip().stabiliser().stateAt(phone.clock().nowUs()).accTargetX, 0.0);
    driver.mAccParams.enable = 0;
    driver.korvas4sw_set_acc(&driver.mAccParams);
    EXPECT_EQ(std::bit_cast<float>(readRegister(0x0588, 4)), 5000.0F);
    EXPECT_EQ(chip().stabiliser().stateAt(phone.clock().nowUs()).accTargetX, 0.0);
}

TEST_F(HubTest, RegistersOfTheChipsOwnCannotBeWrittenAndOthersReadZero) {
    for (const uint32_t address : {0x0001U, 0x0004U, 0x0006U, 0x0064U, 0x00fcU, 0x03f0U}) {
        const uint32_t before = readRegister(address, 1);
        writeRegister(address, 1, before + 1);
        EXPECT_EQ(readRegister(address, 1), before) << address;
    }
    for (const uint32_t address : {0x0600U, 0x0fffffffU, 0xffffffffU}) {
        writeRegister(address, 4, 0x12345678);
        EXPECT_EQ(readRegister(address, 4), 0U) << address;
    }
    writeRegister(0x05fe, 4, 0x12345678);
    EXPECT_EQ(readRegister(0x05fe, 4), 0x5678U);
    writeRegister(0x0036, 1, 0x1221);
    EXPECT_EQ(readRegister(0x0036, 1), 0x21U);
}

TEST_F(HubTest, IdleComesAfterItsTimeOrNotAtAll) {
    struct {
        const char* fault;
        int32_t result;
        int reads;
    } const cases[] = {
        {"", 1, 2},
        {"chip.idle-on-read=1", 1, 1},
        {"chip.idle-on-read=21", 1, 21},
        {"chip.idle-on-read=22", 0, 21},
        {"chip.never-idle", 0, 21},
    };
    driver.mpSensorProvider = provider;
    for (const auto& c : cases) {
        writeRegister(0x0002, 1, 16);
        chip().clearFaults();
        if (c.fault[0] != '\0') chip().inject(c.fault);
        phone.trace().clear();
        EXPECT_EQ(driver.korvas4sw_set_idle(), c.result) << c.fault;
        const auto hub = phone.trace().events(EventKind::kHub);
        EXPECT_EQ(std::ranges::count(hub, "READ_REGISTER", &Event::name), c.reads) << c.fault;
    }
    chip().clearFaults();
    phone::KorvaTiming timing;
    timing.idleUs = 150000;
    chip().setTiming(timing);
    writeRegister(0x0002, 1, 16);
    phone.trace().clear();
    EXPECT_EQ(driver.korvas4sw_set_idle(), 1);
    EXPECT_EQ(std::ranges::count(phone.trace().events(EventKind::kHub), "READ_REGISTER", &Event::name), 16);
}

// --- Calibration and flash save.

TEST_F(HubTest, AtRestTheCalibrationFindsTheBiasAndKeepsIt) {
    writeRegister(0x0002, 1, 16);
    EXPECT_EQ(calibrate(), 0);
    const phone::StabiliserSettings& sensor = chip().stabiliser().settings();
    for (const size_t axis : {0U, 1U}) {
        const double bias = sensor.gyroBiasRadS[axis] * sensor.gyroLsbPerRadS;
        EXPECT_NEAR(chip().savedGyroOffset()[axis], bias, 1.0);
        const auto reg = static_cast<int16_t>(readRegister(axis == 0 ? 0x0248 : 0x024a, 2));
        EXPECT_EQ(reg, chip().savedGyroOffset()[axis]);
    }
    EXPECT_TRUE(wasSaid("ois flash save success (0)"));
    EXPECT_EQ(readRegister(0x0002, 1), 16U);
    phone.clock().sleepUs(kSecondUs);
    EXPECT_EQ(chip().state(), KorvaState::kRunning);

    // What is in flash survives, what is not does not.
    chip().poke(0x0248, 2, 1234);
    chip().powerCycle();
    EXPECT_EQ(static_cast<int16_t>(readRegister(0x0248, 2)), chip().savedGyroOffset()[0]);
}

TEST_F(HubTest, WhatSpoilsACalibrationSpoilsItAsTheDriverJudges) {
    struct {
        const char* motion;
        const char* fault;
        int32_t result;
        const char* message;
        bool saved;
    } const cases[] = {
        {"hand", "", -1, "error in gyro offset calibration(", false},
        {"walk", "", -1, "error in gyro offset calibration(3)", false},
        {"rest", "chip.calibration-error=0x01", -1, "error in gyro offset calibration(1)", false},
        {"rest", "chip.calibration-error=2", -1, "error in gyro offset calibration(2)", false},
        {"rest", "chip.calibration-error=0x20", -1, "error in gyro offset calibration(20)", false},
        {"rest", "chip.calibration-error=0x50", 0, "ois flash save success (0)", true},
        {"rest", "chip.calibration-never-done", 0, "wait calibration done timep_err!", false},
        {"rest", "chip.never-idle", 0, "invalid ic status, skip calibration", false},
        {"rest", "chip.flash-write-error", 0, "flash write error\n", false},
        {"rest", "chip.flash-data-changed", 0, "flash write error, other flash data was rewrite", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.motion) + " " + c.fault);
        phone.fit(0, phone::moduleByName("korvas4sw-hub"));
        phone.motion().set(phone::makeBuiltinMotion(c.motion));
        phone.clock().sleepUs(kSecondUs);
        if (c.fault[0] != '\0') chip().inject(c.fault);
        phone.trace().clear();
        EXPECT_EQ(calibrate(), c.result);
        EXPECT_TRUE(wasSaid(c.message));
        EXPECT_EQ(struck(c.fault[0] == '\0' ? "chip." : std::string(c.fault).substr(0, 12)),
                  c.fault[0] != '\0');
        EXPECT_EQ(chip().savedGyroOffset() != (std::array<int16_t, 2>{}), c.saved);
    }
}

TEST_F(HubTest, ACalibrationThatTheHubRelaysGoesOnAsBefore) {
    writeRegister(0x0002, 1, 16);
    send(command(12, {0}));
    phone.clock().sleepUs(50000);
    EXPECT_EQ(chip().state(), KorvaState::kIdle);
    phone.clock().sleepUs(kSecondUs);
    EXPECT_EQ(chip().state(), KorvaState::kRunning);
    EXPECT_NE(readRegister(0x0248, 2), 0U);
    EXPECT_EQ(readRegister(0x0014, 1), 0U);
}

TEST_F(HubTest, ACalibrationOfARunningChipIsRefused) {
    writeRegister(0x0014, 1, 1);
    EXPECT_EQ(readRegister(0x0014, 1), 0U);
    EXPECT_EQ(readRegister(0x0004, 1), 0x20U);
}

// --- Clock and firmware.

TEST_F(HubTest, TheOldClockIsReplacedOnce) {
    chip().inject("chip.old-clock");
    EXPECT_EQ(readRegister(0x03f0, 4), 19200000U);
    driver.FirmwareUpdate(1, 2);
    EXPECT_TRUE(wasSaid("currclock 19200000, newclock 24000000"));
    chip().powerCycle();
    EXPECT_EQ(readRegister(0x03f0, 4), 24000000U);
}

TEST_F(HubTest, AGoodImageIsTaken) {
    EXPECT_EQ(readRegister(0x00fc, 4), kOldVersion);
    const int64_t start = phone.clock().nowUs();
    EXPECT_EQ(updateFirmware(), std::pair(1U, 0U));
    EXPECT_NEAR(static_cast<double>(phone.clock().nowUs() - start), 2.4e6, 0.3e6);
    EXPECT_EQ(readRegister(0x00fc, 4), kNewVersion);
    EXPECT_TRUE(chip().hasFirmware());
    EXPECT_TRUE(std::ranges::equal(chip().flash(), phone.hub().firmware().bytes()));
    EXPECT_EQ(updateFirmware(), std::pair(4U, 0U));
    driver.mpSensorProvider = provider;
    EXPECT_EQ(driver.korvas4sw_set_idle(), 1);
    EXPECT_EQ(calibrate(), 0);
}

TEST_F(HubTest, AFailedUpdateIsReportedAndASecondOneRepairsIt) {
    const uint32_t written = 0x80000000U | FirmwareImage::generate(kNewVersion).checkValue();
    struct {
        const char* fault;
        uint32_t code;
        uint32_t value;
        bool firmwareLeft;
    } const cases[] = {
        {"chip.never-idle", 4, 0, true},
        {"chip.download-error=0x12", 2, 256, false},
        {"chip.check-value-wrong", 2, written, false},
        {"chip.version-mismatch", 4, written, true},
        {"chip.block-lost=0", 2, written, false},
        {"chip.block-lost=111", 2, written, false},
        {"chip.block-corrupted=57", 2, written, false},
        {"hub.FIRMWARE@20:lost", 2, written, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        phone::ModuleDescription module = phone::moduleByName("korvas4sw-hub");
        module.firmwareVersion = kOldVersion;
        phone.fit(0, module);
        phone.clock().sleepUs(kSecondUs);
        phone.faults().clear();
        if (std::string(c.fault).find("chip.") == 0) {
            chip().inject(c.fault);
        } else {
            phone.faults().add(phone::parseFault(c.fault));
        }
        EXPECT_EQ(updateFirmware(), std::pair(c.code, c.value));
        chip().clearFaults();
        chip().powerCycle();
        EXPECT_EQ(chip().hasFirmware(), c.firmwareLeft);
        phone.clock().sleepUs(kSecondUs);
        EXPECT_EQ(updateFirmware(), std::pair(1U, 0U));
        EXPECT_EQ(readRegister(0x00fc, 4), kNewVersion);
    }
}

TEST_F(HubTest, ABlockThatComesTooEarlyIsNotTaken) {
    driver.mpSensorProvider = provider;
    ASSERT_EQ(driver.korvas4sw_set_idle(), 1);
    writeRegister(0x000c, 1, 117);
    send(command(14, {1, 0, 256}));
    EXPECT_EQ(readRegister(0x0006, 2), phone::korva_update::kTooEarly);
    phone.clock().sleepUs(55000);
    send(command(14, {1, 28672, 256}));
    EXPECT_EQ(readRegister(0x0006, 2), phone::korva_update::kTooEarly | phone::korva_update::kAddress);
    EXPECT_TRUE(std::ranges::all_of(chip().flash(), [](uint8_t byte) { return byte == 0xff; }));
}

TEST_F(HubTest, APowerCutAtAnyBlockLeavesAChipThatTheNextUpdateRepairs) {
    phone.trace().setEnabled(false);
    for (uint32_t block = 0; block < ois::kFirmwareBlockCount; ++block) {
        SCOPED_TRACE(block);
        phone::ModuleDescription module = phone::moduleByName("korvas4sw-hub");
        module.firmwareVersion = kOldVersion;
        phone.fit(0, module);
        phone.clock().sleepUs(kSecondUs);
        chip().inject("chip.power-cut=" + std::to_string(block));
        // The blocks after the cut find the flash closed; a cut at the last one shows at once, too, as a
        // wrong sum.
        const auto [code, value] = updateFirmware();
        EXPECT_EQ(code, 2U);
        EXPECT_FALSE(chip().hasFirmware());
        EXPECT_FALSE(chip().downloadOpen());
        EXPECT_EQ(readRegister(0x00fc, 4), 0U);
        ASSERT_EQ(updateFirmware(), std::pair(1U, 0U));
        ASSERT_EQ(readRegister(0x00fc, 4), kNewVersion);
    }
}

TEST(FirmwareImageTest, SaysItsVersionInItsLastWord) {
    const FirmwareImage image = FirmwareImage::generate(0xdeadbeef);
    EXPECT_EQ(image.version(), 0xdeadbeefU);
    EXPECT_EQ(image.bytes().size(), 28672U);
    EXPECT_EQ(image.checkValue(), FirmwareImage::generate(0xdeadbeef).checkValue());
    EXPECT_EQ(FirmwareImage::fromBytes(image.bytes()).version(), 0xdeadbeefU);

    const std::vector<uint8_t> small = {1, 2, 3};
    const FirmwareImage padded = FirmwareImage::fromBytes(small, 0x04030201);
    EXPECT_EQ(padded.bytes()[2], 3);
    EXPECT_EQ(padded.bytes()[3], 0xff);
    EXPECT_EQ(padded.bytes()[28668], 1);
    EXPECT_EQ(padded.version(), 0x04030201U);
    EXPECT_THROW(FirmwareImage::fromBytes(small), std::invalid_argument);
    EXPECT_THROW(FirmwareImage::fromBytes({}, 1), std::invalid_argument);
    EXPECT_THROW(FirmwareImage::fromBytes(std::vector<uint8_t>(28673), 1), std::invalid_argument);
    EXPECT_THROW(FirmwareImage::fromFile("/nowhere", 1), std::invalid_argument);

    const std::vector<uint8_t> odd = {0xff, 0xff, 0x02, 0x00, 0x77};
    EXPECT_EQ(phone::korvaWordSum(odd), 1);
}

TEST_F(HubTest, ChipFaultsAreCheckedWhenTheyAreWritten) {
    struct {
        const char* text;
        const char* reason;
    } const cases[] = {
        {"chip.tired",
         "\"chip.tired\" is no fault of the chip; there are chip.never-idle, chip.idle-on-read=1..1000, "},
        {"chip.never-idle=1", "chip.never-idle takes no value"},
        {"chip.power-cut", "\"chip.power-cut\": write chip.power-cut=0..111"},
        {"chip.power-cut=112", "\"chip.power-cut=112\": write chip.power-cut=0..111"},
        {"chip.calibration-error=0x100",
         "\"chip.calibration-error=0x100\": write chip.calibration-error=1..255"},
        {"chip.block-lost=-1", "\"chip.block-lost=-1\": write"},
        {"chip.block-lost=", "\"chip.block-lost=\": write"},
    };
    for (const auto& c : cases) {
        try {
            chip().inject(c.text);
            ADD_FAILURE() << c.text;
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(std::string(error.what()).find(c.reason), 0U) << error.what();
        }
    }
    EXPECT_EQ(KorvaChip::names().size(), 13U);
}

// --- The hub.

TEST_F(HubTest, TheChannelDeliversTheMotionAtItsInterval) {
    std::vector<SensorData> samples;
    EXPECT_FALSE(provider->getAllSensorData(kOis, samples));
    EXPECT_FALSE(provider->enableSensor(kOis, 0));
    EXPECT_FALSE(provider->enableSensor(static_cast<NSCam::Utils::eSensorType>(3), 5));
    EXPECT_FALSE(provider->isEnabled(kOis));
    phone.motion().set(phone::makeBuiltinMotion("walk"));
    ASSERT_TRUE(provider->enableSensor(kOis, 5));
    EXPECT_TRUE(provider->isEnabled(kOis));
    const int64_t startUs = phone.clock().nowUs();
    phone.clock().sleepUs(52000);
    ASSERT_TRUE(provider->getAllSensorData(kOis, samples));
    ASSERT_EQ(samples.size(), 10U);
    for (size_t i = 0; i < samples.size(); ++i) {
        const int64_t timeUs = startUs + 5000 * static_cast<int64_t>(i + 1);
        EXPECT_EQ(samples[i].timestamp, timeUs * 1000);
        const phone::MotionSample motion = phone.motion().at(static_cast<double>(timeUs) * 1e-6);
        EXPECT_EQ(samples[i].values[4], static_cast<float>(motion.gyroRadS[0]));
        EXPECT_EQ(samples[i].values[5], static_cast<float>(motion.gyroRadS[1]));
        EXPECT_EQ(samples[i].values[2], static_cast<float>(motion.accMS2[0]));
        EXPECT_EQ(samples[i].values[1], static_cast<float>(motion.accMS2[2]));
    }
    EXPECT_TRUE(provider->getAllSensorData(kOis, samples));
    EXPECT_TRUE(samples.empty());

    phone.hub().setSampleOrder(phone::SampleOrder::kNewestFirst);
    phone.clock().sleepUs(13000);
    provider->getAllSensorData(kOis, samples);
    ASSERT_EQ(samples.size(), 3U);
    EXPECT_EQ(samples[0].timestamp - samples[2].timestamp, 10000000);

    phone.clock().sleepUs(100 * kSecondUs);
    provider->getAllSensorData(kOis, samples);
    EXPECT_EQ(samples.size(), phone::kSampleQueueDepth);
    std::vector<SensorData> chosen(2);
    chosen[0].timestamp = 7;
    phone.hub().setNextSamples(chosen);
    provider->getAllSensorData(kOis, samples);
    ASSERT_EQ(samples.size(), 2U);
    EXPECT_EQ(samples[0].timestamp, 7);

    EXPECT_EQ(provider->disableSensor(kOis), 0);
    EXPECT_FALSE(phone.hub().channelEnabled());
    phone.hub().setReportedEnabled(true);
    EXPECT_TRUE(provider->isEnabled(kOis));
}

TEST_F(HubTest, TheChannelsCallsFailAsFaultsSay) {
    phone.faults().add(phone::parseFault("sensor-provider@1:fail"));
    EXPECT_EQ(SensorProvider::createInstance("x"), nullptr);
    EXPECT_NE(SensorProvider::createInstance("x"), nullptr);
    phone.faults().clear();
    phone.faults().add(phone::parseFault("sensor-enable:fail"));
    EXPECT_FALSE(provider->enableSensor(kOis, 5));
    phone.faults().clear();
    EXPECT_TRUE(provider->enableSensor(kOis, 5));
    phone.faults().add(phone::parseFault("sensor-disable:fail"));
    EXPECT_EQ(provider->disableSensor(kOis), -1);
    EXPECT_TRUE(phone.hub().channelEnabled());
}

TEST_F(HubTest, RelayedCommandsTakeEffect) {
    provider->enableSensor(kOis, 5);
    EXPECT_TRUE(phone.hub().bypass());
    send(command(17, {0, 3, 0}));
    ASSERT_TRUE(phone.hub().init());
    EXPECT_EQ(phone.hub().init()->logLevel, 3);
    EXPECT_FALSE(phone.hub().bypass());
    send(command(22, {1}));
    EXPECT_TRUE(phone.hub().streaming());

    send(command(4, {2}));
    EXPECT_EQ(chip().peek(0x0002, 1), 16U);
    send(command(20, {1, 0, 2100, 2200, 0, 0}));
    EXPECT_EQ(chip().stabiliser().mode(), phone::StabiliserMode::kFixed);
    phone.clock().sleepUs(kSecondUs);
    EXPECT_NEAR(chip().stabiliser().stateAt(phone.clock().nowUs()).hallX, 2100, 8);
    EXPECT_NEAR(chip().stabiliser().stateAt(phone.clock().nowUs()).hallY, 2200, 8);
    send(command(4, {2}));
    EXPECT_EQ(chip().stabiliser().mode(), phone::StabiliserMode::kOn);
    ois::OisCustomCmd active = command(24, {2});
    active.inputLength = 2;
    send(active);
    EXPECT_EQ(chip().stabiliser().mode(), phone::StabiliserMode::kActive);
    send(command(6, {0, 1, 0, 300, std::bit_cast<uint32_t>(300.0F), 0, 8}));
    EXPECT_EQ(std::bit_cast<float>(chip().peek(0x0588, 4)), 300.0F);
    send(command(25, {42}));
    send(command(27, {2}));
    EXPECT_EQ(phone.hub().temperature(), 42);
    EXPECT_EQ(phone.hub().temperatureStrategy(), 2);

    ois::OisCustomCmd gain = command(5, {0, 0, std::bit_cast<uint32_t>(0.5F), 0, 0, 0});
    send(gain);
    ois::OisCustomCmd read = command(9, {0, 0, 0, 0, 0, 0}, 24);
    provider->customCmd(kOis, &read);
    ois::OisGain answered{};
    std::memcpy(&answered, read.payload, sizeof answered);
    EXPECT_EQ(answered.valueXf, 0.5F);
    EXPECT_EQ(answered.valueYf, phone.module(0)->gain.valueYf);

    send(command(18, {640}));
    send(command(18, {641}));
    EXPECT_EQ(phone.hub().relayed(18).count, 2U);
    EXPECT_EQ(phone.hub().relayed(18).record.payload[0], 641 & 0xff);
    EXPECT_EQ(phone.hub().relayed(19).count, 0U);
    send(command(26, {0}));
    EXPECT_FALSE(phone.hub().init());
    EXPECT_FALSE(phone.hub().streaming());
    EXPECT_FALSE(phone.hub().temperature());
    EXPECT_EQ(chip().stabiliser().mode(), phone::StabiliserMode::kOff);
}

TEST_F(HubTest, FaultsStrikeCommandsAndShowInTheTrace) {
    struct {
        const char* fault;
        int32_t result;
        uint32_t answer;  // of a read that carries 0x77777777 and would answer 5
        bool reached;
    } const cases[] = {
        {"READ_REGISTER:errno=EBUSY", -EBUSY, 0x2, false},
        {"READ_REGISTER:lost", 0, 0x2, false},
        {"READ_REGISTER:garbage=ff00", 0, 0xff, true},
        {"READ_REGISTER:slow=20ms", 0, 0x5, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        phone.faults().clear();
        phone.faults().add(phone::parseFault(c.fault));
        const uint64_t before = phone.hub().relayed(0).count;
        const int64_t startUs = phone.clock().nowUs();
        ois::OisCustomCmd record = command(0, {2, 1, 0}, 1);
        EXPECT_EQ(provider->customCmd(kOis, &record), c.result);
        EXPECT_EQ(record.payload[0], c.answer);
        EXPECT_EQ(phone.hub().relayed(0).count - before, c.reached ? 1U : 0U);
        EXPECT_EQ(phone.clock().nowUs() - startUs,
                  std::string(c.fault).find("slow") == std::string::npos ? 0 : 20000);
        const Event event = phone.trace().events(EventKind::kHub).back();
        EXPECT_NE(event.fault.find("READ_REGISTER"), std::string::npos);
        EXPECT_EQ(event.error, -c.result);
    }
    ois::OisCustomCmd overlong = command(18, {0});
    overlong.inputLength = 61;
    EXPECT_LT(send(overlong), 0);
    EXPECT_LT(provider->customCmd(static_cast<NSCam::Utils::eSensorType>(1), &overlong), 0);
}

TEST_F(HubTest, IdSeventeenIsBringUpOnceAfterTheChannelWasEnabled) {
    phone.trace().clear();
    send(command(17, {0, 0, 0}));
    provider->enableSensor(kOis, 5);
    send(command(17, {0, 0, 0}));
    send(command(17, {0, 0, 0}));
    std::vector<std::string> names;
    for (const Event& event : phone.trace().events(EventKind::kHub)) names.push_back(event.name);
    EXPECT_EQ(names, (std::vector<std::string>{"BYPASS_DISABLE", "INIT", "BYPASS_DISABLE"}));
}

TEST(HubLifetimeTest, AProviderOutlivesThePhoneHarmlessly) {
    std::shared_ptr<SensorProvider> provider;
    {
        Phone phone;
        provider = SensorProvider::createInstance("test");
        EXPECT_EQ(phone.hub().providers(), 1);
        provider->enableSensor(kOis, 5);
    }
    std::vector<SensorData> samples;
    ois::OisCustomCmd record = command(0, {2, 1, 0}, 1);
    EXPECT_FALSE(provider->isEnabled(kOis));
    EXPECT_FALSE(provider->enableSensor(kOis, 5));
    EXPECT_FALSE(provider->getAllSensorData(kOis, samples));
    EXPECT_EQ(provider->disableSensor(kOis), -1);
    EXPECT_LT(provider->customCmd(kOis, &record), 0);
}

phone::PhoneOptions stress() {
    phone::PhoneOptions options;
    options.trace = false;
    options.clock = phone::ClockMode::kFreeRunning;
    return options;
}

class HubStressTest : public HubTest {
  protected:
    HubStressTest() : HubTest(stress()) {}
};

TEST_F(HubStressTest, CommandsAllocateNothing) {
    send(command(18, {1}));
    const uint64_t before = allocationCount();
    send(command(18, {2}));
    writeRegister(0x0002, 1, 16);
    readRegister(0x0001, 1);
    ask(command(9, {0, 0, 0, 0, 0, 0}, 24));
    // What the test itself makes: two vectors of words per command at most.
    const uint64_t perCommand = [] {
        const uint64_t start = allocationCount();
        command(18, {2});
        return allocationCount() - start;
    }();
    EXPECT_EQ(allocationCount() - before, 5 * perCommand);
}

TEST_F(HubStressTest, AllOfItMayBeCalledAtOnce) {
    provider->enableSensor(kOis, 5);
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            std::vector<SensorData> samples;
            for (uint32_t i = 0; i < 200; ++i) {
                writeRegister(0x0002, 1, i % 2 == 0 ? 16 : 5);
                readRegister(0x0001, 1);
                send(command(18, {i}));
                send(command(22, {i % 2}));
                send(command(14, {t % 2, i * 256, 256}));
                ask(command(9, {0, 0, 0, 0, 0, 0}, 24));
                phone.clock().sleepUs(500);
                provider->getAllSensorData(kOis, samples);
                phone.hub().relayed(18);
                phone.hub().firmwareReports();
                phone.hub().init();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(phone.hub().relayed(18).count, 800U);
    EXPECT_EQ(phone.hub().firmwareReports().size(), 400U);
}

}  // namespace

// The phone's sensor hub and the chip behind it, driven by the driver's own procedures where it has one.

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <thread>

#include "allocation_count.h"
#include "driver/driver_fixture.h"
#include "motion/motion.h"
#include "test_support.h"

namespace {

using NSCam::Utils::SensorData;
using NSCam::Utils::SensorProvider;
using phone::FirmwareImage;
using phone::KorvaState;

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

class HubTest : public driver_test::DriverTest {
  protected:
    explicit HubTest(phone::PhoneOptions options = {}) : DriverTest(options) {
        refit();
        driver.mpSensorProvider = provider;
    }

    phone::KorvaChip& chip() { return phone.hub().chip(); }
    phone::StabiliserMode lensMode() { return chip().stabiliser().mode(); }
    int32_t send(ois::OisCustomCmd record) { return provider->customCmd(kOis, &record); }
    template <typename Answer = uint32_t>
    Answer ask(ois::OisCustomCmd record) {
        provider->customCmd(kOis, &record);
        Answer answer{};
        std::memcpy(&answer, record.payload, sizeof answer);
        return answer;
    }
    uint32_t readRegister(uint32_t address, uint32_t bytes) {
        return ask(command(0, {address, bytes, 0}, static_cast<uint8_t>(bytes)));
    }
    void writeRegister(uint32_t address, uint32_t bytes, uint32_t value) {
        send(command(1, {address, bytes, value}));
    }

    void refit() {
        phone::ModuleDescription module = phone::moduleByName("korvas4sw-hub");
        module.firmwareVersion = kOldVersion;
        phone.faults().clear();
        fit(module);
        phone.clock().sleepUs(kSecondUs);
    }
    // The outcome as reported to the hub.
    uint32_t updateFirmware() {
        EXPECT_EQ(driver.FirmwareUpdate(1, 2), 1);
        const auto reports = phone.hub().firmwareReports();
        return reports.empty() ? 0 : reports.back().code;
    }

    std::shared_ptr<SensorProvider> provider = SensorProvider::createInstance("test");
};

TEST_F(HubTest, CommandsAreLostSlowOrSpoiltByFaults) {
    writeRegister(0x0002, 1, 5);
    for (const char* text :
         {"WRITE_REGISTER:lost", "READ_REGISTER@1:slow=20ms", "READ_REGISTER@2:garbage=abcd"}) {
        fault(std::string("hub.") + text);
    }
    writeRegister(0x0002, 1, 16);
    const int64_t before = phone.clock().nowUs();
    EXPECT_EQ(readRegister(0x0002, 1), 5U);
    EXPECT_EQ(phone.clock().nowUs() - before, 20000);
    EXPECT_EQ(readRegister(0x0002, 1) & 0xff, 0xabU);
}

// --- The chip: idle state and loop.

TEST_F(HubTest, ModeAndAccelerationRegistersDriveTheLoop) {
    writeRegister(0x0002, 1, 16);
    EXPECT_EQ(lensMode(), phone::StabiliserMode::kOn);
    writeRegister(0x0000, 1, 0);
    phone.clock().sleepUs(kSecondUs);
    EXPECT_EQ(chip().held()->state(), KorvaState::kIdle);
    EXPECT_EQ(lensMode(), phone::StabiliserMode::kOff);
    EXPECT_EQ(readRegister(0x0002, 1), 16U);

    phone.motion().set(phone::makeBuiltinMotion("walk"));
    const auto target = [this] { return chip().stabiliser().stateAt(phone.clock().nowUs()).accTargetX; };
    writeRegister(0x0588, 4, std::bit_cast<uint32_t>(200.0F));
    writeRegister(0x0558, 1, 255);
    phone.clock().sleepUs(kSecondUs);
    EXPECT_NE(target(), 0.0);
    writeRegister(0x0558, 1, 0);
    EXPECT_EQ(target(), 0.0);
}

TEST_F(HubTest, RegistersOfTheChipsOwnCannotBeWrittenAndOthersReadZero) {
    for (const uint32_t address :
         {0x0001U, 0x0004U, 0x0006U, 0x0064U, 0x00fcU, 0x03f0U, 0x0600U, 0xffffffffU}) {
        const uint32_t before = readRegister(address, 1);
        writeRegister(address, 1, before + 1);
        EXPECT_EQ(readRegister(address, 1), before) << address;
    }
    writeRegister(0x05fe, 4, 0x12345678);
    EXPECT_EQ(readRegister(0x05fe, 4), 0x5678U);
    writeRegister(0x0036, 1, 0x1221);
    EXPECT_EQ(readRegister(0x0036, 1), 0x21U);
    phone.faults().add("READ_REGISTER:errno=EBUSY");
    EXPECT_EQ(send(command(0, {0x0036, 1, 0}, 1)), -EBUSY);
    EXPECT_EQ(phone.trace().events(phone::EventKind::kHub).back().fault->text, "READ_REGISTER:errno=EBUSY");
}

// --- Calibration and flash save.

TEST_F(HubTest, ACalibrationThatTheHubRelaysFindsTheBiasAndGoesOnAsBefore) {
    writeRegister(0x0014, 1, 1);
    EXPECT_EQ(readRegister(0x0004, 1), 0x20U) << "a running chip refuses";
    writeRegister(0x0002, 1, 16);
    send(command(12, {0}));
    phone.clock().sleepUs(50000);
    EXPECT_EQ(chip().held()->state(), KorvaState::kIdle);
    phone.clock().sleepUs(kSecondUs);
    EXPECT_EQ(chip().held()->state(), KorvaState::kRunning);
    EXPECT_EQ(readRegister(0x0014, 1), 0U);
    const phone::StabiliserSettings& sensor = chip().stabiliser().settings();
    const double bias = sensor.gyroBiasRadS[0] * sensor.gyroLsbPerRadS;
    EXPECT_NEAR(static_cast<int16_t>(readRegister(0x0248, 2)), bias, 1.0);
    // What is in flash survives, what is not does not.
    chip().held()->poke(0x0248, 2, 1234);
    chip().held()->powerOn();
    const int16_t saved = chip().held()->flash.gyroOffset[0];
    EXPECT_EQ(static_cast<int16_t>(readRegister(0x0248, 2)), saved);
}

// --- Firmware.

TEST_F(HubTest, ABlockThatComesTooEarlyIsNotTaken) {
    ASSERT_EQ(driver.korvas4sw_set_idle(), 1);
    writeRegister(0x000c, 1, 117);
    send(command(14, {1, 0, 256}));
    EXPECT_EQ(readRegister(0x0006, 2), phone::korva_update::kTooEarly);
    phone.clock().sleepUs(55000);
    send(command(14, {1, 28672, 256}));
    EXPECT_EQ(readRegister(0x0006, 2), phone::korva_update::kTooEarly | phone::korva_update::kAddress);
    EXPECT_TRUE(
        std::ranges::all_of(chip().held()->flash.firmware, [](uint8_t byte) { return byte == 0xff; }));
}

TEST_F(HubTest, AnUpdateDisturbedAtAnyBlockIsRepairedByTheNext) {
    phone.trace().setEnabled(false);
    std::vector<std::string> faults = {"chip.block-lost=0", "chip.block-lost=111", "chip.block-corrupted=57"};
    for (uint32_t block = 0; block < ois::kFirmwareBlockCount; ++block)
        faults.push_back("chip.power-cut=" + std::to_string(block));
    for (const std::string& fault : faults) {
        SCOPED_TRACE(fault);
        refit();
        phone.faults().add(fault);
        EXPECT_EQ(updateFirmware(), 2U);
        // A cut supply comes back by itself, once, and the download is no longer open for the blocks that
        // come.
        const bool cutBeforeTheLast = fault.starts_with("chip.power-cut") && !fault.ends_with("=111");
        EXPECT_EQ(phone.hub().firmwareReports().back().value == 256, cutBeforeTheLast);
        if (!fault.starts_with("chip.power-cut")) chip().held()->powerOn();
        EXPECT_FALSE(chip().held()->flash.firmwareGood);
        EXPECT_FALSE(chip().held()->downloadOpen());
        EXPECT_EQ(updateFirmware(), 1U);
        EXPECT_EQ(readRegister(0x00fc, 4), kNewVersion);
    }
}

TEST(FirmwareImageTest, SaysItsVersionInItsLastWord) {
    EXPECT_EQ(FirmwareImage::fromBytes(FirmwareImage::generate(0xdeadbeef).bytes()).version(), 0xdeadbeefU);
    const std::vector<uint8_t> small = {1, 2, 3};
    const FirmwareImage padded = FirmwareImage::fromBytes(small, 0x04030201);
    EXPECT_EQ(padded.bytes().size(), 28672U);
    EXPECT_EQ(padded.bytes()[3], 0xff);
    EXPECT_EQ(padded.bytes()[28668], 1);
    EXPECT_THROW(FirmwareImage::fromBytes(small), std::invalid_argument);
    EXPECT_THROW(FirmwareImage::fromBytes(std::vector<uint8_t>(28673), 1), std::invalid_argument);
}

// --- The hub.

TEST_F(HubTest, TheChannelDeliversTheMotionAtItsInterval) {
    std::vector<SensorData> samples;
    EXPECT_FALSE(provider->getAllSensorData(kOis, samples));
    phone.motion().set(phone::makeBuiltinMotion("walk"));
    ASSERT_TRUE(provider->enableSensor(kOis, 5));
    const int64_t startUs = phone.clock().nowUs();
    phone.clock().sleepUs(52000);
    ASSERT_TRUE(provider->getAllSensorData(kOis, samples));
    ASSERT_EQ(samples.size(), 10U);
    for (size_t i = 0; i < samples.size(); ++i) {
        const int64_t timeUs = startUs + 5000 * static_cast<int64_t>(i + 1);
        EXPECT_EQ(samples[i].timestamp, timeUs * 1000);
        const phone::MotionSample motion = phone.motion().at(static_cast<double>(timeUs) * 1e-6);
        EXPECT_EQ(samples[i].values[4], static_cast<float>(motion.gyroRadS[0]));
        EXPECT_EQ(samples[i].values[1], static_cast<float>(motion.accMS2[2]));
    }
    EXPECT_TRUE(provider->getAllSensorData(kOis, samples));
    EXPECT_TRUE(samples.empty());
    phone.clock().sleepUs(100 * kSecondUs);
    provider->getAllSensorData(kOis, samples);
    EXPECT_EQ(samples.size(), phone::kSampleQueueDepth);
}

TEST_F(HubTest, RelayedCommandsTakeEffect) {
    forget();
    provider->enableSensor(kOis, 5);
    send(command(17, {0, 0, 0}));
    send(command(17, {0, 0, 0}));
    // Only the first one after the channel came up is the bring-up.
    EXPECT_EQ(sentKeys(), (std::vector<std::string>{"INIT", "BYPASS_DISABLE"}));
    ASSERT_TRUE(phone.hub().init());
    EXPECT_FALSE(phone.hub().bypass());
    send(command(22, {1}));
    EXPECT_TRUE(phone.hub().streaming());

    send(command(4, {2}));
    EXPECT_EQ(chip().held()->registers.load(0x0002, 1), 16U);
    phone.faults().add("lens.stuck-x@1000");
    send(command(20, {1, 0, 2100, 2200, 0, 0}));
    EXPECT_EQ(phone.faults().counts().at(0).reached, 1U) << "a change of mode and target is one command";
    EXPECT_EQ(lensMode(), phone::StabiliserMode::kFixed);
    phone.clock().sleepUs(kSecondUs);
    EXPECT_NEAR(chip().stabiliser().stateAt(phone.clock().nowUs()).hallX, 2100, 8);
    send(command(4, {2}));
    ois::OisCustomCmd active = command(24, {2});
    active.inputLength = 2;
    send(active);
    EXPECT_EQ(lensMode(), phone::StabiliserMode::kActive);
    send(command(6, {0, 1, 0, 300, std::bit_cast<uint32_t>(300.0F), 0, 8}));
    EXPECT_EQ(std::bit_cast<float>(chip().held()->registers.load(0x0588, 4)), 300.0F);
    send(command(18, {640}));
    send(command(18, {641}));
    ois::OisCustomCmd overlong = command(18, {642});
    overlong.inputLength = 61;
    EXPECT_LT(send(overlong), 0);
    EXPECT_EQ(phone.hub().relayed(18).count, 2U);
    EXPECT_EQ(phone.hub().relayed(18).record.payload[0], 641 & 0xff);
    send(command(5, {0, 0, std::bit_cast<uint32_t>(0.5F), 0, 0, 0}));
    const auto answered = ask<ois::OisGain>(command(9, {0, 0, 0, 0, 0, 0}, 24));
    EXPECT_EQ(answered.valueXf, 0.5F);
    EXPECT_EQ(answered.valueYf, phone.module(driver_test::kSensor)->gain.valueYf);
    send(command(26, {0}));
    EXPECT_FALSE(phone.hub().init());
    EXPECT_FALSE(phone.hub().streaming());
    EXPECT_EQ(lensMode(), phone::StabiliserMode::kOff);
}

TEST(HubLifetimeTest, AProviderOutlivesThePhoneHarmlessly) {
    std::shared_ptr<SensorProvider> provider;
    {
        const phone::Phone phone;
        provider = SensorProvider::createInstance("test");
        EXPECT_TRUE(provider->enableSensor(kOis, 5));
    }
    std::vector<SensorData> samples;
    ois::OisCustomCmd record = command(0, {2, 1, 0}, 1);
    EXPECT_FALSE(provider->isEnabled(kOis));
    EXPECT_FALSE(provider->getAllSensorData(kOis, samples));
    EXPECT_EQ(provider->disableSensor(kOis), -1);
    EXPECT_LT(provider->customCmd(kOis, &record), 0);
}

class HubStressTest : public HubTest {
  protected:
    HubStressTest()
        : HubTest({phone::KernelKind::kSimulated, phone::ClockMode::kFreeRunning, {}, {}, {}, false}) {
        phone.faults().setOverride(nullptr);
    }
};

TEST_F(HubStressTest, CommandsAllocateNothing) {
    ois::OisCustomCmd records[] = {command(18, {1}), command(1, {2, 1, 16}), command(0, {1, 1, 0}, 1),
                                   command(9, {0, 0, 0, 0, 0, 0}, 24)};
    provider->customCmd(kOis, records);
    const uint64_t before = allocationCount();
    for (ois::OisCustomCmd& record : records) provider->customCmd(kOis, &record);
    EXPECT_EQ(allocationCount(), before);
}

TEST_F(HubStressTest, AllOfItMayBeCalledAtOnce) {
    provider->enableSensor(kOis, 5);
    const auto work = [this](uint32_t number) {
        std::vector<SensorData> samples;
        for (uint32_t i = 0; i < 200; ++i) {
            writeRegister(0x0002, 1, i % 2 == 0 ? 16 : 5);
            readRegister(0x0001, 1);
            send(command(18, {i}));
            send(command(22, {i % 2}));
            send(command(14, {number % 2, i * 256, 256}));
            ask(command(9, {0, 0, 0, 0, 0, 0}, 24));
            phone.clock().sleepUs(500);
            provider->getAllSensorData(kOis, samples);
            phone.hub().relayed(18);
            phone.hub().firmwareReports();
            phone.hub().init();
        }
    };
    { const std::jthread a(work, 0), b(work, 1), c(work, 2), d(work, 3); }
    EXPECT_EQ(phone.hub().relayed(18).count, 800U);
    EXPECT_EQ(phone.hub().firmwareReports().size(), 400U);
}

}  // namespace

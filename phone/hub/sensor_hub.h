#pragma once
// The phone's sensor hub: the OIS channel with its motion samples, and the commands to the controller behind
// it.

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "camera_platform/sensor_provider.h"
#include "controllers/kept.h"
#include "controllers/korva/chip.h"
#include "hub/firmware_image.h"
#include "ois_drv.h"
#include "trace/trace.h"
#include "wire/hub_commands.h"
#include "wire/records.h"

namespace phone {

// Outcome of a firmware update as the driver reported it: an ois::FirmwareOutcome, and a value.
struct FirmwareReport {
    uint32_t code = 0;
    uint32_t value = 0;
    int64_t timeUs = 0;
};

// A command that the hub took, and how often it took one with that id.
struct RelayedCommand {
    ois::OisCustomCmd record{};  // as it arrived
    uint64_t count = 0;
};

// Most samples that the channel keeps; older ones are dropped.
constexpr size_t kSampleQueueDepth = 10000;

// Thread-safe. Commands are not serialised: those with different ids share no lock.
class SensorHub {
  public:
    SensorHub(Clock& clock, Trace& trace, Faults& faults, const Motion& motion);
    // Providers that outlive the phone fail every call from then on.
    ~SensorHub();
    SensorHub(const SensorHub&) = delete;
    SensorHub& operator=(const SensorHub&) = delete;

    // Puts the module's controller behind the hub. Not while the driver uses it.
    void fit(const ModuleDescription& module);
    // The controller; it answers from the start, as that of a generic module, also when none was fitted.
    KorvaChip& chip() { return mChip; }

    // What the controller keeps without power: its flash, and gains.
    KeptByController kept();
    // As it is when power comes. Not while the driver uses it.
    void restore(const KeptByController& kept);

    // For the platform's entry point: a provider, or empty.
    std::shared_ptr<NSCam::Utils::SensorProvider> createProvider(const char* userName);

    // --- State: the channel.
    bool channelEnabled() const { return mEnabled; }
    // What isEnabled answers, whatever the channel's state; empty: the truth.
    void setReportedEnabled(std::optional<bool> enabled) {
        mReportedEnabled = enabled ? (*enabled ? 1 : 0) : -1;
    }
    // Makes the next drain deliver exactly these, in this order, instead of samples of the motion.
    void setNextSamples(std::vector<NSCam::Utils::SensorData> samples);
    int32_t providers() const { return mLink->providers; }  // held at the moment

    // --- State: what the hub was told.
    std::optional<ois::HubInit> init() const;  // the bring-up command, until the session ends
    bool bypass() const { return mBypass; }    // the hub relays for the driver, until told otherwise
    bool streaming() const { return mStreaming; }
    // By command id; count 0 when there was none.
    RelayedCommand relayed(uint8_t commandId) const;
    uint64_t commands() const;  // of all ids

    // --- State: the firmware service.
    // At first: one generated for a version above that of the module.
    void setFirmware(FirmwareImage image);
    FirmwareImage firmware() const;
    std::vector<FirmwareReport> firmwareReports() const;

  private:
    class Provider;
    // Outlives the phone in the providers that the driver still holds.
    struct Link {
        explicit Link(SensorHub* of) : hub(of) {}
        std::atomic<SensorHub*> hub;
        std::atomic<int32_t> providers{0};
    };
    struct Relayed {
        mutable std::mutex mutex;
        RelayedCommand command;
    };
    using SensorType = NSCam::Utils::eSensorType;
    static constexpr size_t kCommandIds = 256;
    static constexpr uint32_t kGenericFirmwareVersion = 2;

    // The channel.
    bool enable(SensorType type, uint32_t intervalMs);
    bool isEnabled(SensorType type);
    int32_t disable(SensorType type);
    bool drain(SensorType type, std::vector<NSCam::Utils::SensorData>& samples);
    std::vector<NSCam::Utils::SensorData> takeSamples();

    // Commands.
    int32_t command(SensorType type, ois::OisCustomCmd& command);
    int32_t execute(ois::OisCustomCmd& command);
    void remember(const ois::OisCustomCmd& command);
    void carryOut(ois::OisCustomCmd& command);
    void switchBypass(const ois::OisCustomCmd& command);
    void applyAccParams(const ois_acc_params& params);
    void endSession();
    void serveFirmware(ois::OisCustomCmd& command);
    void record(const ois::OisCustomCmd& sent, const ois::OisCustomCmd& answered, HubPhase phase,
                int32_t result, const Fate& fate, int64_t beganUs);
    void recordCall(const char* name, std::vector<Field> fields, std::optional<int64_t> result,
                    const Fate& fate, std::span<const uint8_t> received = {});

    Clock& mClock;
    Trace& mTrace;
    Faults& mFaults;
    const Motion& mMotion;
    KorvaChip mChip;
    const std::shared_ptr<Link> mLink;

    std::atomic<bool> mEnabled{false};
    std::atomic<uint32_t> mIntervalMs{0};
    std::atomic<int> mReportedEnabled{-1};  // -1: the truth
    std::mutex mChannelMutex;
    int64_t mEnabledSinceUs = 0;
    int64_t mSamplesTaken = 0;
    std::optional<std::vector<NSCam::Utils::SensorData>> mNextSamples;

    std::array<Relayed, kCommandIds> mRelayed;
    std::atomic<bool> mBringUp{false};  // the channel was enabled and the bring-up command has not come yet
    std::atomic<bool> mBypass{true};
    std::atomic<bool> mStreaming{false};
    mutable std::mutex mMutex;  // of the rest
    std::optional<ois::HubInit> mInit;
    ois::OisGain mGain{};
    FirmwareImage mFirmware = FirmwareImage::generate(kGenericFirmwareVersion);
    std::vector<FirmwareReport> mReports;
};

}  // namespace phone

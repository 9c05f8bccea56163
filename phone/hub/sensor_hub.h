#pragma once
// The phone's sensor hub: the OIS channel with its motion samples, and the commands to the controller behind
// it.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "camera_platform/sensor_provider.h"
#include "controllers/korva/chip.h"
#include "hub/firmware_image.h"
#include "wire/hub_commands.h"
#include "wire/records.h"

namespace phone {

class Clock;
class Faults;
class Motion;
class Trace;
struct ModuleDescription;

enum class SampleOrder { kOldestFirst, kNewestFirst };

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
    KorvaChip& chip();

    // For the platform's entry point: a provider, or empty.
    std::shared_ptr<NSCam::Utils::SensorProvider> createProvider(const char* userName);

    // --- State: the channel.
    bool channelEnabled() const;
    uint32_t intervalMs() const;  // as enabled last; 0 before
    // What isEnabled answers, whatever the channel's state; empty: the truth.
    void setReportedEnabled(std::optional<bool> enabled);
    void setSampleOrder(SampleOrder order);
    // Makes the next drain deliver exactly these, in this order, instead of samples of the motion.
    void setNextSamples(std::vector<NSCam::Utils::SensorData> samples);
    int32_t providers() const;  // held at the moment

    // --- State: what the hub was told.
    std::optional<ois::HubInit> init() const;  // the bring-up command, until the session ends
    bool bypass() const;                       // the hub relays for the driver, until told otherwise
    bool streaming() const;
    std::optional<int32_t> temperature() const;
    std::optional<int32_t> temperatureStrategy() const;
    ois::OisGain gain() const;
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
    class State;
    std::shared_ptr<State> mState;
};

}  // namespace phone

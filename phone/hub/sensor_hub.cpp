#include "hub/sensor_hub.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "controllers/controller.h"
#include "entry/phone_in_use.h"
#include "faults/faults.h"
#include "kernel/user_memory.h"
#include "modules/module_description.h"
#include "motion/motion.h"
#include "time/clock.h"
#include "trace/decode.h"

namespace phone {

using NSCam::Utils::eSensorType;
using NSCam::Utils::SensorData;
using NSCam::Utils::SensorProvider;
using ois::HubCommand;
using ois::OisCustomCmd;
using ois::korva::Register;

namespace {

constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kNsPerUs = 1000;
constexpr double kSecondsPerUs = 1e-6;
constexpr int32_t kDisableFailed = -1;

// What a command carries, as far as it came; the rest is zero.
template <typename Record>
Record inputOf(const OisCustomCmd& command) {
    Record record{};
    std::memcpy(&record, command.payload, std::min<size_t>(command.inputLength, sizeof record));
    return record;
}

template <typename Value>
void answer(OisCustomCmd& command, const Value& value) {
    static_assert(sizeof value <= ois::kHubPayloadSize);
    std::memcpy(command.payload, &value, std::min<size_t>(command.outputLength, sizeof value));
}

// The pairs of a sample: gyro z and acceleration z, acceleration x and y, gyro x and y; rad/s and m/s^2.
SensorData sampleOf(const MotionSample& motion, int64_t timeUs) {
    SensorData sample{};
    const std::array<double, 6> values = {motion.gyroRadS[2], motion.accMS2[2],   motion.accMS2[0],
                                          motion.accMS2[1],   motion.gyroRadS[0], motion.gyroRadS[1]};
    std::ranges::transform(values, sample.values, [](double value) { return static_cast<float>(value); });
    sample.timestamp = timeUs * kNsPerUs;
    return sample;
}

}  // namespace

bool SensorHub::enable(eSensorType type, uint32_t intervalMs) {
    const Fate fate = mFaults.consult(FaultPoint::kSensorEnable);
    const bool refused = type != ois::kOisSensorType || intervalMs == 0 || fate.fails();
    if (!refused && !fate.lost()) {
        const std::lock_guard lock(mChannelMutex);
        mEnabledSinceUs = mClock.nowUs();
        mSamplesTaken = 0;
        mIntervalMs = intervalMs;
        mEnabled = true;
        mBringUp = true;
    }
    recordCall("enableSensor", {{"type", int64_t{type}}, {"interval_ms", int64_t{intervalMs}}},
               refused ? 0 : 1, fate);
    return !refused;
}

bool SensorHub::isEnabled(eSensorType type) {
    const Fate fate = mFaults.consult(FaultPoint::kSensorEnabled);
    const int reported = mReportedEnabled.load(std::memory_order_relaxed);
    const bool enabled = type == ois::kOisSensorType && !fate.fails() &&
                         (reported < 0 ? mEnabled.load(std::memory_order_relaxed) : reported != 0);
    recordCall("isEnabled", {{"type", int64_t{type}}}, enabled ? 1 : 0, fate);
    return enabled;
}

int32_t SensorHub::disable(eSensorType type) {
    const Fate fate = mFaults.consult(FaultPoint::kSensorDisable);
    int32_t result = type != ois::kOisSensorType || fate.fails() ? kDisableFailed : 0;
    if (result == 0 && !fate.lost()) {
        mEnabled = false;
        mBringUp = false;
    }
    result = static_cast<int32_t>(fate.result().value_or(result));
    recordCall("disableSensor", {{"type", int64_t{type}}}, result, fate);
    return result;
}

bool SensorHub::drain(eSensorType type, std::vector<SensorData>& samples) {
    const Fate fate = mFaults.consult(FaultPoint::kSensorSamples);
    const bool works = type == ois::kOisSensorType && mEnabled && !fate.fails();
    samples = works ? takeSamples() : std::vector<SensorData>();
    if (fate.lost()) samples.clear();
    const auto* bytes = reinterpret_cast<const uint8_t*>(samples.data());
    recordCall("getAllSensorData",
               {{"type", int64_t{type}}, {"samples", static_cast<int64_t>(samples.size())}}, works ? 1 : 0,
               fate, {bytes, samples.size() * sizeof(SensorData)});
    return works;
}

// One sample per interval since the channel was enabled.
std::vector<SensorData> SensorHub::takeSamples() {
    const std::lock_guard lock(mChannelMutex);
    const int64_t intervalUs = int64_t{mIntervalMs} * kUsPerMs;
    const int64_t due = (mClock.nowUs() - mEnabledSinceUs) / intervalUs;
    const int64_t first = std::max(mSamplesTaken, due - static_cast<int64_t>(kSampleQueueDepth)) + 1;
    mSamplesTaken = due;
    if (mNextSamples) return *std::exchange(mNextSamples, std::nullopt);

    std::vector<SensorData> samples;
    if (first > due) return samples;
    samples.reserve(static_cast<size_t>(due - first + 1));
    const std::shared_ptr<const MotionSource> source = mMotion.source();
    for (int64_t i = first; i <= due; ++i) {
        const int64_t timeUs = mEnabledSinceUs + i * intervalUs;
        samples.push_back(sampleOf(source->at(static_cast<double>(timeUs) * kSecondsPerUs), timeUs));
    }
    return samples;
}

int32_t SensorHub::command(eSensorType type, OisCustomCmd& command) {
    if (type != ois::kOisSensorType) return -EINVAL;
    const bool bringUp = command.id == ois::idByte(HubCommand::kInit) && mBringUp.exchange(false);
    const HubPhase phase = bringUp ? HubPhase::kBringUp : HubPhase::kRunning;
    const HubCommandInfo* info = hubCommand(command, phase);
    const OisCustomCmd sent = command;
    const int64_t beganUs = mClock.nowUs();
    const Fate fate =
        mFaults.consult(FaultPoint::kHubCommand, info == nullptr ? std::string_view() : info->name,
                        std::as_bytes(std::span(&sent, 1)));
    int32_t result = -fate.error();
    if (fate.answered()) {
        result = static_cast<int32_t>(fate.result().value_or(0));
        if (fate.bytes().size() == sizeof command) command = recordOf<OisCustomCmd>(fate.bytes());
    } else if (result == 0 && !fate.lost()) {
        result = execute(command);
        result = static_cast<int32_t>(fate.result().value_or(result));
        const size_t length = std::min<size_t>(command.outputLength, ois::kHubPayloadSize);
        fate.spoil(std::as_writable_bytes(std::span(command.payload)).first(length));
    }
    record(sent, command, phase, result, fate, beganUs);
    return result;
}

int32_t SensorHub::execute(OisCustomCmd& command) {
    if (command.inputLength > ois::kHubPayloadSize || command.outputLength > ois::kHubPayloadSize)
        return -EINVAL;
    // The hub is another processor: its locks order nothing in the driver's threads.
    [[maybe_unused]] const InsideKernel inside;
    remember(command);
    carryOut(command);
    return 0;
}

void SensorHub::remember(const OisCustomCmd& command) {
    Relayed& relayed = mRelayed[command.id];
    const std::lock_guard lock(relayed.mutex);
    relayed.command.record = command;
    ++relayed.command.count;
}

void SensorHub::carryOut(OisCustomCmd& command) {
    switch (static_cast<HubCommand>(command.id)) {
        case HubCommand::kKorvaReadReg: {
            const auto access = inputOf<ois::HubRegisterAccess>(command);
            answer(command, mChip.held()->read(access.address, access.byteCount));
            break;
        }
        case HubCommand::kKorvaWriteReg: {
            const auto access = inputOf<ois::HubRegisterAccess>(command);
            mChip.held()->write(access.address, access.byteCount, access.value);
            break;
        }
        case HubCommand::kSetMode: {
            const bool on = inputOf<int32_t>(command) != 0;
            mChip.held()->write(address(Register::kStabilisationMode), 1,
                                on ? ois::korva::kModeOn : ois::korva::kModeOff);
            break;
        }
        case HubCommand::kWriteGain: {
            const std::lock_guard lock(mMutex);
            writeGain(mGain, inputOf<ois::OisGain>(command));
            break;
        }
        case HubCommand::kSetAccParams:
            applyAccParams(inputOf<ois_acc_params>(command));
            break;
        case HubCommand::kReadGain: {
            const std::lock_guard lock(mMutex);
            answer(command, gainAnswer(mGain, inputOf<ois::OisGain>(command)));
            break;
        }
        case HubCommand::kSetGyroOffset:
            mChip.held()->calibrate();
            break;
        case HubCommand::kKorvaFwCmd:
            serveFirmware(command);
            break;
        case HubCommand::kInit:
            switchBypass(command);
            break;
        case HubCommand::kSetFixMode: {
            const auto fixMode = inputOf<ois::OisFixMode>(command);
            mChip.held()->holdLens(fixMode.target_x, fixMode.target_y);
            break;
        }
        case HubCommand::kNotifyStream:
            mStreaming = inputOf<int32_t>(command) != 0;
            break;
        case HubCommand::kSetActiveOis: {
            // The driver sends two bytes, which leaves the angle out.
            const auto active = inputOf<ois_act_parameters>(command);
            constexpr int32_t kWithAngle = 2;
            mChip.held()->setActive(active.enable != 0, active.enable == kWithAngle
                                                            ? double{std::bit_cast<float>(active.angle)}
                                                            : 0);
            break;
        }
        case HubCommand::kEndSession:
            endSession();
            break;
        case HubCommand::kOperation18:
        case HubCommand::kCapture:
        case HubCommand::kSetAfPosition:
        case HubCommand::kSetTemperature:
        case HubCommand::kSetTempStrategy:
        case HubCommand::kNoHubMeaning:
            break;  // remembered, and nothing else is known about them
    }
}

// The bring-up command carries the bypass switch; the same id with zeros alone ends the bypass.
void SensorHub::switchBypass(const OisCustomCmd& command) {
    const auto init = inputOf<ois::HubInit>(command);
    mBypass = init.bypass != 0;
    const std::lock_guard lock(mMutex);
    if (!mInit) mInit = init;
}

void SensorHub::applyAccParams(const ois_acc_params& params) {
    const float distance = params.enable != 0 ? params.distanceF : ois::korva::kAccDistanceOff;
    mChip.held()->write(address(Register::kAccCompensation), 1, params.enable != 0 ? 1 : 0);
    mChip.held()->write(address(Register::kAccObjectDistance), 4, std::bit_cast<uint32_t>(distance));
}

void SensorHub::endSession() {
    mStreaming = false;
    mBypass = true;
    mChip.held()->setActive(false, 0);
    mChip.held()->write(address(Register::kStabilisationMode), 1, ois::korva::kModeOff);
    const std::lock_guard lock(mMutex);
    mInit.reset();
}

void SensorHub::serveFirmware(OisCustomCmd& command) {
    const auto request = inputOf<ois::HubFirmwareCommand>(command);
    const std::unique_lock lock(mMutex);
    switch (request.op) {
        case ois::FirmwareOp::kReport:
            mReports.push_back({request.argument1, request.argument2, mClock.nowUs()});
            break;
        case ois::FirmwareOp::kImage: {
            if (request.argument2 == 0) {
                answer(command, mFirmware.version());
                break;
            }
            const std::span<const uint8_t> image = mFirmware.bytes();
            const size_t at = std::min<size_t>(request.argument1, image.size());
            const size_t length = std::min<size_t>(request.argument2, image.size() - at);
            mChip.held()->program(request.argument1, image.subspan(at, length));
            break;
        }
        case ois::FirmwareOp::kCheckValue:
            answer(command, mFirmware.checkValue());
            break;
    }
}

void SensorHub::record(const OisCustomCmd& sent, const OisCustomCmd& answered, HubPhase phase, int32_t result,
                       const Fate& fate, int64_t beganUs) {
    if (!mTrace.enabled()) return;
    const bool answers = !fate.lost() && result >= 0;
    Event event = hubEvent(sent, answers ? &answered : nullptr, phase);
    event.result = result;
    event.error = std::max(-result, 0);
    event.fault = fate.fault();
    event.tookUs = mClock.nowUs() - beganUs;
    mTrace.record(std::move(event));
}

void SensorHub::recordCall(const char* name, std::vector<Field> fields, std::optional<int64_t> result,
                           const Fate& fate, std::span<const uint8_t> received) {
    if (!mTrace.enabled()) return;
    mTrace.record({.kind = EventKind::kSensor,
                   .name = name,
                   .received = {received.begin(), received.end()},
                   .fields = std::move(fields),
                   .result = result,
                   .fault = fate.fault()});
}

// The driver's handle on the hub.
class SensorHub::Provider final : public SensorProvider {
  public:
    explicit Provider(std::shared_ptr<Link> link) : mLink(std::move(link)) { ++mLink->providers; }
    ~Provider() override {
        --mLink->providers;
        inPhone(false, [](SensorHub& hub) {
            hub.recordCall("release", {}, std::nullopt, {});
            return true;
        });
    }

    bool enableSensor(eSensorType type, uint32_t intervalMs) override {
        return inPhone(false, [&](SensorHub& hub) { return hub.enable(type, intervalMs); });
    }
    bool isEnabled(eSensorType type) override {
        return inPhone(false, [&](SensorHub& hub) { return hub.isEnabled(type); });
    }
    int32_t disableSensor(eSensorType type) override {
        return inPhone(kDisableFailed, [&](SensorHub& hub) { return hub.disable(type); });
    }
    bool getAllSensorData(eSensorType type, std::vector<SensorData>& samples) override {
        return inPhone(false, [&](SensorHub& hub) { return hub.drain(type, samples); });
    }
    int32_t customCmd(eSensorType type, void* record) override {
        return inPhone(-ENODEV, [&](SensorHub& hub) {
            // The caller's bytes need no alignment.
            OisCustomCmd command;
            std::memcpy(&command, record, sizeof command);
            const int32_t result = hub.command(type, command);
            std::memcpy(record, &command, sizeof command);
            return result;
        });
    }

  private:
    // What the call returns, or `gone` once the hub's phone is. While a phone is in use it stays.
    template <typename Result, typename Call>
    Result inPhone(Result gone, Call call) const {
        const PhoneInUse phone;
        SensorHub* hub = phone ? mLink->hub.load() : nullptr;
        if (hub == nullptr) return gone;
        hub->mClock.enter();
        return call(*hub);
    }

    const std::shared_ptr<Link> mLink;
};

SensorHub::SensorHub(Clock& clock, Trace& trace, Faults& faults, const Motion& motion)
    : mClock(clock),
      mTrace(trace),
      mFaults(faults),
      mMotion(motion),
      mChip(clock, trace, motion, faults),
      mLink(std::make_shared<Link>(this)) {}

SensorHub::~SensorHub() {
    mLink->hub = nullptr;
}

void SensorHub::fit(const ModuleDescription& module) {
    mChip.held()->fit(module);
    const std::lock_guard lock(mMutex);
    mGain = module.gain;
    mFirmware = FirmwareImage::generate(module.firmwareVersion + 1);
}

KeptByController SensorHub::kept() {
    KeptByController kept{.gain = {}, .gyroOffset = {}, .flash = mChip.held()->flash};
    const std::lock_guard lock(mMutex);
    kept.gain = mGain;
    return kept;
}

void SensorHub::restore(const KeptByController& kept) {
    {
        const KorvaChip::Held chip = mChip.held();
        chip->flash = kept.flash;
        chip->powerOn();
    }
    const std::lock_guard lock(mMutex);
    mGain = kept.gain;
}

std::shared_ptr<SensorProvider> SensorHub::createProvider(const char* userName) {
    mClock.enter();
    const Fate fate = mFaults.consult(FaultPoint::kSensorProvider);
    const bool failed = fate.fails() || fate.lost();
    recordCall("createInstance", {{"user", std::string(userName == nullptr ? "" : userName)}}, failed ? 0 : 1,
               fate);
    return failed ? nullptr : std::make_shared<Provider>(mLink);
}

void SensorHub::setNextSamples(std::vector<SensorData> samples) {
    const std::lock_guard lock(mChannelMutex);
    mNextSamples = std::move(samples);
}

std::optional<ois::HubInit> SensorHub::init() const {
    const std::lock_guard lock(mMutex);
    return mInit;
}

RelayedCommand SensorHub::relayed(uint8_t commandId) const {
    const Relayed& relayed = mRelayed[commandId];
    const std::lock_guard lock(relayed.mutex);
    return relayed.command;
}

uint64_t SensorHub::commands() const {
    uint64_t count = 0;
    for (size_t commandId = 0; commandId < kCommandIds; ++commandId) {
        count += relayed(static_cast<uint8_t>(commandId)).count;
    }
    return count;
}

void SensorHub::setFirmware(FirmwareImage image) {
    const std::lock_guard lock(mMutex);
    mFirmware = std::move(image);
}

FirmwareImage SensorHub::firmware() const {
    const std::lock_guard lock(mMutex);
    return mFirmware;
}

std::vector<FirmwareReport> SensorHub::firmwareReports() const {
    const std::lock_guard lock(mMutex);
    return mReports;
}

}  // namespace phone

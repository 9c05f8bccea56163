#include "hub/sensor_hub.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>
#include <utility>

#include "entry/phone_in_use.h"
#include "faults/faults.h"
#include "kernel/user_memory.h"
#include "modules/module_description.h"
#include "motion/motion.h"
#include "ois_drv.h"
#include "time/clock.h"
#include "trace/decode.h"
#include "trace/trace.h"

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
constexpr size_t kCommandIds = 256;
constexpr int32_t kDisableFailed = -1;
constexpr uint32_t kGenericFirmwareVersion = 2;

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

// A word that says nothing until it was sent.
class ToldWord {
  public:
    void tell(int32_t word) { mWord.store(word, std::memory_order_relaxed); }
    void forget() { mWord.store(kNothing, std::memory_order_relaxed); }
    std::optional<int32_t> get() const {
        const int64_t word = mWord.load(std::memory_order_relaxed);
        return word == kNothing ? std::nullopt : std::optional(static_cast<int32_t>(word));
    }

  private:
    static constexpr int64_t kNothing = std::numeric_limits<int64_t>::min();
    std::atomic<int64_t> mWord{kNothing};
};

}  // namespace

// Outlives the phone in the providers that the driver still holds; they touch nothing else from then on.
class SensorHub::State {
  public:
    State(Clock& clock, Trace& trace, Faults& faults, const Motion& motion)
        : mClock(clock),
          mTrace(trace),
          mFaults(faults),
          mMotion(motion),
          mChip(clock, trace, motion, faults) {}

    // The channel.
    bool enable(eSensorType type, uint32_t intervalMs);
    bool isEnabled(eSensorType type);
    int32_t disable(eSensorType type);
    bool drain(eSensorType type, std::vector<SensorData>& samples);
    std::vector<SensorData> takeSamples();

    // Commands.
    int32_t command(eSensorType type, OisCustomCmd& command);
    int32_t execute(OisCustomCmd& command);
    void remember(const OisCustomCmd& command);
    void carryOut(OisCustomCmd& command);
    void switchBypass(const OisCustomCmd& command);
    void applyAccParams(const ois_acc_params& params);
    void endSession();
    void answerGain(OisCustomCmd& command);
    void storeGain(const ois::OisGain& gain);
    void serveFirmware(OisCustomCmd& command);
    void record(const OisCustomCmd& sent, const OisCustomCmd& answered, HubPhase phase, int32_t result,
                const Fate& fate);
    void recordCall(const char* name, std::vector<Field> fields, std::optional<int64_t> result,
                    const Fate& fate);

    Clock& mClock;
    Trace& mTrace;
    Faults& mFaults;
    const Motion& mMotion;
    KorvaChip mChip;
    std::atomic<bool> mPhoneAlive{true};
    std::atomic<int32_t> mProviders{0};

    std::atomic<bool> mEnabled{false};
    std::atomic<uint32_t> mIntervalMs{0};
    std::atomic<int> mReportedEnabled{-1};  // -1: the truth
    std::mutex mChannelMutex;
    int64_t mEnabledSinceUs = 0;
    int64_t mSamplesTaken = 0;
    SampleOrder mOrder = SampleOrder::kOldestFirst;
    std::optional<std::vector<SensorData>> mNextSamples;

    struct Relayed {
        std::mutex mutex;
        RelayedCommand command;
    };
    std::array<Relayed, kCommandIds> mRelayed;
    std::atomic<bool> mBringUp{false};  // the channel was enabled and the bring-up command has not come yet
    std::atomic<bool> mBypass{true};
    std::atomic<bool> mStreaming{false};
    ToldWord mTemperature;
    ToldWord mTemperatureStrategy;
    std::mutex mMutex;  // of the rest
    std::optional<ois::HubInit> mInit;
    ois::OisGain mGain{};
    FirmwareImage mFirmware = FirmwareImage::generate(kGenericFirmwareVersion);
    std::vector<FirmwareReport> mReports;
};

bool SensorHub::State::enable(eSensorType type, uint32_t intervalMs) {
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

bool SensorHub::State::isEnabled(eSensorType type) {
    const Fate fate = mFaults.consult(FaultPoint::kSensorEnabled);
    const int reported = mReportedEnabled.load(std::memory_order_relaxed);
    const bool enabled = type == ois::kOisSensorType && !fate.fails() &&
                         (reported < 0 ? mEnabled.load(std::memory_order_relaxed) : reported != 0);
    recordCall("isEnabled", {{"type", int64_t{type}}}, enabled ? 1 : 0, fate);
    return enabled;
}

int32_t SensorHub::State::disable(eSensorType type) {
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

bool SensorHub::State::drain(eSensorType type, std::vector<SensorData>& samples) {
    const Fate fate = mFaults.consult(FaultPoint::kSensorSamples);
    const bool works = type == ois::kOisSensorType && mEnabled && !fate.fails();
    samples = works ? takeSamples() : std::vector<SensorData>();
    if (fate.lost()) samples.clear();
    recordCall("getAllSensorData",
               {{"type", int64_t{type}}, {"samples", static_cast<int64_t>(samples.size())}}, works ? 1 : 0,
               fate);
    return works;
}

// One sample per interval since the channel was enabled.
std::vector<SensorData> SensorHub::State::takeSamples() {
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
    if (mOrder == SampleOrder::kNewestFirst) std::ranges::reverse(samples);
    return samples;
}

int32_t SensorHub::State::command(eSensorType type, OisCustomCmd& command) {
    if (type != ois::kOisSensorType) return -EINVAL;
    const bool bringUp = command.id == ois::idByte(HubCommand::kInit) && mBringUp.exchange(false);
    const HubPhase phase = bringUp ? HubPhase::kBringUp : HubPhase::kRunning;
    const HubCommandInfo* info = hubCommand(command, phase);
    const OisCustomCmd sent = command;
    const Fate fate =
        mFaults.consult(FaultPoint::kHubCommand, info == nullptr ? std::string_view() : info->name,
                        std::as_bytes(std::span(&sent, 1)));
    int32_t result = -fate.error();
    if (result == 0 && !fate.lost()) {
        result = execute(command);
        result = static_cast<int32_t>(fate.result().value_or(result));
        const size_t length = std::min<size_t>(command.outputLength, ois::kHubPayloadSize);
        fate.spoil(std::as_writable_bytes(std::span(command.payload)).first(length));
    }
    record(sent, command, phase, result, fate);
    return result;
}

int32_t SensorHub::State::execute(OisCustomCmd& command) {
    if (command.inputLength > ois::kHubPayloadSize || command.outputLength > ois::kHubPayloadSize)
        return -EINVAL;
    // The hub is another processor: its locks order nothing in the driver's threads.
    [[maybe_unused]] const InsideKernel inside;
    remember(command);
    carryOut(command);
    return 0;
}

void SensorHub::State::remember(const OisCustomCmd& command) {
    Relayed& relayed = mRelayed[command.id];
    const std::lock_guard lock(relayed.mutex);
    relayed.command.record = command;
    ++relayed.command.count;
}

void SensorHub::State::carryOut(OisCustomCmd& command) {
    switch (static_cast<HubCommand>(command.id)) {
        case HubCommand::kKorvaReadReg: {
            const auto access = inputOf<ois::HubRegisterAccess>(command);
            answer(command, mChip.readRegister(access.address, access.byteCount));
            break;
        }
        case HubCommand::kKorvaWriteReg: {
            const auto access = inputOf<ois::HubRegisterAccess>(command);
            mChip.writeRegister(access.address, access.byteCount, access.value);
            break;
        }
        case HubCommand::kSetMode: {
            const bool on = inputOf<int32_t>(command) != 0;
            mChip.writeRegister(address(Register::kStabilisationMode), 1,
                                on ? ois::korva::kModeOn : ois::korva::kModeOff);
            break;
        }
        case HubCommand::kWriteGain:
            storeGain(inputOf<ois::OisGain>(command));
            break;
        case HubCommand::kSetAccParams:
            applyAccParams(inputOf<ois_acc_params>(command));
            break;
        case HubCommand::kReadGain:
            answerGain(command);
            break;
        case HubCommand::kSetGyroOffset:
            mChip.calibrate();
            break;
        case HubCommand::kKorvaFwCmd:
            serveFirmware(command);
            break;
        case HubCommand::kInit:
            switchBypass(command);
            break;
        case HubCommand::kSetFixMode: {
            const auto fixMode = inputOf<ois::OisFixMode>(command);
            mChip.holdLens(fixMode.target_x, fixMode.target_y);
            break;
        }
        case HubCommand::kNotifyStream:
            mStreaming = inputOf<int32_t>(command) != 0;
            break;
        case HubCommand::kSetActiveOis: {
            // The driver sends two bytes, which leaves the angle out.
            const auto active = inputOf<ois_act_parameters>(command);
            constexpr int32_t kWithAngle = 2;
            mChip.setActive(active.enable != 0,
                            active.enable == kWithAngle ? double{std::bit_cast<float>(active.angle)} : 0);
            break;
        }
        case HubCommand::kSetTemperature:
            mTemperature.tell(inputOf<int32_t>(command));
            break;
        case HubCommand::kEndSession:
            endSession();
            break;
        case HubCommand::kSetTempStrategy:
            mTemperatureStrategy.tell(inputOf<int32_t>(command));
            break;
        case HubCommand::kOperation18:
        case HubCommand::kCapture:
        case HubCommand::kSetAfPosition:
        case HubCommand::kNoHubMeaning:
            break;  // remembered, and nothing else is known about them
    }
}

// The bring-up command carries the bypass switch; the same id with zeros alone ends the bypass.
void SensorHub::State::switchBypass(const OisCustomCmd& command) {
    const auto init = inputOf<ois::HubInit>(command);
    mBypass = init.bypass != 0;
    const std::lock_guard lock(mMutex);
    if (!mInit) mInit = init;
}

void SensorHub::State::applyAccParams(const ois_acc_params& params) {
    const float distance = params.enable != 0 ? params.distanceF : ois::korva::kAccDistanceOff;
    mChip.writeRegister(address(Register::kAccCompensation), 1, params.enable != 0 ? 1 : 0);
    mChip.writeRegister(address(Register::kAccObjectDistance), 4, std::bit_cast<uint32_t>(distance));
}

void SensorHub::State::endSession() {
    mStreaming = false;
    mBypass = true;
    mTemperature.forget();
    mTemperatureStrategy.forget();
    mChip.setActive(false, 0);
    mChip.writeRegister(address(Register::kStabilisationMode), 1, ois::korva::kModeOff);
    const std::lock_guard lock(mMutex);
    mInit.reset();
}

void SensorHub::State::answerGain(OisCustomCmd& command) {
    const uint32_t axis = inputOf<ois::OisGain>(command).axis;
    const std::lock_guard lock(mMutex);
    ois::OisGain gain = mGain;
    gain.axis = axis;
    answer(command, gain);
}

void SensorHub::State::storeGain(const ois::OisGain& gain) {
    const std::lock_guard lock(mMutex);
    if (gain.axis == 0) {
        mGain.valueXf = gain.valueXf;
        mGain.valueXi = gain.valueXi;
    } else {
        mGain.valueYf = gain.valueYf;
        mGain.valueYi = gain.valueYi;
    }
}

void SensorHub::State::serveFirmware(OisCustomCmd& command) {
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
            mChip.programBlock(request.argument1, image.subspan(at, length));
            break;
        }
        case ois::FirmwareOp::kCheckValue:
            answer(command, mFirmware.checkValue());
            break;
    }
}

void SensorHub::State::record(const OisCustomCmd& sent, const OisCustomCmd& answered, HubPhase phase,
                              int32_t result, const Fate& fate) {
    if (!mTrace.enabled()) return;
    const bool answers = !fate.lost() && result >= 0;
    Event event = hubEvent(sent, answers ? &answered : nullptr, phase);
    event.result = result;
    event.error = std::max(-result, 0);
    event.fault = fate.fault();
    mTrace.record(std::move(event));
}

void SensorHub::State::recordCall(const char* name, std::vector<Field> fields, std::optional<int64_t> result,
                                  const Fate& fate) {
    if (!mTrace.enabled()) return;
    mTrace.record({.kind = EventKind::kSensor,
                   .name = name,
                   .fields = std::move(fields),
                   .result = result,
                   .fault = fate.fault()});
}

// The driver's handle on the hub.
class SensorHub::Provider final : public SensorProvider {
  public:
    explicit Provider(std::shared_ptr<State> state) : mState(std::move(state)) { ++mState->mProviders; }
    ~Provider() override {
        --mState->mProviders;
        inPhone(false, [&] {
            mState->recordCall("release", {}, std::nullopt, {});
            return true;
        });
    }

    bool enableSensor(eSensorType type, uint32_t intervalMs) override {
        return inPhone(false, [&] { return mState->enable(type, intervalMs); });
    }
    bool isEnabled(eSensorType type) override {
        return inPhone(false, [&] { return mState->isEnabled(type); });
    }
    int32_t disableSensor(eSensorType type) override {
        return inPhone(kDisableFailed, [&] { return mState->disable(type); });
    }
    bool getAllSensorData(eSensorType type, std::vector<SensorData>& samples) override {
        return inPhone(false, [&] { return mState->drain(type, samples); });
    }
    int32_t customCmd(eSensorType type, void* record) override {
        return inPhone(-ENODEV, [&] {
            // The caller's bytes need no alignment.
            OisCustomCmd command;
            std::memcpy(&command, record, sizeof command);
            const int32_t result = mState->command(type, command);
            std::memcpy(record, &command, sizeof command);
            return result;
        });
    }

  private:
    // What the call returns, or `gone` once the hub's phone is. While a phone is in use it stays.
    template <typename Result, typename Call>
    Result inPhone(Result gone, Call call) const {
        const PhoneInUse phone;
        if (!phone || !mState->mPhoneAlive) return gone;
        mState->mClock.enter();
        return call();
    }

    const std::shared_ptr<State> mState;
};

SensorHub::SensorHub(Clock& clock, Trace& trace, Faults& faults, const Motion& motion)
    : mState(std::make_shared<State>(clock, trace, faults, motion)) {}

SensorHub::~SensorHub() {
    mState->mPhoneAlive = false;
}

void SensorHub::fit(const ModuleDescription& module) {
    mState->mChip.fit(module);
    const std::lock_guard lock(mState->mMutex);
    mState->mGain = module.gain;
    mState->mFirmware = FirmwareImage::generate(module.firmwareVersion + 1);
}

KorvaChip& SensorHub::chip() {
    return mState->mChip;
}

std::shared_ptr<SensorProvider> SensorHub::createProvider(const char* userName) {
    mState->mClock.enter();
    const Fate fate = mState->mFaults.consult(FaultPoint::kSensorProvider);
    const bool failed = fate.fails() || fate.lost();
    mState->recordCall("createInstance", {{"user", std::string(userName == nullptr ? "" : userName)}},
                       failed ? 0 : 1, fate);
    return failed ? nullptr : std::make_shared<Provider>(mState);
}

bool SensorHub::channelEnabled() const {
    return mState->mEnabled;
}

uint32_t SensorHub::intervalMs() const {
    return mState->mIntervalMs;
}

void SensorHub::setReportedEnabled(std::optional<bool> enabled) {
    mState->mReportedEnabled = enabled ? (*enabled ? 1 : 0) : -1;
}

void SensorHub::setSampleOrder(SampleOrder order) {
    const std::lock_guard lock(mState->mChannelMutex);
    mState->mOrder = order;
}

void SensorHub::setNextSamples(std::vector<SensorData> samples) {
    const std::lock_guard lock(mState->mChannelMutex);
    mState->mNextSamples = std::move(samples);
}

int32_t SensorHub::providers() const {
    return mState->mProviders;
}

std::optional<ois::HubInit> SensorHub::init() const {
    const std::lock_guard lock(mState->mMutex);
    return mState->mInit;
}

bool SensorHub::bypass() const {
    return mState->mBypass;
}

bool SensorHub::streaming() const {
    return mState->mStreaming;
}

std::optional<int32_t> SensorHub::temperature() const {
    return mState->mTemperature.get();
}

std::optional<int32_t> SensorHub::temperatureStrategy() const {
    return mState->mTemperatureStrategy.get();
}

ois::OisGain SensorHub::gain() const {
    const std::lock_guard lock(mState->mMutex);
    return mState->mGain;
}

RelayedCommand SensorHub::relayed(uint8_t commandId) const {
    State::Relayed& relayed = mState->mRelayed[commandId];
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
    const std::lock_guard lock(mState->mMutex);
    mState->mFirmware = std::move(image);
}

FirmwareImage SensorHub::firmware() const {
    const std::lock_guard lock(mState->mMutex);
    return mState->mFirmware;
}

std::vector<FirmwareReport> SensorHub::firmwareReports() const {
    const std::lock_guard lock(mState->mMutex);
    return mState->mReports;
}

}  // namespace phone

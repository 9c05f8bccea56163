#include "controllers/korva_chip.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <utility>

#include "controllers/lens_faults.h"
#include "faults/faults.h"
#include "modules/module_description.h"
#include "time/clock.h"
#include "trace/trace.h"
#include "wire/hub_commands.h"

namespace phone {

using ois::korva::address;
using ois::korva::Register;
using ois::korva::RegisterOf;

namespace {

constexpr size_t kRegisterSpace = 0x600;
constexpr uint8_t kErased = 0xff;
constexpr unsigned kBitsPerByte = 8;
constexpr uint8_t kStart = 1;  // written to a register that starts something

constexpr uint32_t kNewClockHz = 24000000;
constexpr uint32_t kGenericVersion = 1;
constexpr double kMetresPerMillimetre = 0.001;

// Beyond these the chip takes the phone for moving, or the offset for no offset: raw gyro counts.
constexpr double kStillDeviation = 6;
constexpr double kMaxOffset = 100;

// When something under way will be over.
using Due = std::optional<int64_t>;
bool take(Due& due, int64_t nowUs) {
    if (!due || *due > nowUs) return false;
    due.reset();
    return true;
}

// What survives a loss of power.
struct Flash {
    std::vector<uint8_t> firmware = std::vector<uint8_t>(ois::kFirmwareImageSize, kErased);
    // Set when a download was verified.
    bool firmwareGood = false;
    uint32_t firmwareVersion = 0;
    std::vector<uint8_t> otherData;
    std::array<int16_t, 2> gyroOffset{};
    uint32_t clockHz = kNewClockHz;
    uint32_t updatedClockHz = kNewClockHz;
};

// Work that takes time.
struct Underway {
    Due idle, restart, calibration, checkValue, flashWrite, clock, verify;
    int64_t flashBusyUntilUs = 0;
};

}  // namespace

struct KorvaChip::State {
    State(Clock& clock, Trace& trace, const Motion& motion, Faults& faults)
        : mClock(clock), mTrace(trace), mMotion(motion), mFaults(faults), mLensFaults(faults) {
        install(FirmwareImage::generate(kGenericVersion));
        useStabiliser({});
        powerOn();
    }

    // Register file.
    uint32_t load(uint32_t at, uint32_t byteCount) const;
    void store(uint32_t at, uint32_t byteCount, uint32_t value);
    template <typename Value>
    void set(RegisterOf<Value> reg, std::type_identity_t<Value> value) {
        store(reg.address, sizeof value, ois::korva::toWord(value));
    }
    template <typename Value>
    Value get(RegisterOf<Value> reg) const {
        return ois::korva::fromWord<Value>(load(reg.address, sizeof(Value)));
    }
    static bool writable(uint32_t at);
    void written(uint32_t at, uint32_t value);

    // Behaviour.
    void powerOn();
    void settle();
    void requestIdle();
    void becomeIdle();
    void restart();
    void startCalibration();
    void finishCalibration(int64_t doneUs);
    uint8_t measureOffset(int64_t doneUs, uint8_t forcedBits);
    void finishFlashWrite();
    void openDownload();
    void program(uint32_t at, std::span<const uint8_t> block);
    void startVerify();
    void finishVerify();
    void updateLoop();
    void updateAccCompensation();
    void install(const FirmwareImage& image);
    void useStabiliser(const StabiliserSettings& settings);

    KorvaState state() const { return static_cast<KorvaState>(get(Register::kState)); }
    void setState(KorvaState state) { set(Register::kState, static_cast<uint8_t>(state)); }
    void addUpdateStatus(uint32_t bits) {
        set(Register::kUpdateStatus, static_cast<uint16_t>(get(Register::kUpdateStatus) | bits));
    }
    // Whether a fault of the chip strikes here; `text` says in the trace what it does.
    Fate consult(std::string_view name, std::string text);
    bool strikesBlock(std::string_view name, uint32_t number, std::string text);
    Fate noted(Fate fate, std::string text) const;

    Clock& mClock;
    Trace& mTrace;
    const Motion& mMotion;
    Faults& mFaults;
    LensFaults mLensFaults;
    std::mutex mMutex;
    std::array<uint8_t, kRegisterSpace> mRegisters{};
    Flash mFlash;
    Underway mUnderway;
    KorvaTiming mTiming;
    uint32_t mStateReads = 0;            // since the last idle request
    std::optional<int64_t> mIdleOnRead;  // the read that finds the chip idle
    bool mClockUpdated = false;
    bool mDownloadOpen = false;
    bool mHubCalibration = false;  // asked for by the hub: the chip goes on as before afterwards
    bool mLensHeld = false;
    bool mActive = false;
    uint32_t mPendingCheckValue = 0;
    std::unique_ptr<Stabiliser> mStabiliser;
};

uint32_t KorvaChip::State::load(uint32_t at, uint32_t byteCount) const {
    uint32_t value = 0;
    for (uint32_t i = 0; i < std::min<uint32_t>(byteCount, sizeof value); ++i) {
        const uint64_t position = uint64_t{at} + i;
        if (position < mRegisters.size()) value |= uint32_t{mRegisters[position]} << (kBitsPerByte * i);
    }
    return value;
}

void KorvaChip::State::store(uint32_t at, uint32_t byteCount, uint32_t value) {
    for (uint32_t i = 0; i < std::min<uint32_t>(byteCount, sizeof value); ++i) {
        const uint64_t position = uint64_t{at} + i;
        if (position < mRegisters.size())
            mRegisters[position] = static_cast<uint8_t>(value >> (kBitsPerByte * i));
    }
}

bool KorvaChip::State::writable(uint32_t at) {
    switch (at) {
        case address(Register::kState):
        case address(Register::kStatus):
        case address(Register::kUpdateStatus):
        case address(Register::kFlashCheckValue):
        case address(Register::kFirmwareVersion):
        case address(Register::kClock):
            return false;
        default:
            return true;
    }
}

void KorvaChip::State::written(uint32_t at, uint32_t value) {
    const int64_t now = mClock.nowUs();
    const uint32_t lowByte = value & UINT8_MAX;
    switch (at) {
        case address(Register::kControl):
            if (lowByte == ois::korva::kControlRestart)
                restart();
            else
                requestIdle();
            break;
        case address(Register::kStabilisationMode):
            mLensHeld = false;
            mUnderway.idle.reset();
            if (mFlash.firmwareGood && !mUnderway.restart) setState(KorvaState::kRunning);
            break;
        case address(Register::kFlashWrite):
            set(Register::kStatus, korva_status::kBusy);
            mUnderway.flashWrite = now + mTiming.flashWriteUs;
            break;
        case address(Register::kFlashDownload):
            if (lowByte == ois::korva::kFlashDownloadOpen)
                openDownload();
            else
                mDownloadOpen = false;
            break;
        case address(Register::kImageCheckValue):
            startVerify();
            break;
        case address(Register::kApplyCommand):
            if (lowByte == ois::korva::kApplyCommandValue &&
                get(Register::kApplyUnlock) == ois::korva::kApplyUnlockValue) {
                mUnderway.clock = now + mTiming.clockUs;
            }
            break;
        case address(Register::kGyroCalibration):
            if (lowByte == kStart) startCalibration();
            break;
        case address(Register::kFlashCheckRequest):
            mUnderway.checkValue = now + mTiming.checkValueUs;
            break;
        case address(Register::kAccCompensation):
        case address(Register::kAccObjectDistance):
            updateAccCompensation();
            break;
        default:
            break;
    }
    updateLoop();
}

void KorvaChip::State::powerOn() {
    mRegisters.fill(0);
    mUnderway = {};
    mDownloadOpen = mHubCalibration = mLensHeld = mActive = false;
    set(Register::kStabilisationMode, ois::korva::kModeOff);
    set(Register::kAccObjectDistance, ois::korva::kAccDistanceOff);
    set(Register::kFirmwareVersion, mFlash.firmwareGood ? mFlash.firmwareVersion : 0);
    set(Register::kClock, mFlash.clockHz);
    restart();
}

// Brings the registers to where they are by now.
void KorvaChip::State::settle() {
    const int64_t now = mClock.nowUs();
    if (take(mUnderway.restart, now))
        setState(mFlash.firmwareGood ? KorvaState::kRunning : KorvaState::kIdle);
    if (take(mUnderway.idle, now)) becomeIdle();
    const int64_t calibratedUs = mUnderway.calibration.value_or(now);
    if (take(mUnderway.calibration, now)) finishCalibration(calibratedUs);
    if (take(mUnderway.checkValue, now)) {
        set(Register::kFlashCheckRequest, 0);
        set(Register::kFlashCheckValue, korvaWordSum(mFlash.otherData));
    }
    if (take(mUnderway.flashWrite, now)) finishFlashWrite();
    if (take(mUnderway.clock, now)) {
        mFlash.clockHz = mFlash.updatedClockHz;
        mClockUpdated = true;
        set(Register::kClock, mFlash.clockHz);
        set(Register::kApplyUnlock, 0);
        set(Register::kApplyCommand, 0);
    }
    if (take(mUnderway.verify, now)) finishVerify();
    updateLoop();
}

void KorvaChip::State::requestIdle() {
    mStateReads = 0;
    mIdleOnRead.reset();
    if (consult("never-idle", "idle request ignored")) {
        mHubCalibration = false;
        return;
    }
    if (const Fate fate = consult("idle-on-read", "idle request delayed")) {
        mIdleOnRead = fate.value();
        setState(KorvaState::kRunning);
        return;
    }
    if (state() != KorvaState::kIdle) mUnderway.idle = mClock.nowUs() + mTiming.idleUs;
}

void KorvaChip::State::becomeIdle() {
    setState(KorvaState::kIdle);
    mUnderway.restart.reset();
    if (mHubCalibration) startCalibration();
}

// The mode stays; what calibration measured comes from flash again.
void KorvaChip::State::restart() {
    setState(KorvaState::kStarting);
    mUnderway.idle.reset();
    mUnderway.calibration.reset();
    set(Register::kGyroCalibration, 0);
    mUnderway.restart = mClock.nowUs() + mTiming.restartUs;
    mDownloadOpen = false;
    set(Register::kStatus, 0);
    set(Register::kGyroOffsetX, mFlash.gyroOffset[0]);
    set(Register::kGyroOffsetY, mFlash.gyroOffset[1]);
    mStabiliser->setGyroOffset(mFlash.gyroOffset[0], mFlash.gyroOffset[1]);
}

void KorvaChip::State::startCalibration() {
    set(Register::kGyroCalibration, kStart);
    set(Register::kStatus, 0);
    if (consult("calibration-never-done", "calibration will not end")) return;
    if (state() == KorvaState::kIdle && mFlash.firmwareGood) {
        mUnderway.calibration = mClock.nowUs() + mTiming.calibrationUs;
        return;
    }
    set(Register::kGyroCalibration, 0);
    set(Register::kStatus, korva_status::kRefused);
    mHubCalibration = false;
}

void KorvaChip::State::finishCalibration(int64_t doneUs) {
    set(Register::kGyroCalibration, 0);
    const Fate fate = consult("calibration-error", "calibration ends with these bits");
    const auto forced = static_cast<uint8_t>(fate ? fate.value() : 0);
    set(Register::kStatus, measureOffset(doneUs, forced) | forced);
    if (std::exchange(mHubCalibration, false)) setState(KorvaState::kRunning);
}

// The status bits; with none of them and none forced, the offset is in force.
uint8_t KorvaChip::State::measureOffset(int64_t doneUs, uint8_t forcedBits) {
    const Stabiliser::GyroMeasurement gyro = mStabiliser->measureGyro(doneUs, mTiming.calibrationUs);
    uint8_t bits = 0;
    if (gyro.deviationRaw[0] > kStillDeviation) bits |= korva_status::kMovedX;
    if (gyro.deviationRaw[1] > kStillDeviation) bits |= korva_status::kMovedY;
    for (const double mean : gyro.meanRaw) {
        if (std::abs(mean) > kMaxOffset) bits |= korva_status::kRefused;
    }
    if ((bits | forcedBits) & ois::korva::kCalibrationErrorBits) return bits;
    const auto x = static_cast<int16_t>(std::lround(gyro.meanRaw[0]));
    const auto y = static_cast<int16_t>(std::lround(gyro.meanRaw[1]));
    set(Register::kGyroOffsetX, static_cast<uint16_t>(x));
    set(Register::kGyroOffsetY, static_cast<uint16_t>(y));
    mStabiliser->advance(doneUs);
    mStabiliser->setGyroOffset(x, y);
    return bits;
}

void KorvaChip::State::finishFlashWrite() {
    set(Register::kFlashWrite, 0);
    const Fate fate = consult("flash-write-error", "flash write failed");
    if (fate || state() != KorvaState::kIdle || !mFlash.firmwareGood) {
        set(Register::kStatus, korva_status::kFlashWrite);
        return;
    }
    set(Register::kStatus, 0);
    mFlash.gyroOffset = {get(Register::kGyroOffsetX), get(Register::kGyroOffsetY)};
    if (consult("flash-data-changed", "flash write damaged other data")) {
        if (mFlash.otherData.empty()) mFlash.otherData.resize(2);
        mFlash.otherData[0] ^= 1;
    }
}

void KorvaChip::State::openDownload() {
    set(Register::kUpdateStatus, 0);
    if (state() != KorvaState::kIdle) {
        addUpdateStatus(korva_update::kNotOpen);
        return;
    }
    mDownloadOpen = true;
    mFlash.firmwareGood = false;
    std::ranges::fill(mFlash.firmware, kErased);
    set(Register::kFirmwareVersion, 0);
    mUnderway.flashBusyUntilUs = mClock.nowUs() + mTiming.eraseUs;
}

void KorvaChip::State::program(uint32_t at, std::span<const uint8_t> block) {
    const uint32_t number = at / ois::kFirmwareBlockSize;
    if (strikesBlock("power-cut", number, "power lost")) return powerOn();
    if (strikesBlock("block-lost", number, "block lost")) return;
    if (!mDownloadOpen) return addUpdateStatus(korva_update::kNotOpen);
    if (at >= mFlash.firmware.size() || block.size() > mFlash.firmware.size() - at) {
        return addUpdateStatus(korva_update::kAddress);
    }
    if (mClock.nowUs() < mUnderway.flashBusyUntilUs) return addUpdateStatus(korva_update::kTooEarly);

    std::ranges::copy(block, mFlash.firmware.begin() + at);
    mUnderway.flashBusyUntilUs = mClock.nowUs() + mTiming.blockUs;
    if (!block.empty() && strikesBlock("block-corrupted", number, "block corrupted"))
        mFlash.firmware[at] ^= 1;
    if (const Fate fate = consult("download-error", "block leaves error bits")) {
        addUpdateStatus(static_cast<uint16_t>(fate.value()));
    }
}

void KorvaChip::State::startVerify() {
    const uint32_t written = get(Register::kImageCheckValue);
    if ((written & ois::korva::kImageCheckValid) == 0) return;
    if (!mDownloadOpen) return addUpdateStatus(korva_update::kNotOpen);
    mPendingCheckValue = written & UINT16_MAX;
    addUpdateStatus(korva_update::kBusy);
    mUnderway.verify = std::max(mClock.nowUs(), mUnderway.flashBusyUntilUs) + mTiming.verifyUs;
}

void KorvaChip::State::finishVerify() {
    if (!std::exchange(mDownloadOpen, false)) return;
    set(Register::kFlashDownload, 0);
    const Fate refused = consult("check-value-wrong", "check value refused");
    if (refused || korvaWordSum(mFlash.firmware) != mPendingCheckValue) {
        set(Register::kUpdateStatus, korva_update::kCheckValue);
        return;
    }
    set(Register::kUpdateStatus, 0);
    mFlash.firmwareGood = true;
    mFlash.firmwareVersion = FirmwareImage::fromBytes(mFlash.firmware).version();
    if (consult("version-mismatch", "reports the version below the image's")) --mFlash.firmwareVersion;
    set(Register::kFirmwareVersion, mFlash.firmwareVersion);
}

// Lets the stabilisation loop do what the registers say.
void KorvaChip::State::updateLoop() {
    using Mode = StabiliserMode;
    const bool running = state() == KorvaState::kRunning && mFlash.firmwareGood;
    const bool on = get(Register::kStabilisationMode) == ois::korva::kModeOn;
    Mode mode = Mode::kOff;
    if (running && on) mode = mActive ? Mode::kActive : Mode::kOn;
    if (running && mLensHeld) mode = Mode::kFixed;
    if (mode == mStabiliser->mode()) return;
    mStabiliser->advance(mClock.nowUs());
    mStabiliser->setMode(mode);
    mLensFaults.apply(*mStabiliser);
}

void KorvaChip::State::updateAccCompensation() {
    const auto distanceMm = get(Register::kAccObjectDistance);
    mStabiliser->advance(mClock.nowUs());
    mStabiliser->setAccCompensation(get(Register::kAccCompensation) != 0, distanceMm * kMetresPerMillimetre);
}

void KorvaChip::State::install(const FirmwareImage& image) {
    mFlash.firmware.assign(image.bytes().begin(), image.bytes().end());
    mFlash.firmwareGood = true;
    mFlash.firmwareVersion = image.version();
}

void KorvaChip::State::useStabiliser(const StabiliserSettings& settings) {
    mStabiliser = std::make_unique<Stabiliser>(mMotion, settings);
}

Fate KorvaChip::State::noted(Fate fate, std::string text) const {
    if (fate && mTrace.enabled()) {
        mTrace.record(
            {.kind = EventKind::kNote, .name = "korva-chip", .text = std::move(text), .fault = fate.fault()});
    }
    return fate;
}

Fate KorvaChip::State::consult(std::string_view name, std::string text) {
    return noted(mFaults.consult(FaultPoint::kChip, name), std::move(text));
}

bool KorvaChip::State::strikesBlock(std::string_view name, uint32_t number, std::string text) {
    return static_cast<bool>(
        noted(mFaults.consult(FaultPoint::kChip, name, int64_t{number}), std::move(text)));
}

KorvaChip::KorvaChip(Clock& clock, Trace& trace, const Motion& motion, Faults& faults)
    : mState(std::make_unique<State>(clock, trace, motion, faults)) {}

KorvaChip::~KorvaChip() = default;

void KorvaChip::fit(const ModuleDescription& module) {
    const std::lock_guard lock(mState->mMutex);
    mState->mFlash = {};
    mState->mClockUpdated = false;
    mState->mFlash.otherData = module.flashData;
    if (module.clockHz != 0) mState->mFlash.clockHz = module.clockHz;
    if (mState->mFlash.clockHz != ois::korva::kOldClockHz)
        mState->mFlash.updatedClockHz = mState->mFlash.clockHz;
    mState->install(FirmwareImage::generate(module.firmwareVersion));
    mState->useStabiliser(module.stabiliser);
    mState->powerOn();
}

uint32_t KorvaChip::readRegister(uint32_t at, uint32_t byteCount) {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    if (at == address(Register::kState)) {
        ++mState->mStateReads;
        if (mState->mIdleOnRead == mState->mStateReads) mState->becomeIdle();
    }
    if (at == address(Register::kClock) && !mState->mClockUpdated &&
        mState->consult("old-clock", "runs from the old clock")) {
        mState->mFlash.clockHz = ois::korva::kOldClockHz;
        mState->set(Register::kClock, ois::korva::kOldClockHz);
    }
    return mState->load(at, byteCount);
}

void KorvaChip::writeRegister(uint32_t at, uint32_t byteCount, uint32_t value) {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    if (byteCount == 0 || !State::writable(at)) return;
    mState->store(at, byteCount, value);
    mState->written(at, value);
}

void KorvaChip::programBlock(uint32_t at, std::span<const uint8_t> block) {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    mState->program(at, block);
    mState->updateLoop();
}

void KorvaChip::holdLens(int32_t targetHallX, int32_t targetHallY) {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    mState->mLensHeld = true;
    mState->mStabiliser->advance(mState->mClock.nowUs());
    mState->mStabiliser->setFixedTarget(targetHallX, targetHallY);
    mState->mLensFaults.apply(*mState->mStabiliser);
    mState->updateLoop();
}

void KorvaChip::setActive(bool active, double angle) {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    mState->mActive = active;
    mState->mStabiliser->advance(mState->mClock.nowUs());
    mState->mStabiliser->setActiveAngle(angle);
    mState->updateLoop();
}

void KorvaChip::calibrate() {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    mState->mHubCalibration = true;
    if (mState->state() == KorvaState::kIdle) {
        mState->startCalibration();
    } else {
        mState->requestIdle();
    }
}

uint32_t KorvaChip::peek(uint32_t at, uint32_t byteCount) {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    return mState->load(at, byteCount);
}

void KorvaChip::poke(uint32_t at, uint32_t byteCount, uint32_t value) {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    mState->store(at, byteCount, value);
    if (at == address(Register::kClock)) mState->mFlash.clockHz = value;
    mState->updateLoop();
}

KorvaState KorvaChip::state() {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    return mState->state();
}

bool KorvaChip::downloadOpen() {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    return mState->mDownloadOpen;
}

bool KorvaChip::hasFirmware() {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    return mState->mFlash.firmwareGood;
}

std::vector<uint8_t> KorvaChip::flash() {
    const std::lock_guard lock(mState->mMutex);
    return mState->mFlash.firmware;
}

std::array<int16_t, 2> KorvaChip::savedGyroOffset() {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    return mState->mFlash.gyroOffset;
}

void KorvaChip::powerCycle() {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    mState->powerOn();
}

void KorvaChip::installFirmware(const FirmwareImage& image) {
    const std::lock_guard lock(mState->mMutex);
    mState->settle();
    mState->install(image);
    mState->set(Register::kFirmwareVersion, image.version());
}

void KorvaChip::setTiming(const KorvaTiming& timing) {
    const std::lock_guard lock(mState->mMutex);
    mState->mTiming = timing;
}

KorvaTiming KorvaChip::timing() const {
    const std::lock_guard lock(mState->mMutex);
    return mState->mTiming;
}

Stabiliser& KorvaChip::stabiliser() {
    return *mState->mStabiliser;
}

}  // namespace phone

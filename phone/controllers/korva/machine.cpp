#include "controllers/korva/machine.h"

#include <utility>

#include "modules/module_description.h"
#include "time/clock.h"
#include "trace/trace.h"

namespace phone {

using ois::korva::address;

namespace {

constexpr uint32_t kGenericVersion = 1;
constexpr double kMetresPerMillimetre = 0.001;

bool writable(uint32_t at) {
    using ois::korva::Register;
    for (const uint32_t readOnly : {address(Register::kState), address(Register::kStatus),
                                    address(Register::kUpdateStatus), address(Register::kFlashCheckValue),
                                    address(Register::kFirmwareVersion), address(Register::kClock)}) {
        if (at == readOnly) return false;
    }
    return true;
}

}  // namespace

KorvaMachine::KorvaMachine(Clock& clock, Trace& trace, const Motion& motion, Faults& faults)
    : stabiliser(std::make_unique<Stabiliser>(motion, StabiliserSettings{})),
      mClock(clock),
      mTrace(trace),
      mMotion(motion),
      mFaults(faults),
      mLensFaults(faults) {
    install(FirmwareImage::generate(kGenericVersion));
    powerOn();
}

void KorvaMachine::fit(const ModuleDescription& module) {
    flash = KorvaFlash();
    flash.otherData = module.flashData;
    if (module.clockHz != 0) flash.clockHz = module.clockHz;
    if (flash.clockHz != ois::korva::kOldClockHz) flash.updatedClockHz = flash.clockHz;
    mClockUpdated = false;
    install(FirmwareImage::generate(module.firmwareVersion));
    stabiliser = std::make_unique<Stabiliser>(mMotion, module.stabiliser);
    powerOn();
}

void KorvaMachine::install(const FirmwareImage& image) {
    flash.firmware.assign(image.bytes().begin(), image.bytes().end());
    flash.firmwareGood = true;
    flash.firmwareVersion = image.version();
    registers.set(Register::kFirmwareVersion, image.version());
}

void KorvaMachine::powerOn() {
    registers.clear();
    mUnderway = {};
    mDownloadOpen = mHubCalibration = mLensHeld = mActive = false;
    registers.set(Register::kStabilisationMode, ois::korva::kModeOff);
    registers.set(Register::kAccObjectDistance, ois::korva::kAccDistanceOff);
    registers.set(Register::kFirmwareVersion, flash.firmwareGood ? flash.firmwareVersion : 0);
    registers.set(Register::kClock, flash.clockHz);
    restart();
}

uint32_t KorvaMachine::read(uint32_t at, uint32_t byteCount) {
    if (at == address(Register::kState)) {
        ++mStateReads;
        if (mIdleOnRead == mStateReads) becomeIdle();
    }
    if (at == address(Register::kClock) && !mClockUpdated &&
        consult("old-clock", "runs from the old clock")) {
        flash.clockHz = ois::korva::kOldClockHz;
        registers.set(Register::kClock, ois::korva::kOldClockHz);
    }
    return registers.load(at, byteCount);
}

void KorvaMachine::write(uint32_t at, uint32_t byteCount, uint32_t value) {
    if (byteCount == 0 || !writable(at)) return;
    registers.store(at, byteCount, value);
    react(at, static_cast<uint8_t>(value));
}

void KorvaMachine::poke(uint32_t at, uint32_t byteCount, uint32_t value) {
    registers.store(at, byteCount, value);
    if (at == address(Register::kClock)) flash.clockHz = value;
}

// What writing to a register starts.
void KorvaMachine::react(uint32_t at, uint8_t lowByte) {
    switch (at) {
        case address(Register::kControl):
            return lowByte == ois::korva::kControlRestart ? restart() : requestIdle();
        case address(Register::kStabilisationMode):
            return selectMode();
        case address(Register::kFlashWrite):
            return startFlashWrite();
        case address(Register::kFlashDownload):
            if (lowByte == ois::korva::kFlashDownloadOpen) return openDownload();
            mDownloadOpen = false;
            return;
        case address(Register::kImageCheckValue):
            return startVerify();
        case address(Register::kApplyCommand):
            return applyClock();
        case address(Register::kGyroCalibration):
            if (lowByte == kStart) startCalibration();
            return;
        case address(Register::kFlashCheckRequest):
            mUnderway.checkValue = dueIn(mTiming.checkValueUs);
            return;
        case address(Register::kAccCompensation):
        case address(Register::kAccObjectDistance):
            return updateAccCompensation();
        default:
            return;
    }
}

int64_t KorvaMachine::dueIn(int64_t us) const {
    return mClock.nowUs() + us;
}

bool KorvaMachine::take(Due& due) const {
    if (!due || *due > mClock.nowUs()) return false;
    due.reset();
    return true;
}

void KorvaMachine::settle() {
    if (take(mUnderway.restart)) setState(flash.firmwareGood ? KorvaState::kRunning : KorvaState::kIdle);
    if (take(mUnderway.idle)) becomeIdle();
    const int64_t calibratedUs = mUnderway.calibration.value_or(0);
    if (take(mUnderway.calibration)) finishCalibration(calibratedUs);
    if (take(mUnderway.checkValue)) finishFlashCheck();
    if (take(mUnderway.flashWrite)) finishFlashWrite();
    if (take(mUnderway.clock)) finishClock();
    if (take(mUnderway.verify)) finishVerify();
}

// The mode stays; what calibration measured comes from flash again.
void KorvaMachine::restart() {
    setState(KorvaState::kStarting);
    mUnderway.idle.reset();
    mUnderway.calibration.reset();
    registers.set(Register::kGyroCalibration, 0);
    mUnderway.restart = dueIn(mTiming.restartUs);
    mDownloadOpen = false;
    registers.set(Register::kStatus, 0);
    registers.set(Register::kGyroOffsetX, flash.gyroOffset[0]);
    registers.set(Register::kGyroOffsetY, flash.gyroOffset[1]);
    stabiliser->setGyroOffset(flash.gyroOffset[0], flash.gyroOffset[1]);
}

void KorvaMachine::requestIdle() {
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
    if (state() != KorvaState::kIdle) mUnderway.idle = dueIn(mTiming.idleUs);
}

void KorvaMachine::becomeIdle() {
    setState(KorvaState::kIdle);
    mUnderway.restart.reset();
    if (mHubCalibration) startCalibration();
}

void KorvaMachine::selectMode() {
    mLensHeld = false;
    mUnderway.idle.reset();
    if (flash.firmwareGood && !mUnderway.restart) setState(KorvaState::kRunning);
}

void KorvaMachine::applyClock() {
    if (registers.get(Register::kApplyCommand) == ois::korva::kApplyCommandValue &&
        registers.get(Register::kApplyUnlock) == ois::korva::kApplyUnlockValue) {
        mUnderway.clock = dueIn(mTiming.clockUs);
    }
}

void KorvaMachine::finishClock() {
    flash.clockHz = flash.updatedClockHz;
    mClockUpdated = true;
    registers.set(Register::kClock, flash.clockHz);
    registers.set(Register::kApplyUnlock, 0);
    registers.set(Register::kApplyCommand, 0);
}

void KorvaMachine::holdLens(int32_t targetHallX, int32_t targetHallY) {
    mLensHeld = mLensMoved = true;
    stabiliser->advance(mClock.nowUs());
    stabiliser->setFixedTarget(targetHallX, targetHallY);
}

void KorvaMachine::setActive(bool active, double angle) {
    mActive = active;
    stabiliser->advance(mClock.nowUs());
    stabiliser->setActiveAngle(angle);
}

void KorvaMachine::updateLoop() {
    using Mode = StabiliserMode;
    const bool running = state() == KorvaState::kRunning && flash.firmwareGood;
    const bool on = registers.get(Register::kStabilisationMode) == ois::korva::kModeOn;
    Mode mode = Mode::kOff;
    if (running && on) mode = mActive ? Mode::kActive : Mode::kOn;
    if (running && mLensHeld) mode = Mode::kFixed;
    const bool moved = std::exchange(mLensMoved, false);
    if (mode == stabiliser->mode() && !moved) return;
    stabiliser->advance(mClock.nowUs());
    stabiliser->setMode(mode);
    mLensFaults.apply(*stabiliser);
}

void KorvaMachine::updateAccCompensation() {
    const auto distanceMm = registers.get(Register::kAccObjectDistance);
    stabiliser->advance(mClock.nowUs());
    stabiliser->setAccCompensation(registers.get(Register::kAccCompensation) != 0,
                                   distanceMm * kMetresPerMillimetre);
}

Fate KorvaMachine::consult(std::string_view name, std::string text, std::optional<int64_t> block) {
    Fate fate =
        block ? mFaults.consult(FaultPoint::kChip, name, *block) : mFaults.consult(FaultPoint::kChip, name);
    if (fate && mTrace.enabled()) {
        mTrace.record(
            {.kind = EventKind::kNote, .name = "korva-chip", .text = std::move(text), .fault = fate.fault()});
    }
    return fate;
}

}  // namespace phone

// Procedures of the idle chip: calibration of the gyro offset, and the flash that keeps it.

#include <cmath>
#include <utility>

#include "controllers/korva/machine.h"

namespace phone {

namespace {

// Beyond these the chip takes the phone for moving, or the offset for no offset: raw gyro counts.
constexpr double kStillDeviation = 6;
constexpr double kMaxOffset = 100;

}  // namespace

void KorvaMachine::calibrate() {
    mHubCalibration = true;
    if (state() == KorvaState::kIdle) {
        startCalibration();
    } else {
        requestIdle();
    }
}

void KorvaMachine::startCalibration() {
    registers.set(Register::kGyroCalibration, kStart);
    registers.set(Register::kStatus, 0);
    if (consult("calibration-never-done", "calibration will not end")) return;
    if (state() == KorvaState::kIdle && flash.firmwareGood) {
        mUnderway.calibration = dueIn(mTiming.calibrationUs);
        return;
    }
    registers.set(Register::kGyroCalibration, 0);
    registers.set(Register::kStatus, korva_status::kRefused);
    mHubCalibration = false;
}

void KorvaMachine::finishCalibration(int64_t doneUs) {
    registers.set(Register::kGyroCalibration, 0);
    const Fate fate = consult("calibration-error", "calibration ends with these bits");
    const auto forced = static_cast<uint8_t>(fate ? fate.value() : 0);
    registers.set(Register::kStatus, measureOffset(doneUs, forced) | forced);
    if (std::exchange(mHubCalibration, false)) setState(KorvaState::kRunning);
}

// The status bits; with none of them and none forced, the offset is in force.
uint8_t KorvaMachine::measureOffset(int64_t doneUs, uint8_t forcedBits) {
    const Stabiliser::GyroMeasurement gyro = stabiliser->measureGyro(doneUs, mTiming.calibrationUs);
    uint8_t bits = 0;
    if (gyro.deviationRaw[0] > kStillDeviation) bits |= korva_status::kMovedX;
    if (gyro.deviationRaw[1] > kStillDeviation) bits |= korva_status::kMovedY;
    for (const double mean : gyro.meanRaw) {
        if (std::abs(mean) > kMaxOffset) bits |= korva_status::kRefused;
    }
    if ((bits | forcedBits) & ois::korva::kCalibrationErrorBits) return bits;
    const auto x = static_cast<int16_t>(std::lround(gyro.meanRaw[0]));
    const auto y = static_cast<int16_t>(std::lround(gyro.meanRaw[1]));
    registers.set(Register::kGyroOffsetX, x);
    registers.set(Register::kGyroOffsetY, y);
    stabiliser->advance(doneUs);
    stabiliser->setGyroOffset(x, y);
    return bits;
}

void KorvaMachine::finishFlashWrite() {
    registers.set(Register::kFlashWrite, 0);
    const Fate fate = consult("flash-write-error", "flash write failed");
    if (fate || state() != KorvaState::kIdle || !flash.firmwareGood) {
        registers.set(Register::kStatus, korva_status::kFlashWrite);
        return;
    }
    registers.set(Register::kStatus, 0);
    flash.gyroOffset = {registers.get(Register::kGyroOffsetX), registers.get(Register::kGyroOffsetY)};
    if (consult("flash-data-changed", "flash write damaged other data")) {
        if (flash.otherData.empty()) flash.otherData.resize(2);
        flash.otherData[0] ^= 1;
    }
}

void KorvaMachine::startFlashWrite() {
    registers.set(Register::kStatus, korva_status::kBusy);
    mUnderway.flashWrite = dueIn(mTiming.flashWriteUs);
}

void KorvaMachine::finishFlashCheck() {
    registers.set(Register::kFlashCheckRequest, 0);
    registers.set(Register::kFlashCheckValue, korvaWordSum(flash.otherData));
}

}  // namespace phone

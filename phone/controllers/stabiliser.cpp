#include "controllers/stabiliser.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace phone {
namespace {

constexpr int64_t kStepUs = kMotionStepUs;
constexpr double kStepS = kMotionStepS;
constexpr double kDegPerRad = 180 / std::numbers::pi;
constexpr size_t kX = 0;
constexpr size_t kY = 1;

// Pan handling: from this part of the limit on the integrator leaks more, and at the limit by this rate in
// 1/s on top.
constexpr double kPanStart = 0.6;
constexpr double kPanLeak = 20;
constexpr double kPanLeakGrowth = 2;  // the way beyond the start at which it grows no more, the limit being 1

// Time constants after which what was before no longer shows: e^-18 of a whole limit is far below a hall
// count.
constexpr double kSettleTimeConstants = 18;
constexpr double kMinHighPassHz = 0.05;

constexpr double kGravityTimeConstantS = 0.5;
constexpr double kShiftHighPassHz = 0.5;
constexpr double kMinDistanceM = 0.03;

constexpr double kSluggishPart = 0.1;   // of the bandwidth
constexpr double kOffCentrePart = 0.2;  // of the limit

// Sources of noise, each with a sequence of its own.
enum NoiseChannel : uint64_t { kGyroNoise = 0, kAccNoise = 3, kHallNoise = 6, kNoiseChannels = 8 };

uint64_t scrambled(uint64_t value) {
    // The finaliser of SplitMix64.
    value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27U)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31U);
}

// Near-Gaussian noise of RMS 1, a function of its arguments alone: reading a moment twice gives the same.
double noise(uint64_t seed, int64_t step, uint64_t channel) {
    constexpr uint64_t kOddConstant = 0x9E3779B97F4A7C15U;  // SplitMix64's increment
    const uint64_t position = static_cast<uint64_t>(step) * kNoiseChannels + channel + 1;
    const uint64_t bits = scrambled(scrambled(seed + kOddConstant) + position * kOddConstant);
    // Four uniform values of 16 bits each; their sum has the variance 4/12.
    uint64_t sum = 0;
    for (unsigned shift = 0; shift < 64; shift += 16) sum += (bits >> shift) & 0xFFFFU;
    const double centred = (static_cast<double>(sum) + 2) / 65536.0 - 2;
    return centred * std::numbers::sqrt3;
}

int16_t counts(double value) {
    constexpr double kLow = std::numeric_limits<int16_t>::min();
    constexpr double kHigh = std::numeric_limits<int16_t>::max();
    // Not std::lround, which is a call, six times a step.
    return static_cast<int16_t>(std::clamp(value, kLow, kHigh) + std::copysign(0.5, value));
}

int64_t stepAt(int64_t timeUs) {
    return std::max<int64_t>(timeUs, 0) / kStepUs;
}

}  // namespace

Stabiliser::Stabiliser(const Motion& motion, StabiliserSettings settings)
    : mMotion(motion), mSettings(settings) {}

void Stabiliser::setMode(StabiliserMode mode) {
    const std::lock_guard lock(mMutex);
    mMode = mode;
}

StabiliserMode Stabiliser::mode() const {
    const std::lock_guard lock(mMutex);
    return mMode;
}

void Stabiliser::setFixedTarget(int32_t hallX, int32_t hallY) {
    const std::lock_guard lock(mMutex);
    mChannels[kX].fixedTarget = hallX;
    mChannels[kY].fixedTarget = hallY;
}

void Stabiliser::setActiveAngle(double angle) {
    const std::lock_guard lock(mMutex);
    mActiveAngle = std::isfinite(angle) ? angle : 0;
}

void Stabiliser::setAccCompensation(bool enabled, double distanceM) {
    const std::lock_guard lock(mMutex);
    mAccCompensation = enabled;
    mDistanceM = distanceM > kMinDistanceM ? distanceM : kMinDistanceM;
}

void Stabiliser::setGyroOffset(int16_t x, int16_t y) {
    const std::lock_guard lock(mMutex);
    mChannels[kX].gyroOffset = x;
    mChannels[kY].gyroOffset = y;
}

void Stabiliser::setDefect(LensDefect x, LensDefect y) {
    const std::lock_guard lock(mMutex);
    mChannels[kX].defect = x;
    mChannels[kY].defect = y;
}

void Stabiliser::setTrackingError(double hallX, double hallY) {
    const std::lock_guard lock(mMutex);
    mChannels[kX].trackingError = hallX;
    mChannels[kY].trackingError = hallY;
}

void Stabiliser::advance(int64_t timeUs) {
    const std::shared_ptr<const MotionSource> source = mMotion.source();
    const std::lock_guard lock(mMutex);
    advanceLocked(timeUs, source);
}

StabiliserState Stabiliser::stateAt(int64_t timeUs) {
    const std::shared_ptr<const MotionSource> source = mMotion.source();
    const std::lock_guard lock(mMutex);
    advanceLocked(timeUs, source);

    const MotionSample& sample = mCursor.at(source, mStep);
    StabiliserState state;
    for (size_t i = 0; i < 3; ++i) {
        state.gyroRaw[i] = gyroRaw(sample, mStep, i);
        state.accRaw[i] = accRaw(sample, mStep, i);
    }
    state.gyroTargetX = -mChannels[kX].angle;
    state.gyroTargetY = -mChannels[kY].angle;
    state.shakeX = -mChannels[kX].trueAngle;
    state.shakeY = -mChannels[kY].trueAngle;
    state.accTargetX = accTarget(kX);
    state.accTargetY = accTarget(kY);
    state.lensX = mChannels[kX].lens;
    state.lensY = mChannels[kY].lens;
    state.hallX = hallReading(kX);
    state.hallY = hallReading(kY);
    return state;
}

Stabiliser::GyroMeasurement Stabiliser::measureGyro(int64_t timeUs, int64_t windowUs) const {
    const std::shared_ptr<const MotionSource> source = mMotion.source();
    const int64_t last = stepAt(timeUs);
    const int64_t first = std::min(stepAt(timeUs - windowUs) + 1, last);
    const auto count = static_cast<double>(last - first + 1);
    std::array<double, 2> sum{}, squares{};
    MotionCursor cursor;
    for (int64_t step = first; step <= last; ++step) {
        const MotionSample& sample = cursor.at(source, step);
        for (size_t axis = 0; axis < 2; ++axis) {
            const double raw = gyroRaw(sample, step, axis);
            sum[axis] += raw;
            squares[axis] += raw * raw;
        }
    }
    GyroMeasurement result;
    for (size_t axis = 0; axis < 2; ++axis) {
        const double mean = sum[axis] / count;
        result.meanRaw[axis] = mean;
        result.deviationRaw[axis] = std::sqrt(std::max(0.0, squares[axis] / count - mean * mean));
    }
    return result;
}

void Stabiliser::advanceLocked(int64_t timeUs, const std::shared_ptr<const MotionSource>& source) {
    const int64_t target = stepAt(timeUs);
    const double highPassHz = std::max(mSettings.highPassHz, kMinHighPassHz);
    const double settleS =
        kSettleTimeConstants / (2 * std::numbers::pi * std::min(highPassHz, kShiftHighPassHz));
    const auto settleSteps = static_cast<int64_t>(settleS / kStepS);
    mStep = std::max(mStep, target - settleSteps);
    while (mStep < target) {
        ++mStep;
        step(source);
    }
}

void Stabiliser::step(const std::shared_ptr<const MotionSource>& source) {
    const MotionSample& sample = mCursor.at(source, mStep);
    std::array<double, 3> rateRadS{};
    for (size_t i = 0; i < 3; ++i) {
        const int offset = i < mChannels.size() ? mChannels[i].gyroOffset : 0;
        rateRadS[i] = (gyroRaw(sample, mStep, i) - offset) / mSettings.gyroLsbPerRadS;
    }
    trackShift(sample, rateRadS);

    for (size_t axis = 0; axis < mChannels.size(); ++axis) {
        Channel& channel = mChannels[axis];
        channel.angle = integrated(channel.angle, rateRadS[axis]);
        channel.trueAngle = integrated(channel.trueAngle, sample.gyroRadS[axis]);
        moveLens(axis);
    }
}

// The angle one step on: leaky, and more so on the way to the limit.
double Stabiliser::integrated(double angle, double rateRadS) const {
    const double highPass = 2 * std::numbers::pi * std::max(mSettings.highPassHz, kMinHighPassHz);
    const double part = std::abs(angle) / mSettings.limitAngle;
    const double beyond = std::clamp((part - kPanStart) / (1 - kPanStart), 0.0, kPanLeakGrowth);
    const double leak = highPass + kPanLeak * beyond * beyond;
    return angle + (rateRadS * kDegPerRad - leak * angle) * kStepS;
}

void Stabiliser::trackShift(const MotionSample& sample, const std::array<double, 3>& rateRadS) {
    std::array<double, 3> acc{};
    for (size_t i = 0; i < 3; ++i) acc[i] = accRaw(sample, mStep, i) / mSettings.accLsbPerMS2;
    if (!mGravityKnown) mGravity = acc;
    mGravityKnown = true;

    // Gravity stands still in the world, so it turns against the rotation in the body; what the gyro gets
    // wrong the accelerometer's mean puts right.
    const std::array<double, 3> g = mGravity;
    std::array<double, 3> linear{};
    for (size_t i = 0; i < 3; ++i) {
        const size_t j = (i + 1) % 3, k = (i + 2) % 3;
        linear[i] = acc[i] - g[i];
        mGravity[i] += (g[j] * rateRadS[k] - g[k] * rateRadS[j] + linear[i] / kGravityTimeConstantS) * kStepS;
    }

    // A shift along y looks like a turn about x, one along x like a turn the other way about y.
    constexpr double kHighPass = 2 * std::numbers::pi * kShiftHighPassHz;
    const std::array<double, 2> across = {linear[1], -linear[0]};
    for (size_t axis = 0; axis < mChannels.size(); ++axis) {
        Channel& channel = mChannels[axis];
        channel.shiftSpeed += (across[axis] - kHighPass * channel.shiftSpeed) * kStepS;
        channel.shift += (channel.shiftSpeed - kHighPass * channel.shift) * kStepS;
    }
}

void Stabiliser::moveLens(size_t axis) {
    Channel& channel = mChannels[axis];
    if (channel.defect == LensDefect::kStuck) {
        channel.lensSpeed = 0;
        return;
    }
    const double part = channel.defect == LensDefect::kSluggish ? kSluggishPart : 1;
    const double omega = 2 * std::numbers::pi * mSettings.bandwidthHz * part;
    // Trapezoidal rule: stable and accurate for any bandwidth.
    const double stiff = omega * omega * kStepS;
    const double drag = mSettings.damping * omega * kStepS + stiff * kStepS / 4;
    const double speed =
        ((1 - drag) * channel.lensSpeed + stiff * (lensTarget(axis) - channel.lens)) / (1 + drag);
    const double limit = mSettings.limitAngle;
    const double lens = channel.lens + (channel.lensSpeed + speed) / 2 * kStepS;
    channel.lens = std::clamp(lens, -limit, limit);
    channel.lensSpeed = channel.lens == lens ? speed : 0;
}

// Where the controller drives the lens, be it beyond the limit.
double Stabiliser::lensTarget(size_t axis) const {
    const Channel& channel = mChannels[axis];
    const double centre = axis == kX ? mSettings.hallCenterX : mSettings.hallCenterY;
    const double hallPerAngle = axis == kX ? mSettings.hallPerAngleX : mSettings.hallPerAngleY;
    double target = 0;
    switch (mMode) {
        case StabiliserMode::kOff:
            break;
        case StabiliserMode::kOn:
            target = -channel.angle + accTarget(axis);
            break;
        case StabiliserMode::kFixed:
            if (hallPerAngle != 0)
                target = (channel.fixedTarget + channel.trackingError - centre) / hallPerAngle;
            break;
        case StabiliserMode::kActive:
            target = mActiveAngle - channel.angle + accTarget(axis);
            break;
    }
    if (channel.defect == LensDefect::kOffCentre) target += kOffCentrePart * mSettings.limitAngle;
    return target;
}

double Stabiliser::accTarget(size_t axis) const {
    if (!mAccCompensation) return 0;
    return -std::atan(mChannels[axis].shift / mDistanceM) * kDegPerRad;
}

int32_t Stabiliser::hallReading(size_t axis) const {
    const int32_t centre = axis == kX ? mSettings.hallCenterX : mSettings.hallCenterY;
    const double hallPerAngle = axis == kX ? mSettings.hallPerAngleX : mSettings.hallPerAngleY;
    const double noiseCounts = mSettings.hallNoiseCounts * noise(mSettings.seed, mStep, kHallNoise + axis);
    return centre + static_cast<int32_t>(std::lround(mChannels[axis].lens * hallPerAngle + noiseCounts));
}

int16_t Stabiliser::gyroRaw(const MotionSample& sample, int64_t step, size_t axis) const {
    const double error = mSettings.gyroBiasRadS[axis] +
                         mSettings.gyroNoiseRadS * noise(mSettings.seed, step, kGyroNoise + axis);
    return counts((sample.gyroRadS[axis] + error) * mSettings.gyroLsbPerRadS);
}

int16_t Stabiliser::accRaw(const MotionSample& sample, int64_t step, size_t axis) const {
    const double error = mSettings.accNoiseMS2 * noise(mSettings.seed, step, kAccNoise + axis);
    return counts((sample.accMS2[axis] + error) * mSettings.accLsbPerMS2);
}

}  // namespace phone

#pragma once
// The stabilisation loop and the lens it moves: gyro in, targets and hall positions out.
//
// Channel x cancels rotation about the body's x axis, channel y rotation about its y axis. The controller
// samples the gyro, subtracts the offsets, and integrates the rate to an angle that decays at the high-pass
// corner; the target is that angle's negative. As the target nears the limit the decay grows: a pan is
// followed, not fought.

#include <array>
#include <cstdint>
#include <mutex>

#include "motion/motion.h"

namespace phone {

// Lens, hall sensors and control loop of one module. Angles in the module's angle unit (degrees).
struct StabiliserSettings {
    int32_t hallCenterX = 0;  // hall reading at the lens centre
    int32_t hallCenterY = 0;
    double hallPerAngleX = 1000;  // hall counts per angle unit
    double hallPerAngleY = 1000;
    double limitAngle = 1.5;  // how far the lens can go, either way; above 0
    double bandwidthHz = 70;  // of the lens, a damped second-order system
    double damping = 0.7;
    double highPassHz = 0.3;  // corner below which slow motion is followed, not stabilised; at least 0.05
    double hallNoiseCounts = 1.0;    // RMS
    double gyroLsbPerRadS = 939.65;  // raw gyro counts
    double accLsbPerMS2 = 835.1;
    std::array<double, 3> gyroBiasRadS{};
    double gyroNoiseRadS = 0.0005;  // RMS
    double accNoiseMS2 = 0.02;      // RMS
    uint64_t seed = 1;
};

enum class LensDefect {
    kNone,
    kStuck,      // does not move at all
    kSluggish,   // a tenth of the bandwidth
    kOffCentre,  // rests beside the hall centre
};

enum class StabiliserMode {
    kOff,     // lens held at the centre
    kOn,      // follows the gyro
    kFixed,   // held at a target
    kActive,  // follows the gyro about an angle
};

// What the controller knows at one moment.
struct StabiliserState {
    std::array<int16_t, 3> gyroRaw{};
    std::array<int16_t, 3> accRaw{};
    double gyroTargetX = 0;  // angle that would cancel the shake, in every mode
    double gyroTargetY = 0;
    double shakeX = 0;  // the same without bias and noise of the gyro: what the picture really shakes
    double shakeY = 0;
    double accTargetX = 0;  // shift of the camera as an angle, when acceleration is compensated
    double accTargetY = 0;
    double lensX = 0;  // angle of the lens
    double lensY = 0;
    int32_t hallX = 0;  // what the hall sensors read
    int32_t hallY = 0;
};

// Thread-safe. Time only moves forward; the physics is stepped internally at a fixed rate, so the state at a
// moment does not depend on how often it is asked for. A setting takes effect at the last moment that was
// asked for: call advance() with the present time before changing one. After a long gap only the last seconds
// are stepped, enough for all that was before to have decayed below a hall count.
class Stabiliser {
  public:
    Stabiliser(const Motion& motion, StabiliserSettings settings);

    void setMode(StabiliserMode mode);
    StabiliserMode mode() const;
    // Moves time forward.
    void advance(int64_t timeUs);

    // Target of kFixed, hall counts.
    void setFixedTarget(int32_t hallX, int32_t hallY);
    // Angle about which kActive works, on both axes; 0 if it is no number.
    void setActiveAngle(double angle);
    // Accelerometer compensation and the object distance in metres it is for; at least 0.03.
    void setAccCompensation(bool enabled, double distanceM);
    // Gyro offsets that the controller subtracts, raw counts.
    void setGyroOffset(int16_t x, int16_t y);
    void setDefect(LensDefect x, LensDefect y);
    // Constant error between target and hall in kFixed, hall counts.
    void setTrackingError(double hallX, double hallY);
    const StabiliserSettings& settings() const { return mSettings; }

    // A time before one already asked for gives the state at that later one.
    StabiliserState stateAt(int64_t timeUs);
    // Mean raw gyro over the last `windowUs` up to `timeUs`, and its standard deviation: what an offset
    // calibration measures.
    struct GyroMeasurement {
        std::array<double, 2> meanRaw{};
        std::array<double, 2> deviationRaw{};
    };
    GyroMeasurement measureGyro(int64_t timeUs, int64_t windowUs) const;

  private:
    // One channel of the controller and the lens axis it moves. Angles in degrees.
    struct Channel {
        int16_t gyroOffset = 0;  // raw counts
        LensDefect defect = LensDefect::kNone;
        int32_t fixedTarget = 0;   // hall counts
        double trackingError = 0;  // hall counts
        double angle = 0;          // the shake as the gyro tells it, high-passed
        double trueAngle = 0;      // the shake itself, likewise
        double shiftSpeed = 0;     // m/s, of the camera across this channel
        double shift = 0;          // m
        double lens = 0;
        double lensSpeed = 0;  // degrees per second
    };

    void advanceLocked(int64_t timeUs, const std::shared_ptr<const MotionSource>& source);
    void step(const std::shared_ptr<const MotionSource>& source);
    double integrated(double angle, double rateRadS) const;
    void trackShift(const MotionSample& sample, const std::array<double, 3>& rateRadS);
    void moveLens(size_t axis);
    double lensTarget(size_t axis) const;
    double accTarget(size_t axis) const;
    int32_t hallReading(size_t axis) const;
    int16_t gyroRaw(const MotionSample& sample, int64_t step, size_t axis) const;
    int16_t accRaw(const MotionSample& sample, int64_t step, size_t axis) const;

    const Motion& mMotion;
    const StabiliserSettings mSettings;
    mutable std::mutex mMutex;
    StabiliserMode mMode = StabiliserMode::kOff;
    double mActiveAngle = 0;
    bool mAccCompensation = false;
    double mDistanceM = 1;
    int64_t mStep = 0;  // the last one taken
    MotionCursor mCursor;
    std::array<double, 3> mGravity{};  // as the controller believes, m/s^2
    bool mGravityKnown = false;
    std::array<Channel, 2> mChannels{};
};

}  // namespace phone

// The motions that need no recording: sums of sinusoids with frequencies and phases drawn from a seed.
//
// What is summed are the orientation angles and the position; angular rate and acceleration are their exact
// derivatives in the body's axes, so that gyro and accelerometer agree with each other at every moment.

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <stdexcept>

#include "motion/motion.h"

namespace phone {
namespace {

// Uniform in [0, 1); unlike the standard distributions the same with every library.
double draw(std::mt19937_64& random) {
    return static_cast<double>(random() >> 11U) * 0x1p-53;
}

// Some quantity over time, as a sum of sinusoids.
class Wave {
  public:
    struct Value {
        double position = 0;
        double rate = 0;
        double acceleration = 0;
    };

    // `count` sinusoids spread over [lowHz, highHz] whose derivative of order `derivative` has the RMS `rms`.
    Wave& band(std::mt19937_64& random, double lowHz, double highHz, int count, int derivative, double rms) {
        const double height = rms * std::sqrt(2.0 / count);
        for (int i = 0; i < count; ++i) {
            const double hz = lowHz + (highHz - lowHz) * (i + draw(random)) / count;
            const double omega = 2 * std::numbers::pi * hz;
            const double phase = 2 * std::numbers::pi * draw(random);
            mParts.push_back({height / std::pow(omega, derivative), omega, phase});
        }
        return *this;
    }

    Value at(double timeS) const {
        Value value;
        for (const Part& part : mParts) {
            const double angle = part.omega * timeS + part.phase;
            const double sine = part.height * std::sin(angle);
            value.position += sine;
            value.rate += part.height * part.omega * std::cos(angle);
            value.acceleration -= part.omega * part.omega * sine;
        }
        return value;
    }

  private:
    struct Part {
        double height;
        double omega;
        double phase;
    };
    std::vector<Part> mParts;
};

// There and back between two directions, with a rest at either.
struct Pan {
    double angle = 0.6;  // rad between the directions
    double turnS = 4;
    double restS = 2;

    Wave::Value at(double timeS) const {
        const double legS = turnS + restS;
        const double leg = std::floor(timeS / legS);
        const double part = std::min((timeS - leg * legS) / turnS, 1.0);
        // The smoothest step of fifth degree: rate and its derivative vanish at both ends.
        const double step = part * part * part * (part * (part * 6 - 15) + 10);
        const double slope = 30 * part * part * (part - 1) * (part - 1);
        const bool back = std::fmod(leg, 2) != 0;
        return {angle * (back ? 1 - step : step), (back ? -slope : slope) * angle / turnS, 0};
    }
};

struct Body {
    Wave pitch;  // about the body's x axis, after yaw
    Wave yaw;    // about the vertical
    Wave roll;   // about the line of sight, after both
    Wave right, up, back;
    bool pans = false;
};

constexpr int kPartsPerBand = 6;
constexpr int kPositionParts = 4;
constexpr int kRate = 1;          // derivative of an angle
constexpr int kAcceleration = 2;  // derivative of a position

// Physiological tremor.
constexpr double kTremorLowHz = 8;
constexpr double kTremorHighHz = 12;
// Sway of arms and trunk.
constexpr double kSwayLowHz = 0.3;
constexpr double kSwayHighHz = 2.5;
// What lies between and above, weaker.
constexpr double kBetween = 0.3;  // of the sway
constexpr double kAbove = 0.15;   // of the tremor
constexpr double kHighestHz = 20;

Body handHeld(std::mt19937_64& random, double strength) {
    Body body;
    const auto shake = [&](Wave& angle, double tremorRadS, double swayRadS) {
        angle.band(random, kTremorLowHz, kTremorHighHz, kPartsPerBand, kRate, strength * tremorRadS);
        angle.band(random, kSwayLowHz, kSwayHighHz, kPartsPerBand, kRate, strength * swayRadS);
        angle.band(random, kSwayHighHz, kTremorLowHz, kPartsPerBand, kRate, strength * kBetween * swayRadS);
        angle.band(random, kTremorHighHz, kHighestHz, kPartsPerBand, kRate, strength * kAbove * tremorRadS);
    };
    shake(body.pitch, 0.020, 0.030);
    shake(body.yaw, 0.016, 0.032);
    shake(body.roll, 0.010, 0.015);
    for (Wave* direction : {&body.right, &body.up, &body.back}) {
        direction->band(random, kSwayLowHz, kSwayHighHz, kPositionParts, kAcceleration, strength * 0.03);
        direction->band(random, kTremorLowHz, kTremorHighHz, kPositionParts, kAcceleration, strength * 0.05);
    }
    return body;
}

Body walking(std::mt19937_64& random) {
    // A step about every half second; two make a stride. The band's width lets the pace drift.
    constexpr double kStepHz = 1.9;
    constexpr double kDrift = 0.04;
    const auto pace = [&](Wave& wave, double hz, int derivative, double rms) {
        wave.band(random, hz * (1 - kDrift), hz * (1 + kDrift), kPositionParts, derivative, rms);
    };
    Body body = handHeld(random, 1.5);
    pace(body.pitch, kStepHz, kRate, 0.08);
    pace(body.pitch, 2 * kStepHz, kRate, 0.03);
    pace(body.yaw, kStepHz / 2, kRate, 0.07);
    pace(body.yaw, kStepHz, kRate, 0.03);
    pace(body.roll, kStepHz / 2, kRate, 0.06);
    pace(body.up, kStepHz, kAcceleration, 1.2);
    pace(body.up, 2 * kStepHz, kAcceleration, 0.5);
    pace(body.right, kStepHz / 2, kAcceleration, 0.4);
    pace(body.back, kStepHz, kAcceleration, 0.5);
    return body;
}

class BuiltinMotion : public MotionSource {
  public:
    BuiltinMotion(std::string description, Body body)
        : mDescription(std::move(description)), mBody(std::move(body)) {}

    std::string describe() const override { return mDescription; }
    double durationS() const override { return 0; }

    MotionSample at(double timeS) const override {
        const Wave::Value pitch = mBody.pitch.at(timeS);
        const Wave::Value roll = mBody.roll.at(timeS);
        Wave::Value yaw = mBody.yaw.at(timeS);
        if (mBody.pans) {
            const Wave::Value pan = kPan.at(timeS);
            yaw.position += pan.position;
            yaw.rate += pan.rate;
        }
        // World axes: x right, y up, z back at yaw 0. From world to body: undo yaw, then pitch, then roll.
        const double force[3] = {mBody.right.at(timeS).acceleration,
                                 mBody.up.at(timeS).acceleration + kGravityMS2,
                                 mBody.back.at(timeS).acceleration};
        const double cosYaw = std::cos(yaw.position), sinYaw = std::sin(yaw.position);
        const double cosPitch = std::cos(pitch.position), sinPitch = std::sin(pitch.position);
        const double cosRoll = std::cos(roll.position), sinRoll = std::sin(roll.position);
        const double ahead = sinYaw * force[0] + cosYaw * force[2];
        const double accX = cosYaw * force[0] - sinYaw * force[2];
        const double accY = cosPitch * force[1] + sinPitch * ahead;
        const double rateX = pitch.rate;
        const double rateY = cosPitch * yaw.rate;

        MotionSample sample;
        sample.timeS = timeS;
        sample.accMS2 = {cosRoll * accX + sinRoll * accY, cosRoll * accY - sinRoll * accX,
                         cosPitch * ahead - sinPitch * force[1]};
        sample.gyroRadS = {cosRoll * rateX + sinRoll * rateY, cosRoll * rateY - sinRoll * rateX,
                           roll.rate - sinPitch * yaw.rate};
        return sample;
    }

  private:
    static constexpr Pan kPan{};
    const std::string mDescription;
    const Body mBody;
};

}  // namespace

std::vector<std::string> builtinMotions() {
    return {"rest", "hand", "pan", "walk"};
}

std::shared_ptr<const MotionSource> makeBuiltinMotion(std::string_view name, uint64_t seed) {
    std::mt19937_64 random(seed);
    if (name == "rest") return std::make_shared<BuiltinMotion>("at rest", Body{});
    const std::string tail = ", seed " + std::to_string(seed);
    if (name == "hand") {
        return std::make_shared<BuiltinMotion>("hand: tremor and sway" + tail, handHeld(random, 1));
    }
    if (name == "pan") {
        Body body = handHeld(random, 1);
        body.pans = true;
        return std::make_shared<BuiltinMotion>("pan: hand shake and a slow pan" + tail, std::move(body));
    }
    if (name == "walk")
        return std::make_shared<BuiltinMotion>("walk: steps and hand shake" + tail, walking(random));
    throw std::runtime_error("no built-in motion \"" + std::string(name) + "\"");
}

}  // namespace phone

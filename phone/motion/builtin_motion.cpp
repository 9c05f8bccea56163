// The motions that need no recording: sums of sinusoids with frequencies and phases drawn from a seed.
//
// What is summed are the orientation angles and the position; angular rate and acceleration are their exact
// derivatives in the body's axes, so that gyro and accelerometer agree with each other at every moment.

#include <fmt/core.h>

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

// A quantity at N moments, one step of the grid apart.
template <size_t N>
using Row = std::array<double, N>;

// Some quantity over time, as a sum of sinusoids.
class Wave {
  public:
    // `count` sinusoids spread over [lowHz, highHz] whose derivative of order `derivative` has the RMS `rms`.
    Wave& band(std::mt19937_64& random, double lowHz, double highHz, int count, int derivative, double rms) {
        const double height = rms * std::sqrt(2.0 / count);
        for (int i = 0; i < count; ++i) {
            const double hz = lowHz + (highHz - lowHz) * (i + draw(random)) / count;
            const double omega = 2 * std::numbers::pi * hz;
            const double phase = 2 * std::numbers::pi * draw(random);
            mParts.emplace_back(height / std::pow(omega, derivative), omega, phase);
        }
        return *this;
    }

    template <size_t N>
    void addAngleAndRate(double startS, Row<N>& angle, Row<N>& rate) const {
        for (const Part& part : mParts) {
            const Phasor phasor = part.at(startS);
            part.addTurning(phasor, angle);
            part.addTurning(phasor.derivative(part.omega), rate);
        }
    }

    template <size_t N>
    void addAcceleration(double startS, Row<N>& acceleration) const {
        for (const Part& part : mParts) {
            part.addTurning(part.at(startS).derivative(part.omega).derivative(part.omega), acceleration);
        }
    }

  private:
    struct Phasor {
        double sine;
        double cosine;
        Phasor derivative(double omega) const { return {omega * cosine, -omega * sine}; }
    };

    // Sine and cosine cost too much to be taken at every step: they are where a row begins, and a table of
    // turns leads from there to each of its steps.
    struct Part {
        Part(double partHeight, double partOmega, double partPhase)
            : height(partHeight), omega(partOmega), phase(partPhase) {
            for (size_t i = 0; i < kMotionBlockSteps; ++i) {
                turnSine[i] = std::sin(omega * kMotionStepS * static_cast<double>(i));
                turnCosine[i] = std::cos(omega * kMotionStepS * static_cast<double>(i));
            }
        }

        Phasor at(double timeS) const {
            const double angle = omega * timeS + phase;
            return {height * std::sin(angle), height * std::cos(angle)};
        }
        template <size_t N>
        void addTurning(const Phasor& start, Row<N>& sum) const {
            for (size_t i = 0; i < N; ++i) sum[i] += start.sine * turnCosine[i] + start.cosine * turnSine[i];
        }

        double height;
        double omega;
        double phase;
        Row<kMotionBlockSteps> turnSine, turnCosine;
    };

    std::vector<Part> mParts;
};

// There and back between two directions, with a rest at either.
struct Pan {
    double angle = 0.6;  // rad between the directions
    double turnS = 4;
    double restS = 2;

    struct Value {
        double angle;
        double rate;
    };

    Value at(double timeS) const {
        const double legS = turnS + restS;
        const double leg = std::floor(timeS / legS);
        const double part = std::min((timeS - leg * legS) / turnS, 1.0);
        // The smoothest step of fifth degree: rate and its derivative vanish at both ends.
        const double step = part * part * part * (part * (part * 6 - 15) + 10);
        const double slope = 30 * part * part * (part - 1) * (part - 1);
        const bool back = std::fmod(leg, 2) != 0;
        return {angle * (back ? 1 - step : step), (back ? -slope : slope) * angle / turnS};
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

    MotionSample at(double timeS) const override {
        std::array<MotionSample, 1> sample;
        row(timeS, sample);
        return sample[0];
    }
    void block(int64_t number, MotionBlock& samples) const override { row(blockStartS(number), samples); }

  private:
    // Orientation, and the force that the accelerometer feels, along the world's axes.
    struct Moment {
        double pitch, yaw, roll;
        double pitchRate, yawRate, rollRate;
        double right, up, back;
    };

    template <size_t N>
    void row(double startS, std::array<MotionSample, N>& samples) const {
        Row<N> pitch{}, yaw{}, roll{}, pitchRate{}, yawRate{}, rollRate{}, right{}, up{}, back{};
        mBody.pitch.addAngleAndRate(startS, pitch, pitchRate);
        mBody.yaw.addAngleAndRate(startS, yaw, yawRate);
        mBody.roll.addAngleAndRate(startS, roll, rollRate);
        mBody.right.addAcceleration(startS, right);
        mBody.up.addAcceleration(startS, up);
        mBody.back.addAcceleration(startS, back);
        for (size_t i = 0; i < N; ++i) {
            const double timeS = startS + kMotionStepS * static_cast<double>(i);
            const Pan::Value pan = mBody.pans ? kPan.at(timeS) : Pan::Value{};
            samples[i] = felt({pitch[i], yaw[i] + pan.angle, roll[i], pitchRate[i], yawRate[i] + pan.rate,
                               rollRate[i], right[i], up[i] + kGravityMS2, back[i]});
            samples[i].timeS = timeS;
        }
    }

    // World axes: x right, y up, z back at yaw 0. From world to body: undo yaw, then pitch, then roll.
    static MotionSample felt(const Moment& m) {
        const double cosYaw = std::cos(m.yaw), sinYaw = std::sin(m.yaw);
        const double cosPitch = std::cos(m.pitch), sinPitch = std::sin(m.pitch);
        const double cosRoll = std::cos(m.roll), sinRoll = std::sin(m.roll);
        const double ahead = sinYaw * m.right + cosYaw * m.back;
        const double accX = cosYaw * m.right - sinYaw * m.back;
        const double accY = cosPitch * m.up + sinPitch * ahead;
        const double rateY = cosPitch * m.yawRate;

        MotionSample sample;
        sample.accMS2 = {cosRoll * accX + sinRoll * accY, cosRoll * accY - sinRoll * accX,
                         cosPitch * ahead - sinPitch * m.up};
        sample.gyroRadS = {cosRoll * m.pitchRate + sinRoll * rateY, cosRoll * rateY - sinRoll * m.pitchRate,
                           m.rollRate - sinPitch * m.yawRate};
        return sample;
    }

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
    const std::string tail = fmt::format(", seed {}", seed);
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
    throw std::runtime_error(fmt::format("no built-in motion \"{}\"", name));
}

}  // namespace phone

// The physics of the simulated phone: how its body moves, and what the stabilisation makes of it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>

#include "motion/motion.h"
#include "motion/stabiliser.h"

namespace {

using namespace phone;

constexpr int64_t kSecondUs = 1000000;
constexpr int64_t kPeriodUs = 4000;
constexpr double kDegPerRad = 180 / std::numbers::pi;

// Root mean square of what `value` says at each moment of a span.
template <typename Value>
double rms(double beginS, double endS, double stepS, Value value) {
    double sum = 0;
    int count = 0;
    for (double t = beginS; t < endS; t += stepS, ++count) sum += value(t) * value(t);
    return std::sqrt(sum / count);
}

class File {
  public:
    File(const std::string& name, const std::string& content)
        : mPath(std::filesystem::path(testing::TempDir()) / name) {
        std::ofstream(mPath) << content;
    }
    ~File() { std::filesystem::remove(mPath); }
    const std::filesystem::path& path() const { return mPath; }

  private:
    std::filesystem::path mPath;
};

std::string failureOf(const std::string& content) {
    const File file("motion_under_test.csv", content);
    try {
        loadMotion(file.path());
    } catch (const std::runtime_error& error) {
        std::string text = error.what();
        const size_t at = text.find("motion_under_test.csv");
        return at == std::string::npos ? text : text.substr(at + std::strlen("motion_under_test.csv"));
    }
    return "accepted";
}

TEST(Motion, RestIsStillUnderGravity) {
    const auto rest = makeBuiltinMotion("rest");
    for (const double t : {0.0, 0.3, 1234.5}) {
        const MotionSample sample = rest->at(t);
        for (const double rate : sample.gyroRadS) EXPECT_EQ(rate, 0);
        EXPECT_DOUBLE_EQ(std::hypot(sample.accMS2[0], sample.accMS2[1], sample.accMS2[2]), kGravityMS2);
    }
}

TEST(Motion, HandShakesLikeAHand) {
    const auto hand = makeBuiltinMotion("hand", 7);
    for (size_t axis = 0; axis < 2; ++axis) {
        const double rate = rms(0, 30, 0.002, [&](double t) { return hand->at(t).gyroRadS[axis]; });
        EXPECT_GT(rate, 0.02);
        EXPECT_LT(rate, 0.05);
    }
}

TEST(Motion, SeedDecidesAlone) {
    for (const std::string& name : builtinMotions()) {
        const auto first = makeBuiltinMotion(name, 3), same = makeBuiltinMotion(name, 3);
        const auto other = makeBuiltinMotion(name, 4);
        bool differs = false;
        for (double t = 0; t < 2; t += 0.1) {
            EXPECT_EQ(first->at(t).gyroRadS, same->at(t).gyroRadS) << name;
            EXPECT_EQ(first->at(t).accMS2, same->at(t).accMS2) << name;
            differs |= first->at(t).gyroRadS != other->at(t).gyroRadS;
        }
        EXPECT_EQ(differs, name != "rest") << name;
    }
}

// Turns gravity by the integrated gyro and regresses the accelerometer on it: its linear motion averages out,
// and so does where the hand began.
TEST(Motion, AccelerometerTurnsAsTheGyroSays) {
    const auto hand = makeBuiltinMotion("hand", 2);
    constexpr double kStepS = 0.001;
    constexpr double kEndS = 60;
    constexpr double kCount = kEndS / kStepS;
    std::array<double, 3> gravity = hand->at(0).accMS2;
    std::array<double, 3> sum{}, accSum{}, products{}, squares{};
    for (double t = kStepS / 2; t < kEndS; t += kStepS) {
        const auto g = gravity;
        const MotionSample sample = hand->at(t);
        const auto& w = sample.gyroRadS;
        for (size_t i = 0; i < 3; ++i) {
            const size_t j = (i + 1) % 3, k = (i + 2) % 3;
            gravity[i] += (g[j] * w[k] - g[k] * w[j]) * kStepS;
            sum[i] += gravity[i];
            accSum[i] += sample.accMS2[i];
            products[i] += gravity[i] * sample.accMS2[i];
            squares[i] += gravity[i] * gravity[i];
        }
    }
    for (const size_t axis : {0U, 2U}) {
        const double covariance = products[axis] - sum[axis] * accSum[axis] / kCount;
        const double variance = squares[axis] - sum[axis] * sum[axis] / kCount;
        EXPECT_NEAR(covariance / variance, 1, 0.15) << axis;
    }
    EXPECT_NEAR(accSum[1] / kCount, kGravityMS2, 0.01);
}

TEST(Motion, PanTurnsByItsAngleAndBack) {
    const auto pan = makeBuiltinMotion("pan", 2);
    const auto turned = [&](double beginS, double endS) {
        double angle = 0;
        for (double t = beginS; t < endS; t += 0.001) angle += pan->at(t).gyroRadS[1] * 0.001;
        return angle;
    };
    EXPECT_NEAR(turned(0, 5), 0.6, 0.1);
    EXPECT_NEAR(turned(6, 11), -0.6, 0.1);
}

TEST(MotionFile, InterpolatesAndStartsOver) {
    const File file("motion_good.csv",
                    "# a recording\r\n"
                    "time_s,gyro_x_rad_s,gyro_y_rad_s,gyro_z_rad_s,acc_x_m_s2,acc_y_m_s2,acc_z_m_s2\r\n"
                    "10.0, 0.0,1,0,0,9.8,0\r\n"
                    "\r\n"
                    "10.5, 0.5,1,0,0,9.8,0\r\n"
                    "11.0,-1e-1,1,0,0,9.8,0\r\n");
    const auto motion = loadMotion(file.path());
    EXPECT_DOUBLE_EQ(motion->durationS(), 1.5);
    EXPECT_NE(motion->describe().find("motion_good.csv: 1.5 s at 2.0 Hz"), std::string::npos);
    const struct {
        double timeS, gyroX;
    } kCases[] = {{0, 0},      {0.25, 0.25},  {0.5, 0.5}, {0.75, 0.2},
                  {1.0, -0.1}, {1.25, -0.05}, {1.5, 0},   {15.25, 0.25}};
    for (const auto& c : kCases) EXPECT_NEAR(motion->at(c.timeS).gyroRadS[0], c.gyroX, 1e-12) << c.timeS;
    EXPECT_DOUBLE_EQ(motion->at(0.7).accMS2[1], 9.8);
}

TEST(MotionFile, SaysWhatIsWrongAndWhere) {
    const struct {
        const char* content;
        const char* failure;
    } kCases[] = {
        {"", ":0: the file ends after 0 samples"},
        {"# nothing\n\n", ":2: the file ends after 0 samples"},
        {"0,0,0,0,0,0,0\n", ":1: the file ends after 1 sample;"},
        {"0,0,0,0,0,0,0\n1,0,0,0,0,0\n", ":2: 6 columns, expected 7"},
        {"0,0,0,0,0,0,0,0\n", ":1: 8 columns, expected 7"},
        {"0,0,0,0,0,0,0\n1,0,x,0,0,0,0\n", ":2: gyro_y_rad_s is \"x\", expected a number"},
        {"0,0,0,0,0,0,\n", ":1: acc_z_m_s2 is \"\", expected a number"},
        {"0,0,0,0,0,nan,0\n", ":1: acc_y_m_s2 is \"nan\", expected a number"},
        {"0,0,0,0,0,0,1.5g\n", ":1: acc_z_m_s2 is \"1.5g\", expected a number"},
        {"0,0,0,0,0,0,0\n0.0,0,0,0,0,0,0\n", ":2: time_s 0.0 is not after"},
        {"# c\ntime_s,gyro_x_dps,gyro_y_rad_s,gyro_z_rad_s,acc_x_m_s2,acc_y_m_s2,acc_z_m_s2\n",
         ":2: column 2 is \"gyro_x_dps\", expected \"gyro_x_rad_s\""},
    };
    for (const auto& c : kCases) EXPECT_EQ(failureOf(c.content).find(c.failure), 0U) << failureOf(c.content);
    EXPECT_THROW(loadMotion("/nonexistent/motion.csv"), std::runtime_error);
    try {
        motionByName("hnad");
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("rest, hand, pan, walk"), std::string::npos) << error.what();
    }
}

TEST(MotionFile, ReadsTheSharedRecordings) {
    const char* folder = std::getenv("OIS_MOTION_DIR");
    if (folder == nullptr || !std::filesystem::is_directory(folder))
        GTEST_SKIP() << "OIS_MOTION_DIR names no folder";
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".csv") continue;
        const auto motion = loadMotion(entry.path());
        EXPECT_GT(motion->durationS(), 10) << entry.path();
        const auto acc = motion->at(0).accMS2;
        EXPECT_NEAR(std::hypot(acc[0], acc[1], acc[2]), kGravityMS2, 0.5) << entry.path();
    }
}

// A stabiliser on a motion of its own.
struct Bench {
    explicit Bench(std::string_view name, StabiliserSettings changed = {})
        : settings(changed), stabiliser(motion, settings) {
        motion.set(makeBuiltinMotion(name, 5));
    }

    double hallAngle(const StabiliserState& state, size_t axis) const {
        return axis == 0 ? (state.hallX - settings.hallCenterX) / settings.hallPerAngleX
                         : (state.hallY - settings.hallCenterY) / settings.hallPerAngleY;
    }

    // What there was to cancel and what was left, over 10 s after some to settle.
    struct Figures {
        std::array<double, 2> shakeRms{};
        std::array<double, 2> residualRms{};
        std::array<double, 2> residualMean{};
        double suppressionDb(size_t axis) const {
            return 20 * std::log10(shakeRms[axis] / residualRms[axis]);
        }
    };
    Figures figures() {
        Figures result;
        double count = 0;
        for (int64_t us = 3 * kSecondUs; us < 13 * kSecondUs; us += kPeriodUs, ++count) {
            const StabiliserState state = stabiliser.stateAt(us);
            const std::array<double, 2> target = {state.gyroTargetX + state.accTargetX,
                                                  state.gyroTargetY + state.accTargetY};
            for (size_t axis = 0; axis < 2; ++axis) {
                const double residual = target[axis] - hallAngle(state, axis);
                result.shakeRms[axis] += target[axis] * target[axis];
                result.residualRms[axis] += residual * residual;
                result.residualMean[axis] += residual;
            }
        }
        for (size_t axis = 0; axis < 2; ++axis) {
            result.shakeRms[axis] = std::sqrt(result.shakeRms[axis] / count);
            result.residualRms[axis] = std::sqrt(result.residualRms[axis] / count);
            result.residualMean[axis] /= count;
        }
        return result;
    }

    StabiliserSettings settings;
    Motion motion;
    Stabiliser stabiliser;
};

StabiliserSettings oddSensors() {
    StabiliserSettings settings;
    settings.hallCenterX = 2048;
    settings.hallCenterY = -150;
    settings.hallPerAngleX = 1333;
    settings.hallPerAngleY = -640;  // mounted the other way round
    return settings;
}

TEST(Stabiliser, AtRestNothingMoves) {
    Bench bench("rest");
    bench.stabiliser.setMode(StabiliserMode::kOn);
    const Bench::Figures figures = bench.figures();
    for (size_t axis = 0; axis < 2; ++axis) {
        EXPECT_LT(figures.shakeRms[axis], 0.005);
        EXPECT_NEAR(figures.residualMean[axis], 0, 0.001);
    }
}

TEST(Stabiliser, OnCancelsTheShake) {
    for (const char* name : {"hand", "walk"}) {
        Bench bench(name, oddSensors());
        bench.stabiliser.setMode(StabiliserMode::kOn);
        const Bench::Figures figures = bench.figures();
        for (size_t axis = 0; axis < 2; ++axis) {
            EXPECT_GT(figures.shakeRms[axis], 0.1) << name;
            EXPECT_GT(figures.suppressionDb(axis), 20) << name;
            EXPECT_LT(figures.suppressionDb(axis), 60) << name << ": no lens is perfect";
        }
    }
}

TEST(Stabiliser, OffHoldsTheCentreAndStillReportsTheShake) {
    Bench off("hand"), on("hand");
    on.stabiliser.setMode(StabiliserMode::kOn);
    const Bench::Figures figures = off.figures();
    EXPECT_EQ(figures.shakeRms, on.figures().shakeRms);
    EXPECT_NEAR(figures.suppressionDb(0), 0, 0.2);
    EXPECT_EQ(off.stabiliser.stateAt(20 * kSecondUs).lensX, 0);
}

TEST(Stabiliser, DefectsShow) {
    const auto suppression = [](LensDefect x) {
        Bench bench("hand");
        bench.stabiliser.setMode(StabiliserMode::kOn);
        bench.stabiliser.setDefect(x, LensDefect::kNone);
        const Bench::Figures figures = bench.figures();
        EXPECT_GT(figures.suppressionDb(1), 20) << "the other axis is sound";
        return figures;
    };
    EXPECT_NEAR(suppression(LensDefect::kStuck).suppressionDb(0), 0, 0.2);
    EXPECT_LT(suppression(LensDefect::kSluggish).suppressionDb(0),
              suppression(LensDefect::kNone).suppressionDb(0) - 12);
    EXPECT_NEAR(suppression(LensDefect::kOffCentre).residualMean[0], -0.2 * StabiliserSettings{}.limitAngle,
                0.01);
}

TEST(Stabiliser, FixedGoesToTheTarget) {
    const StabiliserSettings settings = oddSensors();
    const struct {
        LensDefect defect;
        int32_t offset;  // of the target from the centre, hall counts
        double error;    // asked for
        int32_t arrives;
    } kCases[] = {
        {LensDefect::kNone, 500, 0, 500},  {LensDefect::kNone, -500, 0, -500},
        {LensDefect::kNone, 500, 30, 530}, {LensDefect::kNone, 30000, 0, 2000},  // 1.5 degrees
        {LensDefect::kStuck, 500, 0, 0},   {LensDefect::kOffCentre, 0, 0, 400},
    };
    for (const auto& c : kCases) {
        Bench bench("hand", settings);
        bench.stabiliser.setDefect(c.defect, LensDefect::kNone);
        bench.stabiliser.setTrackingError(c.error, 0);
        bench.stabiliser.setFixedTarget(settings.hallCenterX + c.offset, settings.hallCenterY);
        bench.stabiliser.setMode(StabiliserMode::kFixed);
        const StabiliserState state = bench.stabiliser.stateAt(40000);
        EXPECT_NEAR(state.hallX, settings.hallCenterX + c.arrives, 6) << c.offset;
        EXPECT_NEAR(state.hallY, settings.hallCenterY, 6) << c.offset;
    }
}

TEST(Stabiliser, SluggishLensIsLateAtAFixedTarget) {
    Bench bench("rest");
    bench.stabiliser.setDefect(LensDefect::kSluggish, LensDefect::kNone);
    bench.stabiliser.setFixedTarget(500, 500);
    bench.stabiliser.setMode(StabiliserMode::kFixed);
    const StabiliserState state = bench.stabiliser.stateAt(40000);
    EXPECT_LT(state.hallX, 450);
    EXPECT_NEAR(state.hallY, 500, 6);
    EXPECT_NEAR(bench.stabiliser.stateAt(kSecondUs).hallX, 500, 6);
}

TEST(Stabiliser, ActiveWorksAboutItsAngle) {
    Bench bench("hand");
    bench.stabiliser.setMode(StabiliserMode::kActive);
    bench.stabiliser.setActiveAngle(0.4);
    const Bench::Figures figures = bench.figures();
    for (size_t axis = 0; axis < 2; ++axis) {
        EXPECT_NEAR(figures.residualMean[axis], -0.4, 0.01);
        EXPECT_NEAR(figures.residualRms[axis], 0.4, 0.05);
    }
    bench.stabiliser.setActiveAngle(std::nan(""));
    EXPECT_TRUE(std::isfinite(bench.stabiliser.stateAt(14 * kSecondUs).lensX));
}

TEST(Stabiliser, LimitsHold) {
    const File file("motion_violent.csv",
                    "0,0,0,0,0,9.8,0\n0.1,6,-6,0,0,9.8,0\n0.3,-6,6,0,0,9.8,0\n0.4,0,0,0,0,9.8,0\n");
    Bench bench("rest");
    bench.motion.set(loadMotion(file.path()));
    bench.stabiliser.setMode(StabiliserMode::kOn);
    double reached = 0, wanted = 0;
    for (int64_t us = 0; us < 3 * kSecondUs; us += kPeriodUs) {
        const StabiliserState state = bench.stabiliser.stateAt(us);
        reached = std::max({reached, std::abs(state.lensX), std::abs(state.lensY)});
        wanted = std::max(wanted, std::abs(state.gyroTargetX));
    }
    EXPECT_GT(wanted, 2 * bench.settings.limitAngle);
    EXPECT_EQ(reached, bench.settings.limitAngle);
}

TEST(Stabiliser, PanIsFollowedNotFought) {
    Bench bench("pan");
    bench.stabiliser.setMode(StabiliserMode::kOn);
    for (int64_t us = 0; us < 15 * kSecondUs; us += kPeriodUs) {
        EXPECT_LT(std::abs(bench.stabiliser.stateAt(us).lensY), bench.settings.limitAngle);
    }
}

TEST(Stabiliser, SamplesAreTheMotionWithNoise) {
    StabiliserSettings settings;
    settings.gyroBiasRadS = {0.02, -0.01, 0.005};
    Bench bench("walk", settings);
    for (int64_t us = 0; us < kSecondUs; us += 50000) {
        const StabiliserState state = bench.stabiliser.stateAt(us);
        const MotionSample truth = bench.motion.at(static_cast<double>(us) * 1e-6);
        for (size_t i = 0; i < 3; ++i) {
            const double gyro = (truth.gyroRadS[i] + settings.gyroBiasRadS[i]) * settings.gyroLsbPerRadS;
            EXPECT_NEAR(state.gyroRaw[i], gyro, 4 * settings.gyroNoiseRadS * settings.gyroLsbPerRadS + 1);
            const double acc = truth.accMS2[i] * settings.accLsbPerMS2;
            EXPECT_NEAR(state.accRaw[i], acc, 4 * settings.accNoiseMS2 * settings.accLsbPerMS2 + 1);
        }
    }
}

std::string bytes(Stabiliser& stabiliser, int64_t periodUs) {
    std::string result;
    for (int64_t us = 0; us <= 2 * kSecondUs; us += periodUs) {
        const StabiliserState state = stabiliser.stateAt(us);
        if (us % 100000 != 0) continue;
        for (const int16_t raw : state.gyroRaw) result += std::to_string(raw) + " ";
        for (const int16_t raw : state.accRaw) result += std::to_string(raw) + " ";
        result += std::to_string(state.hallX) + " " + std::to_string(state.hallY) + " " +
                  std::to_string(state.gyroTargetX) + " " + std::to_string(state.lensY) + "\n";
    }
    return result;
}

TEST(Stabiliser, SameSeedSameBytesHoweverOftenAsked) {
    const auto run = [](uint64_t seed, int64_t periodUs) {
        StabiliserSettings settings;
        settings.seed = seed;
        Bench bench("hand", settings);
        bench.stabiliser.setMode(StabiliserMode::kOn);
        return bytes(bench.stabiliser, periodUs);
    };
    const std::string once = run(1, 100000);
    EXPECT_EQ(once, run(1, 100000));
    EXPECT_EQ(once, run(1, 250));
    EXPECT_NE(once, run(2, 100000));
}

TEST(Stabiliser, LongGapsLeaveNoTrace) {
    Bench steady("hand"), rare("hand");
    for (Bench* bench : {&steady, &rare}) {
        bench->stabiliser.setMode(StabiliserMode::kOn);
        bench->stabiliser.setAccCompensation(true, 0.3);
    }
    constexpr int64_t kEndUs = 40 * kSecondUs;
    for (int64_t us = 0; us < kEndUs; us += kSecondUs) steady.stabiliser.advance(us);
    const StabiliserState expected = steady.stabiliser.stateAt(kEndUs),
                          state = rare.stabiliser.stateAt(kEndUs);
    EXPECT_EQ(state.gyroRaw, expected.gyroRaw);
    EXPECT_NEAR(state.hallX, expected.hallX, 1);
    EXPECT_NEAR(state.hallY, expected.hallY, 1);
    EXPECT_NEAR(state.accTargetX, expected.accTargetX, 0.0005);
}

TEST(Stabiliser, TimeNeverGoesBack) {
    Bench bench("hand");
    const StabiliserState later = bench.stabiliser.stateAt(kSecondUs);
    EXPECT_EQ(bench.stabiliser.stateAt(0).gyroTargetX, later.gyroTargetX);
}

TEST(Stabiliser, OffsetsRemoveTheBias) {
    StabiliserSettings settings;
    settings.gyroBiasRadS = {0.01, -0.01, 0};
    Bench bench("rest", settings);
    const double drift = 0.01 / (2 * std::numbers::pi * settings.highPassHz) * kDegPerRad;
    EXPECT_NEAR(bench.stabiliser.stateAt(8 * kSecondUs).gyroTargetX, -drift, 0.02);
    EXPECT_NEAR(bench.stabiliser.stateAt(8 * kSecondUs).gyroTargetY, drift, 0.02);

    const auto measured = bench.stabiliser.measureGyro(8 * kSecondUs, 500000);
    EXPECT_NEAR(measured.meanRaw[0], 0.01 * settings.gyroLsbPerRadS, 0.2);
    EXPECT_NEAR(measured.meanRaw[1], -0.01 * settings.gyroLsbPerRadS, 0.2);
    EXPECT_LT(measured.deviationRaw[0], 1);
    bench.stabiliser.setGyroOffset(static_cast<int16_t>(std::lround(measured.meanRaw[0])),
                                   static_cast<int16_t>(std::lround(measured.meanRaw[1])));
    EXPECT_NEAR(bench.stabiliser.stateAt(16 * kSecondUs).gyroTargetX, 0, 0.03);

    Bench moving("hand", settings);
    EXPECT_GT(moving.stabiliser.measureGyro(8 * kSecondUs, 500000).deviationRaw[0], 5);
}

// A camera that only shifts, by a sinusoid of 2 Hz and 1 m/s^2 along y.
TEST(Stabiliser, AccelerationTargetsAreTheShiftOverTheDistance) {
    constexpr double kHz = 2;
    std::string csv;
    for (int i = 0; i < 500; ++i) {
        const double t = i * 0.001;
        csv += std::to_string(t) + ",0,0,0,0," +
               std::to_string(kGravityMS2 + std::sin(2 * std::numbers::pi * kHz * t)) + ",0\n";
    }
    const File file("motion_shift.csv", csv);
    const auto targetRms = [&](bool enabled, double distanceM) {
        Bench bench("rest");
        bench.motion.set(loadMotion(file.path()));
        bench.stabiliser.setAccCompensation(enabled, distanceM);
        bench.stabiliser.setMode(StabiliserMode::kOn);
        const Bench::Figures figures = bench.figures();
        EXPECT_LT(figures.shakeRms[1], 0.05) << "a shift along y is no business of channel y";
        EXPECT_TRUE(!enabled || figures.suppressionDb(0) > 20);
        return figures.shakeRms[0];
    };
    const double shiftM = 1 / std::sqrt(2) / std::pow(2 * std::numbers::pi * kHz, 2);
    EXPECT_NEAR(targetRms(true, 0.5) / (shiftM / 0.5 * kDegPerRad), 1, 0.15);
    EXPECT_NEAR(targetRms(true, 1.0) / targetRms(true, 0.5), 0.5, 0.01);
    EXPECT_LT(targetRms(false, 0.5), 0.005);
}

// A camera that only rolls, by a sinusoid of 0.5 Hz: gravity turns in its axes, and that is no shift.
TEST(Stabiliser, TurningGravityIsNoShift) {
    constexpr double kOmega = 2 * std::numbers::pi * 0.5;
    constexpr double kRoll = 0.05;
    std::string csv;
    for (int i = 0; i < 2000; ++i) {
        const double t = i * 0.001;
        const double roll = kRoll * std::sin(kOmega * t);
        csv += std::to_string(t) + ",0,0," + std::to_string(kRoll * kOmega * std::cos(kOmega * t)) + "," +
               std::to_string(kGravityMS2 * std::sin(roll)) + "," +
               std::to_string(kGravityMS2 * std::cos(roll)) + ",0\n";
    }
    const File file("motion_roll.csv", csv);
    Bench bench("rest");
    bench.motion.set(loadMotion(file.path()));
    bench.stabiliser.setAccCompensation(true, 0.5);
    // Taken for a shift, it would be one of 2 cm and more: 2.5 degrees.
    EXPECT_LT(bench.figures().shakeRms[1], 0.1);
}

}  // namespace

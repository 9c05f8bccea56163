// The physics of the simulated phone: how its body moves, and what the stabilisation makes of it.

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <sstream>

#include "controllers/stabiliser.h"
#include "motion/motion.h"
#include "test_support.h"

namespace {

using namespace phone;
using test_support::TemporaryFile;

constexpr int64_t kOneSecondUs = 1000000;
constexpr int64_t kPeriodUs = 4000;
constexpr double kDegPerRad = 180 / std::numbers::pi;

TEST(Motion, RestIsStillAndHandShakesLikeAHand) {
    const MotionSample rest = makeBuiltinMotion("rest")->at(1234.5);
    EXPECT_EQ(rest.gyroRadS, (std::array<double, 3>{}));
    EXPECT_DOUBLE_EQ(std::hypot(rest.accMS2[0], rest.accMS2[1], rest.accMS2[2]), kGravityMS2);
    const auto hand = makeBuiltinMotion("hand", 7);
    double squares = 0;
    for (int i = 0; i < 15000; ++i) squares += std::pow(hand->at(i * 0.002).gyroRadS[0], 2);
    EXPECT_NEAR(std::sqrt(squares / 15000), 0.035, 0.015);
}

TEST(Motion, SeedDecidesAlone) {
    for (const std::string& name : builtinMotions()) {
        const auto rates = [&](uint64_t seed) {
            const auto motion = makeBuiltinMotion(name, seed);
            return std::pair(motion->at(0.7).gyroRadS, motion->at(1.3).accMS2);
        };
        EXPECT_EQ(rates(3), rates(3)) << name;
        EXPECT_EQ(rates(3) != rates(4), name != "rest") << name;
    }
}

TEST(Motion, ABlockHoldsTheMomentsOfTheGrid) {
    for (const std::string& name : builtinMotions()) {
        const auto motion = makeBuiltinMotion(name, 3);
        MotionCursor cursor;
        for (const int64_t step : {0, 63, 64, 8000001, 8000063, 1}) {
            const MotionSample& sample = cursor.at(motion, step);
            const MotionSample exact = motion->at(static_cast<double>(step) * kMotionStepS);
            EXPECT_NEAR(sample.timeS, exact.timeS, 1e-9);
            for (size_t i = 0; i < 3; ++i) {
                EXPECT_NEAR(sample.gyroRadS[i], exact.gyroRadS[i], 1e-9) << name << ' ' << step;
                EXPECT_NEAR(sample.accMS2[i], exact.accMS2[i], 1e-9) << name << ' ' << step;
            }
        }
    }
}

// Turns gravity by the integrated gyro and regresses the accelerometer on it: its linear motion averages out,
// and so does where the hand began.
TEST(Motion, AccelerometerTurnsAsTheGyroSays) {
    const auto hand = makeBuiltinMotion("hand", 2);
    constexpr double kStepS = 0.001;
    constexpr double kCount = 60000;
    std::array<double, 3> gravity = hand->at(0).accMS2;
    std::array<double, 3> sum{}, accSum{}, products{}, squares{};
    for (int step = 0; step < kCount; ++step) {
        const auto g = gravity;
        const auto [timeS, w, acc] = hand->at((step + 0.5) * kStepS);
        for (size_t i = 0; i < 3; ++i) {
            const size_t j = (i + 1) % 3, k = (i + 2) % 3;
            gravity[i] += (g[j] * w[k] - g[k] * w[j]) * kStepS;
            sum[i] += gravity[i];
            accSum[i] += acc[i];
            products[i] += gravity[i] * acc[i];
            squares[i] += gravity[i] * gravity[i];
        }
    }
    for (const size_t i : {0U, 2U}) {
        const double covariance = products[i] - sum[i] * accSum[i] / kCount;
        EXPECT_NEAR(covariance / (squares[i] - sum[i] * sum[i] / kCount), 1, 0.15) << i;
    }
}

TEST(MotionFile, InterpolatesAndStartsOver) {
    const TemporaryFile file(
        "# a recording\r\n"
        "time_s,gyro_x_rad_s,gyro_y_rad_s,gyro_z_rad_s,acc_x_m_s2,acc_y_m_s2,acc_z_m_s2\r\n"
        "10.0, 0.0,1,0,0,9.8,0\r\n\r\n10.5, 0.5,1,0,0,9.8,0\r\n11.0,-1e-1,1,0,0,9.8,0\r\n");
    const auto motion = loadMotion(file.path);
    EXPECT_EQ(motion->describe(), file.path.filename().string() + ": 1.5 s at 2.0 Hz");
    const std::pair<double, double> gyroX[] = {{0, 0},      {0.25, 0.25},  {0.75, 0.2},
                                               {1.0, -0.1}, {1.25, -0.05}, {15.25, 0.25}};
    for (const auto& [timeS, rate] : gyroX) EXPECT_NEAR(motion->at(timeS).gyroRadS[0], rate, 1e-12) << timeS;
    EXPECT_DOUBLE_EQ(motion->at(0.7).accMS2[1], 9.8);
}

TEST(MotionFile, SaysWhatIsWrongAndWhere) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ":1: the file ends after 0 of at least 2 samples"},
        {"0,0,0,0,0,0,0\n1,0,0,0,0,0\n", ":2: 6 columns, expected 7: time_s,gyro_x_rad_s,"},
        {"0,0,0,0,0,nan,0\n", ":1: acc_y_m_s2 is \"nan\", expected a number from -1000 to 1000"},
        {"0,0,0,0,0,0,1.5g\n", ":1: acc_z_m_s2 is \"1.5g\", expected a number"},
        {"0,-100.5,0,0,0,0,0\n", ":1: gyro_x_rad_s is \"-100.5\", expected a number from -100 to 100"},
        {"1e11,0,0,0,0,0,0\n", ":1: time_s is \"1e11\", expected a number from -10000000000"},
        {"0.5,0,0,0,0,0,0\n0.50,0,0,0,0,0,0\n", ":2: time_s 0.5 is not after 0.5,"},
        {"# c\ntime_s,gyro_x_dps,gyro_y_rad_s,gyro_z_rad_s,acc_x_m_s2,acc_y_m_s2,acc_z_m_s2\n",
         ":2: column 2 is \"gyro_x_dps\", expected \"gyro_x_rad_s\""},
    };
    for (const auto& [content, failure] : cases) {
        const TemporaryFile file(content);
        const std::string said = test_support::thrown([&] { loadMotion(file.path); });
        EXPECT_TRUE(said.starts_with(file.path.string() + failure)) << said;
    }
}

// What there was to cancel on an axis, and what was left.
struct Figures {
    double shakeRms = 0;
    double residualRms = 0;
    double residualMean = 0;
    double suppressionDb() const { return 20 * std::log10(shakeRms / residualRms); }
    void add(double target, double hallAngle) {
        shakeRms += target * target;
        residualRms += (target - hallAngle) * (target - hallAngle);
        residualMean += target - hallAngle;
    }
};

// A stabiliser on a motion of its own.
struct Bench {
    explicit Bench(std::string_view name, StabiliserMode mode = StabiliserMode::kOn,
                   StabiliserSettings changed = {})
        : settings(changed), stabiliser(motion, settings) {
        motion.set(makeBuiltinMotion(name, 5));
        stabiliser.setMode(mode);
    }
    // Rows of the gyro's z axis and the accelerometer's x and y axes, every millisecond from 0 on.
    void move(int rows, const std::function<std::array<double, 3>(double)>& row) {
        std::ostringstream csv;
        for (int i = 0; i < rows; ++i) {
            const auto [gyroZ, accX, accY] = row(i * 0.001);
            csv << i * 0.001 << ",0,0," << gyroZ << ',' << accX << ',' << accY << ",0\n";
        }
        motion.set(loadMotion(TemporaryFile(csv.str()).path));
    }
    // Of x and y over 10 s after some to settle.
    std::array<Figures, 2> figures() {
        std::array<Figures, 2> axes;
        double count = 0;
        for (int64_t us = 3 * kOneSecondUs; us < 13 * kOneSecondUs; us += kPeriodUs, ++count) {
            const StabiliserState s = stabiliser.stateAt(us);
            axes[0].add(s.gyroTargetX + s.accTargetX,
                        (s.hallX - settings.hallCenterX) / settings.hallPerAngleX);
            axes[1].add(s.gyroTargetY + s.accTargetY,
                        (s.hallY - settings.hallCenterY) / settings.hallPerAngleY);
        }
        for (auto& [shake, residual, mean] : axes) {
            shake = std::sqrt(shake / count);
            residual = std::sqrt(residual / count);
            mean /= count;
        }
        return axes;
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

// Recordings of real hands stand beside a checkout, where there are any.
TEST(Stabiliser, CancelsRecordedShake) {
    const std::filesystem::path folder = std::filesystem::path(OIS_SOURCE_DIR) / "../shared/motion";
    if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "no recordings beside the checkout";
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".csv") continue;
        SCOPED_TRACE(entry.path().filename().string());
        Bench bench("rest");
        bench.motion.set(loadMotion(entry.path()));
        for (const Figures& axis : bench.figures()) EXPECT_GT(axis.suppressionDb(), 15);
    }
}

TEST(Stabiliser, OnCancelsTheShakeAndNothingElse) {
    for (const char* name : {"hand", "walk"}) {
        for (const Figures& axis : Bench(name, StabiliserMode::kOn, oddSensors()).figures()) {
            EXPECT_GT(axis.shakeRms, 0.1) << name;
            EXPECT_GT(axis.suppressionDb(), 20) << name;
            EXPECT_LT(axis.suppressionDb(), 60) << name << ": no lens is perfect";
        }
    }
    EXPECT_LT(Bench("rest").figures()[0].shakeRms, 0.005);
    // Off, the lens stays in the centre while the shake is reported all the same.
    Bench off("hand", StabiliserMode::kOff);
    EXPECT_GT(off.figures()[0].shakeRms, 0.1);
    EXPECT_EQ(off.stabiliser.stateAt(20 * kOneSecondUs).lensX, 0);
}

TEST(Stabiliser, DefectsShow) {
    const auto figuresWith = [](LensDefect x) {
        Bench bench("hand");
        bench.stabiliser.setDefect(x, LensDefect::kNone);
        const auto [onX, onY] = bench.figures();
        EXPECT_GT(onY.suppressionDb(), 20) << "the other axis is sound";
        return onX;
    };
    EXPECT_LT(figuresWith(LensDefect::kSluggish).suppressionDb(),
              figuresWith(LensDefect::kNone).suppressionDb() - 12);
    EXPECT_NEAR(figuresWith(LensDefect::kOffCentre).residualMean, -0.2 * StabiliserSettings{}.limitAngle,
                0.01);
}

TEST(Stabiliser, FixedGoesToTheTarget) {
    const StabiliserSettings settings = oddSensors();
    // The target beside the centre, the tracking error asked for, and where the lens arrives, in hall counts.
    const std::tuple<LensDefect, int32_t, double, int32_t> cases[] = {
        {LensDefect::kNone, 500, 0, 500},    {LensDefect::kNone, 500, 30, 530},
        {LensDefect::kStuck, 500, 0, 0},     {LensDefect::kOffCentre, 0, 0, 400},
        {LensDefect::kNone, 30000, 0, 2000},  // 1.5 degrees
    };
    for (const auto& [defect, offset, error, arrives] : cases) {
        Bench bench("hand", StabiliserMode::kFixed, settings);
        bench.stabiliser.setDefect(defect, LensDefect::kNone);
        bench.stabiliser.setTrackingError(error, 0);
        bench.stabiliser.setFixedTarget(settings.hallCenterX + offset, settings.hallCenterY);
        const StabiliserState state = bench.stabiliser.stateAt(40000);
        EXPECT_NEAR(state.hallX, settings.hallCenterX + arrives, 6) << offset;
        EXPECT_NEAR(state.hallY, settings.hallCenterY, 6) << offset;
    }
}

TEST(Stabiliser, ActiveWorksAboutItsAngle) {
    Bench bench("hand", StabiliserMode::kActive);
    bench.stabiliser.setActiveAngle(0.4);
    for (const Figures& axis : bench.figures()) {
        EXPECT_NEAR(axis.residualMean, -0.4, 0.01);
        EXPECT_NEAR(axis.residualRms, 0.4, 0.05);
    }
    bench.stabiliser.setActiveAngle(std::nan(""));
    EXPECT_TRUE(std::isfinite(bench.stabiliser.stateAt(14 * kOneSecondUs).lensX));
}

TEST(Stabiliser, LimitsHold) {
    const TemporaryFile file("0,0,0,0,0,9.8,0\n0.1,6,-6,0,0,9.8,0\n0.3,-6,6,0,0,9.8,0\n0.4,0,0,0,0,9.8,0\n");
    Bench bench("rest");
    bench.motion.set(loadMotion(file.path));
    double reached = 0, wanted = 0;
    for (int64_t us = 0; us < 3 * kOneSecondUs; us += kPeriodUs) {
        const StabiliserState state = bench.stabiliser.stateAt(us);
        reached = std::max({reached, std::abs(state.lensX), std::abs(state.lensY)});
        wanted = std::max(wanted, std::abs(state.gyroTargetX));
    }
    EXPECT_GT(wanted, 2 * bench.settings.limitAngle);
    EXPECT_EQ(reached, bench.settings.limitAngle);

    // A pan is followed, not fought.
    Bench pan("pan");
    for (int64_t us = 0; us < 15 * kOneSecondUs; us += kPeriodUs)
        EXPECT_LT(std::abs(pan.stabiliser.stateAt(us).lensY), pan.settings.limitAngle);
}

TEST(Stabiliser, SameSeedSameBytesHoweverOftenAsked) {
    const auto run = [](uint64_t seed, int64_t periodUs) {
        StabiliserSettings settings;
        settings.seed = seed;
        Bench bench("hand", StabiliserMode::kOn, settings);
        std::vector<double> result;
        for (int64_t us = 0; us <= 2 * kOneSecondUs; us += periodUs) {
            const StabiliserState s = bench.stabiliser.stateAt(us);
            if (us % 100000 != 0) continue;
            result.insert(result.end(), {s.gyroRaw[0] + 0.0, s.accRaw[2] + 0.0, s.hallX + 0.0, s.hallY + 0.0,
                                         s.gyroTargetX, s.lensY});
        }
        return result;
    };
    const auto once = run(1, 100000);
    EXPECT_EQ(once, run(1, 100000));
    EXPECT_EQ(once, run(1, 250));
    EXPECT_NE(once, run(2, 100000));
}

TEST(Stabiliser, LongGapsLeaveNoTrace) {
    Bench steady("hand"), rare("hand");
    for (Bench* bench : {&steady, &rare}) bench->stabiliser.setAccCompensation(true, 0.3);
    constexpr int64_t kEndUs = 40 * kOneSecondUs;
    for (int64_t us = 0; us < kEndUs; us += kOneSecondUs) steady.stabiliser.advance(us);
    const StabiliserState expected = steady.stabiliser.stateAt(kEndUs),
                          state = rare.stabiliser.stateAt(kEndUs);
    EXPECT_EQ(state.gyroRaw, expected.gyroRaw);
    EXPECT_NEAR(state.hallX, expected.hallX, 1);
    EXPECT_NEAR(state.hallY, expected.hallY, 1);
    EXPECT_NEAR(state.accTargetX, expected.accTargetX, 0.0005);
    EXPECT_EQ(rare.stabiliser.stateAt(0).gyroTargetX, state.gyroTargetX) << "time never goes back";
}

TEST(Stabiliser, OffsetsRemoveTheBias) {
    StabiliserSettings settings;
    settings.gyroBiasRadS = {0.01, -0.01, 0};
    Bench bench("rest", StabiliserMode::kOff, settings);
    const double drift = 0.01 / (2 * std::numbers::pi * settings.highPassHz) * kDegPerRad;
    EXPECT_NEAR(bench.stabiliser.stateAt(8 * kOneSecondUs).gyroTargetX, -drift, 0.02);
    const auto measured = bench.stabiliser.measureGyro(8 * kOneSecondUs, 500000);
    EXPECT_LT(measured.deviationRaw[0], 1);
    bench.stabiliser.setGyroOffset(static_cast<int16_t>(std::lround(measured.meanRaw[0])),
                                   static_cast<int16_t>(std::lround(measured.meanRaw[1])));
    EXPECT_NEAR(bench.stabiliser.stateAt(16 * kOneSecondUs).gyroTargetX, 0, 0.03);
    EXPECT_NEAR(bench.stabiliser.stateAt(16 * kOneSecondUs).gyroTargetY, 0, 0.03);
    EXPECT_GT(Bench("hand").stabiliser.measureGyro(8 * kOneSecondUs, 500000).deviationRaw[0], 5);
}

// A camera that only shifts, by a sinusoid of 2 Hz and 1 m/s^2 along y.
TEST(Stabiliser, AccelerationTargetsAreTheShiftOverTheDistance) {
    constexpr double kOmega = 2 * std::numbers::pi * 2;
    const auto targetRms = [&](bool enabled, double distanceM) {
        Bench bench("rest");
        bench.move(500, [](double t) { return std::array{0.0, 0.0, kGravityMS2 + std::sin(kOmega * t)}; });
        bench.stabiliser.setAccCompensation(enabled, distanceM);
        const auto [x, y] = bench.figures();
        EXPECT_LT(y.shakeRms, 0.05) << "a shift along y is no business of channel y";
        EXPECT_TRUE(!enabled || x.suppressionDb() > 20);
        return x.shakeRms;
    };
    const double shiftM = 1 / std::sqrt(2) / (kOmega * kOmega);
    EXPECT_NEAR(targetRms(true, 0.5) / (shiftM / 0.5 * kDegPerRad), 1, 0.15);
    EXPECT_NEAR(targetRms(true, 1.0) / targetRms(true, 0.5), 0.5, 0.01);
    EXPECT_LT(targetRms(false, 0.5), 0.005);
}

// A camera that only rolls, by a sinusoid of 0.5 Hz: gravity turns in its axes, and that is no shift.
TEST(Stabiliser, TurningGravityIsNoShift) {
    constexpr double kOmega = 2 * std::numbers::pi * 0.5;
    constexpr double kRoll = 0.05;
    Bench bench("rest");
    bench.move(2000, [](double t) {
        const double roll = kRoll * std::sin(kOmega * t);
        return std::array{kRoll * kOmega * std::cos(kOmega * t), kGravityMS2 * std::sin(roll),
                          kGravityMS2 * std::cos(roll)};
    });
    bench.stabiliser.setAccCompensation(true, 0.5);
    // Taken for a shift, it would be one of 2 cm and more: 2.5 degrees.
    EXPECT_LT(bench.figures()[1].shakeRms, 0.1);
}

}  // namespace

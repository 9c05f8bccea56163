// Status recordings: reading, figures and plots.

#include "recording/recording.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <numbers>
#include <random>
#include <set>
#include <sstream>

#include "base/errors.h"
#include "motion/motion.h"
#include "recording/plot.h"
#include "recording/recording_compare.h"
#include "recording/row_order.h"
#include "recording/stats_report.h"
#include "recording/thinning.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;
using namespace oisctl;
using test_support::thrown;

constexpr const char* kHeader =
    "chose  sys_timestamp  gyro_raw_x  gyro_raw_y  gyro_raw_z  acc_raw_x  acc_raw_y  acc_raw_z  "
    "gyro_target_x  gyro_target_y  acc_target_x  acc_target_y  hall_x  hall_y  synthetic_x  synthetic_y  "
    "angle_gyro_target_x  angle_gyro_target_y  angle_acc_target_x  angle_acc_target_y  angle_hall_x  "
    "angle_hall_y\n";

// A folder of the test's own.
class RecordingTest : public testing::Test {
  protected:
    void SetUp() override { fs::create_directories(mFolder); }
    void TearDown() override { fs::remove_all(mFolder); }

    Recording read(const std::string& content) const {
        std::ofstream(mFile, std::ios::binary) << content;
        return loadRecording(mFile);
    }
    RecordingStats statsOf(const std::string& content) const { return computeStats(read(content)); }

    const fs::path mFolder = fs::path(testing::TempDir()) / ("recording_test_" + std::to_string(getpid()));
    const fs::path mFile = mFolder / "status.txt";
};

struct Angles {
    double targetX = 0, targetY = 0, accX = 0, accY = 0, hallX = 0, hallY = 0;
};

std::string row(double timeS, const Angles& angles) {
    char text[400];
    const auto seconds = static_cast<int64_t>(timeS);
    std::snprintf(
        text, sizeof text,
        "15  %lld.%06ld  100  -200  3  0  0  8192  1  2  0  0  7  8  0  0  %g  %g  %g  %g  %g  %g\n",
        static_cast<long long>(seconds), std::lround((timeS - static_cast<double>(seconds)) * 1e6),
        angles.targetX, angles.targetY, angles.accX, angles.accY, angles.hallX, angles.hallY);
    return text;
}

std::string rows(double seconds, double periodS, const std::function<Angles(double)>& angles) {
    std::string content = kHeader;
    for (int i = 0; i * periodS < seconds; ++i) content += row(7 + i * periodS, angles(i * periodS));
    return content;
}

double sine(double timeS, double hz, double height) {
    return height * std::sin(2 * std::numbers::pi * hz * timeS);
}

TEST_F(RecordingTest, ReadsEveryColumn) {
    const Recording recording = read(
        std::string(kHeader) +
        "15  100.999000  1  -2  3  -4  5  -6  7  -8  9  -10  11  -12  13  -14  0.007  -0.008  1e-05  inf  "
        "-nan  -inf\n"
        "0  101.5007  32767  -32768  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  -1.23457e+06  nan\n");
    ASSERT_EQ(recording.rows(), 2U);
    EXPECT_TRUE(recording.unreadable.empty());
    EXPECT_NEAR(recording.timeS[1], 0.006007, 1e-12) << "the fraction counts microseconds";
    for (int i = 1; i <= 14; ++i)
        EXPECT_EQ(recording.columns[static_cast<size_t>(i) + 1][0], i % 2 == 1 ? i : -i);
    EXPECT_EQ(recording[Column::kAngleAccTargetX][0], 1e-5F);
    EXPECT_TRUE(std::isinf(recording[Column::kAngleAccTargetY][0]));
    EXPECT_TRUE(std::isnan(recording[Column::kAngleHallX][0]));
    EXPECT_EQ(recording[Column::kAngleHallX][1], -1.23457e6F);
}

// Kept rows as a dot, the first of a stretch as B, repeats as r, strays as o.
TEST(RowOrder, KeepsTheRowsThatGoOn) {
    std::vector<int64_t> twice;
    for (int i = 0; i < 24; ++i) twice.push_back(100 + i % 12);
    const struct {
        const char* what;
        std::vector<int64_t> times;
        std::vector<size_t> headers;
        const char* fates;
    } cases[] = {
        {"in order", {1, 2, 3}, {}, "B.."},
        {"the same time again", {1, 2, 2, 2, 3}, {}, "B.rr."},
        {"an earlier row again", {1, 2, 3, 2, 4}, {}, "B..r."},
        {"one late", {1, 2, 4, 3, 5, 6}, {}, "B..o.."},
        {"one far ahead", {1, 2, 4000, 3, 4, 5}, {}, "B.o..."},
        {"two far ahead", {1, 2, 4000, 4001, 3, 4, 5}, {}, "B.oo..."},
        {"the first far ahead", {4000, 1, 2, 3}, {}, "oB.."},
        {"ahead, and stays there", {1, 2, 4000, 4001}, {}, "B..."},
        {"a second session", twice, {}, "B...........B..........."},
        {"a second session, cut short", {5, 6, 7, 8, 1, 2}, {}, "B...B."},
        {"a second file behind the first", {1, 2, 3, 4}, {2}, "B.B."},
    };
    for (const auto& c : cases) {
        std::string fates;
        for (const RowFate fate : rowFates(c.times, c.headers)) fates += ".Bro"[static_cast<size_t>(fate)];
        EXPECT_EQ(fates, c.fates) << c.what;
    }
}

TEST_F(RecordingTest, SaysWhatIsWrongAndWhere) {
    std::string badHeader = kHeader;
    badHeader.replace(badHeader.find("hall_x"), 6, "hole_x");
    const std::pair<std::string, const char*> kCases[] = {
        {"", ":1: no header line; this is no status recording"},
        {std::string(3 << 20, 'x'), ":1: a line of more than 1048576 bytes"},
        {"hello world\n", ":1: 2 columns, expected 22; this is no status recording"},
        {badHeader, ":1: column 13 is \"hole_x\", expected \"hall_x\"; this is no status recording"},
    };
    for (const auto& [content, failure] : kCases)
        EXPECT_EQ(thrown([&, &content = content] { read(content); }), mFile.string() + failure);
    EXPECT_THROW(loadRecording(mFolder / "absent.txt"), InputError);
    EXPECT_THROW(statsOf(kHeader + row(1, {})), InputError);
}

// x follows its target to a tenth and beside the centre; y does not move.
TEST_F(RecordingTest, FiguresAreThoseOfTheSignals) {
    const RecordingStats stats = statsOf(rows(10, 0.004, [](double t) {
        return Angles{sine(t, 2, 0.8), sine(t, 2, 0.5), sine(t, 2, 0.2), 0, sine(t, 2, 0.9) + 0.3, 0};
    }));
    EXPECT_NEAR(stats.rateHz, 250, 1e-6);
    const AxisStats& x = stats.axes[0];
    EXPECT_NEAR(x.targetRms, 1 / std::sqrt(2), 1e-4);
    EXPECT_NEAR(x.targetPeak, 1, 1e-4);
    EXPECT_NEAR(x.trackingErrorRms, 0.1 / std::sqrt(2), 1e-4);
    EXPECT_NEAR(x.trackingErrorMean, -0.3, 1e-4);
    EXPECT_FALSE(stats.suppression) << "from the recording alone nobody knows how the hand moved";
}

// The lens halves the slow motion, misses a fifth of the quick one, and its target is right throughout.
TEST_F(RecordingTest, SuppressionIsOfTheTrueMotionByBand) {
    const auto lens = [](double t) { return sine(t, 1, 0.5) + sine(t, 10, 0.08); };
    const Recording recording =
        read(rows(20, 0.004, [&](double t) { return Angles{lens(t), lens(t), 0, 0, lens(t), lens(t)}; }));
    Known known;
    for (Samples& motion : known.trueMotion)
        for (const double t : recording.timeS)
            motion.push_back(static_cast<float>(sine(t, 1, 1) + sine(t, 10, 0.1)));
    const RecordingStats stats = computeStats(recording, known);
    ASSERT_TRUE(stats.suppression);
    const double expected[] = {20 * std::log10(2), std::nan(""), 20 * std::log10(5), 6.03};
    for (size_t band = 0; band < 4; ++band) {
        const BandSuppression& of = stats.suppression->bands[band];
        for (size_t axis = 0; axis < 2; ++axis) {
            if (band == 1) {
                EXPECT_TRUE(std::isnan(of.db(axis))) << "no motion there";
            } else {
                EXPECT_NEAR(of.db(axis), expected[band], 0.05) << band;
            }
        }
    }
    EXPECT_LT(stats.axes[0].trackingErrorRms, 1e-6) << "a lens that follows its target to the dot";
}

TEST_F(RecordingTest, GapsAreLongPeriods) {
    std::string content = kHeader;
    for (const double t : {0.0, 0.004, 0.008, 0.013, 0.017, 0.026, 0.030, 0.130}) content += row(t, {});
    const RecordingStats stats = statsOf(content);
    EXPECT_NEAR(stats.medianPeriodS, 0.004, 1e-9);
    EXPECT_EQ(stats.gaps.count, 2U);
    EXPECT_EQ(stats.lost, 25U);
    EXPECT_EQ(stats.gaps.ranges[1].first, 8U);
    EXPECT_NEAR(stats.longestGapS, 0.1, 1e-9);
    EXPECT_TRUE(stats.frequencyHz.empty());
}

TEST_F(RecordingTest, LimitIsWhereTheLensStops) {
    const auto clamped = [](double t) {
        const double target = sine(t, 0.7, 2);
        const double free = sine(t, 0.7, 0.5);
        return Angles{target, free, 0, 0, std::clamp(target, -1.2, 1.2), 0.8 * free};
    };
    const RecordingStats stats = statsOf(rows(10, 0.004, clamped));
    EXPECT_NEAR(stats.axes[0].limit, 1.2, 1e-6);
    // |sin| above 0.6 for this part of the time.
    const double part = 1 - 2 / std::numbers::pi * std::asin(0.6);
    EXPECT_NEAR(static_cast<double>(stats.axes[0].samplesAtLimit), part * 2500, 25);
    EXPECT_TRUE(std::isnan(stats.axes[1].limit)) << "a lens that turns round by itself is not at a limit";
}

TEST_F(RecordingTest, SpectrumHasThePowerWhereItIs) {
    std::mt19937 random(1);
    std::normal_distribution<double> jitter(0, 0.0004);
    std::string content = kHeader;
    for (int i = 0; i < 5000; ++i) {
        const double t = 3 + i * 0.004 + std::clamp(jitter(random), -0.001, 0.001);
        content += row(t, {sine(t, 9, 0.2), 0, 0, 0, sine(t, 9, 0.15), 0});
    }
    const RecordingStats stats = statsOf(content);
    ASSERT_FALSE(stats.frequencyHz.empty());
    EXPECT_NEAR(stats.frequencyHz.back(), 125, 1);
    const double stepHz = stats.frequencyHz[1] - stats.frequencyHz[0];
    double inBand = 0, outside = 0, error = 0;
    for (size_t i = 0; i < stats.frequencyHz.size(); ++i) {
        const double power = std::pow(stats.axes[0].targetDensity[i], 2) * stepHz;
        (std::abs(stats.frequencyHz[i] - 9) < 1 ? inBand : outside) += power;
        error += std::pow(stats.axes[0].trackingErrorDensity[i], 2) * stepHz;
    }
    EXPECT_NEAR(std::sqrt(inBand), 0.2 / std::sqrt(2), 0.003);
    EXPECT_LT(outside, inBand / 1000);
    EXPECT_NEAR(std::sqrt(error), 0.05 / std::sqrt(2), 0.002);
}

// A module whose amplitude is zero has no hall angles; one at rest has no shake.
TEST_F(RecordingTest, WhatCannotBeToldIsNotMadeUp) {
    const double inf = std::numeric_limits<double>::infinity();
    const Recording recording =
        read(rows(2, 0.004, [&](double t) { return Angles{sine(t, 2, 0.5), 0.0005, 0, 0, inf, 0}; }));
    const Record report = statsReport(examine(recording.source));
    const auto text = [&report](std::string_view key) {
        const auto found =
            std::find_if(report.begin(), report.end(), [key](const Field& f) { return f.key == key; });
        return found == report.end() ? "no such field" : found->text;
    };
    EXPECT_EQ(text("rows"), "500, 1.996 s at 250.0 Hz");
    EXPECT_EQ(text("tracking_error_rms_deg"), "           -    0.0000 deg");
    EXPECT_EQ(figure(-0.04, 1, " dB"), "0.0 dB") << "no negative zero";
}

struct Misleading {
    const char* what;
    std::function<std::string()> content;
    std::vector<std::string> verdicts;  // kind, axis and the lines of each; "?" behind what is no fault
};

// What the verdicts say of a good recording, as "kind axis first-last,first-last".
std::vector<std::string> verdictsOf(const Examined& examined) {
    std::vector<std::string> result;
    for (const RecordingVerdict& verdict : examined.verdicts) {
        std::string text = keyOf(verdict.kind);
        if (verdict.axis != 0) text += std::string(" ") + verdict.axis;
        for (const LineRange& range : verdict.places.ranges)
            text += (&range == &verdict.places.ranges.front() ? " " : ",") + std::to_string(range.first) +
                    "-" + std::to_string(range.last);
        result.push_back(text + (verdict.fault ? "" : "?"));
    }
    return result;
}

// A recording of a hand, line by line, so that a case can spoil it: line 2 is the first row.
class Good {
  public:
    using Spoil = std::function<void(size_t line, double& timeS, Angles& angles, std::array<int, 3>& gyro)>;
    explicit Good(const Spoil& spoil = {}) {
        std::minstd_rand random(1);
        std::normal_distribution<double> noise(0, 0.002);
        mLines.push_back(kHeader);
        for (size_t i = 0; i < 3000; ++i) {
            double t = static_cast<double>(i) * 0.004;
            const double x = sine(t, 1.3, 0.4) + sine(t, 9, 0.05), y = sine(t, 0.9, 0.5);
            Angles angles{x, y, 0, 0, x + noise(random), y + noise(random)};
            std::array<int, 3> gyro{};
            for (int& count : gyro) count = static_cast<int>(std::lround(noise(random) * 1000));
            gyro[0] += static_cast<int>(
                std::lround(-50 * (std::cos(8.168 * t) * 3.267 + std::cos(56.55 * t) * 2.83)));
            gyro[1] += static_cast<int>(std::lround(-50 * std::cos(5.655 * t) * 2.827));
            t += 7;
            if (spoil) spoil(i + 2, t, angles, gyro);
            std::string line = row(t, angles);
            line.replace(
                line.find("100  -200  3"), 12,
                std::to_string(gyro[0]) + "  " + std::to_string(gyro[1]) + "  " + std::to_string(gyro[2]));
            mLines.push_back(line);
        }
    }
    std::string& line(size_t number) { return mLines[number - 1]; }
    void swap(size_t a, size_t b) { std::swap(line(a), line(b)); }
    std::string text() const {
        std::string result;
        for (const std::string& line : mLines) result += line;
        return result;
    }

  private:
    std::vector<std::string> mLines;
};

// What is not found, because it could not be, is not what is not there.
TEST_F(RecordingTest, WhatIsNotToldIsNamed) {
    const auto untold = [this](const std::string& content) {
        const Recording recording = read(content);
        std::vector<std::string> all;
        for (const NotTold& one : notTold(recording, computeStats(recording), {})) all.push_back(toText(one));
        return all;
    };
    const auto still = [&](double seconds) {
        return untold(rows(seconds, 0.004, [&](double t) { return Angles{sine(t, 2, 0.5), 0, 0, 0, 0, 0}; }));
    };
    const std::vector<std::string> nothingMoves{"targets_frozen x: the gyro does not move",
                                                "lens_still y: the target does not move",
                                                "targets_frozen y: the gyro does not move"};
    EXPECT_EQ(still(2), nothingMoves);
    const std::vector<std::string> whole = untold(Good().text());
    EXPECT_EQ(whole, std::vector<std::string>{});
    const std::vector<std::string> brief = still(0.2);
    for (const char* text :
         {"hall_frozen: shorter than 0.25 s or 20 rows", "at_limit: shorter than 0.5 s or 20 rows",
          "targets_frozen: shorter than 1 s or 20 rows", "gyro_frozen: shorter than 1 s or 20 rows",
          "gyro_bias: fewer than 320 rows", "rate_off: fewer than 65 rows"})
        EXPECT_EQ(std::ranges::count(brief, text), 1) << text;
    // An interval that is known tells the rate of any recording.
    const Recording few = read(rows(0.2, 0.004, [](double) { return Angles{}; }));
    for (const NotTold& one : notTold(few, computeStats(few), {.intervalS = 0.004}))
        EXPECT_NE(one.kind, VerdictKind::kRateOff);
}

bool among(size_t line, size_t first, size_t last) {
    return line >= first && line <= last;
}

TEST_F(RecordingTest, WhatIsWrongIsNamedWithItsLines) {
    using Gyro = std::array<int, 3>;
    double held = 0;
    const auto spoilt = [](const Good::Spoil& spoil) { return [spoil] { return Good(spoil).text(); }; };
    const Misleading cases[] = {
        {"a good one", [] { return Good().text(); }, {}},
        {"a lens that does not move",
         spoilt([](size_t line, double&, Angles& a, Gyro&) { a.hallX = line % 2 == 0 ? 0.001 : 0.002; }),
         {"lens_still x 2-3001"}},
        {"a hall that stands for a part of it",
         spoilt([&](size_t line, double&, Angles& a, Gyro&) {
             if (line == 1000) held = a.hallY;
             if (among(line, 1000, 1200)) a.hallY = held;
         }),
         {"hall_frozen y 1000-1200"}},
        {"a lens at its stop",
         spoilt([](size_t line, double&, Angles& a, Gyro&) {
             if (among(line, 500, 900)) a.hallX = 0.597 + static_cast<double>(line % 3) * 0.001;
             if (among(line, 500, 900)) a.targetX += 1;
         }),
         {"at_limit x 500-900"}},
        {"an idle controller",
         spoilt([](size_t line, double&, Angles& a, Gyro&) {
             if (line >= 2000)
                 a = {0.1,
                      0.1,
                      0,
                      0,
                      0.1 + static_cast<double>(line % 3) * 0.001,
                      0.1 + static_cast<double>(line % 3) * 0.001};
         }),
         {"targets_frozen x 2000-3001", "targets_frozen y 2000-3001"}},
        {"a gyro that is not read",
         spoilt([](size_t line, double&, Angles&, Gyro& g) {
             if (among(line, 100, 600)) g = {5, 5, 5};
         }),
         {"gyro_frozen 100-600"}},
        {"a gyro that is off",
         spoilt([](size_t, double&, Angles& a, Gyro& g) {
             g[1] += 20;
             for (double* angle : {&a.targetY, &a.hallY}) *angle -= 0.2;
         }),
         {"gyro_bias y 2-3001"}},
        {"a gyro that is off, and calibrated",
         spoilt([](size_t, double&, Angles&, Gyro& g) { g[1] += 20; }),
         {}},
        {"a pause",
         spoilt([](size_t line, double& t, Angles&, Gyro&) { t += line >= 1500 ? 0.4 : 0; }),
         {"samples_lost 1499-1500"}},
        {"a single one lost",
         spoilt([](size_t line, double& t, Angles&, Gyro&) { t += line >= 1500 ? 0.004 : 0; }),
         {"samples_lost 1499-1500?"}},
        {"46 days for one row",
         spoilt([](size_t line, double& t, Angles&, Gyro&) { t += line == 1500 ? 46 * 86400 : 0; }),
         {"samples_lost 1499-1501?", "samples_out_of_order 1500-1500?"}},
        {"46 days from one row on",
         spoilt([](size_t line, double& t, Angles&, Gyro&) { t += line >= 1500 ? 46 * 86400 : 0; }),
         {"time_jump 1500-1500"}},
        {"two sessions in one file",
         spoilt([](size_t line, double& t, Angles&, Gyro&) { t -= line >= 1500 ? 6 : 0; }),
         {"second_session 1500-1500"}},
        {"two files in one", [] { return Good().text() + Good().text(); }, {"second_session 3003-3003"}},
        {"rows that changed places",
         [] {
             // And later one is lost, which no row elsewhere stands for.
             Good good([](size_t line, double& t, Angles&, Gyro&) { t += line >= 1500 ? 0.004 : 0; });
             good.swap(700, 701);
             return good.text();
         },
         {"samples_lost 1499-1500?", "samples_out_of_order 701-701?"}},
        {"a row twice, a torn one, one of zeros, a cut one",
         [] {
             Good good;
             good.line(50) += good.line(50);
             good.line(60) = "15  7.2\n";
             good.line(70) =
                 "15  0.000000  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  -2.1  3.4\n";
             good.line(3001).resize(30);
             return good.text();
         },
         {"samples_lost 60-62,70-72?", "samples_repeated 51-51?", "unanswered 71-71?", "unreadable 61-61?",
          "cut 3002-3002?"}},
        {"a rate that sinks",
         spoilt([](size_t line, double& t, Angles&, Gyro&) {
             t += std::clamp(static_cast<double>(line) - 2000, 0.0, 500.0) * 0.0015;
         }),
         {"rate_off 1986-2497"}},
    };
    for (const Misleading& c : cases) {
        std::ofstream(mFile, std::ios::binary) << c.content();
        EXPECT_EQ(verdictsOf(examine(mFile.string())), c.verdicts) << c.what;
    }
}

TEST_F(RecordingTest, AFigureOverItsLimitIsAFault) {
    std::ofstream(mFile) << Good().text();
    EXPECT_TRUE(isGood(examine(mFile.string(), {}, {{"tracking_error_rms_deg", 0.01}}).verdicts));
    EXPECT_EQ(verdictsOf(examine(mFile.string(), {}, {{"target_rms_deg", 0.3}})),
              std::vector<std::string>{"over_limit y 2-3001"});
}

// A gap costs nothing: neither memory nor rows in the spectrum.
TEST_F(RecordingTest, GapsAreIntervals) {
    const RecordingStats whole = statsOf(Good().text());
    const RecordingStats apart = statsOf(Good([](size_t line, double& t, Angles&, std::array<int, 3>&) {
                                             t += line >= 1500 ? 500 : 0;
                                         }).text());
    EXPECT_EQ(apart.rows, 3000U);
    EXPECT_EQ(apart.segments.size(), 2U);
    EXPECT_EQ(apart.frequencyHz, whole.frequencyHz);
    EXPECT_NEAR(apart.axes[0].targetDensity[5], whole.axes[0].targetDensity[5], 0.1);
}

TEST_F(RecordingTest, TheSidecarIsUsedForItsOwnRecordingOnly) {
    const Recording recording = read(Good().text());
    const auto hand = phone::motionByName("hand", 1);
    writeSidecar(recording,
                 {.module = "m", .way = "hub", .modes = {{0, 0}}, .motion = "hand", .limitAngle = 1.25},
                 hand);
    const std::optional<FoundSidecar> found = findSidecar(recording);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->whyNot, "");
    EXPECT_EQ(found->known.limitAngle, 1.25);
    EXPECT_TRUE(found->known.lensHeld);
    // Five seconds on: the hand's turning, as the motion itself says.
    double turnedDeg = 0;
    for (int64_t step = 14001; step <= 24000; ++step)
        turnedDeg -=
            hand->at(static_cast<double>(step) * 0.0005).gyroRadS[1] * 0.0005 * 180 / std::numbers::pi;
    EXPECT_NEAR(found->known.trueMotion[1][1250], turnedDeg, 1e-4);

    std::ofstream(mFile, std::ios::app) << row(30, {});
    EXPECT_EQ(findSidecar(loadRecording(mFile))->whyNot, "it belongs to another recording");
    std::ofstream(mFile.string() + ".about.json") << "{}";
    EXPECT_NE(findSidecar(recording)->whyNot, "");
}

// Rows stand beside each other by their time since the first one, whenever that was.
TEST_F(RecordingTest, TwoAreEqualByTheirRows) {
    using Gyro = std::array<int, 3>;
    const std::string plain = Good().text();
    Good repeated, missing;
    repeated.line(50) += repeated.line(50);
    missing.line(1500).clear();
    const struct {
        const char* what;
        std::string b;
        std::vector<size_t> counts;  // alike, with other values, only in A, only in B
        std::vector<size_t> first;   // its lines, and columns
    } cases[] = {
        {"the same", plain, {3000, 0, 0, 0}, {}},
        {"an hour later",
         Good([](size_t, double& t, Angles&, Gyro&) { t += 3600; }).text(),
         {3000, 0, 0, 0},
         {}},
        {"a row twice", repeated.text(), {3000, 0, 0, 0}, {}},
        {"two values",
         Good([](size_t line, double&, Angles& a, Gyro& g) {
             if (line == 700) a.hallY = g[0] = 9;
         }).text(),
         {2999, 1, 0, 0},
         {700, 700, 2, 21}},
        {"no number",
         Good([](size_t line, double&, Angles& a, Gyro&) { a.hallX = line == 9 ? NAN : a.hallX; }).text(),
         {2999, 1, 0, 0},
         {9, 9, 20}},
        {"a row less", missing.text(), {2999, 0, 1, 0}, {1500, 0}},
        {"a row late",
         Good([](size_t line, double& t, Angles&, Gyro&) { t += line == 8 ? 0.001 : 0; }).text(),
         {2999, 0, 1, 1},
         {8, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        read(plain);
        const Examined a = examine(mFile.string());
        read(c.b);
        const RecordingComparison compared = compareRecordings(a, examine(mFile.string()));
        EXPECT_EQ((std::vector{compared.alike, compared.other, compared.onlyA, compared.onlyB}), c.counts);
        EXPECT_EQ(isEqual(compared), c.first.empty());
        std::vector<size_t> first;
        if (compared.first) first = {compared.first->lineA, compared.first->lineB};
        if (compared.first)
            for (const RowDifference::Sample& sample : compared.first->samples)
                first.push_back(sample.column);
        EXPECT_EQ(first, c.first);
    }
}

TEST_F(RecordingTest, FiguresSettingsAndVerdictsStandSideBySide) {
    const auto examined = [this](const Good& good, uint64_t seed) {
        writeSidecar(read(good.text()),
                     {.module = "m",
                      .way = "hub",
                      .modes = {{1, 2}},
                      .motion = "hand",
                      .seed = seed,
                      .limitAngle = 1.25},
                     phone::motionByName("hand", seed));
        return examine(mFile.string());
    };
    const Examined a = examined(Good(), 1);
    const Examined b =
        examined(Good([](size_t, double&, Angles& angles, std::array<int, 3>&) { angles.hallX = 0; }), 2);
    const RecordingComparison compared = compareRecordings(a, b);
    std::set<std::string> different;
    for (const FigurePair& pair : compared.figures)
        if (differs(pair)) different.insert(pair.a.key + "." + pair.a.axis);
    EXPECT_TRUE(different.contains("tracking_error_rms_deg.x"));
    EXPECT_TRUE(different.contains("suppression_2_to_8_hz_db.y"));
    EXPECT_FALSE(different.contains("tracking_error_rms_deg.y"));
    for (const SettingPair& pair : compared.settings)
        EXPECT_EQ(differs(pair), pair.name == "seed") << pair.name;
    const auto frozen = std::ranges::find_if(
        compared.verdicts, [](const VerdictPair& pair) { return pair.b->kind == VerdictKind::kHallFrozen; });
    ASSERT_NE(frozen, compared.verdicts.end());
    EXPECT_EQ(frozen->a, nullptr);
}

// A spike of one row and a gap survive; lines stay few.
TEST(Thinning, KeepsPeaksAndGaps) {
    std::vector<double> timeS;
    Samples values;
    for (int i = 0; i < 100000; ++i) {
        timeS.push_back(i * 0.004 + (i >= 60000 ? 50 : 0));
        values.push_back(i == 12345 ? 9 : 0.1F * static_cast<float>(i % 2));
    }
    std::string text;
    appendThinned(text, timeS, {{0, 60000}, {60000, 100000}}, {0, 100000}, {&values}, 500);
    EXPECT_LT(std::ranges::count(text, '\n'), 1010);
    EXPECT_NE(text.find(" 9\n"), std::string::npos);
    const size_t gap = text.find("\n\n");
    EXPECT_NEAR(std::stod(text.substr(gap + 2)), 290, 1e-6) << "what comes behind the gap begins a new line";

    std::string path;
    appendThinnedPath(path, values, values, {{0, 60000}, {60000, 100000}}, -10, 10, 100);
    EXPECT_LT(std::ranges::count(path, '\n'), 20);
    EXPECT_NE(path.find(" 9 9\n"), std::string::npos);
}

class PlotTest : public RecordingTest {
  protected:
    std::string plot(const std::string& content, const fs::path& out) const {
        read(content);
        Examined examined = examine(mFile.string());
        examined.recording.source = "it's a \"`touch oops`\"\n.txt";
        return thrown([&] { plotRecording(examined, out); });
    }
    static bool haveGnuplot() { return std::system("command -v gnuplot >/dev/null") == 0; }
    static std::string begin(const fs::path& file, size_t count) {
        std::ifstream in(file, std::ios::binary);
        std::string text(count, '\0');
        in.read(text.data(), static_cast<std::streamsize>(count));
        return text;
    }
};

TEST_F(PlotTest, DrawsWhateverTheRecordingHolds) {
    if (!haveGnuplot()) GTEST_SKIP() << "no gnuplot";
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::string contents[] = {
        rows(6, 0.004, [](double t) { return Angles{sine(t, 2, 1), sine(t, 3, 1), 0, 0, sine(t, 2, 1), 0}; }),
        rows(6, 0.004, [](double) { return Angles{}; }),
        rows(6, 0.004, [&](double) { return Angles{0, 0, 0, 0, nan, nan}; }),
        rows(0.008, 0.004, [](double) { return Angles{}; }),
    };
    // A name that a shell or gnuplot would trip over, as the recording's.
    const fs::path png = mFolder / "a 'b' `touch oops` $(touch oops).png";
    for (const std::string& content : contents) {
        EXPECT_EQ(plot(content, png), "");
        EXPECT_EQ(begin(png, 4), "\x89PNG");
        EXPECT_GT(fs::file_size(png), 20000U);
        fs::remove(png);
    }
    const Examined longer = examine(mFile.string());
    read(contents[0]);
    for (const auto& [a, b] : {std::pair(examine(mFile.string()), longer), std::pair(longer, longer)}) {
        EXPECT_EQ(thrown([&, &a = a, &b = b] { plotBoth(a, b, png); }), "");
        EXPECT_EQ(begin(png, 4), "\x89PNG");
    }
    EXPECT_EQ(plot(contents[0], mFolder / "b.svg"), "");
    EXPECT_EQ(begin(mFolder / "b.svg", 5), "<?xml");
    EXPECT_FALSE(fs::exists("oops"));
}

TEST_F(PlotTest, SaysWhyThereIsNoPicture) {
    const std::string content = rows(1, 0.004, [](double t) { return Angles{sine(t, 2, 1)}; });
    EXPECT_EQ(plot(content, "x.jpg"), "x.jpg: a plot is a .png or an .svg file");

    const fs::path kept = mFolder / "kept.png";
    std::ofstream(kept) << "an older picture";
    const std::string path = std::getenv("PATH");
    setenv("PATH", mFolder.c_str(), 1);
    EXPECT_EQ(plot(content, kept), "gnuplot is not installed; the package gnuplot-nox has it");
    std::ofstream(mFolder / "gnuplot") << "#!/bin/sh\necho \"out of ink\" >&2\nexit 3\n";
    fs::permissions(mFolder / "gnuplot", fs::perms::owner_all);
    EXPECT_EQ(plot(content, kept), "gnuplot failed: out of ink");
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(begin(kept, 8), "an older");

    if (!haveGnuplot()) GTEST_SKIP() << "no gnuplot";
    const std::string failure = plot(content, mFolder / "absent" / "p.png");
    EXPECT_NE(failure.find("p.png: cannot be written: No such file"), std::string::npos) << failure;
}

}  // namespace

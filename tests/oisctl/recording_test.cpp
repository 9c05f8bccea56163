// Status recordings: reading, figures and plots.

#include "recording/recording.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <numbers>
#include <random>
#include <sstream>

#include "recording/plot.h"
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
    EXPECT_TRUE(recording.notes.empty());
    EXPECT_NEAR(recording[Column::kTimestamp][1], 0.006007, 1e-12) << "the fraction counts microseconds";
    for (int i = 1; i <= 14; ++i)
        EXPECT_EQ(recording.columns[static_cast<size_t>(i) + 1][0], i % 2 == 1 ? i : -i);
    EXPECT_EQ(recording[Column::kAngleAccTargetX][0], 1e-5);
    EXPECT_TRUE(std::isinf(recording[Column::kAngleAccTargetY][0]));
    EXPECT_TRUE(std::isnan(recording[Column::kAngleHallX][0]));
    EXPECT_EQ(recording[Column::kAngleHallX][1], -1.23457e6);
}

TEST_F(RecordingTest, LeavesOutWhatTellsNothingAndSaysSo) {
    const std::string unanswered =
        "15  0.000000  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  -2.1  3.4\n";
    const Recording recording = read(kHeader + unanswered + row(1, {}) + row(2, {}) + unanswered +
                                     row(2, {}) + row(1.5, {}) + row(3, {}) + "15  4.000000  1  2");
    EXPECT_EQ(recording[Column::kTimestamp], (std::vector<double>{0, 1, 2}));
    EXPECT_EQ(recording.notes,
              (std::vector<std::string>{
                  "2 rows left out, the first in line 2: all zero, the controller did not answer",
                  "2 rows left out, the first in line 6: time does not go on",
                  "line 9 left out: cut while being written"}));
    EXPECT_EQ(read(kHeader).rows(), 0U);
}

TEST_F(RecordingTest, SaysWhatIsWrongAndWhere) {
    std::string badHeader = kHeader;
    badHeader.replace(badHeader.find("hall_x"), 6, "hole_x");
    std::string badNumber = row(1, {}), badTime = row(1, {});
    badNumber.replace(badNumber.rfind("0\n"), 1, "0.1x");
    badTime.replace(badTime.find("1.000000"), 8, "1,000000");
    const std::pair<std::string, const char*> kCases[] = {
        {"", ":1: no header line; this is no status recording"},
        {"hello world\n", ":1: 2 columns, expected 22; this is no status recording"},
        {badHeader, ":1: column 13 is \"hole_x\", expected \"hall_x\"; this is no status recording"},
        {kHeader + row(1, {}) + "15  2.000000  1\n", ":3: 3 columns, expected 22"},
        {kHeader + badNumber, ":2: angle_hall_y is \"0.1x\", expected a number"},
        {kHeader + badTime, ":2: sys_timestamp is \"1,000000\", expected seconds.microseconds"},
    };
    for (const auto& [content, failure] : kCases)
        EXPECT_EQ(thrown([&] { read(content); }), mFile.string() + failure);
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
    EXPECT_NEAR(x.shakeRms, 1 / std::sqrt(2), 1e-4);
    EXPECT_NEAR(x.shakePeak, 1, 1e-4);
    EXPECT_NEAR(x.residualRms, 0.1 / std::sqrt(2), 1e-4);
    EXPECT_NEAR(x.residualMean, -0.3, 1e-4);
    EXPECT_NEAR(x.suppressionDb, 20, 0.01);
    EXPECT_NEAR(stats.axes[1].suppressionDb, 0, 1e-6);
}

TEST_F(RecordingTest, GapsAreLongPeriods) {
    std::string content = kHeader;
    for (const double t : {0.0, 0.004, 0.008, 0.013, 0.017, 0.027, 0.031, 0.131}) content += row(t, {});
    const RecordingStats stats = statsOf(content);
    EXPECT_NEAR(stats.medianPeriodS, 0.004, 1e-9);
    EXPECT_EQ(stats.gaps, 2U);
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
    double inBand = 0, outside = 0, residual = 0;
    for (size_t i = 0; i < stats.frequencyHz.size(); ++i) {
        const double power = std::pow(stats.axes[0].shakeDensity[i], 2) * stepHz;
        (std::abs(stats.frequencyHz[i] - 9) < 1 ? inBand : outside) += power;
        residual += std::pow(stats.axes[0].residualDensity[i], 2) * stepHz;
    }
    EXPECT_NEAR(std::sqrt(inBand), 0.2 / std::sqrt(2), 0.003);
    EXPECT_LT(outside, inBand / 1000);
    EXPECT_NEAR(std::sqrt(residual), 0.05 / std::sqrt(2), 0.002);
}

// A module whose amplitude is zero has no hall angles; one at rest has no shake.
TEST_F(RecordingTest, WhatCannotBeToldIsNotMadeUp) {
    const double inf = std::numeric_limits<double>::infinity();
    const Recording recording =
        read(rows(2, 0.004, [&](double t) { return Angles{sine(t, 2, 0.5), 0.0005, 0, 0, inf, 0}; }));
    const RecordingStats stats = computeStats(recording);
    for (const AxisStats& axis : stats.axes) EXPECT_TRUE(std::isnan(axis.suppressionDb));
    const Record report = statsReport(recording, stats);
    const auto text = [&report](std::string_view key) {
        const auto found =
            std::find_if(report.begin(), report.end(), [key](const Field& f) { return f.key == key; });
        return found == report.end() ? "no such field" : found->text;
    };
    EXPECT_EQ(text("rows"), "500, 1.996 s at 250.0 Hz");
    EXPECT_EQ(text("residual_rms_deg"), "           -    0.0000 deg");
    EXPECT_EQ(figure(-0.04, 1, " dB"), "0.0 dB") << "no negative zero";
}

class PlotTest : public RecordingTest {
  protected:
    std::string plot(const std::string& content, const fs::path& out) const {
        Recording recording = read(content);
        recording.source = "it's a \"`touch oops`\"\n.txt";
        return thrown([&] { plotRecording(recording, computeStats(recording), out); });
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

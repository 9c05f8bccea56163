// What a status recording says about the stabilisation.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <eigen3/unsupported/Eigen/FFT>
#include <limits>
#include <numbers>

#include "base/suggest.h"
#include "base/terminal.h"
#include "recording/recording.h"

namespace oisctl {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

constexpr double kGapPeriods = 1.5;

// Below this many degrees of shake (twice the resolution of a target) a ratio says nothing.
constexpr double kTooLittleShake = 0.002;

// A lens at its stop piles up readings at the outermost angle; one that turns round by itself does not.
constexpr double kAtLimitPart = 0.99;
constexpr double kNearLimitPart = 0.96;
constexpr size_t kMinAtLimit = 10;
constexpr double kMinTravelPart = 0.1;  // of the target's; a lens that moves less does not follow at all

constexpr double kSegmentS = 5;  // of the spectrum: its resolution is about the inverse
constexpr size_t kMinSegment = 64;

const std::array<Column, 2> kGyroTarget = {Column::kAngleGyroTargetX, Column::kAngleGyroTargetY};
const std::array<Column, 2> kAccTarget = {Column::kAngleAccTargetX, Column::kAngleAccTargetY};
const std::array<Column, 2> kHall = {Column::kAngleHallX, Column::kAngleHallY};

struct Spread {
    double mean = kNan;
    double rms = kNan;   // about the mean
    double peak = kNan;  // largest excursion from the mean
};

// Of the finite values.
Spread spread(const std::vector<double>& values) {
    double sum = 0;
    size_t count = 0;
    for (const double value : values) {
        if (!std::isfinite(value)) continue;
        sum += value;
        ++count;
    }
    if (count == 0) return {};
    Spread result{sum / static_cast<double>(count), 0, 0};
    double squares = 0;
    for (const double value : values) {
        if (!std::isfinite(value)) continue;
        const double excursion = value - result.mean;
        squares += excursion * excursion;
        result.peak = std::max(result.peak, std::abs(excursion));
    }
    result.rms = std::sqrt(squares / static_cast<double>(count));
    return result;
}

double largest(const std::vector<double>& values) {
    double result = 0;
    for (const double value : values) {
        if (std::isfinite(value)) result = std::max(result, std::abs(value));
    }
    return result;
}

size_t countBetween(const std::vector<double>& values, double low, double high) {
    return static_cast<size_t>(std::count_if(values.begin(), values.end(), [&](double value) {
        return std::abs(value) >= low && std::abs(value) < high;
    }));
}

// The angle at which the lens stops although its target goes on; NaN when nothing points to one.
double estimateLimit(const std::vector<double>& target, const std::vector<double>& hall) {
    const double reached = largest(hall);
    const double wanted = largest(target);
    if (reached >= wanted || reached < kMinTravelPart * wanted) return kNan;
    const size_t at = countBetween(hall, kAtLimitPart * reached, std::numeric_limits<double>::max());
    const size_t near = countBetween(hall, kNearLimitPart * reached, kAtLimitPart * reached);
    return at >= kMinAtLimit && at > 2 * near ? reached : kNan;
}

// `values` at a constant rate, interpolated.
std::vector<double> resampled(const std::vector<double>& timeS, const std::vector<double>& values,
                              double periodS) {
    const auto count = static_cast<size_t>((timeS.back() - timeS.front()) / periodS) + 1;
    std::vector<double> result(count);
    size_t next = 1;
    for (size_t i = 0; i < count; ++i) {
        const double time = timeS.front() + static_cast<double>(i) * periodS;
        while (next + 1 < timeS.size() && timeS[next] < time) ++next;
        const double part = (time - timeS[next - 1]) / (timeS[next] - timeS[next - 1]);
        result[i] = values[next - 1] + (values[next] - values[next - 1]) * std::clamp(part, 0.0, 1.0);
    }
    return result;
}

// Spectral density by Welch's method: Hann windows that overlap by half. Square root of the one-sided power
// density.
class Welch {
  public:
    explicit Welch(double periodS, size_t rows) : mPeriodS(periodS) {
        const auto wanted = static_cast<size_t>(kSegmentS / periodS);
        while (2 * mSegment <= std::min(wanted, rows)) mSegment *= 2;
        mWindow.resize(mSegment);
        for (size_t i = 0; i < mSegment; ++i) {
            const double phase =
                2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(mSegment);
            mWindow[i] = 0.5 - 0.5 * std::cos(phase);
            mWindowPower += mWindow[i] * mWindow[i];
        }
    }

    bool possible() const { return mSegment >= kMinSegment; }

    // Without the constant part.
    std::vector<double> frequencies() const {
        std::vector<double> result(mSegment / 2);
        for (size_t i = 0; i < result.size(); ++i) {
            result[i] = static_cast<double>(i + 1) / (mPeriodS * static_cast<double>(mSegment));
        }
        return result;
    }

    std::vector<double> density(const std::vector<double>& values) {
        std::vector<double> power(mSegment / 2);
        std::vector<double> segment(mSegment);
        std::vector<std::complex<double>> spectrum;
        double segments = 0;
        for (size_t begin = 0; begin + mSegment <= values.size(); begin += mSegment / 2) {
            const auto first = values.begin() + static_cast<std::ptrdiff_t>(begin);
            segment.assign(first, first + static_cast<std::ptrdiff_t>(mSegment));
            const double mean = spread(segment).mean;
            for (size_t i = 0; i < mSegment; ++i) segment[i] = (segment[i] - mean) * mWindow[i];
            mTransform.fwd(spectrum, segment);
            for (size_t i = 0; i < power.size(); ++i) power[i] += std::norm(spectrum[i + 1]);
            ++segments;
        }
        for (double& value : power) value = std::sqrt(2 * value * mPeriodS / (mWindowPower * segments));
        return power;
    }

  private:
    const double mPeriodS;
    size_t mSegment = 1;
    std::vector<double> mWindow;
    double mWindowPower = 0;
    Eigen::FFT<double> mTransform;
};

bool allFinite(const std::vector<double>& values) {
    return std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
}

void addTiming(const std::vector<double>& timeS, RecordingStats& stats) {
    std::vector<double> periods(timeS.size() - 1);
    for (size_t i = 0; i < periods.size(); ++i) periods[i] = timeS[i + 1] - timeS[i];
    std::vector<double> sorted = periods;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    stats.medianPeriodS = *middle;
    stats.rateHz = 1 / stats.medianPeriodS;
    stats.durationS = timeS.back() - timeS.front();
    for (const double period : periods) {
        if (period <= kGapPeriods * stats.medianPeriodS) continue;
        ++stats.gaps;
        stats.longestGapS = std::max(stats.longestGapS, period);
    }
}

AxisStats axisStats(const Recording& recording, size_t axis, std::optional<double> limitAngle) {
    const std::vector<double> target = targetAngle(recording, axis);
    const std::vector<double>& hall = recording[kHall[axis]];
    const Spread shake = spread(target);
    const Spread residual = spread(residualAngle(recording, axis));
    AxisStats stats;
    stats.shakeRms = shake.rms;
    stats.shakePeak = shake.peak;
    stats.residualRms = residual.rms;
    stats.residualPeak = residual.peak;
    stats.residualMean = residual.mean;
    const bool enough = shake.rms >= kTooLittleShake && residual.rms > 0;
    stats.suppressionDb = enough ? 20 * std::log10(shake.rms / residual.rms) : kNan;
    stats.limit = limitAngle ? *limitAngle : estimateLimit(target, hall);
    if (std::isfinite(stats.limit)) {
        stats.samplesAtLimit =
            countBetween(hall, kAtLimitPart * stats.limit, std::numeric_limits<double>::max());
    }
    return stats;
}

void addSpectra(const Recording& recording, RecordingStats& stats) {
    const std::vector<double>& timeS = recording[Column::kTimestamp];
    const size_t rows = resampled(timeS, timeS, stats.medianPeriodS).size();
    Welch welch(stats.medianPeriodS, rows);
    if (!welch.possible()) return;
    stats.frequencyHz = welch.frequencies();
    for (size_t axis = 0; axis < stats.axes.size(); ++axis) {
        const auto density = [&](const std::vector<double>& values) {
            if (!allFinite(values)) return std::vector<double>(stats.frequencyHz.size(), kNan);
            return welch.density(resampled(timeS, values, stats.medianPeriodS));
        };
        stats.axes[axis].shakeDensity = density(targetAngle(recording, axis));
        stats.axes[axis].residualDensity = density(residualAngle(recording, axis));
    }
}

// A line of two columns.
std::string byAxes(const std::string& x, const std::string& y) {
    return fmt::format("{:>12}  {:>12}", x, y);
}

// One figure of each axis; `member` is a double of AxisStats.
Field axisField(const char* key, const char* label, const RecordingStats& stats, double AxisStats::*member,
                int decimals, std::string_view unit) {
    const double x = stats.axes[0].*member;
    const double y = stats.axes[1].*member;
    return {key, label, Record{{"x", "", x}, {"y", "", y}},
            byAxes(figure(x, decimals, unit), figure(y, decimals, unit))};
}

Field limitSamples(const RecordingStats& stats) {
    const auto count = [&stats](size_t axis) {
        const AxisStats& a = stats.axes.at(axis);
        return std::isfinite(a.limit) ? Value(a.samplesAtLimit) : Value();
    };
    const auto text = [&stats](size_t axis) {
        const AxisStats& a = stats.axes.at(axis);
        return std::isfinite(a.limit) ? grouped(a.samplesAtLimit) : "-";
    };
    return {"samples_at_limit", "samples at the limit", Record{{"x", "", count(0)}, {"y", "", count(1)}},
            byAxes(text(0), text(1))};
}

}  // namespace

std::vector<double> targetAngle(const Recording& recording, size_t axis) {
    std::vector<double> result = recording[kGyroTarget[axis]];
    const std::vector<double>& acc = recording[kAccTarget[axis]];
    for (size_t i = 0; i < result.size(); ++i) result[i] += acc[i];
    return result;
}

std::vector<double> residualAngle(const Recording& recording, size_t axis) {
    std::vector<double> result = targetAngle(recording, axis);
    const std::vector<double>& hall = recording[kHall[axis]];
    for (size_t i = 0; i < result.size(); ++i) result[i] -= hall[i];
    return result;
}

std::string rowText(size_t rows) {
    return rows == 1 ? "1 row" : fmt::format("{} rows", rows);
}

RecordingStats computeStats(const Recording& recording, std::optional<double> limitAngle) {
    if (recording.rows() < kFewestRows) {
        throw InputError(fmt::format("{}: {} of data; statistics need at least {}{}", recording.source,
                                     rowText(recording.rows()), kFewestRows,
                                     recording.notes.empty() ? "" : " (" + recording.notes.front() + ")"));
    }
    RecordingStats stats;
    stats.rows = recording.rows();
    addTiming(recording[Column::kTimestamp], stats);
    stats.gyroRawRms = {spread(recording[Column::kGyroRawX]).rms, spread(recording[Column::kGyroRawY]).rms,
                        spread(recording[Column::kGyroRawZ]).rms};
    for (size_t axis = 0; axis < stats.axes.size(); ++axis) {
        stats.axes[axis] = axisStats(recording, axis, limitAngle);
    }
    addSpectra(recording, stats);
    return stats;
}

Record statsReport(const Recording& recording, const RecordingStats& stats) {
    std::string gaps = fmt::format("{} above {} periods", stats.gaps, kGapPeriods);
    if (stats.gaps > 0) gaps += fmt::format(", the longest {}", duration(stats.longestGapS));
    const auto& gyro = stats.gyroRawRms;
    const auto angle = [&stats](const char* key, const char* label, double AxisStats::*member) {
        return axisField(key, label, stats, member, 4, " deg");
    };
    return {
        {"file", "file", recording.source},
        {"notes", recording.notes.empty() ? "" : "left out", recording.notes, joined(recording.notes, "\n")},
        {"rows", "rows", stats.rows,
         fmt::format("{}, {:.3f} s at {:.1f} Hz", grouped(stats.rows), stats.durationS, stats.rateHz)},
        {"duration_s", "", stats.durationS},
        {"rate_hz", "", stats.rateHz},
        {"median_period_s", "", stats.medianPeriodS},
        {"gaps", "gaps", stats.gaps, gaps},
        {"longest_gap_s", "", stats.longestGapS},
        {"gyro_raw_rms_counts", "", Record{{"x", "", gyro[0]}, {"y", "", gyro[1]}, {"z", "", gyro[2]}}},
        {"", "axis", {}, byAxes("x", "y")},
        angle("shake_rms_deg", "shake, RMS", &AxisStats::shakeRms),
        angle("shake_peak_deg", "shake, peak", &AxisStats::shakePeak),
        angle("residual_rms_deg", "residual, RMS", &AxisStats::residualRms),
        angle("residual_peak_deg", "residual, peak", &AxisStats::residualPeak),
        angle("residual_mean_deg", "residual, mean", &AxisStats::residualMean),
        axisField("suppression_db", "suppression", stats, &AxisStats::suppressionDb, 1, " dB"),
        angle("limit_deg", "lens stops at", &AxisStats::limit),
        limitSamples(stats)};
}

}  // namespace oisctl

#include "recording/recording_stats.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/errors.h"
#include "recording/spectrum.h"

namespace oisctl {

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// Below this many degrees of motion (twice the resolution of a target) a ratio says nothing.
constexpr double kTooLittleMotion = 0.002;

// A lens at its stop piles up readings at the outermost angle; one that turns round by itself does not.
constexpr double kNearLimitPart = 0.96;
constexpr size_t kMinAtLimit = 10;
constexpr double kMinTravelPart = 0.1;  // of the target's; a lens that moves less does not follow at all

// What hands do is in these; the last one is all of them.
constexpr std::array<std::array<double, 2>, 4> kBandsHz = {{{0.5, 2}, {2, 8}, {8, 20}, {0.5, 20}}};

double largest(const Samples& values) {
    double result = 0;
    for (const float value : values)
        if (std::isfinite(value)) result = std::max(result, std::abs(double{value}));
    return result;
}

size_t countBetween(const Samples& values, double low, double high) {
    return static_cast<size_t>(std::ranges::count_if(values, [&](float value) {
        return std::abs(double{value}) >= low && std::abs(double{value}) < high;
    }));
}

// The angle at which the lens stops although its target goes on; NaN when nothing points to one.
double estimateLimit(const Samples& target, const Samples& hall) {
    const double reached = largest(hall);
    const double wanted = largest(target);
    if (reached >= wanted || reached < kMinTravelPart * wanted) return kNan;
    const size_t at = countBetween(hall, kAtLimitPart * reached, std::numeric_limits<double>::max());
    const size_t near = countBetween(hall, kNearLimitPart * reached, kAtLimitPart * reached);
    return at >= kMinAtLimit && at > 2 * near ? reached : kNan;
}

// Between rows of different stretches no time was recorded.
bool startsStretch(const Recording& recording, size_t row) {
    return std::ranges::binary_search(recording.stretches, row, {}, &Stretch::firstRow);
}

double medianPeriod(const Recording& recording) {
    const std::vector<double>& timeS = recording.timeS;
    std::vector<double> periods;
    periods.reserve(timeS.size() - 1);
    for (const Stretch& stretch : recording.stretches) {
        const auto next = (&stretch == &recording.stretches.back()) ? timeS.size() : (&stretch)[1].firstRow;
        for (size_t row = stretch.firstRow + 1; row < next; ++row)
            periods.push_back(timeS[row] - timeS[row - 1]);
    }
    if (periods.empty()) return kNan;
    const auto middle = periods.begin() + static_cast<std::ptrdiff_t>(periods.size() / 2);
    std::ranges::nth_element(periods, middle);
    return *middle;
}

// Rows that belong in front of this one, and stand elsewhere in the file.
size_t rowsElsewhere(const Recording& recording, size_t row) {
    const std::vector<double>& timesS = recording.outOfOrderS;
    const auto first = std::ranges::upper_bound(timesS, recording.timeS[row - 1]);
    return static_cast<size_t>(std::ranges::lower_bound(first, timesS.end(), recording.timeS[row]) - first);
}

void addTiming(const Recording& recording, RecordingStats& stats) {
    const std::vector<double>& timeS = recording.timeS;
    const double median = medianPeriod(recording);
    stats.medianPeriodS = median;
    stats.rateHz = 1 / median;
    stats.segments.push_back({0, 1});
    for (size_t row = 1; row < timeS.size(); ++row) {
        const double period = timeS[row] - timeS[row - 1];
        const bool isBreak = startsStretch(recording, row);
        const bool isGap = !isBreak && period > kGapPeriods * median;
        if (!isBreak) stats.durationS += period;
        if (isGap) {
            const auto wanted = static_cast<size_t>(std::max(1.0, std::round(period / median) - 1));
            const size_t missing = wanted - std::min(wanted, rowsElsewhere(recording, row));
            if (missing > 0) {
                stats.gaps.add(recording.linesOf(row - 1, row), missing);
                stats.lost += missing;
                stats.longestGapS = std::max(stats.longestGapS, period);
            }
        }
        if (isGap || isBreak) {
            stats.segments.push_back({row, row + 1});
        } else {
            stats.segments.back().end = row + 1;
        }
    }
}

AxisStats axisStats(const Recording& recording, size_t axis, const Known& known) {
    const Samples target = targetAngle(recording, axis);
    const Samples& hall = hallAngle(recording, axis);
    const Spread asked = spread(target);
    const Spread error = spread(trackingError(recording, axis));
    AxisStats stats;
    stats.targetRms = asked.rms;
    stats.targetPeak = asked.peak;
    stats.trackingErrorRms = error.rms;
    stats.trackingErrorPeak = error.peak;
    stats.trackingErrorMean = error.mean;
    stats.limit = known.limitAngle ? *known.limitAngle : estimateLimit(target, hall);
    if (std::isfinite(stats.limit)) {
        stats.samplesAtLimit =
            countBetween(hall, kAtLimitPart * stats.limit, std::numeric_limits<double>::max());
    }
    return stats;
}

Suppression suppressionOver(const Recording& recording, const RecordingStats& stats, const Welch& welch) {
    Suppression result;
    const RowRange reach = welch.reach();
    result.fromS = recording.timeS[reach.begin];
    result.toS = recording.timeS[reach.end - 1];
    result.lines = recording.linesOf(reach.begin, reach.end - 1);
    for (const RowRange& segment : stats.segments)
        if (segment.begin >= reach.begin && segment.end <= reach.end)
            result.seconds += recording.timeS[segment.end - 1] - recording.timeS[segment.begin];
    for (const auto& [fromHz, toHz] : kBandsHz) {
        BandSuppression band{fromHz, toHz};
        for (size_t axis = 0; axis < stats.axes.size(); ++axis) {
            const AxisStats& of = stats.axes[axis];
            band.motionRms[axis] = bandRms(of.motionDensity, welch.stepHz(), fromHz, toHz);
            band.residualRms[axis] = bandRms(of.residualDensity, welch.stepHz(), fromHz, toHz);
        }
        result.bands.push_back(band);
    }
    return result;
}

void addSpectra(const Recording& recording, const Known& known, RecordingStats& stats) {
    const Welch welch(recording.timeS, stats.segments, stats.medianPeriodS);
    if (!welch.possible()) return;
    stats.frequencyHz = welch.frequenciesHz();
    bool told = true;
    for (size_t axis = 0; axis < stats.axes.size(); ++axis) {
        AxisStats& of = stats.axes[axis];
        const Samples target = targetAngle(recording, axis);
        const Samples error = trackingError(recording, axis);
        of.targetDensity = welch.densities({&target}).front();
        of.trackingErrorDensity = welch.densities({&error}).front();
        told = told && !known.trueMotion[axis].empty();
        if (!told) continue;
        const Samples residual = residualShake(recording, known, axis);
        auto both = welch.densities({&known.trueMotion[axis], &residual});
        of.motionDensity = std::move(both[0]);
        of.residualDensity = std::move(both[1]);
    }
    if (told) stats.suppression = suppressionOver(recording, stats, welch);
}

std::string whyNoRows(const Recording& recording) {
    if (!recording.unreadable.empty())
        return fmt::format(" ({} unreadable, the first in line {}: {})", recording.unreadable.rows,
                           recording.unreadable.ranges.front().first, recording.whyUnreadable);
    if (!recording.unanswered.empty())
        return fmt::format(" ({} all zero: the controller did not answer)", recording.unanswered.rows);
    return recording.cutLine == 0 ? ""
                                  : fmt::format(" (line {} was cut while being written)", recording.cutLine);
}

}  // namespace

Spread spread(const Samples& values, size_t begin, size_t end) {
    double sum = 0;
    size_t count = 0;
    for (size_t i = begin; i < end; ++i) {
        if (!std::isfinite(values[i])) continue;
        sum += values[i];
        ++count;
    }
    if (count == 0) return {kNan, kNan, kNan};
    Spread result{sum / static_cast<double>(count), 0, 0};
    double squares = 0;
    for (size_t i = begin; i < end; ++i) {
        if (!std::isfinite(values[i])) continue;
        const double excursion = values[i] - result.mean;
        squares += excursion * excursion;
        result.peak = std::max(result.peak, std::abs(excursion));
    }
    result.rms = std::sqrt(squares / static_cast<double>(count));
    return result;
}

double BandSuppression::db(size_t axis) const {
    const double motion = motionRms[axis];
    const double residual = residualRms[axis];
    return motion >= kTooLittleMotion && residual > 0 ? 20 * std::log10(motion / residual) : kNan;
}

// The controller's own estimate of a shift is taken off: the true motion is the turning alone.
Samples residualShake(const Recording& recording, const Known& known, size_t axis) {
    Samples result = known.trueMotion[axis];
    const Samples& hall = hallAngle(recording, axis);
    const Samples& acc = recording[kAccTarget[axis]];
    for (size_t i = 0; i < result.size(); ++i) result[i] -= hall[i] - acc[i];
    return result;
}

std::string rowText(size_t rows) {
    return rows == 1 ? "1 row" : fmt::format("{} rows", rows);
}

RecordingStats computeStats(const Recording& recording, const Known& known) {
    if (recording.rows() < kFewestRows) {
        throw InputError(fmt::format("{}: {} of data; statistics need at least {}{}", recording.source,
                                     rowText(recording.rows()), kFewestRows, whyNoRows(recording)));
    }
    RecordingStats stats;
    stats.rows = recording.rows();
    addTiming(recording, stats);
    stats.gyroRawRms = {spread(recording[Column::kGyroRawX]).rms, spread(recording[Column::kGyroRawY]).rms,
                        spread(recording[Column::kGyroRawZ]).rms};
    for (size_t axis = 0; axis < stats.axes.size(); ++axis)
        stats.axes[axis] = axisStats(recording, axis, known);
    addSpectra(recording, known, stats);
    return stats;
}

const std::vector<AxisFigure>& axisFigures() {
    static const std::vector<AxisFigure> kFigures = {
        {"target_rms_deg", "target, RMS", &AxisStats::targetRms},
        {"target_peak_deg", "target, peak off mean", &AxisStats::targetPeak},
        {"tracking_error_rms_deg", "tracking error, RMS", &AxisStats::trackingErrorRms},
        {"tracking_error_peak_deg", "tracking error, peak", &AxisStats::trackingErrorPeak},
        {"tracking_error_mean_deg", "tracking error, mean", &AxisStats::trackingErrorMean},
    };
    return kFigures;
}

}  // namespace oisctl

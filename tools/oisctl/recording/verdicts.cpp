#include "recording/verdicts.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace oisctl {

namespace {

constexpr std::array kGyroRaw = {Column::kGyroRawX, Column::kGyroRawY, Column::kGyroRawZ};

// A lens that moves less than this part of its target, where that moves at all, does not follow it.
constexpr double kStillPart = 0.1;
constexpr double kMovesDeg = 0.02;
constexpr double kResolutions = 4;  // a target moves when it moves by so many steps of the hall

// Noise changes a reading from row to row; what stays the very same for so long is not read.
constexpr double kHallFrozenS = 0.25;
constexpr double kTargetFrozenS = 1;
constexpr double kAtLimitS = 0.5;
constexpr size_t kLeastRun = 20;     // rows
constexpr double kGyroMoves = 20;    // counts, from lowest to highest
constexpr double kUsualPart = 0.01;  // of the rows may be lost or left out
constexpr double kLongGapS = 0.1;

// The rate is off where so many rows in a row take so much longer than they should.
constexpr size_t kRateRows = 64;
constexpr double kRateOff = 1.2;
constexpr double kPauseS = 1;         // a gap, not a rate
constexpr double kMostPolling = 1.5;  // of the recorder's interval: the poll takes time too

// A hand turns no further than this between the ends of a recording; what turns on all the time is bias. A
// gyro is never wrong by more than the greatest.
constexpr double kHandTurnDeg = 2;
constexpr double kLeastBiasDegS = 0.1;
constexpr double kMostBiasDegS = 5;
constexpr double kLeastBiasCounts = 1;  // of a phone at rest, whose target is too still to tell the scale
constexpr size_t kBiasParts = 5;
constexpr double kSteadyPart = 1.0 / 3;
constexpr double kOffsetDeg = 0.02;
constexpr double kTrusted = 0.5;  // least correlation of gyro and target

struct Extent {
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();
    void include(double value) {
        low = std::min(low, value);
        high = std::max(high, value);
    }
    double size() const { return high >= low ? high - low : 0; }
};

Extent extent(const Samples& values, RowRange rows) {
    Extent result;
    for (size_t i = rows.begin; i < rows.end; ++i)
        if (std::isfinite(values[i])) result.include(values[i]);
    return result;
}

// The least step between two readings.
double resolution(const Samples& values) {
    double least = std::numeric_limits<double>::infinity();
    for (size_t i = 1; i < values.size(); ++i) {
        const double step = std::abs(double{values[i]} - values[i - 1]);
        if (step > 0) least = std::min(least, step);
    }
    return std::isfinite(least) ? least : 0;
}

class Judge {
  public:
    Judge(const Recording& recording, const RecordingStats& stats, const Known& known)
        : mRecording(recording), mStats(stats), mKnown(known), mTimeS(recording.timeS) {}

    std::vector<RecordingVerdict> find(const Limits& limits) {
        for (size_t axis = 0; axis < mStats.axes.size(); ++axis) {
            const Samples target = targetAngle(mRecording, axis);
            lookAtLens(axis, target);
            lookAtTarget(axis);
            lookForBias(axis);
            holdAgainst(limits, axis);
        }
        lookAtGyro();
        lookAtRows();
        lookAtStretches();
        lookAtRate();
        return std::move(mVerdicts);
    }

    std::vector<NotTold> findNotTold() const {
        std::vector<NotTold> all;
        const auto needs = [&](VerdictKind kind, bool told, std::string why, char axis = 0) {
            if (!told) all.push_back({kind, axis, std::move(why)});
        };
        const auto needsTime = [&](VerdictKind kind, double s) {
            needs(kind, mStats.durationS >= s && mRecording.rows() >= kLeastRun,
                  fmt::format("shorter than {:g} s or {} rows", s, kLeastRun));
        };
        needsTime(VerdictKind::kHallFrozen, kHallFrozenS);
        needsTime(VerdictKind::kAtLimit, kAtLimitS);
        needsTime(VerdictKind::kTargetsFrozen, kTargetFrozenS);
        needsTime(VerdictKind::kGyroFrozen, kTargetFrozenS);
        for (size_t axis = 0; axis < mStats.axes.size(); ++axis) {
            needs(VerdictKind::kLensStill, mStats.axes[axis].targetPeak >= movesDeg(axis),
                  "the target does not move", axisName(axis));
            needs(VerdictKind::kTargetsFrozen,
                  extent(mRecording[kGyroRaw[axis]], {0, mRecording.rows()}).size() >= kGyroMoves,
                  "the gyro does not move", axisName(axis));
        }
        needs(VerdictKind::kGyroBias, mRecording.rows() >= kBiasParts * kRateRows,
              fmt::format("fewer than {} rows", kBiasParts * kRateRows));
        needs(VerdictKind::kRateOff, mRecording.rows() > kRateRows || mKnown.intervalS,
              fmt::format("fewer than {} rows", kRateRows + 1));
        return all;
    }

  private:
    static char axisName(size_t axis) { return axis == 0 ? 'x' : 'y'; }

    Places whole() const {
        Places places;
        places.add(mRecording.linesOf(0, mRecording.rows() - 1), mRecording.rows());
        return places;
    }

    double seconds(RowRange rows) const { return mTimeS[rows.end - 1] - mTimeS[rows.begin]; }

    // Calls `take` with each run of rows, none across a break of the time, of which each goes on from the one
    // before.
    template <typename GoesOn, typename Take>
    void forRuns(const GoesOn& goesOn, const Take& take) const {
        size_t nextStretch = 0;
        RowRange run{0, 0};
        for (size_t row = 0; row < mRecording.rows(); ++row) {
            const bool begins = nextStretch < mRecording.stretches.size() &&
                                mRecording.stretches[nextStretch].firstRow == row;
            if (begins) ++nextStretch;
            if (!begins && goesOn(row)) {
                run.end = row + 1;
                continue;
            }
            if (run.size() >= kLeastRun) take(run);
            run = {row, row + 1};
        }
        if (run.size() >= kLeastRun) take(run);
    }

    void add(VerdictKind kind, size_t axis, Places places, double value, double limit, bool fault = true) {
        if (!places.empty())
            mVerdicts.push_back({kind, axisName(axis), std::move(places), value, limit, fault});
    }

    // From where on a target counts as moving.
    double movesDeg(size_t axis) const {
        return std::max(kMovesDeg, kResolutions * resolution(hallAngle(mRecording, axis)));
    }

    void lookAtLens(size_t axis, const Samples& target) {
        const Samples& hall = hallAngle(mRecording, axis);
        const double stepDeg = resolution(hall);
        const double leastMoveDeg = movesDeg(axis);
        const double limitDeg = kAtLimitPart * mStats.axes[axis].limit;
        Places frozen, atLimit;
        double frozenS = 0, atLimitS = 0;
        forRuns([&](size_t row) { return hall[row] == hall[row - 1]; },
                [&](RowRange run) {
                    const bool stopped = std::abs(hall[run.begin]) >= limitDeg;
                    if (stopped || seconds(run) < kHallFrozenS || extent(target, run).size() < leastMoveDeg)
                        return;
                    frozen.add(mRecording.linesOf(run.begin, run.end - 1), run.size());
                    frozenS = std::max(frozenS, seconds(run));
                });
        const auto isAtLimit = [&](size_t row) { return std::abs(hall[row]) >= limitDeg; };
        forRuns([&](size_t row) { return isAtLimit(row) && isAtLimit(row - 1); },
                [&](RowRange run) {
                    if (seconds(run) < kAtLimitS) return;
                    atLimit.add(mRecording.linesOf(run.begin, run.end - 1), run.size());
                    atLimitS = std::max(atLimitS, seconds(run));
                });
        const double hallRms = spread(hall).rms;
        const double leastRms = kStillPart * mStats.axes[axis].targetRms;
        const bool moves = mStats.axes[axis].targetPeak >= leastMoveDeg;
        if (stepDeg > 0 && moves && hallRms < leastRms)
            add(VerdictKind::kLensStill, axis, whole(), hallRms, leastRms, !mKnown.lensHeld);
        add(VerdictKind::kHallFrozen, axis, std::move(frozen), frozenS, kHallFrozenS);
        add(VerdictKind::kAtLimit, axis, std::move(atLimit), atLimitS, kAtLimitS);
    }

    void lookAtTarget(size_t axis) {
        const Samples& target = mRecording[kGyroTarget[axis]];
        const Samples& gyro = mRecording[kGyroRaw[axis]];
        Places frozen;
        double longestS = 0;
        forRuns([&](size_t row) { return target[row] == target[row - 1]; },
                [&](RowRange run) {
                    if (seconds(run) < kTargetFrozenS || extent(gyro, run).size() < kGyroMoves) return;
                    frozen.add(mRecording.linesOf(run.begin, run.end - 1), run.size());
                    longestS = std::max(longestS, seconds(run));
                });
        add(VerdictKind::kTargetsFrozen, axis, std::move(frozen), longestS, kTargetFrozenS);
    }

    void lookAtGyro() {
        Places frozen;
        double longestS = 0;
        const auto same = [&](size_t row) {
            return std::ranges::all_of(kGyroRaw, [&](Column column) {
                return mRecording[column][row] == mRecording[column][row - 1];
            });
        };
        forRuns(same, [&](RowRange run) {
            if (seconds(run) < kTargetFrozenS) return;
            frozen.add(mRecording.linesOf(run.begin, run.end - 1), run.size());
            longestS = std::max(longestS, seconds(run));
        });
        if (!frozen.empty())
            mVerdicts.push_back({VerdictKind::kGyroFrozen, 0, std::move(frozen), longestS, kTargetFrozenS});
    }

    // How fast the gyro turns, degrees per second and count: a target is the turning, integrated, so from one
    // row to the next it says how much a count is. 0 where the two do not go together.
    double degSPerCount(size_t axis) const {
        const Samples& target = mRecording[kGyroTarget[axis]];
        const Samples& gyro = mRecording[kGyroRaw[axis]];
        const double mean = spread(gyro).mean;
        double both = 0, counts = 0, angles = 0;
        for (const RowRange& segment : mStats.segments) {
            for (size_t row = segment.begin + 1; row < segment.end; ++row) {
                const double turned = -(double{target[row]} - target[row - 1]);
                const double expected =
                    ((double{gyro[row]} + gyro[row - 1]) / 2 - mean) * (mTimeS[row] - mTimeS[row - 1]);
                if (!std::isfinite(turned)) continue;
                both += turned * expected;
                counts += expected * expected;
                angles += turned * turned;
            }
        }
        if (counts == 0 || angles == 0 || both < kTrusted * std::sqrt(counts * angles)) return 0;
        return both / counts;
    }

    // A phone that turns on and on looks like a gyro that says so; no hand does for the whole of a recording.
    void lookForBias(size_t axis) {
        const Samples& gyro = mRecording[kGyroRaw[axis]];
        const size_t part = mRecording.rows() / kBiasParts;
        if (part < kRateRows) return;
        const double bias = spread(gyro).mean;
        // What calibration has taken away no longer moves the target.
        const double offset = spread(mRecording[kGyroTarget[axis]]).mean;
        if (std::abs(offset) < kOffsetDeg || (offset > 0) == (bias > 0)) return;
        const double scale = degSPerCount(axis);
        const double turnDegS = std::max(kLeastBiasDegS, kHandTurnDeg / mStats.durationS);
        const double limit = scale > 0 ? turnDegS / scale : kLeastBiasCounts;
        if (std::abs(bias) < limit || std::abs(bias) * scale > kMostBiasDegS) return;
        for (size_t i = 0; i < kBiasParts; ++i) {
            const double there = spread(gyro, i * part, (i + 1) * part).mean / bias;
            if (there < kSteadyPart || there > 1 / kSteadyPart) return;
        }
        add(VerdictKind::kGyroBias, axis, whole(), bias, limit);
    }

    void holdAgainst(const Limits& limits, size_t axis) {
        for (const AxisFigure& figure : axisFigures()) {
            const auto limit = limits.find(figure.key);
            if (limit == limits.end()) continue;
            const double value = mStats.axes[axis].*figure.member;
            // What cannot be told does not hold.
            if (std::abs(value) <= limit->second) continue;
            add(VerdictKind::kOverLimit, axis, whole(), value, limit->second);
            mVerdicts.back().about = figure.label;
        }
    }

    void addRows(VerdictKind kind, const Places& places, bool fault) {
        if (places.rows == 0) return;
        const double usual = std::floor(kUsualPart * static_cast<double>(mRecording.rows()));
        const auto rows = static_cast<double>(places.rows);
        mVerdicts.push_back({kind, 0, places, rows, usual, fault || rows > usual});
    }

    void lookAtRows() {
        addRows(VerdictKind::kLost, mStats.gaps, mStats.longestGapS > kLongGapS);
        addRows(VerdictKind::kOutOfOrder, mRecording.outOfOrder, false);
        addRows(VerdictKind::kRepeated, mRecording.repeated, false);
        addRows(VerdictKind::kUnanswered, mRecording.unanswered, false);
        addRows(VerdictKind::kUnreadable, mRecording.unreadable, false);
        if (!mRecording.unreadable.empty()) mVerdicts.back().about = mRecording.whyUnreadable;
        if (mRecording.cutLine == 0) return;
        Places cut;
        cut.add(mRecording.cutLine);
        mVerdicts.push_back({VerdictKind::kCut, 0, std::move(cut), 1, 1, false});
    }

    void lookAtStretches() {
        for (const Stretch& stretch : mRecording.stretches) {
            if (stretch.start == Stretch::Start::kFile) continue;
            const bool jumped = stretch.start == Stretch::Start::kTimeAhead;
            Places place;
            place.add(mRecording.lines[stretch.firstRow]);
            mVerdicts.push_back({jumped ? VerdictKind::kTimeJump : VerdictKind::kSecondSession, 0,
                                 std::move(place), stretch.startS, endBefore(stretch)});
        }
    }

    // The controller's time of the last row before the stretch.
    double endBefore(const Stretch& stretch) const {
        const Stretch& before = (&stretch)[-1];
        return before.startS + mTimeS[stretch.firstRow - 1] - mTimeS[before.firstRow];
    }

    void lookAtRate() {
        const double usualS = mStats.medianPeriodS;
        Places slow;
        double slowestHz = mStats.rateHz;
        for (size_t begin = 0; begin + kRateRows < mRecording.rows(); begin += kRateRows) {
            const double takenS = mTimeS[begin + kRateRows] - mTimeS[begin];
            const double rateHz = static_cast<double>(kRateRows) / takenS;
            if (takenS < kRateOff * kRateRows * usualS || hasPause(begin)) continue;
            slow.goOn(mRecording.linesOf(begin, begin + kRateRows - 1), kRateRows);
            slowestHz = std::min(slowestHz, rateHz);
        }
        if (!slow.empty())
            mVerdicts.push_back({VerdictKind::kRateOff, 0, std::move(slow), slowestHz, mStats.rateHz});
        if (mKnown.intervalS &&
            (usualS > kMostPolling * *mKnown.intervalS || usualS < 0.99 * *mKnown.intervalS))
            mVerdicts.push_back({VerdictKind::kRateOff, 0, whole(), mStats.rateHz, 1 / *mKnown.intervalS});
    }

    // One long period is a gap; many that are a little too long are a rate.
    bool hasPause(size_t begin) const {
        for (size_t row = begin; row < begin + kRateRows; ++row)
            if (mTimeS[row + 1] - mTimeS[row] > std::min(kPauseS, 10 * mStats.medianPeriodS)) return true;
        return false;
    }

    const Recording& mRecording;
    const RecordingStats& mStats;
    const Known& mKnown;
    const std::vector<double>& mTimeS;
    std::vector<RecordingVerdict> mVerdicts;
};

// What is said of each kind. In `measure` {0} is the value, {1} the limit.
struct KindText {
    const char* key;
    const char* what;
    const char* measure;
};

// In the order of VerdictKind.
constexpr std::array<KindText, 16> kTexts = {{
    {"lens_still", "the lens does not move while its target does",
     "hall {0:.4f} deg RMS, expected {1:.4f} or more"},
    {"hall_frozen", "the hall reads the same while the target moves", "for up to {0:.2f} s"},
    {"at_limit", "the lens stays at its stop", "for up to {0:.2f} s"},
    {"targets_frozen", "the target stays the same while the gyro moves: the controller is idle",
     "for up to {0:.2f} s"},
    {"gyro_frozen", "the gyro reads the same on all axes", "for up to {0:.2f} s"},
    {"gyro_bias", "the gyro is biased", "{0:+.1f} counts, expected {1:.1f} or less either way"},
    {"samples_lost", "samples are missing", "{0:.0f}, of which {1:.0f} are usual"},
    {"samples_out_of_order", "samples out of order, left out", "{0:.0f}, of which {1:.0f} are usual"},
    {"samples_repeated", "samples with the time of another, left out", "{0:.0f}, of which {1:.0f} are usual"},
    {"unanswered", "all zero, the controller did not answer; left out",
     "{0:.0f}, of which {1:.0f} are usual"},
    {"unreadable", "rows that cannot be read, left out", "{0:.0f}, of which {1:.0f} are usual"},
    {"cut", "cut while being written, left out", "{0:.0f} row"},
    {"second_session", "a second session begins", "at {0:.6f} s of the controller's time, after {1:.6f} s"},
    {"time_jump", "the time jumps ahead", "to {0:.6f} s, from {1:.6f} s"},
    {"rate_off", "the rate is off", "{0:.1f} Hz, expected {1:.1f} Hz"},
    {"over_limit", "is over its limit", "{0:.4f}, at most {1:.4f}"},
}};

const KindText& textOf(VerdictKind kind) {
    return kTexts.at(static_cast<size_t>(kind));
}

std::string linesText(const Places& places) {
    constexpr size_t kMostShown = 3;
    const bool one = places.count == 1 && places.ranges[0].first == places.ranges[0].last;
    std::string text = one ? "line " : "lines ";
    const size_t shown = std::min(kMostShown, places.ranges.size());
    for (size_t i = 0; i < shown; ++i) {
        const auto& [first, last] = places.ranges[i];
        if (i > 0) text += ", ";
        text += first == last ? std::to_string(first) : fmt::format("{}-{}", first, last);
    }
    if (places.count > shown) text += fmt::format(" and {} more places", places.count - shown);
    return text;
}

}  // namespace

std::vector<RecordingVerdict> judge(const Recording& recording, const RecordingStats& stats,
                                    const Known& known, const Limits& limits) {
    return Judge(recording, stats, known).find(limits);
}

std::vector<NotTold> notTold(const Recording& recording, const RecordingStats& stats, const Known& known) {
    return Judge(recording, stats, known).findNotTold();
}

const char* keyOf(VerdictKind kind) {
    return textOf(kind).key;
}

std::string toText(const RecordingVerdict& verdict) {
    const KindText& about = textOf(verdict.kind);
    std::string text = verdict.axis == 0 ? "" : fmt::format("{}: ", verdict.axis);
    if (verdict.kind == VerdictKind::kOverLimit) text += verdict.about + " ";
    text += about.what;
    text += ", " + fmt::format(fmt::runtime(about.measure), verdict.value, verdict.limit);
    if (verdict.kind == VerdictKind::kUnreadable) text += fmt::format(" (the first: {})", verdict.about);
    return text + "; " + linesText(verdict.places);
}

std::string toText(const NotTold& notTold) {
    const std::string axis = notTold.axis == 0 ? "" : fmt::format(" {}", notTold.axis);
    return fmt::format("{}{}: {}", keyOf(notTold.kind), axis, notTold.why);
}

bool isGood(const std::vector<RecordingVerdict>& verdicts) {
    return std::ranges::none_of(verdicts, &RecordingVerdict::fault);
}

}  // namespace oisctl

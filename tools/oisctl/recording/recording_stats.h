#pragma once
// What a status recording says in figures. Two things have names of their own: the tracking error, target
// minus hall, is how well the lens follows its target; the residual shake is what the lens leaves of the
// hand's true motion, and can be told only where that motion is known.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "base/report.h"
#include "recording/recording.h"

namespace oisctl {

// What is known beside the recording, from a sidecar or an option.
struct Known {
    std::optional<double> limitAngle{};  // the lens's travel either way
    std::optional<double> intervalS{};   // that the recorder was to wait between two rows
    bool lensHeld = false;               // stabilisation was off
    // The lens angle that would cancel the hand's turning, row by row; empty where the true motion is not
    // known.
    std::array<Samples, 2> trueMotion{};
};

// Angles in the recording's angle unit (degrees); RMS values are taken about the mean. NaN: cannot be told.
struct AxisStats {
    double targetRms = 0;          // what the lens was asked for
    double targetPeak = 0;         // largest excursion from the mean
    double trackingErrorRms = 0;   // of target minus hall
    double trackingErrorPeak = 0;  // largest excursion from the mean
    double trackingErrorMean = 0;  // constant offset of the lens; costs travel, not sharpness
    double limit = 0;              // hall angle at which the lens stops; NaN when the lens never got there
    size_t samplesAtLimit = 0;
    // Spectral density, angle unit per root hertz, at RecordingStats::frequencyHz.
    std::vector<double> targetDensity;
    std::vector<double> trackingErrorDensity;
    std::vector<double> motionDensity;  // of the true motion, where it is known
    std::vector<double> residualDensity;
};

// Of one band of frequencies, per axis; NaN where the recording is too short or too slow for it.
struct BandSuppression {
    double fromHz = 0;
    double toHz = 0;
    std::array<double, 2> motionRms{};
    std::array<double, 2> residualRms{};
    double db(size_t axis) const;  // motion over residual; NaN with too little motion
};

// How much of the true motion the lens took out of the picture, both over the same stretch.
struct Suppression {
    double fromS = 0;  // the recording's time
    double toS = 0;
    double seconds = 0;  // of it, without gaps
    LineRange lines;
    std::vector<BandSuppression> bands;  // the last one is all of them together
};

// Rows one behind the other, without a gap: [begin, end).
struct RowRange {
    size_t begin = 0;
    size_t end = 0;
    size_t size() const { return end - begin; }
};

struct RecordingStats {
    size_t rows = 0;
    double durationS = 0;  // that was recorded, gaps included, the time between stretches not
    double rateHz = 0;     // of the median period
    double medianPeriodS = 0;
    Places gaps;      // periods above 1.5 times the median that lack rows; the lines around them
    size_t lost = 0;  // rows that are missing there
    double longestGapS = 0;
    std::vector<RowRange> segments;      // between gaps
    std::array<double, 3> gyroRawRms{};  // counts, about the mean
    std::array<AxisStats, 2> axes;       // x, y
    std::vector<double> frequencyHz;     // empty for recordings too short for a spectrum
    std::optional<Suppression> suppression;
};

constexpr double kGapPeriods = 1.5;
constexpr double kAtLimitPart = 0.99;  // from this part of the limit on a lens is at it

// What statistics need, and what they say of fewer: "0 rows".
constexpr size_t kFewestRows = 2;
std::string rowText(size_t rows);

// Throws InputError for a recording of fewer rows. Without a limit the travel is estimated from
// where the lens stops while its target goes on.
RecordingStats computeStats(const Recording& recording, const Known& known = {});

// What is left of the true motion, row by row.
Samples residualShake(const Recording& recording, const Known& known, size_t axis);

struct Spread {
    double mean;
    double rms;   // about the mean
    double peak;  // largest excursion from the mean
};
// Of the finite values among [begin, end); NaN of none.
Spread spread(const Samples& values, size_t begin, size_t end);
inline Spread spread(const Samples& values) {
    return spread(values, 0, values.size());
}

// An angle that a person may choose a limit for, by its key in the JSON.
struct AxisFigure {
    const char* key;
    const char* label;
    double AxisStats::*member;
};
const std::vector<AxisFigure>& axisFigures();

}  // namespace oisctl

#pragma once
// Status recordings: the text files that the driver's recorder writes, and what they say about the
// stabilisation.

#include <array>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/errors.h"
#include "base/report.h"

namespace oisctl {

// Those that are asked for by name, by their place in the file.
enum class Column : size_t {
    kTimestamp = 1,
    kGyroRawX,
    kGyroRawY,
    kGyroRawZ,
    kAngleGyroTargetX = 16,
    kAngleGyroTargetY,
    kAngleAccTargetX,
    kAngleAccTargetY,
    kAngleHallX,
    kAngleHallY,
};
constexpr size_t kColumnCount = 22;

// One recording, column by column. Timestamps are in seconds from `startS` on and strictly increase; every
// other column holds what the file says, "inf" and "nan" included.
struct Recording {
    std::string source;              // the file
    std::vector<std::string> notes;  // what was left out of the file, and why
    double startS = 0;               // the controller's time of the first row
    std::array<std::vector<double>, kColumnCount> columns;

    const std::vector<double>& operator[](Column column) const {
        return columns[static_cast<size_t>(column)];
    }
    size_t rows() const { return columns[0].size(); }
};

// Reads a status file. A last row without its newline was cut while being written, rows of zeros are polls
// that the controller did not answer, rows whose time does not go on are repeats: they are left out, with a
// note. Throws InputError "FILE:LINE: reason".
Recording loadRecording(const std::filesystem::path& file);

// Angles in the recording's angle unit (degrees); RMS values are taken about the mean. NaN: cannot be told.
struct AxisStats {
    double shakeRms = 0;       // of the target: what was there to cancel
    double shakePeak = 0;      // largest excursion from the mean
    double residualRms = 0;    // of target minus hall: what was left
    double residualPeak = 0;   // largest excursion from the mean
    double residualMean = 0;   // constant offset of the lens; costs travel, not sharpness
    double suppressionDb = 0;  // shake over residual; NaN with too little shake
    double limit = 0;          // hall angle at which the lens stops; NaN when the lens never got there
    size_t samplesAtLimit = 0;
    // Spectral density, angle unit per root hertz, at RecordingStats::frequencyHz.
    std::vector<double> shakeDensity;
    std::vector<double> residualDensity;
};

struct RecordingStats {
    size_t rows = 0;
    double durationS = 0;
    double rateHz = 0;  // of the median period
    double medianPeriodS = 0;
    size_t gaps = 0;  // periods above 1.5 times the median
    double longestGapS = 0;
    std::array<double, 3> gyroRawRms{};  // counts, about the mean
    std::array<AxisStats, 2> axes;       // x, y
    std::vector<double> frequencyHz;     // empty for recordings too short for a spectrum
};

// What statistics need, and what they say of fewer: "0 rows".
constexpr size_t kFewestRows = 2;
std::string rowText(size_t rows);

// `limitAngle` is the lens's travel either way; without it the travel is estimated from where the lens stops
// while its target goes on. Throws InputError for a recording of fewer rows.
RecordingStats computeStats(const Recording& recording, std::optional<double> limitAngle = std::nullopt);

// Target minus hall angle, row by row; axis 0 is x, 1 is y. The target is the gyro's and the accelerometer's
// together.
std::vector<double> targetAngle(const Recording& recording, size_t axis);
std::vector<double> residualAngle(const Recording& recording, size_t axis);

Record statsReport(const Recording& recording, const RecordingStats& stats);

}  // namespace oisctl

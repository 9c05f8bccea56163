#pragma once
// Recordings in forms that other programs read.

#include <functional>
#include <optional>
#include <string_view>

#include "recording/recording.h"
#include "recording/recording_stats.h"

namespace oisctl {

// Takes the text piece by piece.
using TextSink = std::function<void(std::string_view piece)>;

// Every column, its unit in its name, behind the time since the first row, the number of the session in the
// file, the controller's own time and the line in the file. The true motion is behind them where it is known.
void exportCsv(const Recording& recording, const Known& known, const TextSink& put);

// What the raw counts of a phone's motion sensors are.
struct SensorScales {
    double gyroCountsPerRadS = 0;
    std::optional<double> accCountsPerMS2{};  // without it the accelerometer is left out
};

// The text log of a motion sensor that video stabilisers read (.gcsv): raw counts with their scales, in the
// phone's own axes. The recording's rows are on one line of time.
void exportImuLog(const Recording& recording, const SensorScales& scales, const TextSink& put);

}  // namespace oisctl

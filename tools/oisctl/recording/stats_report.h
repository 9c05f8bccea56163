#pragma once
// The figures and verdicts of a recording as a report.

#include <optional>
#include <string>
#include <vector>

#include "base/report.h"
#include "recording/sidecar.h"
#include "recording/verdicts.h"

namespace oisctl {

// Everything about a recording that was looked at.
struct Examined {
    Recording recording;
    std::optional<FoundSidecar> sidecar{};
    Known known{};
    RecordingStats stats{};
    std::vector<RecordingVerdict> verdicts{};
    std::vector<NotTold> notTold{};
};

// Reads the recording and what stands beside it. `limitAngle` wins over the sidecar's. Throws InputError.
Examined examine(const std::string& file, std::optional<double> limitAngle = std::nullopt,
                 const Limits& limits = {});

// One figure of the report, for somebody who looks at figures of several recordings.
struct RecordingFigure {
    std::string key;    // as in the JSON; one of many of its kind says which: "suppression_0.5_to_2_hz_db"
    std::string label;  // "target, RMS"
    char axis = 0;      // 'x', 'y', 'z', or 0: none of its own
    double value = 0;   // NaN: it cannot be told
    int decimals = 0;
    std::string unit{};  // " deg"
};
// Those that need the true motion stand there only where it is known.
std::vector<RecordingFigure> figuresOf(const RecordingStats& stats);

Record statsReport(const Examined& examined);

// What was read beside the recording, and whether it was used; nothing where there is none.
Field sidecarField(const std::optional<FoundSidecar>& sidecar);

// "x"; nothing for 0.
Value axisValue(char axis);

// "0.5-2 Hz".
std::string bandText(const BandSuppression& band);

// How many rows of a recording are not in what was made of it.
Field leftOutField(size_t rows);

}  // namespace oisctl

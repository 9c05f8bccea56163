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
};

// Reads the recording and what stands beside it. `limitAngle` wins over the sidecar's. Throws InputError.
Examined examine(const std::string& file, std::optional<double> limitAngle = std::nullopt,
                 const Limits& limits = {});

Record statsReport(const Examined& examined);

// What was read beside the recording, and whether it was used; nothing where there is none.
Field sidecarField(const std::optional<FoundSidecar>& sidecar);

// "0.5-2 Hz".
std::string bandText(const BandSuppression& band);

}  // namespace oisctl

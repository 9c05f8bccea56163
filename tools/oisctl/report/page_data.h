#pragma once
// Everything that a report's page shows, as JSON.

#include <nlohmann/json_fwd.hpp>
#include <optional>

#include "capture/trace_file.h"
#include "recording/stats_report.h"

namespace oisctl {

struct ReportSources {
    TraceFile trace;
    std::optional<Examined> recording;  // empty: the trace alone
};

// Where the recording stands in the trace's time: at the answer to a status request that became one of its
// rows. Empty where the trace has none.
std::optional<int64_t> recordingBeginUs(const ReportSources& sources);

nlohmann::ordered_json pageData(const ReportSources& sources);

}  // namespace oisctl

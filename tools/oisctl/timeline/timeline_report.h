#pragma once

#include <vector>

#include "base/report.h"
#include "timeline/timeline.h"

namespace oisctl {

// On the terminal, one after the other.
void printTimeline(const std::vector<Episode>& episodes);
// The same as data.
Record timelineReport(const std::vector<Episode>& episodes);

}  // namespace oisctl

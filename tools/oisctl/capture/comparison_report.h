#pragma once
// What a comparison of traces found, to read.

#include "base/report.h"
#include "capture/trace_compare.h"

namespace oisctl {

Record comparisonReport(const TraceFile& a, const TraceFile& b, const TraceComparison& compared);

}  // namespace oisctl

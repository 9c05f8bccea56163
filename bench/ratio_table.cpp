#include "ratio_table.h"

#include <cstdio>
#include <utility>

#include "platform.h"

namespace bench {
namespace {

double counter(const benchmark::BenchmarkReporter::Run& run, const char* name, double absent) {
    const auto found = run.counters.find(name);
    return found == run.counters.end() ? absent : found->second.value;
}

std::string aimText(const Comparison& comparison) {
    char text[32] = "";
    if (comparison.ratioAim) std::snprintf(text, sizeof text, "<= %.2fx", *comparison.ratioAim);
    if (comparison.differenceAimNs)
        std::snprintf(text, sizeof text, "<= +%.0f ns", *comparison.differenceAimNs);
    return text;
}

}  // namespace

AllocationCount::AllocationCount(benchmark::State& state, double operationsPerIteration)
    : mState(state), mOperationsPerIteration(operationsPerIteration), mBefore(allocations()) {}

AllocationCount::~AllocationCount() {
    const auto count = static_cast<double>(allocations() - mBefore);
    mState.counters[kAllocations] =
        count / (static_cast<double>(mState.iterations()) * mOperationsPerIteration);
    mState.counters[kOperations] = mOperationsPerIteration;
}

RatioTable::RatioTable(std::vector<Comparison> comparisons) : mComparisons(std::move(comparisons)) {}

bool RatioTable::ReportContext(const Context& context) {
    const benchmark::CPUInfo& cpu = context.cpu_info;
    std::printf("%d processors at %.0f MHz", cpu.num_cpus, cpu.cycles_per_second / 1e6);
    if (!cpu.load_avg.empty()) std::printf(", load %.2f before the run", cpu.load_avg.front());
    std::printf("; this takes half a minute\n");
    std::fflush(stdout);
    return true;
}

void RatioTable::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
        const bool manual = run.run_name.time_type == "manual_time";
        const double perIteration = manual ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
        const double perOperation = perIteration / counter(run, kOperations, 1);
        auto [entry, first] = mBest.try_emplace(run.run_name.function_name);
        if (first || perOperation < entry->second.nanoseconds) entry->second.nanoseconds = perOperation;
        entry->second.allocations = counter(run, kAllocations, 0);
    }
}

void RatioTable::printRow(const Comparison& comparison) const {
    const auto subject = mBest.find(comparison.subject);
    const auto floor = mBest.find(comparison.floor);
    if (subject == mBest.end() || floor == mBest.end()) return;
    const double ns = subject->second.nanoseconds;
    const double floorNs = floor->second.nanoseconds;
    const bool missed = (comparison.ratioAim && ns > *comparison.ratioAim * floorNs) ||
                        (comparison.differenceAimNs && ns - floorNs > *comparison.differenceAimNs);
    std::printf("%-48s %10.1f %10.1f %7.2fx %+9.1f  %-11s %5.2f%s\n", comparison.title.c_str(), ns, floorNs,
                ns / floorNs, ns - floorNs, aimText(comparison).c_str(),
                subject->second.allocations - floor->second.allocations, missed ? "  above the aim" : "");
}

void RatioTable::Finalize() {
    std::printf("\n%-48s %10s %10s %8s %9s  %-11s %5s\n", "per operation", "ns", "floor ns", "ratio", "above",
                "aim", "heap");
    for (const Comparison& comparison : mComparisons) printRow(comparison);
    std::fflush(stdout);
}

bool RatioTable::allocationsHold() const {
    for (const Comparison& comparison : mComparisons) {
        const auto subject = mBest.find(comparison.subject);
        const auto floor = mBest.find(comparison.floor);
        if (!comparison.noAllocation || subject == mBest.end() || floor == mBest.end()) continue;
        // A process allocates now and then for itself; one in a hundred operations would be the driver's.
        if (subject->second.allocations - floor->second.allocations > 0.01) return false;
    }
    return true;
}

}  // namespace bench

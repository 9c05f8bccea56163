#pragma once
// The table of what was measured beside its floor.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// How many operations one iteration of a benchmark makes (default 1), and how often one allocates.
constexpr const char* kOperations = "operations";
constexpr const char* kAllocations = "allocations";

// Notes what the operations between its construction and its destruction allocate.
class AllocationCount {
  public:
    explicit AllocationCount(benchmark::State& state, double operationsPerIteration = 1);
    ~AllocationCount();
    AllocationCount(const AllocationCount&) = delete;
    AllocationCount& operator=(const AllocationCount&) = delete;

  private:
    benchmark::State& mState;
    double mOperationsPerIteration;
    uint64_t mBefore;
};

struct Comparison {
    std::string title;
    std::string subject;  // names of benchmarks
    std::string floor;
    // What is aimed at: at most this many times the floor, or this many nanoseconds above it.
    std::optional<double> ratioAim{};
    std::optional<double> differenceAimNs{};
    // Whether the subject must not allocate more often than the floor.
    bool noAllocation = false;
};

// Gathers all runs and shows the table at the end. The best of all repetitions counts: noise only ever adds.
class RatioTable : public benchmark::BenchmarkReporter {
  public:
    explicit RatioTable(std::vector<Comparison> comparisons);
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;
    // Whether every allocation count is as it must be; times depend on the machine's load and do not count.
    bool allocationsHold() const;

  private:
    struct Best {
        double nanoseconds = 0;
        double allocations = 0;
    };
    void printRow(const Comparison& comparison) const;

    std::vector<Comparison> mComparisons;
    std::map<std::string, Best> mBest;
};

}  // namespace bench

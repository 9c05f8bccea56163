#pragma once
// Whether two recordings say the same, and what is not the same.

#include <optional>
#include <string>
#include <vector>

#include "recording/stats_report.h"

namespace oisctl {

// Rows are held beside each other by the time since the first row of each, in microseconds. Rows that a
// recording leaves out (repeated, unreadable and so on) are none.
struct RowDifference {
    struct Sample {
        size_t column;
        float a, b;
    };
    double timeS = 0;
    size_t lineA = 0;  // in its file; 0: A has no row of that time
    size_t lineB = 0;
    std::vector<Sample> samples{};  // of two rows: those that differ
};

// A figure of both; NaN: it cannot be told.
struct FigurePair {
    RecordingFigure a;
    double b = 0;
};

// What both sidecars tell of; Value(): nothing.
struct SettingPair {
    std::string name;
    Value a, b;
};

struct VerdictPair {
    const RecordingVerdict* a = nullptr;  // null: only B has it
    const RecordingVerdict* b = nullptr;
};

struct RecordingComparison {
    size_t alike = 0;  // pairs of rows
    size_t other = 0;  // with other values
    size_t onlyA = 0;
    size_t onlyB = 0;
    std::optional<RowDifference> first;
    std::vector<FigurePair> figures;
    // Of sidecars that were both used; modes without their times.
    std::vector<SettingPair> settings;
    std::vector<VerdictPair> verdicts;  // by kind and axis
};

// The same rows: no row is in one of them only, and all values of each are the same.
inline bool isEqual(const RecordingComparison& compared) {
    return compared.other + compared.onlyA + compared.onlyB == 0;
}
bool differs(const FigurePair& pair);
bool differs(const SettingPair& pair);

// The result points into both.
RecordingComparison compareRecordings(const Examined& a, const Examined& b);

// What they were, to read.
Record comparisonReport(const Examined& a, const Examined& b, const RecordingComparison& compared);

}  // namespace oisctl

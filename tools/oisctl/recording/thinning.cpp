#include "recording/thinning.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace oisctl {

namespace {

// What the plot leaves out.
constexpr const char* kMissing = " nan";

void appendValue(std::string& text, double value) {
    if (!std::isfinite(value)) {
        text += kMissing;
    } else {
        fmt::format_to(std::back_inserter(text), " {:.9g}", value);
    }
}

struct Extremes {
    size_t lowest;
    size_t highest;
};

// A value that is no number is neither, unless there is no other.
Extremes extremes(const Samples& values, RowRange rows) {
    Extremes result{rows.begin, rows.begin};
    for (size_t i = rows.begin + 1; i < rows.end; ++i) {
        if (values[i] < values[result.lowest] || !std::isfinite(values[result.lowest])) result.lowest = i;
        if (values[i] > values[result.highest] || !std::isfinite(values[result.highest])) result.highest = i;
    }
    return result;
}

// A column of pixels: one line for a single row, else two.
void appendColumn(std::string& text, const std::vector<double>& timeS, RowRange rows,
                  const std::vector<const Samples*>& series) {
    std::string second;
    fmt::format_to(std::back_inserter(text), "{:.9g}", timeS[rows.begin]);
    fmt::format_to(std::back_inserter(second), "\n{:.9g}", timeS[rows.end - 1]);
    for (const Samples* values : series) {
        const auto [lowest, highest] = extremes(*values, rows);
        appendValue(text, (*values)[std::min(lowest, highest)]);
        appendValue(second, (*values)[std::max(lowest, highest)]);
    }
    if (rows.size() > 1) text += second;
    text += '\n';
}

// A gap narrower than a column of pixels cannot be seen, and there may be very many.
std::vector<RowRange> joined(const std::vector<RowRange>& segments, const std::vector<double>& timeS,
                             double columnS) {
    std::vector<RowRange> result;
    for (const RowRange& segment : segments) {
        const bool near = segment.begin > 0 && timeS[segment.begin] - timeS[segment.begin - 1] < columnS;
        if (near) {
            result.back().end = segment.end;
        } else {
            result.push_back(segment);
        }
    }
    return result;
}

}  // namespace

void appendThinned(std::string& text, const std::vector<double>& timeS, const std::vector<RowRange>& segments,
                   RowRange rows, const std::vector<const Samples*>& series, size_t columns) {
    const double startS = timeS[rows.begin];
    const double columnS = (timeS[rows.end - 1] - startS) / static_cast<double>(columns);
    const auto columnOf = [&](size_t row) { return std::floor((timeS[row] - startS) / columnS); };
    for (const RowRange& segment : joined(segments, timeS, columnS)) {
        const size_t end = std::min(segment.end, rows.end);
        for (size_t begin = std::max(segment.begin, rows.begin), next = begin; begin < end; begin = next) {
            const double column = columnOf(begin);
            while (next < end && (next == begin || columnOf(next) == column)) ++next;
            appendColumn(text, timeS, {begin, next}, series);
        }
        if (segment.begin < rows.end && segment.end > rows.begin) text += '\n';
    }
}

void appendThinnedPath(std::string& text, const Samples& x, const Samples& y,
                       const std::vector<RowRange>& segments, double low, double high, size_t cells) {
    const double scale = static_cast<double>(cells) / (high - low);
    std::vector<bool> visited(cells * cells);
    const auto place = [&](float value) {
        return static_cast<size_t>(std::clamp((value - low) * scale, 0.0, static_cast<double>(cells - 1)));
    };
    const auto append = [&](size_t row) {
        appendValue(text, x[row]);
        appendValue(text, y[row]);
        text += '\n';
    };
    for (const RowRange& segment : segments) {
        bool connected = false;  // the row before stands in the text
        for (size_t row = segment.begin; row < segment.end; ++row) {
            const bool isPoint = std::isfinite(x[row]) && std::isfinite(y[row]);
            const size_t cell = isPoint ? place(y[row]) * cells + place(x[row]) : 0;
            if (!isPoint || visited[cell]) {
                connected = false;
                continue;
            }
            visited[cell] = true;
            if (!connected) text += '\n';
            if (!connected && row > segment.begin && std::isfinite(x[row - 1]) && std::isfinite(y[row - 1]))
                append(row - 1);
            append(row);
            connected = true;
        }
    }
}

}  // namespace oisctl

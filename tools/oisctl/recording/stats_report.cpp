#include "recording/stats_report.h"

#include <fmt/format.h>

#include <cmath>

#include "base/suggest.h"
#include "base/terminal.h"

namespace oisctl {

namespace {

constexpr AxisFigure kLimit{"limit_deg", "lens stops at", &AxisStats::limit};
constexpr const char* kSamplesAtLimit = "samples at the limit";
constexpr const char* kResidual = "residual 0.5-20 Hz, RMS";

std::string suppressionLabel(const BandSuppression& band) {
    return "suppression, " + bandText(band);
}

// A line of two columns.
std::string byAxes(const std::string& x, const std::string& y) {
    return fmt::format("{:>12}  {:>12}", x, y);
}

// One figure of each axis; `member` is a double of AxisStats.
Field axisField(const RecordingStats& stats, const AxisFigure& of) {
    const double x = stats.axes[0].*of.member;
    const double y = stats.axes[1].*of.member;
    return {of.key, of.label, Record{{"x", "", x}, {"y", "", y}},
            byAxes(figure(x, 4, " deg"), figure(y, 4, " deg"))};
}

Field limitSamples(const RecordingStats& stats) {
    const auto count = [&stats](size_t axis) {
        const AxisStats& a = stats.axes.at(axis);
        return std::isfinite(a.limit) ? Value(a.samplesAtLimit) : Value();
    };
    const auto text = [&stats](size_t axis) {
        const AxisStats& a = stats.axes.at(axis);
        return std::isfinite(a.limit) ? grouped(a.samplesAtLimit) : "-";
    };
    return {"samples_at_limit", kSamplesAtLimit, Record{{"x", "", count(0)}, {"y", "", count(1)}},
            byAxes(text(0), text(1))};
}

Field gapField(const RecordingStats& stats) {
    std::string text = fmt::format("{} above {} periods", stats.gaps.count, kGapPeriods);
    if (stats.gaps.count > 0) text += fmt::format(", the longest {}", duration(stats.longestGapS));
    return {"gaps", "gaps", stats.gaps.count, text};
}

Record bandRecord(const BandSuppression& band) {
    const auto both = [](double x, double y) { return Record{{"x", "", x}, {"y", "", y}}; };
    return {{"from_hz", "", band.fromHz},
            {"to_hz", "", band.toHz},
            {"motion_rms_deg", "", both(band.motionRms[0], band.motionRms[1])},
            {"residual_rms_deg", "", both(band.residualRms[0], band.residualRms[1])},
            {"suppression_db", "", both(band.db(0), band.db(1))}};
}

// Suppression is told only where the true motion is known.
Record suppressionFields(const std::optional<Suppression>& suppression) {
    if (!suppression) return {{"suppression", "", Value()}};
    Table bands;
    Record lines;
    for (const BandSuppression& band : suppression->bands) {
        bands.push_back(bandRecord(band));
        lines.push_back({"", suppressionLabel(band), Value(),
                         byAxes(figure(band.db(0), 1, " dB"), figure(band.db(1), 1, " dB"))});
    }
    const auto& total = suppression->bands.back();
    lines.push_back(
        {"", kResidual, Value(),
         byAxes(figure(total.residualRms[0], 4, " deg"), figure(total.residualRms[1], 4, " deg"))});
    lines.push_back({"suppression", "  told over",
                     Record{{"from_s", "", suppression->fromS},
                            {"to_s", "", suppression->toS},
                            {"duration_s", "", suppression->seconds},
                            {"first_line", "", suppression->lines.first},
                            {"last_line", "", suppression->lines.last},
                            {"bands", "", bands}},
                     fmt::format("{:.2f}-{:.2f} s, lines {}-{}: the true motion with and without the lens",
                                 suppression->fromS, suppression->toS, suppression->lines.first,
                                 suppression->lines.last)});
    return lines;
}

Field verdictsField(const std::vector<RecordingVerdict>& verdicts) {
    Table table;
    for (const RecordingVerdict& verdict : verdicts) {
        Table lines;
        for (const LineRange& range : verdict.places.ranges)
            lines.push_back({{"first", "", range.first}, {"last", "", range.last}});
        table.push_back({{"verdict", "", keyOf(verdict.kind)},
                         {"axis", "", axisValue(verdict.axis)},
                         {"fault", "", verdict.fault},
                         {"value", "", verdict.value},
                         {"limit", "", verdict.limit},
                         {"rows", "", verdict.places.rows},
                         {"places", "", verdict.places.count},
                         {"lines", "", lines},
                         {"text", "", toText(verdict)}});
    }
    return {"verdicts", "", table};
}

void addNotTold(const std::vector<NotTold>& all, Record& report) {
    Table table;
    for (const NotTold& one : all) {
        table.push_back(
            {{"verdict", "", keyOf(one.kind)}, {"axis", "", axisValue(one.axis)}, {"why", "", one.why}});
    }
    report.push_back({"not_told", "", table});
    for (const NotTold& one : all) report.push_back({"", "not told", Value(), toText(one), Style::kWarning});
}

// One under the other, the label before the first.
void addVerdicts(const std::vector<RecordingVerdict>& verdicts, Record& report) {
    report.push_back({"recording_good", "", isGood(verdicts)});
    report.push_back(verdictsField(verdicts));
    if (verdicts.empty()) report.push_back({"", "verdict", Value(), "nothing found", Style::kGood});
    for (const RecordingVerdict& verdict : verdicts)
        report.push_back({"", verdict.fault ? "verdict" : "remark", Value(), toText(verdict),
                          verdict.fault ? Style::kBad : Style::kPlain});
}

}  // namespace

Value axisValue(char axis) {
    return axis == 0 ? Value() : Value(std::string(1, axis));
}

std::string bandText(const BandSuppression& band) {
    return fmt::format("{:g}-{:g} Hz", band.fromHz, band.toHz);
}

Examined examine(const std::string& file, std::optional<double> limitAngle, const Limits& limits) {
    Examined examined{.recording = loadRecording(file)};
    examined.sidecar = findSidecar(examined.recording);
    if (examined.sidecar) examined.known = std::move(examined.sidecar->known);
    if (limitAngle) examined.known.limitAngle = limitAngle;
    examined.stats = computeStats(examined.recording, examined.known);
    examined.verdicts = judge(examined.recording, examined.stats, examined.known, limits);
    examined.notTold = notTold(examined.recording, examined.stats, examined.known);
    return examined;
}

Field sidecarField(const std::optional<FoundSidecar>& sidecar) {
    if (!sidecar) return {"sidecar", "", Value()};
    const bool used = sidecar->whyNot.empty();
    return {"sidecar", "beside it",
            Record{{"file", "", sidecar->file},
                   {"used", "", used},
                   {"why_not", "", used ? Value() : Value(sidecar->whyNot)}},
            sidecar->file + (used ? "" : " is not used: " + sidecar->whyNot),
            used ? Style::kPlain : Style::kWarning};
}

std::vector<RecordingFigure> figuresOf(const RecordingStats& stats) {
    std::vector<RecordingFigure> figures{{"rows", "rows", 0, static_cast<double>(stats.rows)},
                                         {"duration_s", "duration", 0, stats.durationS, 3, " s"},
                                         {"rate_hz", "rate", 0, stats.rateHz, 1, " Hz"},
                                         {"gaps", "gaps", 0, static_cast<double>(stats.gaps.count)},
                                         {"longest_gap_s", "longest gap", 0, stats.longestGapS, 3, " s"}};
    for (size_t axis = 0; axis < stats.gyroRawRms.size(); ++axis)
        figures.push_back(
            {"gyro_raw_rms_counts", "gyro, RMS", "xyz"[axis], stats.gyroRawRms[axis], 1, " counts"});
    const auto addBoth = [&figures](const RecordingFigure& of, double x, double y) {
        for (const auto& [axis, value] : {std::pair('x', x), std::pair('y', y)}) {
            figures.push_back(of);
            figures.back().axis = axis;
            figures.back().value = value;
        }
    };
    const auto& [x, y] = stats.axes;
    for (const AxisFigure& of : axisFigures())
        addBoth({of.key, of.label, 0, 0, 4, " deg"}, x.*of.member, y.*of.member);
    addBoth({kLimit.key, kLimit.label, 0, 0, 4, " deg"}, x.limit, y.limit);
    const auto atLimit = [](const AxisStats& of) {
        return std::isfinite(of.limit) ? static_cast<double>(of.samplesAtLimit) : std::nan("");
    };
    addBoth({"samples_at_limit", kSamplesAtLimit}, atLimit(x), atLimit(y));
    if (!stats.suppression) return figures;
    for (const BandSuppression& band : stats.suppression->bands)
        addBoth({fmt::format("suppression_{:g}_to_{:g}_hz_db", band.fromHz, band.toHz),
                 suppressionLabel(band), 0, 0, 1, " dB"},
                band.db(0), band.db(1));
    const BandSuppression& all = stats.suppression->bands.back();
    addBoth({"residual_rms_deg", kResidual, 0, 0, 4, " deg"}, all.residualRms[0], all.residualRms[1]);
    return figures;
}

Record statsReport(const Examined& examined) {
    const Recording& recording = examined.recording;
    const RecordingStats& stats = examined.stats;
    const auto& gyro = stats.gyroRawRms;
    Record report{
        {"file", "file", recording.source},
        sidecarField(examined.sidecar),
        {"rows", "rows", stats.rows,
         fmt::format("{}, {:.3f} s at {} Hz", grouped(stats.rows), stats.durationS, figure(stats.rateHz, 1))},
        {"duration_s", "", stats.durationS},
        {"rate_hz", "", stats.rateHz},
        {"median_period_s", "", stats.medianPeriodS},
        gapField(stats),
        {"longest_gap_s", "", stats.longestGapS},
        {"gyro_raw_rms_counts", "", Record{{"x", "", gyro[0]}, {"y", "", gyro[1]}, {"z", "", gyro[2]}}},
        {"", "axis", {}, byAxes("x", "y")}};
    for (const AxisFigure& figure : axisFigures()) report.push_back(axisField(stats, figure));
    report.push_back(axisField(stats, kLimit));
    report.push_back(limitSamples(stats));
    const Record suppression = suppressionFields(stats.suppression);
    report.insert(report.end(), suppression.begin(), suppression.end());
    addVerdicts(examined.verdicts, report);
    addNotTold(examined.notTold, report);
    return report;
}

Field leftOutField(size_t rows) {
    return {"rows_left_out", rows == 0 ? "" : "left out", rows,
            grouped(rows) + " rows; 'oisctl stats' says which and why", Style::kWarning};
}

}  // namespace oisctl

#include "report/page_data.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <span>
#include <utility>

#include "base/file_content.h"
#include "base/units.h"
#include "modules/customisation_fields.h"
#include "report/packed_column.h"
#include "report/trace_ticks.h"
#include "session/summary.h"
#include "trace/decode.h"
#include "wire/requests.h"

namespace oisctl {

namespace {

using Json = nlohmann::ordered_json;
using phone::Event;
using phone::EventKind;

constexpr double kAngleSteps = 1e6;  // of a degree

constexpr const char* styleKey(Style style) {
    switch (style) {
        case Style::kGood:
            return "good";
        case Style::kWarning:
            return "warning";
        case Style::kBad:
            return "bad";
        default:
            return "";
    }
}

// What people read of a report.
Json rowsOf(const Record& report) {
    Json rows = Json::array();
    for (const Field& field : report)
        if (!field.label.empty()) rows.push_back({field.label, textOf(field), styleKey(field.style)});
    return rows;
}

Record sessionReport(const TraceFile& trace) {
    Tally tally;
    Calls calls;
    for (const TracedEvent& traced : trace.events) tally.count(traced.event, calls.take(traced.event));
    Record report{{"", "trace", trace.path.filename().string()},
                  {"", "events", trace.events.size(), grouped(trace.events.size())}};
    const Record traffic = trafficFields(tally.counts());
    report.insert(report.end(), traffic.begin(), traffic.end());
    return report;
}

Json customisationRows(const std::vector<uint8_t>& block) {
    std::array<phone::RecordField, phone::kCustomisationFields.size()> fields;
    std::ranges::transform(phone::kCustomisationFields, fields.begin(), &phone::CustomisationField::record);
    const phone::RecordLayout layout{"customisation", sizeof(ois::OisCustInfo), fields};
    const std::span bytes(block.data(), std::min(block.size(), layout.size));
    const std::vector<phone::Field> values = phone::decodeRecord(layout, bytes);
    Json rows = Json::array();
    for (size_t i = 0; i < std::min(values.size(), fields.size()); ++i)
        rows.push_back({values[i].name, toText(values[i]), phone::kCustomisationFields.at(i).meaning});
    return rows;
}

// Of the trace's head, and what the driver was handed: each once, as it was last.
Json settingsOf(const TraceFile& trace) {
    Json about = Json::array();
    for (const phone::Field& field : trace.about) about.push_back({field.name, toText(field), ""});
    std::map<std::string, const Event*> properties;
    Json customisation = Json::array();
    for (const TracedEvent& traced : trace.events) {
        const Event& event = traced.event;
        if (event.kind == EventKind::kProperty) properties[event.name] = &event;
        if (event.kind != EventKind::kCustomisation) continue;
        customisation = customisationRows(event.received);
    }
    Json values = Json::array();
    for (const auto& [key, event] : properties) {
        const auto text = [event = event](const char* name) {
            const phone::Field* const field = phone::findField(*event, name);
            return field == nullptr ? std::string() : toText(*field);
        };
        const std::string value =
            event->result && text("value").empty() ? fmt::to_string(*event->result) : text("value");
        values.push_back({key, value, value == text("default") ? "" : "default " + text("default")});
    }
    return {{"About the trace", about},
            {"Customisation of the module", customisation},
            {"Properties that the driver read", values}};
}

// What stands beside the recording, as it stands there.
Json sidecarRows(const std::optional<FoundSidecar>& sidecar) {
    Json rows = Json::array();
    if (!sidecar || !sidecar->whyNot.empty()) return rows;
    const Json about = Json::parse(phone::readFile(sidecar->file), nullptr, false);
    for (const auto& [key, value] : about.items())
        rows.push_back({key, value.is_string() ? value.get<std::string>() : value.dump(), ""});
    return rows;
}

// A time of the recording, for a line of its file.
double timeOfLine(const Recording& recording, size_t line) {
    const auto row = std::ranges::lower_bound(recording.lines, line) - recording.lines.begin();
    return recording.timeS[std::min(static_cast<size_t>(row), recording.rows() - 1)];
}

Json verdictsJson(const Examined& examined, double beginS) {
    Json verdicts = Json::array();
    for (const RecordingVerdict& verdict : examined.verdicts) {
        Json ranges = Json::array();
        for (const LineRange& lines : verdict.places.ranges)
            ranges.push_back({beginS + timeOfLine(examined.recording, lines.first),
                              beginS + timeOfLine(examined.recording, lines.last)});
        verdicts.push_back({{"text", toText(verdict)}, {"fault", verdict.fault}, {"ranges", ranges}});
    }
    return verdicts;
}

Json columnOf(const Samples& values, double steps) {
    PackedColumn column;
    for (const float value : values) column.addScaled(value, steps);
    return column.json();
}

Json columnsOf(const Examined& examined, int64_t beginUs) {
    const Recording& recording = examined.recording;
    PackedColumn time;
    for (const double timeS : recording.timeS) time.add(beginUs + std::llround(timeS * kMicrosPerSecond));
    PackedColumn breaks;  // rows in front of which there is a gap
    for (const RowRange& segment : examined.stats.segments) breaks.add(segment.begin);
    Json columns{{"time_us", time.json()},
                 {"breaks", breaks.json()},
                 {"gyro_x", columnOf(recording[Column::kGyroRawX], 1)},
                 {"gyro_y", columnOf(recording[Column::kGyroRawY], 1)},
                 {"gyro_z", columnOf(recording[Column::kGyroRawZ], 1)}};
    for (size_t axis = 0; axis < 2; ++axis) {
        const char* const name = axis == 0 ? "x" : "y";
        columns[fmt::format("target_{}", name)] = columnOf(targetAngle(recording, axis), kAngleSteps);
        columns[fmt::format("hall_{}", name)] = columnOf(hallAngle(recording, axis), kAngleSteps);
        columns[fmt::format("error_{}", name)] = columnOf(trackingError(recording, axis), kAngleSteps);
        if (examined.stats.suppression)
            columns[fmt::format("residual_{}", name)] =
                columnOf(residualShake(recording, examined.known, axis), kAngleSteps);
    }
    return columns;
}

Json densityJson(const std::vector<double>& values) {
    Json numbers = Json::array();
    for (const double value : values)
        numbers.push_back(std::isfinite(value) ? Json(std::stod(fmt::format("{:.4g}", value))) : Json());
    return numbers;
}

Json spectrumJson(const RecordingStats& stats) {
    Json spectrum{{"hz", densityJson(stats.frequencyHz)}, {"series", Json::array()}};
    const auto add = [&](const char* name, const std::vector<double> AxisStats::*density) {
        for (size_t axis = 0; axis < 2; ++axis) {
            const std::vector<double>& values = stats.axes.at(axis).*density;
            if (values.empty()) continue;
            spectrum["series"].push_back({{"name", fmt::format("{} {}", name, axis == 0 ? "x" : "y")},
                                          {"values", densityJson(values)}});
        }
    };
    if (stats.suppression) {
        add("motion", &AxisStats::motionDensity);
        add("residual", &AxisStats::residualDensity);
    } else {
        add("target", &AxisStats::targetDensity);
        add("tracking error", &AxisStats::trackingErrorDensity);
    }
    return spectrum;
}

Json recordingJson(const Examined& examined, int64_t beginUs) {
    Json limits = Json::array();
    for (const AxisStats& axis : examined.stats.axes)
        limits.push_back(std::isfinite(axis.limit) ? Json(axis.limit) : Json());
    Json untold = Json::array();
    for (const NotTold& one : examined.notTold) untold.push_back(toText(one));
    return {{"good", isGood(examined.verdicts)},
            {"not_told", untold},
            {"verdicts", verdictsJson(examined, static_cast<double>(beginUs) / kMicrosPerSecond)},
            {"figures", rowsOf(statsReport(examined))},
            {"limits_deg", limits},
            {"angle_steps", kAngleSteps},
            {"columns", columnsOf(examined, beginUs)},
            {"spectrum", spectrumJson(examined.stats)},
            {"sidecar", sidecarRows(examined.sidecar)}};
}

}  // namespace

std::optional<int64_t> recordingBeginUs(const ReportSources& sources) {
    const Recording& recording = sources.recording->recording;
    std::map<int64_t, double> stretches;  // their time in the file, by the controller's of their first row
    for (const Stretch& stretch : recording.stretches)
        stretches.emplace(std::llround(stretch.startS * kMicrosPerSecond), recording.timeS[stretch.firstRow]);
    for (const TracedEvent& traced : sources.trace.events) {
        const Event& event = traced.event;
        if (event.kind != EventKind::kSubDevice || event.code != ois::code(ois::Request::kReadStatus))
            continue;
        const auto status = phone::recordOf<ois::OisStatusRecord>(event.received);
        const auto found = stretches.find(
            static_cast<int64_t>(status.timestampSeconds * 1'000'000 + status.timestampFraction));
        if (found != stretches.end()) return event.timeUs - std::llround(found->second * kMicrosPerSecond);
    }
    return std::nullopt;
}

Json pageData(const ReportSources& sources) {
    Json data = traceTicks(sources.trace);
    const Record session = sessionReport(sources.trace);
    data["tool"] = "oisctl " OISCTL_VERSION;
    data["trace"] = sources.trace.path.filename().string();
    data["session"] = rowsOf(session);
    data["settings"] = settingsOf(sources.trace);
    data["end_us"] = sources.trace.events.back().event.timeUs;
    data["recording"] = nullptr;
    if (!sources.recording) return data;
    const std::optional<int64_t> beginUs = recordingBeginUs(sources);
    const int64_t ownBeginUs = sources.trace.events.front().event.timeUs;
    data["aligned"] = beginUs.has_value();
    data["recording"] = recordingJson(*sources.recording, beginUs.value_or(ownBeginUs));
    data["recording"]["file"] =
        std::filesystem::path(sources.recording->recording.source).filename().string();
    return data;
}

}  // namespace oisctl

// oisctl export: recordings and traces in forms that other programs read.

#include <fmt/format.h>

#include <memory>

#include "base/errors.h"
#include "base/suggest.h"
#include "base/whole_file.h"
#include "capture/file_kind.h"
#include "commands/commands.h"
#include "export/recording_export.h"
#include "export/trace_events.h"
#include "recording/sidecar.h"
#include "recording/stats_report.h"
#include "session/settings.h"

namespace oisctl {

namespace fs = std::filesystem;

namespace {

struct ExportOptions {
    std::string file;
    std::string form;
    std::string output;
    std::optional<double> gyroScale;
    std::optional<double> accScale;
    Settings settings;
};

enum class Form { kCsv, kImuLog, kTraceEvents };
struct FormInfo {
    const char* name;
    Form form;
    FileKind from;
    const char* extension;
};
constexpr FormInfo kForms[] = {{"csv", Form::kCsv, FileKind::kRecording, ".csv"},
                               {"imu-log", Form::kImuLog, FileKind::kRecording, ".gcsv"},
                               {"trace-events", Form::kTraceEvents, FileKind::kTrace, ".trace.json"}};

std::vector<std::string> formNames() {
    return namesIn(kForms, &FormInfo::name);
}

// The first that the file's kind can become, unless one is named.
const FormInfo& formOf(const ExportOptions& options) {
    const FileKind kind = kindOf(options.file);
    for (const FormInfo& info : kForms) {
        if (options.form.empty() ? info.from != kind : options.form != info.name) continue;
        if (info.from == kind) return info;
        throw InputError(fmt::format("--as {}: takes a {}; {} is a {}", info.name, name(info.from),
                                     options.file, name(kind)));
    }
    throw InputError(
        fmt::format("--as {}: no such form{}", options.form, suggestion(options.form, formNames())));
}

fs::path outputOf(const ExportOptions& options, const FormInfo& info) {
    if (options.output.empty()) return fs::path(options.file).filename().replace_extension(info.extension);
    requireOther(options.output, {options.file});
    return options.output;
}

SensorScales scalesOf(const ExportOptions& options, const std::optional<FoundSidecar>& sidecar) {
    const Sidecar about = sidecar && sidecar->whyNot.empty() ? sidecar->about : Sidecar();
    const auto gyro = options.gyroScale ? options.gyroScale : about.gyroCountsPerRadS;
    if (!gyro)
        throw InputError(
            fmt::format("{}: nothing beside it says what a count of its gyro is; name it with "
                        "--gyro-scale",
                        options.file));
    return {*gyro, options.accScale ? options.accScale : about.accCountsPerMS2};
}

struct Exported {
    size_t count = 0;  // rows or events
    size_t leftOut = 0;
};

Exported exportTo(WholeFile& out, const ExportOptions& options, Form form) {
    const auto put = [&out](std::string_view piece) { out.write(piece); };
    if (form == Form::kTraceEvents) {
        const TraceFile trace = loadTrace(options.file);
        exportTraceEvents(trace, put);
        return {trace.events.size(), 0};
    }
    const Recording recording = loadRecording(options.file);
    if (recording.rows() == 0) throw InputError(options.file + ": has no row with data");
    const std::optional<FoundSidecar> sidecar = findSidecar(recording);
    if (form == Form::kImuLog) {
        exportImuLog(recording, scalesOf(options, sidecar), put);
    } else {
        exportCsv(recording, sidecar ? sidecar->known : Known(), put);
    }
    return {recording.rows(), rowsLeftOut(recording)};
}

int runExport(const ExportOptions& options) {
    const FormInfo& info = formOf(options);
    const fs::path output = outputOf(options, info);
    WholeFile out(output);
    const Exported done = exportTo(out, options, info.form);
    out.finish();
    const bool isTrace = info.from == FileKind::kTrace;
    print({{"file", "file", output.string()},
           {"form", "form", info.name},
           {isTrace ? "events" : "rows", isTrace ? "events" : "rows", done.count, grouped(done.count)},
           leftOutField(done.leftOut)},
          options.settings.json);
    return kSuccess;
}

}  // namespace

Command describeExport() {
    auto options = std::make_shared<ExportOptions>();
    return {
        .options = {value("file", "FILE", "A status recording or a trace", &options->file,
                          {.required = true}),
                    value("--as", "FORM", "What it becomes; else csv of a recording, trace-events of a trace",
                          &options->form, {.words = formNames}),
                    value("-o,--output", "FILE", "Where; else beside you, named after the file",
                          &options->output),
                    value("--gyro-scale", "COUNTS",
                          "Of an imu-log: gyro counts per rad/s; else what stands beside the recording",
                          &options->gyroScale, {.range = Range{1e-6, 1e9}}),
                    value("--acc-scale", "COUNTS", "Likewise: accelerometer counts per m/s^2",
                          &options->accScale, {.range = Range{1e-6, 1e9}}),
                    jsonOption(options->settings)},
        .notes =
            "csv           a recording, a row a line; units stand in the names of the columns\n"
            "imu-log       its gyro and accelerometer, as video stabilisers read them (.gcsv)\n"
            "trace-events  a trace as JSON for timeline viewers: calls, requests and sleeps of each thread, "
            "and\n"
            "              the stabilisation mode\n",
        .examples = {{"oisctl export out/*_status.txt -o ride.csv"},
                     {"oisctl export out/*_status.txt --as imu-log -o ride.gcsv",
                      "the motion for a video stabiliser"},
                     {"oisctl export status.txt --as imu-log --gyro-scale 939.65",
                      "of a phone whose gyro says 16.4 counts per degree/s"},
                     {"oisctl export run.jsonl -o run.json", "a timeline to open in a viewer"}},
        .run = [options] { return runExport(*options); },
    };
}

}  // namespace oisctl

// oisctl report: a trace, and a recording if there is one, as one page to hand over.

#include <fmt/format.h>

#include <memory>

#include "base/errors.h"
#include "base/report.h"
#include "base/terminal.h"
#include "base/whole_file.h"
#include "commands/commands.h"
#include "report/page.h"
#include "session/settings.h"

namespace oisctl {

namespace fs = std::filesystem;

namespace {

struct ReportOptions {
    std::string trace;
    std::string recording;
    fs::path output;
    fs::path charts = kChartFolder;
    std::optional<double> limitAngle;
    Settings settings;
};

fs::path outputOf(const ReportOptions& options) {
    if (options.output.empty()) return fs::path(options.trace).filename().replace_extension(".html");
    requireOther(options.output, {options.trace, options.recording});
    return options.output;
}

int runReport(const ReportOptions& options) {
    const fs::path output = outputOf(options);
    ReportSources sources{loadTrace(options.trace), std::nullopt};
    if (!options.recording.empty()) sources.recording = examine(options.recording, options.limitAngle);
    const std::optional<ChartLibrary> library = findChartLibrary(options.charts);
    const std::string page = reportPage(sources, library);
    WholeFile file(output);
    file.write(page);
    file.finish();
    const bool apart = sources.recording && !recordingBeginUs(sources);
    if (!library)
        printRemark(
            fmt::format("oisctl: no charts: {} has no dygraph.min.js and .css; the package "
                        "libjs-dygraphs has them",
                        options.charts.string()));
    if (apart)
        printRemark(fmt::format(
            "oisctl: {}: the trace has no answer that became a row of it, so both are shown from the "
            "trace's begin on",
            options.recording));
    print({{"file", "file", output.string()},
           {"bytes", "size", page.size(), grouped(page.size()) + " bytes"},
           {"charts", "", library.has_value()},
           {"aligned", "", sources.recording ? Value(!apart) : Value()},
           {"recording_good", "", sources.recording ? Value(isGood(sources.recording->verdicts)) : Value()}},
          options.settings.json);
    return kSuccess;
}

}  // namespace

Command describeReport() {
    auto options = std::make_shared<ReportOptions>();
    return {
        .options = {value("trace", "TRACE", "A trace of the session", &options->trace, {.required = true}),
                    value("recording", "STATUS_FILE", "What the recorder wrote meanwhile",
                          &options->recording),
                    value("-o,--output", "FILE", "The page; else beside you, named after the trace",
                          &options->output),
                    value("--limit", "DEGREES",
                          "The lens's travel either way; else what stands beside the recording, or estimated",
                          &options->limitAngle, {.range = Range{0.001, 90}}),
                    value("--charts", "DIR", "Where the chart library is: dygraph.min.js and .css",
                          &options->charts),
                    jsonOption(options->settings)},
        .notes =
            "One HTML file that needs no network: verdicts, a timeline of calls and commands over gyro, "
            "target\n"
            "and hall, each command's payload, spectrum, path of the lens, settings. Charts need Debian's\n"
            "package libjs-dygraphs when the page is written; without it the page shows the rest.\n",
        .examples = {{"oisctl record --trace=run.jsonl -o out"},
                     {"oisctl report run.jsonl out/ois_dump_..._status.txt -o report.html"},
                     {"oisctl report spy.jsonl", "the trace alone"}},
        .run = [options] { return runReport(*options); },
    };
}

}  // namespace oisctl

// oisctl plot, oisctl stats: what a status recording says, from the simulated phone or from a real one.

#include <memory>

#include "base/errors.h"
#include "base/report.h"
#include "commands/commands.h"
#include "recording/plot.h"
#include "recording/recording.h"
#include "session/settings.h"

namespace oisctl {

namespace {

struct Options {
    std::string file;
    std::string output;
    std::optional<double> limitAngle;  // none: estimated
    Settings settings;
};

std::vector<Option> recordingOptions(Options& options) {
    return {value("file", "STATUS_FILE", "Status recording", &options.file, {.required = true}),
            value("--limit", "DEGREES", "The lens's travel either way; else estimated", &options.limitAngle,
                  {.range = Range{0.001, 90}}),
            jsonOption(options.settings)};
}

std::vector<Option> withOutput(Options& options) {
    std::vector<Option> all = recordingOptions(options);
    all.push_back(value("-o,--output", "FILE",
                        "Picture, .png or .svg; else beside you, named after the recording",
                        &options.output));
    return all;
}

int runStats(const Options& options) {
    const Recording recording = loadRecording(options.file);
    const RecordingStats computed = computeStats(recording, options.limitAngle);
    print(statsReport(recording, computed), options.settings.json);
    return kSuccess;
}

int runPlot(const Options& options) {
    const Recording recording = loadRecording(options.file);
    std::filesystem::path output = options.output;
    if (output.empty()) output = std::filesystem::path(options.file).filename().replace_extension(".png");
    plotRecording(recording, computeStats(recording, options.limitAngle), output);
    print({{"file", "file", output.string()}}, options.settings.json);
    return kSuccess;
}

}  // namespace

Command describeStats() {
    auto options = std::make_shared<Options>();
    return {
        .options = recordingOptions(*options),
        .examples = {{"oisctl stats out/ois_dump_..._status.txt"}, {"oisctl stats status.txt --json"}},
        .run = [options] { return runStats(*options); },
    };
}

Command describePlot() {
    auto options = std::make_shared<Options>();
    return {
        .options = withOutput(*options),
        .notes = "Works on recordings from a real phone as well.\n",
        .examples = {{"oisctl plot out/ois_dump_..._status.txt"}, {"oisctl plot status.txt -o shake.svg"}},
        .run = [options] { return runPlot(*options); },
    };
}

}  // namespace oisctl

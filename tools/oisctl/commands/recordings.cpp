// oisctl plot, oisctl stats: what a status recording says, from the simulated phone or from a real one.

#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "base/errors.h"
#include "base/number.h"
#include "base/report.h"
#include "base/suggest.h"
#include "commands/commands.h"
#include "recording/plot.h"
#include "recording/stats_report.h"
#include "session/settings.h"

namespace oisctl {

namespace {

struct RecordingsOptions {
    std::string file;                // that plot draws
    std::vector<std::string> files;  // that stats looks at
    std::string output;
    std::optional<double> limitAngle;  // none: the sidecar's, else estimated
    bool requireGood = false;
    Limits limits;
    Settings settings;
};

// `recording`: which, or which ones.
std::vector<Option> recordingOptions(RecordingsOptions& options, Option recording) {
    return {std::move(recording),
            value("--limit", "DEGREES",
                  "The lens's travel either way; else what stands beside the recording, or estimated",
                  &options.limitAngle, {.range = Range{0.001, 90}}),
            jsonOption(options.settings)};
}

std::vector<std::string> figureNames() {
    return namesIn(axisFigures(), &AxisFigure::key);
}

void takeLimit(Limits& limits, const std::string& word) {
    const size_t equals = std::min(word.find('='), word.size());
    const std::string name = word.substr(0, equals);
    const auto names = figureNames();
    if (std::ranges::find(names, name) == names.end())
        throw InputError(fmt::format("{}: no figure of stats{}", name, suggestion(name, names)));
    const auto greatest = numberOf<double>(std::string_view(word).substr(std::min(equals + 1, word.size())));
    if (!greatest || !(*greatest >= 0))
        throw InputError(fmt::format("{}: expected {}=NUMBER, a number of 0 or more", word, name));
    limits[name] = *greatest;
}

std::vector<Option> statsOptions(RecordingsOptions& options) {
    std::vector<Option> all =
        recordingOptions(options, value("files", "STATUS_FILE...", "Status recordings", &options.files,
                                        {.required = true, .repeats = true}));
    all.push_back(value("--max", "FIGURE=NUMBER",
                        fmt::format("The greatest that it may be on either axis; repeatable. FIGURE: {}",
                                    fmt::join(figureNames(), ", ")),
                        [&options](const std::string& word) { takeLimit(options.limits, word); },
                        {.words = figureNames, .repeats = true}));
    all.push_back(flag("--require-good", "Exit status 1 when a verdict is bad", &options.requireGood));
    return all;
}

std::vector<Option> plotOptions(RecordingsOptions& options) {
    std::vector<Option> all = recordingOptions(
        options, value("file", "STATUS_FILE", "Status recording", &options.file, {.required = true}));
    all.push_back(value("-o,--output", "FILE",
                        "Picture, .png or .svg; else beside you, named after the recording",
                        &options.output));
    return all;
}

// Of many files one that cannot be used is no reason to say nothing of the others.
int runStats(const RecordingsOptions& options) {
    const bool mustBeGood = options.requireGood || !options.limits.empty();
    int status = kSuccess;
    for (const std::string& file : options.files) {
        try {
            const Examined examined = examine(file, options.limitAngle, options.limits);
            if (!options.settings.json && file != options.files.front()) printLine();
            print(statsReport(examined), options.settings.json);
            if (mustBeGood && !isGood(examined.verdicts)) status = std::max<int>(status, kJobFailed);
        } catch (const InputError& error) {
            if (options.files.size() == 1) throw;
            printRemark(fmt::format("oisctl: {}", error.what()));
            status = kWrongInput;
        }
    }
    return status;
}

int runPlot(const RecordingsOptions& options) {
    const Examined examined = examine(options.file, options.limitAngle);
    std::filesystem::path output = options.output;
    if (output.empty()) output = std::filesystem::path(options.file).filename().replace_extension(".png");
    plotRecording(examined, output);
    print({{"file", "file", output.string()},
           sidecarField(examined.sidecar),
           leftOutField(rowsLeftOut(examined.recording))},
          options.settings.json);
    return kSuccess;
}

}  // namespace

Command describeStats() {
    auto options = std::make_shared<RecordingsOptions>();
    return {
        .options = statsOptions(*options),
        .notes =
            "Verdicts name the lines of the file where they show. The exit status is 0 whatever they are, "
            "but\n"
            "with --require-good or --max. Of several files each is told of; one that cannot be read makes "
            "the\n"
            "exit status 2 and holds up no other. Suppression is told where 'oisctl record' left the true "
            "motion\n"
            "beside the recording.\n",
        .examples = {{"oisctl stats out/ois_dump_..._status.txt"},
                     {"oisctl stats line/*.txt --json --require-good > line.jsonl",
                      "one line of JSON each; exit status 1 when one of them is bad"},
                     {"oisctl stats status.txt --max tracking_error_rms_deg=0.05", "exit status 1 above it"}},
        .run = [options] { return runStats(*options); },
    };
}

Command describePlot() {
    auto options = std::make_shared<RecordingsOptions>();
    return {
        .options = plotOptions(*options),
        .notes = "Works on recordings from a real phone as well.\n",
        .examples = {{"oisctl plot out/ois_dump_..._status.txt"}, {"oisctl plot status.txt -o shake.svg"}},
        .run = [options] { return runPlot(*options); },
    };
}

}  // namespace oisctl

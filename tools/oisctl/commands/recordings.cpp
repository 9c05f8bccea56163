// oisctl plot, oisctl stats: what a status recording says, from the simulated phone or from a real one.

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include <CLI/CLI.hpp>

#include "base/cli_options.h"
#include "base/errors.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "recording/plot.h"
#include "recording/recording.h"
#include "session/settings.h"

namespace oisctl {

namespace {

struct Options {
    std::string file;
    std::string output;
    double limitAngle = 0;  // 0: estimated
    Settings settings;
};

Recording load(const Options& options) {
    try {
        return loadRecording(options.file);
    } catch (const std::runtime_error& error) {
        throw InputError(error.what());
    }
}

RecordingStats stats(const Options& options, const Recording& recording) {
    try {
        return computeStats(recording,
                            options.limitAngle > 0 ? std::optional(options.limitAngle) : std::nullopt);
    } catch (const std::runtime_error& error) {
        throw InputError(error.what());
    }
}

int runStats(const Options& options) {
    const Recording recording = load(options);
    const RecordingStats computed = stats(options, recording);
    if (options.settings.json) {
        printLine(toJson(recording, computed).dump());
    } else {
        printStats(std::cout, recording, computed);
    }
    return kSuccess;
}

int runPlot(const Options& options) {
    const Recording recording = load(options);
    std::filesystem::path output = options.output;
    if (output.empty()) output = std::filesystem::path(options.file).filename().replace_extension(".png");
    plotRecording(recording, stats(options, recording), output);
    printLine(output.string());
    return kSuccess;
}

void addFile(CLI::App& command, Options& options) {
    command.add_option("file", options.file, "Status recording")->required()->type_name("STATUS_FILE");
    command.add_option("--limit", options.limitAngle, "The lens's travel either way; else estimated")
        ->check(inRange(0.0, 90.0))
        ->type_name("DEGREES");
}

}  // namespace

void addStats(CLI::App& app, Job& job) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("stats", "Say what a status recording holds: rate, gaps, shake, suppression");
    addFile(*command, *options);
    addJsonOption(*command, options->settings);
    command->footer(
        "Examples:\n"
        "  oisctl stats out/ois_dump_..._status.txt\n"
        "  oisctl stats status.txt --json");
    command->callback([options, &job] { job = [options] { return runStats(*options); }; });
}

void addPlot(CLI::App& app, Job& job) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("plot", "Draw a status recording: shake, residual, lens path, spectrum");
    addFile(*command, *options);
    command
        ->add_option("-o,--output", options->output,
                     "Picture, .png or .svg; else beside you, named after the recording")
        ->type_name("FILE");
    command->footer(
        "Works on recordings from a real phone as well.\n"
        "\nExamples:\n"
        "  oisctl plot out/ois_dump_..._status.txt\n"
        "  oisctl plot status.txt -o shake.svg");
    command->callback([options, &job] { job = [options] { return runPlot(*options); }; });
}

}  // namespace oisctl

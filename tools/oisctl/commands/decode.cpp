// oisctl decode: request codes and records in hex, in words.

#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "capture/decode_command.h"
#include "commands/commands.h"
#include "session/settings.h"

namespace oisctl {

namespace {

struct Options {
    std::vector<std::string> inputs;
    std::string file;
    Settings settings;
};

int decode(const Options& options) {
    const std::optional<std::string> file = options.file.empty() ? std::nullopt : std::optional(options.file);
    return runDecode(options.inputs, file, options.settings.json, std::cin, std::cout, std::cerr);
}

}  // namespace

void addDecode(CLI::App& app, Job& job) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("decode", "Say in words what request codes and hub records in hex are");
    CLI::Option* input = command
                             ->add_option("input", options->inputs,
                                          "Request codes and records; none: lines from standard input")
                             ->type_name("HEX");
    command->add_option("-f,--file", options->file, "Lines from this file")
        ->type_name("FILE")
        ->excludes(input);
    addJsonOption(*command, options->settings);
    command->footer(
        "A line is a request in hex or by name, with its record behind a colon, a line of strace, or the 64 "
        "bytes of a\n"
        "record to the sensor hub. '-> RECORD' behind it is what came back.\n"
        "\nExamples:\n"
        "  oisctl decode 0x400456C2                       what a private request is\n"
        "  oisctl decode SET_FIX_MODE                     the same by name\n"
        "  oisctl decode \"0x400456C2: 02000000\"           with the record that went along\n"
        "  oisctl decode --file captured.txt              lines of a capture\n"
        "  strace -f -e ioctl PROGRAM 2>&1 | oisctl decode");
    command->callback([options, &job] { job = [options] { return decode(*options); }; });
}

}  // namespace oisctl

// oisctl decode: request codes and records in hex, in words.

#include <iostream>
#include <memory>

#include "capture/decode_command.h"
#include "commands/commands.h"
#include "session/settings.h"

namespace oisctl {

namespace {

struct DecodeOptions {
    std::vector<std::string> inputs;
    std::string file;
    Settings settings;
};

int decode(const DecodeOptions& options) {
    const std::optional<std::string> file = options.file.empty() ? std::nullopt : std::optional(options.file);
    return runDecode(options.inputs, file, options.settings.json, std::cin, std::cout, std::cerr);
}

}  // namespace

Command describeDecode() {
    auto options = std::make_shared<DecodeOptions>();
    return {
        .options = {value("-f,--file", "FILE", "Lines from this file", &options->file),
                    value("input", "HEX", "Request codes and records; none: lines from standard input",
                          &options->inputs, {.repeats = true, .excludes = "--file"}),
                    jsonOption(options->settings)},
        .notes =
            "A line is a request in hex or by name, with its record behind a colon, a line of strace, or the "
            "64 bytes of a\nrecord to the sensor hub. '-> RECORD' behind it is what came back.\n",
        .examples = {{"oisctl decode 0x400456C2", "what a private request is"},
                     {"oisctl decode SET_FIX_MODE", "the same by name"},
                     {"oisctl decode \"0x400456C2: 02000000\"", "with the record that went along"},
                     {"oisctl decode --file captured.txt", "lines of a capture"},
                     {"strace -f -e ioctl PROGRAM 2>&1 | oisctl decode"}},
        .run = [options] { return decode(*options); },
    };
}

}  // namespace oisctl

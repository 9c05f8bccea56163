// The manual page, in the language of man.

#include <fmt/format.h>

#include "cli/command.h"
#include "cli/generate.h"

namespace oisctl {

namespace {

constexpr std::string_view kHead = R"('\" t
.TH OISCTL 1 "" "oisctl {version}" "User Commands"
.SH NAME
oisctl \- drive a camera's optical image stabilisation driver and show what reaches the controller
.SH SYNOPSIS
.B oisctl
.I COMMAND
.RI [ OPTIONS ]
.SH DESCRIPTION
.B oisctl
opens the OIS driver on a simulated phone, or on this machine's own kernel, calls it as a camera would, and shows
every command that reaches the controller, decoded. Sleeps pass in simulated time unless
.B \-\-real\-time
is given, and one run is like the next.
.SH COMMANDS
)";

constexpr std::string_view kTail = R"(.SH EXIT STATUS
.TS
r l.
0	done
1	the job failed, or its verdict is bad
2	wrong input; nothing was done
130	ended by SIGINT (Ctrl-C)
143	ended by SIGTERM
129	ended by SIGHUP
141	whoever read the output has closed it
.TE
.PP
A signal lets the driver be closed and shows the result so far. A job that failed answers 1 all the same.
.SH ENVIRONMENT
.TP
.B NO_COLOR
Set to anything, it keeps colours off. There are none either when the output is not a terminal.
.SH FILES
Dump files of the driver are named
.IR ois_dump_CAMERATYPE_CHIP_status.txt ,
.I _otp.txt
and
.IR _flash.txt .
.PP
A motion in CSV has the columns time in seconds, gyro x, y, z in rad/s, acceleration x, y, z in m/s^2.
.SH EXAMPLES
)";

// Text that stands for itself.
std::string roff(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool beginsLine = i == 0 || text[i - 1] == '\n';
        if (beginsLine && (text[i] == '.' || text[i] == '\'')) out += "\\&";
        if (text[i] == '-') out += '\\';
        out += text[i] == '\\' ? std::string("\\e") : std::string(1, text[i]);
    }
    return out;
}

std::string preformatted(std::string_view text) {
    return text.empty() ? "" : fmt::format(".PP\n.nf\n{}.fi\n", roff(text));
}

std::string examples(const std::vector<Example>& all) {
    std::string text;
    for (const Example& example : all)
        text += example.shows.empty() ? fmt::format("{}\n", example.line)
                                      : fmt::format("{}    # {}\n", example.line, example.shows);
    return preformatted(text);
}

std::string item(const Option& option) {
    std::string names;
    for (const std::string& name : namesOf(option)) {
        if (isPositional(option)) continue;
        names += fmt::format("{}\\fB{}\\fR", names.empty() ? "" : ", ", roff(name));
    }
    if (!option.valueName.empty())
        names += fmt::format("{}\\fI{}\\fR", names.empty() ? "" : " ", roff(option.valueName));
    const std::string otherwise = defaultOf(option);
    return fmt::format(".TP\n{}\n{}{}.\n", names, roff(option.help),
                       otherwise.empty() ? "" : fmt::format(" (by default {})", roff(otherwise)));
}

std::string section(const CommandEntry& entry) {
    const Command command = entry.describe();
    std::string own;
    std::string places;
    for (const Option& option : command.options) {
        if (option.group.empty()) own += item(option);
        if (isPositional(option)) places += fmt::format(" \\fI{}\\fR", roff(option.valueName));
    }
    return fmt::format(".TP\n\\fB{}\\fR{}\n{}.\n.RS\n{}{}{}.RE\n", roff(entry.name), places,
                       roff(entry.summary), own, preformatted(command.notes), examples(command.examples));
}

// Those that commands have in common, by group; the first command has them all.
std::string commonOptions() {
    std::string text = ".SH OPTIONS\nOptions of all commands that open the driver.\n";
    std::string_view group;
    for (const Option& option : commands().front().describe().options) {
        if (option.group.empty()) continue;
        if (option.group != group) text += fmt::format(".SS {}\n", option.group);
        group = option.group;
        text += item(option);
    }
    return text;
}

}  // namespace

std::string manual() {
    std::string text(kHead);
    constexpr std::string_view kVersion = "{version}";
    text.replace(text.find(kVersion), kVersion.size(), OISCTL_VERSION);
    std::string_view group;
    for (const CommandEntry& entry : commands()) {
        if (entry.group != group) text += fmt::format(".SS {}\n", entry.group);
        group = entry.group;
        text += section(entry);
    }
    return text + commonOptions() + std::string(kTail) + examples(overviewExamples());
}

}  // namespace oisctl

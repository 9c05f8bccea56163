// oisctl: drives the OIS driver on a simulated phone, or on this machine's own kernel, and shows what passes.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "base/interrupt.h"
#include "cli/command_line.h"
#include "trace/trace.h"

namespace {

// The status of a job that ran: what a signal cut short, or a full disk swallowed, must not pass for the
// whole result.
int afterOutput(int status) {
    constexpr int kSignalBase = 128;  // as shells tell it
    const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (oisctl::outputClosed()) return kSignalBase + SIGPIPE;
    if (!written) {
        std::fprintf(stderr, "oisctl: standard output: the result could not be written completely\n");
        if (status == oisctl::kSuccess) status = oisctl::kJobFailed;
    }
    const int signal = oisctl::endingSignal();
    return signal != 0 ? kSignalBase + signal : status;
}

// Errors quote what they are about, which may be anything.
void complain(std::string_view text) {
    std::string shown = "oisctl: ";
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        shown += phone::printable(text.substr(begin, end - begin)) + '\n';
        begin = end + 1;
    }
    std::fputs(shown.c_str(), stderr);
}

}  // namespace

int main(int argc, char** argv) {
    oisctl::endWhenOutputCloses();
    try {
        return afterOutput(oisctl::runCommandLine(argc, argv));
    } catch (const oisctl::InputError& error) {
        complain(error.what());
        return oisctl::kWrongInput;
    } catch (const std::exception& error) {
        complain(error.what());
        return oisctl::kJobFailed;
    }
}

// oisctl: drives the OIS driver on a simulated phone, or on this machine's own kernel, and shows what passes.

#include <csignal>
#include <cstdio>
#include <exception>

#include "base/errors.h"
#include "base/interrupt.h"
#include "cli/command_line.h"

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

}  // namespace

int main(int argc, char** argv) {
    oisctl::endWhenOutputCloses();
    try {
        return afterOutput(oisctl::runCommandLine(argc, argv));
    } catch (const oisctl::InputError& error) {
        std::fprintf(stderr, "oisctl: %s\n", error.what());
        return oisctl::kWrongInput;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "oisctl: %s\n", error.what());
        return oisctl::kJobFailed;
    }
}

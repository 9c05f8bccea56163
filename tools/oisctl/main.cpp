// oisctl: drives the OIS driver on a simulated phone, or on this machine's own kernel, and shows what passes.

#include <csignal>
#include <cstdio>
#include <exception>

#include "command_line.h"
#include "errors.h"
#include "interrupt.h"

namespace {

// What a full disk swallowed must not pass for the whole result.
int afterOutput(int status) {
    constexpr int kClosedPipe = 128 + SIGPIPE;  // as shells tell it
    if (oisctl::outputClosed()) return kClosedPipe;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    std::fprintf(stderr, "oisctl: standard output: the result could not be written completely\n");
    return status == oisctl::kSuccess ? oisctl::kJobFailed : status;
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

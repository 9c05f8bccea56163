#include "interrupt.h"

#include <array>
#include <csignal>

namespace oisctl {

namespace {

constexpr std::array kEndingSignals = {SIGINT, SIGTERM};

volatile std::sig_atomic_t gInterrupted = 0;
volatile std::sig_atomic_t gOutputClosed = 0;

extern "C" void noteInterrupt(int) {
    gInterrupted = 1;
}

extern "C" void noteClosedOutput(int) {
    gOutputClosed = 1;
    gInterrupted = 1;
}

}  // namespace

InterruptGuard::InterruptGuard() {
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : kEndingSignals) sigaction(signal, &action, nullptr);
}

InterruptGuard::~InterruptGuard() {
    for (const int signal : kEndingSignals) std::signal(signal, SIG_DFL);
}

void endWhenOutputCloses() {
    struct sigaction action {};
    action.sa_handler = noteClosedOutput;
    sigaction(SIGPIPE, &action, nullptr);
}

bool outputClosed() {
    return gOutputClosed != 0;
}

bool interrupted() {
    return gInterrupted != 0;
}

}  // namespace oisctl

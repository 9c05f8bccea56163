#include "base/interrupt.h"

#include <array>
#include <csignal>

namespace oisctl {

namespace {

constexpr std::array kEndingSignals = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t gEndingSignal = 0;

extern "C" void noteSignal(int signal) {
    // A closed output outranks the rest: nobody is there to read what would follow.
    if (gEndingSignal == 0 || signal == SIGPIPE) gEndingSignal = signal;
}

}  // namespace

InterruptGuard::InterruptGuard() {
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : kEndingSignals) sigaction(signal, &action, nullptr);
}

InterruptGuard::~InterruptGuard() {
    for (const int signal : kEndingSignals) std::signal(signal, SIG_DFL);
}

void endWhenOutputCloses() {
    struct sigaction action {};
    action.sa_handler = noteSignal;
    sigaction(SIGPIPE, &action, nullptr);
}

bool outputClosed() {
    return gEndingSignal == SIGPIPE;
}

bool interrupted() {
    return gEndingSignal != 0;
}

int endingSignal() {
    return gEndingSignal;
}

}  // namespace oisctl

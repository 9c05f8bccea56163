#include "interrupt.h"

#include <csignal>

namespace oisctl {

namespace {

volatile std::sig_atomic_t gInterrupted = 0;

extern "C" void noteInterrupt(int) {
    gInterrupted = 1;
}

}  // namespace

InterruptGuard::InterruptGuard() {
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
}

InterruptGuard::~InterruptGuard() {
    std::signal(SIGINT, SIG_DFL);
}

bool interrupted() {
    return gInterrupted != 0;
}

}  // namespace oisctl

#pragma once
// A signal ends the job early, but in order: the driver is closed, the result shown, temporary folders
// removed.

namespace oisctl {

// While one lives, the first SIGINT, SIGTERM or SIGHUP is only noted; a second one ends the process as usual.
class InterruptGuard {
  public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;
};

bool interrupted();
// The signal that was noted first, or 0.
int endingSignal();

// A reader that has seen enough ('| head') ends the job likewise, by SIGPIPE.
void endWhenOutputCloses();
bool outputClosed();

}  // namespace oisctl

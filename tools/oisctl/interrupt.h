#pragma once
// Ctrl-C ends the job early, but in order: the driver is closed and the result shown.

namespace oisctl {

// While one lives, the first Ctrl-C only sets the flag; a second one ends the process as usual.
class InterruptGuard {
  public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;
};

bool interrupted();

// A reader that has seen enough ('| head') ends the job like Ctrl-C, so that it cleans up behind itself.
void endWhenOutputCloses();
bool outputClosed();

}  // namespace oisctl

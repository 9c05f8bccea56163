#pragma once
// The driver's threads, each on a stack of its own within the one thread of the fuzzer: one runs at a time,
// and the script decides which, so that an input is played in the same way every time.

#include <cstdint>

namespace fuzz {

// Whether a thread was made that nobody has joined, or that may go on.
bool hasWorkers();
// From a worker back to the caller's thread for an odd `choice`, from there to a worker for an even one.
void letWorkersRun(uint8_t choice);

}  // namespace fuzz

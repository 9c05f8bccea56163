#pragma once
// The driver's worker threads.

#include <system_error>
#include <thread>
#include <utility>

namespace ois {

// Runs `body` on `slot`. A thread that is still held there ends the process.
template <typename Body>
void startWorker(std::thread& slot, Body&& body) {
    try {
        slot = std::thread(std::forward<Body>(body));
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "thread constructor failed");
    }
}

// Logs the calling thread's priority as `function`, then makes `worker` a SCHED_FIFO thread, if it is running
// or not yet joined. Whether the kernel allows that is not looked at.
void raiseWorkerPriority(const char* function, std::thread& worker);

}  // namespace ois

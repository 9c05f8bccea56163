#include "lifecycle/worker.h"

#include <pthread.h>
#include <sched.h>

#include "log.h"

namespace ois {

namespace {
constexpr int kWorkerPriority = 20;  // SCHED_FIFO
}

void raiseWorkerPriority(const char* function, std::thread& worker) {
    int policy = 0;
    sched_param own{};
    pthread_getschedparam(pthread_self(), &policy, &own);
    OIS_LOG_AS(function, kInfo, "Thread is executing at priority %d", own.sched_priority);

    sched_param raised{};
    raised.sched_priority = kWorkerPriority;
    if (worker.joinable()) pthread_setschedparam(worker.native_handle(), SCHED_FIFO, &raised);
    OIS_LOG_AS(function, kInfo, "change current thread priority %d", kWorkerPriority);
}

}  // namespace ois

// Sleeps and threads.

#include <sched.h>

#include <cerrno>
#include <utility>

#include "entry/libc.h"
#include "kernel/kernel_call.h"
#include "time/clock.h"

namespace phone {

namespace {

std::vector<Field> threadFields(std::optional<uint32_t> thread) {
    if (!thread) return {textField("thread", "unknown")};
    return {{"thread", uint64_t{*thread}}};
}

void addScheduling(std::vector<Field>& fields, int policy, int priority) {
    Field shown{"policy", int64_t{policy}};
    for (const auto& [known, name] : {std::pair(SCHED_OTHER, "SCHED_OTHER"),
                                      std::pair(SCHED_FIFO, "SCHED_FIFO"), std::pair(SCHED_RR, "SCHED_RR")}) {
        if (known == policy) shown = textField("policy", name);
    }
    fields.push_back(std::move(shown));
    fields.push_back({"priority", int64_t{priority}});
}

}  // namespace

int Kernel::usleep(uint32_t us) {
    mClock.enter();
    if (mTrace.enabled()) {
        mTrace.record({.kind = EventKind::kSleep, .name = "usleep", .fields = {{"us", uint64_t{us}}}});
    }
    mClock.sleepUs(us);
    return 0;
}

int Kernel::createThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                         void* argument) {
    mClock.enter();
    const Fate fate = mFaults.consult(FaultPoint::kThreadCreate);
    const int error =
        fate.error() != 0 ? fate.error() : mClock.createThread(thread, attributes, start, argument);
    if (mTrace.enabled()) {
        auto fields = error == 0 ? threadFields(mClock.threadNumber(*thread)) : std::vector<Field>{};
        traceCall(EventKind::kThread, "pthread_create", std::move(fields), error, error, fate);
    }
    return error;
}

int Kernel::joinThread(pthread_t thread, void** result) {
    mClock.enter();
    std::optional<uint32_t> number = mClock.threadNumber(thread);
    if (!number) number = mClock.endedThreadNumber(thread);
    const int error = mClock.joinThread(thread, result);
    if (error == 0 && number) {
        const std::lock_guard lock(mMutex);
        mScheduling.erase(*number);
    }
    if (mTrace.enabled()) {
        traceCall(EventKind::kThread, "pthread_join", threadFields(number), error, error, {});
    }
    return error;
}

int Kernel::setScheduling(pthread_t thread, int policy, const sched_param* param) {
    mClock.enter();
    mClock.threadNumber();  // so that a thread that asks for itself is known
    const std::optional<uint32_t> number = mClock.threadNumber(thread);
    const Fate fate = mFaults.consult(FaultPoint::kThreadSchedule);
    const bool lost = fate.lost();
    int error = fate.error();
    if (error != 0 || lost) {
        // Nothing is set.
    } else if (mReal) {
        error = libc().pthreadSetSchedParam(thread, policy, param);
    } else if (!number) {
        error = ESRCH;
    } else if (param->sched_priority < sched_get_priority_min(policy) ||
               param->sched_priority > sched_get_priority_max(policy)) {
        error = EINVAL;
    }
    if (error == 0 && !lost && number) {
        const std::lock_guard lock(mMutex);
        mScheduling[*number] = {policy, param->sched_priority};
    }
    if (mTrace.enabled()) {
        std::vector<Field> fields = threadFields(number);
        addScheduling(fields, policy, param->sched_priority);
        traceCall(EventKind::kThread, "pthread_setschedparam", std::move(fields), error, error, fate);
    }
    return error;
}

int Kernel::getScheduling(pthread_t thread, int* policy, sched_param* param) {
    mClock.enter();
    mClock.threadNumber();
    const std::optional<uint32_t> number = mClock.threadNumber(thread);
    const Fate fate = mFaults.consult(FaultPoint::kThreadPriority);
    int error = fate.error();
    if (error != 0) {
        // Nothing is answered.
    } else if (mReal) {
        error = libc().pthreadGetSchedParam(thread, policy, param);
    } else if (!number) {
        error = ESRCH;
    } else {
        const std::lock_guard lock(mMutex);
        const Scheduling& known = mScheduling[*number];
        *policy = known.policy;
        param->sched_priority = known.priority;
    }
    if (mTrace.enabled()) {
        std::vector<Field> answer;
        if (error == 0) addScheduling(answer, *policy, param->sched_priority);
        traceCall(EventKind::kThread, "pthread_getschedparam", threadFields(number), error, error, fate,
                  std::move(answer));
    }
    return error;
}

}  // namespace phone

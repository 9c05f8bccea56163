#include "time/clock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "base/mutex.h"
#include "entry/libc.h"

namespace phone {

namespace {

using SteadyClock = std::chrono::steady_clock;

// Real time without a sign of life from anybody after which time goes on all the same.
constexpr auto kStallLimit = std::chrono::seconds(2);
// How often a joiner looks whether a thread that has not called into the phone yet has ended.
constexpr auto kJoinPoll = std::chrono::milliseconds(1);
// Calls without a sleep after which a thread counts as busy until the next other one is due.
constexpr uint32_t kCallsPerTurn = 1000;

enum class Status {
    kStarting,   // created, no call into the phone yet
    kRunning,    // has the turn
    kSleeping,   // until its due time
    kJoining,    // until another thread ends
    kElsewhere,  // does not take part, or was found to be stuck outside the phone
};

struct Participant {
    explicit Participant(uint32_t threadNumber) : number(threadNumber) {}

    const uint32_t number;
    std::atomic<Status> status{Status::kElsewhere};
    bool takesPart = false;
    bool entered = false;  // has called into the phone
    int64_t dueUs = 0;
    uint64_t order = 0;  // among sleepers that are due at the same time
    const Participant* joined = nullptr;
    uint32_t calls = 0;  // since the last sleep; the thread's own
    std::condition_variable_any wake;
};

using Lock = std::unique_lock<Mutex>;

}  // namespace

struct Clock::State {
    explicit State(ClockMode clockMode) : mode(clockMode), start(SteadyClock::now()) {}

    const ClockMode mode;
    const SteadyClock::time_point start;
    std::atomic<int64_t> nowUs{0};      // simulated and free-running time
    std::atomic<uint64_t> progress{0};  // signs of life
    Mutex mutex;
    bool closed = false;
    uint32_t nextNumber = 0;
    uint64_t nextOrder = 0;
    std::map<pthread_t, std::shared_ptr<Participant>> participants;
    std::map<pthread_t, uint32_t> ended;  // numbers of threads that nobody may have joined yet

    struct Slot;
    // The calling thread.
    static Participant& self(const std::shared_ptr<State>& state);
    std::shared_ptr<Participant> add(pthread_t thread);
    void erase(pthread_t thread, const Participant& participant);
    void leave(pthread_t thread, const Participant& participant);
    void queue(Participant& participant, int64_t dueUs);
    Participant* earliestSleeper(const Participant* except = nullptr) const;
    void dispatch(const Participant* caller = nullptr);
    void forceAdvance();
    void waitForTurn(Lock& lock, Participant& participant);
    void giveWay(Participant& participant);
    bool waitForEnd(Lock& lock, Participant& joiner, const std::shared_ptr<Participant>& target,
                    pthread_t thread, void** result);
};

// What a thread knows of the clock it last used; its destruction is the sign of the thread's end.
struct Clock::State::Slot {
    std::shared_ptr<State> state;
    std::shared_ptr<Participant> participant;

    ~Slot() {
        if (state != nullptr) state->leave(pthread_self(), *participant);
    }
};

Participant& Clock::State::self(const std::shared_ptr<State>& state) {
    thread_local Slot slot;
    if (slot.state != state) {
        const Lock lock(state->mutex);
        const auto found = state->participants.find(pthread_self());
        slot.participant = found != state->participants.end() ? found->second : state->add(pthread_self());
        slot.state = state;
    }
    return *slot.participant;
}

std::shared_ptr<Participant> Clock::State::add(pthread_t thread) {
    auto participant = std::make_shared<Participant>(nextNumber++);
    participants[thread] = participant;
    ended.erase(thread);
    return participant;
}

void Clock::State::erase(pthread_t thread, const Participant& participant) {
    const auto found = participants.find(thread);
    if (found != participants.end() && found->second.get() == &participant) participants.erase(found);
}

void Clock::State::leave(pthread_t thread, const Participant& participant) {
    const Lock lock(mutex);
    erase(thread, participant);
    ended[thread] = participant.number;
    for (const auto& [id, other] : participants) {
        if (other->status != Status::kJoining || other->joined != &participant) continue;
        queue(*other, nowUs);
        other->wake.notify_one();
    }
    dispatch();
}

void Clock::State::queue(Participant& participant, int64_t dueUs) {
    participant.dueUs = dueUs;
    participant.order = nextOrder++;
    participant.status = Status::kSleeping;
}

Participant* Clock::State::earliestSleeper(const Participant* except) const {
    Participant* earliest = nullptr;
    for (const auto& [id, participant] : participants) {
        if (participant->status != Status::kSleeping || participant.get() == except) continue;
        if (earliest == nullptr || participant->dueUs < earliest->dueUs ||
            (participant->dueUs == earliest->dueUs && participant->order < earliest->order)) {
            earliest = participant.get();
        }
    }
    return earliest;
}

// Gives the turn to the next sleeper once nobody has it; the caller need not be woken.
void Clock::State::dispatch(const Participant* caller) {
    for (const auto& [id, participant] : participants) {
        const Status status = participant->status;
        if (status == Status::kStarting || status == Status::kRunning) return;
    }
    Participant* next = earliestSleeper();
    if (next == nullptr) return;
    if (next->dueUs > nowUs) nowUs = next->dueUs;
    next->status = Status::kRunning;
    if (next != caller) next->wake.notify_one();
}

// Whoever has the turn is blocked by something outside the phone; it queues up again at its next call.
void Clock::State::forceAdvance() {
    for (const auto& [id, participant] : participants) {
        const Status status = participant->status;
        if (status == Status::kStarting || status == Status::kRunning)
            participant->status = Status::kElsewhere;
    }
    dispatch();
    ++progress;
}

void Clock::State::waitForTurn(Lock& lock, Participant& participant) {
    participant.calls = 0;
    dispatch(&participant);
    if (participant.status == Status::kRunning) return;  // the next one due, as a rule when it sleeps alone
    const auto hasTurn = [&] { return closed || participant.status == Status::kRunning; };
    uint64_t seen = progress;
    while (!participant.wake.wait_for(lock, kStallLimit, hasTurn)) {
        if (progress == seen) forceAdvance();
        seen = progress;
    }
    participant.status = Status::kRunning;
}

void Clock::State::giveWay(Participant& participant) {
    Lock lock(mutex);
    participant.entered = true;
    switch (participant.status) {
        case Status::kStarting:  // keeps the place in the queue that it got when it was created
            participant.status = Status::kSleeping;
            break;
        case Status::kRunning: {
            const Participant* next = earliestSleeper(&participant);
            participant.calls = 0;
            if (next == nullptr) return;
            queue(participant, next->dueUs);
            break;
        }
        default:
            queue(participant, nowUs);
    }
    waitForTurn(lock, participant);
}

// True when the end of a thread that never called into the phone was found by joining it.
bool Clock::State::waitForEnd(Lock& lock, Participant& joiner, const std::shared_ptr<Participant>& target,
                              pthread_t thread, void** result) {
    joiner.joined = target.get();
    joiner.status = Status::kJoining;
    dispatch();
    const auto targetLeft = [&] { return closed || joiner.status != Status::kJoining; };
    while (!targetLeft()) {
        if (target->entered) {
            joiner.wake.wait(lock, targetLeft);
        } else if (!joiner.wake.wait_for(lock, kJoinPoll, targetLeft) && !target->entered &&
                   libc().pthreadTryJoin(thread, result) == 0) {
            erase(thread, *target);
            queue(joiner, nowUs);
            waitForTurn(lock, joiner);
            return true;
        }
    }
    if (joiner.status != Status::kRunning) waitForTurn(lock, joiner);
    return false;
}

Clock::Clock(ClockMode mode) : mMode(mode), mState(std::make_shared<State>(mode)) {
#ifdef __SANITIZE_THREAD__
    // The sanitizer starts a thread of its own along with a process's first thread: let it do so now, unseen.
    std::thread([] {}).join();
#endif
    Participant& self = State::self(mState);
    self.takesPart = true;
    self.entered = true;
    self.status = Status::kRunning;
}

Clock::~Clock() {
    close();
}

void Clock::close() {
    const Lock lock(mState->mutex);
    mState->closed = true;
    for (const auto& [id, participant] : mState->participants) participant->wake.notify_one();
}

int64_t Clock::nowUs() const {
    if (mMode != ClockMode::kRealTime) return mState->nowUs.load(std::memory_order_relaxed);
    return std::chrono::duration_cast<std::chrono::microseconds>(SteadyClock::now() - mState->start).count();
}

void Clock::sleepUs(int64_t us) {
    sleepUntilUs(nowUs() + us);
}

void Clock::sleepUntilUs(int64_t us) {
    switch (mMode) {
        case ClockMode::kSimulated: {
            Participant& self = State::self(mState);
            Lock lock(mState->mutex);
            self.takesPart = true;
            self.entered = true;
            mState->queue(self, std::max(us, mState->nowUs.load()));
            mState->waitForTurn(lock, self);
            break;
        }
        case ClockMode::kRealTime: {
            Participant& self = State::self(mState);
            Lock lock(mState->mutex);
            const auto closed = [this] { return mState->closed; };
            self.wake.wait_until(lock, mState->start + std::chrono::microseconds(us), closed);
            break;
        }
        case ClockMode::kFreeRunning: {
            int64_t now = nowUs();
            while (now < us && !mState->nowUs.compare_exchange_weak(now, us, std::memory_order_relaxed)) {
            }
            std::this_thread::yield();
            break;
        }
    }
}

uint32_t Clock::threadNumber() {
    return State::self(mState).number;
}

std::optional<uint32_t> Clock::threadNumber(pthread_t thread) const {
    const Lock lock(mState->mutex);
    const auto found = mState->participants.find(thread);
    if (found == mState->participants.end()) return std::nullopt;
    return found->second->number;
}

std::optional<uint32_t> Clock::endedThreadNumber(pthread_t thread) const {
    const Lock lock(mState->mutex);
    const auto found = mState->ended.find(thread);
    if (found == mState->ended.end()) return std::nullopt;
    return found->second;
}

void Clock::takeTurn() {
    Participant& self = State::self(mState);
    mState->progress.fetch_add(1, std::memory_order_relaxed);
    if (self.status.load(std::memory_order_relaxed) == Status::kRunning && ++self.calls < kCallsPerTurn)
        return;
    if (self.takesPart) mState->giveWay(self);
}

int Clock::createThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                        void* argument) {
    const Lock lock(
        mState->mutex);  // held until the new thread is known, which it waits for at its first call
    const int error = libc().pthreadCreate(thread, attributes, start, argument);
    if (error != 0) return error;
    const std::shared_ptr<Participant> created = mState->add(*thread);
    if (mMode == ClockMode::kSimulated) {
        created->takesPart = true;
        mState->queue(*created, mState->nowUs);
        created->status = Status::kStarting;
    }
    return 0;
}

int Clock::joinThread(pthread_t thread, void** result) {
    Participant& joiner = State::self(mState);
    Lock lock(mState->mutex);
    const auto found = mState->participants.find(thread);
    const std::shared_ptr<Participant> target = found != mState->participants.end() ? found->second : nullptr;
    const bool inTurns =
        target != nullptr && target.get() != &joiner && target->takesPart && joiner.takesPart;
    if (inTurns && mState->waitForEnd(lock, joiner, target, thread, result)) return 0;
    lock.unlock();
    const int error = libc().pthreadJoin(thread, result);
    if (error == 0 && target != nullptr) {
        lock.lock();
        mState->erase(thread, *target);
    }
    return error;
}

}  // namespace phone

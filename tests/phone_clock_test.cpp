// The phone's clock: who runs when, and what time it is then.

#include "clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "phone.h"

namespace {

using phone::Clock;
using phone::ClockMode;
using phone::Phone;
using Worker = std::jthread;  // joins at its end

double wallSeconds(const std::function<void()>& body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A phone for its clock alone.
class ClockOfAPhone {
  public:
    explicit ClockOfAPhone(ClockMode mode) : mPhone(std::make_unique<Phone>(optionsFor(mode))) {}
    Clock& operator*() { return mPhone->clock(); }
    void end() { mPhone.reset(); }

  private:
    static phone::PhoneOptions optionsFor(ClockMode mode) {
        phone::PhoneOptions options;
        options.clock = mode;
        options.trace = false;
        return options;
    }

    std::unique_ptr<Phone> mPhone;
};

// What happened, in order: "0:work@1000".
class Diary {
  public:
    explicit Diary(Clock& clock) : mClock(clock) {}
    void note(const std::string& what) {
        const std::lock_guard lock(mMutex);
        mLines.push_back(std::to_string(mClock.threadNumber()) + ":" + what + "@" +
                         std::to_string(mClock.nowUs()));
    }
    std::vector<std::string> lines() const { return mLines; }

  private:
    Clock& mClock;
    std::mutex mMutex;
    std::vector<std::string> mLines;
};

using Lines = std::vector<std::string>;

TEST(SimulatedClock, SleepersWakeByTimeAndThenInOrder) {
    ClockOfAPhone owner(ClockMode::kSimulated);
    Clock& clock = *owner;
    Diary diary(clock);
    {
        Worker late([&] {
            clock.enter();
            diary.note("start");
            clock.sleepUs(3000);
            diary.note("woke");
        });
        Worker early([&] {
            clock.enter();
            diary.note("start");
            clock.sleepUs(1000);
            diary.note("woke");
            clock.sleepUs(2000);
            diary.note("woke again");
        });
        diary.note("created");
        clock.sleepUs(2000);
        diary.note("woke");
    }
    diary.note("joined");
    EXPECT_EQ(diary.lines(), (Lines{"0:created@0", "1:start@0", "2:start@0", "2:woke@1000", "0:woke@2000",
                                    "1:woke@3000", "2:woke again@3000", "0:joined@3000"}));
}

TEST(SimulatedClock, JoinWaitsInSimulatedTime) {
    ClockOfAPhone owner(ClockMode::kSimulated);
    Clock& clock = *owner;
    Diary diary(clock);
    Worker outer([&] {
        Worker inner([&] { clock.sleepUs(700); });
        diary.note("joins");
        inner.join();
        diary.note("joined");
        clock.sleepUs(300);
    });
    const pthread_t thread = outer.native_handle();
    EXPECT_EQ(clock.threadNumber(thread), 1U);
    outer.join();
    diary.note("joined");
    EXPECT_EQ(diary.lines(), (Lines{"1:joins@0", "1:joined@700", "0:joined@1000"}));
    EXPECT_FALSE(clock.threadNumber(thread).has_value());
}

TEST(SimulatedClock, AThreadThatEndedOrNeverCalledInCanBeJoined) {
    ClockOfAPhone owner(ClockMode::kSimulated);
    Clock& clock = *owner;
    Worker silent([] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); });
    silent.join();
    Worker ended([&] { clock.sleepUs(10); });
    clock.sleepUs(1000);
    ended.join();
    EXPECT_EQ(clock.nowUs(), 1000);
}

TEST(SimulatedClock, PollingWithoutAPauseDoesNotStopTime) {
    ClockOfAPhone owner(ClockMode::kSimulated);
    Clock& clock = *owner;
    std::atomic<bool> run = true;
    uint64_t polls = 0;
    Worker poller([&] {
        while (run) {
            clock.enter();
            ++polls;
        }
    });
    clock.sleepUs(50000);
    run = false;
    poller.join();
    EXPECT_EQ(clock.nowUs(), 50000);
    EXPECT_GE(polls, 1000U);
}

TEST(SimulatedClock, TimeGoesOnWhenSomebodyIsStuckOutsideThePhone) {
    ClockOfAPhone owner(ClockMode::kSimulated);
    Clock& clock = *owner;
    std::promise<void> reached;
    Worker sleeper([&] {
        clock.sleepUs(5000);
        reached.set_value();
        clock.sleepUs(5000);
    });
    // The main thread has the turn and waits for what only the worker can give.
    reached.get_future().wait();
    clock.enter();
    EXPECT_GE(clock.nowUs(), 5000);
    sleeper.join();
    EXPECT_EQ(clock.nowUs(), 10000);
}

TEST(SimulatedClock, TheEndOfTheClockWakesSleepers) {
    ClockOfAPhone owner(ClockMode::kSimulated);
    Clock& clock = *owner;
    std::atomic<int> woken = 0;
    Worker sleeper([&] {
        clock.sleepUs(3600LL * 1000000);
        ++woken;
    });
    clock.sleepUs(1000);
    EXPECT_EQ(woken, 0);
    owner.end();
    sleeper.join();
    EXPECT_EQ(woken, 1);
}

// Threads that sleep at random, create and join others: every run of one seed must be the same.
Lines randomRun(uint64_t seed) {
    ClockOfAPhone owner(ClockMode::kSimulated);
    Clock& clock = *owner;
    Diary diary(clock);
    const std::function<void(uint64_t, int)> live = [&](uint64_t ownSeed, int depth) {
        std::mt19937_64 random(ownSeed);
        std::vector<Worker> children;
        for (int i = 0; i < 12; ++i) {
            clock.enter();
            diary.note("step" + std::to_string(i));
            const uint64_t dice = random() % 8;
            if (dice == 0 && depth < 3) {
                const uint64_t childSeed = random();
                children.emplace_back([&live, childSeed, depth] { live(childSeed, depth + 1); });
            } else if (dice == 1 && !children.empty()) {
                children.pop_back();
            } else {
                clock.sleepUs(static_cast<int64_t>(random() % 4) * 100);
            }
        }
    };
    {
        Worker first([&] { live(seed, 0); });
        Worker second([&] { live(seed + 1, 0); });
        live(seed + 2, 0);
    }
    return diary.lines();
}

TEST(SimulatedClock, OneRunIsLikeTheNext) {
    for (const uint64_t seed : {1U, 20U, 300U}) {
        const Lines once = randomRun(seed);
        EXPECT_GT(once.size(), 36U);
        for (int i = 0; i < 5; ++i) EXPECT_EQ(randomRun(seed), once) << "seed " << seed;
    }
}

TEST(RealTimeClock, SleepsLastAsLongAsTheySay) {
    ClockOfAPhone owner(ClockMode::kRealTime);
    Clock& clock = *owner;
    const int64_t before = clock.nowUs();
    EXPECT_GE(wallSeconds([&] { clock.sleepUs(20000); }), 0.02);
    EXPECT_GE(clock.nowUs() - before, 20000);
}

TEST(FreeRunningClock, SleepsOnlyAddToTheClock) {
    ClockOfAPhone owner(ClockMode::kFreeRunning);
    Clock& clock = *owner;
    EXPECT_LT(wallSeconds([&] { clock.sleepUs(10LL * 1000000); }), 1.0);
    EXPECT_EQ(clock.nowUs(), 10LL * 1000000);
    std::atomic<int> arrived = 0;
    {
        // Both run at once: each waits for the other without the clock's help.
        const auto meet = [&] {
            ++arrived;
            while (arrived < 2) clock.sleepUs(1);
        };
        Worker one(meet);
        Worker two(meet);
        EXPECT_EQ(clock.threadNumber(two.native_handle()), 2U);
    }
    EXPECT_EQ(arrived, 2);
}

}  // namespace

// The phone's clock: who runs when, and what time it is then.

#include "time/clock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "android/log.h"
#include "modules/module_description.h"
#include "ois_drv.h"
#include "phone.h"

namespace {

using phone::ClockMode;
using Lines = std::vector<std::string>;
using Worker = std::jthread;  // joins at its end

double wallSeconds(const std::function<void()>& body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// With a phone for its clock alone, and a diary of what happened, in order: "0:work@1000".
class ClockTest : public testing::Test {
  protected:
    ClockTest() { begin(ClockMode::kSimulated); }
    void begin(ClockMode mode) {
        phone::PhoneOptions options;
        options.clock = mode;
        options.trace = false;
        phone.reset();
        phone.emplace(options);
        diary.clear();
    }
    phone::Clock& clock() { return phone->clock(); }
    void note(const std::string& what) {
        clock().enter();
        const std::lock_guard lock(mMutex);
        diary.push_back(std::to_string(clock().threadNumber()) + ":" + what + "@" +
                        std::to_string(clock().nowUs()));
    }
    void sleepAndNote(int64_t us, const std::string& what) {
        clock().sleepUs(us);
        note(what);
    }

    std::optional<phone::Phone> phone;
    Lines diary;

  private:
    std::mutex mMutex;
};

TEST_F(ClockTest, SleepersWakeByTimeAndThenInOrder) {
    {
        Worker late([&] {
            note("start");
            sleepAndNote(3000, "woke");
        });
        Worker early([&] {
            note("start");
            sleepAndNote(1000, "woke");
            sleepAndNote(2000, "woke again");
        });
        note("created");
        sleepAndNote(2000, "woke");
    }
    note("joined");
    EXPECT_EQ(diary, (Lines{"0:created@0", "1:start@0", "2:start@0", "2:woke@1000", "0:woke@2000",
                            "1:woke@3000", "2:woke again@3000", "0:joined@3000"}));
}

TEST_F(ClockTest, JoinWaitsInSimulatedTime) {
    Worker outer([&] {
        Worker inner([&] { clock().sleepUs(700); });
        note("joins");
        inner.join();
        note("joined");
        clock().sleepUs(300);
    });
    const pthread_t thread = outer.native_handle();
    EXPECT_EQ(clock().threadNumber(thread), 1U);
    outer.join();
    note("joined");
    EXPECT_EQ(diary, (Lines{"1:joins@0", "1:joined@700", "0:joined@1000"}));
    EXPECT_FALSE(clock().threadNumber(thread).has_value());
}

TEST_F(ClockTest, AThreadThatEndedOrNeverCalledInCanBeJoined) {
    Worker([] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }).join();
    Worker ended([&] { clock().sleepUs(10); });
    clock().sleepUs(1000);
    ended.join();
    EXPECT_EQ(clock().nowUs(), 1000);
}

TEST_F(ClockTest, PollingWithoutAPauseDoesNotStopTime) {
    std::atomic<bool> run = true;
    uint64_t polls = 0;
    Worker poller([&] {
        for (; run; ++polls) clock().enter();
    });
    clock().sleepUs(50000);
    run = false;
    poller.join();
    EXPECT_EQ(clock().nowUs(), 50000);
    EXPECT_GE(polls, 1000U);
}

TEST_F(ClockTest, TimeGoesOnWhenSomebodyIsStuckOutsideThePhone) {
    std::promise<void> reached;
    Worker sleeper([&] {
        clock().sleepUs(5000);
        reached.set_value();
        clock().sleepUs(5000);
    });
    // The main thread has the turn and waits for what only the worker can give.
    reached.get_future().wait();
    clock().enter();
    EXPECT_GE(clock().nowUs(), 5000);
    sleeper.join();
    EXPECT_EQ(clock().nowUs(), 10000);
}

TEST_F(ClockTest, TheEndOfTheClockWakesSleepers) {
    Worker sleeper([&] { clock().sleepUs(3600LL * 1000000); });
    clock().sleepUs(1000);
    // Left asleep, it would go on only when it has seen nothing happen for two seconds.
    EXPECT_LT(wallSeconds([&] {
                  phone.reset();
                  sleeper.join();
              }),
              1.5);
}

// Threads that sleep at random, create and join others: every run of one seed must be the same.
TEST_F(ClockTest, OneRunIsLikeTheNext) {
    const std::function<void(uint64_t, int)> live = [&](uint64_t seed, int depth) {
        std::mt19937_64 random(seed);
        std::vector<Worker> children;
        for (int i = 0; i < 12; ++i) {
            note("step" + std::to_string(i));
            const uint64_t dice = random() % 8;
            if (dice == 0 && depth < 3) {
                children.emplace_back(live, random(), depth + 1);
            } else if (dice == 1 && !children.empty()) {
                children.pop_back();
            } else {
                clock().sleepUs(static_cast<int64_t>(random() % 4) * 100);
            }
        }
    };
    for (const uint64_t seed : {1U, 20U, 300U}) {
        Lines once;
        for (int run = 0; run < 6; ++run) {
            begin(ClockMode::kSimulated);
            {
                const Worker first(live, seed, 0), second(live, seed + 1, 0);
                live(seed + 2, 0);
            }
            if (run == 0) once = diary;
            EXPECT_EQ(diary, once) << "seed " << seed;
        }
        EXPECT_GT(once.size(), 36U);
    }
}

TEST_F(ClockTest, RealTimeSleepsLastAsLongAsTheySay) {
    begin(ClockMode::kRealTime);
    const int64_t before = clock().nowUs();
    EXPECT_GE(wallSeconds([&] { clock().sleepUs(20000); }), 0.02);
    EXPECT_GE(clock().nowUs() - before, 20000);
}

TEST_F(ClockTest, FreeRunningSleepsOnlyAddToTheClock) {
    begin(ClockMode::kFreeRunning);
    EXPECT_LT(wallSeconds([&] { clock().sleepUs(10LL * 1000000); }), 1.0);
    EXPECT_EQ(clock().nowUs(), 10LL * 1000000);
    // Both run at once: each waits for the other without the clock's help.
    std::atomic<int> arrived = 0;
    const auto meet = [&] {
        ++arrived;
        while (arrived < 2) clock().sleepUs(1);
    };
    Worker one(meet), two(meet);
    EXPECT_EQ(clock().threadNumber(two.native_handle()), 2U);
}

// A bring-up, and a thread that keeps calling in: wherever they are when their phone goes, they go on.
TEST(PhoneEnd, ThreadsInsideThePhoneGoOnWithoutIt) {
    for (const ClockMode mode : {ClockMode::kSimulated, ClockMode::kRealTime, ClockMode::kFreeRunning}) {
        for (int round = 0; round < 40; ++round) {
            phone::PhoneOptions options;
            options.clock = mode;
            auto phone = std::make_unique<phone::Phone>(options);
            phone->fit(0, phone::moduleByName(round % 2 == 0 ? "korvas4sw-hub" : "dw9786"));
            OISDrv driver(0);
            Worker caller([](const std::stop_token& stop) {
                while (!stop.stop_requested()) {
                    __android_log_print(ANDROID_LOG_ERROR, "test", "here");
                    usleep(100);
                }
            });
            driver.Init(1, 2);
            phone->clock().sleepUs(round * 300);
            phone.reset();
            caller.request_stop();
            caller.join();
            driver.Uninit();
        }
    }
}

}  // namespace

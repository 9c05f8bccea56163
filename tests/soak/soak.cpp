// A day of a camera in some minutes: sessions that stream, zoom, focus, record and dump, on both ways to the
// controller. What phone and driver hold of memory, descriptors and threads must be the same in the evening
// as in the morning.
//
//     soak_tests [SECONDS [leak]]    simulated seconds on each way, 86400 if left out
//
// With "leak" every session loses memory, a descriptor and a thread, to see that it is noticed.

#include <fmt/core.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <random>
#include <string_view>
#include <thread>
#include <vector>

#include "modules/module_description.h"
#include "motion/motion.h"
#include "ois_drv.h"
#include "phone.h"
#include "services/property_store.h"

namespace {

constexpr int64_t kDefaultSeconds = 86400;
constexpr int64_t kUsPerSecond = 1'000'000;
constexpr int64_t kFramesPerSecond = 30;
constexpr int64_t kFrameUs = kUsPerSecond / kFramesPerSecond;
constexpr int32_t kEngineering = 8;
constexpr int32_t kNoOperation = -1;
constexpr int32_t kCaptureValue = 125001;  // one that is forwarded
constexpr int kRecordedOf = 4;             // one session of so many records
constexpr int kRecordedSeconds = 3;
constexpr int kWarmUpSessions = kRecordedOf;
constexpr int64_t kMemorySlack = 1 << 20;
constexpr size_t kLeakedBytes = 256 << 10;

struct Held {
    int64_t memory = 0;  // bytes in use
    int64_t descriptors = 0;
    int64_t threads = 0;
};

int64_t entries(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

// The kernel lists a thread for a moment after it was joined: more than `expected` are looked at again.
int64_t threadsNow(int64_t expected) {
    constexpr int kLooks = 100;
    int64_t threads = entries("/proc/self/task");
    for (int look = 1; look < kLooks && threads > expected; ++look) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        threads = entries("/proc/self/task");
    }
    return threads;
}

Held heldNow(const Held& before) {
    const auto heap = mallinfo2();  // all zero under a sanitizer, which has an allocator of its own
    return {static_cast<int64_t>(heap.uordblks + heap.hblkhd), entries("/proc/self/fd"),
            threadsNow(before.threads)};
}

void leak() {
    static std::vector<std::unique_ptr<char[]>> memory;
    memory.push_back(std::make_unique<char[]>(kLeakedBytes));
    [[maybe_unused]] const int descriptor = dup(STDERR_FILENO);
    std::thread([] {
        while (true) usleep(std::numeric_limits<useconds_t>::max());
    }).detach();
}

// One camera module and its day.
class Day {
  public:
    Day(const char* module, bool leaks) : mLeaks(leaks), mPhone(options()) {
        mPhone.fit(0, phone::moduleByName(module));
        mPhone.motion().set(phone::makeBuiltinMotion("hand"));
    }

    void live(int64_t seconds) {
        for (int session = 0; mPhone.clock().nowUs() < seconds * kUsPerSecond; ++session) {
            stream(session % kRecordedOf == kRecordedOf - 1);
            if (mLeaks) leak();
            if (session < kWarmUpSessions) {
                mMorning = heldNow(mMorning);
                mMost = mMorning;
                continue;
            }
            const Held now = heldNow(mMorning);
            mMost = {std::max(mMost.memory, now.memory), std::max(mMost.descriptors, now.descriptors),
                     std::max(mMost.threads, now.threads)};
            ++mWatched;
        }
    }

    bool report(const char* module) {
        fmt::print("{}: {:.1f} h, {} requests, recorder started {} times; from session {} on, {} watched\n",
                   module, static_cast<double>(mPhone.clock().nowUs()) / 3600e6, mRequests, mRecordings,
                   kWarmUpSessions, mWatched);
        if (mWatched == 0) fmt::print("  too short to tell: give more seconds\n");
        bool flat = mWatched != 0;
        flat &= compare("bytes of memory", mMorning.memory, mMost.memory, kMemorySlack);
        flat &= compare("descriptors", mMorning.descriptors, mMost.descriptors, 0);
        flat &= compare("threads", mMorning.threads, mMost.threads, 0);
        return flat;
    }

  private:
    static phone::PhoneOptions options() {
        phone::PhoneOptions options;
        options.trace = false;
        return options;
    }
    static bool compare(const char* what, int64_t morning, int64_t most, int64_t slack) {
        if (most == 0) {
            fmt::print("  {}: cannot be seen under a sanitizer\n", what);
            return true;
        }
        const bool flat = most - morning <= slack;
        fmt::print("  {}: {}, then at most {:+}{}\n", what, morning, most - morning,
                   flat ? "" : ": MORE THAN ALLOWED");
        return flat;
    }

    int draw(int below) { return static_cast<int>(mRandom() % static_cast<unsigned>(below)); }

    void stream(bool records) {
        mPhone.properties().set("vendor.debug.ois.dump", records ? "6" : "0");
        mDriver.Init(1, 2);
        setStream(1);
        if (records) {
            // The second one makes the close wait for the recorder.
            ois_params params{};
            params.engineer_mode = kEngineering;
            params.engineer_operation = kNoOperation;
            for (int i = 0; i < 2; ++i) request(params);
            ois_otp_data otp{};
            mDriver.GetOisOtpData(&otp);
            mDriver.DumpOisFlashData2File();
        }
        const int64_t frames = (records ? kRecordedSeconds : 2 + draw(35)) * kFramesPerSecond;
        for (int64_t frame = 0; frame < frames; ++frame) {
            mPhone.clock().sleepUs(kFrameUs);
            oneFrame(static_cast<double>(frame) / kFramesPerSecond);
        }
        setStream(0);
        mRecordings += mDriver.mDumpThread.joinable() ? 1 : 0;
        mDriver.Uninit();
        mPhone.clock().sleepUs(draw(10) * kUsPerSecond);
    }

    void setStream(int32_t on) {
        ois_stream_info info{on, 0};
        mDriver.NotifyStream(&info);
    }

    void request(ois_params params) {
        mDriver.SetOisParams(&params);
        ++mRequests;
    }

    // A zoom in and out, a focus that wanders, and every few seconds another kind of picture.
    void oneFrame(double timeS) {
        if (draw(100) == 0) mVideo = draw(2);
        if (draw(100) == 0) mScene = std::array{0, 4, 12, 14}[static_cast<size_t>(draw(4))];
        if (draw(100) == 0) mDriver.EnableOis(draw(3));
        if (draw(300) == 0) mDriver.SetMode(draw(4));
        if (draw(3) == 0) {
            ois_focus_params focus{1, 100 + draw(3000), 0, 0};
            mDriver.SetAccParam(reinterpret_cast<long>(&focus));
            mDriver.SetOisAFdriftParams(1 + draw(1000));
        }
        ois_params params{};
        params.ois_mode_from_tag = draw(50) == 0 ? 0 : 1;
        params.video_mode = mVideo;
        params.engineer_operation = kNoOperation;
        params.act_scene = mScene;
        params.zoom_ratio = static_cast<float>(5.5 - 4.5 * std::cos(timeS));
        params.capture_en = draw(200) == 0 ? 1 : 0;
        params.capture_value = kCaptureValue;
        request(params);
        mDriver.GetSensorData();
        for (auto* values : {&mDriver.mSensorValue1, &mDriver.mSensorValue2, &mDriver.mSensorValue3,
                             &mDriver.mSensorValue4, &mDriver.mSensorValue5, &mDriver.mSensorValue6}) {
            values->clear();
        }
        mDriver.mSensorTimestamps.clear();
    }

    const bool mLeaks;
    phone::Phone mPhone;
    OISDrv mDriver{0};
    std::mt19937_64 mRandom{1};
    int32_t mVideo = 0;
    int32_t mScene = 0;
    uint64_t mRequests = 0;
    int mRecordings = 0;
    int mWatched = 0;
    Held mMorning, mMost;
};

int usage() {
    fmt::print(stderr, "usage: soak_tests [SECONDS [leak]], with 1 second or more\n");
    return 2;
}

}  // namespace

int main(int count, char** words) {
    const std::vector<std::string_view> arguments(words + 1, words + count);
    int64_t seconds = kDefaultSeconds;
    if (!arguments.empty()) {
        const char* const last = arguments[0].data() + arguments[0].size();
        const auto [end, error] = std::from_chars(arguments[0].data(), last, seconds);
        if (error != std::errc() || end != last || seconds < 1) return usage();
    }
    const bool leaks = arguments.size() > 1;
    if (leaks && (arguments.size() > 2 || arguments[1] != "leak")) return usage();

    const auto start = std::chrono::steady_clock::now();
    bool flat = true;
    for (const char* module : {"korvas4sw-hub", "dw9786"}) {
        Day day(module, leaks);
        day.live(seconds);
        flat &= day.report(module);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    fmt::print("{} in {:.1f} s\n", flat ? "flat" : "NOT FLAT", took.count());
    return flat ? 0 : 1;
}

// Several sessions at once, and one after the other.

#include <dirent.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <thread>
#include <tuple>

#include "base/interrupt.h"
#include "compliance/examination.h"

namespace oisctl {

using ois::Request;

namespace {

constexpr size_t kReaders = 4;
constexpr int kReads = 50;
constexpr useconds_t kPauseUs = 100;  // between the reads of one
constexpr int kOpenings = 1000;

Finding twoSessions(Examination& examination) {
    SubDevice first(examination.subject());
    examination.setUp(first);
    auto second = std::make_unique<SubDevice>(examination.subject());
    for (const char* const when : {"while two are open", "when the other is closed"}) {
        for (const SubDevice* const device : {&first, second ? second.get() : &first}) {
            ois::OisStatusRecord record{};
            if (const int32_t result = device->ask(Request::kReadStatus, record); result < 0)
                return failed(fmt::format("READ_STATUS {} {}", resultText(result), when), "0");
        }
        second.reset();
    }
    return passed();
}

// Reads over and over; the answers have to be whole, and its own.
class Reader {
  public:
    Reader(const Examination& examination, int32_t mark, const ois::OisHallInfo& hall)
        : mDevice(examination.subject()),
          mMark(mark),
          mHall(hall),
          mReadsHall(examination.answered(Request::kGetHall)) {}

    void run() {
        try {
            for (int i = 0; i < kReads && mWrong.empty() && !interrupted(); ++i) {
                readStatus();
                readHallInfo();
                if (mReadsHall) readHall();
                usleep(kPauseUs);
            }
        } catch (const NodeLost& lost) {
            mWrong = phone::errorName(lost.error);
        }
    }
    const std::string& wrong() const { return mWrong; }

  private:
    void readStatus() {
        ois::OisStatusRecord status{};
        if (!asked("READ_STATUS", Request::kReadStatus, status)) return;
        const std::pair time(status.timestampSeconds, status.timestampFraction);
        if (time.second >= kFractionEnd || time < mTime) mWrong = "READ_STATUS with a time that goes back";
        mTime = time;
    }
    void readHallInfo() {
        ois::OisHallInfo hall{};
        if (!asked("READ_HALL_INFO", Request::kReadHallInfo, hall)) return;
        if (copyOf(hall) != copyOf(mHall)) mWrong = "READ_HALL_INFO with another calibration";
    }
    // A target is kept, or overwritten with the controller's; never with that of another session.
    void readHall() {
        ois::OisFixMode record{0, 0, mMark, mMark, 0, 0};
        if (!asked("GET_HALL", Request::kGetHall, record)) return;
        for (const int32_t target : {record.target_x, record.target_y})
            if (target != mMark && target / kMark == mMark / kMark) mWrong = "GET_HALL with another's record";
    }
    template <typename Record>
    bool asked(const char* name, Request request, Record& record) {
        const int32_t result = mDevice.ask(request, record);
        if (result < 0) mWrong = fmt::format("{} {}", name, resultText(result));
        return result >= 0;
    }

  public:
    static constexpr int32_t kMark = 0x41000000;  // beyond any position; readers count up from here

  private:
    const SubDevice mDevice;
    const int32_t mMark;
    const ois::OisHallInfo mHall;
    const bool mReadsHall;
    std::pair<uint64_t, uint64_t> mTime{};
    std::string mWrong;
};

Finding readersAtOnce(Examination& examination) {
    SubDevice device(examination.subject());
    examination.setUp(device);
    ois::OisHallInfo hall{};
    device.ask(Request::kReadHallInfo, hall);
    std::vector<std::unique_ptr<Reader>> readers;
    for (size_t i = 0; i < kReaders; ++i)
        readers.push_back(
            std::make_unique<Reader>(examination, Reader::kMark + static_cast<int32_t>(i), hall));
    {
        std::vector<std::jthread> threads;
        threads.reserve(readers.size());
        for (const auto& reader : readers) threads.emplace_back([&reader] { reader->run(); });
    }
    for (const auto& reader : readers)
        if (!reader->wrong().empty()) return failed(reader->wrong(), "whole records of its own for each");
    return passed(fmt::format("{} sessions, {} rounds each", kReaders, kReads));
}

size_t openDescriptors() {
    DIR* const folder = opendir("/proc/self/fd");
    if (folder == nullptr) return 0;
    size_t count = 0;
    while (readdir(folder) != nullptr) ++count;
    closedir(folder);
    return count;
}

Finding openedAndClosed(Examination& examination) {
    const size_t before = openDescriptors();
    for (int i = 1; i <= kOpenings; ++i) {
        if (interrupted()) return notAsked("a signal came first");
        SubDevice device(examination.subject());
        if (const int32_t result = device.close(); result < 0)
            return failed(fmt::format("close {} at number {}", resultText(result), i), "0");
    }
    const size_t after = openDescriptors();
    if (after != before)
        return failed(fmt::format("{} descriptors", after), fmt::format("{} as before", before));
    SubDevice device(examination.subject());
    examination.setUp(device);
    ois::OisStatusRecord record{};
    const int32_t result = device.ask(Request::kReadStatus, record);
    if (result < 0) return failed(fmt::format("READ_STATUS {} afterwards", resultText(result)), "0");
    return passed(fmt::format("{} times", kOpenings));
}

}  // namespace

std::vector<Check> sessionChecks() {
    const std::vector reads{Request::kReadStatus};
    return {
        {.group = "sessions", .name = "two at once", .run = twoSessions, .needs = reads},
        {.group = "sessions",
         .name = "reading at once",
         .run = readersAtOnce,
         .needs = {Request::kReadStatus, Request::kReadHallInfo}},
        {.group = "sessions", .name = "opened and closed", .run = openedAndClosed, .needs = reads},
    };
}

}  // namespace oisctl

#include "session/tally.h"

#include <cerrno>

namespace oisctl {

namespace {

constexpr double kMicro = 1e-6;

}  // namespace

bool isCommand(const phone::Event& event) {
    return event.kind == phone::EventKind::kSubDevice || event.kind == phone::EventKind::kHub;
}

void Tally::count(const phone::Event& event) {
    const std::lock_guard lock(mMutex);
    const double timeS = static_cast<double>(event.timeUs) * kMicro;
    // Two requests go to the descriptor whether it is open or not; that one refuses them is no failure.
    if (isCommand(event) && event.error == EBADF && event.fault.empty()) {
        ++mCounts.undelivered;
        return;
    }
    if (isCommand(event)) {
        ++mCounts.sent;
        ++mCounts.byName[event.name];
        ++mSentByThread[event.thread];
    }
    if (!event.fault.empty() || (isCommand(event) && event.hasResult && event.result < 0)) {
        keepFailure(timeS, toText(event, false));
    }
}

void Tally::addFailure(double timeS, std::string text) {
    const std::lock_guard lock(mMutex);
    keepFailure(timeS, std::move(text));
}

void Tally::addRepeat() {
    const std::lock_guard lock(mMutex);
    ++mCounts.repeats;
}

Tally::Counts Tally::counts() const {
    const std::lock_guard lock(mMutex);
    return mCounts;
}

uint64_t Tally::sentBy(uint32_t thread) const {
    const std::lock_guard lock(mMutex);
    const auto found = mSentByThread.find(thread);
    return found == mSentByThread.end() ? 0 : found->second;
}

void Tally::keepFailure(double timeS, std::string text) {
    ++mCounts.failures;
    if (mCounts.firstFailures.size() < kKeptFailures)
        mCounts.firstFailures.push_back({timeS, std::move(text)});
}

}  // namespace oisctl

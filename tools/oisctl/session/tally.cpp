#include "session/tally.h"

#include <utility>

#include "base/units.h"
#include "trace/decode.h"

namespace oisctl {

std::string toText(const Failure& failure) {
    return failure.event ? phone::toText(*failure.event, false) : failure.remark;
}

bool isFailure(const phone::Event& event) {
    const bool refused = phone::isCommand(event.kind) && event.result.value_or(0) < 0;
    return event.fault != nullptr || (refused && !wentNowhere(event));
}

void Tally::count(const phone::Event& event, const std::optional<EndedCall>& ended) {
    const std::lock_guard lock(mMutex);
    if (ended) {
        CallCount& calls = mCounts.calls[ended->name];
        ++calls.made;
        if (ended->sentNothing()) ++calls.sentNothing;
        mLastCall = ended;
    }
    const bool isCommand = phone::isCommand(event.kind);
    if (isCommand && wentNowhere(event)) {
        ++mCounts.undelivered;
        return;
    }
    if (isCommand) {
        ++mCounts.sent;
        if (wasDelivered(event)) ++mCounts.delivered;
        ++mCounts.byName[phone::nameOf(event)];
    }
    if (deviceLost()) return;
    if (isFailure(event)) keepFailure({static_cast<double>(event.timeUs) * kSecondsPerUs, event, {}});
    mLoss.take(event);
    mCounts.loss = mLoss.evidence();
    mDeviceLost = mCounts.loss.has_value();
}

void Tally::addFailure(double timeS, std::string remark) {
    const std::lock_guard lock(mMutex);
    keepFailure({timeS, std::nullopt, std::move(remark)});
}

Tally::Counts Tally::counts() const {
    const std::lock_guard lock(mMutex);
    return mCounts;
}

std::optional<EndedCall> Tally::lastCall() const {
    const std::lock_guard lock(mMutex);
    return mLastCall;
}

void Tally::keepFailure(Failure failure) {
    ++mCounts.failures;
    if (mCounts.firstFailures.size() < kKeptFailures) mCounts.firstFailures.push_back(std::move(failure));
}

}  // namespace oisctl

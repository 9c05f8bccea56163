#include "faults/faults.h"

#include <algorithm>
#include <utility>

#include "time/clock.h"

namespace phone {

namespace {

bool concerns(const Fault& fault, FaultPoint point, std::string_view key, std::optional<int64_t> object) {
    const bool eitherWay = fault.point == FaultPoint::kCommand &&
                           (point == FaultPoint::kRequest || point == FaultPoint::kHubCommand);
    return (fault.point == point || eitherWay) && (fault.key.empty() || fault.key == key) &&
           (!fault.object || fault.object == object);
}

}  // namespace

std::optional<int64_t> Fate::result() const {
    return is(FaultEffect::Kind::kResult) || (answered() && !fails()) ? std::optional(mFault->effect.result)
                                                                      : std::nullopt;
}

void Fate::spoil(std::span<std::byte> answer) const {
    if (!spoils()) return;
    const std::vector<uint8_t>& pattern = mFault->effect.bytes;
    for (size_t i = 0; i < answer.size(); ++i) answer[i] = std::byte{pattern[i % pattern.size()]};
}

void Faults::add(Fault fault) {
    const std::lock_guard lock(mMutex);
    mFaults.push_back({std::make_shared<const Fault>(std::move(fault))});
    mArmed.store(true, std::memory_order_release);
}

void Faults::clear() {
    const std::lock_guard lock(mMutex);
    for (Armed& armed : mFaults) armed.active = false;
    mArmed.store(mOverride != nullptr, std::memory_order_release);
}

void Faults::setOverride(Override decide) {
    const std::lock_guard lock(mMutex);
    mOverride = std::move(decide);
    const bool any = std::ranges::any_of(mFaults, &Armed::active);
    mArmed.store(mOverride != nullptr || any, std::memory_order_release);
}

std::shared_ptr<const Fault> Faults::strike(FaultPoint point, std::string_view key,
                                            std::optional<int64_t> object, std::span<const std::byte> input) {
    std::unique_lock lock(mMutex);
    const bool isCall = point != FaultPoint::kChip && point != FaultPoint::kLens;
    if (mOverride && isCall) {
        // Called unlocked: it may look at the phone, or make further calls itself.
        const Override decide = mOverride;
        lock.unlock();
        auto effect = decide(point, key, {reinterpret_cast<const uint8_t*>(input.data()), input.size()});
        if (effect) {
            return std::make_shared<const Fault>(
                Fault{.point = point, .effect = std::move(*effect), .text = "override"});
        }
        lock.lock();
    }
    Armed* striking = nullptr;
    for (Armed& armed : mFaults) {
        if (!armed.active || !concerns(*armed.fault, point, key, object)) continue;
        ++armed.reached;
        const bool due = armed.reached >= armed.fault->first && armed.reached <= armed.fault->last;
        if (due && striking == nullptr) striking = &armed;
    }
    if (striking == nullptr) return nullptr;
    ++striking->strikes;
    return striking->fault;
}

Fate Faults::fateOf(std::shared_ptr<const Fault> fault) {
    if (fault == nullptr) return {};
    mStrikes.fetch_add(1, std::memory_order_relaxed);
    if (fault->effect.kind == FaultEffect::Kind::kSlow) mClock.sleepUs(fault->effect.delayUs);
    return Fate(std::move(fault));
}

Fate Faults::consult(FaultPoint point, std::string_view key, std::span<const std::byte> input) {
    if (!mArmed.load(std::memory_order_acquire)) return {};
    return fateOf(strike(point, key, std::nullopt, input));
}

Fate Faults::consult(FaultPoint point, std::string_view key, int64_t object) {
    if (!mArmed.load(std::memory_order_acquire)) return {};
    return fateOf(strike(point, key, object, {}));
}

std::vector<Faults::Count> Faults::counts() const {
    const std::lock_guard lock(mMutex);
    std::vector<Count> counts;
    for (const Armed& armed : mFaults) counts.push_back({armed.fault->text, armed.strikes, armed.reached});
    return counts;
}

uint64_t Faults::strikes() const {
    return mStrikes.load(std::memory_order_relaxed);
}

}  // namespace phone

#include "session/shake_meter.h"

#include <algorithm>
#include <cmath>

#include "base/interrupt.h"
#include "base/units.h"
#include "session/driver_session.h"

namespace oisctl {

namespace {

constexpr int64_t kLookUs = 5000;          // between two looks at the lens
constexpr int64_t kBreakUs = 4 * kLookUs;  // not looked at for so long, a stretch is over
constexpr int64_t kSettleUs = 100'000;     // a lens needs that after a change of the mode
constexpr uint64_t kLeastLooks = 20;
constexpr double kLeastDeg = 1e-6;  // less than this no lens can show

}  // namespace

std::optional<double> ShakeLeft::changeDb() const {
    if (trueRms < kLeastDeg || leftRms < kLeastDeg) return std::nullopt;
    return 20 * std::log10(leftRms / trueRms);
}

void ShakeMeter::Sums::add(double value) {
    sum += value;
    squares += value * value;
}

void ShakeMeter::sleepUntil(int64_t timeUs, const std::function<void()>& onLook) {
    phone::Stabiliser* const stabiliser = mSession.stabiliser();
    while (mSession.nowUs() < timeUs && !mSession.endsEarly()) {
        mSession.sleepUs(std::min(kLookUs, timeUs - mSession.nowUs()));
        if (stabiliser != nullptr) look(*stabiliser);
        if (onLook) onLook();
    }
}

void ShakeMeter::look(phone::Stabiliser& stabiliser) {
    const int64_t nowUs = mSession.nowUs();
    const bool on = stabiliser.mode() == phone::StabiliserMode::kOn;
    const bool goesOn = mOn && nowUs - mLookedUs <= kBreakUs;
    if (on && !goesOn) mOnSinceUs = nowUs;
    mOn = on;
    mLookedUs = nowUs;
    if (!on || nowUs - mOnSinceUs < kSettleUs) return;
    if (mStretches.empty() || mStretches.back().firstUs < mOnSinceUs)
        mStretches.push_back({.firstUs = nowUs});
    Stretch& stretch = mStretches.back();
    stretch.lastUs = nowUs;
    ++stretch.looks;
    const phone::StabiliserState state = stabiliser.stateAt(nowUs);
    const std::array<double, 2> shake = {state.shakeX + state.accTargetX, state.shakeY + state.accTargetY};
    const std::array<double, 2> lens = {state.lensX, state.lensY};
    for (size_t axis = 0; axis < shake.size(); ++axis) {
        stretch.shake[axis].add(shake[axis]);
        stretch.left[axis].add(shake[axis] - lens[axis]);
    }
}

std::optional<ShakeLeft> ShakeMeter::result() const {
    ShakeLeft result;
    double looks = 0, shake = 0, left = 0;
    for (const Stretch& stretch : mStretches) {
        if (stretch.looks < kLeastLooks) continue;
        const auto count = static_cast<double>(stretch.looks);
        looks += count;
        for (size_t axis = 0; axis < stretch.shake.size(); ++axis) {
            shake += stretch.shake[axis].aboutMean(count);
            left += stretch.left[axis].aboutMean(count);
        }
        const double fromS = static_cast<double>(stretch.firstUs) * kSecondsPerUs;
        const double toS = static_cast<double>(stretch.lastUs) * kSecondsPerUs;
        result.stretches.push_back({fromS, toS});
        result.seconds += toS - fromS;
    }
    if (result.stretches.empty()) return std::nullopt;
    result.trueRms = std::sqrt(std::max(shake, 0.0) / looks);
    result.leftRms = std::sqrt(std::max(left, 0.0) / looks);
    return result;
}

}  // namespace oisctl

#include "session/shake_meter.h"

#include <algorithm>
#include <cmath>

namespace oisctl {

namespace {

constexpr uint64_t kLeastLooks = 20;

}  // namespace

void ShakeMeter::Sums::add(double x, double y) {
    ++count;
    sum[0] += x;
    sum[1] += y;
    squares[0] += x * x;
    squares[1] += y * y;
}

std::optional<double> ShakeMeter::Sums::rms() const {
    if (count < kLeastLooks) return std::nullopt;
    const auto n = static_cast<double>(count);
    double variance = 0;
    for (size_t axis = 0; axis < sum.size(); ++axis) {
        const double mean = sum[axis] / n;
        variance += squares[axis] / n - mean * mean;
    }
    // Less than this no lens can show: nothing moved.
    constexpr double kLeastDeg = 1e-6;
    const double rms = std::sqrt(std::max(variance, 0.0));
    return rms < kLeastDeg ? std::nullopt : std::optional(rms);
}

void ShakeMeter::sample(phone::StabiliserMode mode, const phone::StabiliserState& state) {
    const double x = state.shakeX + state.accTargetX - state.lensX;
    const double y = state.shakeY + state.accTargetY - state.lensY;
    if (mode == phone::StabiliserMode::kOff) mOff.add(x, y);
    if (mode == phone::StabiliserMode::kOn) mOn.add(x, y);
}

ShakeLeft ShakeMeter::result() const {
    return {mOff.rms(), mOn.rms()};
}

}  // namespace oisctl

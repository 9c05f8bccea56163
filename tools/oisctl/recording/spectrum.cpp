#include "recording/spectrum.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <eigen3/unsupported/Eigen/FFT>
#include <limits>
#include <numbers>

namespace oisctl {

namespace {

constexpr double kWindowS = 5;  // the resolution is about the inverse
constexpr size_t kLeastLength = 64;
constexpr size_t kLeastSteps = 4;  // of a band

// The straight line through them is motion too slow for the window.
void removeTrend(std::vector<double>& samples) {
    const auto count = static_cast<double>(samples.size());
    const double middle = (count - 1) / 2;
    double sum = 0, moment = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        sum += samples[i];
        moment += samples[i] * (static_cast<double>(i) - middle);
    }
    const double mean = sum / count;
    const double slope = moment / (count * (count * count - 1) / 12);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] -= mean + slope * (static_cast<double>(i) - middle);
}

}  // namespace

Welch::Welch(const std::vector<double>& timeS, const std::vector<RowRange>& segments, double periodS)
    : mTimeS(timeS), mPeriodS(periodS) {
    if (!std::isfinite(periodS)) return;
    size_t longest = 0;
    for (const RowRange& segment : segments) longest = std::max(longest, segment.size());
    const auto wanted = static_cast<size_t>(std::min(kWindowS / periodS, 1e7));
    while (2 * mLength <= std::min(wanted, longest)) mLength *= 2;
    if (mLength < kLeastLength) return;
    mHann.resize(mLength);
    for (size_t i = 0; i < mLength; ++i) {
        const double phase = 2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(mLength);
        mHann[i] = 0.5 - 0.5 * std::cos(phase);
        mHannPower += mHann[i] * mHann[i];
    }
    const double lengthS = static_cast<double>(mLength - 1) * periodS;
    const size_t half = mLength / 2;  // by which windows overlap
    for (const RowRange& segment : segments) {
        const double endS = timeS[segment.end - 1] + periodS / 2;
        size_t row = segment.begin;
        for (double beginS = timeS[row]; beginS + lengthS <= endS;
             beginS += static_cast<double>(half) * periodS) {
            while (row + 1 < segment.end && timeS[row + 1] <= beginS) ++row;
            mWindows.push_back({beginS, row, segment.end});
        }
    }
}

double Welch::stepHz() const {
    return 1 / (mPeriodS * static_cast<double>(mLength));
}

std::vector<double> Welch::frequenciesHz() const {
    std::vector<double> result(mLength / 2);
    for (size_t i = 0; i < result.size(); ++i) result[i] = static_cast<double>(i + 1) * stepHz();
    return result;
}

// At a constant rate, interpolated. False when one is no number.
bool Welch::sample(const Window& window, const Samples& values, std::vector<double>& samples) const {
    size_t row = window.firstRow;
    for (size_t i = 0; i < mLength; ++i) {
        const double time = window.beginS + static_cast<double>(i) * mPeriodS;
        while (row + 2 < window.endRow && mTimeS[row + 1] <= time) ++row;
        const double part = (time - mTimeS[row]) / (mTimeS[row + 1] - mTimeS[row]);
        const double from = values[row], to = values[row + 1];
        samples[i] = from + (to - from) * std::clamp(part, 0.0, 1.0);
        if (!std::isfinite(samples[i])) return false;
    }
    return true;
}

std::vector<std::vector<double>> Welch::densities(const std::vector<const Samples*>& series) const {
    std::vector<std::vector<double>> power(series.size(), std::vector<double>(mLength / 2));
    std::vector<std::vector<double>> samples(series.size(), std::vector<double>(mLength));
    std::vector<std::complex<double>> spectrum;
    Eigen::FFT<double> transform;
    double windows = 0;
    for (const Window& window : mWindows) {
        bool whole = true;
        for (size_t s = 0; s < series.size() && whole; ++s) whole = sample(window, *series[s], samples[s]);
        if (!whole) continue;
        ++windows;
        for (size_t s = 0; s < series.size(); ++s) {
            removeTrend(samples[s]);
            for (size_t i = 0; i < mLength; ++i) samples[s][i] *= mHann[i];
            transform.fwd(spectrum, samples[s]);
            for (size_t i = 0; i < power[s].size(); ++i) power[s][i] += std::norm(spectrum[i + 1]);
        }
    }
    for (std::vector<double>& one : power)
        for (double& value : one) value = std::sqrt(2 * value * mPeriodS / (mHannPower * windows));
    return power;
}

double bandRms(const std::vector<double>& density, double stepHz, double fromHz, double toHz) {
    double power = 0;
    size_t steps = 0;
    for (size_t i = 0; i < density.size(); ++i) {
        const double frequencyHz = static_cast<double>(i + 1) * stepHz;
        if (frequencyHz < fromHz || frequencyHz >= toHz) continue;
        power += density[i] * density[i] * stepHz;
        ++steps;
    }
    const bool reached = static_cast<double>(density.size()) * stepHz >= toHz;
    return reached && steps >= kLeastSteps ? std::sqrt(power) : std::numeric_limits<double>::quiet_NaN();
}

}  // namespace oisctl

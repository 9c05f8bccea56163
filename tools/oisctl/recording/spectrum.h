#pragma once
// Spectral densities by Welch's method: Hann windows that overlap by half, between the gaps of a recording.

#include <vector>

#include "recording/recording_stats.h"

namespace oisctl {

class Welch {
  public:
    Welch(const std::vector<double>& timeS, const std::vector<RowRange>& segments, double periodS);

    // False for a recording without a segment long enough.
    bool possible() const { return !mWindows.empty(); }
    double stepHz() const;
    // Without the constant part.
    std::vector<double> frequenciesHz() const;
    // Of each of the series, over the windows in which all of them are numbers: the square root of the
    // one-sided power density. NaN when there is no such window.
    std::vector<std::vector<double>> densities(const std::vector<const Samples*>& series) const;
    // First and last row that the windows reach.
    RowRange reach() const { return {mWindows.front().firstRow, mWindows.back().endRow}; }

  private:
    struct Window {
        double beginS;
        size_t firstRow;
        size_t endRow;  // of its segment
    };
    bool sample(const Window& window, const Samples& values, std::vector<double>& samples) const;

    const std::vector<double>& mTimeS;
    const double mPeriodS;
    size_t mLength = 1;  // of a window, samples
    std::vector<double> mHann;
    double mHannPower = 0;
    std::vector<Window> mWindows;
};

// RMS of what lies between two frequencies; NaN when the density has too few steps there.
double bandRms(const std::vector<double>& density, double stepHz, double fromHz, double toHz);

}  // namespace oisctl

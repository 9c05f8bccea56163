#pragma once
// How much shake was left in the picture, with stabilisation off and on.

#include <array>
#include <cstdint>
#include <optional>

#include "controllers/stabiliser.h"

namespace oisctl {

// RMS about the mean, in the module's angle unit (degrees), both axes together.
struct ShakeLeft {
    std::optional<double> off;  // while the lens was held: all of the shake
    std::optional<double> on;   // while it followed the gyro
};

class ShakeMeter {
  public:
    // One look at the stabiliser. Modes in which the lens does something else are left out.
    void sample(phone::StabiliserMode mode, const phone::StabiliserState& state);
    // Empty where there were too few looks to tell.
    ShakeLeft result() const;

  private:
    struct Sums {
        uint64_t count = 0;
        std::array<double, 2> sum{};
        std::array<double, 2> squares{};
        void add(double x, double y);
        std::optional<double> rms() const;
    };
    Sums mOff;
    Sums mOn;
};

}  // namespace oisctl

#pragma once
// How much of the shake was left in the picture while stabilisation was on. Where the phone is simulated, the
// true shake is known: what the lens left of it is held against all of it, over the same stretches of time.

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace phone {
class Stabiliser;
}

namespace oisctl {

class DriverSession;

// RMS about each stretch's mean, in the module's angle unit (degrees), both axes together.
struct ShakeLeft {
    struct Stretch {
        double fromS = 0;
        double toS = 0;
    };
    std::vector<Stretch> stretches;  // in which the lens followed the gyro
    double seconds = 0;              // all of them
    double trueRms = 0;              // the shake itself: what is left by a lens that stands still
    double leftRms = 0;              // the shake minus the lens

    // Negative: less is left. Nothing where one of them is too small for any lens to show.
    std::optional<double> changeDb() const;
};

class ShakeMeter {
  public:
    explicit ShakeMeter(DriverSession& session) : mSession(session) {}
    // Passes the time until then, or until a signal comes, and looks at the lens meanwhile. `onLook` is
    // called after each look.
    void sleepUntil(int64_t timeUs, const std::function<void()>& onLook = {});
    // Nothing where stabilisation was not on for long enough to tell.
    std::optional<ShakeLeft> result() const;

  private:
    struct Sums {
        double sum = 0;
        double squares = 0;
        void add(double value);
        double aboutMean(double count) const { return squares - sum * sum / count; }
    };
    // The lens followed the gyro, and was looked at, without a break.
    struct Stretch {
        int64_t firstUs = 0;
        int64_t lastUs = 0;
        uint64_t looks = 0;
        std::array<Sums, 2> shake{};
        std::array<Sums, 2> left{};
    };
    void look(phone::Stabiliser& stabiliser);

    DriverSession& mSession;
    std::vector<Stretch> mStretches;
    bool mOn = false;        // at the last look
    int64_t mOnSinceUs = 0;  // that look at which it was first on
    int64_t mLookedUs = 0;
};

}  // namespace oisctl

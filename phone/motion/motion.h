#pragma once
// How the phone's body moves.

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

// In the body's axes: x to the right of the screen, y to its top, z out of it.
struct MotionSample {
    double timeS = 0;
    std::array<double, 3> gyroRadS{};  // about x, y, z
    std::array<double, 3> accMS2{};    // along x, y, z; at rest the reaction to gravity
};

// The grid on which physics steps along a motion, taken a block at a time.
constexpr int64_t kMotionStepUs = 500;
constexpr double kMotionStepS = kMotionStepUs * 1e-6;
constexpr size_t kMotionBlockSteps = 64;
using MotionBlock = std::array<MotionSample, kMotionBlockSteps>;

// A motion that can be asked for any moment. Implementations are immutable and may be read by any thread.
class MotionSource {
  public:
    virtual ~MotionSource() = default;
    virtual std::string describe() const = 0;
    virtual MotionSample at(double timeS) const = 0;
    // The grid's samples from step `number` * kMotionBlockSteps on; much cheaper than asking for each.
    virtual void block(int64_t number, MotionBlock& samples) const;

  protected:
    static double blockStartS(int64_t number);
};

// Steps along the grid. Keeps a block, so that neighbours cost little; one thread's at a time.
class MotionCursor {
  public:
    const MotionSample& at(const std::shared_ptr<const MotionSource>& source, int64_t step);

  private:
    std::shared_ptr<const MotionSource> mSource;
    int64_t mNumber = 0;
    MotionBlock mBlock;
};

constexpr double kGravityMS2 = 9.80665;

// "rest", "hand" (tremor and sway), "pan" (hand shake and a slow pan), "walk"; the same seed gives the same
// motion.
std::vector<std::string> builtinMotions();
std::shared_ptr<const MotionSource> makeBuiltinMotion(std::string_view name, uint64_t seed = 1);
// CSV with the columns time_s, gyro x/y/z in rad/s, acceleration x/y/z in m/s^2; '#' starts a comment line.
// Throws std::runtime_error "FILE:LINE: reason".
std::shared_ptr<const MotionSource> loadMotion(const std::filesystem::path& file);
// A builtin's name, else a file. Throws as loadMotion; the text lists the builtin names.
std::shared_ptr<const MotionSource> motionByName(const std::string& nameOrFile, uint64_t seed = 1);

// The motion in force; replaceable while running.
class Motion {
  public:
    Motion();  // at rest
    void set(std::shared_ptr<const MotionSource> source);
    std::shared_ptr<const MotionSource> source() const;
    MotionSample at(double timeS) const;

  private:
    mutable std::mutex mMutex;
    std::shared_ptr<const MotionSource> mSource;
};

}  // namespace phone

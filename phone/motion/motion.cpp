#include "motion/motion.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace phone {

std::shared_ptr<const MotionSource> motionByName(const std::string& nameOrFile, uint64_t seed) {
    const std::vector<std::string> names = builtinMotions();
    if (std::find(names.begin(), names.end(), nameOrFile) != names.end()) {
        return makeBuiltinMotion(nameOrFile, seed);
    }
    std::error_code ignored;
    if (std::filesystem::exists(nameOrFile, ignored)) return loadMotion(nameOrFile);

    throw std::runtime_error(fmt::format("{}: neither a file nor a built-in motion; built in are {}",
                                         nameOrFile, fmt::join(names, ", ")));
}

void MotionSource::block(int64_t number, MotionBlock& samples) const {
    const double startS = blockStartS(number);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = at(startS + kMotionStepS * static_cast<double>(i));
}

double MotionSource::blockStartS(int64_t number) {
    return static_cast<double>(number * int64_t{kMotionBlockSteps}) * kMotionStepS;
}

const MotionSample& MotionCursor::at(const std::shared_ptr<const MotionSource>& source, int64_t step) {
    const int64_t number = step / int64_t{kMotionBlockSteps};
    if (source != mSource || number != mNumber) source->block(number, mBlock);
    mSource = source;
    mNumber = number;
    return mBlock[static_cast<size_t>(step % int64_t{kMotionBlockSteps})];
}

Motion::Motion() : mSource(makeBuiltinMotion("rest")) {}

void Motion::set(std::shared_ptr<const MotionSource> source) {
    const std::lock_guard lock(mMutex);
    mSource = std::move(source);
}

std::shared_ptr<const MotionSource> Motion::source() const {
    const std::lock_guard lock(mMutex);
    return mSource;
}

MotionSample Motion::at(double timeS) const {
    return source()->at(timeS);
}

}  // namespace phone

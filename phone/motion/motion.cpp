#include "motion/motion.h"

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

    std::string text = nameOrFile + ": neither a file nor a built-in motion; built in are";
    for (const std::string& name : names) text += (name == names.front() ? " " : ", ") + name;
    throw std::runtime_error(text);
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

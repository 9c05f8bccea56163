#pragma once
// What a check of the kernel side came to.

#include <string>
#include <utility>

namespace oisctl {

struct Finding {
    enum class Verdict { kOk, kFailed, kNotAsked };

    Verdict verdict = Verdict::kOk;
    std::string seen{};      // of a check that was not asked: why
    std::string expected{};  // of one that failed
};

inline Finding passed(std::string seen = {}) {
    return {Finding::Verdict::kOk, std::move(seen), {}};
}
inline Finding failed(std::string seen, std::string expected) {
    return {Finding::Verdict::kFailed, std::move(seen), std::move(expected)};
}
inline Finding notAsked(std::string why) {
    return {Finding::Verdict::kNotAsked, std::move(why), {}};
}

}  // namespace oisctl

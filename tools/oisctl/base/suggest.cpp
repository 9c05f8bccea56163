#include "base/suggest.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/closest_name.h"

namespace oisctl {

std::string nearest(std::string_view typed, const std::vector<std::string>& candidates) {
    const std::vector<std::string_view> names(candidates.begin(), candidates.end());
    const std::string_view near = phone::closestName(typed, names);
    if (!near.empty()) return std::string(near);
    // A name may also be cut short.
    constexpr size_t kTelling = 3;
    if (typed.size() < kTelling) return {};
    const auto contains = [typed](const std::string& name) { return name.find(typed) != std::string::npos; };
    const auto found = std::find_if(candidates.begin(), candidates.end(), contains);
    return found == candidates.end() ? std::string() : *found;
}

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
    return fmt::format("{}", fmt::join(words, separator));
}

std::string suggestion(std::string_view typed, const std::vector<std::string>& candidates) {
    const std::string near = nearest(typed, candidates);
    if (!near.empty()) return "; did you mean '" + near + "'?";
    return "; it may be: " + joined(candidates);
}

}  // namespace oisctl

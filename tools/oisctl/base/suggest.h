#pragma once
// "Did you mean": what a mistyped name was probably meant to be.

#include <algorithm>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace oisctl {

// The candidate nearest to `typed`, or empty when none is near.
std::string nearest(std::string_view typed, const std::vector<std::string>& candidates);

// "; did you mean 'x'?", or "; it may be: a, b, c" when nothing is near.
std::string suggestion(std::string_view typed, const std::vector<std::string>& candidates);

// What `name` gives of each entry.
template <typename Entries, typename Name>
std::vector<std::string> namesIn(const Entries& entries, const Name& name) {
    std::vector<std::string> names(std::size(entries));
    std::transform(std::begin(entries), std::end(entries), names.begin(),
                   [&name](const auto& entry) { return std::string(std::invoke(name, entry)); });
    return names;
}

std::string joined(const std::vector<std::string>& words, std::string_view separator = ", ");

}  // namespace oisctl

#pragma once
// "Did you mean": what a mistyped name was probably meant to be.

#include <span>
#include <string>
#include <string_view>

namespace phone {

// The candidate nearest to `typed`, whatever the case of its letters, or empty when none is near.
std::string_view closestName(std::string_view typed, std::span<const std::string_view> candidates);

// "did you mean 'x'?", or "it may be: a, b, c" when nothing is near.
std::string nameAdvice(std::string_view typed, std::span<const std::string_view> candidates);

}  // namespace phone

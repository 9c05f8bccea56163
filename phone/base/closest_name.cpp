#include "base/closest_name.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <vector>

namespace phone {

namespace {

char upperCase(char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

// Levenshtein's distance, whatever the case of the letters.
size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            const size_t replaced = diagonal + (upperCase(a[i - 1]) == upperCase(b[j - 1]) ? 0 : 1);
            row[j] = std::min({replaced, above + 1, row[j - 1] + 1});
            diagonal = above;
        }
    }
    return row[b.size()];
}

}  // namespace

std::string_view closestName(std::string_view typed, std::span<const std::string_view> candidates) {
    // A third of the letters may be wrong.
    size_t bestDistance = std::max<size_t>(1, typed.size() / 3) + 1;
    std::string_view best;
    for (const std::string_view candidate : candidates) {
        const size_t distance = editDistance(typed, candidate);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = candidate;
        }
    }
    return best;
}

std::string nameAdvice(std::string_view typed, std::span<const std::string_view> candidates) {
    const std::string_view closest = closestName(typed, candidates);
    if (!closest.empty()) return fmt::format("did you mean '{}'?", closest);
    return fmt::format("it may be: {}", fmt::join(candidates, ", "));
}

}  // namespace phone

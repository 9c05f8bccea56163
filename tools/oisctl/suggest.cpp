#include "suggest.h"

#include <algorithm>
#include <numeric>

namespace oisctl {

namespace {

// Levenshtein's distance.
size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            const size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({replaced, above + 1, row[j - 1] + 1});
            diagonal = above;
        }
    }
    return row[b.size()];
}

}  // namespace

std::string nearest(std::string_view typed, const std::vector<std::string>& candidates) {
    // A third of the letters may be wrong, and a name may be cut short.
    const size_t tolerance = std::max<size_t>(1, typed.size() / 3);
    std::string best;
    size_t bestDistance = tolerance + 1;
    for (const std::string& candidate : candidates) {
        const size_t distance = editDistance(typed, candidate);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = candidate;
        }
    }
    if (!best.empty() || typed.size() < 3) return best;
    const auto contains = [typed](const std::string& candidate) {
        return candidate.find(typed) != std::string::npos;
    };
    const auto found = std::find_if(candidates.begin(), candidates.end(), contains);
    return found == candidates.end() ? std::string() : *found;
}

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
    std::string text;
    for (const std::string& word : words) {
        if (!text.empty()) text += separator;
        text += word;
    }
    return text;
}

std::string suggestion(std::string_view typed, const std::vector<std::string>& candidates) {
    const std::string near = nearest(typed, candidates);
    if (!near.empty()) return "; did you mean '" + near + "'?";
    return "; it may be: " + joined(candidates);
}

}  // namespace oisctl

#include "cli/option_value.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/errors.h"
#include "base/number.h"
#include "base/suggest.h"

namespace oisctl {

namespace {

template <typename T>
constexpr bool kIsList = false;
template <typename T>
constexpr bool kIsList<std::vector<T>> = true;

// What is no number at all, and what is too large for one.
template <typename T>
T parseNumber(const std::string& word) {
    if (const auto number = numberOf<T>(word); number && (std::is_integral_v<T> || std::isfinite(*number)))
        return *number;
    using Limits = std::numeric_limits<T>;
    const bool isLarge = std::is_integral_v<T> && std::isfinite(numberOf<double>(word).value_or(NAN));
    throw InputError(
        isLarge
            ? fmt::format("{} is no whole number of {} to {}", word, Limits::min(), Limits::max())
            : fmt::format("'{}' is no number{}", word, std::is_integral_v<T> ? ", such as 12 or 0x0C" : ""));
}

template <typename T>
void parse(const OptionRules& rules, const std::string& word, T& value) {
    value = parseNumber<T>(word);
    if (!rules.range) return;
    const auto number = static_cast<double>(value);
    if (number < rules.range->least || number > rules.range->greatest)
        throw InputError(
            fmt::format("{} is not in the range {} to {}", word, rules.range->least, rules.range->greatest));
}

template <typename T>
void parse(const OptionRules& rules, const std::string& word, std::optional<T>& value) {
    parse(rules, word, value.emplace());
}

void parse(const OptionRules&, const std::string& word, std::string& value) {
    value = word;
}

void parse(const OptionRules&, const std::string& word, std::filesystem::path& value) {
    value = word;
}

void requireChoice(const std::vector<std::string>& choices, const std::string& word) {
    if (!choices.empty() && std::find(choices.begin(), choices.end(), word) == choices.end())
        throw InputError(fmt::format("no such choice as '{}'{}", word, suggestion(word, choices)));
}

}  // namespace

void storeValue(const Option& option, const std::vector<std::string>& words) {
    const auto store = [&](auto& target) {
        using T = std::decay_t<decltype(target)>;
        if constexpr (std::is_same_v<T, Take>) {
            for (const std::string& word : words) target(word);
        } else if constexpr (std::is_same_v<T, bool*>) {
            *target = true;
        } else if constexpr (kIsList<std::remove_pointer_t<T>>) {
            target->clear();
            for (const std::string& word : words) parse(option.rules, word, target->emplace_back());
        } else {
            parse(option.rules, words.back(), *target);
        }
    };
    for (const std::string& word : words) requireChoice(option.rules.choices, word);
    try {
        std::visit(store, option.target);
    } catch (const std::invalid_argument& error) {
        throw InputError(error.what());
    }
}

}  // namespace oisctl

#include "cli/option_value.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "base/errors.h"
#include "base/suggest.h"

namespace oisctl {

namespace {

template <typename T>
constexpr bool kIsList = false;
template <typename T>
constexpr bool kIsList<std::vector<T>> = true;

[[noreturn]] void refuseNumber(const std::string& word) {
    throw InputError(fmt::format("'{}' is no number", word));
}

[[noreturn]] void refuseRange(const std::string& word, const std::string& least,
                              const std::string& greatest) {
    throw InputError(fmt::format("{} is not in the range {} to {}", word, least, greatest));
}

// Decimal, or hex behind 0x.
template <typename T>
void parseNumber(const std::string& word, T& value) {
    const char* const end = word.data() + word.size();
    std::from_chars_result result{};
    if constexpr (std::is_integral_v<T>) {
        const bool isHex = word.starts_with("0x");
        result = std::from_chars(word.data() + (isHex ? 2 : 0), end, value, isHex ? 16 : 10);
    } else {
        result = std::from_chars(word.data(), end, value);
        if (!std::isfinite(value)) refuseNumber(word);
    }
    const bool fits = result.ec != std::errc::result_out_of_range;
    if (result.ptr != end || (fits && result.ec != std::errc())) refuseNumber(word);
    using Limits = std::numeric_limits<T>;
    if (!fits) refuseRange(word, fmt::to_string(Limits::lowest()), fmt::to_string(Limits::max()));
}

template <typename T>
void parse(const OptionRules& rules, const std::string& word, T& value) {
    parseNumber(word, value);
    if (!rules.range) return;
    const auto number = static_cast<double>(value);
    if (number < rules.range->least || number > rules.range->greatest)
        refuseRange(word, fmt::to_string(rules.range->least), fmt::to_string(rules.range->greatest));
}

void parse(const OptionRules& rules, const std::string& word, std::optional<double>& value) {
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

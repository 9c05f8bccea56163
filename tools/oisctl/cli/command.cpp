#include "cli/command.h"

#include <fmt/format.h>

#include <sstream>

namespace oisctl {

std::vector<std::string> namesOf(const Option& option) {
    std::vector<std::string> names;
    std::istringstream all(option.names);
    for (std::string name; std::getline(all, name, ',');) names.push_back(name);
    return names;
}

bool isPositional(const Option& option) {
    return !option.names.starts_with('-');
}

std::string defaultOf(const Option& option) {
    const auto text = [](const auto& target) -> std::string {
        using T = std::remove_pointer_t<std::decay_t<decltype(target)>>;
        if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, Take>) {
            return {};
        } else if constexpr (requires { target->has_value(); }) {
            return *target ? fmt::to_string(**target) : "";
        } else if constexpr (std::is_same_v<T, std::filesystem::path>) {
            return target->string();
        } else if constexpr (std::is_same_v<T, std::vector<int32_t>> ||
                             std::is_same_v<T, std::vector<std::string>>) {
            return fmt::format("{}", fmt::join(*target, ","));
        } else {
            return fmt::format("{}", *target);
        }
    };
    return option.rules.otherwise.empty() ? std::visit(text, option.target) : option.rules.otherwise;
}

}  // namespace oisctl

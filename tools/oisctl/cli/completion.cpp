// Completions for the shells: one script each, with the words compiled in.

#include <fmt/format.h>

#include "base/errors.h"
#include "base/suggest.h"
#include "cli/command.h"
#include "cli/generate.h"

namespace oisctl {

namespace {

struct Described {
    CommandEntry entry;
    Command command;
};

std::vector<Described> described() {
    std::vector<Described> all;
    for (const CommandEntry& entry : commands()) all.push_back({entry, entry.describe()});
    return all;
}

std::string wordsOf(const Option& option) {
    const OptionRules& rules = option.rules;
    return joined(rules.words != nullptr ? rules.words() : rules.choices, " ");
}

bool takesPath(const Option& option) {
    return option.valueName.find("FILE") != std::string::npos ||
           option.valueName.find("DIR") != std::string::npos;
}

// In single quotes, for any shell.
std::string inQuotes(std::string_view text) {
    std::string out = "'";
    for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// The patterns of bash's case, each with the words behind it: what stands before the word, as COMMAND:OPTION.
// The first one that fits counts: places come last, and the first command has what all have in common.
std::string bashValues(const std::vector<Described>& all) {
    std::string options;
    std::string places;
    for (const auto& [entry, command] : all) {
        for (const Option& option : command.options) {
            const bool common = !option.group.empty();
            if (option.valueName.empty() || (common && entry.name != all.front().entry.name)) continue;
            std::vector<std::string> patterns =
                isPositional(option) ? std::vector<std::string>{"*"} : namesOf(option);
            for (std::string& pattern : patterns)
                pattern = fmt::format("{}:{}", common ? "*" : entry.name, pattern);
            (isPositional(option) ? places : options) += fmt::format(
                "            {}) words={} ;;\n", joined(patterns, " | "), inQuotes(wordsOf(option)));
        }
    }
    return options + places;
}

std::string bashOptions(const std::vector<Described>& all) {
    std::string text;
    for (const auto& [entry, command] : all) {
        std::vector<std::string> names{"--help"};
        for (const Option& option : command.options)
            if (!isPositional(option)) names.push_back(namesOf(option).back());
        text += fmt::format("            {}) words={} ;;\n", entry.name, inQuotes(joined(names, " ")));
    }
    return text;
}

std::string zshOption(const Option& option, size_t place) {
    const std::string words = wordsOf(option);
    std::string action = takesPath(option) ? "_files" : "";
    if (!words.empty()) {
        action = takesPath(option)      ? fmt::format("{{compadd - {}; _files}}", words)
                 : words.ends_with('=') ? fmt::format("{{compadd -S \"\" - {}}}", words)
                                        : fmt::format("({})", words);
    }
    const bool flag = option.valueName.empty();
    const std::string value =
        flag ? ""
             : fmt::format("{}:{}:{}", option.rules.given != nullptr ? ":" : "", option.valueName, action);
    const auto line = [](const std::string& spec) { return " \\\n                " + inQuotes(spec); };
    if (isPositional(option)) return line(fmt::format("{}{}", place, value));
    std::string text;
    for (const std::string& name : namesOf(option))
        text += line(fmt::format("{}{}{}[{}]{}", option.rules.repeats ? "*" : "", name,
                                 !flag && name.starts_with("--") ? "=" : "", option.help, value));
    return text;
}

std::string fishOption(std::string_view command, const Option& option) {
    std::string text = fmt::format("complete -c oisctl -n '__fish_seen_subcommand_from {}'", command);
    for (const std::string& name : namesOf(option)) {
        if (isPositional(option)) continue;
        text += name.starts_with("--") ? fmt::format(" -l {}", name.substr(2))
                                       : fmt::format(" -s {}", name.substr(1));
    }
    const std::string words = wordsOf(option);
    const bool takesValue = !option.valueName.empty() && !isPositional(option);
    if (takesPath(option)) text += " -F";
    if (takesValue) text += option.rules.given != nullptr ? "" : " -r";
    if (!words.empty()) text += " -a " + inQuotes(words);
    return text + " -d " + inQuotes(option.help) + "\n";
}

std::string bashCompletion() {
    const std::vector<Described> all = described();
    return fmt::format(R"(# bash completion for oisctl {}, made by oisctl.
_oisctl() {{
    local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} command=${{COMP_WORDS[1]}} words= done=
    COMPREPLY=()
    # bash takes '=' for a word of its own.
    if [ "$word" = = ]; then
        word=
    elif [ "$before" = = ]; then
        before=${{COMP_WORDS[COMP_CWORD - 2]}}
    fi
    if [ "$COMP_CWORD" -eq 1 ]; then
        words='{} --help --version'
    elif [[ $word == -* ]]; then
        case $command in
{}        esac
    else
        case $command:$before in
{}        esac
        # Of a list, the last word.
        [[ $word != *,* ]] || done=${{word%,*}},
    fi
    mapfile -t COMPREPLY < <(compgen -P "$done" -W "$words" -- "${{word#"$done"}}")
    [[ ${{COMPREPLY[0]:-}} != *[=:] ]] || compopt -o nospace 2>/dev/null
    # Files where the word names none of these.
    [ ${{#COMPREPLY[@]}} -gt 0 ] || compopt -o default 2>/dev/null
}}
complete -F _oisctl oisctl
)",
                       OISCTL_VERSION, joined(namesIn(commands(), &CommandEntry::name), " "),
                       bashOptions(all), bashValues(all));
}

std::string zshCompletion() {
    std::string text =
        fmt::format("#compdef oisctl\n# zsh completion for oisctl {}, made by oisctl.\n", OISCTL_VERSION);
    text += "_oisctl() {\n    local -a commands=(\n";
    std::string cases;
    for (const auto& [entry, command] : described()) {
        text += fmt::format("        {}\n", inQuotes(fmt::format("{}:{}", entry.name, entry.summary)));
        cases += fmt::format(
            "        {})\n            _arguments -s '(- *)--help[Show its options, with examples]'",
            entry.name);
        size_t place = 1;
        for (const Option& option : command.options)
            cases += zshOption(option, isPositional(option) ? place++ : 0);
        cases += "\n            ;;\n";
    }
    return text +
           "    )\n    if (( CURRENT == 2 )); then\n        _describe command commands\n        return\n    "
           "fi\n"
           "    local command=$words[2]\n    shift words\n    (( CURRENT-- ))\n    case $command in\n" +
           cases + "    esac\n}\n_oisctl \"$@\"\n";
}

std::string fishCompletion() {
    std::string text = fmt::format(
        "# fish completion for oisctl {}, made by oisctl.\ncomplete -c oisctl -f\n", OISCTL_VERSION);
    for (const auto& [entry, command] : described()) {
        text += fmt::format("complete -c oisctl -n __fish_use_subcommand -a {} -d {}\n", entry.name,
                            inQuotes(entry.summary));
        for (const Option& option : command.options) text += fishOption(entry.name, option);
    }
    return text;
}

}  // namespace

std::string generateDocument(const std::string& kind) {
    constexpr std::pair<const char*, std::string (*)()> kKinds[] = {
        {"man", manual}, {"bash", bashCompletion}, {"zsh", zshCompletion}, {"fish", fishCompletion}};
    for (const auto& [name, make] : kKinds)
        if (name == kind) return make();
    throw InputError(
        fmt::format("--generate: no such document as '{}'; it may be: man, bash, zsh, fish", kind));
}

}  // namespace oisctl

#pragma once
// A command of the tool as data: what it takes, what it says of itself, what it does. The parser, --help, the
// manual and the completions of the shells are all made from this.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace oisctl {

// Takes one word of the command line. Throws InputError or std::invalid_argument whose text says what is
// wrong with the word, and what would be right.
using Take = std::function<void(const std::string& word)>;

// Where a value goes; it must outlive the command. What stands there before is the default. The first is a
// flag's; a list replaces its default.
using Target = std::variant<bool*, int32_t*, uint64_t*, double*, std::optional<double>*,
                            std::optional<uint32_t>*, std::optional<uint64_t>*, std::string*,
                            std::filesystem::path*, std::vector<int32_t>*, std::vector<std::string>*, Take>;

struct Range {
    double least;
    double greatest;
};

// The words that a value may be.
using Words = std::vector<std::string> (*)();

struct OptionRules {
    std::optional<Range> range{};
    std::vector<std::string> choices{};  // no other value is taken
    Words words = nullptr;               // other values are taken too; for the shell to complete
    bool required = false;
    bool repeats = false;     // may stand several times
    bool commas = false;      // one word holds several values, which commas separate
    bool* given = nullptr;    // set when it stands there; its value may be left out then
    std::string excludes{};   // another option that cannot stand beside it
    std::string otherwise{};  // the default, where the target does not hold it
};

struct Option {
    std::string names;      // "-m,--module"; without dashes, what stands in this place
    std::string valueName;  // "NAME|FILE"; empty for a flag. FILE and DIR are completed as such
    std::string help;
    Target target;
    OptionRules rules{};
    std::string_view group{};  // options of a group are the same for every command that has them
};

inline Option value(std::string names, std::string valueName, std::string help, Target target,
                    OptionRules rules = {}) {
    return {std::move(names), std::move(valueName), std::move(help), std::move(target), std::move(rules)};
}
inline Option flag(std::string names, std::string help, Target target) {
    return {std::move(names), "", std::move(help), std::move(target)};
}

struct Example {
    std::string_view line;
    std::string_view shows{};
};

struct Command {
    std::vector<Option> options;
    std::string notes{};  // prose, lines ended by newlines
    std::vector<Example> examples;
    std::function<int()> run;  // gives the exit status. Throws InputError or JobError
};

struct CommandEntry {
    std::string_view group;
    std::string_view name;
    std::string_view summary;  // one line
    Command (*describe)();
};
// In the order of the help.
const std::vector<CommandEntry>& commands();

// Of the tool as a whole.
const std::vector<Example>& overviewExamples();

// {"-m", "--module"}
std::vector<std::string> namesOf(const Option& option);
bool isPositional(const Option& option);
// The default as it would be typed; empty where there is none.
std::string defaultOf(const Option& option);

}  // namespace oisctl

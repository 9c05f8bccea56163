#include "cli/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <vector>

#include "base/errors.h"
#include "base/report.h"
#include "base/suggest.h"
#include "cli/command.h"
#include "cli/generate.h"
#include "cli/option_value.h"

namespace oisctl {

namespace {

std::vector<std::string> optionNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_group().empty()) continue;  // hidden
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
        for (const std::string& name : option->get_snames()) names.push_back("-" + name);
    }
    return names;
}

// The command line's own words for what it does not know, with the names it does know.
std::string unknownWord(const CLI::App& app, const CLI::App* command, const std::string& word) {
    if (command == nullptr) {
        if (word.starts_with("-")) return word + ": no such option" + suggestion(word, optionNames(app));
        return word + ": no such command" + suggestion(word, namesIn(commands(), &CommandEntry::name));
    }
    const std::string name = command->get_name();
    if (!word.starts_with("-"))
        return fmt::format("{0} {1}: one word too many; 'oisctl {0} --help' shows examples", name, word);
    const std::string near = nearest(word.substr(0, word.find('=')), optionNames(*command));
    return fmt::format("{} {}: no such option; ", name, word) +
           (near.empty() ? fmt::format("'oisctl {} --help' lists them", name)
                         : fmt::format("did you mean '{}'?", near));
}

// The parser's own words, with what they leave out.
std::string complaint(const CLI::App* command, const CLI::ParseError& error) {
    if (command == nullptr) return error.what();
    std::string text = fmt::format("{}: {}", command->get_name(), error.what());
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError))
        text += fmt::format("; 'oisctl {} --help' shows examples", command->get_name());
    return text;
}

CLI::App* chosen(const CLI::App& app) {
    const std::vector<CLI::App*> commands = app.get_subcommands();
    return commands.empty() ? nullptr : commands.front();
}

// What is wrong with a value, and whose it is.
void take(const CLI::App& app, const Option& option, const std::vector<std::string>& words) {
    const OptionRules& rules = option.rules;
    if (rules.given != nullptr) *rules.given = true;
    if (rules.given != nullptr && words.front().empty()) return;
    try {
        storeValue(option, words);
    } catch (const InputError& error) {
        throw InputError(fmt::format("{}: {}: {}", app.get_name(), namesOf(option).back(), error.what()));
    }
}

CLI::Option* addValue(CLI::App& app, const Option& option) {
    const OptionRules& rules = option.rules;
    const auto store = [&app, &option](const std::vector<std::string>& words) {
        take(app, option, words);
        return true;
    };
    CLI::Option* added = app.add_option(option.names, store, option.help);
    added->required(rules.required)->type_name(option.valueName)->default_str(defaultOf(option));
    constexpr int kMany = 1 << 20;
    if (rules.given != nullptr) added->expected(0, 1);
    if (rules.repeats || rules.commas) added->expected(1, kMany)->allow_extra_args(isPositional(option));
    if (rules.commas) added->delimiter(',');
    if (!rules.excludes.empty()) added->excludes(app.get_option(rules.excludes));
    return added;
}

void addOption(CLI::App& app, const Option& option) {
    bool* const* flag = std::get_if<bool*>(&option.target);
    CLI::Option* added = flag == nullptr ? addValue(app, option)
                                         : app.add_flag_callback(
                                               option.names, [flag] { **flag = true; }, option.help);
    if (!option.group.empty()) added->group(std::string(option.group));
}

// Lines with their remarks in a column of their own.
std::string exampleLines(const std::vector<Example>& examples) {
    constexpr size_t kLongest = 60;
    size_t width = 0;
    for (const Example& example : examples) {
        if (!example.shows.empty() && example.line.size() <= kLongest)
            width = std::max(width, example.line.size());
    }
    std::string text = "Examples:";
    for (const Example& example : examples) {
        text += example.shows.empty() ? fmt::format("\n  {}", example.line)
                                      : fmt::format("\n  {:{}}    {}", example.line, width, example.shows);
    }
    return text;
}

bool wantsJson(const Command& command) {
    return std::ranges::any_of(command.options, [](const Option& option) {
        bool* const* flag = std::get_if<bool*>(&option.target);
        return option.names == "--json" && flag != nullptr && **flag;
    });
}

// Who reads JSON learns of a job that could not be carried through, too.
int runJob(const Command& command) {
    try {
        return command.run();
    } catch (const InputError&) {
        throw;
    } catch (const std::exception& error) {
        if (wantsJson(command)) print({{"good", "", false}, {"error", "", error.what()}}, true);
        throw;
    }
}

constexpr const char* kEnd =
    "\n\n'oisctl COMMAND --help' shows each command with examples. Exit status: 0 done, 1 something failed,\n"
    "2 wrong input.";

}  // namespace

int runCommandLine(int argc, char** argv) {
    CLI::App app{
        "Drives the OIS driver on a simulated phone and shows every command that reaches the controller."};
    app.name("oisctl");
    app.set_version_flag("--version", "oisctl " OISCTL_VERSION);
    app.require_subcommand(0, 1);
    app.footer(exampleLines(overviewExamples()) + kEnd);
    std::string document;
    app.add_option("--generate", document, "man, bash, zsh or fish")->group("");  // for the build
    std::vector<Command> described;
    described.reserve(commands().size());
    for (const CommandEntry& entry : commands()) {
        const Command& command = described.emplace_back(entry.describe());
        CLI::App& added = *app.add_subcommand(std::string(entry.name), std::string(entry.summary));
        added.footer(command.notes + (command.notes.empty() ? "" : "\n") + exampleLines(command.examples));
        for (const Option& option : command.options) addOption(added, option);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& done) {  // --help, --version
        return app.exit(done);
    } catch (const CLI::ExtrasError&) {
        throw InputError(unknownWord(app, chosen(app), app.remaining(true).front()));
    } catch (const CLI::ParseError& error) {
        throw InputError(complaint(chosen(app), error));
    }
    if (!document.empty()) {
        fmt::print("{}", generateDocument(document));
        return kSuccess;
    }
    const CLI::App* const asked = chosen(app);
    if (asked == nullptr) {
        fmt::print("{}", app.help());
        return kWrongInput;
    }
    for (size_t i = 0; i < described.size(); ++i)
        if (commands()[i].name == asked->get_name()) return runJob(described[i]);
    return kWrongInput;
}

}  // namespace oisctl

#include "command_line.h"

#include <algorithm>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "base/errors.h"
#include "base/suggest.h"
#include "commands/commands.h"

namespace oisctl {

namespace {

std::vector<std::string> commandNames(CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
    return names;
}

std::vector<std::string> optionNames(CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
        for (const std::string& name : option->get_snames()) names.push_back("-" + name);
    }
    return names;
}

// The command line's own words for what it does not know, with the names it does know.
std::string unknownWord(CLI::App& app, CLI::App* command, const std::string& word) {
    if (command == nullptr) {
        if (word.starts_with("-")) return word + ": no such option" + suggestion(word, optionNames(app));
        return word + ": no such command" + suggestion(word, commandNames(app));
    }
    const std::string where = command->get_name() + " " + word + ": ";
    if (!word.starts_with("-"))
        return where + "one word too many; 'oisctl " + command->get_name() + " --help' shows examples";
    const std::string near = nearest(word.substr(0, word.find('=')), optionNames(*command));
    return where + "no such option" +
           (near.empty() ? "; 'oisctl " + command->get_name() + " --help' lists them"
                         : "; did you mean '" + near + "'?");
}

// The parser's own words, with what they leave out.
std::string complaint(const CLI::App* command, const CLI::ParseError& error) {
    std::string text = error.what();
    constexpr std::string_view kConversion = "Could not convert: ";
    if (text.starts_with(kConversion)) text = text.substr(kConversion.size()) + " is no number";
    if (command == nullptr) return text;
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError)) {
        text += "; 'oisctl " + command->get_name() + " --help' shows examples";
    }
    return command->get_name() + ": " + text;
}

CLI::App* chosen(CLI::App& app) {
    const std::vector<CLI::App*> commands = app.get_subcommands();
    return commands.empty() ? nullptr : commands.front();
}

void addCommands(CLI::App& app, Job& job) {
    addSession(app, job);
    addOperation(app, job);
    addMode(app, job);
    addDecode(app, job);
    addCalibrate(app, job);
    addFirmwareUpdate(app, job);
    addRegisters(app, job);
    addDetectDefect(app, job);
    addRecord(app, job);
    addPlot(app, job);
    addStats(app, job);
    addDump(app, job);
    addSamples(app, job);
    addModules(app, job);
    addScenarios(app, job);
    addProperties(app, job);
}

}  // namespace

int runCommandLine(int argc, char** argv) {
    CLI::App app{
        "Drives the OIS driver on a simulated phone and shows every command that reaches the controller."};
    app.name("oisctl");
    app.set_version_flag("--version", "oisctl " OISCTL_VERSION);
    app.require_subcommand(0, 1);
    app.footer(
        "Examples:\n"
        "  oisctl session                                    one camera session, every command decoded\n"
        "  oisctl session -m dw9786 --scenario video-zoom    a timeline of 3A requests\n"
        "  oisctl decode 0x400456C2                          what a private request is\n"
        "  oisctl record -o out && oisctl plot out/*_status.txt -o shake.png\n"
        "\n'oisctl COMMAND --help' shows each command with examples. Exit status: 0 done, 1 something "
        "failed,\n"
        "2 wrong input.");
    Job job;
    addCommands(app, job);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& done) {  // --help, --version
        return app.exit(done);
    } catch (const CLI::ExtrasError&) {
        throw InputError(unknownWord(app, chosen(app), app.remaining(true).front()));
    } catch (const CLI::ParseError& error) {
        throw InputError(complaint(chosen(app), error));
    }
    if (!job) {
        std::printf("%s", app.help().c_str());
        return kWrongInput;
    }
    return job();
}

}  // namespace oisctl

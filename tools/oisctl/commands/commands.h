#pragma once
// The subcommands. Each adds itself, with its options and examples, to the command line.

#include <functional>

namespace CLI {
class App;
}

namespace oisctl {

// What the command line asks for; gives the exit status. Throws InputError or JobError.
using Job = std::function<int()>;

void addModules(CLI::App& app, Job& job);
void addProperties(CLI::App& app, Job& job);
void addScenarios(CLI::App& app, Job& job);
void addSession(CLI::App& app, Job& job);
void addOperation(CLI::App& app, Job& job);
void addMode(CLI::App& app, Job& job);
void addDecode(CLI::App& app, Job& job);
void addRegisters(CLI::App& app, Job& job);
void addCalibrate(CLI::App& app, Job& job);
void addFirmwareUpdate(CLI::App& app, Job& job);
void addDetectDefect(CLI::App& app, Job& job);
void addRecord(CLI::App& app, Job& job);
void addPlot(CLI::App& app, Job& job);
void addStats(CLI::App& app, Job& job);
void addDump(CLI::App& app, Job& job);
void addSamples(CLI::App& app, Job& job);

}  // namespace oisctl

#pragma once
// What the commands have in common: which phone to set up, and what to show of it.

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace oisctl {

struct Settings {
    std::string module = "korvas4sw-hub";
    bool moduleGiven = false;
    int32_t sensorDev = 0;
    int32_t sensorId = 0;
    int32_t moduleId = 0;
    std::vector<std::string> assignments;  // "property=value"
    std::string propertiesFile;
    std::vector<std::string> faults;
    std::string motion = "hand";
    uint64_t seed = 1;

    bool realTime = false;
    std::string kernel = "simulated";
    std::filesystem::path dumpFolder;
    std::filesystem::path thermalFolder;
    std::filesystem::path folder;

    bool traceWanted = false;
    std::string traceFile;  // empty: standard output
    bool json = false;
    bool verbose = false;
    bool quiet = false;
    std::string logLevel;
    std::string logSinks;
};

// Adds the options that fill `settings` to a command. `settings` must outlive the parse.
void addPhoneOptions(CLI::App& command, Settings& settings);
void addJsonOption(CLI::App& command, Settings& settings);

// The properties to set before the driver opens: the file's, then the command line's. Throws InputError for
// one that the driver does not know or a value it cannot take.
std::map<std::string, std::string> wantedProperties(const Settings& settings);

}  // namespace oisctl

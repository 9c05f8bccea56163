#pragma once
// What the commands have in common: which phone to set up, and what to show of it.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/report.h"
#include "cli/command.h"
#include "faults/faults.h"
#include "modules/module_description.h"
#include "phone.h"
#include "services/log_service.h"
#include "services/property_store.h"

namespace oisctl {

constexpr uint64_t kDefaultSeed = 1;

struct Settings {
    std::string module;  // empty: with the machine's own kernel what its media graph shows, else the next
    std::string simulatedModule = "korvas4sw-hub";  // that suits the job
    int32_t sensorDev = 0;
    int32_t sensorId = 0;
    int32_t moduleId = 0;
    std::vector<phone::Property> presets;  // of the command or the scenario; the user's own override them
    std::string propertiesFile;
    std::vector<phone::Property> properties;
    std::vector<phone::Fault> faults;
    std::string motion;  // empty: the scenario's, or what suits the job; "hand" in general
    std::optional<uint64_t> seed;

    bool realTime = false;
    bool realKernel = false;  // this machine's own
    bool allowWrite = false;  // to a real controller: what changes or keeps its calibration
    std::filesystem::path dumpFolder;
    std::filesystem::path thermalFolder;
    std::filesystem::path folder;
    std::filesystem::path state;       // keeps what the controller keeps; empty: nothing does
    std::filesystem::path mediaGraph;  // of the simulated kernel; empty: the phone's own

    bool traceWanted = false;
    std::string traceFile;  // empty: standard output
    bool json = false;
    bool verbose = false;  // the driver's messages too
    bool quiet = false;
    bool wallTime = false;  // tell the machine's own time too, which differs from run to run
    phone::LogLevel logLevel = phone::LogLevel::kDebug;
    bool debugLog = false;
    bool unifiedLog = true;

    // Hardware needs the time it is given.
    bool inRealTime() const { return realTime || realKernel; }
};

// The options that fill `settings`, which must outlive them, behind a command's `own`.
std::vector<Option> withPhoneOptions(std::vector<Option> own, Settings& settings);
// Only those of the names: "--kernel", ...
std::vector<Option> withSomePhoneOptions(std::vector<Option> own, Settings& settings,
                                         const std::vector<std::string>& names);
Option jsonOption(Settings& settings);

// The kernel, clock and folders that the settings ask for.
phone::PhoneOptions phoneSetup(const Settings& settings);

// What options of several commands may be.
std::vector<std::string> moduleNames();
// A module that has OIS is on one of the two ways.
bool hasOis(const phone::ModuleDescription& module);
bool onHub(const phone::ModuleDescription& module);
bool onSubDevice(const phone::ModuleDescription& module);
// "hub" or "sub-device"; nothing for a module without OIS.
Value wayName(const phone::ModuleDescription& module);
std::vector<std::string> propertyNames();
std::vector<std::string> faultWords();  // how a fault may begin

}  // namespace oisctl

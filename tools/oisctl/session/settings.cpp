#include "session/settings.h"

#include <algorithm>

#include "faults/faults.h"
#include "motion/motion.h"
#include "services/property_store.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

constexpr const char* kPhoneGroup = "Phone";
constexpr const char* kOutputGroup = "Output";

std::vector<std::string> assignmentWords() {
    std::vector<std::string> words = propertyNames();
    for (std::string& word : words) word += '=';
    return words;
}

std::vector<Option> moduleOptions(Settings& settings) {
    return {
        {"-m,--module",
         "NAME|FILE",
         "Camera module: a shipped one ('oisctl modules') or a TOML file",
         &settings.module,
         {.words = moduleNames},
         kPhoneGroup},
        {"--sensor",
         "N",
         "Sensor device index, 0 to 7",
         &settings.sensorDev,
         {.range = Range{0, 7}},
         kPhoneGroup},
        {"--sensor-id", "N", "Sensor id that Init is given", &settings.sensorId, {}, kPhoneGroup},
        {"--module-id", "N", "Module id that Init is given", &settings.moduleId, {}, kPhoneGroup},
        {"-s,--set",
         "PROPERTY=VALUE",
         "Set a system property ('oisctl properties'); repeatable",
         [&settings](const std::string& word) { settings.properties.push_back(phone::parseProperty(word)); },
         {.words = assignmentWords, .repeats = true},
         kPhoneGroup},
        {"--properties",
         "FILE",
         "Set the properties of a file, one PROPERTY=VALUE a line",
         &settings.propertiesFile,
         {},
         kPhoneGroup},
    };
}

std::vector<Option> worldOptions(Settings& settings) {
    return {
        {"--motion",
         "NAME|FILE",
         "Motion of the phone: rest, hand, pan, walk, or a CSV recording",
         &settings.motion,
         {.words = phone::builtinMotions},
         kPhoneGroup},
        {"--seed", "N", "Seed of the built-in motions", &settings.seed, {}, kPhoneGroup},
        {"--fault",
         "SPEC",
         "What goes wrong: SET_MODE@3:lost, chip.never-idle, ... ('oisctl faults'); repeatable",
         [&settings](const std::string& word) { settings.faults.push_back(phone::parseFault(word)); },
         {.words = faultWords, .repeats = true},
         kPhoneGroup},
        {"--real-time",
         "",
         "Sleeps last as long as they say, instead of being simulated",
         &settings.realTime,
         {},
         kPhoneGroup},
    };
}

std::vector<Option> kernelOptions(Settings& settings) {
    return {
        {"--kernel",
         "KIND",
         "Whose device nodes and files: simulated, or real for this machine's own",
         &settings.kernel,
         {.choices = {"simulated", "real"}},
         kPhoneGroup},
        {"--dump-folder",
         "DIR",
         "With --kernel real: stands for /mnt/vendor/nvcfg/camera",
         &settings.dumpFolder,
         {},
         kPhoneGroup},
        {"--thermal-folder",
         "DIR",
         "With --kernel real: stands for /sys/cam_thermal",
         &settings.thermalFolder,
         {},
         kPhoneGroup},
        {"--folder",
         "DIR",
         "Keep the phone's files here instead of in a temporary folder",
         &settings.folder,
         {},
         kPhoneGroup},
    };
}

std::vector<Option> outputOptions(Settings& settings) {
    return {
        {"-t,--trace",
         "[FILE]",
         "Show the whole trace, or write it to FILE: every command, file, property, sleep, message",
         &settings.traceFile,
         {.given = &settings.traceWanted},
         kOutputGroup},
        {"-v,--verbose", "", "Show the driver's messages too", &settings.verbose, {}, kOutputGroup},
        {"-q,--quiet", "", "Show the result only", &settings.quiet, {}, kOutputGroup},
        jsonOption(settings),
        {"--wall-time",
         "",
         "Tell the machine's own time too, which makes every run another",
         &settings.wallTime,
         {},
         kOutputGroup},
        {"--log-level",
         "LEVEL",
         "Messages that the platform lets through: off, error, info or debug",
         &settings.logLevel,
         {.choices = {"off", "error", "info", "debug"}},
         kOutputGroup},
        {"--log-sinks",
         "SINKS",
         "Where they go: the platform's debug log, its unified logger, both or none",
         &settings.logSinks,
         {.choices = {"debug", "unified", "both", "none"}},
         kOutputGroup},
    };
}

}  // namespace

std::vector<std::string> moduleNames() {
    std::vector<std::string> names;
    for (const phone::ModuleDescription& module : phone::shippedModules()) names.push_back(module.name);
    return names;
}

Value wayName(const phone::ModuleDescription& module) {
    if (!module.hasOis) return {};
    return module.behindHub() ? "hub" : "sub-device";
}

std::vector<std::string> propertyNames() {
    std::vector<std::string> names;
    for (const phone::KnownProperty& property : phone::knownProperties()) {
        names.emplace_back(phone::shortPropertyName(property.key));
    }
    return names;
}

std::vector<Option> withPhoneOptions(std::vector<Option> own, Settings& settings) {
    for (const auto& group : {moduleOptions, worldOptions, kernelOptions, outputOptions})
        for (Option& option : group(settings)) own.push_back(std::move(option));
    return own;
}

Option jsonOption(Settings& settings) {
    return {"--json",       "", "JSON instead of text, the trace included: one object a line",
            &settings.json, {}, kOutputGroup};
}

std::vector<std::string> faultWords() {
    std::vector<std::string> words;
    for (const phone::FaultPlace& place : phone::faultPlaces()) {
        const std::string_view effect = place.effects.empty() ? "" : ":";
        const std::string_view value = place.value.empty() ? "" : "=";
        if (!place.name.empty()) words.push_back(std::string(place.name).append(value).append(effect));
    }
    for (const phone::RequestInfo& info : phone::privateRequests())
        words.push_back(std::string(info.name) + ':');
    return words;
}

}  // namespace oisctl

#include "session/settings.h"

#include <algorithm>
#include <utility>

#include "base/suggest.h"
#include "faults/faults.h"
#include "motion/motion.h"
#include "services/property_store.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

constexpr const char* kOutputGroup = "Output";

std::vector<std::string> assignmentWords() {
    return namesIn(propertyNames(), [](const std::string& name) { return name + '='; });
}

std::vector<Option> phoneOptions(Settings& settings) {
    return {
        value("-m,--module", "NAME|FILE",
              "Camera module: a shipped one ('oisctl modules') or a TOML file; with --kernel real else the "
              "one that the media graph shows",
              &settings.module, {.words = moduleNames, .otherwise = settings.simulatedModule}),
        value("--sensor", "N", "Sensor device index, 0 to 7", &settings.sensorDev, {.range = Range{0, 7}}),
        value("--sensor-id", "N", "Sensor id that Init is given", &settings.sensorId),
        value("--module-id", "N", "Module id that Init is given", &settings.moduleId),
        value("-s,--set", "PROPERTY=VALUE", "Set a system property ('oisctl properties'); repeatable",
              [&settings](const std::string& word) {
                  settings.properties.push_back(phone::parseProperty(word));
              },
              {.words = assignmentWords, .repeats = true}),
        value("--properties", "FILE", "Set the properties of a file, one PROPERTY=VALUE a line",
              &settings.propertiesFile),
        value("--motion", "NAME|FILE", "Motion of the phone: rest, hand, pan, walk, or a CSV recording",
              &settings.motion, {.words = phone::builtinMotions}),
        value("--seed", "N", "Seed of the built-in motions", &settings.seed,
              {.otherwise = std::to_string(kDefaultSeed)}),
        value("--fault", "SPEC",
              "What goes wrong: SET_MODE@3:lost, chip.never-idle, ... ('oisctl faults'); repeatable",
              [&settings](const std::string& word) { settings.faults.push_back(phone::parseFault(word)); },
              {.words = faultWords, .repeats = true}),
        flag("--real-time", "Sleeps last as long as they say, instead of being simulated",
             &settings.realTime),
        value("--kernel", "KIND",
              "Whose device nodes and files: simulated, or real for this machine's own, in real time",
              [&settings](const std::string& word) { settings.realKernel = word == "real"; },
              {.choices = {"simulated", "real"}, .otherwise = settings.realKernel ? "real" : "simulated"}),
        flag("--allow-write",
             "With --kernel real: let gyro offset, gains, flash and firmware of the controller be written",
             &settings.allowWrite),
        value("--dump-folder", "DIR", "With --kernel real: stands for /mnt/vendor/nvcfg/camera",
              &settings.dumpFolder),
        value("--thermal-folder", "DIR", "With --kernel real: stands for /sys/cam_thermal",
              &settings.thermalFolder),
        value("--media-graph", "FILE",
              "Media devices and entities of the simulated kernel, a TOML file; otherwise the phone's own",
              &settings.mediaGraph),
        value("--state", "DIR",
              "Keep here what the simulated controller keeps without power: flash, gyro offset, gains, "
              "firmware; the next run goes on with it",
              &settings.state),
        value("--folder", "DIR", "Keep the phone's files here instead of in a temporary folder",
              &settings.folder),
    };
}

std::vector<Option> outputOptions(Settings& settings) {
    return {
        value("-t,--trace", "[FILE]",
              "Show the whole trace, or write it to FILE as JSON lines: every command, file, property, "
              "sleep, message",
              &settings.traceFile, {.given = &settings.traceWanted}),
        flag("-v,--verbose", "Show the driver's messages too", &settings.verbose),
        flag("-q,--quiet", "Show the result only", &settings.quiet),
        jsonOption(settings),
        flag("--wall-time", "Tell the machine's own time too, which makes every run another",
             &settings.wallTime),
        value("--log-level", "LEVEL", "Messages that the platform lets through: off, error, info or debug",
              [&settings](const std::string& word) { settings.logLevel = phone::logLevelByName(word); },
              {.choices = {"off", "error", "info", "debug"}, .otherwise = "debug"}),
        value("--log-sinks", "SINKS",
              "Where they go: the platform's debug log, its unified logger, both or none",
              [&settings](const std::string& word) {
                  settings.debugLog = word == "debug" || word == "both";
                  settings.unifiedLog = word == "unified" || word == "both";
              },
              {.choices = {"debug", "unified", "both", "none"}, .otherwise = "unified"}),
    };
}

}  // namespace

phone::PhoneOptions phoneSetup(const Settings& settings) {
    phone::PhoneOptions options;
    options.kernel = settings.realKernel ? phone::KernelKind::kReal : phone::KernelKind::kSimulated;
    options.clock = settings.inRealTime() ? phone::ClockMode::kRealTime : phone::ClockMode::kSimulated;
    options.folder = settings.folder;
    options.dumpFolder = settings.dumpFolder;
    options.thermalFolder = settings.thermalFolder;
    return options;
}

std::vector<std::string> moduleNames() {
    return namesIn(phone::shippedModules(), &phone::ModuleDescription::name);
}

bool hasOis(const phone::ModuleDescription& module) {
    return module.hasOis;
}

bool onHub(const phone::ModuleDescription& module) {
    return module.hasOis && module.behindHub();
}

bool onSubDevice(const phone::ModuleDescription& module) {
    return module.hasOis && !module.behindHub();
}

Value wayName(const phone::ModuleDescription& module) {
    return onHub(module) ? "hub" : onSubDevice(module) ? "sub-device" : Value();
}

std::vector<std::string> propertyNames() {
    return namesIn(phone::knownProperties(), [](const phone::KnownProperty& property) {
        return phone::shortPropertyName(property.key);
    });
}

std::vector<Option> withPhoneOptions(std::vector<Option> own, Settings& settings) {
    for (const auto& [group, options] :
         {std::pair("Phone", phoneOptions(settings)), std::pair(kOutputGroup, outputOptions(settings))}) {
        for (const Option& option : options) {
            own.push_back(option);
            own.back().group = group;
        }
    }
    return own;
}

std::vector<Option> withSomePhoneOptions(std::vector<Option> own, Settings& settings,
                                         const std::vector<std::string>& names) {
    for (Option& option : withPhoneOptions({}, settings)) {
        const auto isWanted = [&names](const std::string& name) {
            return std::ranges::find(names, name) != names.end();
        };
        if (std::ranges::any_of(namesOf(option), isWanted)) own.push_back(std::move(option));
    }
    return own;
}

Option jsonOption(Settings& settings) {
    Option json =
        flag("--json", "JSON instead of text, the trace included: one object a line", &settings.json);
    json.group = kOutputGroup;
    return json;
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

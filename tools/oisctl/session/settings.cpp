#include "session/settings.h"

#include <algorithm>
#include <limits>

#include <CLI/CLI.hpp>

#include "base/cli_options.h"
#include "controllers/korva_faults.h"
#include "faults/faults.h"
#include "services/property_store.h"

namespace oisctl {

namespace {

constexpr const char* kPhoneGroup = "Phone";
constexpr const char* kOutputGroup = "Output";
constexpr std::string_view kPropertyPrefix = "vendor.debug.ois.";

bool isKnown(std::string_view name) {
    const auto known = phone::knownProperties();
    return std::any_of(known.begin(), known.end(),
                       [name](const auto& property) { return property.key == name; });
}

void addModuleOptions(CLI::App& command, Settings& settings) {
    constexpr int kLastSensor = 7;
    command
        .add_option("-m,--module", settings.module,
                    "Camera module: a shipped one ('oisctl modules') or a TOML file")
        ->type_name("NAME|FILE")
        ->capture_default_str()
        ->group(kPhoneGroup);
    command.add_option("--sensor", settings.sensorDev, "Sensor device index, 0 to 7")
        ->check(inRange(0, kLastSensor))
        ->type_name("N")
        ->capture_default_str()
        ->group(kPhoneGroup);
    command.add_option("--sensor-id", settings.sensorId, "Sensor id that Init is given")
        ->type_name("N")
        ->group(kPhoneGroup);
    command.add_option("--module-id", settings.moduleId, "Module id that Init is given")
        ->type_name("N")
        ->group(kPhoneGroup);
    command
        .add_option("-s,--set", settings.assignments,
                    "Set a system property ('oisctl properties'); repeatable")
        ->type_name("PROPERTY=VALUE")
        ->allow_extra_args(false)
        ->group(kPhoneGroup);
    command
        .add_option("--properties", settings.propertiesFile,
                    "Set the properties of a file, one PROPERTY=VALUE a line")
        ->type_name("FILE")
        ->group(kPhoneGroup);
}

void addWorldOptions(CLI::App& command, Settings& settings) {
    command
        .add_option("--motion", settings.motion,
                    "Motion of the phone: rest, hand, pan, walk, or a CSV recording")
        ->type_name("NAME|FILE")
        ->group(kPhoneGroup);
    command.add_option("--seed", settings.seed, "Seed of the built-in motions")
        ->check(inRange<int64_t>(0, std::numeric_limits<int64_t>::max()))
        ->type_name("N")
        ->capture_default_str()
        ->group(kPhoneGroup);
    command
        .add_option("--fault", settings.faults,
                    "What goes wrong: SET_MODE@3:lost, chip.never-idle, ...; repeatable")
        ->type_name("SPEC")
        ->allow_extra_args(false)
        ->group(kPhoneGroup);
    command
        .add_flag("--real-time", settings.realTime,
                  "Sleeps last as long as they say, instead of being simulated")
        ->group(kPhoneGroup);
}

void addKernelOptions(CLI::App& command, Settings& settings) {
    command
        .add_option("--kernel", settings.kernel,
                    "Whose device nodes and files: simulated, or this machine's own")
        ->check(CLI::IsMember({"simulated", "real"}))
        ->capture_default_str()
        ->group(kPhoneGroup);
    command
        .add_option("--dump-folder", settings.dumpFolder,
                    "With --kernel real: stands for /mnt/vendor/nvcfg/camera")
        ->type_name("DIR")
        ->group(kPhoneGroup);
    command
        .add_option("--thermal-folder", settings.thermalFolder,
                    "With --kernel real: stands for /sys/cam_thermal")
        ->type_name("DIR")
        ->group(kPhoneGroup);
    command
        .add_option("--folder", settings.folder,
                    "Keep the phone's files here instead of in a temporary folder")
        ->type_name("DIR")
        ->group(kPhoneGroup);
}

void addOutputOptions(CLI::App& command, Settings& settings) {
    auto* trace = command.add_option(
        "-t,--trace", settings.traceFile,
        "Show the whole trace, or write it to FILE: every command, file, property, sleep, message");
    trace->expected(0, 1)->type_name("[FILE]")->group(kOutputGroup);
    command.parse_complete_callback([trace, &settings] { settings.traceWanted = trace->count() > 0; });
    command.add_flag("-v,--verbose", settings.verbose, "Show the driver's messages too")->group(kOutputGroup);
    command.add_flag("-q,--quiet", settings.quiet, "Show the result only")->group(kOutputGroup);
    addJsonOption(command, settings);
    command.add_option("--log-level", settings.logLevel, "Messages that the platform lets through")
        ->check(CLI::IsMember({"off", "error", "info", "debug"}))
        ->capture_default_str()
        ->group(kOutputGroup);
    command
        .add_option("--log-sinks", settings.logSinks,
                    "Where they go: the platform's debug log, its unified logger, or both")
        ->check(CLI::IsMember({"debug", "unified", "both", "none"}))
        ->capture_default_str()
        ->group(kOutputGroup);
}

}  // namespace

void addPhoneOptions(CLI::App& command, Settings& settings) {
    addModuleOptions(command, settings);
    addWorldOptions(command, settings);
    addKernelOptions(command, settings);
    addOutputOptions(command, settings);
}

void addJsonOption(CLI::App& command, Settings& settings) {
    command.add_flag("--json", settings.json, "JSON instead of text, the trace included: one object a line")
        ->group(kOutputGroup);
}

std::string wholePropertyName(std::string_view name) {
    const std::string whole = std::string(kPropertyPrefix).append(name);
    const bool isShort = name.find('.') == std::string_view::npos;
    return !isKnown(name) && (isShort || isKnown(whole)) ? whole : std::string(name);
}

std::string wholeAssignment(std::string_view assignment) {
    const size_t equals = std::min(assignment.find('='), assignment.size());
    return wholePropertyName(assignment.substr(0, equals)).append(assignment.substr(equals));
}

bool isChipFault(std::string_view text) {
    return text.starts_with("chip.");
}

void checkFault(std::string_view text) {
    if (isChipFault(text)) {
        phone::KorvaFaults scratch;
        phone::addKorvaFault(scratch, text);
    } else {
        static_cast<void>(phone::parseFault(text));
    }
}

}  // namespace oisctl

#include "session/chosen_module.h"

#include <fmt/format.h>

#include "base/errors.h"
#include "base/suggest.h"
#include "device/driver_choice.h"
#include "device/way_end.h"

namespace oisctl {

namespace {

using phone::ModuleDescription;

ModuleDescription moduleShown() {
    const std::vector<WalkedDevice> devices = walkMedia();
    const std::vector<ModuleDescription> shown = modulesShownBy(devices);
    if (shown.size() == 1) return shown.front();
    if (shown.empty()) {
        const WayText text = textOf(endOf(seenIn(devices), shippedDriverNames()));
        throw JobError(fmt::format("no module shows in the media graph: {}; {}", text.what, text.advice));
    }
    std::vector<std::string> lenses;
    for (const ModuleDescription& module : shown) {
        const DriverChoice choice = choiceOf(devices, module.driverName);
        lenses.push_back(
            fmt::format("{} (\"{}\" in {})", module.name, choice.entity->name, choice.device->path));
    }
    throw InputError("--module: several show in the media graph; name one of " + joined(lenses));
}

bool isRealLens(const Settings& settings, const ModuleDescription& module) {
    return settings.realKernel && !module.behindHub();
}

void refuse(const std::string& option, std::string_view why, const ModuleDescription& module) {
    throw InputError(fmt::format("{}: {}; with --kernel real {} has a real one", option, why, module.name));
}

void requireMatchingKernel(const Settings& settings) {
    if (settings.realKernel && !settings.folder.empty()) {
        throw InputError("--folder " + settings.folder.string() +
                         ": keeps the simulated phone's files; with --kernel real it is --dump-folder and "
                         "--thermal-folder");
    }
    if (settings.realKernel && !settings.state.empty()) {
        throw InputError(
            "--state " + settings.state.string() +
            ": keeps what the simulated controller keeps; with --kernel real it keeps that itself");
    }
    if (settings.realKernel && !settings.mediaGraph.empty()) {
        throw InputError("--media-graph " + settings.mediaGraph.string() +
                         ": is for the simulated kernel; with --kernel real it is this machine's own");
    }
    if (settings.realKernel) return;
    for (const auto& [option, folder] : {std::pair("--dump-folder ", &settings.dumpFolder),
                                         std::pair("--thermal-folder ", &settings.thermalFolder)}) {
        if (!folder->empty()) {
            throw InputError(option + folder->string() +
                             ": goes with --kernel real; --folder keeps the simulated phone's files");
        }
    }
}

}  // namespace

ModuleDescription chosenModule(const Settings& settings) {
    if (settings.module.empty() && settings.realKernel) return moduleShown();
    return asInput("--module: ", [&] {
        return phone::moduleByName(settings.module.empty() ? settings.simulatedModule : settings.module);
    });
}

void requireMeaning(const phone::Fault& fault, const Settings& settings, const ModuleDescription& module) {
    const std::string option = "--fault " + fault.text;
    if (fault.point == phone::FaultPoint::kChip && !module.behindHub()) {
        throw InputError(
            fmt::format("{}: {} has no chip behind the hub; choose a hub module", option, module.name));
    }
    if (!isRealLens(settings, module)) return;
    if (fault.point == phone::FaultPoint::kLens) refuse(option, "is a defect of the simulated lens", module);
    if (fault.effect.kind == phone::FaultEffect::Kind::kMoves)
        refuse(option, "is how much the simulated kernel copies", module);
    if (fault.point == phone::FaultPoint::kHubCommand) refuse(option, "strikes at the sensor hub", module);
}

void requireMeaning(const Settings& settings, const ModuleDescription& module) {
    requireMatchingKernel(settings);
    for (const phone::Fault& fault : settings.faults) requireMeaning(fault, settings, module);
    if (!isRealLens(settings, module)) return;
    constexpr const char* kMoves = "moves the simulated lens";
    if (!settings.motion.empty()) refuse("--motion " + settings.motion, kMoves, module);
    if (settings.seed) refuse(fmt::format("--seed {}", *settings.seed), kMoves, module);
}

}  // namespace oisctl

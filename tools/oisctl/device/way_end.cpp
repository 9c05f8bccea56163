#include "device/way_end.h"

#include <fmt/format.h>

#include <cerrno>
#include <utility>

#include "base/suggest.h"
#include "device/driver_choice.h"
#include "kernel/media_graph.h"
#include "trace/decode.h"
#include "wire/ois_ioctl.h"

namespace oisctl {

namespace {

// What to do about a device node that cannot be opened.
std::string adviceFor(const WaySeen::Step& node) {
    switch (node.error) {
        case EACCES:
        case EPERM:
            return fmt::format("run it as root, or as a member of the group that owns {}", node.at);
        case EBUSY:
            return fmt::format("another process holds it; 'fuser -v {}' names it", node.at);
        case ENOENT:
            return "the kernel names it, but nothing has made the node: look at udev, or mount devtmpfs";
        default:
            return "the kernel's log says more ('dmesg')";
    }
}

std::string adviceForCommand(int error) {
    switch (error) {
        case 0:
            return "--trace shows what happened to each";
        case ENOTTY:
            return "what stands behind the node does not know the requests of wire/ois_ioctl.h";
        default:
            return "the controller does not answer: look at its power, clock and bus, and at 'dmesg'";
    }
}

std::string listed(const std::vector<std::string>& names) {
    return names.empty() ? "there is none" : fmt::format("there are: {}", fmt::join(names, ", "));
}

// "\"dw9786\" or \"dw9781\"".
std::string beginnings(const WayEnd& end) {
    std::vector<std::string> quoted;
    for (const std::string& name : end.wanted) quoted.push_back(fmt::format("\"{}\"", name));
    return joined(quoted, " or ");
}

WayText ofCommands(const WayEnd& end) {
    const std::string how =
        end.step.error == 0 ? "was lost" : "ended with " + phone::errorText(end.step.error);
    return {fmt::format("no command got through; the first, {}, {}", end.step.at, how),
            adviceForCommand(end.step.error)};
}

}  // namespace

WayEnd endOf(const WaySeen& seen, std::vector<std::string> driverNames) {
    if (!seen.tried) return {};
    if (seen.node.error != 0) return {EndPlace::kNode, seen.node, {}, {}};
    if (seen.link.error != 0) return {EndPlace::kNodeLink, seen.link, {}, {}};
    if (seen.refusedMedia.error != 0) return {EndPlace::kMediaRequests, seen.refusedMedia, {}, {}};
    if (!seen.lensDevice.empty())
        return {EndPlace::kLensName, {seen.lensDevice}, std::move(driverNames), seen.lenses};
    if (!seen.models.empty()) return {EndPlace::kMediaModel, {}, {OIS_MEDIA_MODEL}, seen.models};
    return {EndPlace::kMediaDevices, {}, {}, {}};
}

WaySeen seenIn(const std::vector<WalkedDevice>& devices) {
    WaySeen seen{.tried = true};
    const WalkedDevice* const walked = choiceOf(devices, {}).device;
    for (const WalkedDevice& device : devices) {
        if (device.number >= kDriverMediaNodes) break;
        const int error = device.openError != 0 ? device.openError : device.infoError;
        if (error == 0) seen.models.push_back(fmt::format("{} ({})", device.model, device.path));
        // What comes behind the device that is looked through does not matter.
        if (error != 0 && seen.refusedMedia.error == 0 && seen.lensDevice.empty())
            seen.refusedMedia = {device.path, error};
        if (&device == walked) seen.lensDevice = device.path;
    }
    if (walked == nullptr) return seen;
    seen.refusedMedia = {walked->path, walked->entitiesError};
    for (const WalkedEntity& entity : walked->entities)
        if (entity.type == phone::kLensEntityType) seen.lenses.push_back(entity.name);
    return seen;
}

WayEnd endOf(const std::vector<WalkedDevice>& devices, const std::string& driverName) {
    WaySeen seen = seenIn(devices);
    const DriverChoice choice = choiceOf(devices, driverName);
    for (size_t d = 0; d < devices.size(); ++d) {
        for (size_t e = 0; e < devices[d].entities.size(); ++e) {
            const WalkedEntity& entity = devices[d].entities[e];
            if (choice.entities[d][e] == EntityFate::kNoNode)
                seen.link = {entity.linkPath(), entity.linkError};
        }
    }
    return endOf(seen, {driverName});
}

std::string_view keyOf(EndPlace place) {
    switch (place) {
        case EndPlace::kModule:
            return "no OIS";
        case EndPlace::kInit:
            return "Init failed";
        case EndPlace::kMediaDevices:
            return "no media device";
        case EndPlace::kMediaRequests:
            return "media device refused";
        case EndPlace::kMediaModel:
            return "no lens device";
        case EndPlace::kLensName:
            return "no such lens";
        case EndPlace::kNodeLink:
            return "node not known";
        case EndPlace::kNode:
            return "node refused";
        case EndPlace::kHub:
            return "no hub";
        case EndPlace::kCommands:
            return "no command got through";
        case EndPlace::kNoCommand:
            return "nothing sent";
    }
    return {};
}

WayText textOf(const WayEnd& end) {
    const std::string error = phone::errorText(end.step.error);
    switch (end.place) {
        case EndPlace::kModule:
            return {
                "Init answered 0: the module has no OIS, or it is switched off",
                "choose a module with OIS ('oisctl modules'), and do not set the property 'disable' to 0"};
        case EndPlace::kInit:
            return {"Init could not start its work", "--trace shows what failed"};
        case EndPlace::kMediaDevices:
            return {fmt::format("there is no media device: none of /dev/media0 to {} exists",
                                kDriverMediaNodes - 1),
                    "the lens's kernel driver registers one: load it, and look at 'dmesg'"};
        case EndPlace::kMediaRequests:
            return {fmt::format("{} cannot be used: {}", end.step.at, error), adviceFor(end.step)};
        case EndPlace::kMediaModel:
            return {
                fmt::format("no media device's model begins with {}; {}", beginnings(end), listed(end.seen)),
                "the lens's kernel driver registers one of that model: load it, and look at 'dmesg'"};
        case EndPlace::kLensName:
            return {fmt::format("no lens entity's name in {} begins with {}; {}", end.step.at,
                                beginnings(end), listed(end.seen)),
                    "name the module that fits with -m, or describe it ('oisctl modules dw9786 --toml' is a "
                    "start); 'oisctl probe' shows all that there is"};
        case EndPlace::kNodeLink:
            return {
                fmt::format("{}, which leads to the lens's node, cannot be read: {}", end.step.at, error),
                "the lens's kernel driver has to register a node for its sub-device, and /sys to be mounted"};
        case EndPlace::kNode:
            return {fmt::format("{} cannot be opened: {}", end.step.at, error), adviceFor(end.step)};
        case EndPlace::kHub:
            return {"the sensor hub's service is not there", "--trace shows what took it away"};
        case EndPlace::kCommands:
            return ofCommands(end);
        case EndPlace::kNoCommand:
            return {"nothing was sent", "--verbose shows what the driver says"};
    }
    return {};
}

}  // namespace oisctl

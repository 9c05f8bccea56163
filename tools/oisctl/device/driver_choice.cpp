#include "device/driver_choice.h"

#include <algorithm>
#include <utility>

#include "base/suggest.h"
#include "kernel/media_graph.h"
#include "session/settings.h"
#include "wire/ois_ioctl.h"

namespace oisctl {

namespace {

DeviceFate fateOf(const WalkedDevice& device, bool walkedAlready) {
    if (device.number >= kDriverMediaNodes) return DeviceFate::kTooFar;
    if (walkedAlready) return DeviceFate::kBehind;
    if (device.openError != 0) return DeviceFate::kNotOpened;
    if (device.infoError != 0) return DeviceFate::kNoInfo;
    return device.model.starts_with(OIS_MEDIA_MODEL) ? DeviceFate::kWalked : DeviceFate::kOtherModel;
}

EntityFate fateOf(const WalkedEntity& entity, std::string_view driverName) {
    if (entity.type != phone::kLensEntityType) return EntityFate::kNoLens;
    if (!entity.name.starts_with(driverName)) return EntityFate::kOtherName;
    return entity.node.empty() ? EntityFate::kNoNode : EntityFate::kTaken;
}

// The driver takes the first that fits, in the order of its own counting.
void chooseEntity(const WalkedDevice& device, std::string_view driverName, std::vector<EntityFate>& fates,
                  const WalkedEntity*& taken) {
    fates.assign(device.entities.size(), EntityFate::kNotReached);
    for (const uint32_t id : device.counted) {
        const auto met = std::ranges::find(device.entities, id, &WalkedEntity::id);
        if (met == device.entities.end() || &*met == taken) continue;
        EntityFate& fate = fates[static_cast<size_t>(met - device.entities.begin())];
        fate = fateOf(*met, driverName);
        if (fate != EntityFate::kTaken) continue;
        if (taken != nullptr) {
            fate = EntityFate::kBehind;
        } else {
            taken = &*met;
        }
    }
}

}  // namespace

DriverChoice choiceOf(const std::vector<WalkedDevice>& devices, std::string_view driverName) {
    DriverChoice choice;
    for (const WalkedDevice& device : devices) {
        choice.devices.push_back(fateOf(device, choice.device != nullptr));
        std::vector<EntityFate>& fates =
            choice.entities.emplace_back(device.entities.size(), EntityFate::kOtherDevice);
        if (choice.devices.back() != DeviceFate::kWalked) continue;
        choice.device = &device;
        chooseEntity(device, driverName, fates, choice.entity);
    }
    return choice;
}

std::string_view wordsFor(DeviceFate fate) {
    switch (fate) {
        case DeviceFate::kWalked:
            return "looks here";
        case DeviceFate::kNotOpened:
            return "cannot be opened";
        case DeviceFate::kNoInfo:
            return "does not say what it is";
        case DeviceFate::kOtherModel:
            return "no " OIS_MEDIA_MODEL;
        case DeviceFate::kBehind:
            return "behind the one where the driver looks";
        case DeviceFate::kTooFar:
            return "the driver tries 0 to 31";
    }
    return {};
}

std::string_view wordsFor(EntityFate fate) {
    switch (fate) {
        case EntityFate::kTaken:
            return "taken";
        case EntityFate::kOtherDevice:
            return "the driver does not look there";
        case EntityFate::kNotReached:
            return "its id is beyond the driver's 32 steps";
        case EntityFate::kNoLens:
            return "no lens";
        case EntityFate::kOtherName:
            return "another name";
        case EntityFate::kNoNode:
            return "no node";
        case EntityFate::kBehind:
            return "behind the one that is taken";
    }
    return {};
}

std::vector<phone::ModuleDescription> shippedOnSubDevice() {
    std::vector<phone::ModuleDescription> modules = phone::shippedModules();
    std::erase_if(modules, [](const phone::ModuleDescription& module) { return !onSubDevice(module); });
    return modules;
}

std::vector<std::string> shippedDriverNames() {
    return namesIn(shippedOnSubDevice(), &phone::ModuleDescription::driverName);
}

std::vector<phone::ModuleDescription> modulesShownBy(const std::vector<WalkedDevice>& devices) {
    std::vector<phone::ModuleDescription> shown = shippedOnSubDevice();
    std::erase_if(shown, [&](const phone::ModuleDescription& module) {
        return choiceOf(devices, module.driverName).entity == nullptr;
    });
    return shown;
}

}  // namespace oisctl

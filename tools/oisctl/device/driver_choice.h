#pragma once
// Which lens entity the driver takes for a module, and why it passes over the others: its own rules, applied
// to what a walk through the media graph found.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "device/media_walk.h"
#include "modules/module_description.h"

namespace oisctl {

// Of a media device.
enum class DeviceFate {
    kWalked,  // the driver looks for the lens here
    kNotOpened,
    kNoInfo,      // it does not say what it is
    kOtherModel,  // its model does not begin as that of a lens device
    kBehind,      // an earlier one is walked already
    kTooFar,      // its number is beyond those that the driver tries
};

// Of an entity.
enum class EntityFate {
    kTaken,
    kOtherDevice,  // the driver does not walk its device
    kNotReached,   // the walk's counting misses its id
    kNoLens,       // by its type
    kOtherName,    // it does not begin with the driver's name for the module
    kNoNode,       // the link to its node's name cannot be read
    kBehind,       // an earlier one is taken already
};

// Pointers are into the walk.
struct DriverChoice {
    const WalkedDevice* device = nullptr;           // null: the driver walks none
    const WalkedEntity* entity = nullptr;           // null: it takes none
    std::vector<DeviceFate> devices;                // of each device of the walk
    std::vector<std::vector<EntityFate>> entities;  // of each of its entities
};

// `driverName`: as the module's description has it.
DriverChoice choiceOf(const std::vector<WalkedDevice>& devices, std::string_view driverName);

// In words: "another model", "taken".
std::string_view wordsFor(DeviceFate fate);
std::string_view wordsFor(EntityFate fate);

std::vector<phone::ModuleDescription> shippedOnSubDevice();
// How the names of the shipped sub-device modules' lenses begin.
std::vector<std::string> shippedDriverNames();
// The shipped sub-device modules for which the driver takes a lens there.
std::vector<phone::ModuleDescription> modulesShownBy(const std::vector<WalkedDevice>& devices);

}  // namespace oisctl

#pragma once
// What a kernel's media graph has, step by step, each with the error that it ended with. It asks with plain
// system calls: of this machine's kernel, or, while the process has a phone, of whatever stands behind that
// one.

#include <cstdint>
#include <string>
#include <vector>

namespace oisctl {

// Everywhere an error is the step's errno, 0 when it succeeded.

struct WalkedPad {
    uint16_t index = 0;
    uint32_t flags = 0;  // MEDIA_PAD_FL_*
};

struct WalkedLink {
    uint32_t sourceEntity = 0;
    uint16_t sourcePad = 0;
    uint32_t sinkEntity = 0;
    uint16_t sinkPad = 0;
    uint32_t flags = 0;  // MEDIA_LNK_FL_*
};

struct WalkedEntity {
    uint32_t id = 0;
    std::string name{};
    uint32_t type = 0;  // MEDIA_ENT_*
    uint32_t major = 0;
    uint32_t minor = 0;
    std::string node{};  // "/dev/v4l-subdev10"; empty: it has none, or the link to its name cannot be read
    int linkError = 0;   // of reading that link
    std::vector<WalkedPad> pads{};
    std::vector<WalkedLink> links{};  // that begin here
    int padsError = 0;                // of asking for both

    // Of the link whose target names the node.
    std::string linkPath() const;
};

struct WalkedDevice {
    int number = 0;  // of /dev/mediaN
    std::string path{};
    int openError = 0;
    int infoError = 0;
    std::string driver{};
    std::string model{};
    std::string bus{};
    std::vector<WalkedEntity> entities{};  // all of them
    int entitiesError = 0;                 // what ended their list early
    // Ids of the entities that the driver's own walk meets, which counts instead of going from id to id: an
    // entity may be met more than once, or never.
    std::vector<uint32_t> counted{};
};

// How far the driver goes: /dev/media0 to 31, and 32 steps through the entities of one.
constexpr int kDriverMediaNodes = 32;
constexpr uint32_t kDriverEntitySteps = 32;

// Every media device that there is, those that cannot be opened too. Nothing but media devices is opened.
std::vector<WalkedDevice> walkMedia();

// Opens a lens's node as the driver does, and closes it: its error.
int openErrorOf(const std::string& node);

}  // namespace oisctl

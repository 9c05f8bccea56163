#pragma once
// Where a way to a controller ended before anything got through, and what to do about it.

#include <string>
#include <string_view>
#include <vector>

#include "device/media_walk.h"

namespace oisctl {

enum class EndPlace {
    kModule,         // it has no OIS, or it is switched off
    kInit,           // it could not start its work
    kMediaDevices,   // there are none
    kMediaRequests,  // a media device cannot be opened, or does not answer
    kMediaModel,     // none is a lens device
    kLensName,       // it has no such lens
    kNodeLink,       // what the lens's node is called cannot be read
    kNode,           // it cannot be opened
    kHub,            // its service is not there
    kCommands,       // none was carried out
    kNoCommand,      // none was sent
};

// What was seen on the way to a lens's node, by whoever went there.
struct WaySeen {
    struct Step {
        std::string at{};  // a path, or a request's name
        int error = 0;     // errno; 0: not reached, or done
    };
    bool tried = false;                 // to open any media device
    Step refusedMedia{};                // the first that could not be opened, or did not answer
    std::vector<std::string> models{};  // of the media devices that answered
    std::string lensDevice{};           // the one that is looked through: its path
    std::vector<std::string> lenses{};  // the names of its lens entities
    Step link{};
    Step node{};
};

struct WayEnd {
    EndPlace place = EndPlace::kNoCommand;
    WaySeen::Step step{};               // where it ended, if that is a place that has a name
    std::vector<std::string> wanted{};  // how a name there may begin
    std::vector<std::string> seen{};    // what there is instead
};

// `driverNames`: how the lens entity's name may begin.
WayEnd endOf(const WaySeen& seen, std::vector<std::string> driverNames);
// Where the driver's would end there, for a lens that it does not take.
WayEnd endOf(const std::vector<WalkedDevice>& devices, const std::string& driverName);
// What the driver would see there, up to the lens.
WaySeen seenIn(const std::vector<WalkedDevice>& devices);

// For programs: "no media device".
std::string_view keyOf(EndPlace place);
// For people.
struct WayText {
    std::string what;    // "/dev/v4l-subdev3 cannot be opened: EACCES (Permission denied)"
    std::string advice;  // what to do
};
WayText textOf(const WayEnd& end);

}  // namespace oisctl

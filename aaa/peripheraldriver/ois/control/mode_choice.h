#pragma once
// Which working mode a request of the 3A layer asks for.

#include <cstdint>

namespace ois {

struct ModeRequest {
    bool stabilisationOn;  // OIS is switched on dynamically
    bool requestedByTag;   // the request asks for stabilisation
    bool video;            // video is recorded
    float zoom;            // effective zoom ratio
    int32_t scenario;
    bool concernsThisSensor;  // the scenario's sensor is this one
    bool scenarioFlagSet;
};

enum WorkingMode : int32_t {
    kModeOff = 0,
    kModeStill = 2,
    kModeVideo = 3,
    kModeHighZoom = 6,
    kModeScenario = 10,
};

constexpr float kHighZoom = 8.0F;             // above it, still capture uses the high-zoom mode
constexpr int32_t kMultiCameraScenario = 31;  // the scenario that decides between several sensors

constexpr WorkingMode chooseMode(const ModeRequest& request) {
    if (!request.stabilisationOn || !request.requestedByTag) return kModeOff;
    if (request.video) return kModeVideo;
    if (request.zoom > kHighZoom) return kModeHighZoom;
    if (request.scenario != kMultiCameraScenario) return kModeStill;
    if (!request.concernsThisSensor) return kModeOff;
    return request.scenarioFlagSet ? kModeStill : kModeScenario;
}

}  // namespace ois

#include "modules/module_checks.h"

#include <fmt/core.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "modules/module_description.h"
#include "wire/layout.h"

namespace phone {

namespace {

using Doubts = std::vector<std::string>;

void checkNames(const ModuleDescription& module, Doubts& doubts) {
    const std::string_view chip = ois::textOf(module.custInfo.mOisIcName);
    if (module.driverName.empty()) {
        doubts.emplace_back("driverName is empty: the driver takes the first lens entity, whatever it is");
    }
    if (!module.entityName.empty() && !module.entityName.starts_with(module.driverName)) {
        doubts.push_back(
            fmt::format("controller.entityName is \"{}\", which does not begin with driverName, \"{}\": the "
                        "driver does not find it",
                        module.entityName, module.driverName));
    }
    if (chip != "korvas4sw" && chip != "dw9786" && chip != "dw9781") {
        doubts.push_back(
            fmt::format("mOisIcName is \"{}\": the driver knows fix-mode targets of korvas4sw, "
                        "dw9786 and dw9781 only",
                        chip));
    }
    for (const auto& [field, name] :
         {std::pair("mOisIcName", chip),
          std::pair("cameraTypeName", ois::textOf(module.custInfo.cameraTypeName))}) {
        if (name.find('/') == std::string_view::npos) continue;
        doubts.push_back(
            fmt::format("{} is \"{}\": dump files have it in their names, which hold no '/'", field, name));
    }
}

// The gains that the format reads, and those it does not.
void checkGain(const ModuleDescription& module, char axis, float real, int32_t integer, Doubts& doubts) {
    constexpr int32_t kLargest = std::numeric_limits<int32_t>::max() / ois::kIntegerGainNumerator;
    const uint16_t format = module.custInfo.gainFormat;
    const bool readsReal = format == ois::kGainFloat;
    const std::string read = fmt::format("controller.gain.value{}{}", axis, readsReal ? 'f' : 'i');
    if (readsReal ? real == 0 : integer == 0) {
        const bool other = readsReal ? integer != 0 : real != 0;
        doubts.push_back(fmt::format("{} is 0, and gainFormat {} reads it{}", read, format,
                                     other ? "; the value of the other coding does not count" : ""));
    }
    if (format == ois::kGainInteger && (integer > kLargest || integer < -kLargest)) {
        doubts.push_back(
            fmt::format("{} is {}: beyond {} the driver's arithmetic overflows", read, integer, kLargest));
    }
}

// Behind the hub the driver does not derive a hall amplitude.
void checkCalibration(const ModuleDescription& module, Doubts& doubts) {
    if (module.behindHub()) return;
    checkGain(module, 'X', module.gain.valueXf, module.gain.valueXi, doubts);
    checkGain(module, 'Y', module.gain.valueYf, module.gain.valueYi, doubts);
    const std::array<double, 2> amplitudes = calibratedHallPerAngle(module);
    const char* source = "the gains";
    if (module.custInfo.gainFormat == ois::kGainFloat) source = "the gains and angleAmplitude";
    if (module.custInfo.gainFormat == ois::kGainQ31) source = "hallRange and controller.hallInfo";
    for (size_t axis = 0; axis < amplitudes.size(); ++axis) {
        const double amplitude = amplitudes[axis];
        const bool crossed = module.custInfo.gainFormat == ois::kGainQ31 && amplitude < 0;
        if (std::isfinite(amplitude) && amplitude != 0 && !crossed) continue;
        doubts.push_back(fmt::format("{} make the driver's hall amplitude {} of {}{}", source, amplitude,
                                     axis == 0 ? 'x' : 'y',
                                     crossed ? ": upper and lower limit are crossed" : ""));
    }
}

void checkTestPositions(const ModuleDescription& module, Doubts& doubts) {
    const ois::OisCustInfo& info = module.custInfo;
    const StabiliserSettings& lens = module.stabiliser;
    for (size_t i = 0; i < info.coordinateNum; ++i) {
        if (std::abs(info.coordinateX[i]) <= lens.limitAngle * std::abs(lens.hallPerAngleX) &&
            std::abs(info.coordinateY[i]) <= lens.limitAngle * std::abs(lens.hallPerAngleY)) {
            continue;
        }
        doubts.push_back(fmt::format(
            "test position {} at {}, {} is out of the lens' reach, {} deg: a sound lens fails there", i,
            info.coordinateX[i], info.coordinateY[i], lens.limitAngle));
        return;
    }
}

void checkDetector(const ModuleDescription& module, Doubts& doubts) {
    const ois::OisCustInfo& info = module.custInfo;
    if (info.actuatorDetectSupport == 0) return;
    if (info.coordinateNum == 0) {
        doubts.emplace_back("coordinateNum is 0: the defect detector moves nothing and finds nothing");
        return;
    }
    for (const auto& [field, threshold] :
         {std::pair("max_error_threshold", info.max_error_threshold),
          std::pair("max_sum_error_threshold", info.max_sum_error_threshold)}) {
        if (threshold != 0) continue;
        doubts.push_back(fmt::format("{} is 0: the defect detector takes every lens for defective", field));
    }
    checkTestPositions(module, doubts);
}

void checkFeatures(const ModuleDescription& module, Doubts& doubts) {
    constexpr uint16_t kLastCameraType = 2;
    const ois::OisCustInfo& info = module.custInfo;
    if (info.actOisSupport > 1) {
        doubts.push_back(
            fmt::format("actOisSupport is {}: the driver takes 1 alone for a yes", info.actOisSupport));
    }
    if (info.camera_type > kLastCameraType) {
        doubts.push_back(fmt::format("camera_type is {}: the driver compensates AF drift for 1 and 2 alone",
                                     info.camera_type));
    }
    if (info.zoomActOisSupport != 0 && module.behindHub()) {
        doubts.push_back(fmt::format(
            "zoomActOisSupport is {}: zoom-triggered active OIS goes to the lens sub-device, not to the hub",
            info.zoomActOisSupport));
    }
    if (info.accSupport != 0 && info.accDistance == 0) {
        doubts.emplace_back(
            "accDistance is 0: until a distance is known, acceleration is compensated for 0 mm");
    }
}

}  // namespace

std::vector<std::string> doubtsAbout(const ModuleDescription& module) {
    Doubts doubts;
    if (!module.hasOis) return doubts;
    checkNames(module, doubts);
    checkCalibration(module, doubts);
    checkDetector(module, doubts);
    checkFeatures(module, doubts);
    return doubts;
}

}  // namespace phone

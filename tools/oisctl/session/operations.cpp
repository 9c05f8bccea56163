#include "session/operations.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "base/errors.h"
#include "base/number.h"
#include "base/suggest.h"

namespace oisctl {

namespace {

constexpr int32_t kWriteGainX = 15;
constexpr int32_t kWriteGainY = 16;
// The driver takes numbers beyond these as gains to write, in 1/10000: the x gain below, the y gain above.
constexpr int32_t kLeastPlain = -2;
constexpr int32_t kGreatestPlain = 26;
constexpr double kGainUnit = 1e4;
constexpr double kMaxGain = 200000;

}  // namespace

const std::vector<OperationInfo>& operations() {
    static const std::vector<OperationInfo> all{
        {kStabilisationOff, "off", "stabilisation off"},
        {1, "on", "stabilisation on"},
        {kGyroOffset, "gyro-offset", "measure and keep the gyro offset", true},
        {kReadGainX, "read-gain-x", "read the x gain, in 1/10000"},
        {kReadGainY, "read-gain-y", "read the y gain, in 1/10000"},
        {11, "acc-on", "accelerometer compensation on, at the module's default distance"},
        {12, "acc-off", "accelerometer compensation off"},
        {kWriteGainX, "write-gain-x", "write the x gain: a value, or without one 15/10000", true},
        {kWriteGainY, "write-gain-y", "write the y gain: a value, or without one 16/10000", true},
        {18, "operation-18", "the controller's own operation 18"},
        {kDetectDefect, "detect-defect",
         "start the actuator defect detector, or join one that found a defect"},
    };
    return all;
}

std::vector<std::string> operationNames() {
    return namesIn(operations(), &OperationInfo::name);
}

const OperationInfo* findOperation(int32_t number) {
    if (number < kLeastPlain) number = kWriteGainX;
    if (number > kGreatestPlain) number = kWriteGainY;
    const auto& all = operations();
    const auto found =
        std::find_if(all.begin(), all.end(), [number](const auto& info) { return info.number == number; });
    return found == all.end() ? nullptr : &*found;
}

bool writesCalibration(int32_t operation) {
    const OperationInfo* info = findOperation(operation);
    return info != nullptr && info->writes;
}

int32_t operationNumber(const std::string& nameOrNumber) {
    for (const OperationInfo& info : operations())
        if (info.name == nameOrNumber) return info.number;
    if (const auto number = numberOf<int32_t>(nameOrNumber)) return *number;
    const std::vector<std::string> names = operationNames();
    throw InputError(nameOrNumber + ": no such operation" + suggestion(nameOrNumber, names) +
                     (nearest(nameOrNumber, names).empty() ? ", or a number" : ""));
}

int32_t gainOperation(int32_t operation, double gain) {
    const bool isX = operation == kWriteGainX;
    if (!isX && operation != kWriteGainY)
        throw InputError(fmt::format("op {}: takes no value; write-gain-x and write-gain-y do", operation));
    const double least = (isX ? -kLeastPlain : kGreatestPlain) + 1;
    const double units = std::round(gain * kGainUnit);
    if (!(units >= least && gain <= kMaxGain)) {
        throw InputError(fmt::format("op {} {:.4f}: the gain may be {:.4f} to {:.0f}", operation, gain,
                                     least / kGainUnit, kMaxGain));
    }
    return static_cast<int32_t>(isX ? -units : units);
}

std::string gainText(int32_t value) {
    return fmt::format("{:.4f}", value / kGainUnit);
}

const std::vector<ModeInfo>& modes() {
    static const std::vector<ModeInfo> all{
        {0, "off"},
        {2, "on"},
        {3, "video"},
        {5, "sine test (properties only)"},
        {6, "still at high zoom"},
        {7, "sine test (properties only)"},
        {8, "the controller's own"},
        {9, "the controller's own"},
        {10, "still in scenario 31"},
    };
    return all;
}

std::vector<std::string> modeNumbers() {
    return namesIn(modes(), [](const ModeInfo& info) { return std::to_string(info.number); });
}

std::string_view modeMeaning(int32_t mode) {
    if (mode == -1) return "not set since the stream changed";
    const auto& all = modes();
    const auto found =
        std::find_if(all.begin(), all.end(), [mode](const auto& info) { return info.number == mode; });
    return found == all.end() ? "unsupported" : found->meaning;
}

}  // namespace oisctl

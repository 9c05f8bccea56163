#pragma once
// The driver's one-shot operations and working modes by name.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace oisctl {

struct OperationInfo {
    int32_t number;
    std::string_view name;
    std::string_view meaning;
    bool writes = false;  // changes calibration, or keeps it
};
constexpr int32_t kStabilisationOff = 0;
constexpr int32_t kGyroOffset = 2;
constexpr int32_t kReadGainX = 5;
constexpr int32_t kReadGainY = 6;
constexpr int32_t kDetectDefect = 19;
// Of a request that runs an operation (engineer_mode), and its operation for none.
constexpr int32_t kEngineeringMode = 8;
constexpr int32_t kNoOperation = -1;
// Those that the driver supports.
const std::vector<OperationInfo>& operations();
std::vector<std::string> operationNames();
// Null for a number that no supported operation has. A number that writes a gain counts as that operation.
const OperationInfo* findOperation(int32_t number);
bool writesCalibration(int32_t operation);

// The number behind "gyro-offset" or "5". Throws InputError.
int32_t operationNumber(const std::string& nameOrNumber);
// The number that writes this gain, where the operation writes one. Throws InputError.
int32_t gainOperation(int32_t operation, double gain);
// "1.2500": a gain as the operations have it, in 1/10000.
std::string gainText(int32_t value);

struct ModeInfo {
    int32_t number;
    std::string_view meaning;
};
// Those that the driver supports.
const std::vector<ModeInfo>& modes();
std::vector<std::string> modeNumbers();
// "on", "off", "video"; "unsupported" for a number that no mode has.
std::string_view modeMeaning(int32_t mode);

}  // namespace oisctl

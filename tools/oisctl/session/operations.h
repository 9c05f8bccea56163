#pragma once
// The driver's one-shot operations and working modes by name.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace oisctl {

struct OperationInfo {
    int32_t number;
    std::string_view name;
    std::string_view meaning;
};
// Those that the driver supports.
const std::vector<OperationInfo>& operations();
// Null for a number that no supported operation has. A number that writes a gain counts as that operation.
const OperationInfo* findOperation(int32_t number);

// The number behind "gyro-offset", "5", "write-gain-x" and a value. Throws InputError.
int32_t operationNumber(const std::string& nameOrNumber, std::optional<double> value);

struct ModeInfo {
    int32_t number;
    std::string_view meaning;
};
// Those that the driver supports.
const std::vector<ModeInfo>& modes();
// "on", "off", "video"; "unsupported" for a number that no mode has.
std::string_view modeMeaning(int32_t mode);

}  // namespace oisctl

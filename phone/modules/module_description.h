#pragma once
// What a camera module is: its customisation, and the controller it carries.

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "controllers/stabiliser.h"
#include "wire/customisation.h"
#include "wire/records.h"

namespace phone {

struct ModuleDescription {
    std::string name;     // how tools refer to it: "korvas4sw-hub"
    std::string summary;  // one line for `oisctl modules`
    std::string source;   // file it was read from, or "built in"

    // What the customisation library answers.
    bool hasOis = true;
    int32_t status = 0;
    std::string driverName;  // at most 31 characters; begins the entity's name in the media graph
    ois::OisCustInfo custInfo{};
    std::array<uint16_t, ois::kCustExtPlatformSize / 2> otpAddresses{};

    // The controller.
    std::string entityName;  // of the lens entity; driverName and an I2C address when empty
    ois::OisGain gain{};
    ois::OisHallInfo hallInfo{};
    StabiliserSettings stabiliser;
    uint32_t firmwareVersion = 0;
    uint32_t clockHz = 0;
    std::vector<uint8_t> otpImage;  // 2112 bytes
    uint32_t flashBase = 0;
    std::vector<uint8_t> flashData;  // at most 1536 bytes

    bool behindHub() const { return custInfo.useSensorHub != 0; }
};

// Hall counts per angle unit of x and y, as gains and hall calibration say. 0 or not finite where they say
// nothing.
std::array<double, 2> calibratedHallPerAngle(const ModuleDescription& module);

// Reads a description in TOML with the customisation's field names. Throws std::runtime_error "FILE:LINE:
// reason", naming the field, what it holds and what it may hold.
ModuleDescription loadModule(const std::filesystem::path& file);
ModuleDescription parseModule(std::string_view text, const std::string& source);

// The descriptions that ship, compiled in.
const std::vector<ModuleDescription>& shippedModules();
// A shipped module's name, else a file. Throws std::runtime_error that lists the names.
ModuleDescription moduleByName(const std::string& nameOrFile);
// The TOML text behind a name, to start a description of one's own from. Throws as moduleByName.
std::string moduleText(const std::string& nameOrFile);

}  // namespace phone

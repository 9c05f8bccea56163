#pragma once
// The flash of the chip behind the hub.

#include <array>
#include <cstdint>
#include <vector>

#include "wire/hub_commands.h"

namespace phone {

// What survives a loss of power.
struct KorvaFlash {
    static constexpr uint8_t kErased = 0xff;
    static constexpr uint32_t kNewClockHz = 24000000;

    std::vector<uint8_t> firmware = std::vector<uint8_t>(ois::kFirmwareImageSize, kErased);
    bool firmwareGood = false;  // set when a download was verified
    uint32_t firmwareVersion = 0;
    std::vector<uint8_t> otherData;
    std::array<int16_t, 2> gyroOffset{};
    uint32_t clockHz = kNewClockHz;
    uint32_t updatedClockHz = kNewClockHz;

    bool operator==(const KorvaFlash&) const = default;
};

}  // namespace phone

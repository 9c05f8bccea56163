#pragma once
// What a controller keeps without power.

#include <array>
#include <cstdint>
#include <optional>
#include <tuple>

#include "controllers/korva/flash.h"
#include "ois_drv.h"
#include "wire/records.h"

namespace phone {

struct KeptByController {
    ois::OisGain gain{};
    // Of a sub-device's controller, raw counts; empty: never measured.
    std::optional<std::array<int16_t, 2>> gyroOffset;
    // Of one behind the hub.
    KorvaFlash flash;

    bool operator==(const KeptByController& other) const {
        const auto values = [](const ois::OisGain& of) {
            return std::tuple(of.valueXf, of.valueYf, of.valueXi, of.valueYi);
        };
        return values(gain) == values(other.gain) && gyroOffset == other.gyroOffset && flash == other.flash;
    }
};

}  // namespace phone

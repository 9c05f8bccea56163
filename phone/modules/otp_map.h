#pragma once
// The module's one-time-programmable memory: which of its addresses holds what, and an image to go with that.

#include <array>
#include <cstdint>
#include <vector>

#include "wire/customisation.h"

namespace phone {

class TableReader;

using OtpAddresses = std::array<uint16_t, ois::kCustExtPlatformSize / 2>;

struct Otp {
    OtpAddresses addresses{};
    std::vector<uint8_t> image;  // 2112 bytes
};

// Reads the table "otp": "address" names the address, or the two addresses, of each field; "value" the bytes
// of some. Fields without a value get bytes that follow from "seed"; "programmed" names the groups that are
// in use, all of them by default. Throws as the reader does.
Otp readOtp(TableReader& otp);
// Memory in which nothing was programmed.
Otp emptyOtp();

}  // namespace phone

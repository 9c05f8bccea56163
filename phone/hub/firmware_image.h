#pragma once
// A firmware image of the Korva family, as the sensor hub holds it.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace phone {

// Always ois::kFirmwareImageSize bytes. The last word is the image's version.
class FirmwareImage {
  public:
    // An image made up for this version; the same version gives the same bytes.
    static FirmwareImage generate(uint32_t version);
    // Pads a short image with 0xff. With a version, the last word is set to it; an image that does not reach
    // the last word needs one. Throws std::invalid_argument saying what is wrong and what would be right.
    static FirmwareImage fromBytes(std::span<const uint8_t> bytes, std::optional<uint32_t> version = {});
    // The same from a file. Throws std::runtime_error whose text begins with the path.
    static FirmwareImage fromFile(const std::filesystem::path& file, std::optional<uint32_t> version = {});

    uint32_t version() const;
    // Sum of the little-endian 16-bit words, modulo 65536.
    uint16_t checkValue() const;
    std::span<const uint8_t> bytes() const { return mBytes; }

  private:
    explicit FirmwareImage(std::vector<uint8_t> bytes) : mBytes(std::move(bytes)) {}
    std::vector<uint8_t> mBytes;
};

// The word sum of any bytes; an odd last byte is ignored.
uint16_t korvaWordSum(std::span<const uint8_t> bytes);

}  // namespace phone

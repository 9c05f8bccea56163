#include "hub/firmware_image.h"

#include <fmt/core.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>

#include "base/file_content.h"
#include "wire/hub_commands.h"

namespace phone {

namespace {

constexpr size_t kVersionOffset = ois::kFirmwareImageSize - sizeof(uint32_t);
constexpr uint8_t kErased = 0xff;
constexpr unsigned kBitsPerByte = 8;

void storeWord(std::span<uint8_t> bytes, uint32_t word) {
    for (size_t i = 0; i < sizeof word; ++i) bytes[i] = static_cast<uint8_t>(word >> (kBitsPerByte * i));
}

}  // namespace

FirmwareImage FirmwareImage::generate(uint32_t version) {
    // Each phone asks for the same few anew.
    static std::mutex mutex;
    static std::map<uint32_t, std::vector<uint8_t>> generated;
    const std::lock_guard lock(mutex);
    std::vector<uint8_t>& bytes = generated[version];
    if (bytes.empty()) {
        bytes.resize(ois::kFirmwareImageSize);
        std::mt19937 random(version);
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
        storeWord(std::span(bytes).subspan(kVersionOffset), version);
    }
    return FirmwareImage(bytes);
}

FirmwareImage FirmwareImage::fromBytes(std::span<const uint8_t> bytes, std::optional<uint32_t> version) {
    if (bytes.empty() || bytes.size() > ois::kFirmwareImageSize) {
        throw std::invalid_argument(fmt::format("a firmware image of {} bytes; it may have 1 to {}",
                                                bytes.size(), ois::kFirmwareImageSize));
    }
    if (!version && bytes.size() < ois::kFirmwareImageSize) {
        throw std::invalid_argument(fmt::format(
            "a firmware image of {} bytes does not say its version, which is the last word of {} bytes; "
            "give the version beside it",
            bytes.size(), ois::kFirmwareImageSize));
    }
    std::vector<uint8_t> padded(bytes.begin(), bytes.end());
    padded.resize(ois::kFirmwareImageSize, kErased);
    if (version) storeWord(std::span(padded).subspan(kVersionOffset), *version);
    return FirmwareImage(std::move(padded));
}

FirmwareImage FirmwareImage::fromFile(const std::filesystem::path& file, std::optional<uint32_t> version) {
    const std::string content = readFile(file);
    try {
        return fromBytes({reinterpret_cast<const uint8_t*>(content.data()), content.size()}, version);
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(file.string() + ": " + error.what());
    }
}

uint32_t FirmwareImage::version() const {
    uint32_t word = 0;
    for (size_t i = sizeof word; i-- > 0;) word = word << kBitsPerByte | mBytes[kVersionOffset + i];
    return word;
}

uint16_t FirmwareImage::checkValue() const {
    return korvaWordSum(mBytes);
}

uint16_t korvaWordSum(std::span<const uint8_t> bytes) {
    uint32_t sum = 0;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        sum += bytes[i] + (static_cast<uint32_t>(bytes[i + 1]) << kBitsPerByte);
    }
    return static_cast<uint16_t>(sum);
}

}  // namespace phone

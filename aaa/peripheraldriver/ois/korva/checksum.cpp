// The checksum of firmware images.

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "ois_drv.h"

namespace {

// As many words as a vector register holds, so that one instruction adds them.
using Lanes = std::array<uint16_t, 8>;
static_assert(std::endian::native == std::endian::little, "the image's words are little-endian");

void addWords(Lanes& sum, const uint8_t* bytes) {
    Lanes words;
    std::memcpy(words.data(), bytes, sizeof words);
    for (size_t lane = 0; lane < words.size(); ++lane)
        sum[lane] = static_cast<uint16_t>(sum[lane] + words[lane]);
}

}  // namespace

uint16_t OISDrv::korvas4sw_fw_checksum(const void* image, uint16_t size) {
    const auto* bytes = static_cast<const uint8_t*>(image);
    // Four sums that do not wait for each other; the sum wraps, so the order of its words is free.
    Lanes sum0{};
    Lanes sum1{};
    Lanes sum2{};
    Lanes sum3{};
    constexpr size_t kStep = 4 * sizeof(Lanes);
    size_t next = 0;
    for (; next + kStep <= size; next += kStep) {
        addWords(sum0, bytes + next);
        addWords(sum1, bytes + next + sizeof(Lanes));
        addWords(sum2, bytes + next + 2 * sizeof(Lanes));
        addWords(sum3, bytes + next + 3 * sizeof(Lanes));
    }
    uint16_t sum = 0;
    for (size_t lane = 0; lane < sum0.size(); ++lane) {
        sum = static_cast<uint16_t>(sum + sum0[lane] + sum1[lane] + sum2[lane] + sum3[lane]);
    }
    for (; next + sizeof(uint16_t) <= size; next += sizeof(uint16_t)) {
        uint16_t word;
        std::memcpy(&word, bytes + next, sizeof word);
        sum = static_cast<uint16_t>(sum + word);
    }
    return sum;
}

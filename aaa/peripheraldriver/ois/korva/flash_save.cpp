// Saving a Korva S4SW controller's working data to its flash, and the checksum of firmware images.

#include <unistd.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "korva/register_access.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::korva::Register;
using ois::korva::RegisterAccess;

namespace {

constexpr useconds_t kCheckValueUs = 5000;
constexpr useconds_t kBeforeWriteUs = 2000;
constexpr useconds_t kFlashWriteUs = 500000;
constexpr useconds_t kApplyUs = 15000;

// The check value of the flash data that a save must leave as it is.
uint16_t readOtherFlashCheckValue(const RegisterAccess& controller) {
    controller.write(Register::kFlashCheckRequest, ois::korva::kStart);
    usleep(kCheckValueUs);
    return controller.read(Register::kFlashCheckValue, ois::korva::kStart);
}

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

int32_t OISDrv::korvas4sw_flash_save() {
    const RegisterAccess controller = registers();
    const auto savedMode = controller.read(Register::kStabilisationMode);
    if (korvas4sw_set_idle() == 0) {
        OIS_LOG(kDebug, "invalid ic status, skip calibration\n");
        return 0;
    }
    const uint16_t checkBefore = readOtherFlashCheckValue(controller);
    usleep(kBeforeWriteUs);
    controller.write(Register::kFlashWrite, ois::korva::kStart);
    usleep(kFlashWriteUs);
    if (controller.read(Register::kStatus, ois::korva::kStart) != 0) {
        OIS_LOG(kDebug, "flash write error\n");
        return 0;  // idle, the mode not restored
    }
    OIS_LOG(kDebug, "flash write success\n");

    ois::korva::applySettings(controller);
    usleep(kApplyUs);
    const uint16_t checkAfter = readOtherFlashCheckValue(controller);
    if (checkAfter != checkBefore) {
        OIS_LOG(kDebug, "flash write error, other flash data was rewrite\n");
        return 0;  // likewise
    }
    OIS_LOG(kDebug, "flash write success, other flash data was default\n");
    controller.write(Register::kStabilisationMode, savedMode);
    controller.write(Register::kControl, ois::korva::kControlRestart);
    OIS_LOG(kDebug, "ois flash save success (%d)\n", 0);
    return 0;
}

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

// The download of firmware: erase, blocks, verification.

#include <algorithm>
#include <utility>

#include "controllers/korva/machine.h"
#include "time/clock.h"
#include "wire/hub_commands.h"

namespace phone {

void KorvaMachine::addUpdateStatus(uint16_t bits) {
    registers.set(Register::kUpdateStatus,
                  static_cast<uint16_t>(registers.get(Register::kUpdateStatus) | bits));
}

void KorvaMachine::openDownload() {
    registers.set(Register::kUpdateStatus, 0);
    if (state() != KorvaState::kIdle) {
        addUpdateStatus(korva_update::kNotOpen);
        return;
    }
    mDownloadOpen = true;
    flash.firmwareGood = false;
    std::ranges::fill(flash.firmware, KorvaFlash::kErased);
    registers.set(Register::kFirmwareVersion, 0);
    mUnderway.flashBusyUntilUs = dueIn(mTiming.eraseUs);
}

void KorvaMachine::program(uint32_t at, std::span<const uint8_t> block) {
    const uint32_t number = at / ois::kFirmwareBlockSize;
    if (consult("power-cut", "power lost", number)) return powerOn();
    if (consult("block-lost", "block lost", number)) return;
    if (!mDownloadOpen) return addUpdateStatus(korva_update::kNotOpen);
    if (at >= flash.firmware.size() || block.size() > flash.firmware.size() - at) {
        return addUpdateStatus(korva_update::kAddress);
    }
    if (mClock.nowUs() < mUnderway.flashBusyUntilUs) return addUpdateStatus(korva_update::kTooEarly);

    std::ranges::copy(block, flash.firmware.begin() + at);
    mUnderway.flashBusyUntilUs = dueIn(mTiming.blockUs);
    if (!block.empty() && consult("block-corrupted", "block corrupted", number)) flash.firmware[at] ^= 1;
    if (const Fate fate = consult("download-error", "block leaves error bits")) {
        addUpdateStatus(static_cast<uint16_t>(fate.value()));
    }
}

void KorvaMachine::startVerify() {
    const uint32_t written = registers.get(Register::kImageCheckValue);
    if ((written & ois::korva::kImageCheckValid) == 0) return;
    if (!mDownloadOpen) return addUpdateStatus(korva_update::kNotOpen);
    mPendingCheckValue = written & UINT16_MAX;
    addUpdateStatus(korva_update::kBusy);
    mUnderway.verify = std::max(mClock.nowUs(), mUnderway.flashBusyUntilUs) + mTiming.verifyUs;
}

void KorvaMachine::finishVerify() {
    if (!std::exchange(mDownloadOpen, false)) return;
    registers.set(Register::kFlashDownload, 0);
    const Fate refused = consult("check-value-wrong", "check value refused");
    if (refused || korvaWordSum(flash.firmware) != mPendingCheckValue) {
        registers.set(Register::kUpdateStatus, korva_update::kCheckValue);
        return;
    }
    registers.set(Register::kUpdateStatus, 0);
    flash.firmwareGood = true;
    flash.firmwareVersion = FirmwareImage::fromBytes(flash.firmware).version();
    if (consult("version-mismatch", "reports the version below the image's")) --flash.firmwareVersion;
    registers.set(Register::kFirmwareVersion, flash.firmwareVersion);
}

}  // namespace phone

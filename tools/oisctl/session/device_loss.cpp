#include "session/device_loss.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "session/calls.h"

namespace oisctl {

namespace {

// How buses tell that nobody answers; each may also be a moment's trouble.
constexpr std::array kNobodyAnswers = {EIO, ENXIO, EREMOTEIO, ETIMEDOUT};

}  // namespace

void DeviceLoss::take(const phone::Event& command) {
    if (command.kind != phone::EventKind::kSubDevice || mEvidence) return;
    if (command.error == ENODEV) {
        mEvidence = command;
    } else if (wasDelivered(command)) {
        mWorked.insert(command.code);
        mRow = 0;
    } else if (std::ranges::count(kNobodyAnswers, command.error) != 0 && mWorked.contains(command.code)) {
        if (mRow++ == 0) mFirstOfRow = command;
        if (mRow == kRowThatTells) mEvidence = mFirstOfRow;
    }
}

}  // namespace oisctl

#include "session/device_loss.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "session/calls.h"
#include "wire/requests.h"

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
        mWasThere = true;
        mRow = 0;
    } else if (std::ranges::count(kNobodyAnswers, command.error) != 0 && mWasThere) {
        const bool last = ois::Request{command.code} == ois::Request::kEndSession;
        if (++mRow >= (last ? kRowToTheEnd : kRowThatTells)) mEvidence = command;
    }
}

bool saysSo(const phone::Event& evidence) {
    return evidence.error == ENODEV;
}

}  // namespace oisctl

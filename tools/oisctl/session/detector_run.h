#pragma once
// A run of the driver's defect detector, from the order to the end of its thread.

#include <array>
#include <cstdint>
#include <functional>

#include "session/driver_session.h"

namespace oisctl {

// Tracking errors of one axis, as the driver measures them.
struct AxisErrors {
    double largest = 0;
    double sum = 0;
    bool tooFarAtOnce(const ois::OisCustInfo& info) const { return largest >= info.max_error_threshold; }
    bool tooFarInSum(const ois::OisCustInfo& info) const { return sum >= info.max_sum_error_threshold; }
};

// What a run came to, of the positions that were really read back.
struct DetectorRun {
    uint64_t positions = 0;
    uint64_t hallsRead = 0;  // of lenses that were told to go there
    std::array<AxisErrors, 2> axes;
    bool complete() const { return hallsRead > 0 && hallsRead == positions; }
};

// Called with each event of a run, and what was seen so far.
using DetectorProgress = std::function<void(const DetectorRun&)>;

// Makes the call `order`, which starts the detector, and waits for its end: its thread is one that no close
// waits for. Takes the session's observer meanwhile.
DetectorRun followDetector(DriverSession& session, const std::function<void()>& order,
                           const DetectorProgress& progress = nullptr);

// Makes the call `order`, which has the driver run `operation`. The detector's outcome is no result of that
// call: a defect that was read back is counted as a failure, and so is a run that moved the lens and had no
// answer at all, unless the reason was counted already.
void carryOut(DriverSession& session, int32_t operation, const std::function<void()>& order);

}  // namespace oisctl

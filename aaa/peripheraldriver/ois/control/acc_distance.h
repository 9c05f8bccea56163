#pragma once
// The object distance in an accelerometer-compensation record.

#include <cstdint>

#include "numeric.h"
#include "ois_drv.h"

namespace ois {

// Fills the record's three forms of a distance in mm.
inline void setAccDistance(ois_acc_params& params, int32_t distanceMm) {
    constexpr double kMmPerM = 1000.0;
    constexpr double kSixteenth = 0.0625;
    constexpr double kHighestQ31 = 2147483647.0;  // not 2^31: the record counts in its highest value
    params.distance = distanceMm;
    params.distanceF = static_cast<float>(distanceMm);
    params.distanceQ31 =
        toInt32((1.0 / (static_cast<double>(distanceMm) / kMmPerM)) * kSixteenth * kHighestQ31);
}

}  // namespace ois

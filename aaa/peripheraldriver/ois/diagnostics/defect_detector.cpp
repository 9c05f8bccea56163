// The actuator defect detector: walks the lens through the module's test coordinates and measures how well it
// follows.

#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstring>

#include "log.h"
#include "numeric.h"
#include "ois_drv.h"
#include "shared_field.h"

namespace command = ois::command;
using ois::loadShared;
using ois::storeShared;

namespace {

constexpr useconds_t kLensSettleUs = 40000;
constexpr int32_t kMaximumTripped = -1;
constexpr int32_t kSumTripped = -2;

struct AxisPair {
    float x = 0.0F;
    float y = 0.0F;
};

// The coordinate of an index. Those past the arrays are read from what follows them in the block, as far as
// it reaches, and as 0 beyond.
float coordinateAt(const ois::OisCustInfo& custInfo, size_t arrayOffset, size_t index) {
    const size_t offset = arrayOffset + index * sizeof(float);
    float coordinate = 0.0F;
    if (offset + sizeof coordinate > sizeof custInfo) return coordinate;
    std::memcpy(&coordinate, reinterpret_cast<const std::byte*>(&custInfo) + offset, sizeof coordinate);
    return coordinate;
}

AxisPair coordinatesAt(const ois::OisCustInfo& custInfo, size_t index) {
    return {coordinateAt(custInfo, offsetof(ois::OisCustInfo, coordinateX), index),
            coordinateAt(custInfo, offsetof(ois::OisCustInfo, coordinateY), index)};
}

bool reaches(const AxisPair& value, float limit) {
    return value.x >= limit || value.y >= limit;
}

}  // namespace

int32_t OISDrv::DetectActutorDefect() {
    storeShared(mDefectDetectDone, 0);
    OIS_LOG(kInfo, "mOisFeature.coordinateNum (%d)\n", loadShared(mOisCustInfo.coordinateNum));
    int32_t result = 0;
    AxisPair maximum;
    AxisPair sum;
    for (size_t index = 0; index < loadShared(mOisCustInfo.coordinateNum); ++index) {
        const ois::OisCustInfo custInfo = ois::snapshot(mOisCustInfo);
        const AxisPair coordinate = coordinatesAt(custInfo, index);
        const AxisPair target{static_cast<float>(loadShared(mOisCalibInfo.hall_center_x)) + coordinate.x,
                              static_cast<float>(loadShared(mOisCalibInfo.hall_center_y)) + coordinate.y};
        result = moveLensAndReadHall(ois::toInt32(target.x), ois::toInt32(target.y));
        const int32_t hallX = loadShared(mFixMode.hall_x);
        const int32_t hallY = loadShared(mFixMode.hall_y);
        // Measured against the target before it was truncated.
        const AxisPair error{std::fabs(target.x - static_cast<float>(hallX)),
                             std::fabs(target.y - static_cast<float>(hallY))};
        // The last slot does not fit its value, deliberately: error_y is never printed. Likewise below.
        OIS_LOG_UNCHECKED(kInfo,
                          "index (%d), target_x (%f), target_y (%f), hall_x (%d), hall_y (%d), error_x (%f), "
                          "error_y (%d)\n",
                          static_cast<int>(index), static_cast<double>(coordinate.x),
                          static_cast<double>(coordinate.y), hallX, hallY, static_cast<double>(error.x),
                          static_cast<double>(error.y));
        if (error.x > maximum.x) maximum.x = error.x;
        if (error.y > maximum.y) maximum.y = error.y;
        if (reaches(maximum, custInfo.max_error_threshold)) {
            markDefect(maximum.x > maximum.y ? maximum.x : maximum.y);
            OIS_LOG_UNCHECKED(kInfo,
                              "trigger_max_error, max_error_threshold (%f), error_x (%f), error_y (%d)\n",
                              static_cast<double>(custInfo.max_error_threshold),
                              static_cast<double>(maximum.x), static_cast<double>(maximum.y));
            return kMaximumTripped;
        }
        sum.x += error.x;
        sum.y += error.y;
        if (reaches(sum, custInfo.max_sum_error_threshold)) {
            markDefect(sum.x > sum.y ? sum.x : sum.y);
            // Prints the single-error limit under the sum's label.
            OIS_LOG_UNCHECKED(kInfo,
                              "trigger_max_sum_error, max_sum_error_threshold (%f), sum_error_x (%f), "
                              "sum_error_y (%d)\n",
                              static_cast<double>(custInfo.max_error_threshold), static_cast<double>(sum.x),
                              static_cast<double>(sum.y));
            return kSumTripped;
        }
    }
    return result;
}

// The read-back's result. The record is the worker's own copy; what concerns others is put back into the
// member.
int32_t OISDrv::moveLensAndReadHall(int32_t targetX, int32_t targetY) {
    storeShared(mFixMode.target_x, targetX);
    storeShared(mFixMode.target_y, targetY);
    ois::OisFixMode record = ois::snapshot(mFixMode);
    send(command::kSetFixMode, record);
    usleep(kLensSettleUs);
    const int32_t result = send(command::kGetHall, record);
    storeShared(mFixMode.hall_x, record.hall_x);
    storeShared(mFixMode.hall_y, record.hall_y);
    return result;
}

void OISDrv::markDefect(float error) {
    storeShared(mActuatorDefectError, ois::toInt32(error));
    storeShared(mDefectDetectDone, 1);
}

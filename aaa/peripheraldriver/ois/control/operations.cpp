// The one-shot operations.

#include "control/acc_distance.h"
#include "control/mode_choice.h"
#include "lifecycle/worker.h"
#include "log.h"
#include "numeric.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::loadShared;
using ois::storeShared;

namespace {

constexpr const char* kSetOperation = "SetOperation";  // the operation in whose name its steps log

// Values outside these limits write a per-axis value: the operation number is then the value.
constexpr int32_t kLowestOperation = -2;
constexpr int32_t kHighestOperation = 26;

enum Operation : int32_t {
    kStabilisationOff = 0,
    kStabilisationOn = 1,
    kSetGyroOffset = 2,
    kReadX = 5,
    kReadY = 6,
    kAccAtDefaultDistance = 11,
    kAccOff = 12,
    kWriteX = 15,
    kWriteY = 16,
    kOperation18 = 18,
    kDetectDefect = 19,
};

constexpr uint32_t kDefaultDistanceCount = 8;  // the record's count when these operations send it

int32_t operationCase(int32_t operation) {
    if (operation < kLowestOperation) return kWriteX;
    if (operation > kHighestOperation) return kWriteY;
    return operation;
}

}  // namespace

int32_t OISDrv::SetOperation(int32_t operation) {
    if (!isOpen()) return -1;
    const int32_t which = operationCase(operation);
    const bool writesValue = which == kWriteX || which == kWriteY;
    const int32_t value = writesValue ? ois::wrappingAbs(operation) : operation;
    const int32_t result = runOperation(which, value);
    OIS_LOG(kInfo, "ois_mode %d, return_value %d\n", value, result);
    return result;
}

int32_t OISDrv::runOperation(int32_t which, int32_t value) {
    switch (which) {
        case kStabilisationOff: {
            const int32_t result = sendModeWord(ois::kModeOff);
            OIS_LOG_AS(kSetOperation, kDebug, "ois disable successfully!\n");  // whatever the result
            return result;
        }
        case kStabilisationOn: {
            const int32_t result = sendModeWord(ois::kModeStill);
            OIS_LOG_AS(kSetOperation, kDebug, "ois enable successfully!\n");  // whatever the result
            return result;
        }
        case kSetGyroOffset:
            return setGyroOffset();
        case kReadX:
            return readGain(ois::kAxisX);
        case kReadY:
            return readGain(ois::kAxisY);
        case kAccAtDefaultDistance:
            return enableAccAtDefaultDistance();
        case kAccOff:
            return disableAcc();
        case kWriteX:
            return writeGain(ois::kAxisX, value);
        case kWriteY:
            return writeGain(ois::kAxisY, value);
        case kOperation18: {
            uint32_t zero = 0;
            return send(ois::command::kOperation18, zero);
        }
        case kDetectDefect:
            runDefectDetection();
            return 0;
        default:
            OIS_LOG_AS(kSetOperation, kError, "unsurpport operation %d\n", which);
            return 0;
    }
}

int32_t OISDrv::setGyroOffset() {
    uint32_t zero = 0;
    const int32_t result = send(ois::command::kSetGyroOffset, zero);
    if (result != 0) {
        OIS_LOG_AS(kSetOperation, kDebug, "ois set gyro offset failed!\n");
        return result;
    }
    OIS_LOG_AS(kSetOperation, kDebug, "ois set gyro offset successfully!\n");
    mOisErrorFlag = 1;  // success is what telemetry reports under its error key
    return 0;
}

int32_t OISDrv::enableAccAtDefaultDistance() {
    storeShared(mUseCustomCmd, 0);  // so that the family parser turns the record into registers
    mAccParams.enable = 1;
    ois::setAccDistance(mAccParams, loadShared(mOisCustInfo.accDistance));
    mAccParams.count = kDefaultDistanceCount;
    return send(ois::command::kSetAccParams, mAccParams);
}

int32_t OISDrv::disableAcc() {
    mAccParams.enable = 0;
    return send(ois::command::kSetAccParams, mAccParams);
}

// Starts a detector run, or takes leave of one that found a defect, so that the next operation can start
// another.
void OISDrv::runDefectDetection() {
    if (loadShared(mOisCustInfo.actuatorDetectSupport) == 0) return;
    if (!mDefectDetectThread.joinable()) {
        ois::startWorker(mDefectDetectThread, [this] { DetectActutorDefect(); });
    } else if (loadShared(mDefectDetectDone) != 0) {
        mDefectDetectThread.join();
    }
}

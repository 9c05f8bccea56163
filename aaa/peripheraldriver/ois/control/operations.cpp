// The working mode, and the one-shot operations.

#include <algorithm>
#include <array>

#include "camera_platform/properties.h"
#include "control/acc_distance.h"
#include "control/mode_choice.h"
#include "lifecycle/worker.h"
#include "log.h"
#include "numeric.h"
#include "ois_drv.h"
#include "shared_field.h"

using NSCam::Utils::Properties;
using ois::HubCommand;
using ois::loadShared;
using ois::Request;
using ois::storeShared;
using ois::log::Severity;

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
    kCommand7 = 18,
    kDetectDefect = 19,
};

constexpr uint32_t kAxisX = 0;
constexpr uint32_t kAxisY = 1;

// Per-axis values count in 1/10000.
constexpr float kValueUnits = 10000.0F;
constexpr float kFromQ31 = 4.656613e-10F;  // 2^-31
constexpr float kToQ31 = 2147483648.0F;

constexpr uint32_t kDefaultDistanceCount = 8;

bool isControllerMode(int32_t mode) {
    constexpr std::array<int32_t, 7> kModes = {0, 2, 3, 6, 8, 9, 10};
    return std::find(kModes.begin(), kModes.end(), mode) != kModes.end();
}

bool isSineTestMode(int32_t mode) {
    return mode == 5 || mode == 7;
}

int32_t operationCase(int32_t operation) {
    if (operation < kLowestOperation) return kWriteX;
    if (operation > kHighestOperation) return kWriteY;
    return operation;
}

}  // namespace

int32_t OISDrv::SetMode(int32_t mode) {
    if (!isOpen() || mode == mOisMode) return 0;
    mOisMode = mode;  // before it is looked at: an unsupported mode is remembered too
    if (isControllerMode(mode)) {
        const int32_t result = sendModeWord(static_cast<uint32_t>(mode));
        OIS_DEBUG("need update mode %d\n", mode);
        return result;
    }
    if (isSineTestMode(mode)) {
        loadSineParameters();
    } else {
        OIS_DEBUG("unsupport mode %d\n", mode);
    }
    return 0;
}

// Kept, but no command carries them.
void OISDrv::loadSineParameters() {
    mSineParam.enable = Properties::property_get_int32("vendor.debug.ois.sineEn", 3);
    mSineParam.frequency = Properties::property_get_int32("vendor.debug.ois.sineFre", 1);
    mSineParam.amplitudeX = Properties::property_get_int32("vendor.debug.ois.sineAmpX", 100);
    mSineParam.amplitudeY = Properties::property_get_int32("vendor.debug.ois.sineAmpY", 100);
}

int32_t OISDrv::SetOperation(int32_t operation) {
    if (!isOpen()) return -1;
    const int32_t which = operationCase(operation);
    const bool writesValue = which == kWriteX || which == kWriteY;
    const int32_t value = writesValue ? ois::wrappingAbs(operation) : operation;
    const int32_t result = runOperation(which, value);
    OIS_INFO("ois_mode %d, return_value %d\n", value, result);
    return result;
}

int32_t OISDrv::runOperation(int32_t which, int32_t value) {
    switch (which) {
        case kStabilisationOff: {
            const int32_t result = sendModeWord(ois::kModeOff);
            OIS_LOG(Severity::kDebug, kSetOperation, "ois disable successfully!\n");  // whatever the result
            return result;
        }
        case kStabilisationOn: {
            const int32_t result = sendModeWord(ois::kModeStill);
            OIS_LOG(Severity::kDebug, kSetOperation, "ois enable successfully!\n");  // whatever the result
            return result;
        }
        case kSetGyroOffset:
            return setGyroOffset();
        case kReadX:
            return readGain(kAxisX);
        case kReadY:
            return readGain(kAxisY);
        case kAccAtDefaultDistance:
            return enableAccAtDefaultDistance();
        case kAccOff:
            return disableAcc();
        case kWriteX:
            return writeGain(kAxisX, value);
        case kWriteY:
            return writeGain(kAxisY, value);
        case kCommand7: {
            uint32_t zero = 0;
            return transfer(Request::kOperation18, HubCommand::kOperation18, zero, sizeof zero);
        }
        case kDetectDefect:
            runDefectDetection();
            return 0;
        default:
            OIS_LOG(Severity::kError, kSetOperation, "unsurpport operation %d\n", which);
            return 0;
    }
}

int32_t OISDrv::sendModeWord(uint32_t word) {
    return transfer(Request::kSetMode, HubCommand::kSetMode, word, sizeof word);
}

int32_t OISDrv::setGyroOffset() {
    uint32_t zero = 0;
    const int32_t result = transfer(Request::kSetGyroOffset, HubCommand::kSetGyroOffset, zero, sizeof zero);
    if (result != 0) {
        OIS_LOG(Severity::kDebug, kSetOperation, "ois set gyro offset failed!\n");
        return result;
    }
    OIS_LOG(Severity::kDebug, kSetOperation, "ois set gyro offset successfully!\n");
    mOisErrorFlag = 1;  // success is what telemetry reports under its error key
    return 0;
}

// The axis' value in 1/10000, or the transfer's result when the module has no known gain format.
int32_t OISDrv::readGain(uint32_t axis) {
    storeShared(mOisGain.axis, axis);
    const int32_t result = transfer(Request::kReadGain, HubCommand::kReadGain, mOisGain, sizeof mOisGain,
                                    &mOisGain, sizeof mOisGain);
    const bool isX = axis == kAxisX;
    const int32_t integer = loadShared(isX ? mOisGain.valueXi : mOisGain.valueYi);
    switch (mOisCustInfo.gainFormat) {
        case ois::kGainQ31:
            return ois::toInt32(static_cast<float>(integer) * kFromQ31 * kValueUnits);
        case ois::kGainInteger:
            return integer;
        case ois::kGainFloat:
            return ois::toInt32(loadShared(isX ? mOisGain.valueXf : mOisGain.valueYf) * kValueUnits);
        default:
            return result;
    }
}

// `value` in 1/10000. Without a known gain format the record goes out as it stands.
int32_t OISDrv::writeGain(uint32_t axis, int32_t value) {
    storeShared(mOisGain.axis, axis);
    const bool isX = axis == kAxisX;
    const float fraction = static_cast<float>(value) / kValueUnits;
    switch (mOisCustInfo.gainFormat) {
        case ois::kGainQ31:
            storeShared(isX ? mOisGain.valueXi : mOisGain.valueYi, ois::toInt32(fraction * kToQ31));
            break;
        case ois::kGainInteger:
            storeShared(isX ? mOisGain.valueXi : mOisGain.valueYi, value);
            break;
        case ois::kGainFloat:
            storeShared(isX ? mOisGain.valueXf : mOisGain.valueYf, fraction);
            break;
        default:
            break;
    }
    return transfer(Request::kWriteGain, HubCommand::kWriteGain, mOisGain, sizeof mOisGain);
}

int32_t OISDrv::enableAccAtDefaultDistance() {
    storeShared(mUseCustomCmd, 0);  // so that the family parser turns the record into registers
    mAccParams.enable = 1;
    ois::setAccDistance(mAccParams, mOisCustInfo.accDistance);
    mAccParams.count = kDefaultDistanceCount;
    return transfer(Request::kSetAccParams, HubCommand::kSetAccParams, mAccParams, sizeof mAccParams);
}

int32_t OISDrv::disableAcc() {
    mAccParams.enable = 0;
    return transfer(Request::kSetAccParams, HubCommand::kSetAccParams, mAccParams, sizeof mAccParams);
}

// Starts a detector run, or takes leave of one that found a defect, so that the next operation can start
// another.
void OISDrv::runDefectDetection() {
    if (mOisCustInfo.actuatorDetectSupport == 0) return;
    if (!mDefectDetectThread.joinable()) {
        ois::startWorker(mDefectDetectThread, [this] { DetectActutorDefect(); });
    } else if (loadShared(mDefectDetectDone) != 0) {
        mDefectDetectThread.join();
    }
}

int32_t OISDrv::EnableOis(int32_t dynamic) {
    if (mIsOisSupport == 0 || !isOpen()) return 0;
    mOisDynamic = dynamic;
    OIS_DEBUG("mOisDynamic %d", mOisDynamic);
    return 0;
}

int32_t OISDrv::CheckIcStatus() {
    // The hub way does not count as open here.
    return loadShared(fd_driver) >= 1 ? checkStatus() : 0;
}

int32_t OISDrv::checkStatus() {
    // One byte travels; the length names the whole word.
    uint32_t zero = 0;
    return transfer(Request::kCheckStatus, HubCommand::kNoHubMeaning, zero, sizeof zero);
}

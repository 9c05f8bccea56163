#include "controllers/controller.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

#include "kernel/user_memory.h"
#include "modules/module_description.h"
#include "time/clock.h"

namespace phone {

namespace {

using ois::Request;

constexpr uint64_t kMicrosecondsPerSecond = 1000000;
constexpr double kTargetsPerAngle = 1000;  // targets travel in thousandths of the angle unit
constexpr double kMillimetresPerMetre = 1000;
constexpr int32_t kActiveOisWithAngle = 2;
constexpr int64_t kGyroWindowUs = 100000;  // over which the gyro's offset is measured

constexpr std::array kRequests = {
    Request::kSetMode,      Request::kSetGyroOffset, Request::kUpdateFirmware,   Request::kSetCustomisation,
    Request::kEndSession,   Request::kSetAccParams,  Request::kSetAfPosition,    Request::kOperation18,
    Request::kWriteGain,    Request::kReadGain,      Request::kReadHallInfo,     Request::kSetFixMode,
    Request::kNotifyStream, Request::kCheckStatus,   Request::kStartEngineering, Request::kSetActiveOis,
    Request::kGetHall,      Request::kReadStatus,    Request::kReadFlash,        Request::kSetZoomActiveOis,
};

constexpr size_t indexOf(Request request) {
    return _IOC_NR(ois::code(request)) - BASE_VIDIOC_PRIVATE;
}

constexpr auto kRequestByIndex = [] {
    std::array<uint32_t, 32> codes{};
    for (const Request request : kRequests) codes[indexOf(request)] = ois::code(request);
    return codes;
}();

template <typename Record>
Record load(std::span<const std::byte> bytes) {
    Record record{};
    std::memcpy(&record, bytes.data(), std::min(sizeof record, bytes.size()));
    return record;
}

template <typename Record>
void store(std::span<std::byte> bytes, const Record& record) {
    std::memcpy(bytes.data(), &record, std::min(sizeof record, bytes.size()));
}

int16_t saturate16(double value) {
    using Limits = std::numeric_limits<int16_t>;
    return static_cast<int16_t>(std::lround(std::clamp<double>(value, Limits::min(), Limits::max())));
}

// What a transfer of the module's flash area holds.
ois::OisFlashRecord flashOf(const ModuleDescription& module) {
    ois::OisFlashRecord flash{};
    flash.length = static_cast<uint32_t>(std::min(module.flashData.size(), sizeof flash.data));
    flash.base = module.flashBase;
    std::copy_n(module.flashData.begin(), flash.length, flash.data);
    return flash;
}

}  // namespace

Controller::Controller(const ModuleDescription& module, const Motion& motion, const Clock& clock,
                       Faults& faults)
    : mClock(clock), mStabiliser(motion, module.stabiliser), mLensFaults(faults) {
    mState.gain = module.gain;
    mState.hallInfo = module.hallInfo;
    mState.flash = flashOf(module);
}

bool Controller::knows(uint32_t request) {
    const size_t index = _IOC_NR(request) - BASE_VIDIOC_PRIVATE;
    return index < kRequestByIndex.size() && request != 0 && kRequestByIndex[index] == request;
}

int32_t Controller::handle(uint32_t request, std::span<std::byte> record) {
    if (!knows(request)) return -ENOTTY;
    mCounts[indexOf(Request{request})].fetch_add(1, std::memory_order_relaxed);
    switch (Request{request}) {
        case Request::kSetMode:
            return setMode(load<int32_t>(record));
        case Request::kReadStatus:
            return readStatus(record);
        case Request::kGetHall:
            return readHall(record);
        case Request::kReadFlash:
            return readFlash(record);
        case Request::kReadGain:
            return readGain(record);
        case Request::kReadHallInfo:
            return readHallInfo(record);
        case Request::kSetGyroOffset:
            return measureGyroOffset();
        case Request::kNotifyStream:
            return notifyStream(load<ois_stream_info>(record));
        case Request::kEndSession:
            return endSession(load<int32_t>(record));
        case Request::kSetFixMode:
            return setFixMode(load<ois::OisFixMode>(record));
        case Request::kSetActiveOis:
            return setActiveOis(load<ois_act_parameters>(record));
        case Request::kSetZoomActiveOis:
            return setZoomActiveOis(load<int32_t>(record));
        case Request::kSetAccParams:
            return setAccParams(load<ois_acc_params>(record));
        case Request::kWriteGain:
            return writeGain(load<ois::OisGain>(record));
        default:
            return keep(Request{request}, record);
    }
}

// Records that the controller takes note of and nothing else.
int32_t Controller::keep(Request request, std::span<const std::byte> record) {
    const std::lock_guard lock(mMutex);
    switch (request) {
        case Request::kSetCustomisation:
            mState.customisation = load<ois::OisCustInfo>(record);
            break;
        case Request::kSetAfPosition:
            mState.afPosition = load<int16_t>(record);
            break;
        case Request::kUpdateFirmware: {
            const auto type = load<ois::OisCameraType>(record);
            mState.firmwareCameraType = std::string(type.name, strnlen(type.name, sizeof type.name));
            break;
        }
        default:  // OPERATION_18, CHECK_STATUS and START_ENGINEERING leave nothing behind but their count
            break;
    }
    return 0;
}

int32_t Controller::setMode(int32_t word) {
    if (word >= kCaptureThreshold) {
        const std::lock_guard lock(mMutex);
        mState.captureValue = word;
        return 0;
    }
    const bool held = mPositionHeld.exchange(false, std::memory_order_relaxed);
    if (mMode.exchange(word, std::memory_order_relaxed) != word || held) applyMode();
    return 0;
}

int32_t Controller::notifyStream(const ois_stream_info& info) {
    mStreaming.store(info.notify_stream, std::memory_order_relaxed);
    return 0;
}

int32_t Controller::endSession(int32_t word) {
    {
        const std::lock_guard lock(mMutex);
        mState.sessionEndWord = word;
        mState.activeOis = {};
        mState.zoomActiveOis = 0;
    }
    mStreaming.store(0, std::memory_order_relaxed);
    mMode.store(0, std::memory_order_relaxed);
    mPositionHeld.store(false, std::memory_order_relaxed);
    applyMode();
    return 0;
}

int32_t Controller::setAccParams(const ois_acc_params& params) {
    {
        const std::lock_guard lock(mMutex);
        mState.accParams = params;
    }
    mStabiliser.advance(mClock.nowUs());
    mStabiliser.setAccCompensation(params.enable != 0, params.distance / kMillimetresPerMetre);
    return 0;
}

int32_t Controller::measureGyroOffset() {
    const auto measured = mStabiliser.measureGyro(mClock.nowUs(), kGyroWindowUs);
    const std::array<int16_t, 2> offset = {saturate16(measured.meanRaw[0]), saturate16(measured.meanRaw[1])};
    {
        const std::lock_guard lock(mMutex);
        mState.gyroOffset = offset;
    }
    mStabiliser.advance(mClock.nowUs());
    mStabiliser.setGyroOffset(offset[0], offset[1]);
    return 0;
}

// Only the named axis changes, in both codings: which one counts is up to the module.
int32_t Controller::writeGain(const ois::OisGain& gain) {
    const std::lock_guard lock(mMutex);
    if (gain.axis == 0) {
        mState.gain.valueXf = gain.valueXf;
        mState.gain.valueXi = gain.valueXi;
    } else {
        mState.gain.valueYf = gain.valueYf;
        mState.gain.valueYi = gain.valueYi;
    }
    return 0;
}

int32_t Controller::readGain(std::span<std::byte> record) const {
    const auto asked = load<ois::OisGain>(record);
    const std::lock_guard lock(mMutex);
    ois::OisGain answer = mState.gain;
    answer.axis = asked.axis;
    answer.unused = asked.unused;
    store(record, answer);
    return 0;
}

int32_t Controller::readHallInfo(std::span<std::byte> record) const {
    const std::lock_guard lock(mMutex);
    store(record, mState.hallInfo);
    return 0;
}

// Holds the lens whatever the record's enable word says: the defect detector leaves that word alone.
int32_t Controller::setFixMode(const ois::OisFixMode& fixMode) {
    {
        const std::lock_guard lock(mMutex);
        mState.fixMode = fixMode;
    }
    mStabiliser.advance(mClock.nowUs());
    mStabiliser.setFixedTarget(fixMode.target_x, fixMode.target_y);
    mPositionHeld.store(true, std::memory_order_relaxed);
    applyMode();
    return 0;
}

int32_t Controller::setActiveOis(const ois_act_parameters& parameters) {
    {
        const std::lock_guard lock(mMutex);
        mState.activeOis = parameters;
    }
    applyMode();
    return 0;
}

int32_t Controller::setZoomActiveOis(int32_t word) {
    {
        const std::lock_guard lock(mMutex);
        mState.zoomActiveOis = word;
    }
    applyMode();
    return 0;
}

// Makes the lens do what the words sent so far ask for.
void Controller::applyMode() {
    const std::lock_guard lock(mMutex);
    const bool withAngle = mState.activeOis.enable == kActiveOisWithAngle;
    StabiliserMode mode = StabiliserMode::kOn;
    if (mPositionHeld.load(std::memory_order_relaxed)) {
        mode = StabiliserMode::kFixed;
    } else if (mMode.load(std::memory_order_relaxed) == 0) {
        mode = StabiliserMode::kOff;
    } else if (withAngle || mState.zoomActiveOis != 0) {
        mode = StabiliserMode::kActive;
    }
    mStabiliser.advance(mClock.nowUs());
    mStabiliser.setActiveAngle(withAngle ? std::bit_cast<float>(mState.activeOis.angle) : 0);
    mStabiliser.setMode(mode);
    mLensFaults.apply(mStabiliser);
}

int32_t Controller::readHall(std::span<std::byte> record) {
    const StabiliserState now = stabiliserState();
    auto answer = load<ois::OisFixMode>(record);
    answer.hall_x = now.hallX;
    answer.hall_y = now.hallY;
    store(record, answer);
    return 0;
}

int32_t Controller::readStatus(std::span<std::byte> record) {
    const auto timeUs = static_cast<uint64_t>(mClock.nowUs());
    const StabiliserState now = mStabiliser.stateAt(static_cast<int64_t>(timeUs));
    auto answer = load<ois::OisStatusRecord>(record);
    answer.timestampSeconds = timeUs / kMicrosecondsPerSecond;
    answer.timestampFraction = timeUs % kMicrosecondsPerSecond;
    answer.gyro_raw_x = now.gyroRaw[0];
    answer.gyro_raw_y = now.gyroRaw[1];
    answer.gyro_raw_z = now.gyroRaw[2];
    answer.acc_raw_x = now.accRaw[0];
    answer.acc_raw_y = now.accRaw[1];
    answer.acc_raw_z = now.accRaw[2];
    answer.gyro_target_x = saturate16(now.gyroTargetX * kTargetsPerAngle);
    answer.gyro_target_y = saturate16(now.gyroTargetY * kTargetsPerAngle);
    answer.acc_target_x = saturate16(now.accTargetX * kTargetsPerAngle);
    answer.acc_target_y = saturate16(now.accTargetY * kTargetsPerAngle);
    answer.hall_x = saturate16(now.hallX);
    answer.hall_y = saturate16(now.hallY);
    answer.synthetic_x = saturate16((now.gyroTargetX + now.accTargetX) * kTargetsPerAngle);
    answer.synthetic_y = saturate16((now.gyroTargetY + now.accTargetY) * kTargetsPerAngle);
    store(record, answer);
    return 0;
}

int32_t Controller::readFlash(std::span<std::byte> record) const {
    ois::OisFlashRecord flash{};
    {
        const std::lock_guard lock(mMutex);
        flash = mState.flash;
        if (mState.flashAnswer == FlashAnswer::kInPlace) {
            store(record, flash);
            return 0;
        }
    }
    // The member that the address leads to stays as it was.
    auto* target = load<std::byte*>(record);
    if (target == nullptr) return -EFAULT;
    copyToUser(target, std::as_bytes(std::span(&flash, 1)));
    return 0;
}

StabiliserState Controller::stabiliserState() {
    return mStabiliser.stateAt(mClock.nowUs());
}

ControllerState Controller::state() const {
    const std::lock_guard lock(mMutex);
    ControllerState state = mState;
    state.mode = mMode.load(std::memory_order_relaxed);
    state.streaming = mStreaming.load(std::memory_order_relaxed);
    return state;
}

uint64_t Controller::count(Request request) const {
    return mCounts[indexOf(request)].load(std::memory_order_relaxed);
}

uint64_t Controller::count() const {
    uint64_t sum = 0;
    for (const auto& count : mCounts) sum += count.load(std::memory_order_relaxed);
    return sum;
}

void Controller::setGain(const ois::OisGain& gain) {
    const std::lock_guard lock(mMutex);
    mState.gain = gain;
}

void Controller::setHallInfo(const ois::OisHallInfo& info) {
    const std::lock_guard lock(mMutex);
    mState.hallInfo = info;
}

void Controller::setFlash(const ois::OisFlashRecord& flash) {
    const std::lock_guard lock(mMutex);
    mState.flash = flash;
}

void Controller::setFlashAnswer(FlashAnswer answer) {
    const std::lock_guard lock(mMutex);
    mState.flashAnswer = answer;
}

}  // namespace phone

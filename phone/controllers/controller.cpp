#include "controllers/controller.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "kernel/user_memory.h"
#include "modules/module_description.h"
#include "time/clock.h"
#include "trace/decode.h"

namespace phone {

namespace {

using ois::Request;

constexpr uint64_t kMicrosecondsPerSecond = 1000000;
constexpr double kTargetsPerAngle = 1000;  // targets travel in thousandths of the angle unit
constexpr double kMillimetresPerMetre = 1000;
constexpr int32_t kCaptureThreshold = 125000;  // mode words from here on are capture values
constexpr int32_t kActiveOisWithAngle = 2;
constexpr int64_t kGyroWindowUs = 100000;  // over which the gyro's offset is measured

constexpr size_t indexOf(Request request) {
    return _IOC_NR(ois::code(request)) - BASE_VIDIOC_PRIVATE;
}

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

void writeGain(ois::OisGain& kept, const ois::OisGain& written) {
    if (written.axis == 0) {
        kept.valueXf = written.valueXf;
        kept.valueXi = written.valueXi;
    } else {
        kept.valueYf = written.valueYf;
        kept.valueYi = written.valueYi;
    }
}

ois::OisGain gainAnswer(const ois::OisGain& kept, const ois::OisGain& asked) {
    ois::OisGain answer = kept;
    answer.axis = asked.axis;
    answer.unused = asked.unused;
    return answer;
}

Controller::Controller(const ModuleDescription& module, const Motion& motion, const Clock& clock,
                       Faults& faults)
    : mClock(clock),
      mStabiliser(motion, module.stabiliser),
      mLensFaults(faults),
      mGain(module.gain),
      mHallInfo(module.hallInfo),
      mFlash(flashOf(module)) {}

int32_t Controller::handle(uint32_t request, std::span<std::byte> record) {
    if (findRequest(request) == nullptr) return -ENOTTY;
    mCounts[indexOf(Request{request})].fetch_add(1, std::memory_order_relaxed);
    const std::lock_guard lock(mMutex);
    switch (Request{request}) {
        case Request::kSetMode:
            setMode(load<int32_t>(record));
            break;
        case Request::kReadStatus:
            readStatus(record);
            break;
        case Request::kGetHall:
            readHall(record);
            break;
        case Request::kReadFlash:
            return readFlash(record);
        case Request::kReadGain:
            store(record, gainAnswer(mGain, load<ois::OisGain>(record)));
            break;
        case Request::kReadHallInfo:
            store(record, mHallInfo);
            break;
        case Request::kSetGyroOffset:
            measureGyroOffset();
            break;
        case Request::kEndSession:
            endSession();
            break;
        case Request::kSetFixMode:
            setFixMode(load<ois::OisFixMode>(record));
            break;
        case Request::kSetActiveOis:
            mActiveOis = load<ois_act_parameters>(record);
            applyMode();
            break;
        case Request::kSetZoomActiveOis:
            mZoomActiveOis = load<int32_t>(record);
            applyMode();
            break;
        case Request::kSetAccParams:
            setAccParams(load<ois_acc_params>(record));
            break;
        case Request::kWriteGain:
            writeGain(mGain, load<ois::OisGain>(record));
            break;
        default:  // the others leave nothing behind but their count
            break;
    }
    return 0;
}

void Controller::setMode(int32_t word) {
    if (word >= kCaptureThreshold) return;
    const bool held = std::exchange(mPositionHeld, false);
    if (std::exchange(mMode, word) != word || held) applyMode();
}

void Controller::endSession() {
    mActiveOis = {};
    mZoomActiveOis = 0;
    mMode = 0;
    mPositionHeld = false;
    applyMode();
}

void Controller::setAccParams(const ois_acc_params& params) {
    mStabiliser.advance(mClock.nowUs());
    mStabiliser.setAccCompensation(params.enable != 0, params.distance / kMillimetresPerMetre);
}

void Controller::measureGyroOffset() {
    const auto measured = mStabiliser.measureGyro(mClock.nowUs(), kGyroWindowUs);
    const auto [x, y] = std::array{saturate16(measured.meanRaw[0]), saturate16(measured.meanRaw[1])};
    mGyroOffset = {x, y};
    mStabiliser.advance(mClock.nowUs());
    mStabiliser.setGyroOffset(x, y);
}

// Holds the lens whatever the record's enable word says: the defect detector leaves that word alone.
void Controller::setFixMode(const ois::OisFixMode& fixMode) {
    mStabiliser.advance(mClock.nowUs());
    mStabiliser.setFixedTarget(fixMode.target_x, fixMode.target_y);
    mPositionHeld = true;
    applyMode();
}

// Makes the lens do what the words sent so far ask for.
void Controller::applyMode() {
    const bool withAngle = mActiveOis.enable == kActiveOisWithAngle;
    StabiliserMode mode = StabiliserMode::kOn;
    if (mPositionHeld) {
        mode = StabiliserMode::kFixed;
    } else if (mMode == 0) {
        mode = StabiliserMode::kOff;
    } else if (withAngle || mZoomActiveOis != 0) {
        mode = StabiliserMode::kActive;
    }
    mStabiliser.advance(mClock.nowUs());
    mStabiliser.setActiveAngle(withAngle ? std::bit_cast<float>(mActiveOis.angle) : 0);
    mStabiliser.setMode(mode);
    mLensFaults.apply(mStabiliser);
}

void Controller::readHall(std::span<std::byte> record) {
    const StabiliserState now = mStabiliser.stateAt(mClock.nowUs());
    auto answer = load<ois::OisFixMode>(record);
    answer.hall_x = now.hallX;
    answer.hall_y = now.hallY;
    store(record, answer);
}

void Controller::readStatus(std::span<std::byte> record) {
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
}

int32_t Controller::readFlash(std::span<std::byte> record) const {
    if (mFlashAnswer == FlashAnswer::kInPlace) {
        store(record, mFlash);
        return 0;
    }
    // The member that the address leads to stays as it was.
    auto* target = load<std::byte*>(record);
    return copyToUser(target, std::as_bytes(std::span(&mFlash, 1))) ? 0 : -EFAULT;
}

int32_t Controller::mode() const {
    const std::lock_guard lock(mMutex);
    return mMode;
}

std::optional<std::array<int16_t, 2>> Controller::gyroOffset() const {
    const std::lock_guard lock(mMutex);
    return mGyroOffset;
}

KeptByController Controller::kept() const {
    const std::lock_guard lock(mMutex);
    return {.gain = mGain, .gyroOffset = mGyroOffset, .flash = {}};
}

void Controller::restore(const KeptByController& kept) {
    const std::lock_guard lock(mMutex);
    mGain = kept.gain;
    mGyroOffset = kept.gyroOffset;
    if (mGyroOffset) mStabiliser.setGyroOffset((*mGyroOffset)[0], (*mGyroOffset)[1]);
}

uint64_t Controller::count(Request request) const {
    return mCounts[indexOf(request)].load(std::memory_order_relaxed);
}

uint64_t Controller::count() const {
    uint64_t sum = 0;
    for (const auto& count : mCounts) sum += count.load(std::memory_order_relaxed);
    return sum;
}

void Controller::setFlash(const ois::OisFlashRecord& flash) {
    const std::lock_guard lock(mMutex);
    mFlash = flash;
}

void Controller::setFlashAnswer(FlashAnswer answer) {
    const std::lock_guard lock(mMutex);
    mFlashAnswer = answer;
}

}  // namespace phone

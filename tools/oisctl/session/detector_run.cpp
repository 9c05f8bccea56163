#include "session/detector_run.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <thread>

#include "session/calls.h"
#include "session/operations.h"
#include "trace/decode.h"
#include "wire/commands.h"

namespace oisctl {

namespace {

// Follows the run: each position that is set and read back.
class Follower {
  public:
    Follower(const ois::OisCustInfo& info, const OisCalibInfo& calibration)
        : mInfo(info), mCalibration(calibration) {}
    void take(const phone::Event& event) {
        if (event.kind == phone::EventKind::kCall) mCaller = event.thread;
        // The detector has a thread of its own.
        if (!phone::isCommand(event.kind) || event.thread == mCaller) return;
        const bool behindHub = event.kind == phone::EventKind::kHub;
        const auto isA = [&](ois::Request request, ois::HubCommand command) {
            return event.code == (behindHub ? ois::idByte(command) : ois::code(request));
        };
        if (isA(ois::Request::kSetFixMode, ois::HubCommand::kSetFixMode)) {
            ++mSeen.positions;
            mLensMoved = wasDelivered(event);
        }
        // Behind the hub the read-back is relayed as a command without a meaning, and the record keeps its
        // old hall. A lens that was not told to move, or does not answer, tells nothing of its errors.
        if (!isA(ois::Request::kGetHall, ois::HubCommand::kNoHubMeaning)) return;
        if (mSeen.positions == 0 || mSeen.positions > ois::kCoordinateCapacity) return;
        if (behindHub || !mLensMoved || !wasDelivered(event)) return;
        ++mSeen.hallsRead;
        const size_t i = mSeen.positions - 1;
        const phone::Decoded record = phone::decode(event);
        add(mSeen.axes[0], mInfo.coordinateX[i], mCalibration.hall_center_x,
            phone::integerField(record, "hall_x"));
        add(mSeen.axes[1], mInfo.coordinateY[i], mCalibration.hall_center_y,
            phone::integerField(record, "hall_y"));
    }
    const DetectorRun& seen() const { return mSeen; }

  private:
    static void add(AxisErrors& axis, float coordinate, int32_t centre, int64_t hall) {
        const double error = std::abs(static_cast<double>(coordinate) + centre - static_cast<double>(hall));
        axis.largest = std::max(axis.largest, error);
        axis.sum += error;
    }

    const ois::OisCustInfo& mInfo;
    const OisCalibInfo mCalibration;
    DetectorRun mSeen;
    std::optional<uint32_t> mCaller;
    bool mLensMoved = false;
};

}  // namespace

DetectorRun followDetector(DriverSession& session, const std::function<void()>& order,
                           const DetectorProgress& progress) {
    Follower follower(session.module().custInfo, session.driver().mOisCalibInfo);
    const auto observation = session.observe([&](const phone::Event& event) {
        follower.take(event);
        if (progress) progress(follower.seen());
    });
    order();
    std::thread& detector = session.driver().mDefectDetectThread;
    if (detector.joinable()) detector.join();
    return follower.seen();
}

void carryOut(DriverSession& session, int32_t operation, const std::function<void()>& order) {
    if (operation != kDetectDefect) return order();
    const uint64_t failuresBefore = session.tally().counts().failures;
    const DetectorRun run = followDetector(session, order);
    if (session.deviceLost() || run.positions == 0) return;
    const ois::OisCustInfo& info = session.module().custInfo;
    const bool defective = std::ranges::any_of(run.axes, [&info](const AxisErrors& axis) {
        return axis.tooFarAtOnce(info) || axis.tooFarInSum(info);
    });
    if (run.hallsRead > 0 && defective) {
        session.fail("the detector found a defect");
    } else if (run.hallsRead == 0 && session.tally().counts().failures == failuresBefore) {
        session.fail("the detector tells nothing: no hall position was read back");
    }
}

}  // namespace oisctl

// What the lens does, and what the controller keeps.

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "base/interrupt.h"
#include "compliance/examination.h"

namespace oisctl {

using ois::OisGain;
using ois::Request;

namespace {

constexpr useconds_t kLensSettleUs = 40000;  // as long as the driver's defect detector waits

// The module's test positions, with the limit of its defect detector.
Finding followsTarget(Examination& examination) {
    const ois::OisCustInfo& module = examination.subject().module->custInfo;
    if (module.coordinateNum == 0) return notAsked("the module has no test positions");
    SubDevice device(examination.subject());
    examination.setUp(device);
    ois::OisHallInfo centre{};
    device.ask(Request::kReadHallInfo, centre);
    double largest = 0;
    for (size_t i = 0; i < std::min<size_t>(module.coordinateNum, ois::kCoordinateCapacity); ++i) {
        if (interrupted()) return notAsked("a signal came first");
        const ois::OisFixMode asked{1,
                                    1,
                                    centre.centerX + static_cast<int32_t>(module.coordinateX[i]),
                                    centre.centerY + static_cast<int32_t>(module.coordinateY[i]),
                                    0,
                                    0};
        ois::OisFixMode record = asked;
        const int32_t set = device.ask(Request::kSetFixMode, record);
        usleep(kLensSettleUs);
        record = asked;
        const int32_t got = device.ask(Request::kGetHall, record);
        if (set < 0 || got < 0)
            return failed(fmt::format("SET_FIX_MODE {}, GET_HALL {}", resultText(set), resultText(got)), "0");
        const double error = std::max(std::abs(double(asked.target_x) - record.hall_x),
                                      std::abs(double(asked.target_y) - record.hall_y));
        if (error >= double{module.max_error_threshold})
            return failed(fmt::format("hall {}, {} for the target {}, {}", record.hall_x, record.hall_y,
                                      asked.target_x, asked.target_y),
                          fmt::format("less than {} away", module.max_error_threshold));
        largest = std::max(largest, error);
    }
    return passed(fmt::format("{} positions, at most {} of {} away", module.coordinateNum, largest,
                              module.max_error_threshold));
}

// The value of an axis, in whatever coding the module has.
int64_t valueOf(const OisGain& gain, ois::Axis axis, uint16_t format) {
    const bool isX = axis == ois::kAxisX;
    if (format == ois::kGainFloat) return std::bit_cast<int32_t>(isX ? gain.valueXf : gain.valueYf);
    return isX ? gain.valueXi : gain.valueYi;
}

class GainCheck {
  public:
    GainCheck(const SubDevice& device, uint16_t format) : mDevice(device), mFormat(format) {}

    // Writes one axis, looks at both, and puts back what was there.
    Finding run(ois::Axis axis) {
        const ois::Axis other = axis == ois::kAxisX ? ois::kAxisY : ois::kAxisX;
        const OisGain before = read(axis);
        const int64_t otherBefore = valueOf(read(other), other, mFormat);
        OisGain changed = before;
        for (float* const value : {&changed.valueXf, &changed.valueYf}) *value = *value / 2 + kStep;
        for (int32_t* const value : {&changed.valueXi, &changed.valueYi}) *value = *value / 2 + 1;
        const int32_t written = write(changed, axis);
        const int64_t seen = valueOf(read(axis), axis, mFormat);
        const int64_t otherSeen = valueOf(read(other), other, mFormat);
        const int32_t putBack = write(before, axis);
        const bool restored = valueOf(read(axis), axis, mFormat) == valueOf(before, axis, mFormat);
        if (putBack < 0 || !restored) return failed("the gain could not be put back", "as it was before");
        if (written < 0 || mFailed < 0) return failed(resultText(std::min(written, mFailed)), "0");
        if (seen != valueOf(changed, axis, mFormat))
            return failed("the gain is as it was before", "as written");
        if (otherSeen != otherBefore) return failed("the other axis has changed too", "as it was before");
        return passed();
    }

  private:
    static constexpr float kStep = 0.0625F;  // exact, and another gain also where it was 0

    OisGain read(ois::Axis axis) {
        OisGain gain{};
        gain.axis = axis;
        mFailed = std::min(mFailed, mDevice.ask(Request::kReadGain, gain));
        return gain;
    }
    int32_t write(OisGain gain, ois::Axis axis) const {
        gain.axis = axis;
        return mDevice.ask(Request::kWriteGain, gain);
    }

    const SubDevice& mDevice;
    const uint16_t mFormat;
    int32_t mFailed = 0;  // the result of a read that failed
};

Finding gainsKept(Examination& examination) {
    SubDevice device(examination.subject());
    examination.setUp(device);
    GainCheck check(device, examination.subject().module->custInfo.gainFormat);
    for (const ois::Axis axis : {ois::kAxisX, ois::kAxisY})
        if (Finding finding = check.run(axis); finding.verdict != Finding::Verdict::kOk) return finding;
    return passed("written, read and put back");
}

}  // namespace

std::vector<Check> lensChecks() {
    return {
        {.group = "controller",
         .name = "hall follows the target",
         .run = followsTarget,
         .needs = {Request::kReadHallInfo, Request::kSetFixMode, Request::kGetHall},
         .needsModule = true},
        {.group = "controller",
         .name = "gains are kept",
         .run = gainsKept,
         .needs = {Request::kReadGain, Request::kWriteGain},
         .needsModule = true,
         .writes = true},
    };
}

}  // namespace oisctl

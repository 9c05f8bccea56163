// oisctl detect-defect: the driver's actuator test, with a verdict per axis.

#include <fmt/core.h>

#include <limits>
#include <memory>

#include "commands/commands.h"
#include "session/detector_run.h"
#include "session/driver_session.h"
#include "session/operations.h"
#include "session/summary.h"

namespace oisctl {

namespace {

constexpr std::string_view kLensPrefix = "lens.";
constexpr double kNotKnown = std::numeric_limits<double>::quiet_NaN();

std::vector<std::string> defectWords() {
    std::vector<std::string> words;
    for (const phone::FaultPlace& place : phone::faultPlaces()) {
        if (place.point == phone::FaultPoint::kLens)
            words.emplace_back(place.name.substr(kLensPrefix.size()));
    }
    return words;
}

constexpr Verdict kGood{"good", "good", true};
constexpr Verdict kGoodSoFar{"good so far", "good so far", true};
constexpr Verdict kNotExamined{"not examined", "not examined"};
constexpr Verdict kNothingRead{"not told", "not told: no hall position was read back"};
constexpr Verdict kPartlyRead{"not told", "not told: some hall positions were not read back"};
constexpr Verdict kTooFarAtOnce{"defective", "defective: too far off at one position"};
constexpr Verdict kTooFarInSum{"defective", "defective: too far off in sum"};

// The driver ends the run at the first defect, which leaves the other axis with the positions so far.
const Verdict& judge(const DetectorRun& seen, size_t axis, const ois::OisCustInfo& info) {
    const AxisErrors& errors = seen.axes.at(axis);
    const bool wholeRun = seen.positions >= info.coordinateNum;
    if (seen.positions == 0) return kNotExamined;
    if (seen.hallsRead == 0) return kNothingRead;
    if (errors.tooFarAtOnce(info)) return kTooFarAtOnce;
    if (errors.tooFarInSum(info)) return kTooFarInSum;
    if (!seen.complete()) return kPartlyRead;
    return wholeRun ? kGood : kGoodSoFar;
}

// The driver takes a lens that did not answer for one that did not move.
Field driverSays(const DetectorRun& seen, bool tripped, int32_t error) {
    if (!seen.complete()) return {"defective", "the driver says", {}, "nothing that counts", Style::kBad};
    return {"defective", "the driver says", tripped,
            tripped ? fmt::format("defect, error {} hall counts", error) : "no defect",
            tripped ? Style::kBad : Style::kGood};
}

Record report(DriverSession& session, const DetectorRun& seen, bool tripped) {
    const ois::OisCustInfo& info = session.module().custInfo;
    const int32_t error = session.driver().mActuatorDefectError;
    Table axes;
    for (size_t axis = 0; axis < seen.axes.size(); ++axis) {
        const AxisErrors errors = seen.hallsRead > 0 ? seen.axes[axis] : AxisErrors{kNotKnown, kNotKnown};
        axes.push_back({{"axis", "axis", axis == 0 ? "x" : "y"},
                        measured("largest_error", "largest error", errors.largest, 1, ""),
                        measured("largest_error_below", "allowed below", info.max_error_threshold, 1, ""),
                        measured("sum_of_errors", "sum", errors.sum, 1, ""),
                        measured("sum_of_errors_below", "allowed below", info.max_sum_error_threshold, 1, ""),
                        verdictField("verdict", judge(seen, axis, info))});
    }
    return {{"axes", "", axes},
            {"positions", "positions", seen.positions,
             fmt::format("{} of {}, {} read back", seen.positions, info.coordinateNum, seen.hallsRead)},
            {"test_positions", "", info.coordinateNum},
            {"positions_read", "", seen.hallsRead},
            driverSays(seen, tripped, error),
            {"driver_error", "", tripped && seen.complete() ? Value(error) : Value()}};
}

bool hasTestPositions(const phone::ModuleDescription& module) {
    return module.custInfo.actuatorDetectSupport != 0 && module.custInfo.coordinateNum != 0;
}

int runDetectDefect(const Settings& settings) {
    DriverSession session(settings, Narration::kIfVerbose);
    session.requireModule("detect-defect", "with test positions", hasTestPositions);
    if (!session.openFor()) return conclude(session, Record());

    DetectorRun seen;
    {
        Progress progress("positions", session.module().custInfo.coordinateNum);
        seen = followDetector(
            session, [&] { session.setOperation(kDetectDefect); },
            [&](const DetectorRun& soFar) { progress.update(static_cast<double>(soFar.positions)); });
    }
    const bool tripped = session.driver().mDefectDetectDone != 0;
    session.close();
    if (seen.positions > 0 && seen.hallsRead == 0) {
        printRemark("oisctl: no hall position was read back, so that every position seems to be missed");
    }
    return conclude(session, report(session, seen, tripped), Ending::kReport,
                    seen.complete() && !tripped && session.tally().counts().failures == 0);
}

}  // namespace

Command describeDetectDefect() {
    auto settings = std::make_shared<Settings>();
    settings->simulatedModule = "dw9786";
    return {
        .options = withPhoneOptions(
            {value("--defect", "DEFECT,DEFECT",
                   "What is wrong with the lens: stuck, sluggish or off-centre; with -x "
                   "or -y, one axis of it; short for "
                   "--fault lens.DEFECT",
                   [settings](const std::string& word) {
                       settings->faults.push_back(phone::parseFault(std::string(kLensPrefix) + word));
                   },
                   {.choices = defectWords(), .commas = true})},
            *settings),
        .notes = "Exit status 1 when the actuator is defective.\n",
        .examples = {{"oisctl detect-defect"},
                     {"oisctl detect-defect --defect stuck-x"},
                     {"oisctl detect-defect --defect sluggish-x,off-centre-y --json"},
                     {"oisctl detect-defect --real-time", "with a progress bar"}},
        .run = [settings] { return runDetectDefect(*settings); },
    };
}

}  // namespace oisctl

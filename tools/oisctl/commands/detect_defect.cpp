// oisctl detect-defect: the driver's actuator test, with a verdict per axis.

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>

#include "base/errors.h"
#include "base/suggest.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "session/driver_session.h"
#include "session/operations.h"
#include "session/register_access.h"
#include "session/summary.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

struct Options {
    Settings settings;
};

constexpr std::string_view kLensPrefix = "lens.";

std::vector<std::string> defectWords() {
    std::vector<std::string> words;
    for (const phone::FaultPlace& place : phone::faultPlaces()) {
        if (place.point == phone::FaultPoint::kLens)
            words.emplace_back(place.name.substr(kLensPrefix.size()));
    }
    return words;
}

// Tracking errors of one axis, as the driver measures them.
struct AxisErrors {
    double largest = 0;
    double sum = 0;
    void add(double error) {
        largest = std::max(largest, error);
        sum += error;
    }
};

// Follows the run: each position that is set and read back.
class Observation {
  public:
    explicit Observation(const ois::OisCustInfo& info) : mInfo(info) {}
    void take(const phone::Event& event, const OisCalibInfo& calibration);

    uint64_t positions = 0;
    std::array<AxisErrors, 2> axes;
    bool hallRead = false;

  private:
    const ois::OisCustInfo& mInfo;
};

void Observation::take(const phone::Event& event, const OisCalibInfo& calibration) {
    if (!phone::isCommand(event.kind)) return;
    const bool behindHub = event.kind == phone::EventKind::kHub;
    const auto isA = [&](ois::Request request, ois::HubCommand command) {
        return event.code == (behindHub ? ois::idByte(command) : ois::code(request));
    };
    if (isA(ois::Request::kSetFixMode, ois::HubCommand::kSetFixMode)) ++positions;
    // Behind the hub the read-back is relayed as a command without a meaning, and the record keeps its old
    // hall.
    const bool answered = !behindHub && isA(ois::Request::kGetHall, ois::HubCommand::kNoHubMeaning);
    if (!answered && !(behindHub && isA(ois::Request::kGetHall, ois::HubCommand::kNoHubMeaning))) return;
    if (positions == 0 || positions > ois::kCoordinateCapacity) return;
    hallRead = hallRead || answered;
    const size_t i = positions - 1;
    const auto error = [](float coordinate, int32_t centre, int64_t hall) {
        return std::abs(static_cast<double>(coordinate) + centre - static_cast<double>(hall));
    };
    const phone::Decoded record = phone::decode(event);
    const int64_t hallX = phone::integerField(record, "hall_x");
    const int64_t hallY = phone::integerField(record, "hall_y");
    axes[0].add(error(mInfo.coordinateX[i], calibration.hall_center_x, hallX));
    axes[1].add(error(mInfo.coordinateY[i], calibration.hall_center_y, hallY));
}

bool isGood(const AxisErrors& errors, const ois::OisCustInfo& info) {
    return errors.largest < info.max_error_threshold && errors.sum < info.max_sum_error_threshold;
}

// The driver ends the run at the first defect, which leaves the other axis with the positions so far.
std::string words(const AxisErrors& errors, const ois::OisCustInfo& info, bool wholeRun) {
    if (errors.largest >= info.max_error_threshold) return "defective: too far off at one position";
    if (errors.sum >= info.max_sum_error_threshold) return "defective: too far off in sum";
    return wholeRun ? "good" : "good so far";
}

void print(DriverSession& session, const Observation& seen, bool tripped) {
    const ois::OisCustInfo& info = session.module().custInfo;
    const OISDrv& driver = session.driver();
    if (session.settings().json) {
        nlohmann::json json{
            {"defective", tripped},
            {"positions", seen.positions},
            {"of", info.coordinateNum},
            {"largest_error_below", info.max_error_threshold},
            {"sum_of_errors_below", info.max_sum_error_threshold},
            {"driver_error", tripped ? nlohmann::json(driver.mActuatorDefectError) : nlohmann::json()},
            {"simulated_s", session.nowS()}};
        for (size_t axis = 0; axis < seen.axes.size(); ++axis) {
            json[axis == 0 ? "x" : "y"] = {{"good", isGood(seen.axes[axis], info)},
                                           {"largest_error", seen.axes[axis].largest},
                                           {"sum_of_errors", seen.axes[axis].sum}};
        }
        printLine(json.dump());
        return;
    }
    const bool wholeRun = seen.positions >= info.coordinateNum;
    Table table({"AXIS", "LARGEST ERROR", "ALLOWED BELOW", "SUM", "ALLOWED BELOW", "VERDICT"});
    for (size_t column = 1; column < 5; ++column) table.alignRight(column);
    for (size_t axis = 0; axis < seen.axes.size(); ++axis) {
        const AxisErrors& errors = seen.axes[axis];
        table.addRow(
            {axis == 0 ? "x" : "y", number(errors.largest, 1), number(info.max_error_threshold, 1),
             number(errors.sum, 1), number(info.max_sum_error_threshold, 1),
             styled(isGood(errors, info) ? Style::kGood : Style::kBad, words(errors, info, wholeRun))});
    }
    table.print();
    printLine(std::to_string(seen.positions) + " of " + std::to_string(info.coordinateNum) +
              " positions in " + duration(session.nowS()) +
              (session.settings().realTime ? "" : " simulated") + "; the driver says: " +
              (tripped ? styled(Style::kBad, "defect, error " + std::to_string(driver.mActuatorDefectError) +
                                                 " hall counts")
                       : styled(Style::kGood, "no defect")));
}

void requireDetector(const phone::ModuleDescription& module) {
    if (module.custInfo.actuatorDetectSupport != 0 && module.custInfo.coordinateNum != 0) return;
    std::vector<std::string> able;
    for (const phone::ModuleDescription& shipped : phone::shippedModules()) {
        if (shipped.custInfo.actuatorDetectSupport != 0 && shipped.custInfo.coordinateNum != 0)
            able.push_back(shipped.name);
    }
    throw InputError("detect-defect: " + module.name + " has no test positions; these have: " + joined(able));
}

int run(const Options& options) {
    DriverSession session(options.settings,
                          options.settings.verbose ? Narration::kCalls : Narration::kNothing);
    requireDetector(session.module());
    session.openFor("detect-defect");

    const OisCalibInfo calibration = session.driver().mOisCalibInfo;
    Observation seen(session.module().custInfo);
    {
        Progress progress("positions", session.module().custInfo.coordinateNum);
        session.observe([&](const phone::Event& event) {
            seen.take(event, calibration);
            progress.update(static_cast<double>(seen.positions));
        });
        session.setOperation(kDetectDefect);
        std::thread& detector = session.driver().mDefectDetectThread;
        if (detector.joinable()) detector.join();
        session.observe(nullptr);
    }
    const bool tripped = session.driver().mDefectDetectDone != 0;
    session.close();
    print(session, seen, tripped);
    if (!seen.hallRead) {
        printRemark(
            "oisctl: the hub reads no hall positions back, so that every position seems to be missed");
    }
    return conclude(session, !tripped);
}

}  // namespace

Command describeDetectDefect() {
    auto options = std::make_shared<Options>();
    options->settings.module = "dw9786";
    return {
        .options = withPhoneOptions({{"--defect",
                                      "DEFECT,DEFECT",
                                      "What is wrong with the lens: stuck, sluggish or off-centre; with -x "
                                      "or -y, one axis of it; short for "
                                      "--fault lens.DEFECT",
                                      [options](const std::string& word) {
                                          options->settings.faults.push_back(
                                              phone::parseFault(std::string(kLensPrefix) + word));
                                      },
                                      {.words = defectWords, .commas = true}}},
                                    options->settings),
        .notes = "Exit status 1 when the actuator is defective.\n",
        .examples = {{"oisctl detect-defect"},
                     {"oisctl detect-defect --defect stuck-x"},
                     {"oisctl detect-defect --defect sluggish-x,off-centre-y --json"},
                     {"oisctl detect-defect --real-time", "with a progress bar"}},
        .run = [options] { return run(*options); },
    };
}

}  // namespace oisctl

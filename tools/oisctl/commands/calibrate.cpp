// oisctl calibrate: the gyro offset, measured, saved and told in words.

#include <array>
#include <memory>
#include <nlohmann/json.hpp>

#include "base/errors.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "controllers/controller.h"
#include "controllers/korva/chip.h"
#include "hub/sensor_hub.h"
#include "session/driver_session.h"
#include "session/operations.h"
#include "session/register_access.h"
#include "session/summary.h"

namespace oisctl {

namespace {

using Offsets = std::array<int64_t, 2>;
using ois::korva::address;
using ois::korva::Register;

// What the register accesses of a calibration say. The driver's own status is 0 also when it skipped
// everything.
class Observation {
  public:
    void take(const phone::Event& event);

    bool registersSeen = false;
    bool started = false;
    bool done = false;  // the chip said so, in time
    bool flashStarted = false;
    std::optional<int64_t> status;       // after the calibration
    std::optional<int64_t> flashStatus;  // after the flash write
    std::vector<int64_t> checkValues;    // of the other flash data, before and after
    std::optional<Offsets> before;
    std::optional<Offsets> after;

  private:
    void takeWrite(const RegisterAccess& access);
    void takeRead(const RegisterAccess& access);
    int64_t mOffsetX = 0;
};

void Observation::take(const phone::Event& event) {
    const std::optional<RegisterAccess> access = registerAccess(event);
    if (!access) return;
    registersSeen = true;
    if (access->writes) {
        takeWrite(*access);
    } else {
        takeRead(*access);
    }
}

void Observation::takeWrite(const RegisterAccess& access) {
    if (access.address == address(Register::kGyroCalibration)) started = true;
    if (access.address == address(Register::kFlashWrite)) flashStarted = true;
}

void Observation::takeRead(const RegisterAccess& access) {
    switch (access.address) {
        case address(Register::kGyroCalibration):
            done = access.value == 0;
            break;
        case address(Register::kStatus):
            (flashStarted ? flashStatus : status) = access.value;
            break;
        case address(Register::kFlashCheckValue):
            checkValues.push_back(access.value);
            break;
        case address(Register::kGyroOffsetX):
            mOffsetX = access.value;
            break;
        case address(Register::kGyroOffsetY):
            (started ? after : before) = Offsets{mOffsetX, access.value};
            break;
        default:
            break;
    }
}

struct Verdict {
    bool good = false;
    std::string calibration;
    std::string flash;  // empty: does not apply
};

std::string errorBits(int64_t status) {
    std::string text;
    const auto add = [&](uint8_t bit, const char* meaning) {
        if ((status & bit) != 0) text += std::string(text.empty() ? "" : ", ") + meaning;
    };
    add(phone::korva_status::kMovedX, "the phone moved about x");
    add(phone::korva_status::kMovedY, "the phone moved about y");
    add(phone::korva_status::kRefused, "offset out of range, or the chip not idle");
    return text;
}

std::string flashVerdict(const Observation& seen, bool& good) {
    good = false;
    if (!seen.flashStarted) return "not saved: the controller did not become idle again";
    if (seen.flashStatus.value_or(0) != 0)
        return "write failed, status " + hex(static_cast<uint64_t>(*seen.flashStatus), 2);
    if (seen.checkValues.size() == 2 && seen.checkValues[0] != seen.checkValues[1]) {
        return "written, but other flash data changed: check value " +
               hex(static_cast<uint64_t>(seen.checkValues[0]), 4) + " became " +
               hex(static_cast<uint64_t>(seen.checkValues[1]), 4);
    }
    good = true;
    return "saved, other flash data unchanged";
}

Verdict judge(const Observation& seen) {
    if (!seen.started) return {false, "skipped: controller not idle", "not touched"};
    const std::string late = seen.done ? "" : "not finished in time; ";
    const int64_t status = seen.status.value_or(0);
    if ((status & ois::korva::kCalibrationErrorBits) != 0) {
        return {false,
                late + "failed, status " + hex(static_cast<uint64_t>(status), 2) + ": " + errorBits(status),
                "not touched"};
    }
    Verdict verdict;
    verdict.calibration = seen.done ? "measured" : late + "the driver takes what the controller holds";
    verdict.flash = flashVerdict(seen, verdict.good);
    verdict.good = verdict.good && seen.done;
    return verdict;
}

// No register was seen: the whole calibration is one command.
Verdict judgeUnseen(DriverSession& session, int32_t result) {
    if (session.behindHub()) {
        return {false,
                "sent to the hub, which does not tell what came of it; with --set bypassen=0 the driver "
                "calibrates "
                "itself, register by register",
                "not seen"};
    }
    const bool good = result == 0 && session.tally().counts().failures == 0;
    return {good, good ? "accepted by the kernel driver" : "refused by the kernel driver", ""};
}

// What the controller itself holds, where the driver does not read it.
std::optional<Offsets> offsetsOf(DriverSession& session) {
    if (session.behindHub()) {
        phone::KorvaChip& chip = session.phone().hub().chip();
        return Offsets{chip.peek(Register::kGyroOffsetX), chip.peek(Register::kGyroOffsetY)};
    }
    phone::Controller* controller = session.phone().controller(session.settings().sensorDev);
    if (controller == nullptr) return std::nullopt;
    const auto offset = controller->state().gyroOffset.value_or(std::array<int16_t, 2>{});
    return Offsets{offset[0], offset[1]};
}

std::string text(const std::optional<Offsets>& offsets) {
    if (!offsets) return "not known";
    return "x " + std::to_string((*offsets)[0]) + ", y " + std::to_string((*offsets)[1]) + " (raw counts)";
}

nlohmann::json json(const std::optional<Offsets>& offsets) {
    return offsets ? nlohmann::json(*offsets) : nlohmann::json();
}

void print(const Verdict& verdict, const std::optional<Offsets>& before, const std::optional<Offsets>& after,
           DriverSession& session) {
    if (session.settings().json) {
        printLine(nlohmann::json{{"good", verdict.good},
                                 {"calibration", verdict.calibration},
                                 {"flash", verdict.flash},
                                 {"offset_before", json(before)},
                                 {"offset_after", json(after)},
                                 {"simulated_s", session.nowS()}}
                      .dump());
        return;
    }
    Table table({"", ""});
    table.addRow({"offset before", text(before)});
    table.addRow({"offset after", text(after)});
    table.addRow({"calibration", styled(verdict.good ? Style::kGood : Style::kBad, verdict.calibration)});
    if (!verdict.flash.empty()) table.addRow({"flash", verdict.flash});
    table.addRow({"time", duration(session.nowS()) + (session.settings().realTime ? "" : " simulated")});
    table.print();
}

int run(Settings settings) {
    // The hub's own calibration would tell nothing; the family parser goes through the registers.
    settings.presets.push_back(phone::knownProperty("bypassen", "0"));
    if (settings.motion.empty()) settings.motion = "rest";
    DriverSession session(settings, settings.verbose ? Narration::kCalls : Narration::kNothing);
    session.requireStreaming();
    session.openFor("calibrate");
    session.notifyStream(true);
    Observation seen;
    session.observe([&seen](const phone::Event& event) { seen.take(event); });
    std::optional<Offsets> before = offsetsOf(session);
    const int32_t result = session.setOperation(kGyroOffset);
    session.observe(nullptr);
    std::optional<Offsets> after = offsetsOf(session);
    Verdict verdict;
    if (seen.registersSeen) {
        verdict = judge(seen);
        before = seen.before;
        if (seen.after) after = seen.after;
    } else {
        verdict = judgeUnseen(session, result);
    }
    session.close();
    print(verdict, before, after, session);
    // A fault that struck need not have harmed the calibration.
    conclude(session, verdict.good);
    return verdict.good ? kSuccess : kJobFailed;
}

}  // namespace

Command describeCalibrate() {
    auto settings = std::make_shared<Settings>();
    return {
        .options = withPhoneOptions({}, *settings),
        .notes =
            "Behind the hub the driver's own procedure runs, register by register; the phone is at rest "
            "unless --motion says\notherwise. Exit status 0 only when the offset was measured and saved.\n",
        .examples = {{"oisctl calibrate"},
                     {"oisctl calibrate --trace", "every register access and wait"},
                     {"oisctl calibrate --motion walk", "a moving phone does not calibrate"},
                     {"oisctl calibrate --fault chip.never-idle",
                      "skipped, which the driver's status does not tell"},
                     {"oisctl calibrate -m dw9786", "on the sub-device: one request"}},
        .run = [settings] { return run(*settings); },
    };
}

}  // namespace oisctl

// oisctl calibrate: the gyro offset, measured, saved and told in words.

#include <fmt/format.h>

#include <array>
#include <memory>

#include "base/suggest.h"
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
    void take(const phone::Event& event) {
        const std::optional<RegisterAccess> access = registerAccess(event);
        if (!access) return;
        ++accesses;
        if (!access->delivered) {
            ++undelivered;
        } else if (access->writes) {
            takeWrite(*access);
        } else {
            takeRead(*access);
        }
    }

    uint64_t accesses = 0;     // of registers
    uint64_t undelivered = 0;  // of them
    bool started = false;
    bool done = false;  // the chip said so, in time
    bool flashStarted = false;
    std::optional<int64_t> status;       // after the calibration
    std::optional<int64_t> flashStatus;  // after the flash write
    std::vector<int64_t> checkValues;    // of the other flash data, before and after
    std::optional<Offsets> before;
    std::optional<Offsets> after;

  private:
    void takeWrite(const RegisterAccess& access) {
        if (access.address == address(Register::kGyroCalibration)) started = true;
        if (access.address == address(Register::kFlashWrite)) flashStarted = true;
    }

    void takeRead(const RegisterAccess& access) {
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

    int64_t mOffsetX = 0;
};

constexpr Verdict kMeasured{"measured", "measured", true};
constexpr Verdict kLate{"late", "not finished in time; the driver takes what the controller holds"};
constexpr Verdict kFailed{"failed", "failed"};
constexpr Verdict kSkipped{"skipped", "skipped: controller not idle"};
constexpr Verdict kUncertain{"not told", "not told"};
constexpr Verdict kNotSent{"not sent", "nothing was sent"};
constexpr Verdict kLost{"lost", "the command was lost on the way"};
constexpr Verdict kNotTold{"not told",
                           "sent to the hub, which does not tell what came of it; with --set bypassen=0\n"
                           "the driver calibrates itself, register by register"};
constexpr Verdict kDeviceLost{"not told", "not told: the device went away"};
constexpr Verdict kAccepted{"accepted", "accepted by the kernel driver", true};
constexpr Verdict kRefused{"refused", "not accepted by the kernel driver"};

// The offset in the flash.
constexpr Verdict kSaved{"saved", "saved, other flash data unchanged", true};
constexpr Verdict kNotSaved{"not saved", "not saved: the controller did not become idle again"};
constexpr Verdict kWriteFailed{"failed", "write failed"};
constexpr Verdict kOtherDataChanged{"other data changed", "written, but other flash data changed"};
constexpr Verdict kUntouched{"not touched", "not touched"};
constexpr Verdict kNotSeen{"not seen", "not seen", true};  // the kernel driver's business

const Verdict& judgeFlash(const Observation& seen) {
    if (!seen.flashStarted) return kNotSaved;
    if (seen.flashStatus.value_or(0) != 0) return kWriteFailed;
    const bool changed = seen.checkValues.size() == 2 && seen.checkValues[0] != seen.checkValues[1];
    return changed ? kOtherDataChanged : kSaved;
}

using Verdicts = std::pair<const Verdict&, const Verdict&>;  // of the measurement, of the flash

Verdicts judge(const Observation& seen) {
    // What did not get through may have been the one that mattered.
    if (seen.undelivered > 0) return {kUncertain, kUncertain};
    if (!seen.started) return {kSkipped, kUntouched};
    if ((seen.status.value_or(0) & ois::korva::kCalibrationErrorBits) != 0) return {kFailed, kUntouched};
    return {seen.done ? kMeasured : kLate, judgeFlash(seen)};
}

// No register was seen: the whole calibration is one command.
Verdicts judgeUnseen(DriverSession& session, int32_t result) {
    if (session.deviceLost()) return {kDeviceLost, kDeviceLost};
    const auto call = session.tally().lastCall();
    if (!call || call->sentNothing()) return {kNotSent, kUntouched};
    if (call->delivered == 0 && result == 0) return {kLost, kUntouched};
    if (session.behindHub()) return {kNotTold, kNotSeen};
    return {result == 0 ? kAccepted : kRefused, kNotSeen};
}

std::string errorBits(int64_t status) {
    const std::pair<uint8_t, const char*> meanings[] = {
        {phone::korva_status::kMovedX, "the phone moved about x"},
        {phone::korva_status::kMovedY, "the phone moved about y"},
        {phone::korva_status::kRefused, "offset out of range, or the chip not idle"}};
    std::vector<std::string> words;
    for (const auto& [bit, meaning] : meanings)
        if ((status & bit) != 0) words.emplace_back(meaning);
    return joined(words, ", ");
}

std::string measuredText(const Verdict& verdict, const Observation& seen) {
    if (&verdict == &kUncertain) {
        return fmt::format("not told: {} of {} register accesses did not get through", seen.undelivered,
                           seen.accesses);
    }
    if (&verdict != &kFailed) return {};
    return fmt::format("{}failed, status 0x{:02X}: {}", seen.done ? "" : "not finished in time; ",
                       *seen.status, errorBits(*seen.status));
}

std::string flashText(const Verdict& verdict, const Observation& seen) {
    if (&verdict == &kWriteFailed) return fmt::format("{}, status 0x{:02X}", verdict.text, *seen.flashStatus);
    if (&verdict != &kOtherDataChanged) return {};
    return fmt::format("{}: check value 0x{:04X} became 0x{:04X}", verdict.text, seen.checkValues[0],
                       seen.checkValues[1]);
}

// What the controller itself holds, where the driver does not read it.
std::optional<Offsets> offsetsOf(DriverSession& session) {
    if (session.behindHub()) {
        const auto chip = session.phone().hub().chip().held();
        return Offsets{chip->registers.get(Register::kGyroOffsetX),
                       chip->registers.get(Register::kGyroOffsetY)};
    }
    phone::Controller* controller = session.phone().controller(session.settings().sensorDev);
    if (controller == nullptr) return std::nullopt;
    const auto offset = controller->gyroOffset().value_or(std::array<int16_t, 2>{});
    return Offsets{offset[0], offset[1]};
}

Field offsetField(const char* key, const char* label, const std::optional<Offsets>& offsets) {
    if (!offsets) return {key, label, {}, "not known"};
    return byAxis(key, label, (*offsets)[0], (*offsets)[1], " (raw counts)");
}

int runCalibrate(Settings settings) {
    // The hub's own calibration would tell nothing; the family parser goes through the registers.
    settings.presets.push_back(phone::knownProperty("bypassen", "0"));
    DriverSession session(settings, Narration::kIfVerbose);
    session.requireMayWrite("calibrate", findOperation(kGyroOffset)->name);
    if (settings.motion.empty()) session.setMotion("rest");
    session.requireStreaming();
    if (!session.openFor()) return conclude(session, Record());
    session.notifyStream(true);
    Observation seen;
    auto observation = session.observe([&seen](const phone::Event& event) { seen.take(event); });
    std::optional<Offsets> before = offsetsOf(session);
    const int32_t result = session.setOperation(kGyroOffset);
    observation.reset();
    std::optional<Offsets> after = offsetsOf(session);
    const auto [measured, flash] = seen.accesses > 0 ? judge(seen) : judgeUnseen(session, result);
    if (seen.accesses > 0) before = seen.before;
    if (seen.after) after = seen.after;
    if (session.deviceLost()) after.reset();
    session.close();
    // A fault that struck need not have harmed the calibration.
    return conclude(session,
                    {verdictField("calibration", measured, measuredText(measured, seen)),
                     verdictField("flash", flash, flashText(flash, seen)),
                     offsetField("offset_before", "offset before", before),
                     offsetField("offset_after", "offset after", after)},
                    Ending::kReport, measured.good && flash.good);
}

}  // namespace

Command describeCalibrate() {
    auto settings = std::make_shared<Settings>();
    return {
        .options = withPhoneOptions({}, *settings),
        .notes =
            "Behind the hub the driver's own procedure runs, register by register; the phone is at rest "
            "unless --motion says\notherwise. Exit status 0 only when the offset was measured and saved; on "
            "a "
            "sub-device,\nwhen the kernel driver accepted the request.\n",
        .examples = {{"oisctl calibrate"},
                     {"oisctl calibrate --trace", "every register access and wait"},
                     {"oisctl calibrate --motion walk", "a moving phone does not calibrate"},
                     {"oisctl calibrate --fault chip.never-idle",
                      "skipped, which the driver's status does not tell"},
                     {"oisctl calibrate -m dw9786", "on the sub-device: one request"}},
        .run = [settings] { return runCalibrate(*settings); },
    };
}

}  // namespace oisctl

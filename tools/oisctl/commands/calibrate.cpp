// oisctl calibrate: the gyro offset, measured, saved and told in words.

#include <fmt/format.h>

#include <array>
#include <memory>

#include "base/errors.h"
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

// Their words are below, in the same order.
enum class Measured { kYes, kLate, kFailed, kSkipped, kNotTold, kAccepted, kRefused };
enum class Saved { kYes, kNotIdle, kFailed, kOtherDataChanged, kUntouched, kNotSeen };

struct Verdict {
    Measured measured;
    Saved saved;
    bool good() const {
        return (measured == Measured::kYes && saved == Saved::kYes) || measured == Measured::kAccepted;
    }
};

Saved judgeFlash(const Observation& seen) {
    if (!seen.flashStarted) return Saved::kNotIdle;
    if (seen.flashStatus.value_or(0) != 0) return Saved::kFailed;
    const bool changed = seen.checkValues.size() == 2 && seen.checkValues[0] != seen.checkValues[1];
    return changed ? Saved::kOtherDataChanged : Saved::kYes;
}

Verdict judge(const Observation& seen) {
    if (!seen.started) return {Measured::kSkipped, Saved::kUntouched};
    if ((seen.status.value_or(0) & ois::korva::kCalibrationErrorBits) != 0)
        return {Measured::kFailed, Saved::kUntouched};
    return {seen.done ? Measured::kYes : Measured::kLate, judgeFlash(seen)};
}

// No register was seen: the whole calibration is one command.
Verdict judgeUnseen(DriverSession& session, int32_t result) {
    if (session.behindHub()) return {Measured::kNotTold, Saved::kNotSeen};
    const bool accepted = result == 0 && session.tally().counts().failures == 0;
    return {accepted ? Measured::kAccepted : Measured::kRefused, Saved::kNotSeen};
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

Field measuredField(const Verdict& verdict, const Observation& seen) {
    static constexpr std::pair<const char*, const char*> kWords[] = {
        {"measured", "measured"},
        {"late", "not finished in time; the driver takes what the controller holds"},
        {"failed", ""},
        {"skipped", "skipped: controller not idle"},
        {"not told",
         "sent to the hub, which does not tell what came of it; with --set bypassen=0\n"
         "the driver calibrates itself, register by register"},
        {"accepted", "accepted by the kernel driver"},
        {"refused", "refused by the kernel driver"}};
    const auto& [key, words] = kWords[static_cast<size_t>(verdict.measured)];
    std::string text = words;
    if (verdict.measured == Measured::kFailed)
        text = fmt::format("{}failed, status 0x{:02X}: {}", seen.done ? "" : "not finished in time; ",
                           *seen.status, errorBits(*seen.status));
    return {"calibration", "calibration", key, text, verdict.good() ? Style::kGood : Style::kBad};
}

Field savedField(const Verdict& verdict, const Observation& seen) {
    static constexpr std::pair<const char*, const char*> kWords[] = {
        {"saved", "saved, other flash data unchanged"},
        {"not saved", "not saved: the controller did not become idle again"},
        {"failed", "write failed"},
        {"other data changed", "written, but other flash data changed"},
        {"not touched", "not touched"},
        {"not seen", "not seen"}};
    const auto& [key, words] = kWords[static_cast<size_t>(verdict.saved)];
    std::string text = words;
    if (verdict.saved == Saved::kFailed) text += fmt::format(", status 0x{:02X}", *seen.flashStatus);
    if (verdict.saved == Saved::kOtherDataChanged)
        text +=
            fmt::format(": check value 0x{:04X} became 0x{:04X}", seen.checkValues[0], seen.checkValues[1]);
    return {"flash", "flash", key, text};
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

int run(Settings settings) {
    // The hub's own calibration would tell nothing; the family parser goes through the registers.
    settings.presets.push_back(phone::knownProperty("bypassen", "0"));
    if (settings.motion.empty()) settings.motion = "rest";
    DriverSession session(settings, Narration::kIfVerbose);
    session.requireStreaming();
    session.openFor("calibrate");
    session.notifyStream(true);
    Observation seen;
    session.observe([&seen](const phone::Event& event) { seen.take(event); });
    std::optional<Offsets> before = offsetsOf(session);
    const int32_t result = session.setOperation(kGyroOffset);
    session.observe(nullptr);
    std::optional<Offsets> after = offsetsOf(session);
    const Verdict verdict = seen.registersSeen ? judge(seen) : judgeUnseen(session, result);
    if (seen.registersSeen) before = seen.before;
    if (seen.after) after = seen.after;
    session.close();
    // A fault that struck need not have harmed the calibration.
    return conclude(session,
                    {measuredField(verdict, seen), savedField(verdict, seen),
                     offsetField("offset_before", "offset before", before),
                     offsetField("offset_after", "offset after", after)},
                    Ending::kReport, verdict.good());
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

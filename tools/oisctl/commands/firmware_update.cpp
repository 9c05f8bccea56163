// oisctl firmware-update: the driver's own update against the chip behind the hub.

#include <fmt/core.h>

#include <cerrno>
#include <memory>

#include "base/errors.h"
#include "commands/commands.h"
#include "controllers/korva/chip.h"
#include "hub/firmware_image.h"
#include "hub/sensor_hub.h"
#include "session/calls.h"
#include "session/driver_session.h"
#include "session/register_access.h"
#include "session/summary.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

using ois::korva::address;
using ois::korva::Register;

struct FirmwareUpdateOptions {
    Settings settings;
    std::string image;
    std::optional<uint32_t> imageVersion;
    std::optional<uint32_t> from;
    int32_t times = 1;
};

phone::FirmwareImage loadImage(const FirmwareUpdateOptions& options) {
    phone::FirmwareImage image =
        options.image.empty()
            ? phone::FirmwareImage::generate(*options.imageVersion)
            : asInput("--image: ",
                      [&] { return phone::FirmwareImage::fromFile(options.image, options.imageVersion); });
    if (image.version() == 0) {
        throw InputError(
            "the image's version is 0, which a controller without firmware reports; give it one "
            "with --image-version");
    }
    return image;
}

// What passed on the way, as far as the outcome's code and value do not tell.
struct Observation {
    uint64_t blocks = 0;
    uint64_t waitsForIdle = 0;
    int64_t clock = 0;
    bool flashOpened = false;
};

void take(Observation& seen, const phone::Event& event) {
    if (event.kind == phone::EventKind::kHub && event.code == ois::idByte(ois::HubCommand::kKorvaFwCmd) &&
        phone::integerField(phone::decode(event), "size") == ois::kFirmwareBlockSize) {
        ++seen.blocks;
    }
    const std::optional<RegisterAccess> access = registerAccess(event);
    if (!access) return;
    if (access->address == address(Register::kFlashDownload)) seen.flashOpened = true;
    if (access->address == address(Register::kClock)) seen.clock = access->value;
}

constexpr Verdict kUpdated{"updated", "updated", true};
constexpr Verdict kUpToDate{"up to date", "nothing to do: the controller has this version already", true};
constexpr Verdict kAccepted{"accepted", "the kernel driver took the update", true};
constexpr Verdict kRefused{"refused", "the kernel driver did not take the update"};
constexpr Verdict kNotAsked{"not asked", "not asked: no request for an update reached the kernel driver"};
constexpr Verdict kNotIdle{"not idle", "not updated: controller not idle"};
constexpr Verdict kControllerError{"controller error", "the controller reported an error after the download"};
constexpr Verdict kCheckValueRefused{"check value refused",
                                     "the controller did not accept the image's check value"};
constexpr Verdict kOtherVersion{"other version",
                                "after the download the controller runs another version than the image"};
constexpr Verdict kNoOutcome{"no outcome", "the hub received no outcome"};
constexpr Verdict kDeviceLost{"no outcome", "the device went away, and did not tell what came of it"};
constexpr Verdict kUnknownOutcome{"unknown outcome", "an outcome that no driver reports"};

// One run of the driver's update; what the sub-device way does not tell is empty.
struct Update {
    Verdict outcome = kRefused;
    Observation seen;
    std::optional<phone::FirmwareReport> report;
    std::optional<uint32_t> before;
    std::optional<uint32_t> after;
    std::optional<uint32_t> image;
    double seconds = 0;
};

Verdict judge(const Update& update) {
    if (!update.report) return kNoOutcome;
    const int64_t value = update.report->value;
    switch (static_cast<ois::FirmwareOutcome>(update.report->code)) {
        case ois::FirmwareOutcome::kUpdated:
            return kUpdated;
        case ois::FirmwareOutcome::kControllerError:
            return (value & ois::korva::kImageCheckValid) == 0 ? kControllerError : kCheckValueRefused;
        case ois::FirmwareOutcome::kNotUpdated:
            if (value != 0) return kOtherVersion;
            return !update.seen.flashOpened && update.before == update.image ? kUpToDate : kNotIdle;
        default:
            return kUnknownOutcome;
    }
}

// A chip whose download was cut short has no firmware to run.
Field versionField(const char* key, const char* label, std::optional<uint32_t> version) {
    if (!version) return {key, label, {}};
    return {key, label, *version, *version == 0 ? "none" : fmt::format("0x{:08X}", *version)};
}

Record fieldsOf(const Update& update) {
    const auto hub = [&update](auto value) { return update.report ? Value(value) : Value(); };
    const phone::FirmwareReport report = update.report.value_or(phone::FirmwareReport{});
    const bool behindHub = update.image.has_value();
    const auto label = [behindHub](const char* text) { return behindHub ? text : ""; };
    return {versionField("version_before", label("before"), update.before),
            versionField("version_after", label("after"), update.after),
            versionField("image_version", label("image"), update.image),
            {"blocks", label("blocks"), behindHub ? Value(update.seen.blocks) : Value(),
             behindHub ? fmt::format("{} of {}", update.seen.blocks, ois::kFirmwareBlockCount) : ""},
            {"clock_hz", label("clock Hz"), behindHub ? Value(update.seen.clock) : Value()},
            {"code", label("code"), hub(report.code)},
            {"value", label("value"), hub(report.value),
             update.report ? fmt::format("0x{:X}", report.value) : ""},
            {"duration_s", "time", update.seconds, duration(update.seconds)},
            verdictField("outcome", update.outcome)};
}

Update updateBehindHub(DriverSession& session) {
    phone::SensorHub& hub = session.phone().hub();
    Update update;
    update.before = hub.chip().held()->registers.get(Register::kFirmwareVersion);
    update.image = hub.firmware().version();
    const double startS = session.nowS();
    const size_t reportsBefore = hub.firmwareReports().size();
    {
        Progress progress("firmware", ois::kFirmwareBlockCount);
        const auto observation = session.observe([&](const phone::Event& event) {
            take(update.seen, event);
            progress.update(static_cast<double>(update.seen.blocks),
                            fmt::format("block {} of {}", update.seen.blocks, ois::kFirmwareBlockCount));
        });
        session.firmwareUpdate();
    }
    update.seconds = session.nowS() - startS;
    update.after = hub.chip().held()->registers.get(Register::kFirmwareVersion);
    const std::vector<phone::FirmwareReport> reports = hub.firmwareReports();
    if (reports.size() > reportsBefore) update.report = reports.back();
    update.outcome = judge(update);
    return update;
}

Verdict judgeRequest(const phone::Event& request) {
    if (wasDelivered(request)) return kAccepted;
    if (request.error == EBADF && request.fault == nullptr) return kNotAsked;  // no device was open
    return request.error == ENODEV ? kDeviceLost : kRefused;
}

Update updateOnSubDevice(DriverSession& session) {
    const double startS = session.nowS();
    Update update;
    update.outcome = kNotAsked;
    const auto observation = session.observe([&update](const phone::Event& event) {
        if (event.kind == phone::EventKind::kSubDevice &&
            event.code == ois::code(ois::Request::kUpdateFirmware))
            update.outcome = judgeRequest(event);
    });
    session.firmwareUpdate();
    update.seconds = session.nowS() - startS;
    return update;
}

void prepareHub(DriverSession& session, const FirmwareUpdateOptions& options) {
    phone::SensorHub& hub = session.phone().hub();
    if (!options.image.empty() || options.imageVersion) hub.setFirmware(loadImage(options));
    if (options.from) hub.chip().held()->install(phone::FirmwareImage::generate(*options.from));
}

int runFirmwareUpdate(const FirmwareUpdateOptions& options) {
    DriverSession session(options.settings, Narration::kIfVerbose);
    session.requireModule("firmware-update", "with OIS", hasOis);
    session.requireMayWrite("firmware-update", "an update");
    const bool ownImage = !options.image.empty() || options.imageVersion || options.from;
    if (!session.behindHub() && ownImage) {
        throw InputError("--image, --image-version and --from are for a controller behind the hub; " +
                         session.module().name +
                         " is on a sub-device, where the kernel driver has the image");
    }
    if (session.behindHub()) prepareHub(session, options);
    bool good = false;
    Table updates;
    for (int32_t i = 0; i < options.times && !session.endsEarly(); ++i) {
        const Update update = session.behindHub() ? updateBehindHub(session) : updateOnSubDevice(session);
        updates.push_back(fieldsOf(update));
        good = update.outcome.good;
    }
    // A fault that struck may have been repaired by the next update.
    return conclude(session, {{"updates", "", updates}}, Ending::kReport, good);
}

}  // namespace

Command describeFirmwareUpdate() {
    auto options = std::make_shared<FirmwareUpdateOptions>();
    return {
        .options = withPhoneOptions(
            {value("--image", "FILE", "Image that the hub holds; else one is made up for a newer version",
                   &options->image),
             value("--image-version", "VERSION", "Version of that image", &options->imageVersion),
             value("--from", "VERSION", "Version that the controller runs at first", &options->from),
             value("--times", "N", "Update so often", &options->times, {.range = Range{1, 100}})},
            options->settings),
        .notes = "Exit status 0 when the controller runs the image's version in the end.\n",
        .examples = {{"oisctl firmware-update"},
                     {"oisctl firmware-update --real-time", "with a progress bar, as slow as on a phone"},
                     {"oisctl firmware-update --image ois.bin --from 0x00010203"},
                     {"oisctl firmware-update --fault chip.power-cut=57 --times 2",
                      "repairs what a power cut left"},
                     {"oisctl firmware-update -m dw9786",
                      "on the sub-device: one request to the kernel driver"}},
        .run = [options] { return runFirmwareUpdate(*options); },
    };
}

}  // namespace oisctl

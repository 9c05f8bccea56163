// oisctl firmware-update: the driver's own update against the chip behind the hub.

#include <charconv>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "base/errors.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "controllers/korva/chip.h"
#include "hub/firmware_image.h"
#include "hub/sensor_hub.h"
#include "session/driver_session.h"
#include "session/register_access.h"
#include "session/summary.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

using ois::korva::address;
using ois::korva::Register;

struct Options {
    Settings settings;
    std::string image;
    std::optional<uint32_t> imageVersion;
    std::optional<uint32_t> from;
    int32_t times = 1;
};

Take version(std::optional<uint32_t>& version) {
    return [&version](const std::string& word) {
        const bool isHex = word.starts_with("0x") || word.starts_with("0X");
        const char* const end = word.data() + word.size();
        const auto [stop, error] =
            std::from_chars(word.data() + (isHex ? 2 : 0), end, version.emplace(), isHex ? 16 : 10);
        if (error != std::errc() || stop != end)
            throw InputError(word + " is no number of 32 bits, as a version is: 0x01020304 or 16909060");
    };
}

phone::FirmwareImage loadImage(const Options& options) {
    if (options.image.empty()) return phone::FirmwareImage::generate(*options.imageVersion);
    try {
        return phone::FirmwareImage::fromFile(options.image, options.imageVersion);
    } catch (const std::runtime_error& error) {
        throw InputError(std::string("--image: ") + error.what());
    }
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

struct Outcome {
    bool good = false;
    std::string words;
};

Outcome judge(const phone::FirmwareReport& report, const Observation& seen, uint32_t before,
              uint32_t wanted) {
    switch (static_cast<ois::FirmwareOutcome>(report.code)) {
        case ois::FirmwareOutcome::kUpdated:
            return {true, "updated"};
        case ois::FirmwareOutcome::kControllerError:
            if ((report.value & ois::korva::kImageCheckValid) == 0)
                return {false, "the controller reported an error after the download"};
            return {false, "the controller did not accept the image's check value"};
        case ois::FirmwareOutcome::kNotUpdated:
            break;
        default:
            return {false, "an outcome that no driver reports"};
    }
    if (report.value != 0)
        return {false, "after the download the controller runs another version than the image"};
    if (!seen.flashOpened && before == wanted)
        return {true, "nothing to do: the controller has this version already"};
    return {false, "not updated: controller not idle"};
}

// A chip whose download was cut short has no firmware to run.
std::string versionText(uint32_t version) {
    constexpr int kDigits = 8;
    return version == 0 ? "none" : hex(version, kDigits);
}

void printOutcome(DriverSession& session, const Outcome& outcome, const phone::FirmwareReport& report,
                  const Observation& seen, uint32_t before, uint32_t after, double seconds) {
    const uint32_t wanted = session.phone().hub().firmware().version();
    if (session.settings().json) {
        printLine(nlohmann::json{
            {"good", outcome.good},
            {"outcome", outcome.words},
            {"code", report.code},
            {"value", report.value},
            {"version_before", before},
            {"version_after", after},
            {"image_version", wanted},
            {"blocks", seen.blocks},
            {"clock_hz", seen.clock},
            {"simulated_s",
             seconds}}.dump());
        return;
    }
    Table table({"", ""});
    table.addRow({"outcome", styled(outcome.good ? Style::kGood : Style::kBad, outcome.words)});
    table.addRow({"hub received", "code " + std::to_string(report.code) + ", value " + hex(report.value, 1)});
    table.addRow(
        {"firmware", versionText(before) + " -> " + versionText(after) + ", image " + versionText(wanted)});
    table.addRow({"blocks", std::to_string(seen.blocks) + " of " + std::to_string(ois::kFirmwareBlockCount)});
    table.addRow({"clock", grouped(static_cast<uint64_t>(seen.clock)) + " Hz"});
    table.addRow({"time", duration(seconds) + (session.settings().realTime ? "" : " simulated")});
    table.print();
}

// Where there is no more to tell.
void printWords(const DriverSession& session, const Outcome& outcome) {
    if (session.settings().json) {
        printLine(nlohmann::json{{"good", outcome.good}, {"outcome", outcome.words}}.dump());
        return;
    }
    Table table({"", ""});
    table.addRow({"outcome", styled(outcome.good ? Style::kGood : Style::kBad, outcome.words)});
    table.print();
}

bool updateBehindHub(DriverSession& session) {
    phone::SensorHub& hub = session.phone().hub();
    const uint32_t before = hub.chip().peek(Register::kFirmwareVersion);
    const double startS = session.nowS();
    const size_t reportsBefore = hub.firmwareReports().size();
    Observation seen;
    {
        Progress progress("firmware", ois::kFirmwareBlockCount);
        session.observe([&](const phone::Event& event) {
            take(seen, event);
            progress.update(
                static_cast<double>(seen.blocks),
                "block " + std::to_string(seen.blocks) + " of " + std::to_string(ois::kFirmwareBlockCount));
        });
        session.firmwareUpdate();
        session.observe(nullptr);
    }
    const uint32_t after = hub.chip().peek(Register::kFirmwareVersion);
    const std::vector<phone::FirmwareReport> reports = hub.firmwareReports();
    if (reports.size() == reportsBefore) {
        printWords(session, {false, "the hub received no outcome"});
        return false;
    }
    const Outcome outcome = judge(reports.back(), seen, before, hub.firmware().version());
    printOutcome(session, outcome, reports.back(), seen, before, after, session.nowS() - startS);
    return outcome.good;
}

std::string cameraType(const phone::ModuleDescription& module) {
    const auto& text = module.custInfo.cameraTypeName;
    return {text, strnlen(text, sizeof text)};
}

bool updateOnSubDevice(DriverSession& session) {
    const int32_t result = session.firmwareUpdate();
    const bool good = result == 1 && session.tally().counts().failures == 0;
    const std::string words =
        good ? "the kernel driver took the update for camera type " + cameraType(session.module())
             : "the kernel driver did not take the update";
    printWords(session, {good, words});
    return good;
}

void prepareHub(DriverSession& session, const Options& options) {
    phone::SensorHub& hub = session.phone().hub();
    if (!options.image.empty() || options.imageVersion) hub.setFirmware(loadImage(options));
    if (options.from) hub.chip().installFirmware(phone::FirmwareImage::generate(*options.from));
}

int run(const Options& options) {
    DriverSession session(options.settings,
                          options.settings.verbose ? Narration::kCalls : Narration::kNothing);
    if (!session.module().hasOis) throw JobError("firmware-update: " + session.module().name + " has no OIS");
    const bool ownImage = !options.image.empty() || options.imageVersion || options.from;
    if (!session.behindHub() && ownImage) {
        throw InputError("--image, --image-version and --from are for a controller behind the hub; " +
                         session.module().name +
                         " is on a sub-device, where the kernel driver has the image");
    }
    if (session.behindHub()) prepareHub(session, options);
    bool good = false;
    for (int32_t i = 0; i < options.times; ++i) {
        good = session.behindHub() ? updateBehindHub(session) : updateOnSubDevice(session);
    }
    // A fault that struck may have been repaired by the next update.
    conclude(session, good);
    return good ? kSuccess : kJobFailed;
}

}  // namespace

Command describeFirmwareUpdate() {
    auto options = std::make_shared<Options>();
    return {
        .options = withPhoneOptions(
            {{"--image", "FILE", "Image that the hub holds; else one is made up for a newer version",
              &options->image},
             {"--image-version", "VERSION", "Version of that image", version(options->imageVersion)},
             {"--from", "VERSION", "Version that the controller runs at first", version(options->from)},
             {"--times", "N", "Update so often", &options->times, {.range = Range{1, 100}}}},
            options->settings),
        .notes = "Exit status 0 when the controller runs the image's version in the end.\n",
        .examples = {{"oisctl firmware-update"},
                     {"oisctl firmware-update --real-time", "with a progress bar, as slow as on a phone"},
                     {"oisctl firmware-update --image ois.bin --from 0x00010203"},
                     {"oisctl firmware-update --fault chip.power-cut=57 --times 2",
                      "repairs what a power cut left"},
                     {"oisctl firmware-update -m dw9786",
                      "on the sub-device: one request to the kernel driver"}},
        .run = [options] { return run(*options); },
    };
}

}  // namespace oisctl

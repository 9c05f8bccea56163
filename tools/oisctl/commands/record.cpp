// oisctl record: the driver's own status recorder, on a module that the driver can record.

#include <fmt/core.h>

#include <atomic>
#include <memory>

#include "base/errors.h"
#include "base/units.h"
#include "commands/commands.h"
#include "motion/motion.h"
#include "recording/sidecar.h"
#include "recording/stats_report.h"
#include "session/calls.h"
#include "session/driver_session.h"
#include "session/dump_files.h"
#include "session/operations.h"
#include "session/summary.h"
#include "trace/decode.h"
#include "wire/requests.h"

namespace oisctl {

namespace {

constexpr int32_t kModeOn = 2;
constexpr int64_t kStepUs = 250'000;  // between two looks at the clock; each costs two changes of thread

constexpr int kFailedRow = 8;  // status requests in a row: more than a moment's trouble

constexpr int64_t kStalledUs = 2'000'000;  // without a row; the longest interval is 255 ms

struct RecordOptions {
    Settings settings;
    double seconds = 10;
    int32_t intervalMs = 4;
    int32_t mode = kModeOn;
    std::string folder = ".";
};

// False when it did not start. Started by an engineering request rather than by the bring-up, so that stream
// on does not wait for its end: the dump switch is set, but without the bit that makes the bring-up record.
bool startRecorder(DriverSession& session) {
    ois_params request{};
    request.engineer_mode = kEngineeringMode;
    request.engineer_operation = kNoOperation;
    session.setParams(request);
    // The second one makes the close wait for the recorder.
    session.setParams(request);
    return session.driver().mDumpThread.joinable();
}

constexpr const char* kStatusFile = "_status.txt";

// What the trace shows of the recording while it is made.
class Watch {
  public:
    explicit Watch(DriverSession& session) {
        mObservation = session.observe([this](const phone::Event& event) { take(event); });
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // Status requests that were refused since the last one that was not.
    int refused() const { return mRefused; }
    // That were delivered before the last row. To be asked when no thread of the driver runs.
    const std::vector<Sidecar::ModeChange>& modes() const { return mModes; }

  private:
    void take(const phone::Event& event) {
        if (event.kind != phone::EventKind::kSubDevice) return;
        if (event.code == ois::code(ois::Request::kSetMode) && wasDelivered(event)) {
            mPending.push_back(
                {static_cast<double>(event.timeUs) / kMicrosPerSecond, phone::recordOf<int32_t>(event.sent)});
        } else if (event.code == ois::code(ois::Request::kReadStatus)) {
            mRefused = event.error == 0 ? 0 : mRefused + 1;
            if (event.error == 0) mModes.insert(mModes.end(), mPending.begin(), mPending.end());
            if (event.error == 0) mPending.clear();
        }
    }

    std::atomic<int> mRefused{0};
    std::vector<Sidecar::ModeChange> mModes;
    std::vector<Sidecar::ModeChange> mPending;  // since the last row
    DriverSession::Observation mObservation;    // ends before what it fills
};

// Ends early when nothing is recorded any more, however long it was to take: the controller refuses, or the
// file stops growing.
void waitWhileRecording(DriverSession& session, const Watch& watch, double seconds) {
    const int64_t startUs = session.nowUs();
    const int64_t endUs = startUs + static_cast<int64_t>(seconds * kMicrosPerSecond);
    Progress progress("recording", seconds);
    uintmax_t bytes = 0;
    int64_t grownUs = startUs;
    while (session.nowUs() < endUs && !session.endsEarly()) {
        session.phone().clock().sleepUntilUs(std::min(endUs, session.nowUs() + kStepUs));
        progress.update(static_cast<double>(session.nowUs() - startUs) / kMicrosPerSecond);
        if (watch.refused() >= kFailedRow && !session.endsEarly()) {
            session.fail(fmt::format("READ_STATUS failed {} times in a row; the recording ended there",
                                     watch.refused()));
            return;
        }
        if (const uintmax_t now = dumpedBytes(session, kStatusFile); now > bytes) {
            bytes = now;
            grownUs = session.nowUs();
        } else if (session.nowUs() - grownUs >= kStalledUs && !session.endsEarly()) {
            session.fail(fmt::format("the status file stopped growing at {} bytes, {:.1f} s after the start",
                                     bytes, static_cast<double>(grownUs - startUs) / kMicrosPerSecond));
            return;
        }
    }
}

Sidecar aboutSession(const DriverSession& session, const RecordOptions& options,
                     const std::vector<Sidecar::ModeChange>& modes) {
    const phone::ModuleDescription& module = session.module();
    const Settings& settings = session.settings();
    Sidecar sidecar{.module = module.name,
                    .way = module.behindHub() ? "hub" : "sub-device",
                    .modes = modes,
                    .motion = settings.motion.empty() ? "hand" : settings.motion,
                    .seed = settings.seed.value_or(kDefaultSeed),
                    .limitAngle = module.stabiliser.limitAngle,
                    .gyroCountsPerRadS = module.stabiliser.gyroLsbPerRadS,
                    .accCountsPerMS2 = module.stabiliser.accLsbPerMS2,
                    .intervalMs = options.intervalMs,
                    .firmwareVersion = {}};
    if (!session.onDevice()) sidecar.firmwareVersion = module.firmwareVersion;
    for (const auto& properties : {settings.presets, settings.properties})
        for (const phone::Property& property : properties)
            sidecar.properties.emplace_back(property.key, property.value);
    return sidecar;
}

// Without one row there is no recording.
Record nothingRecorded(DriverSession& session, const std::string& why) {
    if (!session.deviceLost()) session.fail(why);
    return {{"file", "file", {}, "none"}, {"rows", "rows", 0}};
}

// Of too few rows nothing is told but their number. The true motion is known of a simulated controller only.
Record reportOn(DriverSession& session, const Recording& recording, const Sidecar& sidecar) {
    try {
        const std::string& file = recording.source;
        const auto motion = session.phone().motion().source();
        writeSidecar(recording, sidecar, session.stabiliser() == nullptr ? nullptr : motion);
        if (recording.rows() < kFewestRows) {
            if (!session.deviceLost())
                session.fail(fmt::format("{}: {} with data", file, rowText(recording.rows())));
            return {{"file", "file", file}, {"rows", "rows", recording.rows()}};
        }
        Record report = statsReport(examine(file));
        report.push_back({"", "plot it with", {}, fmt::format("oisctl plot {}", file)});
        return report;
    } catch (const std::runtime_error& error) {
        session.fail(error.what());
        return {};
    }
}

// Keeps what the driver wrote, if it is a recording, and tells of it.
Record keepAndReport(DriverSession& session, const std::filesystem::path& file, const RecordOptions& options,
                     const std::vector<Sidecar::ModeChange>& modes) {
    Recording recording;
    try {
        recording = loadRecording(file);
    } catch (const std::runtime_error& error) {
        return nothingRecorded(session, error.what());
    }
    if (recording.rows() == 0)
        return nothingRecorded(session, "the driver's status file has no row with data; it is not kept");
    recording.source = keepFile(file, options.folder).string();
    return reportOn(session, recording, aboutSession(session, options, modes));
}

int runRecord(RecordOptions options) {
    requireFolder(options.folder);
    std::vector<phone::Property>& properties = options.settings.properties;
    properties.push_back(phone::knownProperty("dump", std::to_string(kDumpOtp)));
    properties.push_back(phone::knownProperty("dump.interval.time", std::to_string(options.intervalMs)));
    // Simulated time stands still for a recorder that never sleeps.
    if (options.intervalMs == 0) options.settings.realTime = true;
    DriverSession session(options.settings, Narration::kIfVerbose);
    const Watch watch(session);
    session.requireModule("record", "on a sub-device", onSubDevice);
    if (!session.openFor()) return conclude(session, Record());
    session.notifyStream(true);
    session.setMode(options.mode);
    if (!startRecorder(session)) {
        if (!session.deviceLost()) session.fail("the recorder did not start");
        session.close();
        return conclude(session, Record());
    }
    waitWhileRecording(session, watch, options.seconds);
    session.notifyStream(false);
    session.close();
    const std::optional<std::filesystem::path> file = dumpFile(session, kStatusFile);
    if (!file) return conclude(session, Record());
    return conclude(session, keepAndReport(session, *file, options, watch.modes()));
}

}  // namespace

Command describeRecord() {
    auto options = std::make_shared<RecordOptions>();
    options->settings.simulatedModule = "dw9786";
    return {
        .options = withPhoneOptions(
            {value("--seconds", "S", "How long, in seconds", &options->seconds, {.range = Range{0.1, 86400}}),
             value("--interval", "MS",
                   "Milliseconds between two rows, up to 255; 0: as fast as it goes, in real time",
                   &options->intervalMs, {.range = Range{0, 255}}),
             value("--mode", "N", "Working mode meanwhile", &options->mode, {.words = modeNumbers}),
             value("-o,--output", "DIR", "Folder for the status file", &options->folder)},
            options->settings),
        .examples = {{"oisctl record -o out", "ten seconds of hand shake"},
                     {"oisctl record --motion ride.csv --seconds 60",
                      "what a recorded motion does to the picture"},
                     {"oisctl record --mode 0", "the same lens, held"},
                     {"oisctl plot out/*_status.txt -o shake.png", "and what it looks like"}},
        .run = [options] { return runRecord(*options); },
    };
}

}  // namespace oisctl

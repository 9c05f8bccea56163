#include "session/driver_session.h"

#include <fmt/core.h>

#include <atomic>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "base/errors.h"
#include "base/suggest.h"
#include "base/terminal.h"
#include "base/units.h"
#include "controllers/controller.h"
#include "controllers/korva/chip.h"
#include "faults/faults.h"
#include "hub/sensor_hub.h"
#include "kernel/file_tree.h"
#include "motion/motion.h"
#include "services/log_service.h"
#include "services/property_store.h"
#include "session/chosen_module.h"
#include "session/dump_files.h"
#include "session/operations.h"
#include "session/request_fields.h"
#include "wire/commands.h"

namespace oisctl {

namespace {

constexpr int64_t kBringUpPollUs = 1000;
constexpr int64_t kBringUpLimitUs = 2'000'000;

// What another thread of the driver may write at the same time.
template <typename T>
T shared(T& field) {
    return std::atomic_ref<T>(field).load();
}

}  // namespace

DriverSession::DriverSession(const Settings& settings, Narration narration)
    : mSettings(settings), mModule(chosenModule(settings)), mTraceOutput(settings, narration) {
    requireMeaning(settings, mModule);
    mPhone = asInput(settings.folder.empty() ? "" : "--folder: ",
                     [&] { return std::make_unique<phone::Phone>(phoneSetup(mSettings)); });
    mTraceOutput.begin({{"module", mModule.name}, {"sensor", int64_t{settings.sensorDev}}});
    mPhone->trace().setKeep(false);
    mPhone->trace().setListener([this](const phone::Event& event) {
        const std::optional<EndedCall> ended = mCalls.take(event);
        mTally.count(event, ended);
        mOrders.take(event);
        mWrittenFiles.take(event);
        mWay.take(event);
        mTraceOutput.show(event, ended);
        const std::lock_guard lock(mObserverMutex);
        for (const auto& observer : mObservers) observer(event);
    });
    mPhone->log().setLevel(settings.logLevel);
    mPhone->log().setSinks(settings.debugLog, settings.unifiedLog);
    if (!settings.mediaGraph.empty()) {
        mPhone->media().setDevices(
            asInput("--media-graph: ", [&] { return phone::loadMediaDevices(settings.mediaGraph); }));
    }
    mPhone->fit(settings.sensorDev, mModule);
    if (!settings.state.empty()) mState = std::make_unique<KeptState>(settings, mModule, *mPhone);
    setMotion(settings.motion.empty() ? "hand" : settings.motion);
    setProperties();
    if (mPhone->properties().getInt32("vendor.debug.ois.dump", 0) != 0)
        requireDumpFolder(mPhone->files().dumpFolder(), settings.realKernel ? "--dump-folder" : "--folder");
    for (const phone::Fault& fault : settings.faults) mPhone->faults().add(fault);
    mDriver = OISDrv::GetInstance(settings.sensorDev);
    if (mDriver == nullptr)
        throw InputError("--sensor " + std::to_string(settings.sensorDev) + ": it may be 0 to 7");
    if (settings.realKernel && behindHub()) {
        printRemark(
            fmt::format("oisctl: {} sits behind the sensor hub, which is simulated with --kernel real too: "
                        "no controller of this machine is reached",
                        mModule.name));
    }
}

DriverSession::~DriverSession() {
    if (mDriver != nullptr) close();
    mPhone->trace().setListener(nullptr);
}

void DriverSession::setProperties() {
    std::vector<phone::Property> fromFile;
    if (!mSettings.propertiesFile.empty())
        fromFile =
            asInput("--properties: ", [this] { return phone::loadProperties(mSettings.propertiesFile); });
    for (const auto& properties : {mSettings.presets, fromFile, mSettings.properties})
        for (const phone::Property& property : properties) mPhone->properties().set(property);
}

void DriverSession::setMotion(const std::string& nameOrFile) {
    mPhone->motion().set(asInput("--motion: ", [&] {
        return phone::motionByName(nameOrFile, mSettings.seed.value_or(kDefaultSeed));
    }));
}

phone::Stabiliser* DriverSession::stabiliser() {
    if (onDevice()) return nullptr;
    if (!mModule.hasOis) return nullptr;
    if (behindHub()) return &mPhone->hub().chip().stabiliser();
    phone::Controller* controller = mPhone->controller(mSettings.sensorDev);
    return controller == nullptr ? nullptr : &controller->stabiliser();
}

DriverSession::Observation DriverSession::observe(std::function<void(const phone::Event&)> observer) {
    const std::lock_guard lock(mObserverMutex);
    const auto place = mObservers.insert(mObservers.end(), std::move(observer));
    return {nullptr, [this, place](void*) {
                const std::lock_guard lockAgain(mObserverMutex);
                mObservers.erase(place);
            }};
}

void DriverSession::addFault(const phone::Fault& fault) {
    requireMeaning(fault, mSettings, mModule);
    mPhone->faults().add(fault);
}

void DriverSession::requireModule(std::string_view command, std::string_view needed,
                                  bool (*fits)(const phone::ModuleDescription&)) const {
    if (fits(mModule)) return;
    std::vector<phone::ModuleDescription> able = phone::shippedModules();
    std::erase_if(able, [fits](const phone::ModuleDescription& module) { return !fits(module); });
    throw InputError(fmt::format("{}: {} is no module {}; these are: {}", command, mModule.name, needed,
                                 joined(namesIn(able, &phone::ModuleDescription::name))));
}

void DriverSession::requireMayWrite(std::string_view job, std::string_view writes) const {
    if (mayWrite()) return;
    throw InputError(
        fmt::format("{}: {} would change or keep calibration of a real controller; "
                    "--allow-write lets it",
                    job, writes));
}

void DriverSession::clearFaults() {
    mPhone->faults().clear();
}

void DriverSession::requireStreaming() {
    const int32_t dump = mPhone->properties().getInt32("vendor.debug.ois.dump", 0);
    if (behindHub() || (dump & kDumpStatus) == 0) return;
    throw InputError(
        "--set vendor.debug.ois.dump=" + std::to_string(dump) +
        ": on a sub-device, bit 0 makes the bring-up thread record, and stream on waits for it without "
        "end; use 2, 4 or 6 here, or 'oisctl record'");
}

bool DriverSession::open() {
    const auto result =
        run("Init", {{"sensor_id", int64_t{mSettings.sensorId}}, {"module_id", int64_t{mSettings.moduleId}}},
            [this] { return mDriver->Init(mSettings.sensorId, mSettings.moduleId); });
    mOpening = !result ? Opening::kFailed : *result == 1 ? Opening::kDone : Opening::kNoOis;
    mOpen = mOpening == Opening::kDone;
    return mOpen;
}

bool DriverSession::openFor() {
    if (!open()) return false;
    waitForBringUp();
    if (channelIsUp() && !wayEnd()) return true;
    close();
    return false;
}

void DriverSession::waitForBringUp() {
    // With its status bit set, the dump switch keeps the bring-up thread busy as recorder until the close.
    const bool staysBusy = !behindHub() && (mDriver->mProperty.dump & kDumpStatus) != 0;
    if (!staysBusy && mDriver->mInitDrvThread.joinable()) mDriver->mInitDrvThread.join();
    const int64_t limitUs = nowUs() + kBringUpLimitUs;
    while (staysBusy && wayEnd() && nowUs() < limitUs) sleepUs(kBringUpPollUs);
}

bool DriverSession::channelIsUp() const {
    return shared(mDriver->fd_driver) >= 1 || shared(mDriver->mSensorHubEnabled) != 0;
}

void DriverSession::close() {
    if (mOpen) {
        bringToRest();
        uninit();
    }
    joinWorkers(*mDriver);
}

void DriverSession::closeAsItIs() {
    if (mOpen && !onDevice()) uninit();
    close();
}

void DriverSession::uninit() {
    mOpen = false;
    run("Uninit", {}, [this] { return mDriver->Uninit(); });
}

void DriverSession::bringToRest() {
    if (behindHub() || !channelIsUp() || deviceLost())
        return;  // the hub puts its controller to rest by itself
    std::thread& detector = mDriver->mDefectDetectThread;
    if (detector.joinable()) detector.join();  // or it moves the lens again
    const ControllerOrders::Last last = mOrders.last();
    if (last.target && last.target->manualEnable != 0) {
        // Where the lens is: a controller that looks at the target alone does not jump.
        ois::OisFixMode released = *last.target;
        released.manualEnable = 0;
        constexpr auto kCommand = ois::command::kSetFixMode;
        const uint32_t request = ois::code(kCommand.request);
        const int32_t hubCommand = ois::id(kCommand.hub);
        call(
            "ConfigOisTransfer",
            {{"request", uint64_t{request}, true},
             {"command", int64_t{hubCommand}},
             {"output_length", int64_t{kCommand.outLength}},
             {"in_place", int64_t{1}}},
            [&] {
                return mDriver->ConfigOisTransfer(request, hubCommand, &released, &released,
                                                  kCommand.inLength, kCommand.outLength);
            },
            bytesOf(released));
    }
    // Also releases a target whatever its enable word was. The operation goes out in any case; the driver
    // keeps a mode that it believes to be set to itself.
    if (last.target || last.stabilising) setOperation(kStabilisationOff);
}

void joinWorkers(OISDrv& driver) {
    std::atomic_ref(driver.mProperty.isRun).store(0);
    for (std::thread* worker : {&driver.mDumpThread, &driver.mDefectDetectThread, &driver.mInitDrvThread}) {
        if (worker->joinable()) worker->join();
    }
}

std::optional<int32_t> DriverSession::run(const char* name, std::vector<phone::Field> arguments,
                                          const std::function<int32_t()>& operation,
                                          std::span<const uint8_t> argument,
                                          std::optional<std::span<const uint8_t>> answer) {
    phone::Event event{.kind = phone::EventKind::kCall, .name = name, .fields = std::move(arguments)};
    if (mSettings.sensorDev != 0) event.fields.push_back({"sensor", int64_t{mSettings.sensorDev}});
    event.sent.assign(argument.begin(), argument.end());
    mPhone->trace().record(event);
    event.sent.clear();
    std::optional<int32_t> result;
    try {
        result = operation();
    } catch (const std::system_error& error) {
        fail(fmt::format("{}: {}", name, error.what()));
    }
    const std::span<const uint8_t> received = answer.value_or(argument);
    event.received.assign(received.begin(), received.end());
    event.result = result.value_or(-1);
    mPhone->trace().record(std::move(event));
    if (mState) mState->keep();
    return result;
}

int32_t DriverSession::call(const char* name, std::vector<phone::Field> arguments,
                            const std::function<int32_t()>& operation, std::span<const uint8_t> argument,
                            std::optional<std::span<const uint8_t>> answer) {
    return run(name, std::move(arguments), operation, argument, answer).value_or(-1);
}

int32_t DriverSession::notifyStream(bool on) {
    ois_stream_info info{on ? 1 : 0, 0};
    return call(
        "NotifyStream", {{"notify_stream", int64_t{info.notify_stream}, false, on ? "on" : "off"}},
        [&] { return mDriver->NotifyStream(&info); }, bytesOf(info));
}

int32_t DriverSession::setMode(int32_t mode) {
    return call("SetMode", {{"mode", int64_t{mode}, false, modeMeaning(mode)}},
                [&] { return mDriver->SetMode(mode); });
}

int32_t DriverSession::setOperation(int32_t operation) {
    const OperationInfo* info = findOperation(operation);
    return call("SetOperation",
                {{"operation", int64_t{operation}, false, info == nullptr ? "unsupported" : info->name}},
                [&] { return mDriver->SetOperation(operation); });
}

int32_t DriverSession::enableOis(int32_t dynamic) {
    return call("EnableOis", {{"dynamic", int64_t{dynamic}}}, [&] { return mDriver->EnableOis(dynamic); });
}

int32_t DriverSession::checkStatus() {
    return call("CheckIcStatus", {}, [this] { return mDriver->CheckIcStatus(); });
}

int32_t DriverSession::setParams(ois_params& params) {
    ois_params shown = params;
    const auto hidePointer = [&] {
        shown = params;
        shown.op_result_ptr = nullptr;  // into this very record
    };
    hidePointer();
    return call(
        "SetOisParams", fieldsOf(params),
        [&] {
            const int32_t result = mDriver->SetOisParams(&params);
            hidePointer();
            return result;
        },
        bytesOf(shown));
}

int32_t DriverSession::setSensorMode(int32_t mode) {
    ois_cfg_data configuration{mode};
    return call(
        "SetOisCfgData", {{"sensor_mode", int64_t{mode}}},
        [&] { return mDriver->SetOisCfgData(&configuration); }, bytesOf(configuration));
}

int32_t DriverSession::setFocus(ois_focus_params& focus) {
    phone::Field field{"distance_mm", int64_t{focus.distance}, false, "mm"};
    if (focus.useFocus != 0) field = {"focus_diopter", double{focus.focusDiopter}, false, "dpt"};
    return call(
        "SetAccParam", {field}, [&] { return mDriver->SetAccParam(reinterpret_cast<long>(&focus)); },
        bytesOf(focus));
}

int32_t DriverSession::setAfPosition(int32_t position) {
    return call("SetOisAFdriftParams", {{"position", int64_t{position}}},
                [&] { return mDriver->SetOisAFdriftParams(position); });
}

int32_t DriverSession::firmwareUpdate() {
    return call("FirmwareUpdate",
                {{"sensor_id", int64_t{mSettings.sensorId}}, {"module_id", int64_t{mSettings.moduleId}}},
                [this] { return mDriver->FirmwareUpdate(mSettings.sensorId, mSettings.moduleId); });
}

std::optional<WayEnd> DriverSession::wayEnd() const {
    if (mTally.counts().delivered > 0) return std::nullopt;
    if (mOpening == Opening::kNoOis) return WayEnd{EndPlace::kModule, {}, {}, {}};
    if (mOpening == Opening::kFailed) return WayEnd{EndPlace::kInit, {}, {}, {}};
    return mWay.end(mModule.driverName);
}

double DriverSession::nowS() {
    return static_cast<double>(nowUs()) * kSecondsPerUs;
}

double DriverSession::wallSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
}

void DriverSession::fail(std::string text) {
    mTally.addFailure(nowS(), std::move(text));
}

}  // namespace oisctl

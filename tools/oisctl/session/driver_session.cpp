#include "session/driver_session.h"

#include <fmt/core.h>

#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "base/errors.h"
#include "base/terminal.h"
#include "controllers/controller.h"
#include "controllers/korva_chip.h"
#include "faults/faults.h"
#include "hub/sensor_hub.h"
#include "motion/motion.h"
#include "services/log_service.h"
#include "services/property_store.h"
#include "session/operations.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

constexpr double kMicro = 1e-6;
constexpr int64_t kBringUpPollUs = 1000;
constexpr int64_t kBringUpLimitUs = 2'000'000;

phone::PhoneOptions phoneOptions(const Settings& settings) {
    phone::PhoneOptions options;
    options.kernel = settings.kernel == "real" ? phone::KernelKind::kReal : phone::KernelKind::kSimulated;
    options.clock = settings.realTime ? phone::ClockMode::kRealTime : phone::ClockMode::kSimulated;
    options.folder = settings.folder;
    options.dumpFolder = settings.dumpFolder;
    options.thermalFolder = settings.thermalFolder;
    return options;
}

// What another thread of the driver may write at the same time.
template <typename T>
T shared(T& field) {
    return std::atomic_ref<T>(field).load();
}

std::string describe(const ois_params& params) {
    std::string text;
    const auto add = [&text](const char* name, const std::string& value) {
        if (!text.empty()) text += ", ";
        text.append(name).append("=").append(value);
    };
    const auto addNonzero = [&add](const char* name, int64_t value) {
        if (value != 0) add(name, std::to_string(value));
    };
    addNonzero("ois_mode_from_tag", params.ois_mode_from_tag);
    addNonzero("video_mode", params.video_mode);
    addNonzero("engineer_mode", params.engineer_mode);
    if (params.engineer_operation != -1) add("engineer_operation", std::to_string(params.engineer_operation));
    addNonzero("act_scene", params.act_scene);
    add("zoom_ratio", number(params.zoom_ratio, 2));
    addNonzero("zoom_scale_en", params.zoom_scale_en);
    addNonzero("extra_param", params.extra_param);
    addNonzero("scenario", params.scenario);
    addNonzero("capture_en", params.capture_en);
    addNonzero("capture_value", params.capture_value);
    addNonzero("scenario_flag", params.scenario_flag);
    return text;
}

phone::ModuleDescription moduleOf(const Settings& settings) {
    try {
        return phone::moduleByName(settings.module);
    } catch (const std::runtime_error& error) {
        throw InputError(std::string("--module: ") + error.what());
    }
}

std::unique_ptr<phone::Phone> makePhone(const Settings& settings) {
    try {
        return std::make_unique<phone::Phone>(phoneOptions(settings));
    } catch (const std::runtime_error& error) {
        throw InputError((settings.folder.empty() ? "" : "--folder: ") + std::string(error.what()));
    }
}

void requireFault(const std::string& text) {
    try {
        checkFault(text);
    } catch (const std::invalid_argument& error) {
        throw InputError(std::string("--fault: ") + error.what());
    }
}

void requireMatchingFolders(const Settings& settings) {
    if (settings.kernel == "real") return;
    for (const auto& [option, folder] : {std::pair("--dump-folder ", &settings.dumpFolder),
                                         std::pair("--thermal-folder ", &settings.thermalFolder)}) {
        if (!folder->empty()) {
            throw InputError(option + folder->string() +
                             ": goes with --kernel real; --folder keeps the simulated phone's files");
        }
    }
}

}  // namespace

DriverSession::DriverSession(const Settings& settings, Narration narration)
    : mSettings(settings), mModule(moduleOf(settings)), mTraceOutput(settings, narration) {
    requireMatchingFolders(settings);
    for (const std::string& fault : settings.faults) requireFault(fault);
    mPhone = makePhone(settings);
    mPhone->trace().setKeep(false);
    mPhone->trace().setListener([this](const phone::Event& event) {
        mTally.count(event);
        mTraceOutput.show(event);
        if (mObserver) mObserver(event);
    });
    mPhone->log().setLevel(phone::logLevelByName(settings.logLevel));
    mPhone->log().setSinks(settings.logSinks == "debug" || settings.logSinks == "both",
                           settings.logSinks == "unified" || settings.logSinks == "both");
    mPhone->fit(settings.sensorDev, mModule);
    setMotion(settings.motion.empty() ? "hand" : settings.motion);
    setProperties();
    for (const std::string& fault : settings.faults) addFault(fault);
    mDriver = OISDrv::GetInstance(settings.sensorDev);
    if (mDriver == nullptr)
        throw InputError("--sensor " + std::to_string(settings.sensorDev) + ": it may be 0 to 7");
}

DriverSession::~DriverSession() {
    if (mDriver != nullptr) close();
    mPhone->trace().setListener(nullptr);
}

void DriverSession::setProperties() {
    std::vector<phone::Property> fromFile;
    try {
        if (!mSettings.propertiesFile.empty()) fromFile = phone::loadProperties(mSettings.propertiesFile);
    } catch (const std::runtime_error& error) {
        throw InputError(fmt::format("--properties: {}", error.what()));
    }
    for (const auto& properties : {mSettings.presets, fromFile, mSettings.properties})
        for (const phone::Property& property : properties) mPhone->properties().set(property);
}

void DriverSession::setMotion(const std::string& nameOrFile) {
    try {
        mPhone->motion().set(phone::motionByName(nameOrFile, mSettings.seed));
    } catch (const std::runtime_error& error) {
        throw InputError(std::string("--motion: ") + error.what());
    }
}

phone::Stabiliser* DriverSession::stabiliser() {
    if (mSettings.kernel == "real" && !behindHub()) return nullptr;
    if (!mModule.hasOis) return nullptr;
    if (behindHub()) return &mPhone->hub().chip().stabiliser();
    phone::Controller* controller = mPhone->controller(mSettings.sensorDev);
    return controller == nullptr ? nullptr : &controller->stabiliser();
}

void DriverSession::addFault(const std::string& text) {
    requireFault(text);
    if (!isChipFault(text)) {
        phone::FaultRule rule = phone::parseFault(text);
        // A bare name means the way that this module's commands go.
        const bool isBare = text.starts_with(rule.key);
        if (behindHub() && isBare && phone::findHubCommand(rule.key) != nullptr)
            rule.point = phone::FaultPoint::kHubCommand;
        mPhone->faults().add(std::move(rule));
        return;
    }
    if (!behindHub()) {
        throw InputError("--fault " + text + ": " + mModule.name +
                         " has no chip behind the hub; choose a hub module");
    }
    try {
        mPhone->hub().chip().inject(text);
    } catch (const std::invalid_argument& error) {
        throw InputError(std::string("--fault: ") + error.what());
    }
}

void DriverSession::clearFaults() {
    mPhone->faults().clear();
    if (behindHub()) mPhone->hub().chip().clearFaults();
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
    const std::string text =
        "Init(" + std::to_string(mSettings.sensorId) + ", " + std::to_string(mSettings.moduleId) + ")";
    mOpen = run(text, false, [this] { return mDriver->Init(mSettings.sensorId, mSettings.moduleId); }) == 1;
    return mOpen;
}

void DriverSession::openFor(std::string_view command) {
    if (!open()) {
        throw JobError(std::string(command) +
                       ": Init answered 0: the module has no OIS, or it is switched off");
    }
    waitForBringUp();
}

void DriverSession::waitForBringUp() {
    // With its status bit set, the dump switch keeps the bring-up thread busy as recorder until the close.
    const bool staysBusy = !behindHub() && (mDriver->mProperty.dump & kDumpStatus) != 0;
    if (!staysBusy && mDriver->mInitDrvThread.joinable()) mDriver->mInitDrvThread.join();
    const int64_t limitUs = nowUs() + kBringUpLimitUs;
    while (staysBusy && !channelIsUp() && nowUs() < limitUs) sleepUs(kBringUpPollUs);
    if (!channelIsUp()) fail("the bring-up did not reach the controller; --trace shows where it stopped");
}

bool DriverSession::channelIsUp() const {
    return shared(mDriver->fd_driver) >= 1 || shared(mDriver->mSensorHubEnabled) != 0;
}

void DriverSession::close() {
    if (mOpen) {
        mOpen = false;
        run("Uninit()", false, [this] { return mDriver->Uninit(); });
    }
    joinWorkers();
}

// The last Uninit leaves the recorder unless two engineering requests were made, and always the defect
// detector.
void DriverSession::joinWorkers() {
    std::atomic_ref(mDriver->mProperty.isRun).store(0);
    for (std::thread* worker :
         {&mDriver->mDumpThread, &mDriver->mDefectDetectThread, &mDriver->mInitDrvThread}) {
        if (worker->joinable()) worker->join();
    }
}

int32_t DriverSession::run(const std::string& text, bool mayRepeat,
                           const std::function<int32_t()>& operation) {
    phone::Event event;
    event.kind = phone::EventKind::kCall;
    event.name = text.substr(0, text.find('('));
    event.text = text;
    mPhone->trace().record(event);

    const uint32_t thread = mPhone->clock().threadNumber();
    const uint64_t before = mTally.sentBy(thread);
    const bool wasOpen = channelIsUp();
    int32_t result = -1;
    try {
        result = operation();
    } catch (const std::system_error& error) {
        fail(text + ": " + error.what());
    }
    if (mayRepeat && wasOpen && mTally.sentBy(thread) == before) {
        mTally.addRepeat();
        event.text += kRepeatRemark;
    }

    event.hasResult = true;
    event.result = result;
    mPhone->trace().record(event);
    return result;
}

int32_t DriverSession::call(const std::string& text, const std::function<int32_t()>& operation) {
    return run(text, false, operation);
}

int32_t DriverSession::notifyStream(bool on) {
    ois_stream_info info{on ? 1 : 0, 0};
    // The bring-up may be resetting it at this moment.
    const bool repeat = shared(mDriver->mStreamState) == info.notify_stream;
    return run(on ? "NotifyStream(on)" : "NotifyStream(off)", repeat,
               [&] { return mDriver->NotifyStream(&info); });
}

int32_t DriverSession::setMode(int32_t mode) {
    const bool repeat = mDriver->mOisMode == mode;
    const std::string text = "SetMode(" + std::to_string(mode) + ") " + std::string(modeMeaning(mode));
    const int32_t result = run(text, repeat, [&] { return mDriver->SetMode(mode); });
    if (modeMeaning(mode) == "unsupported")
        fail("the driver supports no mode " + std::to_string(mode) + ", and sent nothing");
    return result;
}

int32_t DriverSession::setOperation(int32_t operation) {
    const OperationInfo* info = findOperation(operation);
    const std::string text = "SetOperation(" + std::to_string(operation) + ") " +
                             std::string(info == nullptr ? "unsupported" : info->name);
    const int32_t result = run(text, false, [&] { return mDriver->SetOperation(operation); });
    if (info == nullptr)
        fail("the driver supports no operation " + std::to_string(operation) + ", and sent nothing");
    return result;
}

int32_t DriverSession::enableOis(int32_t dynamic) {
    return run("EnableOis(" + std::to_string(dynamic) + ")", false,
               [&] { return mDriver->EnableOis(dynamic); });
}

int32_t DriverSession::checkStatus() {
    return run("CheckIcStatus()", false, [this] { return mDriver->CheckIcStatus(); });
}

int32_t DriverSession::setParams(ois_params& params) {
    // An engineering request without an operation asks for nothing.
    const bool asks = params.engineer_mode != 8 || params.engineer_operation != -1;
    return run("SetOisParams(" + describe(params) + ")", asks && mDriver->mIsOisSupport != 0,
               [&] { return mDriver->SetOisParams(&params); });
}

int32_t DriverSession::setSensorMode(int32_t mode) {
    ois_cfg_data configuration{mode};
    return run("SetOisCfgData(" + std::to_string(mode) + ")", false,
               [&] { return mDriver->SetOisCfgData(&configuration); });
}

int32_t DriverSession::setFocus(ois_focus_params& focus) {
    constexpr int32_t kModeOn = 2;  // the only one in which the driver compensates acceleration
    const std::string text = focus.useFocus != 0 ? "SetAccParam(" + number(focus.focusDiopter, 3) + " dpt)"
                                                 : "SetAccParam(" + std::to_string(focus.distance) + " mm)";
    const bool asks = mDriver->mOisCustInfo.accSupport != 0 && mDriver->mOisMode == kModeOn;
    return run(text, asks, [&] { return mDriver->SetAccParam(reinterpret_cast<long>(&focus)); });
}

int32_t DriverSession::setAfPosition(int32_t position) {
    const bool repeat = mDriver->mLastAfPosition == position;
    return run("SetOisAFdriftParams(" + std::to_string(position) + ")", repeat,
               [&] { return mDriver->SetOisAFdriftParams(position); });
}

int32_t DriverSession::firmwareUpdate() {
    const std::string text = "FirmwareUpdate(" + std::to_string(mSettings.sensorId) + ", " +
                             std::to_string(mSettings.moduleId) + ")";
    return run(text, false,
               [this] { return mDriver->FirmwareUpdate(mSettings.sensorId, mSettings.moduleId); });
}

double DriverSession::nowS() {
    return static_cast<double>(nowUs()) * kMicro;
}

double DriverSession::wallSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
}

void DriverSession::fail(std::string text) {
    mTally.addFailure(nowS(), std::move(text));
}

}  // namespace oisctl

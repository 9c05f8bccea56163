#include "phone.h"

#include <android/log.h>
#include <linux/media.h>
#include <pthread.h>
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#include <sys/ioctl.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <set>

#include "camera_platform/lens_customisation.h"
#include "camera_platform/log.h"
#include "camera_platform/properties.h"
#include "vendor/quor/hardware/ruvex/1.0/IRuvex.h"

using fuzz::require;
using fuzz::Script;
using NSCam::Utils::eSensorType;
using NSCam::Utils::SensorData;
using NSCam::Utils::SensorProvider;
using NSCam::Utils::ULog::ULogger;

namespace {

constexpr unsigned long kSetCustomisation = 0xC6A856C7;

// The one phone; off while there is no driver.
OISDrv* gDriver = nullptr;
Script gScript{nullptr, 0, Script::From::kFront};
bool gHubWay = false;
char gDriverName[ois::kDriverNameSize];
std::set<int> gOpen;
int gLastDescriptor = 0;
int gDumps = 0;  // dump files that are open
int gLines = 0;  // written since the driver opened its last file

class Hub : public SensorProvider {
  public:
    bool enableSensor(eSensorType /*type*/, uint32_t /*intervalMs*/) override { return !gScript.rarely(); }
    bool isEnabled(eSensorType /*type*/) override { return !gScript.rarely(); }
    int32_t disableSensor(eSensorType /*type*/) override { return gScript.number(); }
    bool getAllSensorData(eSensorType /*type*/, std::vector<SensorData>& samples) override {
        samples.resize(gScript.byte() % 8);
        for (SensorData& sample : samples) gScript.fill(&sample, sizeof sample);
        return !gScript.rarely();
    }
    int32_t customCmd(eSensorType type, void* record) override {
        fuzz::pause();
        auto& command = *static_cast<ois::OisCustomCmd*>(record);
        require(type == 8 && command.inputLength <= sizeof command.payload && command.reserved == 0);
        // Downloads are long, and nobody looks at what answers a command that asks for nothing.
        if (command.outputLength != 0) gScript.fill(command.payload, sizeof command.payload);
        return command.payload[sizeof command.payload - 1];
    }
};

class Logger : public ULogger {
    void onAttach() override {}
    void onDetach() override {}
    void onFlush() override {}
    void onLog(uint32_t /*moduleId*/, const char* /*tag*/, int32_t /*level*/, const char* text,
               size_t length) override {
        require(text[0] == '[' && std::strlen(text) == length);
    }
} gLogger;

using android::hardware::hidl_string;
class Telemetry : public vendor::quor::hardware::ruvex::V1_0::IRuvex {
    android::hardware::Return<void> report(const hidl_string& /*moduleId*/, const hidl_string& /*eventId*/,
                                           const hidl_string& /*content*/) override {
        return android::hardware::Return<void>();
    }
} gTelemetry;

// What a call of libc returns: 0 as a rule, else a number, or -1 with an error.
int result() {
    const int32_t value = gScript.rarely() ? gScript.number(-1) : 0;
    if (value >= 0) return value;
    errno = -(value % 128);
    return -1;
}

// One kernel driver follows the pointer that heads the driver's own flash record, another answers in its
// place.
void answer(unsigned long request, void* record, size_t size) {
    constexpr unsigned long kReadFlash = 0xC60856DB;
    constexpr uint32_t kLensEntity = 0x20003;
    const uint8_t choice = gScript.byte();
    const bool follows = request == kReadFlash && record == &gDriver->mOisFlashData && choice % 2 == 0;
    if (follows) record = gDriver->mOisFlashData;
    if (record != nullptr) gScript.fill(record, size);
    if (request == MEDIA_IOC_DEVICE_INFO && choice % 2 == 0) {
        std::memcpy(static_cast<media_device_info*>(record)->model, "nxa_camera_af", 13);
    } else if (request == MEDIA_IOC_ENUM_ENTITIES) {
        auto& entity = *static_cast<media_entity_desc*>(record);
        if (choice % 2 == 0) entity.type = kLensEntity;
        if (choice / 2 % 2 == 0) std::memcpy(entity.name, gDriverName, sizeof gDriverName);
    }
}

ssize_t writeLine(void* succeeds, const char* text, size_t size) {
    constexpr int kRecorderLines = 12;
    require(std::all_of(text, text + size, [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }));
    if (++gLines > kRecorderLines) gDriver->mProperty.isRun = 0;
    return succeeds != nullptr ? static_cast<ssize_t>(size) : 0;
}

int closeDump(void* /*succeeds*/) {
    --gDumps;
    return 0;
}

// The driver's threads, each on a stack of its own within the one thread of the fuzzer: one runs at a time,
// and the script decides which, so that an input is played in the same way every time.
struct Worker {
    enum { kFree, kReady, kDone } state = kFree;
    void* (*body)(void*) = nullptr;
    void* argument = nullptr;
    ucontext_t context{};
    std::vector<char> stack = std::vector<char>(1 << 18);
};

Worker gWorkers[3];  // their ids are 1 to 3, which no thread of libc has
Worker* gRunning = nullptr;
ucontext_t gCaller;
const void* gCallersStack = nullptr;
size_t gCallersStackSize = 0;

void resume(Worker& worker) {
    void* frames = nullptr;
    gRunning = &worker;
    __sanitizer_start_switch_fiber(&frames, worker.stack.data(), worker.stack.size());
    swapcontext(&gCaller, &worker.context);
    __sanitizer_finish_switch_fiber(frames, nullptr, nullptr);
    gRunning = nullptr;
}

void suspend() {
    ucontext_t* context = &gRunning->context;
    void* frames = nullptr;
    __sanitizer_start_switch_fiber(gRunning->state == Worker::kDone ? nullptr : &frames, gCallersStack,
                                   gCallersStackSize);
    swapcontext(context, &gCaller);
    __sanitizer_finish_switch_fiber(frames, &gCallersStack, &gCallersStackSize);
}

void run() {
    __sanitizer_finish_switch_fiber(nullptr, &gCallersStack, &gCallersStackSize);
    gRunning->body(gRunning->argument);
    gRunning->state = Worker::kDone;
    suspend();
}

bool isFree(const Worker& worker) {
    return worker.state == Worker::kFree;
}

Worker* workerOf(pthread_t thread) {
    return thread >= 1 && thread <= std::size(gWorkers) ? &gWorkers[thread - 1] : nullptr;
}

}  // namespace

namespace fuzz {

void switchOn(Script answers, OISDrv& driver, bool hubWay, bool loud) {
    gDriver = &driver;
    gScript = answers;
    gHubWay = hubWay;
    gLastDescriptor = 0;
    std::memset(gDriverName, 0, sizeof gDriverName);
    ULogger::sMode = loud ? 3 : 0;
    ULogger::sULogger = &gLogger;
    ULogger::sDetailsLevel = 5;
    ULogger::sNormalDetailsMask = 0xffffffff;
    for (LogLevelInfo& level : g_logInfoLv) level = {"L", 0x80};
}

void switchOff() {
    gOpen.erase(0);  // counts as closed, so nobody closes it
    require(gOpen.empty() && gDumps == 0 && std::all_of(std::begin(gWorkers), std::end(gWorkers), isFree));
    gDriver = nullptr;
}

void pause() {
    if (std::all_of(std::begin(gWorkers), std::end(gWorkers), isFree)) return;
    const uint8_t choice = gScript.byte();
    Worker& worker = gWorkers[choice / 2 % std::size(gWorkers)];
    if (gRunning != nullptr) {
        if (choice % 2 == 1) suspend();
    } else if (choice % 2 == 0 && worker.state == Worker::kReady) {
        resume(worker);
    }
}

}  // namespace fuzz

// The platform's own declarations.

LogLevelInfo g_logInfoLv[8] = {};
int log_dbg_print(const char* /*tag*/, int /*level*/, const char* format, ...) {
    char line[2048];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    return length;
}
const char* get_filename_log_control(const char* path) {
    return path;
}
int __android_log_print(int /*priority*/, const char* /*tag*/, const char* format, ...) {
    char line[2048];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    return length;
}

namespace NSCam::Utils {

uint32_t ULogger::sMode = 0;
int32_t ULogger::sDetailsLevel = 0;
uint32_t ULogger::sNormalDetailsMask = 0;
ULogger* ULogger::sULogger = nullptr;

int32_t Properties::property_get_int32(const char* /*key*/, int32_t defaultValue) {
    return gScript.number(defaultValue);
}
bool Properties::property_get_bool(const char* /*key*/, bool defaultValue) {
    return gScript.rarely() != defaultValue;
}
int32_t Properties::property_get(const char* /*key*/, char* value, const char* defaultValue) {
    std::memset(value, 0, 256);
    std::strcpy(value, defaultValue);
    gScript.fill(value, 255);
    return static_cast<int32_t>(std::strlen(value));
}

std::shared_ptr<SensorProvider> SensorProvider::createInstance(const char* /*userName*/) {
    return gScript.rarely() ? nullptr : std::make_shared<Hub>();
}

}  // namespace NSCam::Utils

int32_t GetOisDriverName(int32_t /*sensorDev*/, int32_t /*sensorId*/, int32_t /*moduleId*/, int32_t* status,
                         char* driverName, void* custInfo, void* custExt) {
    constexpr const char* kChips[] = {"korvas4sw", "dw9786", "dw9781"};
    constexpr size_t kAddresses = ois::kCustExtPlatformSize / sizeof(uint16_t);
    *status = gScript.number();
    gScript.fill(driverName, ois::kDriverNameSize - 1);
    std::memcpy(gDriverName, driverName, sizeof gDriverName);

    auto& info = *static_cast<ois::OisCustInfo*>(custInfo);
    info.gainFormat = info.accSupport = info.actOisSupport = info.zoomActOisSupport = 1;
    info.actuatorDetectSupport = info.extraParamSupport = info.camera_type = info.coordinateNum = 1;
    gScript.fill(&info, sizeof info);
    info.useSensorHub = gHubWay ? info.useSensorHub | 1 : 0;
    info.coordinateNum %= gScript.byte() >= 0xfc ? 450 : 8;  // the former reaches behind the block
    const uint8_t chip = gScript.byte();
    if (chip < std::size(kChips)) std::strcpy(info.mOisIcName, kChips[chip]);

    // Most maps stay within a neighbourhood, since a dump of wide ranges takes long.
    auto* map = static_cast<uint16_t*>(custExt);
    gScript.fill(map, kAddresses * sizeof *map);
    const int32_t base = gScript.number() & UINT16_MAX;
    const int32_t mask = gScript.byte() >= 0xfc ? 0x7ff : 0x3f;
    const size_t written = kAddresses + gScript.byte() % 2;  // with the driver's own address or without
    for (size_t i = 0; i < written; ++i)
        map[i] = static_cast<uint16_t>(std::min(base + (map[i % kAddresses] & mask), int32_t{UINT16_MAX}));
    return gScript.rarely() ? 0 : 1;
}

hidl_string::hidl_string(const char* text) : mText(text) {}

namespace vendor::quor::hardware::ruvex::V1_0 {
android::sp<IRuvex> IRuvex::getService(const std::string& /*serviceName*/, bool /*getStub*/) {
    return gScript.rarely() ? nullptr : &gTelemetry;
}
void IRuvex::incStrong(const void* /*id*/) const {}
void IRuvex::decStrong(const void* /*id*/) const {}
}  // namespace vendor::quor::hardware::ruvex::V1_0

// The calls of libc that the driver makes. The fuzzer itself makes those that go on to libc.

extern "C" {

int __interceptor_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                                 void* argument);
int __interceptor_pthread_join(pthread_t thread, void** result);
FILE* __interceptor_fopen(const char* path, const char* mode);

int open(const char* /*path*/, int /*flags*/, ...) {
    const int given = result();
    if (given < 0) return -1;
    return *gOpen.insert(given == 0 ? ++gLastDescriptor : 0).first;
}

int close(int descriptor) {
    require(gDriver == nullptr || descriptor == 0 || gOpen.erase(descriptor) == 1);
    return 0;
}

// The kernel moves as many bytes as the request says.
int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* record = va_arg(arguments, void*);
    va_end(arguments);
    require(request <= UINT32_MAX && (descriptor <= 0 || gOpen.count(descriptor) != 0));
    fuzz::pause();
    if (descriptor < 0 || record == nullptr) {
        errno = descriptor < 0 ? EBADF : EFAULT;
        return -1;
    }
    static char moved[1 << _IOC_SIZEBITS];
    std::memcpy(moved, record, _IOC_SIZE(request));
    const int given = result();
    if (given >= 0 && (_IOC_DIR(request) & _IOC_READ) != 0) answer(request, record, _IOC_SIZE(request));
    // A kernel may change the customisation, but one that changes the way leaves a descriptor that nobody
    // closes.
    constexpr size_t kUseSensorHubByte = 30;
    if (request == kSetCustomisation)
        static_cast<char*>(record)[kUseSensorHubByte] = moved[kUseSensorHubByte];
    return given;
}

ssize_t readlink(const char* /*path*/, char* buffer, size_t size) noexcept {
    if (result() < 0) return -1;
    std::string target = "../v4l-subdev3";
    target.resize(std::max<size_t>(target.size(), gScript.byte()));
    gScript.fill(target.data(), target.size());
    return static_cast<ssize_t>(target.copy(buffer, size));
}

int usleep(useconds_t /*us*/) {
    fuzz::pause();
    return 0;
}

FILE* fopen(const char* path, const char* mode) {
    static char thermal[16];
    const bool ofDriver =
        std::strncmp(path, "/mnt/vendor/", 12) == 0 || std::strncmp(path, "/sys/cam_", 9) == 0;
    if (!ofDriver) return __interceptor_fopen(path, mode);
    if (result() < 0) return nullptr;
    if (*mode == 'w') {
        ++gDumps;
        gLines = 0;
        return fopencookie(gScript.rarely() ? nullptr : &gLines, mode,
                           {nullptr, writeLine, nullptr, closeDump});
    }
    std::snprintf(thermal, sizeof thermal, "%d", gScript.number(25));
    if (gScript.rarely()) gScript.fill(thermal, sizeof thermal);
    return fmemopen(thermal, sizeof thermal, mode);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    if (gDriver == nullptr) return __interceptor_pthread_create(thread, attributes, body, argument);
    Worker* worker = std::find_if(std::begin(gWorkers), std::end(gWorkers), isFree);
    if (worker == std::end(gWorkers) || gScript.rarely()) return EAGAIN;
    worker->state = Worker::kReady;
    worker->body = body;
    worker->argument = argument;
    getcontext(&worker->context);
    worker->context.uc_stack = {worker->stack.data(), 0, worker->stack.size()};
    ASAN_UNPOISON_MEMORY_REGION(worker->stack.data(), worker->stack.size());
    makecontext(&worker->context, run, 0);
    *thread = static_cast<pthread_t>(worker - gWorkers) + 1;
    if (gScript.byte() % 2 == 0) resume(*worker);
    return 0;
}

int pthread_join(pthread_t thread, void** value) {
    Worker* worker = workerOf(thread);
    if (worker == nullptr) return __interceptor_pthread_join(thread, value);
    while (worker->state == Worker::kReady) resume(*worker);
    worker->state = Worker::kFree;
    return 0;
}

int pthread_setschedparam(pthread_t thread, int /*policy*/, const sched_param* /*param*/) noexcept {
    require(workerOf(thread) != nullptr);
    return EPERM;
}

}  // extern "C"

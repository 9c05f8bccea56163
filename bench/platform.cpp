#include "platform.h"

#include <android/log.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "camera_platform/lens_customisation.h"
#include "camera_platform/log.h"
#include "camera_platform/properties.h"
#include "vendor/quor/hardware/ruvex/1.0/IRuvex.h"

using NSCam::Utils::SensorData;
using NSCam::Utils::SensorProvider;
using NSCam::Utils::ULog::ULogger;

namespace bench {
namespace {

std::atomic<uint64_t> allocationCount{0};
int handled = -1;
std::function<void(void*)> requestHandler;

class MemoryFolder {
  public:
    MemoryFolder() {
        const char* root = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
        mPath = std::string(root) + "/ois_bench_XXXXXX";
        if (mkdtemp(mPath.data()) == nullptr)
            throw std::runtime_error("cannot create a folder in " + std::string(root));
    }
    ~MemoryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    MemoryFolder(const MemoryFolder&) = delete;
    MemoryFolder& operator=(const MemoryFolder&) = delete;
    const std::string& path() const { return mPath; }

  private:
    std::string mPath;
};

class QuietProvider : public SensorProvider {
  public:
    bool enableSensor(NSCam::Utils::eSensorType /*type*/, uint32_t /*intervalMs*/) override { return true; }
    bool isEnabled(NSCam::Utils::eSensorType /*type*/) override { return true; }
    int32_t disableSensor(NSCam::Utils::eSensorType /*type*/) override { return 0; }
    bool getAllSensorData(NSCam::Utils::eSensorType /*type*/, std::vector<SensorData>& samples) override {
        samples.swap(queuedSamples());
        return true;
    }
    int32_t customCmd(NSCam::Utils::eSensorType /*type*/, void* /*record*/) override { return 0; }
};

class QuietLogger : public ULogger {
  public:
    void onAttach() override {}
    void onDetach() override {}
    void onFlush() override {}
    void onLog(uint32_t /*moduleId*/, const char* /*tag*/, int32_t /*level*/, const char* /*text*/,
               size_t /*length*/) override {}
};

}  // namespace

const std::string& folder() {
    static const MemoryFolder instance;
    return instance.path();
}

uint64_t allocations() {
    return allocationCount.load(std::memory_order_relaxed);
}

std::vector<SensorData>& queuedSamples() {
    static std::vector<SensorData> samples;
    return samples;
}

int kernelDescriptor() {
    const int descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (descriptor < 0) throw std::runtime_error("cannot open /dev/null");
    return descriptor;
}

int handledDescriptor(std::function<void(void*)> handler) {
    handled = kernelDescriptor();
    requestHandler = std::move(handler);
    return handled;
}

void setMessages(Messages messages) {
    static QuietLogger logger;
    constexpr uint32_t kUnifiedMode = 2;
    constexpr int32_t kInfoLevel = 3;
    ULogger::sULogger = &logger;
    ULogger::sDetailsLevel = kInfoLevel;
    ULogger::sMode = messages == Messages::kOff ? 0 : kUnifiedMode;
}

OpenDriver::OpenDriver(int32_t sensorDev, int descriptor) : mDriver(OISDrv::GetInstance(sensorDev)) {
    if (mDriver->Init(0, 0) != 1) throw std::runtime_error("the driver does not open");
    // A stream start waits for the bring-up, which found no sub-device on this machine.
    ois_stream_info stream{1, 0};
    mDriver->NotifyStream(&stream);
    if (descriptor >= 0) {
        mDriver->fd_driver = descriptor;
        mDriver->NotifyStream(&stream);
    }
}

OpenDriver::~OpenDriver() {
    mDriver->Uninit();
    handled = -1;
}

}  // namespace bench

// The platform's own declarations.

LogLevelInfo g_logInfoLv[8] = {};
int log_dbg_print(const char* /*tag*/, int /*level*/, const char* /*format*/, ...) {
    return 0;
}
const char* get_filename_log_control(const char* path) {
    return path;
}
int __android_log_print(int /*priority*/, const char* /*tag*/, const char* /*format*/, ...) {
    return 0;
}

namespace NSCam::Utils {

namespace ULog {
uint32_t ULogger::sMode = 0;
int32_t ULogger::sDetailsLevel = 0;
uint32_t ULogger::sNormalDetailsMask = 0;
ULogger* ULogger::sULogger = nullptr;
}  // namespace ULog

int32_t Properties::property_get_int32(const char* /*key*/, int32_t defaultValue) {
    return defaultValue;
}
bool Properties::property_get_bool(const char* /*key*/, bool defaultValue) {
    return defaultValue;
}
int32_t Properties::property_get(const char* /*key*/, char* value, const char* defaultValue) {
    std::strcpy(value, defaultValue);
    return static_cast<int32_t>(std::strlen(value));
}

std::shared_ptr<SensorProvider> SensorProvider::createInstance(const char* /*userName*/) {
    return std::make_shared<bench::QuietProvider>();
}

}  // namespace NSCam::Utils

int32_t GetOisDriverName(int32_t sensorDev, int32_t /*sensorId*/, int32_t /*moduleId*/, int32_t* status,
                         char* driverName, void* custInfo, void* custExt) {
    ois::OisCustInfo info{};
    info.useSensorHub = sensorDev == bench::kHubSensor ? 1 : 0;
    info.gainFormat = ois::kGainFloat;
    std::strcpy(info.mOisIcName, "korvas4sw");
    std::strcpy(info.cameraTypeName, "bench");
    std::memcpy(custInfo, &info, sizeof info);
    auto* addresses = static_cast<uint16_t*>(custExt);
    for (size_t i = 0; i < ois::kCustExtPlatformSize / sizeof *addresses; ++i) {
        addresses[i] = static_cast<uint16_t>(i);
    }
    std::strcpy(driverName, "bench");
    *status = 0;
    return 1;
}

android::hardware::hidl_string::hidl_string(const char* text) : mText(text) {}

namespace vendor::quor::hardware::ruvex::V1_0 {
android::sp<IRuvex> IRuvex::getService(const std::string& /*serviceName*/, bool /*getStub*/) {
    return {};
}
void IRuvex::incStrong(const void* /*id*/) const {}
void IRuvex::decStrong(const void* /*id*/) const {}
}  // namespace vendor::quor::hardware::ruvex::V1_0

// Calls of libc that come here first.

extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);

void* malloc(size_t size) {
    bench::allocationCount.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    bench::allocationCount.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
    bench::allocationCount.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(memory, size);
}

int ioctl(int descriptor, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* record = va_arg(arguments, void*);
    va_end(arguments);
    if (descriptor == bench::handled) {
        bench::requestHandler(record);
        return 0;
    }
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, record));
}

// The driver's fixed paths lead into the memory folder.
FILE* fopen(const char* path, const char* mode) {
    const char* name = std::strrchr(path, '/');
    const bool ofDriver =
        std::strncmp(path, "/mnt/vendor/", 12) == 0 || std::strncmp(path, "/sys/cam_thermal/", 17) == 0;
    char redirected[256];
    if (ofDriver) {
        std::snprintf(redirected, sizeof redirected, "%s%s", bench::folder().c_str(), name);
        path = redirected;
    }
    return fopen64(path, mode);
}

}  // extern "C"

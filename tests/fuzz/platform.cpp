#include "platform.h"

#include <android/log.h>
#include <linux/media.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdarg>
#include <string>

#include "camera_platform/lens_customisation.h"
#include "camera_platform/log.h"
#include "camera_platform/properties.h"
#include "vendor/quor/hardware/ruvex/1.0/IRuvex.h"
#include "workers.h"

using NSCam::Utils::eSensorType;
using NSCam::Utils::SensorData;
using NSCam::Utils::SensorProvider;
using NSCam::Utils::ULog::ULogger;

namespace fuzz {
namespace {

constexpr uint32_t kReadFlash = 0xC60856DB;
constexpr uint32_t kLensEntity = 0x20003;

Platform* gCurrent = nullptr;

Script& script() {
    return gCurrent->script;
}

class Hub : public SensorProvider {
  public:
    bool enableSensor(eSensorType /*type*/, uint32_t /*intervalMs*/) override { return !script().rarely(); }
    bool isEnabled(eSensorType /*type*/) override { return !script().rarely(); }
    int32_t disableSensor(eSensorType /*type*/) override { return script().number(); }
    bool getAllSensorData(eSensorType /*type*/, std::vector<SensorData>& samples) override {
        samples.resize(script().byte() % 8);
        for (SensorData& sample : samples) script().fill(&sample, sizeof sample);
        return !script().rarely();
    }
    int32_t customCmd(eSensorType type, void* record) override {
        gCurrent->pause();
        ois::OisCustomCmd command;
        std::memcpy(&command, record, sizeof command);
        require(type == 8 && command.inputLength <= sizeof command.payload && command.reserved == 0);
        script().fill(command.payload, sizeof command.payload);
        std::memcpy(record, &command, sizeof command);
        return script().number();
    }
};

class Logger : public ULogger {
  public:
    void onAttach() override {}
    void onDetach() override {}
    void onFlush() override {}
    void onLog(uint32_t /*moduleId*/, const char* /*tag*/, int32_t /*level*/, const char* text,
               size_t length) override {
        require(text[0] == '[' && std::strlen(text) == length);
    }
} gLogger;

class Telemetry : public vendor::quor::hardware::ruvex::V1_0::IRuvex {
  public:
    android::hardware::Return<void> report(const android::hardware::hidl_string& /*moduleId*/,
                                           const android::hardware::hidl_string& /*eventId*/,
                                           const android::hardware::hidl_string& /*content*/) override {
        return android::hardware::Return<void>();
    }
} gTelemetry;

// Both logs format every message that reaches them.
[[gnu::format(printf, 1, 0)]] int format(const char* text, va_list arguments) {
    char line[2048];
    return std::vsnprintf(line, sizeof line, text, arguments);
}

// A file of the driver: the lines that it writes, or the text that it reads.
struct File {
    bool fails;
    std::string text;
    int writes = 0;
    char last = '\n';
};

ssize_t readFile(void* cookie, char* buffer, size_t size) {
    auto& file = *static_cast<File*>(cookie);
    const size_t length = file.text.copy(buffer, size);
    file.text.erase(0, length);
    return static_cast<ssize_t>(length);
}

ssize_t writeFile(void* cookie, const char* text, size_t size) {
    constexpr int kRecorderLines = 12;
    auto& file = *static_cast<File*>(cookie);
    for (size_t i = 0; i < size; ++i) require(text[i] == '\n' || (text[i] >= ' ' && text[i] <= '~'));
    file.last = text[size - 1];
    if (++file.writes > kRecorderLines) gCurrent->stopRecorder();
    return file.fails ? 0 : static_cast<ssize_t>(size);
}

int closeFile(void* cookie) {
    const std::unique_ptr<File> file(static_cast<File*>(cookie));
    require(file->last == '\n');
    return file->fails ? EOF : 0;
}

}  // namespace

Platform::Platform(Script& bytes, OISDrv& driver, bool hubWay)
    : script(bytes), mDriver(driver), mHubWay(hubWay) {
    gCurrent = this;
    // Messages cost more than all else, so that most sessions are quiet ones.
    const bool loud = script.byte() % 4 == 3;
    ULogger::sMode = loud ? 3 : 0;
    ULogger::sULogger = &gLogger;
    ULogger::sDetailsLevel = 5;
    ULogger::sNormalDetailsMask = 0xffffffff;
    for (LogLevelInfo& level : g_logInfoLv) level = {"L", 0x80};
}

Platform::~Platform() {
    mOpen.erase(0);  // counts as closed, so nobody closes it
    require(mOpen.empty() && !hasWorkers());
    gCurrent = nullptr;
}

Platform* Platform::current() {
    return gCurrent;
}

int32_t Platform::customise(char* driverName, ois::OisCustInfo& info, uint16_t* otpMap) {
    constexpr size_t kPlatformAddresses = ois::kCustExtPlatformSize / sizeof *otpMap;
    constexpr uint16_t kMostCoordinates = 450;  // some lie behind the block
    constexpr const char* kChips[] = {"korvas4sw", "dw9786", "dw9781"};

    script.fill(driverName, ois::kDriverNameSize - 1);
    std::memcpy(mDriverName, driverName, sizeof mDriverName);
    script.fill(&info, sizeof info);
    info.useSensorHub = mHubWay ? info.useSensorHub | 1 : 0;
    info.coordinateNum %= kMostCoordinates;
    const uint8_t chip = script.byte();
    if (chip < std::size(kChips)) std::strcpy(info.mOisIcName, kChips[chip]);

    // Most maps stay within a neighbourhood, since a dump of wide ranges takes long.
    script.fill(otpMap, kPlatformAddresses * sizeof *otpMap);
    const auto base = static_cast<uint16_t>(script.number());
    const uint16_t mask = script.byte() >= 0xf8 ? 0xffff : 0xff;
    const bool knowsOwned = script.byte() % 2 == 1;
    for (size_t i = 0; i < kPlatformAddresses + (knowsOwned ? 1 : 0); ++i)
        otpMap[i] = static_cast<uint16_t>(base + (otpMap[i % kPlatformAddresses] & mask));
    return script.rarely() ? 0 : 1;
}

int Platform::result() {
    if (!script.rarely()) return 0;
    const int32_t value = script.number(-1);
    if (value >= 0) return value;
    errno = -(value % 128);
    return -1;
}

int Platform::open() {
    const int given = result();
    if (given < 0) return -1;
    const int descriptor = given == 0 ? ++mLastDescriptor : 0;
    mOpen.insert(descriptor);
    return descriptor;
}

void Platform::close(int descriptor) {
    if (descriptor != 0) require(mOpen.erase(descriptor) == 1);
}

ssize_t Platform::readlink(char* buffer, size_t size) {
    if (result() < 0) return -1;
    std::string target = "../v4l-subdev3";
    target.resize(std::max<size_t>(target.size(), script.byte()));
    script.fill(target.data(), target.size());
    return static_cast<ssize_t>(target.copy(buffer, size));
}

FILE* Platform::fopen(bool writes) {
    if (result() < 0) return nullptr;
    std::string text = std::to_string(script.number(25));
    if (script.rarely()) script.fill(text.data(), text.size());
    return fopencookie(new File{script.rarely(), text}, writes ? "w" : "r",
                       {readFile, writeFile, nullptr, closeFile});
}

// The kernel moves as many bytes as the request says, in both directions.
int Platform::ioctl(int descriptor, unsigned long request, void* record) {
    require(request <= UINT32_MAX);
    pause();
    require(descriptor <= 0 || owns(descriptor));
    if (descriptor < 0 || record == nullptr) {
        errno = descriptor < 0 ? EBADF : EFAULT;
        return -1;
    }
    std::vector<char> moved(_IOC_SIZE(request));
    std::memcpy(moved.data(), record, moved.size());
    const int given = result();
    if (given >= 0 && (_IOC_DIR(request) & _IOC_READ) != 0)
        answer(static_cast<uint32_t>(request), record, _IOC_SIZE(request));
    return given;
}

void Platform::answer(uint32_t request, void* record, size_t size) {
    // One kernel driver follows the pointer that heads the driver's own flash record, another answers in its
    // place.
    const uint8_t choice = script.byte();
    if (request == kReadFlash && record == &mDriver.mOisFlashData && choice % 2 == 0) {
        if (mDriver.mOisFlashData != nullptr) script.fill(mDriver.mOisFlashData, size);
        return;
    }
    script.fill(record, size);
    if (request == MEDIA_IOC_DEVICE_INFO && choice % 2 == 0) {
        std::memcpy(static_cast<media_device_info*>(record)->model, "nxa_camera_af", 13);
    } else if (request == MEDIA_IOC_ENUM_ENTITIES) {
        auto& entity = *static_cast<media_entity_desc*>(record);
        if (choice % 2 == 0) entity.type = kLensEntity;
        if (choice / 2 % 2 == 0) std::memcpy(entity.name, mDriverName, sizeof mDriverName);
    }
}

void Platform::pause() {
    if (hasWorkers()) letWorkersRun(script.byte());
}

}  // namespace fuzz

// The platform's own declarations.

LogLevelInfo g_logInfoLv[8] = {};
int log_dbg_print(const char* /*tag*/, int /*level*/, const char* text, ...) {
    va_list arguments;
    va_start(arguments, text);
    const int length = fuzz::format(text, arguments);
    va_end(arguments);
    return length;
}
const char* get_filename_log_control(const char* path) {
    return path;
}
int __android_log_print(int /*priority*/, const char* /*tag*/, const char* text, ...) {
    va_list arguments;
    va_start(arguments, text);
    const int length = fuzz::format(text, arguments);
    va_end(arguments);
    return length;
}

namespace NSCam::Utils {

uint32_t ULogger::sMode = 0;
int32_t ULogger::sDetailsLevel = 0;
uint32_t ULogger::sNormalDetailsMask = 0;
ULogger* ULogger::sULogger = nullptr;

int32_t Properties::property_get_int32(const char* /*key*/, int32_t defaultValue) {
    return fuzz::script().number(defaultValue);
}
bool Properties::property_get_bool(const char* /*key*/, bool defaultValue) {
    return fuzz::script().rarely() != defaultValue;
}
int32_t Properties::property_get(const char* /*key*/, char* value, const char* defaultValue) {
    std::memset(value, 0, 256);
    std::strcpy(value, defaultValue);
    fuzz::script().fill(value, 255);
    return static_cast<int32_t>(std::strlen(value));
}

std::shared_ptr<SensorProvider> SensorProvider::createInstance(const char* /*userName*/) {
    return fuzz::script().rarely() ? nullptr : std::make_shared<fuzz::Hub>();
}

}  // namespace NSCam::Utils

int32_t GetOisDriverName(int32_t /*sensorDev*/, int32_t /*sensorId*/, int32_t /*moduleId*/, int32_t* status,
                         char* driverName, void* custInfo, void* custExt) {
    *status = fuzz::script().number();
    return fuzz::Platform::current()->customise(driverName, *static_cast<ois::OisCustInfo*>(custInfo),
                                                static_cast<uint16_t*>(custExt));
}

android::hardware::hidl_string::hidl_string(const char* text) : mText(text) {}

namespace vendor::quor::hardware::ruvex::V1_0 {
android::sp<IRuvex> IRuvex::getService(const std::string& /*serviceName*/, bool /*getStub*/) {
    return fuzz::script().rarely() ? nullptr : &fuzz::gTelemetry;
}
void IRuvex::incStrong(const void* /*id*/) const {}
void IRuvex::decStrong(const void* /*id*/) const {}
}  // namespace vendor::quor::hardware::ruvex::V1_0

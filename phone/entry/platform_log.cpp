#include "entry/platform_log.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "android/log.h"
#include "entry/phone_in_use.h"
#include "kernel/user_memory.h"

namespace {

using phone::LogLevel;
using phone::LogSink;

constexpr int kDebugLogDebug = 0;
constexpr int kDebugLogError = 1;
constexpr int kDebugLogInfo = 3;
constexpr uint8_t kLevelEnabled = 0x80;

constexpr int32_t kUnifiedError = 1;
constexpr int32_t kUnifiedInfo = 3;
constexpr int32_t kUnifiedDebug = 5;
constexpr uint32_t kModeDebugLog = 0x01;
constexpr uint32_t kModeUnified = 0x02;
// The camera's 3A modules, and the bit that opens their debug messages.
constexpr uint32_t kDetailsMask = (1U << 23) | 0x1000;

constexpr int kAndroidInfo = 4;

constexpr size_t kMessageSize = 4096;

int deliver(LogSink sink, LogLevel level, const char* tag, const char* format, va_list arguments) {
    const phone::PhoneInUse phone;
    if (!phone) return 0;
    std::array<char, kMessageSize> text;
    text[0] = '\0';
    int length = 0;
    if (phone->log().wantsText(level)) {
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): every caller has started it
        length = std::vsnprintf(text.data(), text.size(), format, arguments);
    }
    if (length < 0) return length;
    phone->log().receive(sink, level, tag, text.data());
    return length;
}

// Outlives every phone, since a thread of the driver may be on its way here when one goes.
class UnifiedLogger final : public NSCam::Utils::ULog::ULogger {
  public:
    void onAttach() override {}
    void onDetach() override {}
    void onFlush() override {}
    void onLog(uint32_t /*moduleId*/, const char* tag, int32_t level, const char* text,
               size_t length) override {
        if (const phone::PhoneInUse phone{}) {
            phone->log().receive(LogSink::kUnifiedLogger, phone::levelOfUnified(level), tag,
                                 std::string_view(text, length));
        }
    }
};

UnifiedLogger gUnifiedLogger;

}  // namespace

LogLevelInfo g_logInfoLv[8] = {{"[D]", 0}, {"[E]", 0}, {"[W]", 0}, {"[I]", 0},
                               {"[V]", 0}, {"[V]", 0}, {"[V]", 0}, {"[V]", 0}};

int log_dbg_print(const char* tag, int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = deliver(LogSink::kDebugLog, phone::levelOfDebugLog(level), tag, format, arguments);
    va_end(arguments);
    return length;
}

const char* get_filename_log_control(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = deliver(LogSink::kAndroidLog, phone::levelOfAndroid(priority), tag, format, arguments);
    va_end(arguments);
    return length;
}

namespace NSCam::Utils::ULog {

uint32_t ULogger::sMode = 0;
int32_t ULogger::sDetailsLevel = 0;
uint32_t ULogger::sNormalDetailsMask = 0;
ULogger* ULogger::sULogger = nullptr;

}  // namespace NSCam::Utils::ULog

namespace phone {

LogLevel levelOfDebugLog(int level) {
    if (level == kDebugLogError) return LogLevel::kError;
    return level == kDebugLogInfo ? LogLevel::kInfo : LogLevel::kDebug;
}

LogLevel levelOfUnified(int32_t level) {
    if (level <= kUnifiedError) return LogLevel::kError;
    return level <= kUnifiedInfo ? LogLevel::kInfo : LogLevel::kDebug;
}

LogLevel levelOfAndroid(int priority) {
    if (priority >= ANDROID_LOG_ERROR) return LogLevel::kError;
    return priority >= kAndroidInfo ? LogLevel::kInfo : LogLevel::kDebug;
}

void openPlatformLogs(LogLevel level, bool debugLog, bool unified) {
    using NSCam::Utils::ULog::ULogger;
    [[maybe_unused]] const InsideKernel unseen;  // a phone may go while the driver reads these words
    const bool error = level >= LogLevel::kError;
    const bool info = level >= LogLevel::kInfo;
    const bool debug = level >= LogLevel::kDebug;
    g_logInfoLv[kDebugLogError].flags = error ? kLevelEnabled : 0;
    g_logInfoLv[kDebugLogInfo].flags = info ? kLevelEnabled : 0;
    g_logInfoLv[kDebugLogDebug].flags = debug ? kLevelEnabled : 0;
    ULogger::sMode = error ? (debugLog ? kModeDebugLog : 0) | (unified ? kModeUnified : 0) : 0;
    ULogger::sDetailsLevel = debug ? kUnifiedDebug : info ? kUnifiedInfo : kUnifiedError;
    ULogger::sNormalDetailsMask = debug ? kDetailsMask : 0;
    ULogger::sULogger = &gUnifiedLogger;
}

}  // namespace phone

#pragma once
// The one way to write a message: OIS_LOG and its kin, below. Two sinks take messages, the platform's debug
// log and the unified logger; some lines go straight to the Android log.
//
// A message costs two or three loads while nobody wants it; its arguments are then not evaluated. Any thread.

#include <cstdio>
#include <cstring>

#include "android/log.h"
#include "camera_platform/log.h"

namespace ois::log {

constexpr const char* kTag = "OisDrv";
constexpr size_t kBufferSize = 1024;

// A level, as each of the two sinks numbers it.
struct Severity {
    int debugLog;
    int32_t unified;
    constexpr bool operator==(const Severity& other) const = default;
};
constexpr Severity kError{1, 1};
constexpr Severity kInfo{3, 3};
constexpr Severity kDebug{0, 5};

constexpr uint32_t kModuleMaskBit = 1U << 23;  // the driver's module in the unified logger's details mask
constexpr uint32_t kDebugMaskBits = 0x21000;   // any of them lets debug messages through
constexpr uint32_t kDebugLogMode = 1;          // of ULogger::sMode
constexpr uint32_t kUnifiedModes = 10;
constexpr uint8_t kLevelEnabled = 0x80;  // of LogLevelInfo::flags

inline bool severityWanted(Severity severity) {
    using NSCam::Utils::ULog::ULogger;
    if (severity == kError) return true;
    if (ULogger::sDetailsLevel < severity.unified) return false;
    return severity == kInfo || ((ULogger::sNormalDetailsMask & kModuleMaskBit) != 0 &&
                                 (ULogger::sNormalDetailsMask & kDebugMaskBits) != 0);
}
inline bool debugLogWants(Severity severity) {
    return (NSCam::Utils::ULog::ULogger::sMode & kDebugLogMode) != 0 &&
           (g_logInfoLv[severity.debugLog].flags & kLevelEnabled) != 0;
}
inline bool unifiedLoggerWants() {
    using NSCam::Utils::ULog::ULogger;
    return (ULogger::sMode & kUnifiedModes) != 0 && ULogger::sULogger != nullptr;
}
inline bool wanted(Severity severity) {
    return severityWanted(severity) && (debugLogWants(severity) || unifiedLoggerWants());
}

// Where a message stands in the source.
struct Site {
    const char* path;
    int line;
    const char* function;
};

// Writes the debug log's line head and the message's format, to be filled in by the debug log itself. False
// when that cannot be formatted.
bool buildLineFormat(char (&line)[kBufferSize], int level, const Site& site, const char* format);
void passToUnifiedLogger(Severity severity, const char* text);

template <typename... Arguments>
void toDebugLog(Severity severity, const Site& site, const char* format, const char* errorFormat,
                Arguments... arguments) {
    const int level = severity.debugLog;
    char line[kBufferSize] = {};
    if (severity == kError) {
        if (!buildLineFormat(line, level, site, errorFormat)) return;
        log_dbg_print(kTag, level, line, arguments..., site.function, site.line, site.path);
    } else {
        if (!buildLineFormat(line, level, site, format)) return;
        log_dbg_print(kTag, level, line, arguments...);
    }
}

template <typename... Arguments>
void toUnifiedLogger(Severity severity, const char* format, Arguments... arguments) {
    char text[kBufferSize] = {};
    if (std::snprintf(text, sizeof text, format, arguments...) < 0) return;
    text[kBufferSize - 1] = '\0';
    passToUnifiedLogger(severity, text);
}

template <typename... Arguments>
[[gnu::cold, gnu::noinline]] void write(Severity severity, const Site& site, const char* format,
                                        const char* errorFormat, Arguments... arguments) {
    if (debugLogWants(severity)) toDebugLog(severity, site, format, errorFormat, arguments...);
    if (unifiedLoggerWants()) toUnifiedLogger(severity, format, arguments...);
}

// Never called: lets the compiler hold a message's arguments against its format.
[[gnu::format(printf, 1, 2)]] void checkFormat(const char* format, ...);

}  // namespace ois::log

// A message of the operation that it stands in, at kError, kInfo or kDebug. It begins "[FUNCTION] "; FORMAT
// is a literal, and what follows are its arguments.
#define OIS_LOG(LEVEL, FORMAT, ...) OIS_LOG_AS(__func__, LEVEL, FORMAT __VA_OPT__(, ) __VA_ARGS__)

// The same from a step that has a function of its own, in the name of its operation.
#define OIS_LOG_AS(FUNCTION, LEVEL, FORMAT, ...)                                                \
    do {                                                                                        \
        if (false) ois::log::checkFormat("[%s] " FORMAT, (FUNCTION)__VA_OPT__(, ) __VA_ARGS__); \
        OIS_LOG_UNCHECKED_AS(FUNCTION, LEVEL, FORMAT __VA_OPT__(, ) __VA_ARGS__);               \
    } while (false)

// For the few messages whose arguments deliberately do not fit their format.
#define OIS_LOG_UNCHECKED(LEVEL, FORMAT, ...) \
    OIS_LOG_UNCHECKED_AS(__func__, LEVEL, FORMAT __VA_OPT__(, ) __VA_ARGS__)

// Straight to the Android log, past both sinks, at ERROR or DEBUG priority and without the function's name.
#define OIS_ANDROID_LOG(PRIORITY, ...) \
    __android_log_print(ANDROID_LOG_##PRIORITY, ois::log::kTag, __VA_ARGS__)

// What the others are made from.
#define OIS_LOG_UNCHECKED_AS(FUNCTION, LEVEL, FORMAT, ...)                                        \
    do {                                                                                          \
        if (ois::log::wanted(ois::log::LEVEL))                                                    \
            ois::log::write(ois::log::LEVEL, {__FILE__, __LINE__, FUNCTION}, "[%s] " FORMAT,      \
                            "[%s] " FORMAT " (%s){#%d:%s}", FUNCTION __VA_OPT__(, ) __VA_ARGS__); \
    } while (false)

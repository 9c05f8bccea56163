#include "log.h"

namespace ois::log {

namespace {
constexpr uint32_t kModuleId = 0x821005;
}

bool buildLineFormat(char (&line)[kBufferSize], int level, const Site& site, const char* format) {
    const int length =
        std::snprintf(line, sizeof line, "%s[%s] %s:%d %s() %s", g_logInfoLv[level].prefix, kTag,
                      get_filename_log_control(site.path), site.line, site.function, format);
    line[kBufferSize - 1] = '\0';
    return length >= 0;
}

void passToUnifiedLogger(Severity severity, const char* text) {
    // It may have gone since the message was begun.
    auto* const logger = NSCam::Utils::ULog::ULogger::sULogger;
    if (logger == nullptr) return;
    logger->onLog(kModuleId, kTag, severity.unified, text, std::strlen(text));
}

}  // namespace ois::log

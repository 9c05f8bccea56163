#pragma once
// The camera platform's two logs: the debug log and the unified logger.

#include <cstddef>
#include <cstdint>

struct LogLevelInfo {
    const char* prefix;
    uint8_t flags;  // bit 7: level enabled
};

extern "C" LogLevelInfo g_logInfoLv[8];  // indexed by the debug log's level
extern "C" int log_dbg_print(const char* tag, int level, const char* format, ...);
// Shortens a source path to what the debug log shows.
extern "C" const char* get_filename_log_control(const char* path);

namespace NSCam::Utils::ULog {

class ULogger {
  public:
    static uint32_t sMode;
    static int32_t sDetailsLevel;
    static uint32_t sNormalDetailsMask;
    static ULogger* sULogger;  // may be null: the unified logger is then absent

    virtual void onAttach() = 0;
    virtual void onDetach() = 0;
    virtual void onFlush() = 0;
    virtual void onLog(uint32_t moduleId, const char* tag, int32_t level, const char* text,
                       size_t length) = 0;

  protected:
    ~ULogger() = default;
};

}  // namespace NSCam::Utils::ULog

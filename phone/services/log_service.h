#pragma once
// The phone's three logs: the camera platform's debug log and unified logger, and the Android log.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace phone {

class Clock;
class Trace;

enum class LogLevel { kOff, kError, kInfo, kDebug };
// "off", "error", "info", "debug".
std::string_view name(LogLevel level);
// Throws std::invalid_argument that lists the names.
LogLevel logLevelByName(std::string_view name);

enum class LogSink { kDebugLog, kUnifiedLogger, kAndroidLog };
// "debug-log", "unified", "android": the name of a message's trace event.
std::string_view name(LogSink sink);

// What reaches any of the logs becomes a trace event of kind kMessage and, if asked for, a line of output.
// Messages arrive on any thread. The settings are the platform's plain global words, which the driver reads
// without a lock: change them while the driver is quiet.
class LogService {
  public:
    // All messages, through the unified logger alone, so that each appears once.
    LogService(Clock& clock, Trace& trace);
    // Leaves the logs switched off.
    ~LogService();
    LogService(const LogService&) = delete;
    LogService& operator=(const LogService&) = delete;

    // What the platform lets through. The Android log has no gate of its own and is filtered on arrival,
    // except that the trace always keeps its messages.
    void setLevel(LogLevel level);
    LogLevel level() const { return mLevel.load(std::memory_order_relaxed); }
    // Which of the platform's two sinks take messages.
    void setSinks(bool debugLog, bool unifiedLogger);

    // Lines "D/OisDrv: text" to an open file, which stays the caller's; null for none.
    void setOutput(std::FILE* file);

    // How many messages have arrived, by level.
    uint64_t count(LogLevel level) const;

    // For the platform's entry points (platform_log.cpp).
    bool wantsText(LogLevel level) const;
    void receive(LogSink sink, LogLevel level, std::string_view tag, std::string_view text);

  private:
    void apply();
    bool showsInOutput(LogLevel level) const;

    Clock& mClock;
    Trace& mTrace;
    std::atomic<LogLevel> mLevel{LogLevel::kDebug};
    bool mDebugLog = false;
    bool mUnified = true;
    std::atomic<std::FILE*> mOutput{nullptr};
    std::atomic<uint64_t> mCounts[4]{};
};

}  // namespace phone

#include "services/log_service.h"

#include <array>
#include <stdexcept>
#include <string>
#include <utility>

#include "entry/platform_log.h"
#include "time/clock.h"
#include "trace/trace.h"

namespace phone {

namespace {

constexpr std::array<std::string_view, 4> kLevelNames = {"off", "error", "info", "debug"};
constexpr char kLevelLetters[] = "-EID";

size_t index(LogLevel level) {
    return static_cast<size_t>(level);
}

}  // namespace

std::string_view name(LogLevel level) {
    return kLevelNames.at(index(level));
}

LogLevel logLevelByName(std::string_view name) {
    for (size_t i = 0; i < kLevelNames.size(); ++i) {
        if (kLevelNames[i] == name) return static_cast<LogLevel>(i);
    }
    throw std::invalid_argument("\"" + std::string(name) +
                                "\" is no log level; use off, error, info or debug");
}

std::string_view name(LogSink sink) {
    constexpr std::array<std::string_view, 3> kNames = {"debug-log", "unified", "android"};
    return kNames.at(static_cast<size_t>(sink));
}

LogService::LogService(Clock& clock, Trace& trace) : mClock(clock), mTrace(trace) {
    apply();
}

LogService::~LogService() {
    openPlatformLogs(LogLevel::kOff, false, false);
}

void LogService::setLevel(LogLevel level) {
    mLevel.store(level, std::memory_order_relaxed);
    apply();
}

void LogService::setSinks(bool debugLog, bool unifiedLogger) {
    mDebugLog = debugLog;
    mUnified = unifiedLogger;
    apply();
}

void LogService::apply() {
    openPlatformLogs(level(), mDebugLog, mUnified);
}

void LogService::setOutput(std::FILE* file) {
    mOutput.store(file, std::memory_order_release);
}

uint64_t LogService::count(LogLevel level) const {
    return mCounts[index(level)].load(std::memory_order_relaxed);
}

bool LogService::showsInOutput(LogLevel level) const {
    return mOutput.load(std::memory_order_acquire) != nullptr &&
           level <= mLevel.load(std::memory_order_relaxed);
}

bool LogService::wantsText(LogLevel level) const {
    return mTrace.enabled() || showsInOutput(level);
}

void LogService::receive(LogSink sink, LogLevel level, std::string_view tag, std::string_view text) {
    mClock.enter();
    mCounts[index(level)].fetch_add(1, std::memory_order_relaxed);
    if (mTrace.enabled()) {
        mTrace.record({.kind = EventKind::kMessage,
                       .name = std::string(name(sink)),
                       .fields = {{"level", std::string(name(level))}, {"tag", std::string(tag)}},
                       .text = std::string(text)});
    }
    if (!showsInOutput(level)) return;
    std::string line{kLevelLetters[index(level)], '/'};
    line.append(tag).append(": ").append(text);
    if (!line.ends_with('\n')) line += '\n';
    // One call per line, so that lines of different threads stay whole.
    std::fwrite(line.data(), 1, line.size(), mOutput.load(std::memory_order_acquire));
}

}  // namespace phone

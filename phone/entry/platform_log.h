#pragma once
// The platform's log levels, and the global words that let messages through.

#include <cstdint>

#include "camera_platform/log.h"
#include "services/log_service.h"

namespace phone {

// The levels as the three logs number them.
LogLevel levelOfDebugLog(int level);
LogLevel levelOfUnified(int32_t level);
LogLevel levelOfAndroid(int priority);

// Sets the global words so that messages up to `level` go to the debug log and to the unified logger.
void openPlatformLogs(LogLevel level, bool debugLog, bool unified);

}  // namespace phone

#pragma once
// The Android system log.

enum android_LogPriority : int {
    ANDROID_LOG_DEBUG = 3,
    ANDROID_LOG_ERROR = 6,
};

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

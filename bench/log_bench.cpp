// A message that nobody wants, and one that goes to the unified logger.

#include "log.h"

#include <benchmark/benchmark.h>

#include <cstdio>

#include "platform.h"
#include "ratio_table.h"

namespace {

void messageOff(benchmark::State& state) {
    bench::setMessages(bench::Messages::kInfoToUnifiedLogger);
    int value = 42;
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        OIS_LOG(kDebug, "ConfigOisTransfer oisMode: %d   \n", value);
    }
    bench::setMessages(bench::Messages::kOff);
}
BENCHMARK(messageOff);

void noMessage(benchmark::State& state) {
    int value = 42;
    for (auto _ : state) benchmark::DoNotOptimize(value);
}
BENCHMARK(noMessage);

// The longest of the messages that appear on every request.
#define REQUEST_MESSAGE                                                                                  \
    "Device_id %d, engineer_mode %d, engineer_operation %d, ois_mode_from_tag %d, ois_mode_execute %d, " \
    "video_mode "                                                                                        \
    "%d, zoom_ratio %f, result %d\n"

void messageOn(benchmark::State& state) {
    bench::setMessages(bench::Messages::kInfoToUnifiedLogger);
    int value = 1;
    double zoom = 1.5;
    const bench::AllocationCount count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        benchmark::DoNotOptimize(zoom);
        OIS_LOG(kInfo, REQUEST_MESSAGE, value, value, value, value, value, value, zoom, value);
    }
    bench::setMessages(bench::Messages::kOff);
}
BENCHMARK(messageOn);

void formatMessage(benchmark::State& state) {
    int value = 1;
    double zoom = 1.5;
    char text[ois::log::kBufferSize];
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        benchmark::DoNotOptimize(zoom);
        std::snprintf(text, sizeof text, "[%s] " REQUEST_MESSAGE, __func__, value, value, value, value, value,
                      value, zoom, value);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(formatMessage);

}  // namespace

// Draining the motion samples that the hub has queued, beside copying what is kept of each.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>

#include "platform.h"
#include "ratio_table.h"

namespace {

using NSCam::Utils::SensorData;

constexpr size_t kSamples = 1000;

std::vector<SensorData> makeSamples() {
    std::vector<SensorData> samples(kSamples);
    for (size_t i = 0; i < kSamples; ++i) {
        samples[i].timestamp = static_cast<int64_t>(i) * 1'000'000;
        for (float& value : samples[i].values) value = static_cast<float>(i);
    }
    return samples;
}

// The provider's own work is left out: it hands its samples over by a swap, prepared outside the clock.
template <typename Work>
void timed(benchmark::State& state, Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(passed.count());
}

void drainSamples(benchmark::State& state) {
    const auto driver = bench::OpenDriver::onHub();
    const std::vector<SensorData> samples = makeSamples();
    state.counters[bench::kOperations] = kSamples;
    for (auto _ : state) {
        bench::queuedSamples() = samples;
        timed(state, [&] { driver->GetSensorData(); });
        driver->mSensorTimestamps.clear();
        for (auto* values : {&driver->mSensorValue1, &driver->mSensorValue2, &driver->mSensorValue3,
                             &driver->mSensorValue4, &driver->mSensorValue5, &driver->mSensorValue6}) {
            values->clear();
        }
    }
}
BENCHMARK(drainSamples)->UseManualTime();

void copySamples(benchmark::State& state) {
    struct Kept {
        int64_t timestamp;
        float values[6];
    };
    const std::vector<SensorData> samples = makeSamples();
    std::vector<Kept> kept(kSamples);
    state.counters[bench::kOperations] = kSamples;
    for (auto _ : state) {
        bench::queuedSamples() = samples;
        timed(state, [&] {
            const SensorData* source = bench::queuedSamples().data();
            for (size_t i = 0; i < kSamples; ++i) {
                kept[i].timestamp = source[i].timestamp;
                std::memcpy(kept[i].values, source[i].values, sizeof kept[i].values);
            }
            benchmark::DoNotOptimize(kept.data());
            benchmark::ClobberMemory();
        });
    }
}
BENCHMARK(copySamples)->UseManualTime();

}  // namespace

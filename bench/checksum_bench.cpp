// The checksum of a whole firmware image beside copying it.

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "platform.h"

namespace {

constexpr uint16_t kImageSize = 28672;
constexpr size_t kUnaligned = 1;

std::vector<uint8_t> makeImage(size_t offset) {
    std::vector<uint8_t> image(kImageSize + offset);
    for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<uint8_t>(i * 37);
    return image;
}

void checksum(benchmark::State& state, size_t offset) {
    const std::vector<uint8_t> image = makeImage(offset);
    OISDrv* driver = OISDrv::GetInstance(bench::kHubSensor);
    for (auto _ : state) {
        benchmark::DoNotOptimize(driver->korvas4sw_fw_checksum(image.data() + offset, kImageSize));
    }
}

void copy(benchmark::State& state, size_t offset) {
    const std::vector<uint8_t> image = makeImage(offset);
    std::vector<uint8_t> target(kImageSize);
    for (auto _ : state) {
        std::memcpy(target.data(), image.data() + offset, kImageSize);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
}

void checksumAligned(benchmark::State& state) {
    checksum(state, 0);
}
void checksumUnaligned(benchmark::State& state) {
    checksum(state, kUnaligned);
}
void copyAligned(benchmark::State& state) {
    copy(state, 0);
}
void copyUnaligned(benchmark::State& state) {
    copy(state, kUnaligned);
}
BENCHMARK(checksumAligned);
BENCHMARK(copyAligned);
BENCHMARK(checksumUnaligned);
BENCHMARK(copyUnaligned);

}  // namespace

// One command on each way, beside what it cannot do without.

#include <benchmark/benchmark.h>
#include <sys/ioctl.h>

#include <cstring>

#include "platform.h"
#include "ratio_table.h"

namespace {

void subDeviceCommand(benchmark::State& state) {
    const auto driver = bench::OpenDriver::onSubDevice(bench::kernelDescriptor());
    uint32_t mode = 2;
    const bench::AllocationCount count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(driver->ConfigOisTransfer(ois::code(ois::Request::kSetMode),
                                                           ois::id(ois::HubCommand::kSetMode), &mode, nullptr,
                                                           sizeof mode, 0));
    }
}
BENCHMARK(subDeviceCommand);

void bareIoctl(benchmark::State& state) {
    const auto driver = bench::OpenDriver::onSubDevice(bench::kernelDescriptor());
    uint32_t mode = 2;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ioctl(driver->fd_driver, ois::code(ois::Request::kSetMode), &mode));
    }
}
BENCHMARK(bareIoctl);

void hubCommand(benchmark::State& state) {
    const auto driver = bench::OpenDriver::onHub();
    uint32_t mode = 2;
    const bench::AllocationCount count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(driver->ConfigOisTransfer(ois::code(ois::Request::kSetMode),
                                                           ois::id(ois::HubCommand::kSetMode), &mode, nullptr,
                                                           sizeof mode, 0));
    }
}
BENCHMARK(hubCommand);

void copyHubRecord(benchmark::State& state) {
    ois::OisCustomCmd source{};
    ois::OisCustomCmd target{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(source);
        std::memcpy(&target, &source, sizeof target);
        benchmark::DoNotOptimize(target);
    }
}
BENCHMARK(copyHubRecord);

}  // namespace

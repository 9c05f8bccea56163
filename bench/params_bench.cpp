// One request of the 3A layer in steady state: nothing changes, so nothing is sent.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "camera_platform/properties.h"
#include "log.h"
#include "platform.h"
#include "ratio_table.h"

namespace {

constexpr const char* kThermalPath = "/sys/cam_thermal/cam_thermal_sensor0";

ois_params stillRequest() {
    ois_params params{};
    params.ois_mode_from_tag = 1;
    params.engineer_operation = -1;
    params.zoom_ratio = 1.0F;
    return params;
}

void writeThermalFile() {
    std::ofstream(bench::folder() + "/cam_thermal_sensor0") << "35\n";
}

// What any implementation has to do on a request: read the one property, keep a copy of the record, and
// behind the hub read the temperature.
void leastWork(OISDrv& driver, const ois_params& params) {
    driver.mOisDynamic =
        NSCam::Utils::Properties::property_get_int32("vendor.debug.ois.dynamic", driver.mOisDynamic);
    std::memcpy(&driver.mOisParams, &params, sizeof params);
    benchmark::ClobberMemory();
}
int leastThermalWork() {
    int degrees = 0;
    if (FILE* file = std::fopen(kThermalPath, "r"); file != nullptr) {
        if (std::fscanf(file, "%d", &degrees) != 1) degrees = 0;
        std::fclose(file);
    }
    return degrees;
}

void request(benchmark::State& state, const bench::OpenDriver& driver) {
    ois_params params = stillRequest();
    driver->SetOisParams(&params);  // the first one sets the mode and sends the temperature
    const bench::AllocationCount count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(params);
        benchmark::DoNotOptimize(driver->SetOisParams(&params));
    }
}

void requestOnSubDevice(benchmark::State& state) {
    request(state, bench::OpenDriver::onSubDevice(bench::kernelDescriptor()));
}
BENCHMARK(requestOnSubDevice);

void leastOnSubDevice(benchmark::State& state) {
    OISDrv* driver = OISDrv::GetInstance(bench::kSubDeviceSensor);
    ois_params params = stillRequest();
    const bench::AllocationCount count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(params);
        leastWork(*driver, params);
    }
}
BENCHMARK(leastOnSubDevice);

void requestOnHub(benchmark::State& state) {
    writeThermalFile();
    request(state, bench::OpenDriver::onHub());
}
BENCHMARK(requestOnHub);

void leastOnHub(benchmark::State& state) {
    writeThermalFile();
    OISDrv* driver = OISDrv::GetInstance(bench::kHubSensor);
    ois_params params = stillRequest();
    const bench::AllocationCount count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(params);
        leastWork(*driver, params);
        benchmark::DoNotOptimize(leastThermalWork());
    }
}
BENCHMARK(leastOnHub);

void requestWithMessages(benchmark::State& state) {
    bench::setMessages(bench::Messages::kInfoToUnifiedLogger);
    request(state, bench::OpenDriver::onSubDevice(bench::kernelDescriptor()));
    bench::setMessages(bench::Messages::kOff);
}
BENCHMARK(requestWithMessages);

void leastWithMessages(benchmark::State& state) {
    OISDrv* driver = OISDrv::GetInstance(bench::kSubDeviceSensor);
    ois_params params = stillRequest();
    char text[ois::log::kBufferSize];
    const bench::AllocationCount count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(params);
        leastWork(*driver, params);
        std::snprintf(text, sizeof text,
                      "[%s] Device_id %d, engineer_mode %d, engineer_operation %d, ois_mode_from_tag %d, "
                      "ois_mode_execute %d, video_mode %d, zoom_ratio %f, result %d\n",
                      "SetOisParams", driver->mSensorDev, params.engineer_mode, params.engineer_operation,
                      params.ois_mode_from_tag, 2, params.video_mode, static_cast<double>(params.zoom_ratio),
                      params.engineer_mode);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(leastWithMessages);

}  // namespace

// The OTP dump on a memory file system, beside writing its finished lines.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "platform.h"
#include "ratio_table.h"

namespace {

std::string otpPath() {
    return bench::folder() + "/ois_dump_bench_korvas4sw_otp.txt";
}

void fillImage(OISDrv& driver) {
    auto otp = std::make_unique<ois_otp_data>();
    std::fill(std::begin(otp->image), std::end(otp->image), uint8_t{0x5a});
    driver.GetOisOtpData(otp.get());
}

std::vector<std::string> finishedLines() {
    const auto driver = bench::OpenDriver::onSubDevice(bench::kernelDescriptor());
    fillImage(*driver.operator->());
    driver->DumpOtp2File();
    std::ifstream file(otpPath());
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line + "\n");
    if (lines.empty()) throw std::runtime_error("the OTP dump is empty");
    return lines;
}

void otpDump(benchmark::State& state) {
    const double lines = static_cast<double>(finishedLines().size());
    const auto driver = bench::OpenDriver::onSubDevice(bench::kernelDescriptor());
    fillImage(*driver.operator->());
    const bench::AllocationCount count(state, lines);
    for (auto _ : state) benchmark::DoNotOptimize(driver->DumpOtp2File());
}
BENCHMARK(otpDump);

void writeOtpLines(benchmark::State& state) {
    const std::vector<std::string> lines = finishedLines();
    const bench::AllocationCount count(state, static_cast<double>(lines.size()));
    for (auto _ : state) {
        const int file = open(otpPath().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        for (const std::string& line : lines) {
            if (write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
                state.SkipWithError("write");
        }
        close(file);
    }
}
BENCHMARK(writeOtpLines);

}  // namespace

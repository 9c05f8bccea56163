#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform.h"
#include "ratio_table.h"

namespace {

std::vector<bench::Comparison> comparisons() {
    return {
        {.title = "command to the sub-device / bare ioctl",
         .subject = "subDeviceCommand",
         .floor = "bareIoctl",
         .ratioAim = 1.05,
         .noAllocation = true},
        {.title = "command to the hub / copying its 64 bytes",
         .subject = "hubCommand",
         .floor = "copyHubRecord",
         .noAllocation = true},
        {.title = "message switched off / none",
         .subject = "messageOff",
         .floor = "noMessage",
         .differenceAimNs = 1},
        {.title = "message to the logger / snprintf of the same",
         .subject = "messageOn",
         .floor = "formatMessage",
         .ratioAim = 1.1,
         .noAllocation = true},
        {.title = "request, sub-device / platform calls and copy",
         .subject = "requestOnSubDevice",
         .floor = "leastOnSubDevice",
         .differenceAimNs = 100,
         .noAllocation = true},
        {.title = "request, hub / platform calls and copy",
         .subject = "requestOnHub",
         .floor = "leastOnHub",
         .differenceAimNs = 100,
         .noAllocation = true},
        {.title = "request with info messages / and snprintf",
         .subject = "requestWithMessages",
         .floor = "leastWithMessages",
         .noAllocation = true},
        {.title = "checksum of 28672 bytes / memcpy",
         .subject = "checksumAligned",
         .floor = "copyAligned",
         .ratioAim = 1.0},
        {.title = "checksum of 28672 unaligned bytes / memcpy",
         .subject = "checksumUnaligned",
         .floor = "copyUnaligned",
         .ratioAim = 1.0},
        {.title = "recorder row / write of the finished row",
         .subject = "recorderRows",
         .floor = "writeRows",
         .ratioAim = 3.0,
         .noAllocation = true},
        {.title = "recorder row / the same through ofstream",
         .subject = "recorderRows",
         .floor = "streamRows",
         .ratioAim = 0.5},
        {.title = "draining a motion sample / copying 32 bytes",
         .subject = "drainSamples",
         .floor = "copySamples",
         .ratioAim = 3.5},
        {.title = "OTP dump line / write of the finished line",
         .subject = "otpDump",
         .floor = "writeOtpLines"},
    };
}

}  // namespace

// Takes Google Benchmark's own options; its defaults here interleave several repetitions, so that what else
// the machine does falls on subject and floor alike.
int main(int argc, char** argv) {
    std::vector<std::string> options = {argv[0], "--benchmark_enable_random_interleaving=true",
                                        "--benchmark_repetitions=9", "--benchmark_min_time=0.05"};
    options.insert(options.end(), argv + 1, argv + argc);
    std::vector<char*> arguments;
    std::transform(options.begin(), options.end(), std::back_inserter(arguments),
                   [](std::string& option) { return option.data(); });
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;

    bench::setMessages(bench::Messages::kOff);
    bench::RatioTable table(comparisons());
    benchmark::RunSpecifiedBenchmarks(&table);
    benchmark::Shutdown();
    return table.allocationsHold() ? 0 : 1;
}

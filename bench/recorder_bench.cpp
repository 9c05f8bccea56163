// The status recorder against an ioctl that does nothing, on a memory file system, beside writing finished
// rows.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <random>
#include <stdexcept>

#include "platform.h"
#include "ratio_table.h"

namespace {

constexpr int kRows = 2000;
constexpr size_t kDifferentRecords = 64;
constexpr OisCalibInfo kCalibration{1.0F, 31.7F, 29.3F, 2011, 1987};

const std::array<ois::OisStatusRecord, kDifferentRecords>& records() {
    static const auto made = [] {
        std::array<ois::OisStatusRecord, kDifferentRecords> result{};
        std::mt19937 random(1);
        std::uniform_int_distribution<int> reading(-3000, 3000);
        const auto next = [&] { return static_cast<int16_t>(reading(random)); };
        for (size_t i = 0; i < result.size(); ++i) {
            ois::OisStatusRecord& record = result[i];
            record.chose = 15;
            record.timestampSeconds = 1000;
            record.timestampFraction = i * 4000;
            for (int16_t* field :
                 {&record.gyro_raw_x, &record.gyro_raw_y, &record.gyro_raw_z, &record.acc_raw_x,
                  &record.acc_raw_y, &record.acc_raw_z, &record.gyro_target_x, &record.gyro_target_y,
                  &record.acc_target_x, &record.acc_target_y, &record.hall_x, &record.hall_y,
                  &record.synthetic_x, &record.synthetic_y}) {
                *field = next();
            }
        }
        return result;
    }();
    return made;
}

// Runs the recorder until it has written that many rows.
void recordRows(int rows) {
    int answered = 0;
    OISDrv* recording = nullptr;
    const auto driver = bench::OpenDriver::onSubDevice(bench::handledDescriptor([&](void* record) {
        if (recording == nullptr) return;
        std::memcpy(record, &records()[static_cast<size_t>(answered) % kDifferentRecords],
                    sizeof records()[0]);
        if (++answered >= rows) recording->mProperty.isRun = 0;
    }));
    driver->mProperty.dump = kDumpStatus;
    driver->mProperty.dumpIntervalTime = 0;
    driver->mProperty.isRun = 1;
    driver->mOisCalibInfo = kCalibration;
    recording = driver.operator->();
    benchmark::DoNotOptimize(driver->DumpGyroAccRawTargetHallData2File());
    recording = nullptr;
}

std::string statusPath() {
    return bench::folder() + "/ois_dump_bench_korvas4sw_status.txt";
}

// The lines that the recorder writes, header first.
std::vector<std::string> finishedRows() {
    recordRows(kRows);
    std::ifstream file(statusPath());
    std::vector<std::string> rows;
    for (std::string line; std::getline(file, line);) rows.push_back(line + "\n");
    if (rows.size() != kRows + 1)
        throw std::runtime_error("the recorder wrote " + std::to_string(rows.size()) + " rows");
    return rows;
}

void recorderRows(benchmark::State& state) {
    const bench::AllocationCount count(state, kRows);
    for (auto _ : state) recordRows(kRows);
}
BENCHMARK(recorderRows);

void writeRows(benchmark::State& state) {
    const std::vector<std::string> rows = finishedRows();
    const bench::AllocationCount count(state, kRows);
    for (auto _ : state) {
        const int file = open(statusPath().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        for (const std::string& row : rows) {
            if (write(file, row.data(), row.size()) != static_cast<ssize_t>(row.size()))
                state.SkipWithError("write");
        }
        close(file);
    }
}
BENCHMARK(writeRows);

void streamRow(std::ostream& out, const ois::OisStatusRecord& record) {
    constexpr float kThousand = 1000.0F;
    const char* gap = "  ";
    out << static_cast<unsigned>(record.chose) << gap << record.timestampSeconds << "." << std::setw(6)
        << std::setfill('0') << record.timestampFraction;
    for (const int16_t value :
         {record.gyro_raw_x, record.gyro_raw_y, record.gyro_raw_z, record.acc_raw_x, record.acc_raw_y,
          record.acc_raw_z, record.gyro_target_x, record.gyro_target_y, record.acc_target_x,
          record.acc_target_y, record.hall_x, record.hall_y, record.synthetic_x, record.synthetic_y}) {
        out << gap << value;
    }
    for (const int16_t target :
         {record.gyro_target_x, record.gyro_target_y, record.acc_target_x, record.acc_target_y}) {
        out << gap << static_cast<float>(target) / kThousand;
    }
    out << gap
        << static_cast<float>(record.hall_x - kCalibration.hall_center_x) / kCalibration.hall_amplitude_x
        << gap
        << static_cast<float>(record.hall_y - kCalibration.hall_center_y) / kCalibration.hall_amplitude_y
        << std::endl;
}

// The same rows through a stream, as a first version would write them.
void streamRows(benchmark::State& state) {
    const std::vector<std::string> rows = finishedRows();
    std::ostringstream first;
    streamRow(first, records()[0]);
    if (first.str() != rows[1]) state.SkipWithError("the stream's rows are not the recorder's");
    state.counters[bench::kOperations] = kRows;
    for (auto _ : state) {
        std::ofstream out(statusPath());
        out << rows[0] << std::flush;
        for (int i = 0; i < kRows; ++i) streamRow(out, records()[static_cast<size_t>(i) % kDifferentRecords]);
    }
}
BENCHMARK(streamRows);

}  // namespace

// The status recorder: polls the controller and writes one row per poll.

#include <unistd.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include "diagnostics/dump_file.h"
#include "log.h"
#include "numeric.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::loadShared;

namespace {

constexpr useconds_t kUsPerMs = 1000;
constexpr float kTargetUnits = 1000.0F;  // targets count in thousandths of the angle unit
constexpr int kFractionDigits = 6;
constexpr int kFloatDigits = 6;  // significant digits of a stream's default notation

// clang-format off
constexpr std::string_view kHeader =
    "chose  sys_timestamp  "
    "gyro_raw_x  gyro_raw_y  gyro_raw_z  acc_raw_x  acc_raw_y  acc_raw_z  "
    "gyro_target_x  gyro_target_y  acc_target_x  acc_target_y  "
    "hall_x  hall_y  synthetic_x  synthetic_y  "
    "angle_gyro_target_x  angle_gyro_target_y  angle_acc_target_x  angle_acc_target_y  "
    "angle_hall_x  angle_hall_y\n";
// clang-format on

// One row, built in place.
class Row {
  public:
    template <typename Integer>
    Row& integer(Integer value) {
        separate();
        mEnd = std::to_chars(mEnd, limit(), value).ptr;
        return *this;
    }
    // Seconds and microseconds as one value.
    Row& timestamp(uint64_t seconds, uint64_t fraction) {
        integer(seconds);
        *mEnd++ = '.';
        char digits[kLongestInteger];
        const auto length =
            static_cast<int>(std::to_chars(digits, digits + sizeof digits, fraction).ptr - digits);
        for (int i = length; i < kFractionDigits; ++i) *mEnd++ = '0';
        std::memcpy(mEnd, digits, static_cast<size_t>(length));
        mEnd += length;
        return *this;
    }
    // As a stream writes a float by default.
    Row& real(float value) {
        separate();
        mEnd =
            std::to_chars(mEnd, limit(), static_cast<double>(value), std::chars_format::general, kFloatDigits)
                .ptr;
        return *this;
    }
    std::string_view line() {
        *mEnd++ = '\n';
        return {mText.data(), static_cast<size_t>(mEnd - mText.data())};
    }

  private:
    static constexpr size_t kLongestInteger = 20;
    static constexpr size_t kColumns = 22;
    static constexpr size_t kLongestColumn = 2 * kLongestInteger + 3;

    void separate() {
        if (mEnd == mText.data()) return;
        *mEnd++ = ' ';
        *mEnd++ = ' ';
    }
    char* limit() { return mText.data() + mText.size(); }

    std::array<char, kColumns * kLongestColumn> mText;
    char* mEnd = mText.data();
};

float hallAngle(int16_t hall, int32_t center, float amplitude) {
    return static_cast<float>(ois::wrappingSubtract(hall, center)) / amplitude;
}

void appendRow(Row& row, const ois::OisStatusRecord& status, const OisCalibInfo& calibration) {
    row.integer(static_cast<unsigned>(status.chose))
        .timestamp(status.timestampSeconds, status.timestampFraction);
    for (const int16_t value :
         {status.gyro_raw_x, status.gyro_raw_y, status.gyro_raw_z, status.acc_raw_x, status.acc_raw_y,
          status.acc_raw_z, status.gyro_target_x, status.gyro_target_y, status.acc_target_x,
          status.acc_target_y, status.hall_x, status.hall_y, status.synthetic_x, status.synthetic_y}) {
        row.integer(value);
    }
    for (const int16_t target :
         {status.gyro_target_x, status.gyro_target_y, status.acc_target_x, status.acc_target_y}) {
        row.real(static_cast<float>(target) / kTargetUnits);
    }
    row.real(hallAngle(status.hall_x, calibration.hall_center_x, calibration.hall_amplitude_x));
    row.real(hallAngle(status.hall_y, calibration.hall_center_y, calibration.hall_amplitude_y));
}

}  // namespace

int32_t OISDrv::DumpGyroAccRawTargetHallData2File() {
    const useconds_t intervalUs = loadShared(mProperty.dumpIntervalTime) * kUsPerMs;
    const std::string path = dumpPath(ois::kStatusFileSuffix);
    OIS_LOG(kInfo, "DumpGyroAccRawTargetHallData2File: %s, dumpIntervalTime %d\n", path.c_str(),
            static_cast<int>(intervalUs));
    const int32_t descriptor = loadShared(fd_driver);
    if (descriptor < 0) {
        // The descriptor is printed where the device index is meant.
        OIS_LOG(kError, "Dev %d , OIS error opening\n", descriptor);
        return 0;
    }
    // With a count, started by a request, any dump bit records.
    if ((loadShared(mProperty.dump) & kDumpStatus) == 0 && loadShared(mParamsCallCount) == 0) return 0;
    ois::DumpFile file(path);
    if (!file.isOpen()) {
        OIS_LOG(kError, "creat ois ic dump file failed!\n");
        return ois::kStatusOrFlashDumpNotCreated;
    }
    OIS_LOG(kInfo, "creat ois ic dump file success!\n");
    file.writeLine(kHeader);

    // Held until the recorder returns, also when the session closes meanwhile.
    const ois::SessionBuffers::Storage storage = mBuffers.holdOrMake();
    int32_t result = 0;
    while (loadShared(mProperty.isRun) != 0) {
        result = recordStatus(storage->status, file);
        if (intervalUs != 0) usleep(intervalUs);
    }
    return result;
}

// Asks for one status and writes its row, whatever came of the request, whose result is returned. Other
// recorders of the session may be using the same record.
int32_t OISDrv::recordStatus(ois::StatusTransfer& shared, ois::DumpFile& file) {
    ois::StatusTransfer request{};
    request.record.chose = loadShared(mProperty.dumpLevel);
    ois::publish(shared, request);
    const int32_t result = send(ois::command::kReadStatus, shared);
    Row row;
    appendRow(row, ois::snapshot(shared.record), ois::snapshot(mOisCalibInfo));
    file.writeLine(row.line());
    return result;
}

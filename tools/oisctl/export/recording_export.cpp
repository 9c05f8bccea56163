#include "export/recording_export.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <string>
#include <utility>

#include "base/terminal.h"

namespace oisctl {

namespace {

constexpr size_t kPieceBytes = 1 << 16;

// Gathers lines to pieces, and shows how far it is.
class Lines {
  public:
    Lines(const TextSink& put, size_t rows) : mPut(put), mProgress("exporting", static_cast<double>(rows)) {}

    template <typename... Arguments>
    void add(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        fmt::format_to(std::back_inserter(mText), format, std::forward<Arguments>(arguments)...);
    }
    void endRow() {
        mText += '\n';
        ++mRows;
        if (mText.size() < kPieceBytes) return;
        flush();
        mProgress.update(static_cast<double>(mRows));
    }
    void flush() {
        mPut(mText);
        mText.clear();
    }

  private:
    const TextSink& mPut;
    Progress mProgress;
    std::string mText;
    size_t mRows = 0;
};

// What the column's numbers are, as its name ends. The chosen fields and what is synthetic are bare numbers.
std::string_view unitOf(size_t column) {
    const std::string_view name = columnName(column);
    if (name.starts_with("angle_")) return "_deg";
    if (name.starts_with("gyro_raw_") || name.starts_with("acc_raw_") || name.starts_with("hall_"))
        return "_counts";
    return "";
}

}  // namespace

void exportCsv(const Recording& recording, const Known& known, const TextSink& put) {
    Lines lines(put, recording.rows());
    const bool hasMotion = !known.trueMotion[0].empty();
    lines.add("time_s,session,controller_time_s,line");
    for (size_t column = 0; column < kColumnCount; ++column)
        if (column != static_cast<size_t>(Column::kTimestamp))
            lines.add(",{}{}", columnName(column), unitOf(column));
    if (hasMotion) lines.add(",true_motion_x_deg,true_motion_y_deg");
    lines.endRow();
    size_t session = 0;
    for (size_t row = 0; row < recording.rows(); ++row) {
        const auto& stretches = recording.stretches;
        while (session < stretches.size() && stretches[session].firstRow <= row) ++session;
        const Stretch& stretch = stretches[session - 1];
        const double sinceS = recording.timeS[row] - recording.timeS[stretch.firstRow];
        lines.add("{:.6f},{},{:.6f},{}", recording.timeS[row], session, stretch.startS + sinceS,
                  recording.lines[row]);
        for (const Samples& column : recording.columns)
            if (!column.empty()) lines.add(",{}", column[row]);
        if (hasMotion) lines.add(",{},{}", known.trueMotion[0][row], known.trueMotion[1][row]);
        lines.endRow();
    }
    lines.flush();
}

void exportImuLog(const Recording& recording, const SensorScales& scales, const TextSink& put) {
    constexpr double kUsPerS = 1e6;
    constexpr double kGravityMS2 = 9.80665;
    const bool hasAcc = scales.accCountsPerMS2.has_value();
    Lines lines(put, recording.rows());
    // The first line is the format's own.
    lines.add("GYROFLOW IMU LOG\nversion,1.3\nid,ois_status_recording\norientation,XYZ\n");
    lines.add("note,raw counts in the phone's own axes\nfwversion,oisctl_" OISCTL_VERSION "\ntimestamp,0\n");
    lines.add("tscale,0.000001\ngscale,{}\n", 1 / scales.gyroCountsPerRadS);
    if (hasAcc) lines.add("ascale,{}\n", 1 / (*scales.accCountsPerMS2 * kGravityMS2));
    lines.add("t,gx,gy,gz{}", hasAcc ? ",ax,ay,az" : "");
    lines.endRow();
    constexpr size_t kGyro = static_cast<size_t>(Column::kGyroRawX);
    constexpr size_t kAxes = 3;
    for (size_t row = 0; row < recording.rows(); ++row) {
        lines.add("{}", std::llround(recording.timeS[row] * kUsPerS));
        for (size_t axis = 0; axis < (hasAcc ? 2 * kAxes : kAxes); ++axis)
            lines.add(",{}", recording.columns[kGyro + axis][row]);
        lines.endRow();
    }
    lines.flush();
}

}  // namespace oisctl

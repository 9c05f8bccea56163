// Reads status recordings.

#include "recording/recording.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>

#include "base/file_content.h"
#include "base/number.h"

namespace oisctl {

namespace {

constexpr const char* kHeader =
    "chose sys_timestamp gyro_raw_x gyro_raw_y gyro_raw_z acc_raw_x acc_raw_y acc_raw_z gyro_target_x "
    "gyro_target_y acc_target_x acc_target_y hall_x hall_y synthetic_x synthetic_y angle_gyro_target_x "
    "angle_gyro_target_y angle_acc_target_x angle_acc_target_y angle_hall_x angle_hall_y";
constexpr size_t kTimestampColumn = static_cast<size_t>(Column::kTimestamp);
constexpr size_t kFirstAngleColumn = static_cast<size_t>(Column::kAngleGyroTargetX);
constexpr double kSecondsPerMicrosecond = 1e-6;

using Cells = std::array<std::string_view, kColumnCount>;

struct Timestamp {
    uint64_t seconds = 0;
    uint64_t microseconds = 0;  // may exceed a million: the recorder prints what the controller says

    double since(const Timestamp& start) const {
        return static_cast<double>(static_cast<int64_t>(seconds - start.seconds)) +
               static_cast<double>(static_cast<int64_t>(microseconds - start.microseconds)) *
                   kSecondsPerMicrosecond;
    }
};

// Rows that were left out for one reason.
struct LeftOut {
    size_t rows = 0;
    size_t firstLine = 0;

    void add(size_t line) {
        if (rows++ == 0) firstLine = line;
    }
};

class StatusReader {
  public:
    explicit StatusReader(const std::filesystem::path& file) : mFile(file.string()) {
        mRecording.source = mFile;
    }

    Recording read() {
        const std::string content = asInput("", [this] { return phone::readFile(mFile); });
        std::string_view rest = content;
        for (size_t end = 0; (end = rest.find('\n')) != std::string_view::npos; rest.remove_prefix(end + 1)) {
            ++mLine;
            const std::string_view line = phone::trimmed(rest.substr(0, end));
            if (mLine == 1) {
                takeHeader(line);
            } else {
                takeRow(line);
            }
        }
        if (mLine == 0) fail(1, "no header line; this is no status recording");
        note(mUnanswered, "all zero, the controller did not answer");
        note(mRepeats, "time does not go on");
        if (!rest.empty())
            mRecording.notes.push_back(fmt::format("line {} left out: cut while being written", mLine + 1));
        return std::move(mRecording);
    }

  private:
    [[noreturn]] void fail(size_t line, const std::string& reason) const {
        throw InputError(fmt::format("{}:{}: {}", mFile, line, reason));
    }

    Cells split(std::string_view line) const {
        Cells cells;
        size_t count = 0;
        for (size_t begin = line.find_first_not_of(' '); begin != std::string_view::npos;) {
            const size_t end = std::min(line.find(' ', begin), line.size());
            if (count < kColumnCount) cells[count] = line.substr(begin, end - begin);
            ++count;
            begin = line.find_first_not_of(' ', end);
        }
        if (count != kColumnCount) {
            fail(mLine, fmt::format("{} column{}, expected {}{}", count, count == 1 ? "" : "s", kColumnCount,
                                    mLine == 1 ? "; this is no status recording" : ""));
        }
        return cells;
    }

    void takeHeader(std::string_view line) const {
        const Cells cells = split(line);
        for (size_t i = 0; i < kColumnCount; ++i) {
            if (cells[i] == mNames[i]) continue;
            fail(mLine, fmt::format("column {} is \"{}\", expected \"{}\"; this is no status recording",
                                    i + 1, cells[i], mNames[i]));
        }
    }

    void takeRow(std::string_view line) {
        const Cells cells = split(line);
        std::array<double, kColumnCount> values{};
        const Timestamp time = timestamp(cells[kTimestampColumn]);
        bool answered = time.seconds != 0 || time.microseconds != 0;
        for (size_t i = 0; i < kColumnCount; ++i) {
            if (i == kTimestampColumn) continue;
            values[i] = i < kFirstAngleColumn ? number<int>(cells[i], i, "a whole number")
                                              : number<double>(cells[i], i, "a number");
            answered |= i > kTimestampColumn && i < kFirstAngleColumn && values[i] != 0;
        }
        if (!answered) {
            mUnanswered.add(mLine);
            return;
        }
        if (mRecording.rows() == 0) {
            mStart = time;
            mRecording.startS = time.since({});
        }
        values[kTimestampColumn] = time.since(mStart);
        const std::vector<double>& times = mRecording[Column::kTimestamp];
        if (!times.empty() && values[kTimestampColumn] <= times.back()) {
            mRepeats.add(mLine);
            return;
        }
        for (size_t i = 0; i < kColumnCount; ++i) mRecording.columns[i].push_back(values[i]);
    }

    [[noreturn]] void failValue(std::string_view cell, size_t column, const char* expected) const {
        fail(mLine, fmt::format("{} is \"{}\", expected {}", mNames[column], cell, expected));
    }

    Timestamp timestamp(std::string_view cell) const {
        const size_t dot = std::min(cell.find('.'), cell.size());
        const auto seconds = numberOf<uint64_t>(cell.substr(0, dot));
        const auto micros = numberOf<uint64_t>(cell.substr(std::min(dot + 1, cell.size())));
        if (!seconds || !micros) failValue(cell, kTimestampColumn, "seconds.microseconds");
        return {*seconds, *micros};
    }

    template <typename Number>
    double number(std::string_view cell, size_t column, const char* expected) const {
        const auto value = numberOf<Number>(cell);
        if (!value) failValue(cell, column, expected);
        return *value;
    }

    void note(const LeftOut& out, const char* what) {
        if (out.rows == 0) return;
        mRecording.notes.push_back(fmt::format("{} row{} left out, the first in line {}: {}", out.rows,
                                               out.rows == 1 ? "" : "s", out.firstLine, what));
    }

    const std::string mFile;
    const Cells mNames = split(kHeader);
    size_t mLine = 0;
    Timestamp mStart;
    LeftOut mUnanswered;
    LeftOut mRepeats;
    Recording mRecording;
};

}  // namespace

Recording loadRecording(const std::filesystem::path& file) {
    return StatusReader(file).read();
}

}  // namespace oisctl

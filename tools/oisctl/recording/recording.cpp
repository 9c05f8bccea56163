// Reads status recordings.

#include "recording/recording.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>

namespace oisctl {

const std::array<std::string_view, kColumnCount> kColumnNames = {
    "chose",
    "sys_timestamp",
    "gyro_raw_x",
    "gyro_raw_y",
    "gyro_raw_z",
    "acc_raw_x",
    "acc_raw_y",
    "acc_raw_z",
    "gyro_target_x",
    "gyro_target_y",
    "acc_target_x",
    "acc_target_y",
    "hall_x",
    "hall_y",
    "synthetic_x",
    "synthetic_y",
    "angle_gyro_target_x",
    "angle_gyro_target_y",
    "angle_acc_target_x",
    "angle_acc_target_y",
    "angle_hall_x",
    "angle_hall_y",
};

namespace {

constexpr size_t kTimestampColumn = static_cast<size_t>(Column::kTimestamp);
constexpr size_t kFirstAngleColumn = static_cast<size_t>(Column::kAngleGyroTargetX);
constexpr double kSecondsPerMicrosecond = 1e-6;

using Cells = std::array<std::string_view, kColumnCount>;

template <typename Number>
bool parse(std::string_view text, Number& value) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end && !text.empty();
}

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

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
        const std::string content = readAll();
        std::string_view rest = content;
        while (!rest.empty()) {
            ++mLine;
            const size_t end = rest.find('\n');
            if (end == std::string_view::npos) break;
            std::string_view line = rest.substr(0, end);
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            if (mLine == 1) {
                takeHeader(line);
            } else {
                takeRow(line);
            }
            rest.remove_prefix(end + 1);
        }
        if (mLine == 0 || (mLine == 1 && !rest.empty()))
            fail(1, "no header line; this is no status recording");
        addNotes(!rest.empty());
        return std::move(mRecording);
    }

  private:
    [[noreturn]] void fail(size_t line, const std::string& reason) const {
        throw InputError(mFile + ":" + std::to_string(line) + ": " + reason);
    }

    std::string readAll() const {
        std::ifstream in(mFile, std::ios::binary);
        if (!in || std::filesystem::is_directory(mFile)) {
            throw InputError(mFile + ": cannot be read: " + std::strerror(in ? EISDIR : errno));
        }
        std::ostringstream content;
        content << in.rdbuf();
        return std::move(content).str();
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
            fail(mLine, std::to_string(count) + (count == 1 ? " column" : " columns") + ", expected " +
                            std::to_string(kColumnCount) +
                            (mLine == 1 ? "; this is no status recording" : ""));
        }
        return cells;
    }

    void takeHeader(std::string_view line) const {
        const Cells cells = split(line);
        for (size_t i = 0; i < kColumnCount; ++i) {
            if (cells[i] == kColumnNames[i]) continue;
            fail(mLine, "column " + std::to_string(i + 1) + " is " + quoted(cells[i]) + ", expected " +
                            quoted(kColumnNames[i]) + "; this is no status recording");
        }
    }

    void takeRow(std::string_view line) {
        const Cells cells = split(line);
        std::array<double, kColumnCount> values{};
        const Timestamp time = timestamp(cells[kTimestampColumn]);
        bool answered = time.seconds != 0 || time.microseconds != 0;
        for (size_t i = 0; i < kColumnCount; ++i) {
            if (i == kTimestampColumn) continue;
            values[i] = i < kFirstAngleColumn ? whole(cells[i], i) : number(cells[i], i);
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
        fail(mLine, std::string(kColumnNames[column]) + " is " + quoted(cell) + ", expected " + expected);
    }

    Timestamp timestamp(std::string_view cell) const {
        Timestamp time;
        const size_t dot = cell.find('.');
        if (dot == std::string_view::npos || !parse(cell.substr(0, dot), time.seconds) ||
            !parse(cell.substr(dot + 1), time.microseconds)) {
            failValue(cell, kTimestampColumn, "seconds.microseconds");
        }
        return time;
    }

    double whole(std::string_view cell, size_t column) const {
        int value = 0;
        if (!parse(cell, value)) failValue(cell, column, "a whole number");
        return value;
    }

    double number(std::string_view cell, size_t column) const {
        double value = 0;
        if (!parse(cell, value)) failValue(cell, column, "a number");
        return value;
    }

    void note(const LeftOut& out, const char* what) {
        if (out.rows == 0) return;
        const std::string rows = std::to_string(out.rows) + (out.rows == 1 ? " row" : " rows");
        mRecording.notes.push_back(rows + " left out, the first in line " + std::to_string(out.firstLine) +
                                   ": " + what);
    }

    void addNotes(bool cut) {
        note(mUnanswered, "all zero, the controller did not answer");
        note(mRepeats, "time does not go on");
        if (cut)
            mRecording.notes.push_back("line " + std::to_string(mLine) +
                                       " left out: cut while being written");
    }

    const std::string mFile;
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

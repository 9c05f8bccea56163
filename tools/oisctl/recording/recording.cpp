// Reads status recordings.

#include "recording/recording.h"

#include <fmt/core.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include "base/errors.h"
#include "base/file_content.h"
#include "base/number.h"
#include "base/units.h"
#include "recording/line_reader.h"
#include "recording/row_order.h"

namespace oisctl {

namespace {

constexpr const char* kHeader =
    "chose sys_timestamp gyro_raw_x gyro_raw_y gyro_raw_z acc_raw_x acc_raw_y acc_raw_z gyro_target_x "
    "gyro_target_y acc_target_x acc_target_y hall_x hall_y synthetic_x synthetic_y angle_gyro_target_x "
    "angle_gyro_target_y angle_acc_target_x angle_acc_target_y angle_hall_x angle_hall_y";
constexpr size_t kTimestampColumn = static_cast<size_t>(Column::kTimestamp);
constexpr size_t kFirstAngleColumn = static_cast<size_t>(Column::kAngleGyroTargetX);
constexpr int64_t kUsPerSecond = 1'000'000;
constexpr uint64_t kMostSeconds = 1'000'000'000'000;
// A time that jumps ahead by more and stays there is another stretch: nobody looks at the pause between them.
constexpr int64_t kFarUs = 600 * kUsPerSecond;

using Cells = std::array<std::string_view, kColumnCount>;

// As many cells as stand in the line; those beyond the last column are only counted.
size_t split(std::string_view line, Cells& cells) {
    size_t count = 0;
    const char* at = line.data();
    const char* const end = at + line.size();
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    for (;;) {
        while (at != end && isBlank(*at)) ++at;
        if (at == end) return count;
        const char* const begin = at;
        while (at != end && !isBlank(*at)) ++at;
        if (count < kColumnCount) cells[count] = {begin, static_cast<size_t>(at - begin)};
        ++count;
    }
}

const Cells& columnNames() {
    static const Cells kNames = [] {
        Cells names;
        split(kHeader, names);
        return names;
    }();
    return kNames;
}

// The controller's microseconds may exceed a million: the recorder prints what it says.
std::optional<int64_t> timestampUs(std::string_view cell) {
    const size_t dot = std::min(cell.find('.'), cell.size());
    const auto seconds = numberOf<uint64_t>(cell.substr(0, dot));
    const auto micros = numberOf<uint64_t>(cell.substr(std::min(dot + 1, cell.size())));
    if (!seconds || !micros || *seconds > kMostSeconds || *micros > kMostSeconds) return std::nullopt;
    return static_cast<int64_t>(*seconds) * kUsPerSecond + static_cast<int64_t>(*micros);
}

class StatusReader {
  public:
    explicit StatusReader(const std::filesystem::path& file) : mLines(file, "reading") {
        mRecording.source = file.string();
    }

    Recording read() {
        std::string_view line;
        while (mLines.next(line)) {
            if (mLines.number() == 1) {
                takeHeader(line);
            } else if (mLines.cut()) {
                mRecording.cutLine = mLines.number();
            } else {
                takeRow(line);
            }
        }
        if (mLines.number() == 0) failAtStart("no header line");
        mRecording.bytes = mLines.bytes();
        arrange();
        return std::move(mRecording);
    }

  private:
    [[noreturn]] void failAtStart(const std::string& reason) const {
        throw InputError(fmt::format("{}:1: {}; this is no status recording", mRecording.source, reason));
    }

    static std::string columnCount(size_t count) {
        return fmt::format("{} column{}, expected {}", count, count == 1 ? "" : "s", kColumnCount);
    }

    void takeHeader(std::string_view line) const {
        Cells cells;
        const size_t count = split(line, cells);
        if (count != kColumnCount) failAtStart(columnCount(count));
        for (size_t i = 0; i < kColumnCount; ++i) {
            if (cells[i] == mNames[i]) continue;
            failAtStart(fmt::format("column {} is \"{}\", expected \"{}\"", i + 1, cells[i], mNames[i]));
        }
    }

    void leaveUnreadable(std::string why) {
        if (mRecording.unreadable.empty()) mRecording.whyUnreadable = std::move(why);
        mRecording.unreadable.add(mLines.number());
    }

    void takeRow(std::string_view line) {
        Cells cells;
        const size_t count = split(line, cells);
        // Files that were put one behind the other.
        if (count == kColumnCount && cells == mNames) return mHeaders.push_back(mTimesUs.size());
        if (count != kColumnCount) return leaveUnreadable(columnCount(count));
        std::array<float, kColumnCount> values{};
        const std::optional<int64_t> timeUs = timestampUs(cells[kTimestampColumn]);
        if (!timeUs) return leaveUnreadableCell(cells, kTimestampColumn, "seconds.microseconds");
        bool answered = *timeUs != 0;
        for (size_t i = 0; i < kColumnCount; ++i) {
            if (i == kTimestampColumn) continue;
            const bool isAngle = i >= kFirstAngleColumn;
            if (!parse(cells[i], isAngle, values[i]))
                return leaveUnreadableCell(cells, i, isAngle ? "a number" : "a whole number");
            answered |= i > kTimestampColumn && !isAngle && values[i] != 0;
        }
        if (!answered) return mRecording.unanswered.add(mLines.number());
        if (mTimesUs.empty()) reserve(line.size() + 1);
        mTimesUs.push_back(*timeUs);
        mRecording.lines.push_back(static_cast<uint32_t>(mLines.number()));
        for (size_t i = 0; i < kColumnCount; ++i)
            if (i != kTimestampColumn) mRecording.columns[i].push_back(values[i]);
        mRecording.lastLine = line;
    }

    static bool parse(std::string_view cell, bool isAngle, float& value) {
        if (isAngle) {
            const auto angle = numberOf<float>(cell);
            value = angle.value_or(0);
            return angle.has_value();
        }
        const auto whole = numberOf<int>(cell);
        value = static_cast<float>(whole.value_or(0));
        return whole.has_value();
    }

    void leaveUnreadableCell(const Cells& cells, size_t column, const char* expected) {
        if (!mRecording.unreadable.empty()) return leaveUnreadable({});
        leaveUnreadable(fmt::format("{} is \"{}\", expected {}", mNames[column], cells[column], expected));
    }

    // Growing by doubling would take twice the memory.
    void reserve(size_t rowBytes) {
        const size_t rows = mLines.fileBytes() / rowBytes + 1;
        mTimesUs.reserve(rows);
        mRecording.lines.reserve(rows);
        for (size_t i = 0; i < kColumnCount; ++i)
            if (i != kTimestampColumn) mRecording.columns[i].reserve(rows);
    }

    // Puts the rows into their order, and their time on one line.
    void arrange() {
        const std::vector<RowFate> fates = rowFates(mTimesUs, mHeaders);
        std::vector<double>& timeS = mRecording.timeS;
        timeS.reserve(mTimesUs.size());
        int64_t beforeUs = 0;
        for (size_t row = 0; row < fates.size(); ++row) {
            const size_t line = mRecording.lines[row];
            if (fates[row] == RowFate::kRepeated) mRecording.repeated.add(line);
            const int64_t timeUs = mTimesUs[row];
            const auto onItsLine = [&] {
                return mShift + static_cast<double>(timeUs - mShiftUs) * kSecondsPerUs;
            };
            if (fates[row] == RowFate::kOutOfOrder) {
                mRecording.outOfOrder.add(line);
                mRecording.outOfOrderS.push_back(onItsLine());
            }
            if (fates[row] == RowFate::kRepeated || fates[row] == RowFate::kOutOfOrder) continue;
            const size_t kept = timeS.size();
            const bool begins = fates[row] == RowFate::kBegins;
            if (begins || timeUs - beforeUs > kFarUs) {
                mRecording.stretches.push_back(
                    {kept, static_cast<double>(timeUs) * kSecondsPerUs, startOf(row, begins)});
                mShift = timeS.empty() ? 0 : timeS.back() + Recording::kBetweenStretchesS;
                mShiftUs = timeUs;
            }
            timeS.push_back(onItsLine());
            beforeUs = timeUs;
            if (kept != row) move(row, kept);
        }
        std::ranges::sort(mRecording.outOfOrderS);
        mRecording.lines.resize(timeS.size());
        for (Samples& column : mRecording.columns)
            if (!column.empty()) column.resize(timeS.size());
    }

    Stretch::Start startOf(size_t row, bool begins) const {
        if (mRecording.timeS.empty()) return Stretch::Start::kFile;
        if (!begins) return Stretch::Start::kTimeAhead;
        return std::ranges::binary_search(mHeaders, row) ? Stretch::Start::kHeader
                                                         : Stretch::Start::kTimeBack;
    }

    void move(size_t from, size_t to) {
        mRecording.lines[to] = mRecording.lines[from];
        for (Samples& column : mRecording.columns)
            if (!column.empty()) column[to] = column[from];
    }

    LineReader mLines;
    const Cells& mNames = columnNames();
    std::vector<size_t> mHeaders;
    std::vector<int64_t> mTimesUs;
    double mShift = 0;     // where the present stretch stands
    int64_t mShiftUs = 0;  // its first row's time
    Recording mRecording;
};

}  // namespace

void Places::add(LineRange range, size_t rowsInIt) {
    if (count++ < kMostKept) ranges.push_back(range);
    rows += rowsInIt;
    mLast = range.last;
}

void Places::goOn(LineRange range, size_t rowsInIt) {
    if (count == 0 || range.first != mLast + 1) return add(range, rowsInIt);
    if (count == ranges.size()) ranges.back().last = range.last;
    rows += rowsInIt;
    mLast = range.last;
}

std::string_view columnName(size_t column) {
    return columnNames().at(column);
}

Recording loadRecording(const std::filesystem::path& file) {
    return StatusReader(file).read();
}

size_t rowsLeftOut(const Recording& recording) {
    return recording.unanswered.rows + recording.repeated.rows + recording.outOfOrder.rows +
           recording.unreadable.rows + (recording.cutLine != 0 ? 1 : 0);
}

Samples targetAngle(const Recording& recording, size_t axis) {
    Samples result = recording[kGyroTarget[axis]];
    const Samples& acc = recording[kAccTarget[axis]];
    for (size_t i = 0; i < result.size(); ++i) result[i] += acc[i];
    return result;
}

Samples trackingError(const Recording& recording, size_t axis) {
    Samples result = targetAngle(recording, axis);
    const Samples& hall = hallAngle(recording, axis);
    for (size_t i = 0; i < result.size(); ++i) result[i] -= hall[i];
    return result;
}

const Samples& hallAngle(const Recording& recording, size_t axis) {
    return recording[kHall[axis]];
}

}  // namespace oisctl

#pragma once
// Status recordings: the text files that the driver's recorder writes.

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace oisctl {

// Those that are asked for by name, by their place in the file.
enum class Column : size_t {
    kTimestamp = 1,
    kGyroRawX,
    kGyroRawY,
    kGyroRawZ,
    kAngleGyroTargetX = 16,
    kAngleGyroTargetY,
    kAngleAccTargetX,
    kAngleAccTargetY,
    kAngleHallX,
    kAngleHallY,
};
constexpr size_t kColumnCount = 22;
// By axis: x, y.
inline constexpr std::array kGyroTarget = {Column::kAngleGyroTargetX, Column::kAngleGyroTargetY};
inline constexpr std::array kAccTarget = {Column::kAngleAccTargetX, Column::kAngleAccTargetY};
inline constexpr std::array kHall = {Column::kAngleHallX, Column::kAngleHallY};
std::string_view columnName(size_t column);  // "hall_x": as the file's header has it

// The recorder writes whole numbers of 16 bits and angles of six digits: a float holds both as they stand.
using Samples = std::vector<float>;

struct LineRange {
    size_t first = 0;
    size_t last = 0;
};

// Where in the file something shows. The first ranges are kept.
struct Places {
    static constexpr size_t kMostKept = 20;
    std::vector<LineRange> ranges;
    size_t count = 0;  // of all ranges
    size_t rows = 0;   // in all of them

    void add(LineRange range, size_t rowsInIt);
    // One range with the one before when it begins right behind it.
    void goOn(LineRange range, size_t rowsInIt);
    void add(size_t line) { goOn({line, line}, 1); }
    bool empty() const { return count == 0; }

  private:
    size_t mLast = 0;  // the line last added
};

// Rows whose time goes on.
struct Stretch {
    enum class Start { kFile, kHeader, kTimeBack, kTimeAhead };
    size_t firstRow = 0;
    double startS = 0;  // the controller's time of its first row
    Start start = Start::kFile;
};

// One recording, column by column. The time of a row strictly increases: what comes after a break of the time
// (a second session, a clock that jumped) is put kBetweenStretchesS behind what was before.
struct Recording {
    static constexpr double kBetweenStretchesS = 1;

    std::string source;                         // the file
    std::vector<double> timeS;                  // from the first row on
    std::array<Samples, kColumnCount> columns;  // as in the file, "inf" and "nan" included; no timestamps
    std::vector<uint32_t> lines;                // where each row stands in the file
    std::vector<Stretch> stretches;

    // What is not in the columns.
    Places unanswered;  // all zero: polls that the controller did not answer
    Places repeated;    // the time of a row before
    Places outOfOrder;
    std::vector<double> outOfOrderS;  // their times, increasing, as timeS has them
    Places unreadable;
    std::string whyUnreadable;  // of the first one
    size_t cutLine = 0;         // the last line, if it was cut while being written

    // Which file it was.
    uint64_t bytes = 0;
    std::string lastLine;

    const Samples& operator[](Column column) const { return columns[static_cast<size_t>(column)]; }
    size_t rows() const { return timeS.size(); }
    LineRange linesOf(size_t firstRow, size_t lastRow) const { return {lines[firstRow], lines[lastRow]}; }
};

// Reads a status file of any length. Rows that say nothing, stand in the wrong place or cannot be read are
// left out and noted; whatever follows them counts. Throws InputError "FILE:LINE: reason" for a file that is
// no status recording.
Recording loadRecording(const std::filesystem::path& file);

// Rows of the file that are in no column.
size_t rowsLeftOut(const Recording& recording);

// Target minus hall, row by row; axis 0 is x, 1 is y. The target is the gyro's and the accelerometer's
// together.
Samples targetAngle(const Recording& recording, size_t axis);
Samples trackingError(const Recording& recording, size_t axis);
const Samples& hallAngle(const Recording& recording, size_t axis);

}  // namespace oisctl

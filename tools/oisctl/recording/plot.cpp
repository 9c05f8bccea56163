// Plots by gnuplot: a script with its data inline, run in a folder of its own, so that no name from outside
// ever stands in the script.

#include "recording/plot.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include "base/errors.h"
#include "base/terminal.h"

namespace oisctl {
namespace {

namespace fs = std::filesystem;

constexpr int kWidth = 1600;
constexpr int kHeight = 2400;

// More points than a panel is wide in pixels add nothing but time and, in SVG, size.
constexpr size_t kMaxBuckets = 1400;

constexpr double kCloseUpS = 1.5;
constexpr double kMinRange = 1e-3;  // so that a flat line has a scale

constexpr const char* kScriptName = "script.gp";
constexpr const char* kPictureName = "picture";
constexpr const char* kErrorsName = "errors.txt";

// Colours that the colour-blind can tell apart.
constexpr const char* kTargetColour = "#0072B2";
constexpr const char* kLightTargetColour = "#56B4E9";
constexpr const char* kHallColour = "#D55E00";
constexpr const char* kLightHallColour = "#E69F00";
constexpr std::array<const char*, 3> kAxisColours = {"#009E73", "#AA4499", "#999999"};

struct Range {
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();

    void include(double value) {
        if (!std::isfinite(value)) return;
        low = std::min(low, value);
        high = std::max(high, value);
    }
    void include(const std::vector<double>& values) {
        for (const double value : values) include(value);
    }
    // With some air around it, and never empty.
    Range padded(double part = 0.05) const {
        if (low > high) return {-kMinRange, kMinRange};
        const double air = std::max((high - low) * part, kMinRange);
        return {low - air, high + air};
    }
};

// The rows of the recording that a panel shows.
struct Window {
    size_t begin = 0;
    size_t end = 0;
};

using Series = std::vector<const std::vector<double>*>;

class Script {
  public:
    Script(const Recording& recording, const RecordingStats& stats, std::string_view terminal)
        : mRecording(recording), mStats(stats), mTimeS(recording[Column::kTimestamp]) {
        for (size_t axis = 0; axis < 2; ++axis) {
            mTarget[axis] = targetAngle(recording, axis);
            mResidual[axis] = residualAngle(recording, axis);
        }
        mWhole = {0, mTimeS.size()};
        mCloseUp = worstMoment();
        begin(terminal);
        addGyro();
        addAxis(0, kFirstRow - kRowStep);
        addAxis(1, kFirstRow - 2 * kRowStep);
        addResidual(kFirstRow - 3 * kRowStep);
        addPath();
        addSpectrum();
        mOut << "unset multiplot\n";
    }

    std::string text() const { return mOut.str(); }

  private:
    // Places, as parts of the picture from its lower left corner.
    static constexpr double kLeft = 0.075;
    static constexpr double kRight = 0.98;
    static constexpr double kFirstRow = 0.820;
    static constexpr double kRowStep = 0.162;
    static constexpr double kRowHeight = 0.117;
    static constexpr double kBottom = 0.035;
    static constexpr double kBottomHeight = 0.245;

    // In quotes for gnuplot.
    static std::string quoted(std::string_view text) {
        std::string result = "'";
        for (const char c : text) {
            if (c == '\'') result += '\'';
            result += static_cast<unsigned char>(c) < ' ' ? '?' : c;
        }
        return result + "'";
    }

    void begin(std::string_view terminal) {
        mOut.precision(9);
        mOut << "set encoding utf8\n"
             << "set terminal " << terminal << "\n"
             << "set output '" << kPictureName << "'\n"
             << "set datafile missing NaN\n"
             << "set multiplot\n"
             << "set border linecolor '#444444'\n"
             << "set grid linecolor '#DDDDDD' linetype 1 linewidth 1\n"
             << "set tics nomirror textcolor '#222222'\n"
             << "set key opaque box linecolor '#CCCCCC' samplen 2 spacing 1.1 horizontal top right\n";
        const std::string name = fs::path(mRecording.source).filename().string();
        mOut << "set label 1 " << quoted(name) << " at screen 0.04,0.985 left noenhanced font ',22'\n"
             << "set label 2 "
             << quoted(grouped(mStats.rows) + " rows, " + figure(mStats.durationS, 2) + " s at " +
                       figure(mStats.rateHz, 1) + " Hz, " + std::to_string(mStats.gaps) +
                       (mStats.gaps == 1 ? " gap" : " gaps") +
                       "; to the right: where the residual is largest")
             << " at screen 0.04,0.969 left noenhanced font ',15'\n";
    }

    // Around the largest excursion of a residual.
    Window worstMoment() const {
        size_t worst = 0;
        double largest = -1;
        for (size_t axis = 0; axis < 2; ++axis) {
            for (size_t i = 0; i < mTimeS.size(); ++i) {
                const double excursion = std::abs(mResidual[axis][i] - mStats.axes[axis].residualMean);
                if (std::isfinite(excursion) && excursion > largest) {
                    largest = excursion;
                    worst = i;
                }
            }
        }
        const double lengthS = std::min(kCloseUpS, mTimeS.back());
        const double beginS = std::clamp(mTimeS[worst] - lengthS / 2, 0.0, mTimeS.back() - lengthS);
        const auto row = [&](double timeS) {
            return static_cast<size_t>(std::lower_bound(mTimeS.begin(), mTimeS.end(), timeS) -
                                       mTimeS.begin());
        };
        return {row(beginS), std::min(row(beginS + lengthS) + 1, mTimeS.size())};
    }

    void writeValue(double value) {
        if (std::isfinite(value)) {
            mOut << ' ' << value;
        } else {
            mOut << " NaN";
        }
    }

    // Defines the data block: time and each series. Long ones are thinned to the extremes of each stretch, in
    // the order in which they came.
    void writeData(const std::string& name, Window window, const Series& series) {
        const size_t bucket = std::max<size_t>(1, (window.end - window.begin) / kMaxBuckets);
        mOut << "$" << name << " << END_OF_DATA\n";
        for (size_t begin = window.begin; begin < window.end; begin += bucket) {
            const size_t last = std::min(begin + bucket, window.end) - 1;
            writeRow(mTimeS[begin], begin, last, series, true);
            if (last > begin) writeRow(mTimeS[last], begin, last, series, false);
        }
        mOut << "END_OF_DATA\n";
    }

    void writeRow(double timeS, size_t begin, size_t last, const Series& series, bool first) {
        mOut << timeS;
        for (const std::vector<double>* values : series) {
            const auto from = values->begin() + static_cast<std::ptrdiff_t>(begin);
            const auto [low, high] =
                std::minmax_element(from, values->begin() + static_cast<std::ptrdiff_t>(last + 1));
            writeValue((low < high) == first ? *low : *high);
        }
        mOut << '\n';
    }

    struct Panel {
        double left, right, bottom, top;  // parts of the picture
    };
    static Panel leftPanel(double bottom) { return {kLeft, 0.60, bottom, bottom + kRowHeight}; }
    static Panel rightPanel(double bottom) { return {0.675, kRight, bottom, bottom + kRowHeight}; }

    void place(const Panel& panel, const std::string& title, const char* xLabel, const char* yLabel) {
        mOut << "set lmargin at screen " << panel.left << "\nset rmargin at screen " << panel.right
             << "\nset bmargin at screen " << panel.bottom << "\nset tmargin at screen " << panel.top << "\n"
             << "set title " << quoted(title) << " noenhanced font ',16' offset 0,-0.4\n"
             << "set xlabel " << quoted(xLabel) << " offset 0,0.4\n"
             << "set ylabel " << quoted(yLabel) << " offset 0.5,0\n";
    }

    void setRange(const char* axis, Range range) {
        mOut << "set " << axis << "range [" << range.low << ":" << range.high << "]\n";
    }

    void timeRange(Window window) { setRange("x", {mTimeS[window.begin], mTimeS[window.end - 1]}); }

    void markCloseUp() {
        mOut << "set object 1 rectangle from first " << mTimeS[mCloseUp.begin] << ", graph 0 to first "
             << mTimeS[mCloseUp.end - 1]
             << ", graph 1 behind fillcolor rgb '#F0E6C0' fillstyle solid noborder\n";
    }
    void unmarkCloseUp() { mOut << "unset object 1\nunset label 1\nunset label 2\n"; }

    struct Curve {
        const char* name;
        const char* colour;
        double width;
    };

    void plotCurves(const std::string& data, const std::vector<Curve>& curves) {
        mOut << "plot ";
        for (size_t i = 0; i < curves.size(); ++i) {
            mOut << (i == 0 ? "" : ", ") << "$" << data << " using 1:" << i + 2
                 << " with lines linecolor rgb '" << curves[i].colour << "' linewidth " << curves[i].width
                 << " title " << quoted(curves[i].name);
        }
        mOut << "\n";
    }

    // The whole recording to the left, the close-up to the right, at one scale each for the row.
    void addRow(const std::string& name, double bottom, const std::string& title, const char* yLabel,
                const Series& series, const std::vector<Curve>& curves, Range range) {
        setRange("y", range);
        writeData(name, mWhole, series);
        place(leftPanel(bottom), title, "time [s]", yLabel);
        timeRange(mWhole);
        markCloseUp();
        plotCurves(name, curves);
        unmarkCloseUp();

        Range near;
        for (const std::vector<double>* values : series) {
            for (size_t i = mCloseUp.begin; i < mCloseUp.end; ++i) near.include((*values)[i]);
        }
        setRange("y", near.padded());
        writeData(name + "_near", mCloseUp, series);
        place(rightPanel(bottom), "", "time [s]", yLabel);
        timeRange(mCloseUp);
        mOut << "set key off\n";
        plotCurves(name + "_near", curves);
        mOut << "set key on\n";
    }

    void addGyro() {
        const Series series = {&mRecording[Column::kGyroRawX], &mRecording[Column::kGyroRawY],
                               &mRecording[Column::kGyroRawZ]};
        Range range;
        for (const std::vector<double>* values : series) range.include(*values);
        addRow("gyro", kFirstRow, "gyro, raw", "gyro [counts]", series,
               {{"x", kAxisColours[0], 1}, {"y", kAxisColours[1], 1}, {"z", kAxisColours[2], 1}},
               range.padded(0.15));
    }

    static std::string angle(double value) { return figure(value, 4, "\u00b0"); }

    std::string axisTitle(size_t axis) const {
        const AxisStats& stats = mStats.axes[axis];
        std::string title = axis == 0 ? "x: " : "y: ";
        title += "shake " + angle(stats.shakeRms) + " RMS";
        if (std::isfinite(stats.suppressionDb))
            title += ", suppressed by " + figure(stats.suppressionDb, 1, " dB");
        if (stats.samplesAtLimit > 0) title += ", " + grouped(stats.samplesAtLimit) + " samples at the limit";
        return title;
    }

    void addAxis(size_t axis, double bottom) {
        // One scale for both axes.
        Range range;
        for (const auto& target : mTarget) range.include(target);
        range.include(mRecording[Column::kAngleHallX]);
        range.include(mRecording[Column::kAngleHallY]);
        const Column hall = axis == 0 ? Column::kAngleHallX : Column::kAngleHallY;
        addRow(axis == 0 ? "axis_x" : "axis_y", bottom, axisTitle(axis),
               axis == 0 ? "angle x [\u00b0]" : "angle y [\u00b0]", {&mTarget[axis], &mRecording[hall]},
               {{"target", kLightTargetColour, 3.5}, {"hall", kHallColour, 1.3}}, range.padded(0.15));
    }

    void addResidual(double bottom) {
        Range range;
        for (const auto& residual : mResidual) range.include(residual);
        addRow("residual", bottom,
               "residual, target minus hall: x " + angle(mStats.axes[0].residualRms) + " RMS, y " +
                   angle(mStats.axes[1].residualRms) + " RMS",
               "residual [\u00b0]", {&mResidual[0], &mResidual[1]},
               {{"x", kAxisColours[0], 1}, {"y", kAxisColours[1], 1}}, range.padded(0.15));
    }

    void addPath() {
        const std::vector<double>& hallX = mRecording[Column::kAngleHallX];
        const std::vector<double>& hallY = mRecording[Column::kAngleHallY];
        Range range;
        range.include(hallX);
        range.include(hallY);
        range.include(mTarget[0]);
        range.include(mTarget[1]);
        const Range square = range.padded();

        mOut << "$path << END_OF_DATA\n";
        for (size_t i = 0; i < mTimeS.size(); ++i) {
            for (const double value : {mTarget[0][i], mTarget[1][i], hallX[i], hallY[i]}) writeValue(value);
            mOut << '\n';
        }
        mOut << "END_OF_DATA\n";
        constexpr double kAsWideAsHigh = kBottomHeight * kHeight / kWidth;
        place({kLeft, kLeft + kAsWideAsHigh, kBottom, kBottom + kBottomHeight}, "path of the lens",
              "angle x [\u00b0]", "angle y [\u00b0]");
        setRange("x", square);
        setRange("y", square);
        mOut << "plot $path using 1:2 with lines linecolor rgb '" << kLightTargetColour
             << "' linewidth 1 title 'target', "
             << "$path using 3:4 with lines linecolor rgb '" << kHallColour << "' linewidth 1 title 'hall'\n";
    }

    void addSpectrum() {
        place({0.52, kRight, kBottom, kBottom + kBottomHeight}, "spectrum", "frequency [Hz]",
              "density [\u00b0/\u221aHz]");
        mOut << "set logscale xy\nset format y '%g'\n";
        Range range;
        mOut << "$spectrum << END_OF_DATA\n";
        const auto& axes = mStats.axes;
        for (size_t i = 0; i < mStats.frequencyHz.size(); ++i) {
            mOut << mStats.frequencyHz[i];
            for (const double value : {axes[0].shakeDensity[i], axes[1].shakeDensity[i],
                                       axes[0].residualDensity[i], axes[1].residualDensity[i]}) {
                writeValue(value > 0 ? value : std::numeric_limits<double>::quiet_NaN());
                if (value > 0) range.include(value);
            }
            mOut << '\n';
        }
        mOut << "END_OF_DATA\n";
        if (range.low > range.high) return;
        setRange("x", {mStats.frequencyHz.front(), mStats.frequencyHz.back()});
        setRange("y", {range.low / 2, range.high * 4});
        plotCurves("spectrum", {{"target x", kTargetColour, 1.5},
                                {"target y", kLightTargetColour, 1.5},
                                {"residual x", kHallColour, 1.5},
                                {"residual y", kLightHallColour, 1.5}});
    }

    const Recording& mRecording;
    const RecordingStats& mStats;
    const std::vector<double>& mTimeS;
    std::array<std::vector<double>, 2> mTarget;
    std::array<std::vector<double>, 2> mResidual;
    Window mWhole;
    Window mCloseUp;
    std::ostringstream mOut;
};

// A folder that goes with the object.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (fs::temp_directory_path() / "oisctl_plot_XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw JobError("cannot make a temporary folder " + name + ": " + std::strerror(errno));
        }
        mPath = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        fs::remove_all(mPath, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const fs::path& path() const { return mPath; }

  private:
    fs::path mPath;
};

std::string terminalFor(const fs::path& out) {
    const std::string size = std::to_string(kWidth) + "," + std::to_string(kHeight);
    if (out.extension() == ".png")
        return "pngcairo noenhanced size " + size + " background '#FFFFFF' font 'Sans,14'";
    if (out.extension() == ".svg")
        return "svg noenhanced size " + size + " background '#FFFFFF' font 'Sans,17'";
    throw InputError(out.string() + ": a plot is a .png or an .svg file");
}

std::string firstLine(const fs::path& file) {
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        if (line.find_first_not_of(" \t^") != std::string::npos) return line;
    }
    return "it says nothing";
}

// Runs gnuplot on the script in `folder`; its messages go to a file there.
void runGnuplot(const fs::path& folder) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, kErrorsName, O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    std::string program = "gnuplot", noSettings = "-d", script = kScriptName;
    char* const arguments[] = {program.data(), noSettings.data(), script.data(), nullptr};
    pid_t child = 0;
    const int error = posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    const char* const absent = "gnuplot is not installed; the package gnuplot-nox has it";
    if (error == ENOENT) throw JobError(absent);
    if (error != 0) throw JobError(std::string("gnuplot cannot be started: ") + std::strerror(error));

    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) throw JobError(std::string("waiting for gnuplot: ") + std::strerror(errno));
    }
    // Some systems only notice in the child that there is no such program.
    constexpr int kNotFound = 127;
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNotFound) throw JobError(absent);
    if (status != 0) throw JobError("gnuplot failed: " + firstLine(folder / kErrorsName));
}

// By a copy beside it, as `out` may lie in another file system.
void moveInto(const fs::path& picture, const fs::path& out) {
    const fs::path part = out.string() + ".part";
    std::error_code error;
    fs::copy_file(picture, part, fs::copy_options::overwrite_existing, error);
    if (!error) fs::rename(part, out, error);
    if (!error) return;
    std::error_code ignored;
    fs::remove(part, ignored);
    throw JobError(out.string() + ": cannot be written: " + error.message());
}

}  // namespace

void plotRecording(const Recording& recording, const RecordingStats& stats, const fs::path& out) {
    const std::string terminal = terminalFor(out);
    const TemporaryFolder folder;
    std::ofstream(folder.path() / kScriptName) << Script(recording, stats, terminal).text();
    runGnuplot(folder.path());
    moveInto(folder.path() / kPictureName, out);
}

}  // namespace oisctl

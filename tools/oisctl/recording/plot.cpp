// Plots by gnuplot: a script with its data inline. Every name from outside stands in single quotes, in which
// gnuplot replaces nothing.

#include "recording/plot.h"

#include <fmt/format.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>

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
    Script(const Recording& recording, const RecordingStats& stats, std::string_view terminal,
           const fs::path& picture)
        : mRecording(recording), mStats(stats), mTimeS(recording[Column::kTimestamp]) {
        for (size_t axis = 0; axis < 2; ++axis) {
            mTarget[axis] = targetAngle(recording, axis);
            mResidual[axis] = residualAngle(recording, axis);
        }
        mCloseUp = worstMoment();
        begin(terminal, picture);
        addGyro();
        addAxis(0, kFirstRow - kRowStep);
        addAxis(1, kFirstRow - 2 * kRowStep);
        addResidual(kFirstRow - 3 * kRowStep);
        addPath();
        addSpectrum();
        add("unset multiplot\n");
    }

    const std::string& text() const { return mText; }

  private:
    // Places, as parts of the picture from its lower left corner.
    static constexpr double kLeft = 0.075;
    static constexpr double kRight = 0.98;
    static constexpr double kFirstRow = 0.820;
    static constexpr double kRowStep = 0.162;
    static constexpr double kRowHeight = 0.117;
    static constexpr double kBottom = 0.035;
    static constexpr double kBottomHeight = 0.245;

    template <typename... Arguments>
    void add(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        fmt::format_to(std::back_inserter(mText), format, std::forward<Arguments>(arguments)...);
    }

    // In quotes for gnuplot.
    static std::string quoted(std::string_view text) {
        std::string result = "'";
        for (const char c : text) {
            if (c == '\'') result += '\'';
            result += static_cast<unsigned char>(c) < ' ' ? '?' : c;
        }
        return result + "'";
    }

    void begin(std::string_view terminal, const fs::path& picture) {
        add(R"(set encoding utf8
set terminal {} size {},{} background '#FFFFFF'
set output {}
set datafile missing 'nan'
set multiplot
set border linecolor '#444444'
set grid linecolor '#DDDDDD' linetype 1 linewidth 1
set tics nomirror textcolor '#222222'
set key opaque box linecolor '#CCCCCC' samplen 2 spacing 1.1 horizontal top right
set label 1 {} at screen 0.04,0.985 left noenhanced font ',22'
)",
            terminal, kWidth, kHeight, quoted(picture.string()),
            quoted(fs::path(mRecording.source).filename().string()));
        add("set label 2 '{} rows, {} s at {} Hz, {} {}; to the right: where the residual is largest' "
            "at screen 0.04,0.969 left noenhanced font ',15'\n",
            grouped(mStats.rows), figure(mStats.durationS, 2), figure(mStats.rateHz, 1), mStats.gaps,
            mStats.gaps == 1 ? "gap" : "gaps");
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

    void addValue(double value) {
        add(" {:.9g}", std::isfinite(value) ? value : std::numeric_limits<double>::quiet_NaN());
    }

    // Defines the data block: each series is a column.
    void addData(std::string_view name, const Series& series) {
        add("${} << END_OF_DATA\n", name);
        for (size_t row = 0; row < series[0]->size(); ++row) {
            for (const std::vector<double>* values : series) addValue((*values)[row]);
            add("\n");
        }
        add("END_OF_DATA\n");
    }

    // The same over time. Long ones are thinned to the extremes of each stretch, in the order in which they
    // came.
    void addTimedData(std::string_view name, Window window, const Series& series) {
        const size_t bucket = std::max<size_t>(1, (window.end - window.begin) / kMaxBuckets);
        add("${} << END_OF_DATA\n", name);
        for (size_t begin = window.begin; begin < window.end; begin += bucket) {
            const size_t last = std::min(begin + bucket, window.end) - 1;
            addRow(mTimeS[begin], begin, last, series, true);
            if (last > begin) addRow(mTimeS[last], begin, last, series, false);
        }
        add("END_OF_DATA\n");
    }

    void addRow(double timeS, size_t begin, size_t last, const Series& series, bool first) {
        addValue(timeS);
        for (const std::vector<double>* values : series) {
            const auto [low, high] = std::minmax_element(values->data() + begin, values->data() + last + 1);
            addValue((low < high) == first ? *low : *high);
        }
        add("\n");
    }

    struct Panel {
        double left, right, bottom, top;  // parts of the picture
    };
    static Panel leftPanel(double bottom) { return {kLeft, 0.60, bottom, bottom + kRowHeight}; }
    static Panel rightPanel(double bottom) { return {0.675, kRight, bottom, bottom + kRowHeight}; }

    void place(const Panel& panel, std::string_view title, std::string_view xLabel, std::string_view yLabel) {
        add("set lmargin at screen {}\nset rmargin at screen {}\nset bmargin at screen {}\nset tmargin at "
            "screen {}\n"
            "set title {} noenhanced font ',16' offset 0,-0.4\n"
            "set xlabel '{}' offset 0,0.4\nset ylabel '{}' offset 0.5,0\n",
            panel.left, panel.right, panel.bottom, panel.top, quoted(title), xLabel, yLabel);
    }

    void setRange(char axis, Range range) {
        add("set {}range [{:.9g}:{:.9g}]\n", axis, range.low, range.high);
    }

    void timeRange(Window window) { setRange('x', {mTimeS[window.begin], mTimeS[window.end - 1]}); }

    struct Curve {
        const char* name;
        const char* colour;
        double width;
    };

    void plotCurves(std::string_view data, const std::vector<Curve>& curves) {
        add("plot");
        for (size_t i = 0; i < curves.size(); ++i)
            add("{} ${} using 1:{} with lines linecolor rgb '{}' linewidth {} title '{}'", i == 0 ? "" : ",",
                data, i + 2, curves[i].colour, curves[i].width, curves[i].name);
        add("\n");
    }

    // The whole recording to the left, the close-up to the right, at one scale each for the row.
    void addPanels(const std::string& name, double bottom, const std::string& title, const char* yLabel,
                   const Series& series, const std::vector<Curve>& curves, Range range) {
        const Window whole{0, mTimeS.size()};
        setRange('y', range);
        addTimedData(name, whole, series);
        place(leftPanel(bottom), title, "time [s]", yLabel);
        timeRange(whole);
        add("set object 1 rectangle from first {:.9g}, graph 0 to first {:.9g}, graph 1 behind "
            "fillcolor rgb '#F0E6C0' fillstyle solid noborder\n",
            mTimeS[mCloseUp.begin], mTimeS[mCloseUp.end - 1]);
        plotCurves(name, curves);
        add("unset object 1\nunset label 1\nunset label 2\n");

        Range near;
        for (const std::vector<double>* values : series)
            for (size_t i = mCloseUp.begin; i < mCloseUp.end; ++i) near.include((*values)[i]);
        setRange('y', near.padded());
        addTimedData(name + "_near", mCloseUp, series);
        place(rightPanel(bottom), "", "time [s]", yLabel);
        timeRange(mCloseUp);
        add("set key off\n");
        plotCurves(name + "_near", curves);
        add("set key on\n");
    }

    void addGyro() {
        const Series series = {&mRecording[Column::kGyroRawX], &mRecording[Column::kGyroRawY],
                               &mRecording[Column::kGyroRawZ]};
        Range range;
        for (const std::vector<double>* values : series) range.include(*values);
        addPanels("gyro", kFirstRow, "gyro, raw", "gyro [counts]", series,
                  {{"x", kAxisColours[0], 1}, {"y", kAxisColours[1], 1}, {"z", kAxisColours[2], 1}},
                  range.padded(0.15));
    }

    static std::string angle(double value) { return figure(value, 4, "\u00b0"); }

    std::string axisTitle(size_t axis) const {
        const AxisStats& stats = mStats.axes[axis];
        std::string title = fmt::format("{}: shake {} RMS", axis == 0 ? "x" : "y", angle(stats.shakeRms));
        if (std::isfinite(stats.suppressionDb))
            title += fmt::format(", suppressed by {}", figure(stats.suppressionDb, 1, " dB"));
        if (stats.samplesAtLimit > 0)
            title += fmt::format(", {} samples at the limit", grouped(stats.samplesAtLimit));
        return title;
    }

    void addAxis(size_t axis, double bottom) {
        // One scale for both axes.
        Range range;
        for (const auto& target : mTarget) range.include(target);
        range.include(mRecording[Column::kAngleHallX]);
        range.include(mRecording[Column::kAngleHallY]);
        const Column hall = axis == 0 ? Column::kAngleHallX : Column::kAngleHallY;
        addPanels(axis == 0 ? "axis_x" : "axis_y", bottom, axisTitle(axis),
                  axis == 0 ? "angle x [\u00b0]" : "angle y [\u00b0]", {&mTarget[axis], &mRecording[hall]},
                  {{"target", kLightTargetColour, 3.5}, {"hall", kHallColour, 1.3}}, range.padded(0.15));
    }

    void addResidual(double bottom) {
        Range range;
        for (const auto& residual : mResidual) range.include(residual);
        addPanels("residual", bottom,
                  fmt::format("residual, target minus hall: x {} RMS, y {} RMS",
                              angle(mStats.axes[0].residualRms), angle(mStats.axes[1].residualRms)),
                  "residual [\u00b0]", {&mResidual[0], &mResidual[1]},
                  {{"x", kAxisColours[0], 1}, {"y", kAxisColours[1], 1}}, range.padded(0.15));
    }

    void addPath() {
        const Series path{&mTarget[0], &mTarget[1], &mRecording[Column::kAngleHallX],
                          &mRecording[Column::kAngleHallY]};
        Range range;
        for (const std::vector<double>* values : path) range.include(*values);
        addData("path", path);
        constexpr double kAsWideAsHigh = kBottomHeight * kHeight / kWidth;
        place({kLeft, kLeft + kAsWideAsHigh, kBottom, kBottom + kBottomHeight}, "path of the lens",
              "angle x [\u00b0]", "angle y [\u00b0]");
        setRange('x', range.padded());
        setRange('y', range.padded());
        add("plot $path using 1:2 with lines linecolor rgb '{}' linewidth 1 title 'target', "
            "$path using 3:4 with lines linecolor rgb '{}' linewidth 1 title 'hall'\n",
            kLightTargetColour, kHallColour);
    }

    void addSpectrum() {
        const auto& [x, y] = mStats.axes;
        const Series densities{&x.shakeDensity, &y.shakeDensity, &x.residualDensity, &y.residualDensity};
        Range range;
        for (const std::vector<double>* values : densities)
            for (const double value : *values)
                if (value > 0) range.include(value);  // the scale is logarithmic
        if (range.low > range.high) return;
        Series columns{&mStats.frequencyHz};
        columns.insert(columns.end(), densities.begin(), densities.end());
        addData("spectrum", columns);
        place({0.52, kRight, kBottom, kBottom + kBottomHeight}, "spectrum", "frequency [Hz]",
              "density [\u00b0/\u221aHz]");
        add("set logscale xy\nset format y '%g'\n");
        setRange('x', {mStats.frequencyHz.front(), mStats.frequencyHz.back()});
        setRange('y', {range.low / 2, range.high * 4});
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
    Window mCloseUp;
    std::string mText;
};

std::string_view terminalFor(const fs::path& out) {
    if (out.extension() == ".png") return "pngcairo noenhanced font 'Sans,14'";
    if (out.extension() == ".svg") return "svg noenhanced font 'Sans,17'";
    throw InputError(out.string() + ": a plot is a .png or an .svg file");
}

std::string firstLine(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n^"), text.size()));
    return text.empty() ? "it says nothing" : std::string(text.substr(0, text.find('\n')));
}

// The script has no name that another could take: gnuplot inherits the open file.
void runGnuplot(const std::string& script) {
    std::FILE* const file = std::tmpfile();
    if (file == nullptr)
        throw JobError(fmt::format("cannot make a temporary file: {}", std::strerror(errno)));
    std::fwrite(script.data(), 1, script.size(), file);
    std::fflush(file);
    std::FILE* const pipe = popen(fmt::format("gnuplot -d /dev/fd/{} 2>&1", fileno(file)).c_str(), "r");
    if (pipe == nullptr) throw JobError(fmt::format("gnuplot cannot be started: {}", std::strerror(errno)));
    std::string said;
    for (std::array<char, 256> piece{}; std::fgets(piece.data(), piece.size(), pipe) != nullptr;)
        said += piece.data();
    const int status = pclose(pipe);
    std::fclose(file);
    constexpr int kNotFound = 127;  // the shell's
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNotFound)
        throw JobError("gnuplot is not installed; the package gnuplot-nox has it");
    if (status != 0) throw JobError("gnuplot failed: " + firstLine(said));
}

}  // namespace

void plotRecording(const Recording& recording, const RecordingStats& stats, const fs::path& out) {
    const std::string_view terminal = terminalFor(out);
    const fs::path part = out.string() + ".part";
    if (!std::ofstream(part)) throw JobError(out.string() + ": cannot be written: " + std::strerror(errno));
    std::error_code error;
    try {
        runGnuplot(Script(recording, stats, terminal, part).text());
        fs::rename(part, out, error);
        if (error) throw JobError(out.string() + ": cannot be written: " + error.message());
    } catch (const JobError&) {
        fs::remove(part, error);
        throw;
    }
}

}  // namespace oisctl

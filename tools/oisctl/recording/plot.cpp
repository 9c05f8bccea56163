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
#include "recording/thinning.h"

namespace oisctl {
namespace {

namespace fs = std::filesystem;

constexpr int kWidth = 1600;

// A panel is not wider in pixels, the path's not wider in cells that one can tell apart.
constexpr size_t kPanelColumns = 900;
constexpr size_t kPathCells = 400;

constexpr double kCloseUpS = 1.5;
constexpr double kMinRange = 1e-3;  // so that a flat line has a scale

// Colours that the colour-blind can tell apart.
constexpr const char* kTargetColour = "#0072B2";
constexpr const char* kLightTargetColour = "#56B4E9";
constexpr const char* kHallColour = "#D55E00";
constexpr const char* kLightHallColour = "#E69F00";
constexpr const char* kLimitColour = "#666666";
constexpr const char* kVerdictColour = "#B00020";
constexpr std::array<const char*, 3> kAxisColours = {"#009E73", "#AA4499", "#999999"};

struct Range {
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();

    void include(double value) {
        if (!std::isfinite(value)) return;
        low = std::min(low, value);
        high = std::max(high, value);
    }
    void include(const Samples& values) {
        for (const float value : values) include(double{value});
    }
    // With some air around it, and never empty.
    Range padded(double part = 0.05) const {
        if (low > high) return {-kMinRange, kMinRange};
        const double air = std::max((high - low) * part, kMinRange);
        return {low - air, high + air};
    }
};

using Series = std::vector<const Samples*>;

class Script {
  public:
    Script(const Examined& examined, std::string_view terminal, const fs::path& picture)
        : mExamined(examined),
          mRecording(examined.recording),
          mStats(examined.stats),
          mTimeS(examined.recording.timeS),
          mHasMotion(examined.stats.suppression.has_value()),
          mHeight(kHeight + (mHasMotion ? kRowStep : 0)) {
        for (size_t axis = 0; axis < 2; ++axis) {
            mTarget[axis] = targetAngle(mRecording, axis);
            mError[axis] = trackingError(mRecording, axis);
            if (mHasMotion) mResidual[axis] = residualShake(mRecording, examined.known, axis);
        }
        mCloseUp = worstMoment();
        begin(terminal, picture);
        addGyro();
        addAxis(0);
        addAxis(1);
        addTrackingError();
        if (mHasMotion) addResidual();
        addPath();
        addSpectrum();
        add("unset multiplot\n");
    }

    const std::string& text() const { return mText; }

  private:
    // Pixels, from the upper left corner.
    static constexpr int kHeight = 2420;
    static constexpr int kTitle = 36;
    static constexpr int kSubtitle = 74;
    static constexpr int kVerdict = 104;
    static constexpr int kFirstRow = 171;
    static constexpr int kRowStep = 389;
    static constexpr int kRowHeight = 281;
    static constexpr int kBottomHeight = 588;
    static constexpr int kBottomMargin = 84;
    static constexpr double kLeft = 0.075;  // parts of the width
    static constexpr double kRight = 0.98;

    double fromBottom(int pixels) const { return 1 - static_cast<double>(pixels) / mHeight; }

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
)",
            terminal, kWidth, mHeight, quoted(picture.string()));
        addLabel(1, fs::path(mRecording.source).filename().string(), kTitle, 22, "#000000");
        addLabel(
            2,
            fmt::format("{} rows, {} s at {} Hz, {} {}; to the right: where the tracking error is largest",
                        grouped(mStats.rows), figure(mStats.durationS, 2), figure(mStats.rateHz, 1),
                        mStats.gaps.count, mStats.gaps.count == 1 ? "gap" : "gaps"),
            kSubtitle, 15, "#000000");
        addLabel(3, verdict(), kVerdict, 15, kVerdictColour);
    }

    void addLabel(int number, std::string_view text, int top, int size, const char* colour) {
        add("set label {} {} at screen 0.04,{} left noenhanced font ',{}' textcolor rgb '{}'\n", number,
            quoted(text), fromBottom(top), size, colour);
    }

    // The first thing that is wrong.
    std::string verdict() const {
        const auto first = std::ranges::find(mExamined.verdicts, true, &RecordingVerdict::fault);
        if (first == mExamined.verdicts.end()) return {};
        const auto count = std::ranges::count(mExamined.verdicts, true, &RecordingVerdict::fault);
        std::string text = toText(*first);
        if (count > 1) text += fmt::format(" (and {} more; 'oisctl stats' has them)", count - 1);
        return text;
    }

    // Around the largest excursion of a tracking error.
    RowRange worstMoment() const {
        size_t worst = 0;
        double largest = -1;
        for (size_t axis = 0; axis < 2; ++axis) {
            for (size_t i = 0; i < mTimeS.size(); ++i) {
                const double excursion = std::abs(mError[axis][i] - mStats.axes[axis].trackingErrorMean);
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

    // Defines the data block: each series is a column behind the time.
    void addTimedData(std::string_view name, RowRange rows, const Series& series) {
        add("${} << END_OF_DATA\n", name);
        appendThinned(mText, mTimeS, mStats.segments, rows, series, kPanelColumns);
        add("END_OF_DATA\n");
    }

    struct Panel {
        double left, right, bottom, top;  // parts of the picture
    };
    Panel row(int number, double left, double right) const {
        const int top = kFirstRow + number * kRowStep;
        return {left, right, fromBottom(top + kRowHeight), fromBottom(top)};
    }
    Panel bottomPanel(double left, double right) const {
        const int bottom = mHeight - kBottomMargin;
        return {left, right, fromBottom(bottom), fromBottom(bottom - kBottomHeight)};
    }

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

    void timeRange(RowRange rows) { setRange('x', {mTimeS[rows.begin], mTimeS[rows.end - 1]}); }

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
        if (std::isfinite(mLimit))
            for (const double at : {-mLimit, mLimit})
                add(", {:.9g} with lines linecolor rgb '{}' dashtype 2 notitle", at, kLimitColour);
        add("\n");
    }

    // The whole recording to the left, the close-up to the right.
    void addPanels(const std::string& name, const std::string& title, const char* yLabel,
                   const Series& series, const std::vector<Curve>& curves, Range range) {
        const RowRange whole{0, mTimeS.size()};
        setRange('y', range);
        addTimedData(name, whole, series);
        place(row(mRow, kLeft, 0.60), title, "time [s]", yLabel);
        timeRange(whole);
        add("set object 1 rectangle from first {:.9g}, graph 0 to first {:.9g}, graph 1 behind "
            "fillcolor rgb '#F0E6C0' fillstyle solid noborder\n",
            mTimeS[mCloseUp.begin], mTimeS[mCloseUp.end - 1]);
        plotCurves(name, curves);
        add("unset object 1\nunset label 1\nunset label 2\nunset label 3\n");

        Range near;
        for (const Samples* values : series)
            for (size_t i = mCloseUp.begin; i < mCloseUp.end; ++i) near.include(double{(*values)[i]});
        setRange('y', near.padded());
        addTimedData(name + "_near", mCloseUp, series);
        place(row(mRow, 0.675, kRight), "", "time [s]", yLabel);
        timeRange(mCloseUp);
        add("set key off\n");
        plotCurves(name + "_near", curves);
        add("set key on\n");
        ++mRow;
    }

    void addGyro() {
        const Series series = {&mRecording[Column::kGyroRawX], &mRecording[Column::kGyroRawY],
                               &mRecording[Column::kGyroRawZ]};
        Range range;
        for (const Samples* values : series) range.include(*values);
        addPanels("gyro", "gyro, raw", "gyro [counts]", series,
                  {{"x", kAxisColours[0], 1}, {"y", kAxisColours[1], 1}, {"z", kAxisColours[2], 1}},
                  range.padded(0.15));
    }

    static std::string angle(double value) { return figure(value, 4, "\u00b0"); }

    std::string axisTitle(size_t axis) const {
        const AxisStats& stats = mStats.axes[axis];
        std::string title = fmt::format("{}: target {} RMS", axis == 0 ? "x" : "y", angle(stats.targetRms));
        if (stats.samplesAtLimit > 0)
            title += fmt::format(", {} samples at the limit of {}", grouped(stats.samplesAtLimit),
                                 angle(stats.limit));
        return title;
    }

    // Of target and hall, one for both axes.
    Range angles() const {
        Range range;
        for (size_t axis = 0; axis < 2; ++axis) {
            range.include(mTarget[axis]);
            range.include(hallAngle(mRecording, axis));
        }
        return range;
    }

    void addAxis(size_t axis) {
        mLimit = mStats.axes[axis].limit;
        addPanels(axis == 0 ? "axis_x" : "axis_y", axisTitle(axis),
                  axis == 0 ? "angle x [\u00b0]" : "angle y [\u00b0]",
                  {&mTarget[axis], &hallAngle(mRecording, axis)},
                  {{"target", kLightTargetColour, 3.5}, {"hall", kHallColour, 1.3}}, angles().padded(0.15));
        mLimit = std::numeric_limits<double>::quiet_NaN();
    }

    void addBoth(const char* name, const std::string& title, const char* yLabel,
                 const std::array<Samples, 2>& series) {
        Range range;
        for (const Samples& values : series) range.include(values);
        addPanels(name, title, yLabel, {&series[0], &series[1]},
                  {{"x", kAxisColours[0], 1}, {"y", kAxisColours[1], 1}}, range.padded(0.15));
    }

    void addTrackingError() {
        addBoth("error",
                fmt::format("tracking error, target minus hall: x {} RMS, y {} RMS",
                            angle(mStats.axes[0].trackingErrorRms), angle(mStats.axes[1].trackingErrorRms)),
                "error [\u00b0]", mError);
    }

    void addResidual() {
        const BandSuppression& all = mStats.suppression->bands.back();
        addBoth("residual",
                fmt::format("residual shake, true motion minus lens; {}: x {} RMS, y {} RMS", bandText(all),
                            angle(all.residualRms[0]), angle(all.residualRms[1])),
                "residual [\u00b0]", mResidual);
    }

    void addPathData(const char* name, const Samples& x, const Samples& y, Range range) {
        add("${} << END_OF_DATA\n", name);
        appendThinnedPath(mText, x, y, mStats.segments, range.low, range.high, kPathCells);
        add("\nnan nan\nEND_OF_DATA\n");
    }

    void addPath() {
        const Range range = angles().padded();
        addPathData("target_path", mTarget[0], mTarget[1], range);
        addPathData("hall_path", hallAngle(mRecording, 0), hallAngle(mRecording, 1), range);
        place(bottomPanel(kLeft, kLeft + static_cast<double>(kBottomHeight) / kWidth), "path of the lens",
              "angle x [\u00b0]", "angle y [\u00b0]");
        setRange('x', range);
        setRange('y', range);
        const double x = mStats.axes[0].limit, y = mStats.axes[1].limit;
        if (std::isfinite(x) && std::isfinite(y))
            add("set object 1 rectangle from {:.9g},{:.9g} to {:.9g},{:.9g} fillstyle empty border rgb '{}' "
                "dashtype 2\n",
                -x, -y, x, y, kLimitColour);
        add("plot $target_path using 1:2 with lines linecolor rgb '{}' linewidth 1 title 'target', "
            "$hall_path using 1:2 with lines linecolor rgb '{}' linewidth 1 title 'hall'\nunset object 1\n",
            kLightTargetColour, kHallColour);
    }

    std::string spectrumTitle() const {
        if (!mHasMotion) return "spectrum";
        const BandSuppression& all = mStats.suppression->bands.back();
        return fmt::format("spectrum; suppression {}: x {}, y {}", bandText(all), figure(all.db(0), 1, " dB"),
                           figure(all.db(1), 1, " dB"));
    }

    void addSpectrum() {
        const auto& [x, y] = mStats.axes;
        std::vector<const std::vector<double>*> densities{&x.targetDensity, &y.targetDensity,
                                                          &x.trackingErrorDensity, &y.trackingErrorDensity};
        std::vector<Curve> curves{{"target x", kTargetColour, 1.5},
                                  {"target y", kLightTargetColour, 1.5},
                                  {"tracking error x", kHallColour, 1.5},
                                  {"tracking error y", kLightHallColour, 1.5}};
        if (mHasMotion) {
            densities = {&x.motionDensity, &y.motionDensity, &x.residualDensity, &y.residualDensity};
            const char* const names[] = {"motion x", "motion y", "residual x", "residual y"};
            for (size_t i = 0; i < curves.size(); ++i) curves[i].name = names[i];
        }
        Range range;
        for (const std::vector<double>* values : densities)
            for (const double value : *values)
                if (value > 0) range.include(value);  // the scale is logarithmic
        if (range.low > range.high) return;
        add("$spectrum << END_OF_DATA\n");
        for (size_t i = 0; i < mStats.frequencyHz.size(); ++i) {
            add("{:.9g}", mStats.frequencyHz[i]);
            for (const std::vector<double>* values : densities) add(" {:.9g}", (*values)[i]);
            add("\n");
        }
        add("END_OF_DATA\n");
        place(bottomPanel(0.52, kRight), spectrumTitle(), "frequency [Hz]", "density [\u00b0/\u221aHz]");
        add("set logscale xy\nset format y '%g'\n");
        setRange('x', {mStats.frequencyHz.front(), mStats.frequencyHz.back()});
        setRange('y', {range.low / 2, range.high * 4});
        plotCurves("spectrum", curves);
    }

    const Examined& mExamined;
    const Recording& mRecording;
    const RecordingStats& mStats;
    const std::vector<double>& mTimeS;
    const bool mHasMotion;
    const int mHeight;
    std::array<Samples, 2> mTarget;
    std::array<Samples, 2> mError;
    std::array<Samples, 2> mResidual;  // empty where the true motion is not known
    RowRange mCloseUp;
    double mLimit = std::numeric_limits<double>::quiet_NaN();  // where the panel being drawn has lines
    int mRow = 0;
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

void plotRecording(const Examined& examined, const fs::path& out) {
    const std::string_view terminal = terminalFor(out);
    const fs::path part = out.string() + ".part";
    if (!std::ofstream(part)) throw JobError(out.string() + ": cannot be written: " + std::strerror(errno));
    std::error_code error;
    try {
        runGnuplot(Script(examined, terminal, part).text());
        fs::rename(part, out, error);
        if (error) throw JobError(out.string() + ": cannot be written: " + error.message());
    } catch (const JobError&) {
        fs::remove(part, error);
        throw;
    }
}

}  // namespace oisctl

#pragma once
// A picture of panels for gnuplot: a script with its data inline, and what draws it. Every name from outside
// stands in single quotes, in which gnuplot replaces nothing.

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "recording/recording_stats.h"

namespace oisctl {

// Colours that the colour-blind can tell apart.
constexpr const char* kBlue = "#0072B2";
constexpr const char* kLightBlue = "#56B4E9";
constexpr const char* kRed = "#D55E00";
constexpr const char* kOrange = "#E69F00";
constexpr const char* kLimitColour = "#666666";
constexpr const char* kVerdictColour = "#B00020";
constexpr std::array<const char*, 3> kAxisColours = {"#009E73", "#AA4499", "#999999"};

struct PlotRange {
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();

    void include(double value);
    void include(const Samples& values) { include(values, 0, values.size()); }
    void include(const Samples& values, size_t begin, size_t end);
    // With some air around it, and never empty.
    PlotRange padded(double part = 0.05) const;
};

// A stretch of time, seconds since the first row.
struct TimeSpan {
    double beginS = 0;
    double endS = 0;
};

struct PlottedCurve {
    const char* name;
    const char* colour;
    double width;
    const Samples* values;
};

// Curves over the time of one recording.
struct Layer {
    const std::vector<double>* timeS;
    const std::vector<RowRange>* segments;
    std::vector<PlottedCurve> curves;
};

// Two series of one recording against each other.
struct Path {
    const char* name;
    const char* colour;
    const Samples* x;
    const Samples* y;
    const std::vector<RowRange>* segments;
};

// A line of a spectrum.
struct DensityCurve {
    const char* name;
    const char* colour;
    const std::vector<double>* frequencyHz;
    const std::vector<double>* density;
};

// Rows of panels, the whole time to the left and a close-up to the right, and below them path and spectrum.
class PlotScript {
  public:
    // Of that many rows of panels. `picture`: what gnuplot writes.
    PlotScript(std::string_view terminal, const std::filesystem::path& picture, int rows, TimeSpan closeUp);

    // In the upper left corner, from the top: title, remark, verdict.
    void addTitle(std::string_view text) { addLabel(1, text, kTitle, 22, "#000000"); }
    void addSubtitle(std::string_view text) { addLabel(2, text, kSubtitle, 15, "#000000"); }
    void addVerdict(std::string_view text) { addLabel(3, text, kVerdict, 15, kVerdictColour); }

    // Lines are drawn at either limit unless it is NaN.
    void addPanels(const std::string& title, const char* yLabel, const std::vector<Layer>& layers,
                   PlotRange range, double limit = std::numeric_limits<double>::quiet_NaN());
    // A frame is drawn where the lens stops, unless one of the limits is NaN.
    void addPath(const std::vector<Path>& paths, PlotRange range, double limitX, double limitY);
    // Nothing where no density is positive.
    void addSpectrum(const std::string& title, const std::vector<DensityCurve>& curves);

    // The whole script.
    std::string finish();

  private:
    // Pixels, from the upper left corner.
    static constexpr int kHeightWithoutRows = 864;
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

    struct Panel {
        double left, right, bottom, top;  // parts of the picture
    };

    template <typename... Arguments>
    void add(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        fmt::format_to(std::back_inserter(mText), format, std::forward<Arguments>(arguments)...);
    }

    double fromBottom(int pixels) const { return 1 - static_cast<double>(pixels) / mHeight; }
    void addLabel(int number, std::string_view text, int top, int size, const char* colour);
    Panel row(double left, double right) const;
    Panel bottomPanel(double left, double right) const;
    void place(const Panel& panel, std::string_view title, std::string_view xLabel, std::string_view yLabel);
    void setRange(char axis, PlotRange range);
    std::vector<std::string> addData(const std::vector<Layer>& layers, TimeSpan span);
    void plotCurves(const std::vector<Layer>& layers, TimeSpan span, double limit);

    const int mHeight;
    const TimeSpan mCloseUp;
    int mRow = 0;
    int mBlocks = 0;  // of data, so far
    std::string mText;
};

// Where the tracking error is farthest from its mean on either axis.
struct WorstMoment {
    double excursion = -1;
    TimeSpan around;
};
WorstMoment worstMoment(const Recording& recording, const RecordingStats& stats);

// Draws what `script` makes for a terminal and a file, as `out`: a .png or .svg by its extension. An existing
// `out` is replaced only by a finished picture. Throws InputError for another extension, JobError when
// gnuplot is missing or fails or `out` cannot be written.
void drawPicture(const std::filesystem::path& out,
                 const std::function<std::string(std::string_view terminal,
                                                 const std::filesystem::path& picture)>& script);

}  // namespace oisctl

#include "recording/plot_script.h"

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "base/errors.h"
#include "base/whole_file.h"
#include "recording/thinning.h"

namespace oisctl {

namespace fs = std::filesystem;

namespace {

constexpr int kWidth = 1600;

// A panel is not wider in pixels, the path's not wider in cells that one can tell apart.
constexpr size_t kPanelColumns = 900;
constexpr size_t kPathCells = 400;

constexpr double kCloseUpS = 1.5;
constexpr double kMinRange = 1e-3;  // so that a flat line has a scale

// In quotes for gnuplot.
std::string inQuotes(std::string_view text) {
    std::string result = "'";
    for (const char c : text) {
        if (c == '\'') result += '\'';
        result += static_cast<unsigned char>(c) < ' ' ? '?' : c;
    }
    return result + "'";
}

RowRange rowsIn(const std::vector<double>& timeS, TimeSpan span) {
    const auto begin = std::lower_bound(timeS.begin(), timeS.end(), span.beginS);
    const auto end = std::upper_bound(begin, timeS.end(), span.endS);
    return {static_cast<size_t>(begin - timeS.begin()), static_cast<size_t>(end - timeS.begin())};
}

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

void PlotRange::include(double value) {
    if (!std::isfinite(value)) return;
    low = std::min(low, value);
    high = std::max(high, value);
}

void PlotRange::include(const Samples& values, size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) include(double{values[i]});
}

PlotRange PlotRange::padded(double part) const {
    if (low > high) return {-kMinRange, kMinRange};
    const double air = std::max((high - low) * part, kMinRange);
    return {low - air, high + air};
}

PlotScript::PlotScript(std::string_view terminal, const fs::path& picture, int rows, TimeSpan closeUp)
    : mHeight(kHeightWithoutRows + rows * kRowStep), mCloseUp(closeUp) {
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
        terminal, kWidth, mHeight, inQuotes(picture.string()));
}

void PlotScript::addLabel(int number, std::string_view text, int top, int size, const char* colour) {
    add("set label {} {} at screen 0.04,{} left noenhanced font ',{}' textcolor rgb '{}'\n", number,
        inQuotes(text), fromBottom(top), size, colour);
}

PlotScript::Panel PlotScript::row(double left, double right) const {
    const int top = kFirstRow + mRow * kRowStep;
    return {left, right, fromBottom(top + kRowHeight), fromBottom(top)};
}

PlotScript::Panel PlotScript::bottomPanel(double left, double right) const {
    const int bottom = mHeight - kBottomMargin;
    return {left, right, fromBottom(bottom), fromBottom(bottom - kBottomHeight)};
}

void PlotScript::place(const Panel& panel, std::string_view title, std::string_view xLabel,
                       std::string_view yLabel) {
    add("set lmargin at screen {}\nset rmargin at screen {}\nset bmargin at screen {}\nset tmargin at "
        "screen {}\n"
        "set title {} noenhanced font ',16' offset 0,-0.4\n"
        "set xlabel '{}' offset 0,0.4\nset ylabel '{}' offset 0.5,0\n",
        panel.left, panel.right, panel.bottom, panel.top, inQuotes(title), xLabel, yLabel);
}

void PlotScript::setRange(char axis, PlotRange range) {
    add("set {}range [{:.9g}:{:.9g}]\n", axis, range.low, range.high);
}

// Defines a block of data for each layer: each curve is a column behind the time. Gives the blocks' names,
// empty for a layer without a row there.
std::vector<std::string> PlotScript::addData(const std::vector<Layer>& layers, TimeSpan span) {
    std::vector<std::string> names;
    for (const Layer& layer : layers) {
        const RowRange rows = rowsIn(*layer.timeS, span);
        names.push_back(rows.size() == 0 ? "" : fmt::format("data_{}", ++mBlocks));
        if (rows.size() == 0) continue;
        std::vector<const Samples*> series;
        for (const PlottedCurve& curve : layer.curves) series.push_back(curve.values);
        add("${} << END_OF_DATA\n", names.back());
        appendThinned(mText, *layer.timeS, *layer.segments, rows, series, kPanelColumns);
        add("END_OF_DATA\n");
    }
    return names;
}

void PlotScript::plotCurves(const std::vector<Layer>& layers, TimeSpan span, double limit) {
    const std::vector<std::string> names = addData(layers, span);
    setRange('x', {span.beginS, span.endS});
    std::string_view before = "plot";
    for (size_t i = 0; i < layers.size(); ++i) {
        const std::vector<PlottedCurve>& curves = layers[i].curves;
        for (size_t c = 0; c < curves.size() && !names[i].empty(); ++c) {
            add("{} ${} using 1:{} with lines linecolor rgb '{}' linewidth {} title '{}'", before, names[i],
                c + 2, curves[c].colour, curves[c].width, curves[c].name);
            before = ",";
        }
    }
    if (std::isfinite(limit))
        for (const double at : {-limit, limit})
            add(", {:.9g} with lines linecolor rgb '{}' dashtype 2 notitle", at, kLimitColour);
    add("\n");
}

void PlotScript::addPanels(const std::string& title, const char* yLabel, const std::vector<Layer>& layers,
                           PlotRange range, double limit) {
    double endS = 0;
    PlotRange near;
    for (const Layer& layer : layers) {
        endS = std::max(endS, layer.timeS->back());
        const RowRange rows = rowsIn(*layer.timeS, mCloseUp);
        for (const PlottedCurve& curve : layer.curves) near.include(*curve.values, rows.begin, rows.end);
    }
    setRange('y', range);
    place(row(kLeft, 0.60), title, "time [s]", yLabel);
    add("set object 1 rectangle from first {:.9g}, graph 0 to first {:.9g}, graph 1 behind "
        "fillcolor rgb '#F0E6C0' fillstyle solid noborder\n",
        mCloseUp.beginS, mCloseUp.endS);
    plotCurves(layers, {0, endS}, limit);
    add("unset object 1\nunset label 1\nunset label 2\nunset label 3\n");

    setRange('y', near.padded());
    place(row(0.675, kRight), "", "time [s]", yLabel);
    add("set key off\n");
    plotCurves(layers, mCloseUp, limit);
    add("set key on\n");
    ++mRow;
}

void PlotScript::addPath(const std::vector<Path>& paths, PlotRange range, double limitX, double limitY) {
    std::string plot;
    for (const Path& path : paths) {
        add("$data_{} << END_OF_DATA\n", ++mBlocks);
        appendThinnedPath(mText, *path.x, *path.y, *path.segments, range.low, range.high, kPathCells);
        add("\nnan nan\nEND_OF_DATA\n");
        plot += fmt::format("{} $data_{} using 1:2 with lines linecolor rgb '{}' linewidth 1 title '{}'",
                            plot.empty() ? "plot" : ",", mBlocks, path.colour, path.name);
    }
    place(bottomPanel(kLeft, kLeft + static_cast<double>(kBottomHeight) / kWidth), "path of the lens",
          "angle x [\u00b0]", "angle y [\u00b0]");
    setRange('x', range);
    setRange('y', range);
    if (std::isfinite(limitX) && std::isfinite(limitY))
        add("set object 1 rectangle from {:.9g},{:.9g} to {:.9g},{:.9g} fillstyle empty border rgb '{}' "
            "dashtype 2\n",
            -limitX, -limitY, limitX, limitY, kLimitColour);
    add("{}\nunset object 1\n", plot);
}

void PlotScript::addSpectrum(const std::string& title, const std::vector<DensityCurve>& curves) {
    PlotRange frequency;
    PlotRange range;
    std::string plot;
    for (const DensityCurve& curve : curves) {
        const std::vector<double>& frequencyHz = *curve.frequencyHz;
        if (frequencyHz.empty() || curve.density->empty()) continue;
        add("$data_{} << END_OF_DATA\n", ++mBlocks);
        for (size_t i = 0; i < frequencyHz.size(); ++i) {
            const double value = (*curve.density)[i];
            add("{:.9g} {:.9g}\n", frequencyHz[i], value);
            if (value > 0) range.include(value);  // the scale is logarithmic
        }
        add("END_OF_DATA\n");
        frequency.include(frequencyHz.front());
        frequency.include(frequencyHz.back());
        plot += fmt::format("{} $data_{} using 1:2 with lines linecolor rgb '{}' linewidth 1.5 title '{}'",
                            plot.empty() ? "plot" : ",", mBlocks, curve.colour, curve.name);
    }
    if (range.low > range.high) return;
    place(bottomPanel(0.52, kRight), title, "frequency [Hz]", "density [\u00b0/\u221aHz]");
    add("set logscale xy\nset format y '%g'\n");
    setRange('x', frequency);
    setRange('y', {range.low / 2, range.high * 4});
    add("{}\n", plot);
}

std::string PlotScript::finish() {
    add("unset multiplot\n");
    return std::move(mText);
}

WorstMoment worstMoment(const Recording& recording, const RecordingStats& stats) {
    const std::vector<double>& timeS = recording.timeS;
    WorstMoment worst;
    double atS = 0;
    for (size_t axis = 0; axis < stats.axes.size(); ++axis) {
        const Samples error = trackingError(recording, axis);
        for (size_t i = 0; i < timeS.size(); ++i) {
            const double excursion = std::abs(error[i] - stats.axes[axis].trackingErrorMean);
            if (!std::isfinite(excursion) || excursion <= worst.excursion) continue;
            worst.excursion = excursion;
            atS = timeS[i];
        }
    }
    const double lengthS = std::min(kCloseUpS, timeS.back());
    const double beginS = std::clamp(atS - lengthS / 2, 0.0, timeS.back() - lengthS);
    worst.around = {beginS, beginS + lengthS};
    return worst;
}

void drawPicture(const fs::path& out,
                 const std::function<std::string(std::string_view, const fs::path&)>& script) {
    const std::string_view terminal = terminalFor(out);
    const fs::path part = partOf(out);
    if (!std::ofstream(part)) throw JobError(out.string() + ": cannot be written: " + std::strerror(errno));
    std::error_code error;
    try {
        runGnuplot(script(terminal, part));
        if (part != out) fs::rename(part, part.parent_path() / part.stem(), error);
        if (error) throw JobError(out.string() + ": cannot be written: " + error.message());
    } catch (const JobError&) {
        if (part != out) fs::remove(part, error);
        throw;
    }
}

}  // namespace oisctl

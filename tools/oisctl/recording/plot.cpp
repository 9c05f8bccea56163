#include "recording/plot.h"

#include <algorithm>

#include "base/terminal.h"
#include "recording/plot_script.h"

namespace oisctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* kAngleLabels[] = {"angle x [\u00b0]", "angle y [\u00b0]"};

std::string angle(double value) {
    return figure(value, 4, "\u00b0");
}

// The first thing that is wrong.
std::string firstFault(const std::vector<RecordingVerdict>& verdicts) {
    const auto first = std::ranges::find(verdicts, true, &RecordingVerdict::fault);
    if (first == verdicts.end()) return {};
    const auto count = std::ranges::count(verdicts, true, &RecordingVerdict::fault);
    std::string text = toText(*first);
    if (count > 1) text += fmt::format(" (and {} more; 'oisctl stats' has them)", count - 1);
    return text;
}

// What the panels of a recording show.
struct Drawn {
    explicit Drawn(const Examined& from)
        : recording(from.recording), stats(from.stats), hasMotion(from.stats.suppression.has_value()) {
        for (size_t axis = 0; axis < 2; ++axis) {
            target[axis] = targetAngle(recording, axis);
            error[axis] = trackingError(recording, axis);
            if (hasMotion) residual[axis] = residualShake(recording, from.known, axis);
        }
    }

    Layer layer(std::vector<PlottedCurve> curves) const {
        return {&recording.timeS, &stats.segments, std::move(curves)};
    }
    const Samples* hall(size_t axis) const { return &hallAngle(recording, axis); }
    const BandSuppression& allBands() const { return stats.suppression->bands.back(); }

    const Recording& recording;
    const RecordingStats& stats;
    const bool hasMotion;
    std::array<Samples, 2> target;
    std::array<Samples, 2> error;
    std::array<Samples, 2> residual;  // empty where the true motion is not known
};

// --- One recording.

class Picture {
  public:
    Picture(const Examined& examined, std::string_view terminal, const fs::path& file)
        : mDrawn(examined),
          mScript(terminal, file, kRows + (mDrawn.hasMotion ? 1 : 0),
                  worstMoment(examined.recording, examined.stats).around) {
        const RecordingStats& stats = examined.stats;
        mScript.addTitle(fs::path(examined.recording.source).filename().string());
        mScript.addSubtitle(
            fmt::format("{} rows, {} s at {} Hz, {} {}; to the right: where the tracking error is largest",
                        grouped(stats.rows), figure(stats.durationS, 2), figure(stats.rateHz, 1),
                        stats.gaps.count, stats.gaps.count == 1 ? "gap" : "gaps"));
        mScript.addVerdict(firstFault(examined.verdicts));
        addGyro();
        addAxis(0);
        addAxis(1);
        const auto& [x, y] = stats.axes;
        addBoth(fmt::format("tracking error, target minus hall: x {} RMS, y {} RMS",
                            angle(x.trackingErrorRms), angle(y.trackingErrorRms)),
                "error [\u00b0]", mDrawn.error);
        if (mDrawn.hasMotion) addResidual();
        mScript.addPath({{"target", kLightBlue, &mDrawn.target[0], &mDrawn.target[1], &stats.segments},
                         {"hall", kRed, mDrawn.hall(0), mDrawn.hall(1), &stats.segments}},
                        angles().padded(), x.limit, y.limit);
        addSpectrum();
    }

    std::string finish() { return mScript.finish(); }

  private:
    static constexpr int kRows = 4;

    void addGyro() {
        PlotRange range;
        std::vector<PlottedCurve> curves;
        const Column columns[] = {Column::kGyroRawX, Column::kGyroRawY, Column::kGyroRawZ};
        const char* const names[] = {"x", "y", "z"};
        for (size_t i = 0; i < std::size(columns); ++i) {
            const Samples& values = mDrawn.recording[columns[i]];
            range.include(values);
            curves.push_back({names[i], kAxisColours[i], 1, &values});
        }
        mScript.addPanels("gyro, raw", "gyro [counts]", {mDrawn.layer(std::move(curves))},
                          range.padded(0.15));
    }

    // Of target and hall, one for both axes.
    PlotRange angles() const {
        PlotRange range;
        for (size_t axis = 0; axis < 2; ++axis) {
            range.include(mDrawn.target[axis]);
            range.include(*mDrawn.hall(axis));
        }
        return range;
    }

    void addAxis(size_t axis) {
        const AxisStats& stats = mDrawn.stats.axes.at(axis);
        std::string title = fmt::format("{}: target {} RMS", axis == 0 ? "x" : "y", angle(stats.targetRms));
        if (stats.samplesAtLimit > 0)
            title += fmt::format(", {} samples at the limit of {}", grouped(stats.samplesAtLimit),
                                 angle(stats.limit));
        mScript.addPanels(title, kAngleLabels[axis],
                          {mDrawn.layer({{"target", kLightBlue, 3.5, &mDrawn.target[axis]},
                                         {"hall", kRed, 1.3, mDrawn.hall(axis)}})},
                          angles().padded(0.15), stats.limit);
    }

    void addBoth(const std::string& title, const char* yLabel, const std::array<Samples, 2>& series) {
        PlotRange range;
        for (const Samples& values : series) range.include(values);
        mScript.addPanels(
            title, yLabel,
            {mDrawn.layer({{"x", kAxisColours[0], 1, &series[0]}, {"y", kAxisColours[1], 1, &series[1]}})},
            range.padded(0.15));
    }

    void addResidual() {
        const BandSuppression& all = mDrawn.allBands();
        addBoth(fmt::format("residual shake, true motion minus lens; {}: x {} RMS, y {} RMS", bandText(all),
                            angle(all.residualRms[0]), angle(all.residualRms[1])),
                "residual [\u00b0]", mDrawn.residual);
    }

    void addSpectrum() {
        const auto& [x, y] = mDrawn.stats.axes;
        const std::vector<double>* const hz = &mDrawn.stats.frequencyHz;
        if (!mDrawn.hasMotion) {
            return mScript.addSpectrum("spectrum",
                                       {{"target x", kBlue, hz, &x.targetDensity},
                                        {"target y", kLightBlue, hz, &y.targetDensity},
                                        {"tracking error x", kRed, hz, &x.trackingErrorDensity},
                                        {"tracking error y", kOrange, hz, &y.trackingErrorDensity}});
        }
        const BandSuppression& all = mDrawn.allBands();
        mScript.addSpectrum(fmt::format("spectrum; suppression {}: x {}, y {}", bandText(all),
                                        figure(all.db(0), 1, " dB"), figure(all.db(1), 1, " dB")),
                            {{"motion x", kBlue, hz, &x.motionDensity},
                             {"motion y", kLightBlue, hz, &y.motionDensity},
                             {"residual x", kRed, hz, &x.residualDensity},
                             {"residual y", kOrange, hz, &y.residualDensity}});
    }

    const Drawn mDrawn;
    PlotScript mScript;
};

// --- Two recordings over each other.

class Overlay {
  public:
    Overlay(const Examined& a, const Examined& b, std::string_view terminal, const fs::path& file)
        : mA(a),
          mB(b),
          mHasMotion(mA.hasMotion && mB.hasMotion),
          mScript(terminal, file, kRows, worst(a, b)) {
        mScript.addTitle(fmt::format("A {}, B {}", a.recording.source, b.recording.source));
        mScript.addSubtitle(
            fmt::format("A: {} rows, {} s; B: {} rows, {} s; to the right: where a tracking error is largest",
                        grouped(mA.stats.rows), figure(mA.stats.durationS, 2), grouped(mB.stats.rows),
                        figure(mB.stats.durationS, 2)));
        for (size_t axis = 0; axis < 2; ++axis) addHall(axis);
        for (size_t axis = 0; axis < 2; ++axis) addWhatIsLeft(axis);
        mScript.addPath({{"hall A", kLightBlue, mA.hall(0), mA.hall(1), &mA.stats.segments},
                         {"hall B", kRed, mB.hall(0), mB.hall(1), &mB.stats.segments}},
                        halls().padded(), limit(0), limit(1));
        addSpectrum();
    }

    std::string finish() { return mScript.finish(); }

  private:
    static constexpr int kRows = 4;

    static TimeSpan worst(const Examined& a, const Examined& b) {
        const WorstMoment inA = worstMoment(a.recording, a.stats);
        const WorstMoment inB = worstMoment(b.recording, b.stats);
        return inA.excursion > inB.excursion ? inA.around : inB.around;
    }

    // Where both have the same.
    double limit(size_t axis) const {
        const double inA = mA.stats.axes.at(axis).limit;
        return inA == mB.stats.axes.at(axis).limit ? inA : std::numeric_limits<double>::quiet_NaN();
    }

    PlotRange halls() const {
        PlotRange range;
        for (const Drawn* drawn : {&mA, &mB})
            for (size_t axis = 0; axis < 2; ++axis) range.include(*drawn->hall(axis));
        return range;
    }

    void addPanels(const std::string& title, const char* yLabel, const Samples* a, const Samples* b,
                   PlotRange range, double limit = std::numeric_limits<double>::quiet_NaN()) {
        mScript.addPanels(title, yLabel,
                          {mA.layer({{"A", kLightBlue, 3.5, a}}), mB.layer({{"B", kRed, 1.3, b}})},
                          range.padded(0.15), limit);
    }

    void addHall(size_t axis) {
        addPanels(axis == 0 ? "hall x" : "hall y", kAngleLabels[axis], mA.hall(axis), mB.hall(axis), halls(),
                  limit(axis));
    }

    // Residual shake where it is known of both, else the tracking error.
    void addWhatIsLeft(size_t axis) {
        const std::array<Samples, 2>& a = mHasMotion ? mA.residual : mA.error;
        const std::array<Samples, 2>& b = mHasMotion ? mB.residual : mB.error;
        const auto rms = [&](const Drawn& of) {
            return angle(mHasMotion ? of.allBands().residualRms[axis] : of.stats.axes[axis].trackingErrorRms);
        };
        const std::string what =
            mHasMotion ? fmt::format("residual shake, {}", bandText(mA.allBands())) : "tracking error";
        PlotRange range;
        for (const std::array<Samples, 2>* both : {&a, &b})
            for (const Samples& values : *both) range.include(values);
        addPanels(fmt::format("{}: {}: A {} RMS, B {} RMS", axis == 0 ? "x" : "y", what, rms(mA), rms(mB)),
                  mHasMotion ? "residual [\u00b0]" : "error [\u00b0]", &a[axis], &b[axis], range);
    }

    void addSpectrum() {
        const auto density = mHasMotion ? &AxisStats::residualDensity : &AxisStats::trackingErrorDensity;
        const RecordingStats& a = mA.stats;
        const RecordingStats& b = mB.stats;
        mScript.addSpectrum(mHasMotion ? "spectrum of the residual shake" : "spectrum of the tracking error",
                            {{"A x", kBlue, &a.frequencyHz, &(a.axes[0].*density)},
                             {"A y", kLightBlue, &a.frequencyHz, &(a.axes[1].*density)},
                             {"B x", kRed, &b.frequencyHz, &(b.axes[0].*density)},
                             {"B y", kOrange, &b.frequencyHz, &(b.axes[1].*density)}});
    }

    const Drawn mA;
    const Drawn mB;
    const bool mHasMotion;
    PlotScript mScript;
};

}  // namespace

void plotRecording(const Examined& examined, const fs::path& out) {
    drawPicture(out, [&](std::string_view terminal, const fs::path& picture) {
        return Picture(examined, terminal, picture).finish();
    });
}

void plotBoth(const Examined& a, const Examined& b, const fs::path& out) {
    drawPicture(out, [&](std::string_view terminal, const fs::path& picture) {
        return Overlay(a, b, terminal, picture).finish();
    });
}

}  // namespace oisctl

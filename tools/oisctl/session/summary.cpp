#include "session/summary.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "base/errors.h"
#include "base/interrupt.h"
#include "base/terminal.h"
#include "session/driver_session.h"
#include "session/operations.h"

namespace oisctl {

namespace {

void printEntry(std::string_view label, const std::string& text) {
    constexpr size_t kLabelColumns = 12;
    std::string padded(label);
    padded.resize(kLabelColumns, ' ');
    printLine("  " + styled(Style::kDim, padded) + text);
}

// The entry's label stands in front of its first line only.
void printEntries(std::string_view label, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        printEntry(label, line);
        label = "";
    }
}

// Wrapped at the usual width of a terminal.
std::vector<std::string> commandLines(const Tally::Counts& counts) {
    constexpr size_t kWidth = 96;
    std::vector<std::string> lines{grouped(counts.sent) + " sent"};
    std::string separator = ": ";
    for (const auto& [name, count] : counts.byName) {
        const std::string entry = name + " " + grouped(count);
        if (lines.back().size() + separator.size() + entry.size() > kWidth) {
            lines.back() += ",";
            lines.emplace_back();
            separator.clear();
        }
        lines.back() += separator + entry;
        separator = ", ";
    }
    return lines;
}

std::string describe(const ModeSpan& span) {
    const uint64_t frames = span.lastFrame - span.firstFrame + 1;
    const std::string range =
        frames == 1 ? "frame " + std::to_string(span.firstFrame)
                    : "frames " + std::to_string(span.firstFrame) + "-" + std::to_string(span.lastFrame);
    std::string text = range;
    constexpr size_t kRangeColumns = 18;
    if (text.size() < kRangeColumns) text.resize(kRangeColumns, ' ');
    return text + "mode " + std::to_string(span.mode) + "  " + std::string(modeMeaning(span.mode));
}

std::string describe(const ShakeLeft& shake) {
    constexpr int kDecimals = 4;
    std::string text;
    if (shake.off) text += "stabilisation off " + number(*shake.off, kDecimals) + " deg";
    if (shake.on)
        text += (text.empty() ? "stabilisation on " : ", on ") + number(*shake.on, kDecimals) + " deg";
    if (shake.off && shake.on && *shake.on > 0 && *shake.off > 0) {
        constexpr double kDecibel = 20;
        text += " (" + number(kDecibel * std::log10(*shake.on / *shake.off), 1) + " dB)";
    }
    return text + " RMS";
}

std::string describe(const OperationResult& done) {
    const OperationInfo* info = findOperation(done.operation);
    const std::string name = info == nullptr ? "unsupported" : std::string(info->name);
    return name + " (" + std::to_string(done.operation) + ") = " + std::to_string(done.result);
}

bool hasMoreFailures(const Tally::Counts& counts) {
    return counts.failures > counts.firstFailures.size();
}

std::string moreFailures(const Tally::Counts& counts) {
    return "... and " + grouped(counts.failures - counts.firstFailures.size()) +
           " more; --trace=FILE has them";
}

std::vector<std::string> failureLines(const Tally::Counts& counts) {
    if (counts.failures == 0) return {styled(Style::kGood, "none")};
    std::vector<std::string> lines{styled(Style::kBad, grouped(counts.failures))};
    for (const Failure& failure : counts.firstFailures) {
        lines.push_back("at " + number(failure.timeS, 4) + " s: " + failure.text);
    }
    if (hasMoreFailures(counts)) lines.push_back(moreFailures(counts));
    return lines;
}

std::string describeTime(const Summary& summary) {
    const std::string wall = duration(summary.wallS);
    if (summary.realTime) return wall + " (real time)";
    return duration(summary.simulatedS) + " simulated, " + wall + " wall";
}

void remarkOnSignal() {
    if (interrupted() && !outputClosed()) printRemark("oisctl: a signal came before the end");
}

}  // namespace

Summary summarise(DriverSession& session) {
    Summary summary;
    summary.module = session.module().name;
    summary.way = session.behindHub() ? "behind the sensor hub" : "on its sub-device";
    summary.supported = session.module().hasOis;
    summary.counts = session.tally().counts();
    summary.unusedFaults = session.phone().faults().unused();
    summary.simulatedS = session.nowS();
    summary.wallS = session.wallSeconds();
    summary.realTime = session.settings().realTime;
    return summary;
}

void printSummary(const Summary& summary, bool quiet) {
    if (!quiet) printLine();
    printLine(styled(Style::kBold, "summary"));
    printEntry("module", summary.module + ", " + summary.way);
    if (!summary.scenario.empty()) printEntry("scenario", summary.scenario);
    if (!summary.supported)
        printEntry("OIS", "the module has none, or it is switched off: the driver sends nothing");
    if (summary.requests > 0) printEntry("requests", grouped(summary.requests));
    printEntries("commands", commandLines(summary.counts));
    printEntry("repeats", grouped(summary.counts.repeats) + " suppressed");
    if (summary.counts.undelivered > 0) {
        printEntry("undelivered", grouped(summary.counts.undelivered) + " to a sub-device that is not open");
    }
    std::vector<std::string> modes;
    for (const ModeSpan& span : summary.modes) modes.push_back(describe(span));
    printEntries("modes", modes);
    std::vector<std::string> operationLines;
    for (const OperationResult& done : summary.operations) operationLines.push_back(describe(done));
    printEntries("operations", operationLines);
    if (summary.shake.off || summary.shake.on) printEntry("shake left", describe(summary.shake));
    printEntries("failures", failureLines(summary.counts));
    std::vector<std::string> unused;
    for (const std::string& fault : summary.unusedFaults) unused.push_back(fault + " never struck");
    printEntries("faults", unused);
    printEntry("time", describeTime(summary));
}

nlohmann::json toJson(const Summary& summary) {
    nlohmann::json json{
        {"module", summary.module},
        {"way", summary.way},
        {"ois_supported", summary.supported},
        {"requests", summary.requests},
        {"commands_sent", summary.counts.sent},
        {"commands", summary.counts.byName},
        {"repeats_suppressed", summary.counts.repeats},
        {"undelivered", summary.counts.undelivered},
        {"failures", summary.counts.failures},
        {"simulated_s", summary.simulatedS},
        {"wall_s", summary.wallS},
    };
    if (!summary.scenario.empty()) json["scenario"] = summary.scenario;
    json["first_failures"] = nlohmann::json::array();
    for (const Failure& failure : summary.counts.firstFailures) {
        json["first_failures"].push_back({{"time_s", failure.timeS}, {"what", failure.text}});
    }
    json["unused_faults"] = summary.unusedFaults;
    json["modes"] = nlohmann::json::array();
    for (const ModeSpan& span : summary.modes) {
        json["modes"].push_back(
            {{"mode", span.mode}, {"first_frame", span.firstFrame}, {"last_frame", span.lastFrame}});
    }
    json["operations"] = nlohmann::json::array();
    for (const OperationResult& done : summary.operations) {
        json["operations"].push_back({{"operation", done.operation}, {"result", done.result}});
    }
    if (summary.shake.off) json["shake_left_rms_deg"]["off"] = *summary.shake.off;
    if (summary.shake.on) json["shake_left_rms_deg"]["on"] = *summary.shake.on;
    return json;
}

int conclude(DriverSession& session, const Summary& summary) {
    session.finishTrace();
    if (session.settings().json) {
        printLine(toJson(summary).dump());
    } else {
        printSummary(summary, session.settings().quiet);
    }
    remarkOnSignal();
    return summary.counts.failures != 0 ? kJobFailed : kSuccess;
}

int conclude(DriverSession& session, bool good) {
    session.finishTrace();
    const Tally::Counts counts = session.tally().counts();
    for (const Failure& failure : counts.firstFailures) printRemark("oisctl: " + failure.text);
    if (hasMoreFailures(counts)) printRemark("oisctl: " + moreFailures(counts));
    for (const std::string& fault : session.phone().faults().unused())
        printRemark("oisctl: --fault " + fault + " never struck");
    remarkOnSignal();
    return good && counts.failures == 0 ? kSuccess : kJobFailed;
}

}  // namespace oisctl

#include "session/summary.h"

#include <cmath>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "base/errors.h"
#include "base/interrupt.h"
#include "base/terminal.h"
#include "session/driver_session.h"
#include "session/operations.h"

namespace oisctl {

namespace {

using Opening = DriverSession::Opening;

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

// `start`, and the entries behind it, in lines of the usual width of a terminal.
std::vector<std::string> wrapped(std::string start, const std::vector<std::string>& entries) {
    constexpr size_t kWidth = 96;
    std::vector<std::string> lines{std::move(start)};
    std::string separator;
    for (const std::string& entry : entries) {
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

std::vector<std::string> commandLines(const Tally::Counts& counts) {
    std::vector<std::string> entries;
    for (const auto& [name, count] : counts.byName)
        entries.push_back(fmt::format("{} {}", name, grouped(count)));
    return wrapped(grouped(counts.sent) + (entries.empty() ? " sent" : " sent: "), entries);
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

// "struck 3 times, at 3 of 12 occasions"
std::string describe(const phone::Faults::Count& fault) {
    if (fault.reached == 0) return fault.text + " never struck: its place was never reached";
    if (fault.strikes == 0)
        return fmt::format("{} never struck: its place was reached {} times", fault.text, fault.reached);
    return fmt::format("{} struck at {} of {} occasions", fault.text, fault.strikes, fault.reached);
}

// Wrapped like the commands.
std::vector<std::string> callLines(const Tally::Counts& counts) {
    std::vector<std::string> entries;
    for (const auto& [name, calls] : counts.calls) {
        entries.push_back(fmt::format("{} {}", name, grouped(calls.made)));
        if (calls.sentNothing > 0)
            entries.back() += fmt::format(" ({} sent nothing)", grouped(calls.sentNothing));
    }
    return wrapped("", entries);
}

bool hasMoreFailures(const Tally::Counts& counts) {
    return counts.failures > counts.firstFailures.size();
}

std::string moreFailures(const Tally::Counts& counts) {
    return "... and " + grouped(counts.failures - counts.firstFailures.size()) +
           " more; --trace=FILE has them";
}

std::vector<std::string> failureLines(const Tally::Counts& counts) {
    if (counts.failures == 0 && counts.delivered == 0)
        return {styled(Style::kWarning, "none, but no command reached a controller")};
    if (counts.failures == 0) return {styled(Style::kGood, "none")};
    std::vector<std::string> lines{styled(Style::kBad, grouped(counts.failures))};
    for (const Failure& failure : counts.firstFailures) {
        lines.push_back("at " + number(failure.timeS, 4) + " s: " + toText(failure));
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
    summary.opening = session.opening();
    summary.counts = session.tally().counts();
    summary.faults = session.phone().faults().counts();
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
    if (summary.opening == Opening::kNoOis)
        printEntry("OIS", "the module has none, or it is switched off: the driver sends nothing");
    if (summary.opening == Opening::kFailed) printEntry("OIS", "not opened: Init failed");
    if (summary.requests > 0) printEntry("requests", grouped(summary.requests));
    printEntries("commands", commandLines(summary.counts));
    printEntries("calls", callLines(summary.counts));
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
    std::vector<std::string> faults;
    for (const phone::Faults::Count& fault : summary.faults) faults.push_back(describe(fault));
    printEntries("faults", faults);
    printEntry("time", describeTime(summary));
}

nlohmann::json toJson(const Summary& summary) {
    nlohmann::json json{
        {"module", summary.module},
        {"way", summary.way},
        {"opened", summary.opening == Opening::kDone},
        {"requests", summary.requests},
        {"commands_sent", summary.counts.sent},
        {"commands", summary.counts.byName},
        {"undelivered", summary.counts.undelivered},
        {"failures", summary.counts.failures},
        {"simulated_s", summary.simulatedS},
        {"wall_s", summary.wallS},
    };
    if (!summary.scenario.empty()) json["scenario"] = summary.scenario;
    json["first_failures"] = nlohmann::json::array();
    for (const Failure& failure : summary.counts.firstFailures) {
        json["first_failures"].push_back({{"time_s", failure.timeS}, {"what", toText(failure)}});
    }
    json["faults"] = nlohmann::json::array();
    for (const phone::Faults::Count& fault : summary.faults) {
        json["faults"].push_back(
            {{"fault", fault.text}, {"strikes", fault.strikes}, {"reached", fault.reached}});
    }
    json["calls"] = nlohmann::json::array();
    for (const auto& [name, calls] : summary.counts.calls) {
        json["calls"].push_back({{"call", name}, {"made", calls.made}, {"sent_nothing", calls.sentNothing}});
    }
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
    for (const Failure& failure : counts.firstFailures) printRemark("oisctl: " + toText(failure));
    if (hasMoreFailures(counts)) printRemark("oisctl: " + moreFailures(counts));
    for (const phone::Faults::Count& fault : session.phone().faults().counts()) {
        if (fault.strikes == 0) printRemark("oisctl: --fault " + describe(fault));
    }
    remarkOnSignal();
    return good && counts.failures == 0 ? kSuccess : kJobFailed;
}

}  // namespace oisctl

#include "session/summary.h"

#include <fmt/format.h>

#include "base/errors.h"
#include "base/interrupt.h"
#include "base/suggest.h"
#include "base/units.h"
#include "session/driver_session.h"
#include "session/operations.h"

namespace oisctl {

namespace {

// `start`, and the entries behind it, in lines of the usual width of a terminal.
std::string wrapped(std::string line, const std::vector<std::string>& entries) {
    constexpr size_t kWidth = 96;
    std::string text;
    std::string_view separator;
    for (const std::string& entry : entries) {
        if (line.size() + separator.size() + entry.size() > kWidth) {
            text += line + ",\n";
            line.clear();
            separator = "";
        }
        line.append(separator).append(entry);
        separator = ", ";
    }
    return text + line;
}

std::string commandText(const Tally::Counts& counts) {
    std::vector<std::string> entries;
    for (const auto& [name, count] : counts.byName)
        entries.push_back(fmt::format("{} {}", name, grouped(count)));
    return wrapped(grouped(counts.sent) + (entries.empty() ? " sent" : " sent: "), entries);
}

Field commandsField(const Tally::Counts& counts) {
    return {"commands_sent", "commands", counts.sent, commandText(counts)};
}

Field undeliveredField(const Tally::Counts& counts) {
    return {"undelivered", counts.undelivered == 0 ? "" : "undelivered", counts.undelivered,
            grouped(counts.undelivered) + " to a sub-device that is not open"};
}

Field callField(const Tally::Counts& counts) {
    Table table;
    std::vector<std::string> entries;
    for (const auto& [name, calls] : counts.calls) {
        table.push_back(
            {{"call", "", name}, {"made", "", calls.made}, {"sent_nothing", "", calls.sentNothing}});
        entries.push_back(fmt::format("{} {}", name, grouped(calls.made)));
        if (calls.sentNothing > 0)
            entries.back() += fmt::format(" ({} sent nothing)", grouped(calls.sentNothing));
    }
    return {"calls", "calls", table, wrapped("", entries)};
}

Record commandCounts(const Tally::Counts& counts) {
    Record record;
    for (const auto& [name, count] : counts.byName) record.push_back({name, "", count});
    return record;
}

Field modeField(const std::vector<ModeSpan>& modes) {
    Table table;
    std::vector<std::string> lines;
    for (const ModeSpan& span : modes) {
        table.push_back({{"mode", "", span.mode},
                         {"taken", "", span.taken},
                         {"first_frame", "", span.firstFrame},
                         {"last_frame", "", span.lastFrame}});
        const std::string range = span.firstFrame == span.lastFrame
                                      ? fmt::format("frame {}", span.firstFrame)
                                      : fmt::format("frames {}-{}", span.firstFrame, span.lastFrame);
        lines.push_back(fmt::format("{:18}mode {}  {}{}", range, span.mode, modeMeaning(span.mode),
                                    span.taken ? "" : ": the controller did not take it"));
    }
    return {"modes", modes.empty() ? "" : "modes", table, joined(lines, "\n")};
}

Field operationField(const std::vector<OperationResult>& operations) {
    Table table;
    std::vector<std::string> lines;
    for (const OperationResult& done : operations) {
        const OperationInfo* info = findOperation(done.operation);
        const std::string_view name = info == nullptr ? "unsupported" : info->name;
        table.push_back({{"operation", "", done.operation}, {"name", "", name}, {"result", "", done.result}});
        lines.push_back(fmt::format("{} ({}) = {}", name, done.operation, done.result));
    }
    return {"operations", operations.empty() ? "" : "operations", table, joined(lines, "\n")};
}

Field leftOutField(const std::vector<std::string>& names) {
    return {"left_out", names.empty() ? "" : "left out", names,
            joined(names) + ": they write to the controller; --allow-write runs them"};
}

// Opening writes, whatever the command; the summary of a device does not keep it to itself.
Field customisationField(const DriverSession& session) {
    const bool written = session.orders().last().customised;
    return {"customisation_written", session.onDevice() && written ? "opening" : "", written,
            "wrote the module's customisation to the controller, as a phone does"};
}

Field gainField(const std::vector<GainReading>& gains) {
    const auto text = [](const std::optional<int32_t>& value) {
        return value ? gainText(*value) : "not read";
    };
    const auto value = [](const std::optional<int32_t>& gain) { return gain ? Value(*gain) : Value(); };
    Table table;
    std::vector<std::string> lines;
    for (const GainReading& gain : gains) {
        table.push_back(
            {{"axis", "", gain.axis}, {"before", "", value(gain.before)}, {"after", "", value(gain.after)}});
        lines.push_back(
            fmt::format("{} {} before, {} after", gain.axis, text(gain.before), text(gain.after)));
    }
    return {"gains", gains.empty() ? "" : "gains", table, joined(lines, "\n")};
}

std::string shakeText(const ShakeLeft& shake) {
    const std::optional<double> change = shake.changeDb();
    std::string text =
        change ? fmt::format("{:.4f} of {:.4f} deg RMS ({})", shake.leftRms, shake.trueRms,
                             figure(*change, 1, " dB"))
               : fmt::format("{:.4f} deg RMS, where {:.4f} deg were to cancel", shake.leftRms, shake.trueRms);
    text += fmt::format(" behind the controller's high-pass, stabilisation on, {:.2f}-{:.2f} s",
                        shake.stretches.front().fromS, shake.stretches.back().toS);
    if (shake.stretches.size() > 1)
        text += fmt::format(" in {} stretches, {} in all", shake.stretches.size(), duration(shake.seconds));
    return text;
}

Field shakeField(const std::optional<ShakeLeft>& shake) {
    constexpr const char* kKey = "shake_left";
    if (!shake) return {kKey, "", Value()};
    Table stretches;
    for (const ShakeLeft::Stretch& stretch : shake->stretches)
        stretches.push_back({{"from_s", "", stretch.fromS}, {"to_s", "", stretch.toS}});
    const std::optional<double> change = shake->changeDb();
    return {kKey, "shake left",
            Record{{"true_rms_deg", "", shake->trueRms},
                   {"left_rms_deg", "", shake->leftRms},
                   {"change_db", "", change ? Value(*change) : Value()},
                   {"stretches", "", stretches}},
            shakeText(*shake)};
}

std::string moreFailures(const Tally::Counts& counts) {
    if (counts.failures == counts.firstFailures.size()) return {};
    return fmt::format("... and {} more; --trace=FILE has them",
                       grouped(counts.failures - counts.firstFailures.size()));
}

Field failureField(const Tally::Counts& counts) {
    if (counts.failures == 0 && counts.delivered == 0)
        return {"failures", "failures", 0, "none, but no command reached a controller", Style::kWarning};
    std::string text = counts.failures == 0 ? "none" : grouped(counts.failures);
    for (const Failure& failure : counts.firstFailures)
        text += fmt::format("\nat {:.4f} s: {}", failure.timeS, toText(failure));
    if (const std::string more = moreFailures(counts); !more.empty()) text += "\n" + more;
    return {"failures", "failures", counts.failures, text, counts.failures == 0 ? Style::kGood : Style::kBad};
}

Table firstFailures(const Tally::Counts& counts) {
    Table table;
    for (const Failure& failure : counts.firstFailures)
        table.push_back({{"time_s", "", failure.timeS}, {"what", "", toText(failure)}});
    return table;
}

std::string faultText(const phone::Faults::Count& fault) {
    if (fault.reached == 0) return fault.text + " never struck: its place was never reached";
    if (fault.strikes == 0)
        return fmt::format("{} never struck: its place was reached {} times", fault.text, fault.reached);
    return fmt::format("{} struck at {} of {} occasions", fault.text, fault.strikes, fault.reached);
}

Field faultField(const std::vector<phone::Faults::Count>& faults) {
    Table table;
    std::vector<std::string> lines;
    for (const phone::Faults::Count& fault : faults) {
        table.push_back(
            {{"fault", "", fault.text}, {"strikes", "", fault.strikes}, {"reached", "", fault.reached}});
        lines.push_back(faultText(fault));
    }
    return {"faults", faults.empty() ? "" : "faults", table, joined(lines, "\n")};
}

double secondsOf(const phone::Event& event) {
    return static_cast<double>(event.timeUs) * kSecondsPerUs;
}

std::string lossText(const Tally::Counts& counts) {
    return fmt::format("{} at {:.4f} s, after {} commands had got through; the job ended there",
                       saysSo(*counts.loss) ? "went away" : "does not answer any more, noticed",
                       secondsOf(*counts.loss), grouped(counts.delivered));
}

Field lossField(const Tally::Counts& counts) {
    if (!counts.loss) return {"device_lost_s", "", {}};
    return {"device_lost_s", "device", secondsOf(*counts.loss), lossText(counts), Style::kBad};
}

Field wayEndField(const std::optional<WayEnd>& end) {
    if (!end) return {"way_end", "", {}};
    const WayText text = textOf(*end);
    return {"way_end", "way ended", keyOf(end->place), text.what + "\n" + text.advice, Style::kBad};
}

Record endFields(DriverSession& session, const Tally::Counts& counts, bool good) {
    const Settings& settings = session.settings();
    std::string time = duration(session.nowS()) + (settings.inRealTime() ? " (real time)" : " simulated");
    if (settings.wallTime) time += fmt::format(", {} wall", duration(session.wallSeconds()));
    Record fields{{"good", "", good},
                  wayEndField(session.wayEnd()),
                  failureField(counts),
                  {"first_failures", "", firstFailures(counts)},
                  faultField(session.phone().faults().counts()),
                  lossField(counts),
                  {"interrupted", "", interrupted()},
                  {"time_s", "time", session.nowS(), time}};
    if (settings.wallTime) fields.push_back({"wall_s", "", session.wallSeconds()});
    return fields;
}

void remark(DriverSession& session, const Tally::Counts& counts) {
    for (const Failure& failure : counts.firstFailures) printRemark("oisctl: " + toText(failure));
    if (const std::string more = moreFailures(counts); !more.empty()) printRemark("oisctl: " + more);
    if (counts.loss) printRemark("oisctl: the device " + lossText(counts));
    for (const phone::Faults::Count& fault : session.phone().faults().counts())
        if (fault.strikes == 0) printRemark("oisctl: --fault " + faultText(fault));
}

// Ends a command whose result is judged already.
int end(DriverSession& session, const Record& report, Ending ending, bool good) {
    session.finishTrace();
    const Tally::Counts counts = session.tally().counts();
    Record whole = moduleFields(session);
    Record end = endFields(session, counts, good);
    const bool json = session.settings().json;
    if (ending == Ending::kRemarks && !json) {
        whole.clear();
        end.clear();
        remark(session, counts);
    }
    whole.insert(whole.end(), report.begin(), report.end());
    whole.insert(whole.end(), end.begin(), end.end());
    print(whole, json);
    if (interrupted() && !outputClosed()) printRemark("oisctl: a signal came before the end");
    return good ? kSuccess : kJobFailed;
}

// Where a scenario says how many failures there are to be, its expectations judge alone.
bool isGood(DriverSession& session, const Summary& summary) {
    if (!allHold(summary.judgements)) return false;
    if (judgesFailures(summary.judgements)) return true;
    const Tally::Counts counts = session.tally().counts();
    return counts.failures == 0 && counts.delivered != 0 && !counts.loss &&
           session.phone().faults().strikes() == 0;
}

}  // namespace

Field verdictField(const char* key, const Verdict& verdict, const std::string& text) {
    return {key, key, verdict.key, text.empty() ? verdict.text : text,
            verdict.good ? Style::kGood : Style::kBad};
}

Record trafficFields(const Tally::Counts& counts) {
    return {commandsField(counts), callField(counts), undeliveredField(counts), failureField(counts),
            lossField(counts)};
}

Record moduleFields(const DriverSession& session) {
    const phone::ModuleDescription& module = session.module();
    const bool real = session.settings().realKernel;
    std::string text = module.name;
    if (module.hasOis) text += module.behindHub() ? ", behind the sensor hub" : ", on its sub-device";
    if (real && onHub(module)) text += ", which is simulated";
    return {{"module", "module", module.name, text},
            {"way", "", wayName(module)},
            {"kernel", "", real ? "real" : "simulated"},
            {"hub", "", onHub(module) ? Value("simulated") : Value()}};
}

int conclude(DriverSession& session, const Record& report, Ending ending, std::optional<bool> good) {
    const Tally::Counts counts = session.tally().counts();
    const bool worked = counts.delivered != 0 && !counts.loss;
    return end(session, report, ending, worked && good.value_or(counts.failures == 0));
}

int conclude(DriverSession& session, const Summary& summary) {
    const Tally::Counts counts = session.tally().counts();
    const auto unless = [](bool absent, const char* label) { return absent ? "" : label; };
    session.finishTrace();  // what it still shows stands above
    if (!session.settings().json) {
        if (!session.settings().quiet) printLine();
        printLine(styled(Style::kBold, "summary"));
    }
    Record report{
        {"scenario", unless(summary.scenario.empty(), "scenario"),
         summary.scenario.empty() ? Value() : summary.scenario},
        {"opened", "", session.opening() == DriverSession::Opening::kDone},
        {"requests", unless(summary.requests == 0, "requests"), summary.requests, grouped(summary.requests)},
        commandsField(counts),
        {"commands", "", commandCounts(counts)},
        callField(counts),
        undeliveredField(counts),
        modeField(summary.modes),
        operationField(summary.operations),
        leftOutField(summary.leftOut),
        customisationField(session),
        gainField(summary.gains),
        shakeField(summary.shake)};
    const Record expected = expectationFields(summary.judgements);
    report.insert(report.end(), expected.begin(), expected.end());
    return end(session, report, Ending::kReport, isGood(session, summary));
}

}  // namespace oisctl

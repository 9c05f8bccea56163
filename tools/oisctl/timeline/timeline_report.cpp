#include "timeline/timeline_report.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/terminal.h"
#include "base/units.h"

namespace oisctl {

using phone::Event;

namespace {

constexpr int kTimeWidth = 10;
constexpr std::string_view kRequests = "SetOisParams";

std::string timeText(int64_t timeUs) {
    return fmt::format("{:.4f} s", static_cast<double>(timeUs) * kSecondsPerUs);
}

// "1 request", "12 calls of SetMode"
std::string callsText(const Episode& episode) {
    std::vector<std::string> parts;
    for (const auto& [name, count] : episode.calls) {
        if (name == kRequests) continue;
        const std::string shown = phone::printable(name);
        parts.push_back(count == 1 ? shown : fmt::format("{} {} times", shown, grouped(count)));
    }
    if (episode.firstRequest) {
        const bool one = episode.firstRequest == episode.lastRequest;
        const std::string requests =
            one ? fmt::format("request {}", *episode.firstRequest)
                : fmt::format("requests {} to {}", *episode.firstRequest, *episode.lastRequest);
        parts.insert(parts.begin(), requests);
    }
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string threadText(const Episode& episode) {
    return fmt::format(
        "thread {}{}", episode.thread,
        episode.startedBy.empty() ? "" : ", started by " + phone::printable(episode.startedBy));
}

std::string headText(const Episode& episode) {
    if (!episode.call) return threadText(episode);
    const bool single = episode.callCount() == 1;
    std::string text = single && !episode.firstRequest ? callText(*episode.call) : callsText(episode);
    if (episode.thread != 0) text += fmt::format(" on thread {}", episode.thread);
    if (!single) text += ", until " + timeText(episode.untilUs);
    if (episode.result.value_or(0) != 0) text += fmt::format(" = {}", *episode.result);
    if (!episode.result) text += ", which has no end in the trace";
    return text;
}

std::string changeText(const Change& change) {
    const std::string what = phone::printable(change.what);
    std::string text = change.before.empty() ? fmt::format("{} {}", what, change.after)
                                             : fmt::format("{} {} -> {}", what, change.before, change.after);
    if (change.times > 1) text += fmt::format(" in {} steps", grouped(change.times));
    return text;
}

void printStep(const Step& step, bool each) {
    constexpr std::string_view kIndent = "              ";
    std::string indent(kIndent);
    if (step.times > 1) {
        printLine(indent +
                  styled(Style::kDim,
                         fmt::format("{} times, until {}{}:", grouped(step.times), timeText(step.untilUs),
                                     step.alike ? "" : ", not always the same; the first")));
        indent += "  ";
    } else if (each) {
        printLine(indent +
                  styled(Style::kDim, step.alike ? "each:" : "each, not always the same; the first:"));
        indent += "  ";
    }
    for (const Event& event : step.events) {
        const bool bad = event.error != 0 || event.fault != nullptr || event.result.value_or(0) < 0;
        printLine(indent + styled(bad ? Style::kBad : Style::kPlain, shortened(toText(event, false))));
    }
}

void printEpisode(const Episode& episode) {
    printLine(
        styled(Style::kDim,
               fmt::format("{:>{}.4f} s", static_cast<double>(episode.fromUs) * kSecondsPerUs, kTimeWidth)) +
        "  " +
        (episode.sentNothing() && episode.callCount() > 1 ? headText(episode)
                                                          : styled(Style::kBold, headText(episode))) +
        (episode.sentNothing() ? styled(Style::kDim, ": nothing sent") : ""));
    for (const Change& change : episode.changes)
        printLine("              " + styled(Style::kName, changeText(change)));
    if (!episode.reason.empty()) printLine("              " + styled(Style::kDim, episode.reason));
    for (const Step& step : episode.steps) printStep(step, episode.callCount() > 1);
}

Table changeTable(const std::vector<Change>& changes) {
    Table table;
    for (const Change& change : changes) {
        table.push_back({{"what", "", change.what},
                         {"before", "", change.before.empty() ? Value() : Value(change.before)},
                         {"after", "", change.after},
                         {"times", "", change.times}});
    }
    return table;
}

Table stepTable(const std::vector<Step>& steps) {
    Table table;
    for (const Step& step : steps) {
        std::vector<std::string> events;
        for (const Event& event : step.events) events.push_back(toText(event, false));
        table.push_back({{"events", "", events},
                         {"times", "", step.times},
                         {"alike", "", step.alike},
                         {"until_us", "", step.untilUs}});
    }
    return table;
}

Table callTable(const std::map<std::string, uint64_t>& calls) {
    Table table;
    for (const auto& [name, times] : calls) table.push_back({{"name", "", name}, {"times", "", times}});
    return table;
}

template <typename T>
Value known(const std::optional<T>& value) {
    return value ? Value(*value) : Value();
}

}  // namespace

void printTimeline(const std::vector<Episode>& episodes) {
    for (const Episode& episode : episodes) printEpisode(episode);
}

Record timelineReport(const std::vector<Episode>& episodes) {
    Table table;
    for (const Episode& episode : episodes) {
        table.push_back({{"from_us", "", episode.fromUs},
                         {"until_us", "", episode.untilUs},
                         {"thread", "", episode.thread},
                         {"started_by", "", episode.startedBy.empty() ? Value() : Value(episode.startedBy)},
                         {"calls", "", callTable(episode.calls)},
                         {"first_request", "", known(episode.firstRequest)},
                         {"last_request", "", known(episode.lastRequest)},
                         {"result", "", known(episode.result)},
                         {"changes", "", changeTable(episode.changes)},
                         {"sent_nothing", "", episode.sentNothing()},
                         {"reason", "", episode.reason.empty() ? Value() : Value(episode.reason)},
                         {"steps", "", stepTable(episode.steps)}});
    }
    return {{"episodes", "", table}};
}

}  // namespace oisctl

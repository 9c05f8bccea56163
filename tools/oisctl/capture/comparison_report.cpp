#include "capture/comparison_report.h"

#include <fmt/core.h>

namespace oisctl {

namespace {

// Its place and what stands there.
Field sideField(const std::string& file, const TracedEvent* traced) {
    if (traced == nullptr) return {"", file, Value(), "has no more events of this thread"};
    return {"", fmt::format("{}:{}", file, traced->line), Value(), toText(traced->event)};
}

Table valueTable(const std::vector<ValueDifference>& values) {
    Table table;
    for (const ValueDifference& value : values)
        table.push_back({{"what", "what", value.what}, {"a", "A", value.a}, {"b", "B", value.b}});
    return table;
}

Record firstDifference(const TraceFile& a, const TraceFile& b, const std::optional<EventDifference>& first) {
    if (!first) return {{"first_difference", "", Value()}};
    const auto line = [](const TracedEvent* traced) { return traced == nullptr ? Value() : traced->line; };
    const auto event = [](const TracedEvent* traced) {
        return traced == nullptr ? Value() : toText(traced->event);
    };
    const Table values = valueTable(first->values);
    return {{"first_difference", "they part",
             Record{{"thread", "", first->thread},
                    {"a_line", "", line(first->a)},
                    {"a", "", event(first->a)},
                    {"b_line", "", line(first->b)},
                    {"b", "", event(first->b)},
                    {"values", "", values}},
             fmt::format("on thread {}, at", first->thread)},
            sideField(a.path.string(), first->a),
            sideField(b.path.string(), first->b),
            {"", "", values}};
}

std::string commandText(const CommandDifference& difference) {
    if (difference.b == 0) return "only in A";
    if (difference.a == 0) return "only in B";
    if (difference.other == 0) return difference.a > difference.b ? "fewer in B" : "more in B";
    const EventDifference& first = *difference.firstOther;
    const ValueDifference& value = first.values.front();
    return fmt::format("{} not the same, first at {}:{} with {} {} and {}", difference.other, first.a->line,
                       first.b->line, value.what, value.a, value.b);
}

Table commandTable(const std::map<std::string, CommandDifference>& commands) {
    Table table;
    for (const auto& [name, difference] : commands) {
        table.push_back({{"command", "command", name},
                         {"in_a", "in A", difference.a},
                         {"in_b", "in B", difference.b},
                         {"not_the_same", "", difference.other},
                         {"", "difference", commandText(difference)}});
    }
    return table;
}

}  // namespace

Record comparisonReport(const TraceFile& a, const TraceFile& b, const TraceComparison& compared) {
    const bool equal = isEqual(compared);
    Record report{{"equal", "traces", equal,
                   equal ? fmt::format("equal{}: {} events, {} of them commands",
                                       a.cut || b.cut ? " as far as both go, for one is cut" : "",
                                       compared.compared, compared.commandsCompared)
                         : "not the same",
                   equal ? Style::kGood : Style::kBad},
                  {"events_alike", "", compared.compared},
                  {"commands_alike", "", compared.commandsCompared}};
    const Record first = firstDifference(a, b, compared.first);
    report.insert(report.end(), first.begin(), first.end());
    report.push_back({"commands", "", commandTable(compared.commands)});
    return report;
}

}  // namespace oisctl

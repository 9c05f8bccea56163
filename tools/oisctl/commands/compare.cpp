// oisctl compare: whether two traces tell the same story, and where they part.

#include <fmt/format.h>

#include <memory>

#include "base/errors.h"
#include "base/report.h"
#include "base/suggest.h"
#include "capture/trace_compare.h"
#include "commands/commands.h"
#include "session/settings.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

struct Options {
    std::string a, b;
    Aside aside;
    Settings settings;
};

std::vector<std::string> kindNames() {
    std::vector<std::string> names;
    for (size_t kind = 0; kind < phone::kEventKinds; ++kind)
        names.emplace_back(phone::name(static_cast<phone::EventKind>(kind)));
    return names;
}

std::vector<std::string> fieldNames() {
    std::vector<std::string> names;
    for (const phone::RequestInfo& info : phone::privateRequests())
        for (const phone::RecordField& field : info.record->fields) names.emplace_back(field.name);
    std::ranges::sort(names);
    const auto repeated = std::ranges::unique(names);
    names.erase(repeated.begin(), repeated.end());
    return names;
}

std::vector<std::string> asideWords() {
    std::vector<std::string> words = kindNames();
    const std::vector<std::string> fields = fieldNames();
    words.insert(words.end(), fields.begin(), fields.end());
    return words;
}

void leaveAside(Aside& aside, const std::string& word) {
    const std::vector<std::string> kinds = kindNames();
    const auto kind = std::ranges::find(kinds, word);
    if (kind != kinds.end()) {
        aside.kinds.insert(static_cast<phone::EventKind>(kind - kinds.begin()));
        return;
    }
    const std::vector<std::string> fields = fieldNames();
    if (std::ranges::find(fields, word) == fields.end()) {
        throw InputError(fmt::format("{}: no kind of event and no field of a request{}", word,
                                     suggestion(word, asideWords())));
    }
    aside.fields.insert(word);
}

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

Record firstDifference(const Options& options, const std::optional<EventDifference>& first) {
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
            sideField(options.a, first->a),
            sideField(options.b, first->b),
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

int run(const Options& options) {
    const TraceFile a = loadTrace(options.a);
    const TraceFile b = loadTrace(options.b);
    const TraceComparison compared = compareTraces(a, b, options.aside);
    const bool equal = !compared.first && compared.commands.empty();
    if (compared.compared == 0 && equal)
        throw InputError("nothing is left to compare; name fewer with --aside");
    Record report{{"equal", "traces", equal,
                   equal ? fmt::format("equal: {} events, {} of them commands", compared.compared,
                                       compared.commandsCompared)
                         : "not the same",
                   equal ? Style::kGood : Style::kBad},
                  {"events_alike", "", compared.compared},
                  {"commands_alike", "", compared.commandsCompared}};
    const Record first = firstDifference(options, compared.first);
    report.insert(report.end(), first.begin(), first.end());
    report.push_back({"commands", "", commandTable(compared.commands)});
    print(report, options.settings.json);
    return equal ? kSuccess : kJobFailed;
}

}  // namespace

Command describeCompare() {
    auto options = std::make_shared<Options>();
    return {
        .options = {value("a", "TRACE", "A trace, as --trace=FILE writes it", &options->a,
                          {.required = true}),
                    value("b", "TRACE", "The trace to hold beside it", &options->b, {.required = true}),
                    value("--aside", "KIND|FIELD,...",
                          "Leave out a kind of event, or a field of the requests' records; repeatable",
                          [options](const std::string& word) { leaveAside(options->aside, word); },
                          {.words = asideWords, .repeats = true, .commas = true}),
                    jsonOption(options->settings)},
        .notes =
            "Traces are compared thread by thread. Times, numbers of descriptors and addresses of "
            "memory do not count.\n",
        .examples = {{"oisctl session -m dw9786 --trace=a.jsonl"},
                     {"oisctl compare a.jsonl b.jsonl", "exit status 1 when they differ"},
                     {"oisctl compare a.jsonl b.jsonl --aside message --aside hall_x,hall_y"}},
        .run = [options] { return run(*options); },
    };
}

}  // namespace oisctl

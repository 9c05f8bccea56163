// oisctl compare: whether two traces tell the same story, or two recordings have the same rows, and where
// they part.

#include <fmt/format.h>

#include <memory>

#include "base/errors.h"
#include "base/report.h"
#include "base/suggest.h"
#include "capture/comparison_report.h"
#include "capture/file_kind.h"
#include "capture/trace_compare.h"
#include "commands/commands.h"
#include "recording/plot.h"
#include "recording/recording_compare.h"
#include "session/settings.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

struct CompareOptions {
    std::string a, b;
    Aside aside;
    std::string plot;
    Settings settings;
};

std::vector<std::string> kindNames() {
    std::vector<std::string> names;
    for (size_t kind = 0; kind < phone::kEventKinds; ++kind)
        names.emplace_back(phone::name(static_cast<phone::EventKind>(kind)));
    return names;
}

std::vector<std::string> fieldNames() {
    std::set<std::string> names;
    for (const phone::RequestInfo& info : phone::privateRequests())
        for (const phone::RecordField& field : info.record->fields) names.emplace(field.name);
    return {names.begin(), names.end()};
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

std::string recorderOf(const TraceFile& trace) {
    const auto recorder = std::ranges::find(trace.about, "recorder", &phone::Field::name);
    return recorder == trace.about.end() ? "" : toText(*recorder);
}

int runOnTraces(const CompareOptions& options) {
    if (!options.plot.empty()) throw InputError("--plot: draws recordings; these are traces");
    const TraceFile a = loadTrace(options.a);
    const TraceFile b = loadTrace(options.b);
    Aside aside = options.aside;
    if (recorderOf(a) != recorderOf(b)) {
        aside.kinds.merge(kindsNotIn(a));
        aside.kinds.merge(kindsNotIn(b));
        aside.kinds.insert(phone::EventKind::kNote);  // a recorder's own
    }
    const TraceComparison compared = compareTraces(a, b, aside);
    const bool equal = isEqual(compared);
    if (compared.compared == 0 && equal)
        throw InputError("nothing is left to compare; name fewer with --aside");
    Record report = comparisonReport(a, b, compared);
    const std::vector<std::string> left =
        namesIn(aside.kinds, [](phone::EventKind kind) { return std::string(phone::name(kind)); });
    report.push_back({"not_compared", left.empty() ? "" : "not compared", left});
    print(report, options.settings.json);
    return equal ? kSuccess : kJobFailed;
}

int runOnRecordings(const CompareOptions& options) {
    if (!options.aside.kinds.empty() || !options.aside.fields.empty())
        throw InputError("--aside: leaves parts of traces out; these are recordings");
    const Examined a = examine(options.a);
    const Examined b = examine(options.b);
    const RecordingComparison compared = compareRecordings(a, b);
    if (!options.plot.empty()) plotBoth(a, b, options.plot);
    Record report = comparisonReport(a, b, compared);
    report.push_back({"plot", options.plot.empty() ? "" : "picture",
                      options.plot.empty() ? Value() : Value(options.plot)});
    print(report, options.settings.json);
    return isEqual(compared) ? kSuccess : kJobFailed;
}

int runCompare(const CompareOptions& options) {
    const FileKind a = kindOf(options.a);
    const FileKind b = kindOf(options.b);
    if (a != b)
        throw InputError(fmt::format("{} is a {} and {} a {}; compare two of a kind", options.a, name(a),
                                     options.b, name(b)));
    return a == FileKind::kTrace ? runOnTraces(options) : runOnRecordings(options);
}

}  // namespace

Command describeCompare() {
    auto options = std::make_shared<CompareOptions>();
    return {
        .options =
            {value("a", "FILE", "A trace, as --trace=FILE writes it, or a status recording", &options->a,
                   {.required = true}),
             value("b", "FILE", "The one of its kind to hold beside it", &options->b, {.required = true}),
             value("--aside", "KIND|FIELD,...",
                   "Of traces: leave out a kind of event, or a field of the requests' records; repeatable",
                   [options](const std::string& word) { leaveAside(options->aside, word); },
                   {.words = asideWords, .repeats = true, .commas = true}),
             value("--plot", "FILE", "Of recordings: draw both over each other, .png or .svg",
                   &options->plot),
             jsonOption(options->settings)},
        .notes =
            "Traces are compared thread by thread. Times, numbers of descriptors and addresses of "
            "memory do not count;\nof two recorders, neither do the kinds of events that one of them has "
            "none of.\n"
            "Recordings are equal when they have the same rows, each at the same time since the first row "
            "and "
            "with the same\nvalues. Figures, verdicts and what 'oisctl record' left beside them are shown "
            "side "
            "by side.\n",
        .examples = {{"oisctl session -m dw9786 --trace=a.jsonl"},
                     {"oisctl compare a.jsonl b.jsonl", "exit status 1 when they differ"},
                     {"oisctl compare a.jsonl b.jsonl --aside message --aside hall_x,hall_y"},
                     {"oisctl compare last-week.txt today.txt --plot both.png"}},
        .run = [options] { return runCompare(*options); },
    };
}

}  // namespace oisctl

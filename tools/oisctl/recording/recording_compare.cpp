#include "recording/recording_compare.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "base/suggest.h"
#include "base/units.h"
#include "session/operations.h"

namespace oisctl {

namespace {

// --- What differs.

bool isSame(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

class RowComparer {
  public:
    RowComparer(const Recording& a, const Recording& b, RecordingComparison& found)
        : mA(a), mB(b), mFound(found) {}

    void compare() {
        size_t a = 0, b = 0;
        while (a < mA.rows() || b < mB.rows()) {
            const int64_t timeA = timeUs(mA, a), timeB = timeUs(mB, b);
            if (timeA < timeB) {
                ++mFound.onlyA;
                note({.timeS = mA.timeS[a], .lineA = mA.lines[a]});
                ++a;
            } else if (timeB < timeA) {
                ++mFound.onlyB;
                note({.timeS = mB.timeS[b], .lineB = mB.lines[b]});
                ++b;
            } else {
                comparePair(a++, b++);
            }
        }
    }

  private:
    static int64_t timeUs(const Recording& recording, size_t row) {
        if (row >= recording.rows()) return std::numeric_limits<int64_t>::max();
        return std::llround(recording.timeS[row] * kMicrosPerSecond);
    }

    void comparePair(size_t a, size_t b) {
        RowDifference difference{.timeS = mA.timeS[a], .lineA = mA.lines[a], .lineB = mB.lines[b]};
        for (size_t column = 0; column < kColumnCount; ++column) {
            if (mA.columns[column].empty()) continue;  // the time itself
            const float inA = mA.columns[column][a], inB = mB.columns[column][b];
            if (!isSame(inA, inB)) difference.samples.push_back({column, inA, inB});
        }
        if (difference.samples.empty()) {
            ++mFound.alike;
        } else {
            ++mFound.other;
            note(std::move(difference));
        }
    }

    void note(RowDifference difference) {
        if (!mFound.first) mFound.first = std::move(difference);
    }

    const Recording& mA;
    const Recording& mB;
    RecordingComparison& mFound;
};

// Both have the same figures, in the same order, but for those that need the true motion.
std::vector<FigurePair> figurePairs(const RecordingStats& a, const RecordingStats& b) {
    std::vector<FigurePair> pairs;
    const std::vector<RecordingFigure> inA = figuresOf(a), inB = figuresOf(b);
    const bool aIsLonger = inA.size() > inB.size();
    for (const RecordingFigure& figure : aIsLonger ? inA : inB) {
        const auto valueIn = [&figure](const std::vector<RecordingFigure>& figures) {
            const auto same = [&figure](const RecordingFigure& of) {
                return of.key == figure.key && of.axis == figure.axis;
            };
            const auto found = std::ranges::find_if(figures, same);
            return found == figures.end() ? std::nan("") : found->value;
        };
        pairs.push_back({figure, valueIn(inB)});
        pairs.back().a.value = valueIn(inA);
    }
    return pairs;
}

std::map<std::string, Value> settingsOf(const Sidecar& about) {
    std::vector<std::string> modes;
    for (const Sidecar::ModeChange& change : about.modes)
        modes.push_back(fmt::format("{} {}", change.mode, modeMeaning(change.mode)));
    std::map<std::string, Value> settings{
        {"module", about.module},
        {"way", about.way},
        {"modes", joined(modes)},
        {"interval_ms", about.intervalMs},
        {"motion", about.motion.empty() ? Value() : Value(about.motion)},
        {"seed", about.motion.empty() ? Value() : Value(about.seed)},
        {"limit_deg", about.limitAngle ? Value(*about.limitAngle) : Value()},
        {"firmware_version", about.firmwareVersion ? Value(*about.firmwareVersion) : Value()}};
    for (const auto& [name, value] : about.properties) settings[name] = value;
    return settings;
}

std::vector<SettingPair> settingPairs(const std::optional<FoundSidecar>& a,
                                      const std::optional<FoundSidecar>& b) {
    if (!a || !b || !a->whyNot.empty() || !b->whyNot.empty()) return {};
    std::map<std::string, SettingPair> pairs;
    for (const auto& [name, value] : settingsOf(a->about)) pairs[name].a = value;
    for (const auto& [name, value] : settingsOf(b->about)) pairs[name].b = value;
    std::vector<SettingPair> result;
    result.reserve(pairs.size());
    for (auto& [name, pair] : pairs) result.push_back({name, std::move(pair.a), std::move(pair.b)});
    return result;
}

std::vector<VerdictPair> verdictPairs(const std::vector<RecordingVerdict>& a,
                                      const std::vector<RecordingVerdict>& b) {
    std::map<std::pair<VerdictKind, char>, VerdictPair> pairs;
    for (const RecordingVerdict& verdict : a) pairs[{verdict.kind, verdict.axis}].a = &verdict;
    for (const RecordingVerdict& verdict : b) pairs[{verdict.kind, verdict.axis}].b = &verdict;
    std::vector<VerdictPair> result;
    result.reserve(pairs.size());
    for (const auto& [kind, pair] : pairs) result.push_back(pair);
    return result;
}

// --- How that reads.

Field sideField(const char* key, const char* label, const Examined& examined) {
    const std::string& file = examined.recording.source;
    Field sidecar = sidecarField(examined.sidecar);
    std::string text = file;
    if (!examined.sidecar) {
        text += ", with nothing beside it";
    } else if (!examined.sidecar->whyNot.empty()) {
        text += "; " + sidecar.text;
    }
    return {key, label,
            Record{{"file", "", file}, std::move(sidecar), {"recording_good", "", isGood(examined.verdicts)}},
            text};
}

Value lineValue(size_t line) {
    return line == 0 ? Value() : Value(line);
}

Record firstDifference(const std::optional<RowDifference>& first) {
    if (!first) return {{"first_difference", "", Value()}};
    const auto line = [](size_t number) {
        return number == 0 ? std::string("no such row") : fmt::format("line {}", number);
    };
    Table samples;
    for (const RowDifference::Sample& sample : first->samples)
        samples.push_back({{"column", "column", std::string(columnName(sample.column))},
                           {"a", "A", sample.a},
                           {"b", "B", sample.b}});
    return {{"first_difference", "they part",
             Record{{"time_s", "", first->timeS},
                    {"a_line", "", lineValue(first->lineA)},
                    {"b_line", "", lineValue(first->lineB)},
                    {"samples", "", samples}},
             fmt::format("{:.6f} s behind the first row: A {}, B {}", first->timeS, line(first->lineA),
                         line(first->lineB))},
            {"", "", samples}};
}

Record settingFields(const std::vector<SettingPair>& pairs) {
    Table all;
    Table shown;
    for (const SettingPair& pair : pairs) {
        all.push_back({{"setting", "", pair.name},
                       {"a", "", pair.a},
                       {"b", "", pair.b},
                       {"differs", "", differs(pair)}});
        if (differs(pair))
            shown.push_back({{"", "setting", pair.name}, {"", "A", pair.a}, {"", "B", pair.b}});
    }
    return {{"settings", "", all}, {"", "", shown}};
}

std::string changeText(const FigurePair& pair) {
    if (!differs(pair)) return std::isnan(pair.b) ? "-" : "=";
    const double change = pair.b - pair.a.value;
    if (!std::isfinite(change)) return std::isfinite(pair.b) ? "only in B" : "only in A";
    const std::string text = figure(change, pair.a.decimals, pair.a.unit);
    return text.starts_with('-') ? text : "+" + text;
}

// A number of something is a whole one.
Value figureValue(double value, const RecordingFigure& of) {
    const bool counts = of.unit.empty() && std::isfinite(value);
    return counts ? Value(static_cast<int64_t>(value)) : Value(value);
}

Table figureTable(const std::vector<FigurePair>& pairs) {
    Table table;
    for (const FigurePair& pair : pairs) {
        const RecordingFigure& of = pair.a;
        table.push_back({{"figure", "", of.key},
                         {"", "figure", of.label + (of.axis == 0 ? "" : fmt::format(", {}", of.axis))},
                         {"axis", "", axisValue(of.axis)},
                         {"a", "A", figureValue(of.value, of), figure(of.value, of.decimals, of.unit)},
                         {"b", "B", figureValue(pair.b, of), figure(pair.b, of.decimals, of.unit)},
                         {"differs", "B - A", differs(pair), changeText(pair),
                          differs(pair) ? Style::kWarning : Style::kDim}});
    }
    return table;
}

void addVerdicts(const std::vector<VerdictPair>& pairs, Record& report) {
    Table table;
    for (const auto& [a, b] : pairs) {
        const auto text = [](const RecordingVerdict* verdict) {
            return verdict == nullptr ? Value() : Value(toText(*verdict));
        };
        const RecordingVerdict& one = a == nullptr ? *b : *a;
        table.push_back({{"verdict", "", keyOf(one.kind)},
                         {"axis", "", axisValue(one.axis)},
                         {"a", "", text(a)},
                         {"b", "", text(b)}});
    }
    report.push_back({"verdicts", "", table});
    for (const auto& [a, b] : pairs) {
        for (const auto& [verdict, side] : {std::pair(a, "A"), std::pair(b, "B")}) {
            if (verdict == nullptr) continue;
            report.push_back({"", fmt::format("{} in {}", verdict->fault ? "verdict" : "remark", side),
                              Value(), toText(*verdict), verdict->fault ? Style::kBad : Style::kPlain});
        }
    }
}

}  // namespace

bool differs(const FigurePair& pair) {
    return !isSame(pair.a.value, pair.b);
}

bool differs(const SettingPair& pair) {
    return pair.a.data != pair.b.data;
}

RecordingComparison compareRecordings(const Examined& a, const Examined& b) {
    RecordingComparison compared;
    RowComparer(a.recording, b.recording, compared).compare();
    compared.figures = figurePairs(a.stats, b.stats);
    compared.settings = settingPairs(a.sidecar, b.sidecar);
    compared.verdicts = verdictPairs(a.verdicts, b.verdicts);
    return compared;
}

Record comparisonReport(const Examined& a, const Examined& b, const RecordingComparison& compared) {
    const bool equal = isEqual(compared);
    Record report{
        {"equal", "recordings", equal,
         equal ? fmt::format("equal: {} rows", compared.alike)
               : fmt::format("not the same: {} rows alike, {} with other values, {} only in A, {} only in B",
                             compared.alike, compared.other, compared.onlyA, compared.onlyB),
         equal ? Style::kGood : Style::kBad},
        sideField("a", "A", a),
        sideField("b", "B", b),
        {"rows_alike", "", compared.alike},
        {"rows_not_the_same", "", compared.other},
        {"rows_only_in_a", "", compared.onlyA},
        {"rows_only_in_b", "", compared.onlyB}};
    const auto append = [&report](const Record& fields) {
        report.insert(report.end(), fields.begin(), fields.end());
    };
    append(firstDifference(compared.first));
    append(settingFields(compared.settings));
    report.push_back({"figures", "", figureTable(compared.figures)});
    addVerdicts(compared.verdicts, report);
    return report;
}

}  // namespace oisctl

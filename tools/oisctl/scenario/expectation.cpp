#include "scenario/expectation.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <span>
#include <sstream>
#include <stdexcept>

#include "base/closest_name.h"
#include "base/number.h"
#include "base/suggest.h"
#include "faults/faults.h"
#include "modules/module_description.h"
#include "replay/driver_calls.h"

namespace oisctl {

using phone::TableReader;

namespace {

constexpr const char* kResultField = "result";
constexpr const char* kErrorField = "error";

// --- Selectors: a name, and fields with their values.

std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::optional<double> endOf(std::string_view text, double otherwise) {
    if (text.empty()) return otherwise;
    if (const auto bits = numberOf<uint64_t>(text)) return static_cast<double>(*bits);
    return numberOf<double>(text);
}

// "3", "0x2", "3..5", "3.." or "..5".
std::optional<Bounds> boundsOf(std::string_view text) {
    constexpr Bounds kAny;
    const size_t dots = text.find("..");
    if (text.empty() || text == "..") return std::nullopt;
    const bool one = dots == std::string_view::npos;
    const auto least = endOf(text.substr(0, dots), kAny.least);
    const auto greatest = one ? least : endOf(text.substr(dots + 2), kAny.greatest);
    return least && greatest && *least <= *greatest ? std::optional(Bounds{*least, *greatest}) : std::nullopt;
}

// What a word's value is for a field of that kind; throws when it can never be.
std::variant<Bounds, std::string> fieldValue(const phone::FieldKind& kind, const std::string& text) {
    if (kind.name == kErrorField && phone::errorByName(text) == 0)
        throw std::invalid_argument(fmt::format("{} is no error's name; for example: EIO", text));
    if (kind.name == "register" && phone::findRegister(text) == nullptr) {
        throw std::invalid_argument(
            fmt::format("{}: no register{}", text,
                        suggestion(text, namesIn(phone::registers(), &phone::RegisterInfo::name))));
    }
    if (kind.isText) return text;
    if (const auto bounds = boundsOf(text)) return *bounds;
    if (kind.name == "angle" && text == "none") return text;
    throw std::invalid_argument(
        fmt::format("{}={}: the field is a number; for example: {}=2 or, from one to another, {}=2..5",
                    kind.name, text, kind.name, kind.name));
}

FieldValue parseField(const std::string& command, const std::string& word) {
    std::vector<phone::FieldKind> kinds = phone::fieldKinds(command);
    kinds.insert(kinds.end(), {{kResultField, false}, {kErrorField, true}});
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const auto kind = std::ranges::find(kinds, name, &phone::FieldKind::name);
    if (kind == kinds.end()) {
        throw std::invalid_argument(fmt::format("{} has no field {}{}", command, name,
                                                suggestion(name, namesIn(kinds, &phone::FieldKind::name))));
    }
    if (equals == std::string::npos)
        throw std::invalid_argument(fmt::format("{}: a field needs its value: {}=2", word, name));
    return {name, fieldValue(*kind, word.substr(equals + 1))};
}

std::vector<FieldValue> parseFields(const std::string& command, std::span<const std::string> words) {
    std::vector<FieldValue> fields;
    for (const std::string& word : words) fields.push_back(parseField(command, word));
    return fields;
}

Selector parseSelector(const std::string& text, const std::vector<std::string>& names, const char* what) {
    const std::vector<std::string> parts = words(text);
    const std::string name = parts.empty() ? "" : parts.front();
    if (std::ranges::find(names, name) == names.end())
        throw std::invalid_argument(fmt::format("\"{}\" is no {}{}", name, what, suggestion(name, names)));
    return {text, name, parseFields(name, std::span(parts).subspan(1))};
}

Selector parseCommand(const std::string& text) {
    return parseSelector(text, commandNames(), "request and no hub command");
}

// Whether no field can be as both say.
bool contradict(const FieldValue& one, const FieldValue& other) {
    if (one.name != other.name) return false;
    const auto* const a = std::get_if<Bounds>(&one.value);
    const auto* const b = std::get_if<Bounds>(&other.value);
    if (a == nullptr || b == nullptr) return one.value != other.value;
    return a->greatest < b->least || b->greatest < a->least;
}

// What each of the commands selected shall be, and yet none can; empty when they can.
std::string contradictionIn(std::vector<FieldValue> fields, const std::vector<FieldValue>& further) {
    fields.insert(fields.end(), further.begin(), further.end());
    for (size_t i = 0; i < fields.size(); ++i)
        for (size_t k = 0; k < i; ++k)
            if (contradict(fields[i], fields[k]))
                return fields[i].name + " is stated twice, and cannot be both";
    const auto named = [&fields](const char* name) {
        return std::ranges::find(fields, name, &FieldValue::name);
    };
    const auto result = named(kResultField);
    if (named(kErrorField) == fields.end() || result == fields.end()) return "";
    return std::get<Bounds>(result->value).least < 0 ? "" : "what has an error has a result below 0";
}

// --- Entries.

std::optional<Bounds> readBounds(TableReader& table, const char* key, double least = 0) {
    const auto text = table.scalar(key);
    if (!text) return std::nullopt;
    const auto bounds = boundsOf(*text);
    if (bounds && (bounds->least >= least || bounds->greatest >= least)) return bounds;
    table.fail(key, fmt::format("is \"{}\"; it may be a number or, from one to another, \"2..5\", \"2..\" "
                                "or \"..5\"{}",
                                *text, least == 0 ? ", none of them below 0" : ""));
}

std::vector<uint8_t> parseBytes(const std::string& text) {
    std::string digits = text;
    std::erase(digits, ' ');
    if (digits.empty()) throw std::invalid_argument("holds no byte; for example: \"02 00 00 00\"");
    return phone::bytesOfHex(digits);
}

// Result and error, as fields that each of them has.
void readOutcome(TableReader& table, const Selector& selector, ExpectedFields& outcome) {
    for (const char* key : {kResultField, kErrorField}) {
        if (!table.has(key)) continue;
        const std::string word = fmt::format("{}={}", key, *table.scalar(key));
        try {
            outcome.fields.push_back(parseField(selector.name, word));
        } catch (const std::invalid_argument& error) {
            table.fail(key, error.what());
        }
        outcome.text += (outcome.text.empty() ? "" : " ") + word;
    }
}

// What is expected of commands.
class CommandReader {
  public:
    CommandReader(TableReader& table, const Expectation& common) : mTable(table), mCommon(common) {}

    std::vector<Expectation> read() {
        const auto count = readBounds(mTable, "count");
        if (count) add(ExpectedCount{*count});
        ExpectedFields fields;
        mTable.takeText("fields", [&](const std::string& text) {
            const std::vector<std::string> parts = words(text);
            if (parts.empty()) throw std::invalid_argument("names no field; for example: \"mode=2\"");
            fields = {text, parseFields(mCommon.selector->name, parts)};
        });
        readOutcome(mTable, *mCommon.selector, fields);
        const std::string contradiction = contradictionIn(mCommon.selector->fields, fields.fields);
        if (!contradiction.empty()) mTable.fail(contradiction);
        if (!fields.fields.empty()) add(std::move(fields));
        for (const bool sent : {true, false}) {
            mTable.takeText(sent ? "sent" : "received", [&](const std::string& text) {
                add(ExpectedBytes{sent, parseBytes(text)});
            });
        }
        readAfter();
        const bool nothing = count && count->greatest == 0;
        if (nothing && mRead.size() > 1)
            mTable.fail("there shall be none of it, and yet be as another key says; state one of them");
        return std::move(mRead);
    }

  private:
    void readAfter() {
        std::optional<Selector> after;
        mTable.takeText("after", [&](const std::string& text) { after = parseCommand(text); });
        const auto delay = readBounds(mTable, "delay_s");
        if (delay && !after) mTable.fail("delay_s", "needs after = \"COMMAND\": from when on it counts");
        if (after) add(ExpectedDelay{std::move(*after), delay.value_or(Bounds{0})});
    }

    template <typename What>
    void add(What what) {
        mRead.push_back(mCommon);
        mRead.back().what = std::move(what);
    }

    TableReader& mTable;
    const Expectation& mCommon;
    std::vector<Expectation> mRead;
};

// What concerns no command in particular.
std::vector<Expectation> readOthers(TableReader& table, const Expectation& common) {
    std::vector<Expectation> read;
    const auto add = [&](auto what) {
        read.push_back(common);
        read.back().what = std::move(what);
    };
    std::vector<Selector> order;
    table.takeTexts("order", [&](const std::string& text) { order.push_back(parseCommand(text)); });
    if (table.has("order") && order.size() < 2) table.fail("order", "needs two commands or more");
    if (const auto twice = std::ranges::adjacent_find(order, {}, &Selector::text); twice != order.end())
        table.fail("order", fmt::format("has {} twice in a row, which counts as one", twice->text));
    if (!order.empty()) add(ExpectedOrder{std::move(order)});
    if (const auto bounds = readBounds(table, "shake_left_deg")) add(ExpectedShake{false, *bounds});
    if (const auto bounds = readBounds(table, "shake_left_db", Bounds().least))
        add(ExpectedShake{true, *bounds});
    table.takeText("no_message_above", [&](const std::string& text) {
        const phone::LogLevel level = phone::logLevelByName(text);
        if (level < phone::LogLevel::kInfo)
            throw std::invalid_argument(fmt::format("no message is above {}; use info or debug", text));
        add(ExpectedSilence{level});
    });
    if (const auto count = readBounds(table, "failures")) add(ExpectedFailures{*count});
    return read;
}

Expectation readCommon(TableReader& table, double durationS) {
    Expectation common;
    const auto takePlace = [&common](const std::string& word) {
        const std::vector<std::string> places = knownPlaces();
        if (std::ranges::find(places, word) == places.end())
            throw std::invalid_argument(fmt::format("\"{}\": no way to a controller and no shipped module{}",
                                                    word, suggestion(word, places)));
        common.on.push_back(word);
    };
    if (table.count("on") != 0) {
        table.takeTexts("on", takePlace);
    } else {
        table.takeText("on", takePlace);
    }
    if (table.has("command") && table.has("call")) table.fail("call", "stands beside command; state one");
    table.takeText("command", [&](const std::string& text) { common.selector = parseCommand(text); });
    table.takeText("call", [&](const std::string& text) {
        common.selector = parseSelector(text, driverCallNames(), "call of the driver");
    });
    if (const auto times = readBounds(table, "within_s")) common.timeS = *times;
    if (common.timeS.least > durationS) {
        table.fail("within_s",
                   fmt::format("begins at {} s; the scenario ends at {} s", common.timeS.least, durationS));
    }
    if (table.has("within_s") && !common.selector)
        table.fail("within_s", "says when, but not of what; command = \"SET_MODE\" does");
    return common;
}

// --- Text.

std::string boundsText(const Bounds& bounds) {
    if (bounds.least == bounds.greatest) return fmt::format("{}", bounds.least);
    if (!std::isfinite(bounds.least) || bounds.least == 0) return fmt::format("at most {}", bounds.greatest);
    if (!std::isfinite(bounds.greatest)) return fmt::format("at least {}", bounds.least);
    return fmt::format("{} to {}", bounds.least, bounds.greatest);
}

struct ToText {
    const Expectation& expectation;

    const std::string& selected() const { return expectation.selector->text; }
    std::string operator()(const ExpectedCount& what) const {
        return fmt::format("{} {}", boundsText(what.count), selected());
    }
    std::string operator()(const ExpectedBytes& what) const {
        return fmt::format("each {} {} {}", selected(), what.sent ? "with bytes" : "answered",
                           phone::hexBytes(what.bytes));
    }
    std::string operator()(const ExpectedFields& what) const {
        return fmt::format("each {} with {}", selected(), what.text);
    }
    std::string operator()(const ExpectedDelay& what) const {
        if (!std::isfinite(what.seconds.greatest) && what.seconds.least <= 0)
            return fmt::format("each {} after {}", selected(), what.after.text);
        return fmt::format("each {} {} s after {}", selected(), boundsText(what.seconds), what.after.text);
    }
    std::string operator()(const ExpectedOrder& what) const {
        constexpr size_t kShown = 8;
        std::vector<std::string> names = namesIn(what.commands, &Selector::text);
        const size_t more = names.size() - std::min(names.size(), kShown);
        if (more > 1) names.resize(kShown);
        return "in this order: " + joined(names) + (more > 1 ? fmt::format(", and {} more", more) : "");
    }
    std::string operator()(const ExpectedShake& what) const {
        return fmt::format("shake left {} {}", boundsText(what.value), what.relative ? "dB" : "deg");
    }
    std::string operator()(const ExpectedSilence& what) const {
        return fmt::format("no message above {}", name(what.above));
    }
    std::string operator()(const ExpectedFailures& what) const {
        return fmt::format("{} failures", boundsText(what.count));
    }
};

}  // namespace

std::string toText(const Expectation& expectation) {
    std::string text = std::visit(ToText{expectation}, expectation.what);
    const Bounds& time = expectation.timeS;
    if (std::isfinite(time.least) && time.least > 0) text += fmt::format(", from {} s", time.least);
    if (std::isfinite(time.greatest)) text += fmt::format(", until {} s", time.greatest);
    return text;
}

bool isAsExpected(const FieldValue& expected, const phone::Event& event, const phone::Decoded& decoded) {
    const auto* const bounds = std::get_if<Bounds>(&expected.value);
    if (expected.name == kResultField)
        return event.result && bounds->hold(static_cast<double>(*event.result));
    if (expected.name == kErrorField)
        return event.error != 0 && phone::errorName(event.error) == std::get<std::string>(expected.value);
    for (const auto* fields : {&decoded.answer, &decoded.fields}) {
        const auto field = std::ranges::find(*fields, expected.name, &phone::Field::name);
        if (field == fields->end()) continue;
        return std::visit(
            [&](const auto& value) {
                using Alternative = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<Alternative, std::string>) {
                    return bounds == nullptr && value == std::get<std::string>(expected.value);
                } else if constexpr (std::is_same_v<Alternative, double>) {
                    // It came as a float: 0.1 is what reads back as the same one.
                    return bounds != nullptr && value >= static_cast<float>(bounds->least) &&
                           value <= static_cast<float>(bounds->greatest);
                } else {
                    return bounds != nullptr && bounds->hold(static_cast<double>(value));
                }
            },
            field->value);
    }
    return false;
}

bool selects(const Selector& selector, const phone::Event& event, const phone::Decoded& decoded) {
    return decoded.name == selector.name &&
           std::ranges::all_of(selector.fields,
                               [&](const FieldValue& field) { return isAsExpected(field, event, decoded); });
}

std::vector<std::string> commandNames() {
    std::vector<std::string> names = namesIn(phone::privateRequests(), &phone::RequestInfo::name);
    for (const phone::HubCommandInfo& info : phone::hubCommands()) {
        if (phone::findRequest(info.name) == nullptr) names.emplace_back(info.name);
    }
    return names;
}

std::vector<std::string> knownPlaces() {
    std::vector<std::string> places{"hub", "hub-records", "hub-registers", "sub-device"};
    const std::vector<std::string> modules =
        namesIn(phone::shippedModules(), &phone::ModuleDescription::name);
    places.insert(places.end(), modules.begin(), modules.end());
    return places;
}

std::vector<Expectation> readExpectations(TableReader& table, double durationS) {
    const Expectation common = readCommon(table, durationS);
    std::vector<Expectation> read =
        common.selector ? CommandReader(table, common).read() : readOthers(table, common);
    table.finish();
    if (read.empty()) table.fail("expects nothing; for example: command = \"SET_MODE\", count = 3");
    return read;
}

}  // namespace oisctl

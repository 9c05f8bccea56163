#include "trace/trace.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "time/clock.h"

namespace phone {

namespace {

constexpr double kUsPerMs = 1000.0;
// Longer values are cut short in text; JSON has them whole.
constexpr size_t kTextValueLength = 120;

// How many bytes the UTF-8 sequence at the start of `text` takes; 0 when there is none.
size_t utf8Length(std::string_view text) {
    const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return 1;
    const size_t length = lead >= 0xc2 && lead <= 0xdf   ? 2
                          : (lead & 0xf0) == 0xe0        ? 3
                          : lead <= 0xf4 && lead >= 0xf0 ? 4
                                                         : 0;
    if (length == 0 || text.size() < length) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
    }
    // Overlong forms, surrogates, and what lies beyond the last code point.
    if ((lead == 0xe0 && byte(1) < 0xa0) || (lead == 0xed && byte(1) >= 0xa0)) return 0;
    if ((lead == 0xf0 && byte(1) < 0x90) || (lead == 0xf4 && byte(1) >= 0x90)) return 0;
    return length;
}

// Without anything that a terminal would take for more than text.
std::string printable(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const size_t length = utf8Length(text);
        const auto first = static_cast<unsigned char>(text.front());
        if (first == '\n') {
            shown += "\\n";
        } else if (length == 0 || first < ' ' || first == 0x7f) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02x", first);
            shown += escape.data();
        } else {
            shown.append(text, 0, length);
        }
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return shown;
}

std::string shortest(float value) {
    std::array<char, 32> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}
std::string shortest(double value) {
    std::array<char, 32> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

// What came as a float reads as one: 0.1 and not 0.10000000149011612.
bool isFloat(double value) {
    return std::abs(value) <= std::numeric_limits<float>::max() &&
           static_cast<double>(static_cast<float>(value)) == value;
}
std::string numberText(double value) {
    return isFloat(value) ? shortest(static_cast<float>(value)) : shortest(value);
}

std::string hexText(uint64_t value) {
    constexpr uint64_t kFourDigits = 0xffff;
    std::array<char, 24> text{};
    const char* format = value <= kFourDigits ? "0x%04llx" : "0x%08llx";
    std::snprintf(text.data(), text.size(), format, static_cast<unsigned long long>(value));
    return text.data();
}

std::string stringValue(const std::string& value) {
    std::string text = printable(std::string_view(value).substr(0, kTextValueLength));
    const bool plain = !text.empty() && text.find_first_of(" \"=") == std::string::npos;
    if (!plain) text = '"' + text + '"';
    if (value.size() > kTextValueLength) text += "... (" + std::to_string(value.size()) + " characters)";
    return text;
}

std::string fieldList(const std::vector<Field>& fields) {
    std::string text;
    for (const Field& field : fields) {
        if (!text.empty()) text += ' ';
        text += field.name + '=' + toText(field);
    }
    return text;
}

std::string withCode(const Event& event) {
    if (event.kind == EventKind::kHub) return event.name + '(' + std::to_string(event.code) + ')';
    if (event.kind == EventKind::kSubDevice || event.kind == EventKind::kMedia) {
        std::array<char, 16> code{};
        std::snprintf(code.data(), code.size(), "(0x%08X)", event.code);
        return event.name + code.data();
    }
    return event.name;
}

std::string sleepText(const Event& event) {
    const Field* us = findField(event, "us");
    if (us == nullptr) return {};
    const double value = std::visit(
        [](const auto& number) {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(number)>>)
                return static_cast<double>(number);
            return 0.0;
        },
        us->value);
    return value < kUsPerMs ? numberText(value) + " us" : numberText(value / kUsPerMs) + " ms";
}

// "vendor.debug.ois.dump = 3 (default 0)"; what was read is a field, or the result.
std::string propertyText(const Event& event) {
    const Field* value = findField(event, "value");
    const Field* standard = findField(event, "default");
    if (value == nullptr && !event.hasResult) return {};
    std::string text = printable(event.name) + " = ";
    text += value != nullptr ? toText(*value) : std::to_string(event.result);
    if (standard != nullptr) text += " (default " + toText(*standard) + ')';
    return text;
}

// "E [SetMode] need update mode 2"
std::string messageText(const Event& event) {
    std::string_view text = event.text;
    while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    std::string shown;
    const Field* level = findField(event, "level");
    const auto* levelName = level == nullptr ? nullptr : std::get_if<std::string>(&level->value);
    if (levelName != nullptr && !levelName->empty()) {
        const char letter = levelName->front();
        shown += letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
        shown += ' ';
    }
    return shown + printable(text);
}

std::string body(const Event& event) {
    std::string text;
    if (event.kind == EventKind::kMessage) return messageText(event);
    if (event.kind == EventKind::kSleep) text = sleepText(event);
    if (event.kind == EventKind::kProperty) text = propertyText(event);
    if (text.empty() && !event.text.empty()) text = printable(event.text);
    if (!text.empty()) return text;
    text = printable(withCode(event));
    if (!event.fields.empty()) text += ' ' + fieldList(event.fields);
    return text;
}

std::string errorName(int error) {
    const char* name = strerrorname_np(error);
    return name == nullptr ? "error " + std::to_string(error) : name;
}

// The hub's results say nothing while they are 0; a property's is what was read.
bool showsResult(const Event& event) {
    if (!event.hasResult || event.kind == EventKind::kProperty) return false;
    return event.kind != EventKind::kHub || event.result != 0;
}

// " -> -1 EIO (Input/output error)", " -> 0: valueXf=0.5".
std::string outcome(const Event& event) {
    std::string text;
    if (showsResult(event)) text = " -> " + std::to_string(event.result);
    if (event.error != 0) {
        const char* description = strerrordesc_np(event.error);
        text += (text.empty() ? " -> " : " ") + errorName(event.error);
        if (description != nullptr) text += std::string(" (") + description + ')';
    }
    const bool inText = !event.text.empty() && event.kind == EventKind::kHub;
    if (!event.answer.empty() && !inText) text += (text.empty() ? " -> " : ": ") + fieldList(event.answer);
    if (!event.fault.empty()) text += "  [fault: " + printable(event.fault) + ']';
    return text;
}

using Json = nlohmann::ordered_json;

// JSON has no infinity and no NaN; they stand as text.
Json numberJson(double value) {
    if (!std::isfinite(value)) return numberText(value);
    if (!isFloat(value)) return value;
    const std::string text = shortest(static_cast<float>(value));
    double decimal = value;
    std::from_chars(text.data(), text.data() + text.size(), decimal);
    return decimal;
}

Json valueJson(const Field& field) {
    if (const auto* number = std::get_if<double>(&field.value)) return numberJson(*number);
    return std::visit([](const auto& value) { return Json(value); }, field.value);
}

Json fieldsJson(const std::vector<Field>& fields) {
    Json object = Json::object();
    for (const Field& field : fields) object[field.name] = valueJson(field);
    return object;
}

}  // namespace

std::string_view name(EventKind kind) {
    switch (kind) {
        case EventKind::kSubDevice:
            return "sub-device";
        case EventKind::kHub:
            return "hub";
        case EventKind::kMedia:
            return "media";
        case EventKind::kFile:
            return "file";
        case EventKind::kSleep:
            return "sleep";
        case EventKind::kProperty:
            return "property";
        case EventKind::kMessage:
            return "message";
        case EventKind::kThread:
            return "thread";
        case EventKind::kSensor:
            return "sensor";
        case EventKind::kCustomisation:
            return "customisation";
        case EventKind::kTelemetry:
            return "telemetry";
        case EventKind::kCall:
            return "call";
        case EventKind::kNote:
            return "note";
    }
    return "unknown";
}

std::string toText(const Field& field) {
    if (const auto* text = std::get_if<std::string>(&field.value)) return stringValue(*text);
    if (const auto* number = std::get_if<double>(&field.value)) return numberText(*number);
    if (const auto* number = std::get_if<int64_t>(&field.value)) {
        return field.hex ? hexText(static_cast<uint64_t>(*number)) : std::to_string(*number);
    }
    const auto number = std::get<uint64_t>(field.value);
    return field.hex ? hexText(number) : std::to_string(number);
}

const Field* findField(const Event& event, std::string_view name) {
    for (const std::vector<Field>* fields : {&event.answer, &event.fields}) {
        const auto found = std::find_if(fields->begin(), fields->end(),
                                        [name](const Field& field) { return field.name == name; });
        if (found != fields->end()) return &*found;
    }
    return nullptr;
}

std::string toText(const Event& event, bool withHead) {
    std::string text;
    if (withHead) {
        std::array<char, 64> head{};
        std::snprintf(head.data(), head.size(), "%9.3f ms  #%u  ",
                      static_cast<double>(event.timeUs) / kUsPerMs, event.thread);
        text = head.data();
    }
    text += name(event.kind);
    text += event.kind == EventKind::kMessage ? " " : "  ";
    return text + body(event) + outcome(event);
}

std::string toJson(const Event& event) {
    Json object{{"sequence", event.sequence},
                {"time_us", event.timeUs},
                {"thread", event.thread},
                {"kind", name(event.kind)},
                {"name", event.name}};
    if (event.kind == EventKind::kSubDevice || event.kind == EventKind::kHub ||
        event.kind == EventKind::kMedia) {
        object["code"] = event.code;
    }
    if (!event.fields.empty()) object["fields"] = fieldsJson(event.fields);
    if (!event.answer.empty()) object["answer"] = fieldsJson(event.answer);
    if (!event.text.empty()) object["text"] = event.text;
    if (event.hasResult) object["result"] = event.result;
    if (event.error != 0) object["error"] = errorName(event.error);
    if (!event.fault.empty()) object["fault"] = event.fault;
    // Bytes that are no UTF-8 become U+FFFD: a garbled record must not end the trace.
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Trace::Trace(Clock& clock) : mClock(clock) {}

void Trace::setEnabled(bool enabled) {
    mEnabled.store(enabled, std::memory_order_relaxed);
}

void Trace::record(Event event) {
    if (!enabled()) return;
    event.thread = mClock.threadNumber();
    const std::lock_guard lock(mMutex);
    event.timeUs = mClock.nowUs();
    event.sequence = ++mCount;
    if (mListener) mListener(event);
    if (mKeep) mEvents.push_back(std::move(event));
}

void Trace::setListener(Listener listener) {
    const std::lock_guard lock(mMutex);
    mListener = std::move(listener);
}

void Trace::setKeep(bool keep) {
    const std::lock_guard lock(mMutex);
    mKeep = keep;
}

std::vector<Event> Trace::events() const {
    const std::lock_guard lock(mMutex);
    return mEvents;
}

std::vector<Event> Trace::events(EventKind kind) const {
    const std::lock_guard lock(mMutex);
    std::vector<Event> chosen;
    std::copy_if(mEvents.begin(), mEvents.end(), std::back_inserter(chosen),
                 [kind](const Event& event) { return event.kind == kind; });
    return chosen;
}

uint64_t Trace::count() const {
    const std::lock_guard lock(mMutex);
    return mCount;
}

void Trace::clear() {
    const std::lock_guard lock(mMutex);
    mEvents.clear();
    mCount = 0;
}

}  // namespace phone

// Events as a reader sees them.

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

#include <fmt/format.h>
#include <utf8/checked.h>

#include "faults/faults.h"
#include "trace/decode.h"
#include "trace/trace.h"

namespace phone {

namespace {

constexpr double kUsPerMs = 1000.0;
// Longer values are cut short in text; JSON has them whole.
constexpr size_t kTextValueLength = 120;

std::string hexText(uint64_t value) {
    return value <= UINT16_MAX ? fmt::format("0x{:04x}", value) : fmt::format("0x{:08x}", value);
}

std::string stringValue(const std::string& value) {
    std::string text = printable(std::string_view(value).substr(0, kTextValueLength));
    const bool plain = !text.empty() && text.find_first_of(" \"=") == std::string::npos;
    if (!plain) text = '"' + text + '"';
    if (value.size() > kTextValueLength) text += fmt::format("... ({} characters)", value.size());
    return text;
}

std::string fieldList(const std::vector<Field>& fields) {
    std::string text;
    for (const Field& field : fields) {
        fmt::format_to(std::back_inserter(text), "{}{}={}", text.empty() ? "" : " ", printable(field.name),
                       toText(field));
    }
    return text;
}

std::string sleepText(const Event& event) {
    const Field* us = findField(event, "us");
    const auto* value = us == nullptr ? nullptr : std::get_if<uint64_t>(&us->value);
    if (value == nullptr) return event.name;
    const auto number = static_cast<double>(*value);
    return number < kUsPerMs ? numberText(number) + " us" : numberText(number / kUsPerMs) + " ms";
}

// "vendor.debug.ois.dump = 3 (default 0)"; what was read is a field, or the result.
std::string propertyText(const Event& event) {
    const Field* value = findField(event, "value");
    const Field* standard = findField(event, "default");
    std::string text =
        fmt::format("{} = {}", printable(event.name),
                    value != nullptr ? toText(*value) : std::to_string(event.result.value_or(0)));
    if (standard != nullptr) text += fmt::format(" (default {})", toText(*standard));
    return text;
}

// "E [SetMode] need update mode 2"
std::string messageText(const Event& event) {
    std::string_view text = event.text;
    while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    const std::string level = textIn(event, "level");
    if (level.empty()) return printable(text);
    return fmt::format("{} {}", static_cast<char>(std::toupper(level.front())), printable(text));
}

std::string body(const Event& event, const Decoded& decoded) {
    switch (event.kind) {
        case EventKind::kMessage:
            return messageText(event);
        case EventKind::kSleep:
            return sleepText(event);
        case EventKind::kProperty:
            return propertyText(event);
        case EventKind::kCall:
            return callText(event);
        case EventKind::kNote:
            if (!event.text.empty()) return printable(event.text);
            break;
        default:
            break;
    }
    if (!decoded.sentence.empty()) return decoded.sentence;
    std::string text = printable(decoded.name);
    if (event.kind == EventKind::kHub) text += fmt::format("({})", event.code);
    if (event.kind == EventKind::kSubDevice || event.kind == EventKind::kMedia) {
        text += fmt::format("(0x{:08X})", event.code);
    }
    if (!decoded.fields.empty()) text += ' ' + fieldList(decoded.fields);
    return text;
}

// The hub's results say nothing while they are 0; a property's is what was read.
bool showsResult(const Event& event) {
    if (!event.result || event.kind == EventKind::kProperty) return false;
    return event.kind != EventKind::kHub || *event.result != 0;
}

// " -> -1 EIO (Input/output error)", " -> 0: valueXf=0.5".
std::string outcome(const Event& event, const Decoded& decoded) {
    std::string text;
    if (showsResult(event)) text = fmt::format(" -> {}", *event.result);
    if (event.error != 0) text += (text.empty() ? " -> " : " ") + errorText(event.error);
    const bool inSentence = !decoded.sentence.empty() && event.kind == EventKind::kHub;
    if (!decoded.answer.empty() && !inSentence) {
        text += (text.empty() ? " -> " : ": ") + fieldList(decoded.answer);
    }
    if (event.fault != nullptr) text += fmt::format("  [fault: {}]", printable(event.fault->text));
    return text;
}

// What steers a terminal, or turns the direction of writing.
bool isControl(uint32_t point) {
    constexpr std::pair<uint32_t, uint32_t> kControls[] = {
        {0, 0x1f}, {0x7f, 0x9f}, {0x200e, 0x200f}, {0x202a, 0x202e}, {0x2066, 0x2069}};
    return std::ranges::any_of(
        kControls, [point](const auto& range) { return range.first <= point && point <= range.second; });
}

}  // namespace

std::string printable(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    for (auto at = text.begin(); at != text.end();) {
        const auto begin = at;
        if (utf8::find_invalid(at, text.end()) == at) {
            shown += fmt::format("\\x{:02x}", static_cast<unsigned char>(*at++));
            continue;
        }
        const uint32_t point = utf8::next(at, text.end());
        if (point == '\n') {
            shown += "\\n";
        } else if (isControl(point)) {
            shown += point > UINT8_MAX ? fmt::format("\\u{:04x}", point) : fmt::format("\\x{:02x}", point);
        } else {
            shown.append(begin, at);
        }
    }
    return shown;
}

std::string numberText(double value) {
    std::array<char, 32> text{};
    char* const end = text.data() + text.size();
    const auto narrow = static_cast<float>(value);
    const bool isFloat =
        std::abs(value) <= std::numeric_limits<float>::max() && static_cast<double>(narrow) == value;
    const auto written =
        isFloat ? std::to_chars(text.data(), end, narrow) : std::to_chars(text.data(), end, value);
    return {text.data(), written.ptr};
}

// "SetMode(2 on)", "SetOisParams(zoom_ratio=1, act_scene=4)": a lone argument needs no name.
std::string callText(const Event& event) {
    std::string text;
    for (const Field& field : event.fields) {
        if (!text.empty()) text += ", ";
        if (event.fields.size() > 1) text += printable(field.name) + '=';
        text += toText(field);
    }
    return fmt::format("{}({})", printable(event.name), text);
}

std::string errorName(int error) {
    const char* name = strerrorname_np(error);
    return name == nullptr ? fmt::format("error {}", error) : name;
}

std::string errorText(int error) {
    const char* description = strerrordesc_np(error);
    return errorName(error) + (description == nullptr ? "" : fmt::format(" ({})", description));
}

int errorByName(std::string_view name) {
    constexpr int kLastErrno = 133;
    for (int error = 1; error <= kLastErrno; ++error) {
        const char* known = strerrorname_np(error);
        if (known != nullptr && name == known) return error;
    }
    return 0;
}

std::string toText(const Field& field) {
    const auto shown = [&field](const auto& value) -> std::string {
        using Value = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<Value, std::string>) {
            return stringValue(value);
        } else if constexpr (std::is_same_v<Value, double>) {
            return numberText(value);
        } else {
            return field.hex ? hexText(static_cast<uint64_t>(value)) : std::to_string(value);
        }
    };
    const std::string text = std::visit(shown, field.value);
    return field.meaning.empty() ? text : fmt::format("{} {}", text, field.meaning);
}

std::string toText(const Event& event, bool withHead) {
    const Decoded decoded = decode(event);
    std::string text;
    if (withHead) {
        text = fmt::format("{:9.3f} ms  #{}  ", static_cast<double>(event.timeUs) / kUsPerMs, event.thread);
    }
    text += name(event.kind);
    text += event.kind == EventKind::kMessage ? " " : "  ";
    return text + body(event, decoded) + outcome(event, decoded);
}

}  // namespace phone

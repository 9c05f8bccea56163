#include "driver/course.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace driver_test {

namespace {

using phone::Event;
using phone::EventKind;

template <typename... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
    char text[512];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

std::string fieldText(const Event& event, std::string_view name) {
    const phone::Field* field = phone::findField(event, name);
    if (field == nullptr) return "?";
    if (const auto* text = std::get_if<std::string>(&field->value)) return *text;
    return phone::toText(*field);
}

// Every field of the event behind its name.
std::string nameAndFields(const Event& event) {
    std::string line = event.name;
    for (const phone::Field& field : event.fields) line += ' ' + fieldText(event, field.name);
    return line;
}

std::string resultText(const Event& event) {
    if (event.error != 0) return event.result.value_or(0) < 0 ? " -> -1 " : " -> ";
    return " -> " + std::to_string(event.result.value_or(0));
}
std::string outcome(const Event& event) {
    return resultText(event) + (event.error != 0 ? strerrorname_np(event.error) : "");
}

// A register access, a firmware command or the end of the bypass, if each byte is as it has to be for one.
std::string familyRecord(const std::vector<uint8_t>& record) {
    if (record.size() != 64 || record[1] != 12 || record[3] != 0) return {};
    if (std::any_of(record.begin() + 16, record.end(), [](uint8_t byte) { return byte != 0; })) return {};
    uint32_t words[3] = {};
    std::memcpy(words, &record[4], sizeof words);
    const auto [a, b, c] = words;
    const unsigned answer = record[2];
    switch (record[0]) {
        case 0:
            return answer == b ? formatted("read %04x:%u %x", a, b, c) : "";
        case 1:
            return answer == 0 ? formatted("write %04x:%u %x", a, b, c) : "";
        case 14:
            return formatted("firmware %x %x %x", a, b, c) + (answer != 0 ? formatted(" -> %u", answer) : "");
        case 17:
            return answer == 0 && a == 0 && b == 0 && c == 0 ? "bypass off" : "";
        default:
            return {};
    }
}

std::string hubLine(const Event& event) {
    const std::string known = familyRecord(event.sent);
    const std::string line = !known.empty() ? known : "hub " + courseBytes(event.sent);
    return event.result == 0 && event.error == 0 ? line : line + outcome(event);
}

std::string threadLine(const Event& event) {
    const std::string thread = " t" + fieldText(event, "thread");
    if (event.error != 0 && event.name == "pthread_create") return "thread create" + outcome(event);
    std::string line = "thread ";
    if (event.name == "pthread_create") line += "create" + thread;
    if (event.name == "pthread_join") line += "join" + thread;
    if (event.name == "pthread_getschedparam") line += "priority" + thread;
    if (event.name == "pthread_setschedparam") {
        line += "schedule" + thread + ' ' + fieldText(event, "policy") + ' ' + fieldText(event, "priority");
    }
    return event.error != 0 ? line + outcome(event) : line;
}

std::string inQuotes(std::string_view text) {
    std::string shown = "\"";
    for (const char c : text) shown += c == '\n' ? std::string("\\n") : std::string(1, c);
    return shown + '"';
}

std::string messageLine(const Event& event) {
    const std::string level = fieldText(event, "level");
    const char letter = level == "error" ? 'E' : level == "info" ? 'I' : 'D';
    return (event.name == "android" ? "android " : "") + (letter + ('/' + fieldText(event, "tag"))) + ' ' +
           inQuotes(event.text);
}

std::string lineOf(const Event& event) {
    switch (event.kind) {
        case EventKind::kSubDevice:
        case EventKind::kMedia:
            return formatted("ioctl %08x ", event.code) + courseBytes(event.sent) + outcome(event);
        case EventKind::kHub:
            return hubLine(event);
        case EventKind::kFile: {
            std::string line = event.name + ' ' + fieldText(event, "path");
            if (event.name == "open") line += ' ' + fieldText(event, "flags");
            if (event.name == "fopen") line += ' ' + fieldText(event, "mode");
            return event.error != 0 ? line + " -> " + strerrorname_np(event.error) : line;
        }
        case EventKind::kSleep:
            return "sleep " + fieldText(event, "us");
        case EventKind::kProperty:
            return "property " + fieldText(event, "type") + ' ' + event.name + ' ' +
                   fieldText(event, "default") + " -> " +
                   (event.result ? std::to_string(*event.result) : fieldText(event, "value"));
        case EventKind::kMessage:
            return messageLine(event);
        case EventKind::kThread:
            return threadLine(event);
        case EventKind::kCustomisation:
            return "customisation " + fieldText(event, "sensor_dev") + ' ' + fieldText(event, "sensor_id") +
                   ' ' + fieldText(event, "module_id") + outcome(event);
        case EventKind::kSensor:
        case EventKind::kTelemetry:
            return (event.kind == EventKind::kSensor ? "provider " : "telemetry ") + nameAndFields(event) +
                   (event.result ? outcome(event) : "");
        case EventKind::kCall:
        case EventKind::kNote:
            return {};
    }
    return {};
}

std::string trimmed(const std::string& line) {
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') return {};
    return line.substr(first, line.find_last_not_of(" \t") - first + 1);
}

// "include FILE.SECTION", or so many times: "20 times include SECTION".
bool isInclude(const std::string& line) {
    return line.starts_with("include ") ||
           (line.find(" times include ") != std::string::npos && std::isdigit(line.front()) != 0);
}

std::string withValues(std::string line, const Values& values, const std::string& where) {
    for (const auto& [name, value] : values) {
        const std::string word = '{' + name + '}';
        for (size_t at = line.find(word); at != std::string::npos; at = line.find(word, at + value.size())) {
            line.replace(at, word.size(), value);
        }
    }
    if (line.find('{') != std::string::npos) ADD_FAILURE() << where << ": no value for a word of: " << line;
    return line;
}

}  // namespace

std::string courseBytes(const std::vector<uint8_t>& bytes) {
    size_t used = bytes.size();
    while (used > 0 && bytes[used - 1] == 0) --used;
    used = std::min(bytes.size(), (used + 3) / 4 * 4);
    std::string text;
    for (size_t i = 0; i < used; ++i) {
        if (i != 0 && i % 4 == 0) text += ' ';
        text += {"0123456789abcdef"[bytes[i] / 16], "0123456789abcdef"[bytes[i] % 16]};
    }
    return used < bytes.size() ? text + ".." : text;
}

std::string courseOf(const std::vector<phone::Event>& events) {
    std::string lines;
    for (const Event& event : events) {
        const std::string line = lineOf(event);
        if (line.empty()) continue;
        if (event.thread != 0) lines += 't' + std::to_string(event.thread) + ' ';
        lines += line + '\n';
    }
    return lines;
}

std::string writtenCourse(const std::string& file, const std::string& section, const Values& values) {
    std::ifstream stream(OIS_SOURCE_DIR "/tests/driver/courses/" + file + ".txt");
    const std::string head = '[' + section + ']';
    const std::string where = "courses/" + file + ".txt " + head;
    std::string lines;
    bool found = false;
    bool inside = false;
    for (std::string line; std::getline(stream, line);) {
        line = trimmed(line);
        if (line.empty()) continue;
        if (line.front() == '[' && line.back() == ']') {
            inside = line == head;
            found = found || inside;
        } else if (inside && isInclude(line)) {
            const std::string other = line.substr(line.find("include ") + std::strlen("include "));
            const size_t dot = other.find('.');
            const std::string included =
                dot == std::string::npos ? writtenCourse(file, other, values)
                                         : writtenCourse(other.substr(0, dot), other.substr(dot + 1), values);
            const int times = line.front() == 'i' ? 1 : std::stoi(line);
            for (int i = 0; i < times; ++i) lines += included;
        } else if (inside) {
            lines += withValues(line, values, where) + '\n';
        }
    }
    if (!found) ADD_FAILURE() << where << " is not there";
    return lines;
}

}  // namespace driver_test

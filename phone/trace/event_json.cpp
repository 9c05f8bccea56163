// Events as JSON, and back.

#include <charconv>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "faults/faults.h"
#include "trace/decode.h"
#include "trace/trace.h"

namespace phone {

namespace {

using Json = nlohmann::ordered_json;

// The number that text shows: 0.1 for a float, and not 0.10000000149011612.
double asWritten(double value) {
    const std::string text = numberText(value);
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

Json toJson(const Field& field) {
    // JSON has no infinity and no NaN; they stand as text.
    const auto* number = std::get_if<double>(&field.value);
    if (number != nullptr && !std::isfinite(*number)) return fmt::format("{}", *number);
    if (number != nullptr) return asWritten(*number);
    return std::visit([](const auto& value) { return Json(value); }, field.value);
}

Json toJson(const std::vector<Field>& fields) {
    Json object = Json::object();
    for (const Field& field : fields) object[field.name] = toJson(field);
    return object;
}

constexpr const char* kTraceKind = "trace";  // of the first line

constexpr std::string_view kPhaseNames[] = {"", "bring-up", "running"};

std::vector<Field> fieldsOf(const Json& object) {
    std::vector<Field> fields;
    for (const auto& [name, value] : object.items()) {
        Field field{name, value.is_string() ? value.get<std::string>() : value.dump()};
        if (value.is_number_integer()) field.value = value.get<int64_t>();
        if (value.is_number_unsigned()) field.value = value.get<uint64_t>();
        if (value.is_number_float()) field.value = value.get<double>();
        fields.push_back(std::move(field));
    }
    return fields;
}

EventKind kindOf(const std::string& text) {
    for (size_t kind = 0; kind < kEventKinds; ++kind) {
        if (name(static_cast<EventKind>(kind)) == text) return static_cast<EventKind>(kind);
    }
    throw std::invalid_argument(fmt::format("no kind of event is called '{}'", text));
}

// One that this phone does not know is known by its text alone.
Fault faultOf(const std::string& text) {
    try {
        return parseFault(text);
    } catch (const std::invalid_argument&) {
        return {.text = text};
    }
}

Event read(const Json& json) {
    Event event;
    event.kind = kindOf(json.at("kind").get<std::string>());
    event.sequence = json.value("sequence", uint64_t{0});
    event.timeUs = json.value("time_us", int64_t{0});
    event.tookUs = json.value("took_us", int64_t{0});
    event.thread = json.value("thread", uint32_t{0});
    event.code = json.value("code", uint32_t{0});
    if (json.contains("phase")) {
        event.phase = json.at("phase") == kPhaseNames[1] ? HubPhase::kBringUp : HubPhase::kRunning;
    }
    event.sent = bytesOfHex(json.value("sent", std::string()));
    event.received = bytesOfHex(json.value("received", std::string()));
    if (!isCommand(event.kind) && event.kind != EventKind::kMedia) {
        event.name = json.value("name", std::string());
        event.fields = fieldsOf(json.value("fields", Json::object()));
        event.answer = fieldsOf(json.value("answer", Json::object()));
    }
    event.text = json.value("text", std::string());
    if (json.contains("result")) event.result = json.at("result").get<int64_t>();
    if (json.contains("error")) event.error = errorByName(json.at("error").get<std::string>());
    if (json.contains("fault")) {
        event.fault = std::make_shared<const Fault>(faultOf(json.at("fault").get<std::string>()));
    }
    return event;
}

TraceHead readHead(Json json) {
    const Json format = json.value("format", Json());
    if (!format.is_number_integer() || format < 1 || format > kTraceFormat) {
        throw std::invalid_argument(
            fmt::format("is a trace of format {}; this tool reads 1 to {}", format.dump(), kTraceFormat));
    }
    json.erase("kind");
    json.erase("format");
    return {fieldsOf(json)};
}

std::string dumped(const Json& json) {
    // Bytes that are no UTF-8 become U+FFFD: a garbled record must not end the trace.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

std::string traceHead(const std::vector<Field>& about) {
    Json head{{"kind", kTraceKind}, {"format", kTraceFormat}};
    head.update(toJson(about));
    return dumped(head);
}

std::string toJson(const Event& event, bool inTrace) {
    const Decoded decoded = decode(event);
    Json object;
    if (inTrace) object = {{"sequence", event.sequence}, {"time_us", event.timeUs}, {"thread", event.thread}};
    object["kind"] = name(event.kind);
    object["name"] = decoded.name;
    if (isCommand(event.kind) || event.kind == EventKind::kMedia) object["code"] = event.code;
    if (event.phase != HubPhase::kUnknown) object["phase"] = kPhaseNames[static_cast<size_t>(event.phase)];
    if (!event.sent.empty()) object["sent"] = hexOf(event.sent);
    if (!event.received.empty()) object["received"] = hexOf(event.received);
    if (!decoded.fields.empty()) object["fields"] = toJson(decoded.fields);
    if (!decoded.answer.empty()) object["answer"] = toJson(decoded.answer);
    if (!event.text.empty()) object["text"] = event.text;
    if (event.result) object["result"] = *event.result;
    if (event.error != 0) object["error"] = errorName(event.error);
    if (event.fault != nullptr) object["fault"] = event.fault->text;
    if (inTrace && event.tookUs != 0) object["took_us"] = event.tookUs;
    // A request alone, as somebody asks what it is.
    if (!inTrace && event.sent.empty() && event.kind != EventKind::kHub && event.code != 0) {
        const RequestInfo* info = findRequest(event.code);
        object["direction"] = direction(event.code);
        object["size"] = _IOC_SIZE(event.code);
        if (info != nullptr) object["meaning"] = info->meaning;
    }
    return dumped(object);
}

std::variant<TraceHead, Event> traceLineOfJson(std::string_view text) {
    try {
        Json json = Json::parse(text);
        if (json.at("kind") == kTraceKind) return readHead(std::move(json));
        return read(json);
    } catch (const Json::parse_error& error) {
        throw std::invalid_argument(fmt::format("is no JSON behind character {}", error.byte));
    } catch (const Json::exception&) {
        throw std::invalid_argument("is no event of a trace: it has no kind, or a value of another type");
    }
}

}  // namespace phone

#include "scenario/scenario.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <stdexcept>

#include <fmt/format.h>

#include "base/errors.h"
#include "base/file_content.h"
#include "base/number.h"
#include "base/suggest.h"
#include "base/toml_reader.h"
#include "modules/module_description.h"
#include "replay/driver_calls.h"
#include "session/operations.h"

namespace oisctl {

namespace {

constexpr double kInt32Min = std::numeric_limits<int32_t>::min();
constexpr double kInt32Max = std::numeric_limits<int32_t>::max();
constexpr double kUint32Max = std::numeric_limits<uint32_t>::max();
constexpr double kUint8Max = std::numeric_limits<uint8_t>::max();
constexpr double kMaxZoom = 1000;
constexpr double kMaxFrameRate = 1000;
constexpr double kMaxDurationS = 86400;
constexpr double kMaxDiopter = 100;
constexpr int32_t kMaxSensorDev = 7;

using phone::NumberRange;
using phone::TableReader;

// A value, a curve of points, or a ramp; nothing where the span does not state the field.
std::optional<Curve> readCurve(TableReader& span, const SpanField& field, double spanS) {
    const NumberRange range{field.least, field.greatest, field.whole};
    if (span.holdsTable(field.name)) {
        TableReader ramp = *span.table(field.name);
        for (const char* end : {"from", "to"})
            ramp.require(end, "a ramp needs both ends: { from = 1.0, to = 30.0 }");
        const Curve::Point from(0, *ramp.number("from", range)), to(spanS, *ramp.number("to", range));
        ramp.finish();
        return Curve({from, to});
    }
    auto points = span.points(field.name, {0, kMaxDurationS}, range);
    if (!points) return std::nullopt;
    if (const double last = points->back().first; last > spanS + kFrameSlackS) {
        span.fail(field.name, fmt::format("has a point at {} s; its span is {} s long", last, spanS));
    }
    return Curve(std::move(*points));
}

Span readSpan(TableReader& table, const Scenario& scenario) {
    const NumberRange times{0, scenario.durationS};
    Span span;
    span.toS = scenario.durationS;
    table.read("from_s", span.fromS, times);
    table.read("to_s", span.toS, times);
    if (const auto frames = table.number("frames", {1, kMaxDurationS * kMaxFrameRate, true})) {
        if (table.has("to_s")) table.fail("frames", "stands beside to_s; a span takes one of them");
        span.toS = span.fromS + *frames / scenario.frameRateHz;
    }
    if (span.toS <= span.fromS) {
        table.fail(fmt::format("ends at {} s, before it begins at {} s", span.toS, span.fromS));
    }
    for (const SpanField& field : spanFields()) {
        if (auto curve = readCurve(table, field, span.toS - span.fromS))
            span.values.emplace_back(&field, std::move(*curve));
    }
    table.finish();
    if (span.values.empty()) {
        table.fail("states no value; for example: zoom_ratio = { from = 1.0, to = 30.0 }");
    }
    return span;
}

std::vector<phone::Property> readProperties(TableReader& table, std::string_view key) {
    std::vector<phone::Property> properties;
    table.takeScalars(key, [&](const std::string& name, const std::string& value) {
        properties.push_back(phone::knownProperty(name, value));
    });
    return properties;
}

std::vector<phone::Fault> readFaults(TableReader& table) {
    std::vector<phone::Fault> faults;
    table.takeTexts("faults", [&](const std::string& text) { faults.push_back(phone::parseFault(text)); });
    return faults;
}

std::shared_ptr<const phone::MotionSource> readMotion(TableReader& table, uint64_t seed) {
    std::shared_ptr<const phone::MotionSource> motion;
    table.takeText("motion", [&](const std::string& text) { motion = phone::motionByName(text, seed); });
    return motion;
}

std::optional<bool> readStream(TableReader& table) {
    const auto state = table.scalar("stream");
    if (!state) return std::nullopt;
    const bool on = *state == "on" || *state == "1";
    if (!on && *state != "off" && *state != "0") {
        table.fail("stream", fmt::format("is \"{}\"; it may be \"on\" or \"off\"", *state));
    }
    return on;
}

std::optional<Thermal> readThermal(TableReader& table) {
    const auto state = table.text("thermal");
    if (!state) return std::nullopt;
    if (*state == "absent") return Thermal{Thermal::Kind::kAbsent, {}};
    if (*state == "unreadable") return Thermal{Thermal::Kind::kUnreadable, {}};
    return Thermal{Thermal::Kind::kHolds, *state};
}

// Fields of a request, as a span has them.
std::optional<std::vector<std::pair<const SpanField*, double>>> readRequest(TableReader& table) {
    auto stated = table.table("request");
    if (!stated) return std::nullopt;
    std::vector<std::pair<const SpanField*, double>> values;
    for (const SpanField& field : spanFields()) {
        if (field.store == nullptr) continue;
        if (const auto value = stated->number(field.name, {field.least, field.greatest, field.whole}))
            values.emplace_back(&field, *value);
    }
    stated->finish();
    return values;
}

// A call by its name, with its arguments as a trace has them: numbers by name, or a record's bytes.
std::optional<phone::Event> readCall(TableReader& table) {
    std::optional<phone::Event> call;
    table.takeText("call", [&call](const std::string& name) {
        const std::vector<std::string> names = driverCallNames();
        if (std::ranges::find(names, name) == names.end())
            throw std::invalid_argument(
                fmt::format("\"{}\" is no call of the driver{}", name, suggestion(name, names)));
        call = {.kind = phone::EventKind::kCall, .name = name};
    });
    if (!call) return call;
    table.takeScalars("arguments", [&call](const std::string& name, const std::string& value) {
        const auto number = numberOf<int64_t>(value);
        if (!number) throw std::invalid_argument(fmt::format("is \"{}\"; it may be a whole number", value));
        call->fields.push_back({name, *number});
    });
    table.takeText("record", [&call](const std::string& text) { call->sent = phone::bytesOfHex(text); });
    return call;
}

std::vector<double> readTimes(TableReader& table, const Scenario& scenario) {
    table.require("s", "it says when, for example s = 1.5");
    const phone::NumberRange times{0, scenario.durationS};
    if (table.count("s") == 0) return {*table.number("s", times)};
    return *table.numbers("s", times, 1, std::numeric_limits<uint16_t>::max());
}

Moment readMoment(TableReader& table, uint64_t seed) {
    Moment moment;
    moment.stream = readStream(table);
    table.read("dynamic", moment.dynamic);
    table.read("sensor_mode", moment.sensorMode);
    table.read("mode", moment.mode);
    table.read("operation", moment.operation);
    table.read("check_status", moment.checkStatus);
    moment.request = readRequest(table);
    moment.call = readCall(table);
    moment.properties = readProperties(table, "set");
    moment.motion = readMotion(table, seed);
    moment.thermal = readThermal(table);
    moment.faults = readFaults(table);
    table.read("clear_faults", moment.clearFaults);
    table.finish();
    if (table.size() == 1) table.fail("does nothing; for example: stream = \"off\"");
    return moment;
}

Scenario readScenario(TableReader table, uint64_t seed) {
    Scenario scenario;
    table.require("duration_s", "a scenario needs its length, for example duration_s = 10");
    scenario.title = table.text("title").value_or("");
    table.read("frame_rate", scenario.frameRateHz, {1, kMaxFrameRate});
    table.read("duration_s", scenario.durationS, {1 / scenario.frameRateHz, kMaxDurationS});
    table.takeText("module", [&](const std::string& name) {
        scenario.module = name;
        phone::moduleByName(name);
    });
    table.read("only_calls", scenario.onlyCalls);
    scenario.motion = readMotion(table, seed);
    scenario.properties = readProperties(table, "properties");
    scenario.faults = readFaults(table);
    for (TableReader& span : table.tables("span")) scenario.spans.push_back(readSpan(span, scenario));
    for (TableReader& at : table.tables("at")) {
        const std::vector<double> times = readTimes(at, scenario);
        Moment moment = readMoment(at, seed);
        for (const double timeS : times) {
            moment.atS = timeS;
            scenario.moments.push_back(moment);
        }
    }
    for (TableReader& expect : table.tables("expect")) {
        const std::vector<Expectation> read = readExpectations(expect, scenario.durationS);
        scenario.expectations.insert(scenario.expectations.end(), read.begin(), read.end());
    }
    table.finish();
    std::ranges::stable_sort(scenario.moments, {}, &Moment::atS);
    return scenario;
}

template <auto kField>
void into(ois_params& params, double value) {
    params.*kField = static_cast<std::remove_reference_t<decltype(params.*kField)>>(value);
}

}  // namespace

double Curve::at(double s) const {
    const auto next = std::ranges::upper_bound(mPoints, s, {}, &Point::first);
    if (next == mPoints.begin()) return next->second;
    const auto [fromS, from] = *(next - 1);
    if (next == mPoints.end()) return from;
    return from + (next->second - from) * (s - fromS) / (next->first - fromS);
}

const std::vector<SpanField>& spanFields() {
    static const std::vector<SpanField> fields{
        {"ois_mode_from_tag", 0, kUint8Max, true, 1, "nonzero: the request asks for stabilisation",
         into<&ois_params::ois_mode_from_tag>},
        {"video_mode", kInt32Min, kInt32Max, true, 0, "nonzero: video is recorded",
         into<&ois_params::video_mode>},
        {"engineer_mode", kInt32Min, kInt32Max, true, 0, "8: engineering request",
         into<&ois_params::engineer_mode>},
        {"engineer_operation", kInt32Min, kInt32Max, true, -1,
         "operation of an engineering request; -1: none", into<&ois_params::engineer_operation>},
        {"act_scene", kInt32Min, kInt32Max, true, 0, "scene code; 4, 12 and 14 allow angle-based active OIS",
         into<&ois_params::act_scene>},
        {"zoom_ratio", 0, kMaxZoom, false, 1, "zoom", into<&ois_params::zoom_ratio>},
        {"zoom_scale_en", kInt32Min, kInt32Max, true, 0, "nonzero: scale the zoom by the module's factor",
         into<&ois_params::zoom_scale_en>},
        {"extra_param", 0, kUint32Max, true, 0, "kept by modules with extra parameters",
         into<&ois_params::extra_param>},
        {"scenario", kInt32Min, kInt32Max, true, 0, "31: rule of mode 10; 29: stream changes are ignored",
         into<&ois_params::scenario>},
        {"sensor_dev", 0, kMaxSensorDev, true, 0,
         "sensor that the scenario code concerns; else the session's own", into<&ois_params::sensor_dev>},
        {"capture_en", kInt32Min, kInt32Max, true, 0, "1: still capture", into<&ois_params::capture_en>},
        {"capture_value", kInt32Min, kInt32Max, true, 0,
         "forwarded from 125000 on to a controller behind the hub", into<&ois_params::capture_value>},
        {"scenario_flag", kInt32Min, kInt32Max, true, 0, "with scenario 31, 0 allows mode 10",
         into<&ois_params::scenario_flag>},
        {"requests", 0, 1, true, 1, "0: no request with these frames", nullptr},
        {"focus_distance_mm", 1, kInt32Max, true, 0, "object distance, as the distance sensor has it",
         nullptr},
        {"focus_diopter", 0, kMaxDiopter, false, 0, "focus of the lens, 1/m; used rather than the distance",
         nullptr},
        {"af_position", 1, kInt32Max, true, 0, "position of the autofocus actuator", nullptr},
        {"temperature_c", kInt32Min, kInt32Max, false, 0, "what the camera's thermal sensor shows", nullptr},
    };
    return fields;
}

uint64_t Scenario::frames() const {
    return std::max<uint64_t>(1, static_cast<uint64_t>(std::llround(durationS * frameRateHz)));
}

double Scenario::frameTimeS(uint64_t frame) const {
    return static_cast<double>(frame) / frameRateHz;
}

std::optional<double> Scenario::value(const SpanField& field, double timeS) const {
    for (auto span = spans.rbegin(); span != spans.rend(); ++span) {
        if (timeS < span->fromS - kFrameSlackS || timeS >= span->toS - kFrameSlackS) continue;
        for (const auto& [stated, curve] : span->values) {
            if (stated != &field) continue;
            const double value = curve.at(timeS - span->fromS);
            return field.whole ? std::round(value) : value;
        }
    }
    return std::nullopt;
}

std::optional<double> Scenario::value(std::string_view fieldName, double timeS) const {
    const auto field = std::ranges::find(spanFields(), fieldName, &SpanField::name);
    if (field == spanFields().end()) throw std::logic_error(fmt::format("no span field {}", fieldName));
    return value(*field, timeS);
}

ois_params Scenario::requestAt(double timeS, int32_t sensorDev) const {
    ois_params params{};
    for (const SpanField& field : spanFields()) {
        if (field.store != nullptr) field.store(params, value(field, timeS).value_or(field.otherwise));
    }
    if (!value("sensor_dev", timeS)) params.sensor_dev = sensorDev;
    return params;
}

ois_params Scenario::requestOf(const Moment& moment, int32_t sensorDev) {
    ois_params params{};
    for (const SpanField& field : spanFields()) {
        if (field.store != nullptr) field.store(params, field.otherwise);
    }
    params.sensor_dev = sensorDev;
    for (const auto& [field, value] : *moment.request) field->store(params, value);
    return params;
}

bool Scenario::drivesStream() const {
    return onlyCalls ||
           std::ranges::any_of(moments, [](const Moment& moment) { return moment.stream.has_value(); });
}

bool Scenario::setsTemperature() const {
    const auto states = [](const auto& value) { return value.first->name == "temperature_c"; };
    return std::ranges::any_of(spans,
                               [&](const Span& span) { return std::ranges::any_of(span.values, states); }) ||
           std::ranges::any_of(moments, [](const Moment& moment) { return moment.thermal.has_value(); });
}

std::set<int32_t> Scenario::operations() const {
    std::set<int32_t> all;
    const auto addRequested = [&all](const ois_params& request) {
        const bool runsOne = request.engineer_mode == kEngineeringMode;
        if (runsOne && request.engineer_operation != kNoOperation) all.insert(request.engineer_operation);
    };
    for (const Moment& moment : moments) {
        if (moment.operation) all.insert(*moment.operation);
        if (moment.request) addRequested(requestOf(moment, 0));
    }
    for (uint64_t frame = 0; frame < frames(); ++frame) {
        const double timeS = frameTimeS(frame);
        if (onlyCalls || !value("engineer_mode", timeS) || value("requests", timeS) == 0) continue;
        addRequested(requestAt(timeS, 0));
    }
    return all;
}

Scenario parseScenario(std::string_view text, const std::string& source, uint64_t seed) {
    return asInput(
        "", [&] { return readScenario(TableReader(phone::parseToml(text, source), "", source), seed); });
}

std::vector<std::string> scenarioNames() {
    return namesIn(shippedScenarios(), &ShippedScenario::name);
}

Scenario scenarioByName(const std::string& nameOrFile, uint64_t seed) {
    for (const ShippedScenario& shipped : shippedScenarios()) {
        if (shipped.name != nameOrFile) continue;
        Scenario scenario = parseScenario(shipped.text, "built-in " + nameOrFile, seed);
        scenario.name = nameOrFile;
        return scenario;
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(nameOrFile, ignored)) {
        throw InputError("--scenario " + nameOrFile + ": is a folder; name a TOML file in it, or a scenario");
    }
    if (!std::filesystem::exists(nameOrFile, ignored)) {
        throw InputError("--scenario " + nameOrFile + ": no such file, and no such scenario" +
                         suggestion(nameOrFile, scenarioNames()));
    }
    const std::string text = asInput("--scenario: ", [&] { return phone::readTextFile(nameOrFile); });
    Scenario scenario = parseScenario(text, nameOrFile, seed);
    scenario.name = std::filesystem::path(nameOrFile).stem();
    return scenario;
}

}  // namespace oisctl

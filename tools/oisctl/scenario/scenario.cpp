#include "scenario/scenario.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>

#include <toml++/toml.h>

#include "base/errors.h"
#include "base/file_content.h"
#include "base/suggest.h"
#include "base/terminal.h"
#include "controllers/korva_chip.h"
#include "faults/faults.h"
#include "motion/motion.h"
#include "services/property_store.h"
#include "session/settings.h"

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

constexpr std::string_view kSpanTimes[] = {"from_s", "to_s", "frames"};
constexpr std::string_view kMomentKeys[] = {"s",      "stream",    "dynamic",      "sensor_mode",
                                            "mode",   "operation", "check_status", "set",
                                            "motion", "thermal",   "faults",       "clear_faults"};
constexpr std::string_view kTopKeys[] = {"title",  "frame_rate", "duration_s", "motion",
                                         "faults", "properties", "span",       "at"};

template <size_t kCount>
std::vector<std::string> names(const std::string_view (&keys)[kCount]) {
    return {std::begin(keys), std::end(keys)};
}

std::vector<std::string> spanNames() {
    std::vector<std::string> all = names(kSpanTimes);
    for (const SpanField& field : spanFields()) all.emplace_back(field.name);
    return all;
}

std::string plain(double value) {
    std::ostringstream text;
    text.precision(15);
    text << value;
    return text.str();
}

// Reads one scenario; every complaint names the line it is about.
class Reader {
  public:
    explicit Reader(std::string source) : mSource(std::move(source)) {}

    Scenario read(std::string_view text);

  private:
    [[noreturn]] void refuse(const toml::source_region& where, const std::string& what) const {
        throw InputError(mSource + ":" + std::to_string(where.begin.line) + ": " + what);
    }
    void expectKeys(const toml::table& table, const std::string& what,
                    const std::vector<std::string>& known) const;

    double numberIn(const toml::node& node, const std::string& what, double least, double greatest) const;
    int32_t int32In(const toml::node& node, const std::string& what) const;
    double valueIn(const toml::node& node, const SpanField& field) const;
    bool boolIn(const toml::node& node, const std::string& what) const;
    std::string textIn(const toml::node& node, const std::string& what) const;
    const toml::table& tableIn(const toml::node& node, const std::string& what) const;

    Curve readCurve(const toml::node& node, const SpanField& field, double spanS) const;
    Curve readPoints(const toml::array& array, const SpanField& field) const;
    Span readSpan(const toml::table& table, const Scenario& scenario) const;
    Moment readMoment(const toml::table& table, const Scenario& scenario) const;
    void readTop(const toml::table& table, Scenario& scenario) const;
    std::vector<std::pair<std::string, std::string>> readProperties(const toml::node& node) const;
    std::vector<std::string> readFaults(const toml::node& node) const;
    std::string readMotion(const toml::node& node) const;
    bool readStream(const toml::node& node) const;

    const std::string mSource;
};

void Reader::expectKeys(const toml::table& table, const std::string& what,
                        const std::vector<std::string>& known) const {
    for (const auto& [key, node] : table) {
        if (std::find(known.begin(), known.end(), key.str()) != known.end()) continue;
        refuse(key.source(),
               what + " has no field '" + std::string(key.str()) + "'" + suggestion(key.str(), known));
    }
}

double Reader::numberIn(const toml::node& node, const std::string& what, double least,
                        double greatest) const {
    const std::optional<double> value = node.value<double>();
    if (!value || (!node.is_integer() && !node.is_floating_point())) {
        refuse(node.source(), what + " takes a number from " + plain(least) + " to " + plain(greatest));
    }
    // Written so that NaN is refused too.
    if (!(*value >= least && *value <= greatest)) {
        refuse(node.source(),
               what + " is " + plain(*value) + "; it takes " + plain(least) + " to " + plain(greatest));
    }
    return *value;
}

int32_t Reader::int32In(const toml::node& node, const std::string& what) const {
    if (!node.is_integer()) refuse(node.source(), what + " takes a whole number");
    return static_cast<int32_t>(numberIn(node, what, kInt32Min, kInt32Max));
}

double Reader::valueIn(const toml::node& node, const SpanField& field) const {
    const std::string what = "'" + std::string(field.name) + "'";
    if (field.whole && node.is_boolean() && field.least <= 0 && field.greatest >= 1)
        return node.value_or(false) ? 1 : 0;
    const double value = numberIn(node, what, field.least, field.greatest);
    if (field.whole && value != std::floor(value)) {
        refuse(node.source(), what + " is " + plain(value) + "; it takes whole numbers");
    }
    return value;
}

bool Reader::boolIn(const toml::node& node, const std::string& what) const {
    if (!node.is_boolean()) refuse(node.source(), what + " takes true or false");
    return node.value_or(false);
}

std::string Reader::textIn(const toml::node& node, const std::string& what) const {
    if (!node.is_string()) refuse(node.source(), what + " takes a text in quotes");
    return node.value_or(std::string());
}

const toml::table& Reader::tableIn(const toml::node& node, const std::string& what) const {
    const toml::table* table = node.as_table();
    if (table == nullptr) refuse(node.source(), what);
    return *table;
}

Curve Reader::readPoints(const toml::array& array, const SpanField& field) const {
    const std::string what = "'" + std::string(field.name) + "'";
    std::vector<Curve::Point> points;
    for (const toml::node& node : array) {
        const toml::array* pair = node.as_array();
        if (pair == nullptr || pair->size() != 2)
            refuse(node.source(), what + ": a curve's points are [seconds, value]");
        const Curve::Point point{numberIn(*pair->get(0), what + " seconds", 0, kMaxDurationS),
                                 valueIn(*pair->get(1), field)};
        if (!points.empty() && point.s <= points.back().s) {
            refuse(node.source(), what + ": the seconds of a curve's points must ascend");
        }
        points.push_back(point);
    }
    if (points.empty()) refuse(array.source(), what + ": a curve needs at least one point [seconds, value]");
    return Curve(std::move(points));
}

Curve Reader::readCurve(const toml::node& node, const SpanField& field, double spanS) const {
    if (const toml::array* points = node.as_array()) return readPoints(*points, field);
    const toml::table* ramp = node.as_table();
    if (ramp == nullptr) return Curve(valueIn(node, field));
    const std::string what = "the ramp of '" + std::string(field.name) + "'";
    expectKeys(*ramp, what, {"from", "to"});
    const toml::node* from = ramp->get("from");
    const toml::node* to = ramp->get("to");
    if (from == nullptr || to == nullptr)
        refuse(ramp->source(), what + " needs both ends: { from = 1.0, to = 30.0 }");
    return Curve({{0, valueIn(*from, field)}, {spanS, valueIn(*to, field)}});
}

Span Reader::readSpan(const toml::table& table, const Scenario& scenario) const {
    expectKeys(table, "a span", spanNames());
    Span span;
    span.toS = scenario.durationS;
    if (const toml::node* node = table.get("from_s"))
        span.fromS = numberIn(*node, "'from_s'", 0, scenario.durationS);
    const toml::node* to = table.get("to_s");
    const toml::node* frames = table.get("frames");
    if (to != nullptr && frames != nullptr)
        refuse(frames->source(), "a span takes 'to_s' or 'frames', not both");
    if (to != nullptr) span.toS = numberIn(*to, "'to_s'", 0, scenario.durationS);
    if (frames != nullptr) {
        const double count = numberIn(*frames, "'frames'", 1, kMaxDurationS * kMaxFrameRate);
        span.toS = span.fromS + count / scenario.frameRateHz;
    }
    if (span.toS <= span.fromS) {
        refuse(table.source(),
               "the span ends at " + plain(span.toS) + " s, before it begins at " + plain(span.fromS) + " s");
    }
    for (const SpanField& field : spanFields()) {
        if (const toml::node* node = table.get(field.name)) {
            span.values.emplace_back(&field, readCurve(*node, field, span.toS - span.fromS));
        }
    }
    if (span.values.empty()) {
        refuse(table.source(),
               "the span states no value; for example: zoom_ratio = { from = 1.0, to = 30.0 }");
    }
    return span;
}

std::vector<std::pair<std::string, std::string>> Reader::readProperties(const toml::node& node) const {
    const toml::table& table =
        tableIn(node, "properties stand in a table: { \"vendor.debug.ois.dynamic\" = 3 }");
    std::vector<std::pair<std::string, std::string>> properties;
    phone::PropertyStore checker;
    for (const auto& [key, value] : table) {
        std::string text;
        if (value.is_integer()) text = std::to_string(value.value_or(int64_t{0}));
        if (value.is_boolean()) text = value.value_or(false) ? "1" : "0";
        if (value.is_string()) text = value.value_or(std::string());
        if (text.empty())
            refuse(value.source(),
                   "'" + std::string(key.str()) + "' takes a whole number, true, false or a text");
        const std::string name = wholePropertyName(key.str());
        try {
            checker.setKnown(name, text);
        } catch (const std::invalid_argument& error) {
            refuse(key.source(), error.what());
        }
        properties.emplace_back(name, text);
    }
    return properties;
}

std::vector<std::string> Reader::readFaults(const toml::node& node) const {
    const toml::array* array = node.as_array();
    if (array == nullptr) refuse(node.source(), "faults stand in a list: [\"SET_MODE@3:lost\"]");
    std::vector<std::string> faults;
    for (const toml::node& entry : *array) {
        const std::string text = textIn(entry, "a fault");
        try {
            static_cast<void>(phone::parseFault(text));
        } catch (const std::invalid_argument& error) {
            refuse(entry.source(), error.what());
        }
        faults.push_back(text);
    }
    return faults;
}

std::string Reader::readMotion(const toml::node& node) const {
    std::string text = textIn(node, "'motion'");
    try {
        static_cast<void>(phone::motionByName(text));
    } catch (const std::runtime_error& error) {
        refuse(node.source(), std::string("motion: ") + error.what());
    }
    return text;
}

bool Reader::readStream(const toml::node& node) const {
    if (node.is_boolean()) return node.value_or(false);
    const std::string text = node.value_or(std::string());
    if (text != "on" && text != "off") refuse(node.source(), "'stream' takes \"on\" or \"off\"");
    return text == "on";
}

Moment Reader::readMoment(const toml::table& table, const Scenario& scenario) const {
    expectKeys(table, "an 'at' entry", names(kMomentKeys));
    Moment moment;
    const toml::node* at = table.get("s");
    if (at == nullptr) refuse(table.source(), "an 'at' entry needs its moment: s = 1.5");
    moment.atS = numberIn(*at, "'s'", 0, scenario.durationS);
    if (table.size() == 1)
        refuse(table.source(), "the 'at' entry does nothing; it may do: " + joined(names(kMomentKeys)));
    if (const toml::node* node = table.get("stream")) moment.stream = readStream(*node);
    if (const toml::node* node = table.get("dynamic")) moment.dynamic = int32In(*node, "'dynamic'");
    if (const toml::node* node = table.get("sensor_mode"))
        moment.sensorMode = int32In(*node, "'sensor_mode'");
    if (const toml::node* node = table.get("mode")) moment.mode = int32In(*node, "'mode'");
    if (const toml::node* node = table.get("operation")) moment.operation = int32In(*node, "'operation'");
    if (const toml::node* node = table.get("check_status"))
        moment.checkStatus = boolIn(*node, "'check_status'");
    if (const toml::node* node = table.get("set")) moment.properties = readProperties(*node);
    if (const toml::node* node = table.get("motion")) moment.motion = readMotion(*node);
    if (const toml::node* node = table.get("thermal")) moment.thermal = textIn(*node, "'thermal'");
    if (const toml::node* node = table.get("faults")) moment.faults = readFaults(*node);
    if (const toml::node* node = table.get("clear_faults"))
        moment.clearFaults = boolIn(*node, "'clear_faults'");
    return moment;
}

void Reader::readTop(const toml::table& table, Scenario& scenario) const {
    expectKeys(table, "a scenario", names(kTopKeys));
    if (const toml::node* node = table.get("title")) scenario.title = textIn(*node, "'title'");
    if (const toml::node* node = table.get("frame_rate")) {
        scenario.frameRateHz = numberIn(*node, "'frame_rate'", 1, kMaxFrameRate);
    }
    const toml::node* duration = table.get("duration_s");
    if (duration == nullptr) refuse(table.source(), "a scenario needs its length: duration_s = 10");
    scenario.durationS = numberIn(*duration, "'duration_s'", 1 / scenario.frameRateHz, kMaxDurationS);
    if (const toml::node* node = table.get("motion")) scenario.motion = readMotion(*node);
    if (const toml::node* node = table.get("properties")) scenario.properties = readProperties(*node);
    if (const toml::node* node = table.get("faults")) scenario.faults = readFaults(*node);
}

Scenario Reader::read(std::string_view text) {
    toml::table table;
    try {
        table = toml::parse(text, mSource);
    } catch (const toml::parse_error& error) {
        refuse(error.source(), std::string(error.description()));
    }
    Scenario scenario;
    readTop(table, scenario);
    const auto eachIn = [&](const char* key, const auto& take) {
        const toml::node* node = table.get(key);
        if (node == nullptr) return;
        const std::string rule = std::string("'") + key + "' entries begin with [[" + key + "]]";
        const toml::array* array = node->as_array();
        if (array == nullptr) refuse(node->source(), rule);
        for (const toml::node& entry : *array) take(tableIn(entry, rule));
    };
    eachIn("span", [&](const toml::table& entry) { scenario.spans.push_back(readSpan(entry, scenario)); });
    eachIn("at", [&](const toml::table& entry) { scenario.moments.push_back(readMoment(entry, scenario)); });
    const auto earlier = [](const Moment& a, const Moment& b) { return a.atS < b.atS; };
    std::stable_sort(scenario.moments.begin(), scenario.moments.end(), earlier);
    return scenario;
}

std::string textOf(const std::string& file) {
    try {
        return phone::readTextFile(file);
    } catch (const std::runtime_error& error) {
        throw InputError(std::string("--scenario: ") + error.what());
    }
}

}  // namespace

double Curve::at(double s) const {
    if (s <= mPoints.front().s) return mPoints.front().value;
    for (size_t i = 1; i < mPoints.size(); ++i) {
        const Point& from = mPoints[i - 1];
        const Point& to = mPoints[i];
        if (s < to.s) return from.value + (to.value - from.value) * (s - from.s) / (to.s - from.s);
    }
    return mPoints.back().value;
}

const std::vector<SpanField>& spanFields() {
    static const std::vector<SpanField> fields{
        {"ois_mode_from_tag", 0, kUint8Max, true, 1, "nonzero: the request asks for stabilisation",
         [](ois_params& p, double v) { p.ois_mode_from_tag = static_cast<uint8_t>(v); }},
        {"video_mode", kInt32Min, kInt32Max, true, 0, "nonzero: video is recorded",
         [](ois_params& p, double v) { p.video_mode = static_cast<int32_t>(v); }},
        {"engineer_mode", kInt32Min, kInt32Max, true, 0, "8: engineering request",
         [](ois_params& p, double v) { p.engineer_mode = static_cast<int32_t>(v); }},
        {"engineer_operation", kInt32Min, kInt32Max, true, -1,
         "operation of an engineering request; -1: none",
         [](ois_params& p, double v) { p.engineer_operation = static_cast<int32_t>(v); }},
        {"act_scene", kInt32Min, kInt32Max, true, 0, "scene code; 4, 12 and 14 allow angle-based active OIS",
         [](ois_params& p, double v) { p.act_scene = static_cast<int32_t>(v); }},
        {"zoom_ratio", 0, kMaxZoom, false, 1, "zoom",
         [](ois_params& p, double v) { p.zoom_ratio = static_cast<float>(v); }},
        {"zoom_scale_en", kInt32Min, kInt32Max, true, 0, "nonzero: scale the zoom by the module's factor",
         [](ois_params& p, double v) { p.zoom_scale_en = static_cast<int32_t>(v); }},
        {"extra_param", 0, kUint32Max, true, 0, "kept by modules with extra parameters",
         [](ois_params& p, double v) { p.extra_param = static_cast<uint32_t>(v); }},
        {"scenario", kInt32Min, kInt32Max, true, 0, "31: rule of mode 10; 29: stream changes are ignored",
         [](ois_params& p, double v) { p.scenario = static_cast<int32_t>(v); }},
        {"sensor_dev", 0, kMaxSensorDev, true, 0,
         "sensor that the scenario code concerns; else the session's own",
         [](ois_params& p, double v) { p.sensor_dev = static_cast<int32_t>(v); }},
        {"capture_en", kInt32Min, kInt32Max, true, 0, "1: still capture",
         [](ois_params& p, double v) { p.capture_en = static_cast<int32_t>(v); }},
        {"capture_value", kInt32Min, kInt32Max, true, 0,
         "forwarded from 125000 on to a controller behind the hub",
         [](ois_params& p, double v) { p.capture_value = static_cast<int32_t>(v); }},
        {"scenario_flag", kInt32Min, kInt32Max, true, 0, "with scenario 31, 0 allows mode 10",
         [](ois_params& p, double v) { p.scenario_flag = static_cast<int32_t>(v); }},
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
    // Frame times are computed, span ends are typed: a frame on the border must not miss it by rounding.
    constexpr double kSlack = 1e-9;
    for (auto span = spans.rbegin(); span != spans.rend(); ++span) {
        if (timeS < span->fromS - kSlack || timeS >= span->toS - kSlack) continue;
        for (const auto& [stated, curve] : span->values) {
            if (stated != &field) continue;
            const double value = curve.at(timeS - span->fromS);
            return field.whole ? std::round(value) : value;
        }
    }
    return std::nullopt;
}

std::optional<double> Scenario::value(std::string_view fieldName, double timeS) const {
    const auto& fields = spanFields();
    const auto named = [fieldName](const SpanField& field) { return field.name == fieldName; };
    const auto field = std::find_if(fields.begin(), fields.end(), named);
    if (field == fields.end()) throw std::logic_error("no span field " + std::string(fieldName));
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

bool Scenario::drivesStream() const {
    const auto drives = [](const Moment& moment) { return moment.stream.has_value(); };
    return std::any_of(moments.begin(), moments.end(), drives);
}

bool Scenario::setsTemperature() const {
    const auto inSpan = [](const Span& span) {
        const auto named = [](const auto& value) { return value.first->name == "temperature_c"; };
        return std::any_of(span.values.begin(), span.values.end(), named);
    };
    const auto inMoment = [](const Moment& moment) { return moment.thermal.has_value(); };
    return std::any_of(spans.begin(), spans.end(), inSpan) ||
           std::any_of(moments.begin(), moments.end(), inMoment);
}

Scenario parseScenario(std::string_view text, const std::string& source) {
    return Reader(source).read(text);
}

std::vector<std::string> scenarioNames() {
    std::vector<std::string> names;
    for (const ShippedScenario& shipped : shippedScenarios()) names.emplace_back(shipped.name);
    return names;
}

Scenario scenarioByName(const std::string& nameOrFile) {
    for (const ShippedScenario& shipped : shippedScenarios()) {
        if (shipped.name != nameOrFile) continue;
        Scenario scenario = parseScenario(shipped.text, "built-in " + nameOrFile);
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
    Scenario scenario = parseScenario(textOf(nameOrFile), nameOrFile);
    scenario.name = std::filesystem::path(nameOrFile).stem();
    return scenario;
}

}  // namespace oisctl

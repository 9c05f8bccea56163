#pragma once
// Scenarios: timelines of what the camera's 3A layer asks of the driver, frame by frame.

#include <array>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ois_drv.h"

namespace oisctl {

// A value over time: linear between its points, held before the first and after the last. Seconds count from
// the span's start.
class Curve {
  public:
    struct Point {
        double s = 0;
        double value = 0;
    };

    explicit Curve(double constant) : mPoints{{0, constant}} {}
    explicit Curve(std::vector<Point> points) : mPoints(std::move(points)) {}
    double at(double s) const;

  private:
    std::vector<Point> mPoints;
};

// What a span may state.
struct SpanField {
    std::string_view name;
    double least;
    double greatest;
    bool whole;        // whole numbers only
    double otherwise;  // value where no span states one
    std::string_view meaning;
    void (*store)(ois_params& params, double value);  // null: not a field of ois_params
};
// Every field of ois_params that a request carries in, then pauses, focus, AF position and temperature.
const std::vector<SpanField>& spanFields();

struct Span {
    double fromS = 0;
    double toS = std::numeric_limits<double>::infinity();
    std::vector<std::pair<const SpanField*, Curve>> values;
};

// Something that happens once.
struct Moment {
    double atS = 0;
    std::optional<bool> stream;
    std::optional<int32_t> dynamic;     // EnableOis
    std::optional<int32_t> sensorMode;  // SetOisCfgData
    std::optional<int32_t> mode;        // SetMode
    std::optional<int32_t> operation;   // SetOperation
    bool checkStatus = false;           // CheckIcStatus
    std::vector<std::pair<std::string, std::string>> properties;
    std::optional<std::string> motion;   // name or file
    std::optional<std::string> thermal;  // "absent", "unreadable", or the file's text
    std::vector<std::string> faults;
    bool clearFaults = false;
};

struct Scenario {
    std::string name;
    std::string title;
    double frameRateHz = 30;
    double durationS = 0;
    std::optional<std::string> motion;
    std::vector<std::pair<std::string, std::string>> properties;  // set before the driver opens
    std::vector<std::string> faults;                              // the same
    std::vector<Span> spans;                                      // later ones win
    std::vector<Moment> moments;                                  // in order of time

    uint64_t frames() const;
    double frameTimeS(uint64_t frame) const;
    // The value of a field at a moment; empty where no span states one.
    std::optional<double> value(const SpanField& field, double timeS) const;
    std::optional<double> value(std::string_view fieldName, double timeS) const;
    // The request of that moment. `sensorDev` is what its field holds where no span states one.
    ois_params requestAt(double timeS, int32_t sensorDev) const;
    // Whether the timeline itself says when the camera streams; else it does from first to last frame.
    bool drivesStream() const;
    bool setsTemperature() const;
};

// Throws InputError "SOURCE:LINE: what is wrong; what would be right". Motions, properties and faults are
// checked too.
Scenario parseScenario(std::string_view text, const std::string& source);

struct ShippedScenario {
    std::string_view name;
    std::string_view text;
};
// In order of name.
const std::vector<ShippedScenario>& shippedScenarios();
std::vector<std::string> scenarioNames();
// A shipped scenario's name, else a file.
Scenario scenarioByName(const std::string& nameOrFile);

}  // namespace oisctl

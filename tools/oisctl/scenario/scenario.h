#pragma once
// Scenarios: timelines of what the camera's 3A layer asks of the driver, frame by frame.

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "faults/faults.h"
#include "motion/motion.h"
#include "ois_drv.h"
#include "scenario/expectation.h"
#include "services/property_store.h"

namespace oisctl {

// Frame times are computed, span ends are typed: a frame on the border must not miss it by rounding.
constexpr double kFrameSlackS = 1e-9;

// A value over time: linear between its points, held before the first and after the last. Seconds count from
// the span's start.
class Curve {
  public:
    using Point = std::pair<double, double>;  // seconds, value

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

// What the thermal sensor's file is like.
struct Thermal {
    enum class Kind { kHolds, kAbsent, kUnreadable };
    Kind kind = Kind::kHolds;
    std::string text;
};

// Something that happens once.
struct Moment {
    double atS = 0;
    std::optional<bool> stream;
    std::optional<int32_t> dynamic;                                           // EnableOis
    std::optional<int32_t> sensorMode;                                        // SetOisCfgData
    std::optional<int32_t> mode;                                              // SetMode
    std::optional<int32_t> operation;                                         // SetOperation
    bool checkStatus = false;                                                 // CheckIcStatus
    std::optional<std::vector<std::pair<const SpanField*, double>>> request;  // SetOisParams
    std::optional<phone::Event> call;                                         // any other, as traces have it
    std::vector<phone::Property> properties;
    std::shared_ptr<const phone::MotionSource> motion;  // or null
    std::optional<Thermal> thermal;
    std::vector<phone::Fault> faults;
    bool clearFaults = false;
};

struct Scenario {
    std::string name;
    std::string title;
    double frameRateHz = 30;
    double durationS = 0;
    std::string module;      // goes behind --module; empty: none is named
    bool onlyCalls = false;  // nothing is called but what the moments say, and times count from the opening
    std::shared_ptr<const phone::MotionSource> motion;  // or null
    std::vector<phone::Property> properties;            // set before the driver opens
    std::vector<phone::Fault> faults;                   // the same
    std::vector<Span> spans;                            // later ones win
    std::vector<Moment> moments;                        // in order of time
    std::vector<Expectation> expectations;

    uint64_t frames() const;
    double frameTimeS(uint64_t frame) const;
    // The value of a field at a moment; empty where no span states one.
    std::optional<double> value(const SpanField& field, double timeS) const;
    std::optional<double> value(std::string_view fieldName, double timeS) const;
    // The request of that moment. `sensorDev` is what its field holds where no span states one.
    ois_params requestAt(double timeS, int32_t sensorDev) const;
    // The request that a moment states.
    static ois_params requestOf(const Moment& moment, int32_t sensorDev);
    // Whether the timeline itself says when the camera streams; else it does from first to last frame.
    bool drivesStream() const;
    bool setsTemperature() const;
    // Those that it runs, by moments and by engineering requests; each once.
    std::set<int32_t> operations() const;
};

// Throws InputError "SOURCE:LINE: what is wrong; what would be right". `seed` is that of built-in motions.
Scenario parseScenario(std::string_view text, const std::string& source, uint64_t seed = 1);

struct ShippedScenario {
    std::string_view name;
    std::string_view text;
};
// In order of name.
const std::vector<ShippedScenario>& shippedScenarios();
std::vector<std::string> scenarioNames();
// A shipped scenario's name, else a file.
Scenario scenarioByName(const std::string& nameOrFile, uint64_t seed = 1);

}  // namespace oisctl

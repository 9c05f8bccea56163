#pragma once
// Faults: what goes wrong on the simulated phone, where, and when.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

// Where a fault may strike.
enum class FaultPoint {
    kRequest,          // private ioctl; key: request name ("SET_MODE")
    kHubCommand,       // hub record; key: command name ("WRITE_REGISTER")
    kOpen,             // open or fopen; key: path as the driver gave it. Lost: what is written to the file
    kMediaRequest,     // media ioctl; key: "DEVICE_INFO" or "ENUM_ENTITIES"
    kReadlink,         // readlink; key: path
    kClose,            // close or fclose; key: path
    kThreadCreate,     // key empty
    kThreadPriority,   // pthread_getschedparam; key empty
    kThreadSchedule,   // pthread_setschedparam; key empty
    kSensorProvider,   // createInstance; key empty
    kSensorEnable,     // enableSensor; key empty
    kSensorEnabled,    // isEnabled; key empty
    kSensorSamples,    // getAllSensorData; key empty
    kSensorDisable,    // disableSensor; key empty
    kProperty,         // property read; key: its name. A read that fails finds the property unset
    kCustomisation,    // GetOisDriverName; key empty. Failing, it knows of no OIS
    kTelemetry,        // getService; key empty
    kTelemetryReport,  // report; key empty
};

struct FaultEffect {
    enum class Kind {
        kFail,     // fails with `error` (where the call has an errno) and changes nothing
        kLost,     // never reaches its target; the caller sees success and unchanged data
        kSlow,     // takes `delayUs` more, then proceeds
        kGarbage,  // proceeds, and what comes back is overwritten with `bytes` (repeated to fill)
        kResult,   // proceeds, and returns `result`
    };
    Kind kind = Kind::kFail;
    int error = 5;  // EIO
    int64_t delayUs = 0;
    int64_t result = 0;
    std::vector<uint8_t> bytes{};
};

struct FaultRule {
    FaultPoint point = FaultPoint::kRequest;
    std::string key{};        // empty: any
    uint64_t occurrence = 0;  // the n-th match from 1 on; 0: every one
    FaultEffect effect{};
    std::string text{};  // how it was written, for trace and summary
};

// PLACE[.NAME][@N]:EFFECT
//   "SET_MODE:errno=EIO", "SET_MODE@3:lost", "hub.WRITE_REGISTER:slow=20ms", "READ_STATUS:garbage=ff00",
//   "open./dev/media1:errno=EACCES", "thread:errno=EAGAIN", "telemetry:fail".
// Places: request, hub, media, open, readlink, close, property (each with a name, or alone for any), thread,
// thread-priority, thread-schedule, sensor-provider, sensor-enable, sensor-enabled, sensor-samples,
// sensor-disable, customisation, telemetry, telemetry-report. A bare name is a request when it is one, else a
// hub command. Throws std::invalid_argument whose one line says what is wrong and what would be right.
FaultRule parseFault(std::string_view text);

class Faults {
  public:
    void add(FaultRule rule);
    void clear();

    // A test's own decision; consulted before the rules, and may decline with nullopt. `input` is the record
    // as the driver sent it: of a request's size, or the hub's 64 bytes. Called on the calling thread,
    // without a lock.
    using Override = std::function<std::optional<FaultEffect>(FaultPoint point, std::string_view key,
                                                              std::span<const uint8_t> input)>;
    void setOverride(Override decide);

    // The effect for this occurrence, if any, and the text to put into the trace. Takes no lock while there
    // are no rules.
    struct Strike {
        FaultEffect effect{};
        std::string text;
    };
    std::optional<Strike> strike(FaultPoint point, std::string_view key, std::span<const uint8_t> input = {});
    uint64_t strikes() const;                 // how often any took effect
    std::vector<std::string> unused() const;  // the rules that never did, as written

  private:
    struct Armed {
        FaultRule rule;
        uint64_t seen = 0;
        bool struck = false;
    };
    std::atomic<bool> mArmed{false};
    std::atomic<uint64_t> mStrikes{0};
    mutable std::mutex mMutex;
    Override mOverride;
    std::vector<Armed> mRules;
};

}  // namespace phone

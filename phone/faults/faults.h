#pragma once
// Faults: what goes wrong on the simulated phone, where, and when. All of them are in one table,
// faultPlaces(), and are written in one grammar:
//
//   PLACE[.NAME][=VALUE][@WHEN][:EFFECT]
//
// PLACE says where it strikes; NAME narrows it down to one request, property or path, and is left out for any
// of them; a request or hub command alone ("SET_MODE") stands for both ways to the controller. WHEN counts
// the times that the place was reached, from 1 on: "@3", "@2-5", "@after3" (from the fourth on), "@always".
// EFFECT says what happens there; the chip's and the lens's places have a name that says it all, and some a
// value:
//
//   "SET_MODE@3:errno=EIO", "hub.WRITE_REGISTER@2-5:slow=20ms", "READ_STATUS:garbage=ff00", "thread:fail",
//   "open./dev/media1:errno=EACCES", "chip.never-idle@2", "chip.power-cut=57", "lens.stuck-x".

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

class Clock;

// Stands for the name of a private request that no record stands for.
constexpr std::string_view kUnknownRequest = "UNKNOWN";
constexpr int64_t kMostMoved = 64;  // bytes that a fault lets a request move beyond its record, or leave out

// Where a fault may strike.
enum class FaultPoint {
    kCommand,          // a request or a hub command of that name, whichever way it goes
    kRequest,          // private ioctl; key: request name
    kHubCommand,       // hub record; key: command name
    kMediaRequest,     // media ioctl; key: "DEVICE_INFO", "ENUM_ENTITIES", ...
    kOpen,             // open or fopen; key: path as the driver gave it
    kReadlink,         // key: path
    kClose,            // close or fclose; key: path
    kThreadCreate,     // pthread_create
    kThreadPriority,   // pthread_getschedparam
    kThreadSchedule,   // pthread_setschedparam
    kSensorProvider,   // createInstance
    kSensorEnable,     // enableSensor
    kSensorEnabled,    // isEnabled
    kSensorSamples,    // getAllSensorData
    kSensorDisable,    // disableSensor
    kProperty,         // property read; key: its name
    kCustomisation,    // GetOisDriverName
    kTelemetry,        // getService
    kTelemetryReport,  // report
    kChip,             // of the chip behind the hub; key: what it does wrong
    kLens,             // a command that moves a lens; key: its defect
};

struct FaultEffect {
    enum class Kind {
        kFail,     // fails with `error` (where the call has an errno) and changes nothing
        kLost,     // never reaches its target; the caller sees success and unchanged data
        kSlow,     // takes `delayUs` more, then proceeds
        kGarbage,  // proceeds, and what comes back is overwritten with `bytes` (repeated to fill)
        kResult,   // proceeds, and returns `result`, whatever else went wrong
        kMoves,    // proceeds, but `result` bytes more than the record has travel, or fewer if negative
        kItself,   // what the place's name says, with `result` as its value
        kAnswer,   // nobody behind it is asked: `error`, or `result` and `bytes` as they stand, is the answer
    };
    Kind kind = Kind::kFail;
    int error = 5;  // EIO
    int64_t delayUs = 0;
    int64_t result = 0;
    std::vector<uint8_t> bytes{};
};

struct Fault {
    FaultPoint point = FaultPoint::kRequest;
    std::string key{};  // empty: any
    // Occurrences of the place at which it strikes, from 1 on.
    uint64_t first = 1;
    uint64_t last = std::numeric_limits<uint64_t>::max();
    // Only at this one of the place's objects, such as a block of a download.
    std::optional<int64_t> object{};
    FaultEffect effect{};
    std::string text{};  // as it was written
};

// A place that a fault may name.
struct FaultPlace {
    std::string_view name;  // "request", "chip.never-idle"; empty: a command's name alone
    FaultPoint point;
    std::string_view names;      // what a NAME behind it is: "REQUEST"; empty: none
    std::string value;           // what its VALUE is: "0..111"; empty: none
    std::string effects;         // what may stand behind the colon: "fail, errno=EIO"; empty: nothing
    std::string_view meaning;    // what fails there
    std::string_view arguments;  // of an oisctl run in which the fault among them strikes
};
const std::vector<FaultPlace>& faultPlaces();

// Throws std::invalid_argument whose one line says what is wrong and what would be right.
Fault parseFault(std::string_view text);

// What a fault, if any, makes of a call.
class Fate {
  public:
    Fate() = default;
    explicit Fate(std::shared_ptr<const Fault> fault) : mFault(std::move(fault)) {}

    explicit operator bool() const { return mFault != nullptr; }
    // Null for an answer: nothing went wrong there.
    std::shared_ptr<const Fault> fault() const { return answered() ? nullptr : mFault; }

    bool answered() const { return is(FaultEffect::Kind::kAnswer); }
    // Of an answer.
    std::span<const uint8_t> bytes() const { return mFault->effect.bytes; }
    bool fails() const { return is(FaultEffect::Kind::kFail) || (answered() && mFault->effect.error != 0); }
    int error() const { return fails() ? mFault->effect.error : 0; }
    bool lost() const { return is(FaultEffect::Kind::kLost); }
    // What stands for the call's own result.
    std::optional<int64_t> result() const;
    // How many bytes travel beyond those of the record.
    int64_t moves() const { return is(FaultEffect::Kind::kMoves) ? mFault->effect.result : 0; }
    // The value of a place whose name says what happens.
    int64_t value() const { return mFault->effect.result; }
    bool spoils() const {
        return (is(FaultEffect::Kind::kGarbage) || answered()) && !mFault->effect.bytes.empty();
    }
    // Overwrites what came back, if that is what the fault does.
    void spoil(std::span<std::byte> answer) const;

  private:
    bool is(FaultEffect::Kind kind) const { return mFault != nullptr && mFault->effect.kind == kind; }

    std::shared_ptr<const Fault> mFault;
};

// Thread-safe.
class Faults {
  public:
    explicit Faults(Clock& clock) : mClock(clock) {}

    void add(Fault fault);
    void add(std::string_view text) { add(parseFault(text)); }
    void clear();

    // A test's own decision on what the driver calls; consulted before the faults, and may decline with
    // nullopt. `input` is the record as the driver sent it: of a request's size, or the hub's 64 bytes.
    // Called on the calling thread, without a lock.
    using Override = std::function<std::optional<FaultEffect>(FaultPoint point, std::string_view key,
                                                              std::span<const uint8_t> input)>;
    void setOverride(Override decide);

    // What becomes of a call that has reached that place; one that is slowed down has waited when this
    // returns. Takes no lock while there are no faults.
    Fate consult(FaultPoint point, std::string_view key = {}, std::span<const std::byte> input = {});
    // The same of a place with several objects.
    Fate consult(FaultPoint point, std::string_view key, int64_t object);

    // How often each fault struck, in the order in which they were added, cleared ones included.
    struct Count {
        std::string text;
        uint64_t strikes = 0;
        uint64_t reached = 0;  // how often its place was
    };
    std::vector<Count> counts() const;
    uint64_t strikes() const;  // of all, and of the override

  private:
    struct Armed {
        std::shared_ptr<const Fault> fault;
        bool active = true;
        uint64_t reached = 0;
        uint64_t strikes = 0;
    };
    std::shared_ptr<const Fault> strike(FaultPoint point, std::string_view key, std::optional<int64_t> object,
                                        std::span<const std::byte> input);
    Fate fateOf(std::shared_ptr<const Fault> fault);

    Clock& mClock;
    std::atomic<bool> mArmed{false};
    std::atomic<uint64_t> mStrikes{0};
    mutable std::mutex mMutex;
    Override mOverride;
    std::vector<Armed> mFaults;
};

}  // namespace phone

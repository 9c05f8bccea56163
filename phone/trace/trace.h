#pragma once
// One ordered record of everything that passes between the driver and the phone.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/mutex.h"

namespace phone {

class Clock;
struct Fault;

enum class EventKind {
    kSubDevice,      // private ioctl on the OIS sub-device: code, sent, received
    kHub,            // record to the sensor hub: code (the command's id), phase, sent, received
    kMedia,          // media-graph ioctl: code, sent, received
    kFile,           // open, close, readlink, fopen, fclose; fields: path, flags or mode, ...
    kSleep,          // usleep; field: us
    kProperty,       // property read, named by its key; fields: type, default, value (else the result)
    kMessage,        // log line, named by its sink; fields: level ("error"), tag; text
    kThread,         // thread created, joined, rescheduled
    kSensor,         // sensor channel: create, enable, isEnabled, disable, drain, release
    kCustomisation,  // GetOisDriverName
    kTelemetry,      // report to the telemetry service
    kCall,           // public operation of the driver, as a tool or test called it; fields: its arguments
    kNote,           // remark of the phone itself, such as a fault that took effect; text
};
constexpr size_t kEventKinds = static_cast<size_t>(EventKind::kNote) + 1;
std::string_view name(EventKind kind);  // "sub-device", "hub", "media", ...
// Whether it is a command to the controller, or to the hub in front of it.
constexpr bool isCommand(EventKind kind) {
    return kind == EventKind::kSubDevice || kind == EventKind::kHub;
}

struct Field {
    std::string name;
    std::variant<int64_t, uint64_t, double, std::string> value;
    bool hex = false;  // integers are shown in hexadecimal
    // What the value stands for, if text shall say so; of static storage.
    std::string_view meaning = {};
};

// Where the hub stands when a record of id 17 reaches it: the first after the channel was enabled is INIT.
enum class HubPhase {
    kUnknown,  // told by the payload: all zero is BYPASS_DISABLE
    kBringUp,
    kRunning,
};

// What happened, as data. What a command's bytes mean is found when somebody asks (decode.h).
struct Event {
    EventKind kind = EventKind::kNote;
    // What it is: "usleep", a property's key, "SetMode"; empty for a request or hub command, whose code says
    // it.
    std::string name{};
    uint32_t code = 0;  // request, or hub command id
    HubPhase phase = HubPhase::kUnknown;
    // Of a request or hub command: the record as it went out, and as it came back; empty when nothing did. Of
    // a call, the record that an argument points to, before and after. What else was handed to the driver as
    // bytes came back, too: customisation blocks, motion samples, the content of a file.
    std::vector<uint8_t> sent{};
    std::vector<uint8_t> received{};
    // Of everything else.
    std::vector<Field> fields{};
    std::vector<Field> answer{};
    std::string text{};  // of a message or note
    std::optional<int64_t> result{};
    int error = 0;                         // errno of a failure, else 0
    std::shared_ptr<const Fault> fault{};  // the one that took effect, if any
    int64_t tookUs = 0;                    // of what is recorded at its end; 0: no time, or nobody looked
    // Set by Trace::record.
    uint64_t sequence = 0;
    int64_t timeUs = 0;
    uint32_t thread = 0;
};

// The field of that name among those that the event itself carries, what came back first; null when there is
// none.
const Field* findField(const Event& event, std::string_view name);
// Its text; empty when it is none.
std::string textIn(const Event& event, std::string_view name);

// Without anything that a terminal would take for more than text, on one line.
std::string printable(std::string_view text);
// A field's value as it stands in text: "16", "0x0558", "0.25".
std::string toText(const Field& field);
// "sub-device  SET_MODE(0x400456C2) mode=2 -> 0". `withHead` puts time and thread in front.
std::string toText(const Event& event, bool withHead = true);
// A call as it would be written: "SetMode(2 on)".
std::string callText(const Event& event);
// One JSON object, no newline. The bytes of a command stand beside what they mean, so that traceLineOfJson
// gets all of it back. Without `inTrace` it says nothing of when and where.
std::string toJson(const Event& event, bool inTrace = true);

// Raised when a key of a line changes its name or its meaning, or goes away.
constexpr int64_t kTraceFormat = 1;
// A trace in JSON begins with a line that says what it is: its format, and who recorded what (`about`).
std::string traceHead(const std::vector<Field>& about);
struct TraceHead {
    std::vector<Field> about;
};
// Throws std::invalid_argument that says what is missing or wrong, or that the format is newer than this one.
std::variant<TraceHead, Event> traceLineOfJson(std::string_view text);

class Trace {
  public:
    explicit Trace(Clock& clock);

    // Off: record() does nothing and takes no lock.
    void setEnabled(bool enabled);
    bool enabled() const { return mEnabled.load(std::memory_order_relaxed); }
    void record(Event event);

    // Called for each event in order, under the trace's lock: must not call back into the phone.
    using Listener = std::function<void(const Event&)>;
    void setListener(Listener listener);

    // A listener alone keeps memory flat over long sessions; on by default.
    void setKeep(bool keep);
    std::vector<Event> events() const;
    std::vector<Event> events(EventKind kind) const;
    uint64_t count() const;
    void clear();

  private:
    Clock& mClock;
    std::atomic<bool> mEnabled{true};
    mutable Mutex mMutex;
    Listener mListener;
    std::vector<Event> mEvents;
    uint64_t mCount = 0;
    bool mKeep = true;
};

}  // namespace phone

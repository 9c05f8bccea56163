#pragma once
// One ordered record of everything that passes between the driver and the phone.

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/mutex.h"

namespace phone {

class Clock;

enum class EventKind {
    kSubDevice,      // private ioctl on the OIS sub-device: decodeRequest (decode.h)
    kHub,            // record to the sensor hub: decodeHub
    kMedia,          // media-graph ioctl: decodeRequest
    kFile,           // open, close, readlink, fopen, fclose; fields: path, flags or mode, ...
    kSleep,          // usleep; field: us
    kProperty,       // property read, named by its key; fields: type, default, value (else the result)
    kMessage,        // log line, named by its sink; field: level ("error"); its text
    kThread,         // thread created, joined, rescheduled
    kSensor,         // sensor channel: create, enable, isEnabled, disable, drain, release
    kCustomisation,  // GetOisDriverName
    kTelemetry,      // report to the telemetry service
    kCall,           // public operation of the driver, as a tool or test called it
    kNote,           // remark of the phone itself, such as a fault that took effect
};
std::string_view name(EventKind kind);  // "sub-device", "hub", "media", ...

struct Field {
    std::string name;
    std::variant<int64_t, uint64_t, double, std::string> value;
    bool hex = false;  // integers are shown in hexadecimal
};

struct Event {
    EventKind kind = EventKind::kNote;
    std::string name;   // what it is: "SET_MODE", "WRITE_REGISTER", "usleep", a property's key
    uint32_t code = 0;  // request code or hub command id, where there is one
    // Of a command: the record as it went out, and as it came back unless it failed or was lost.
    std::vector<uint8_t> sent;
    std::vector<uint8_t> received;
    std::vector<Field> fields;  // the record, decoded
    std::vector<Field> answer;  // what came back, decoded
    std::string text;           // what stands for name and fields in toText, if not empty; a message's text
    bool hasResult = false;
    int64_t result = 0;
    int error = 0;      // errno of a failure, else 0
    std::string fault;  // the fault that took effect, else empty
    // Set by Trace::record.
    uint64_t sequence = 0;
    int64_t timeUs = 0;
    uint32_t thread = 0;
};

// A field's value as it stands in text: "16", "0x0558", "0.25".
std::string toText(const Field& field);
// The field of that name, in what came back or else in what was sent; null when neither has it.
const Field* findField(const Event& event, std::string_view name);

// "sub-device  SET_MODE(0x400456C2) mode=2 -> 0". `withHead` puts time and thread in front.
std::string toText(const Event& event, bool withHead = true);
// One JSON object, no newline.
std::string toJson(const Event& event);

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

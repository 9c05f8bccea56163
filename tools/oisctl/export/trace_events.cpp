#include "export/trace_events.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "session/calls.h"
#include "session/operations.h"
#include "session/register_access.h"
#include "trace/decode.h"
#include "wire/requests.h"

namespace oisctl {

using phone::Event;
using phone::EventKind;

namespace {

using Json = nlohmann::ordered_json;

bool isRequest(const Event& event) {
    return phone::isCommand(event.kind) || event.kind == EventKind::kMedia;
}

int64_t lastUs(const TraceFile& trace) {
    int64_t last = 0;
    for (const TracedEvent& traced : trace.events) last = std::max(last, traced.event.timeUs);
    return last;
}

uint64_t unsignedField(const Event& event, std::string_view name) {
    const phone::Field* const field = phone::findField(event, name);
    const auto* const value = field == nullptr ? nullptr : std::get_if<uint64_t>(&field->value);
    return value == nullptr ? 0 : *value;
}

class Slicer {
  public:
    explicit Slicer(const TraceFile& trace) : mTrace(trace) {}

    std::vector<Slice> slices() {
        for (const TracedEvent& traced : mTrace.events) take(traced);
        const int64_t endUs = lastUs(mTrace);
        for (const auto& [number, thread] : mThreads)
            for (const size_t call : thread.calls) mSlices[call].untilUs = std::max(endUs, thread.doneUs);
        return std::move(mSlices);
    }

  private:
    struct Thread {
        int64_t doneUs = std::numeric_limits<int64_t>::min();  // until then its time is given away
        std::vector<size_t> calls;                             // that are open, the innermost last
        std::optional<size_t> sleep;                           // nothing was seen of the thread since
    };

    void take(const TracedEvent& traced) {
        const Event& event = traced.event;
        Thread& thread = mThreads[event.thread];
        // Woken early, a thread did not sleep for as long as it was to.
        if (thread.sleep && event.timeUs < thread.doneUs) {
            Slice& sleep = mSlices[*thread.sleep];
            sleep.untilUs = thread.doneUs = std::max(event.timeUs, sleep.fromUs);
        }
        thread.sleep.reset();
        const int64_t nowUs = std::max(event.timeUs, thread.doneUs);
        if (event.kind == EventKind::kCall) {
            takeCall(traced, thread, nowUs);
        } else if (isRequest(event)) {
            add(traced, thread, std::max(nowUs - event.tookUs, thread.doneUs), nowUs);
        } else if (event.kind == EventKind::kSleep) {
            thread.sleep = mSlices.size();
            add(traced, thread, nowUs, nowUs + static_cast<int64_t>(unsignedField(event, "us")));
        }
    }

    void takeCall(const TracedEvent& traced, Thread& thread, int64_t nowUs) {
        if (!traced.event.result) {
            thread.calls.push_back(mSlices.size());
            add(traced, thread, nowUs, nowUs);
        } else if (!thread.calls.empty()) {
            Slice& call = mSlices[thread.calls.back()];
            call.traced = &traced;
            call.untilUs = thread.doneUs = nowUs;
            thread.calls.pop_back();
        }
    }

    void add(const TracedEvent& traced, Thread& thread, int64_t fromUs, int64_t untilUs) {
        mSlices.push_back({&traced, fromUs, untilUs});
        thread.doneUs = untilUs;
    }

    const TraceFile& mTrace;
    std::map<uint32_t, Thread> mThreads;
    std::vector<Slice> mSlices;
};

// The mode that a delivered command sets.
std::optional<std::string> modeSet(const Event& event) {
    if (!setsMode(event) || !wasDelivered(event)) return std::nullopt;
    if (const auto access = registerAccess(event))
        return access->value == ois::korva::kModeOn ? "on, by register" : "off, by register";
    const auto mode = static_cast<int32_t>(phone::integerField(phone::decode(event), "mode"));
    return fmt::format("{} {}", mode, modeMeaning(mode));
}

// Where slices are drawn. What happens at one microsecond, as nearly all does on a simulated clock, is set
// apart by nanoseconds: viewers that go by begin and end lose the order of slices without length.
class Layout {
  public:
    explicit Layout(const std::vector<Slice>& slices) {
        mDrawn.reserve(slices.size());
        for (const Slice& slice : slices) place(slice);
        for (auto& [number, track] : mTracks)
            while (!track.open.empty()) close(track);
    }
    double fromUs(size_t slice) const { return static_cast<double>(mDrawn[slice].fromNs) / kNsPerUs; }
    double lengthUs(size_t slice) const {
        return static_cast<double>(mDrawn[slice].untilNs - mDrawn[slice].fromNs) / kNsPerUs;
    }

  private:
    static constexpr int64_t kNsPerUs = 1000;
    struct Drawn {
        const Slice* slice;
        int64_t fromNs, untilNs;
    };
    struct Track {
        int64_t doneNs = std::numeric_limits<int64_t>::min();
        std::vector<size_t> open;
    };

    void place(const Slice& slice) {
        Track& track = mTracks[slice.traced->event.thread];
        while (!track.open.empty() && !holds(*mDrawn[track.open.back()].slice, slice)) close(track);
        const int64_t fromNs = std::max(slice.fromUs * kNsPerUs, track.doneNs);
        track.open.push_back(mDrawn.size());
        mDrawn.push_back({&slice, fromNs, fromNs});
        track.doneNs = fromNs + 1;
    }

    // A call that ended stands at its end, in the trace behind all that it holds.
    static bool holds(const Slice& outer, const Slice& inner) {
        const Event& event = outer.traced->event;
        return event.kind == EventKind::kCall && (!event.result || inner.traced->line < outer.traced->line);
    }

    void close(Track& track) {
        Drawn& drawn = mDrawn[track.open.back()];
        track.open.pop_back();
        drawn.untilNs = std::max(drawn.slice->untilUs * kNsPerUs, track.doneNs);
        track.doneNs = drawn.untilNs + 1;
    }

    std::map<uint32_t, Track> mTracks;
    std::vector<Drawn> mDrawn;
};

// --- JSON.

// Threads of a trace are numbered from 0.
constexpr uint32_t kModeTrack = 1'000'000;

class Writer {
  public:
    Writer(const TraceFile& trace, const std::function<void(std::string_view)>& put)
        : mTrace(trace), mPut(put) {
        for (const phone::Field& field : trace.about) {
            const auto* const number = std::get_if<uint64_t>(&field.value);
            if (field.name == "pid" && number != nullptr) mProcess = *number;
        }
    }

    void write() {
        Json about = Json::object();
        for (const phone::Field& field : mTrace.about) about[field.name] = toText(field);
        mPut(fmt::format("{{\"displayTimeUnit\":\"ms\",\"otherData\":{},\n\"traceEvents\":[", dumped(about)));
        nameTracks();
        std::set<const TracedEvent*> inSlices;
        const std::vector<Slice> slices = slicesOf(mTrace);
        const Layout layout(slices);
        for (size_t i = 0; i < slices.size(); ++i) {
            const TracedEvent& traced = *slices[i].traced;
            put(event("X", traced.event, layout.fromUs(i)),
                {{"dur", layout.lengthUs(i)}, {"args", arguments(traced)}});
            inSlices.insert(&traced);
        }
        for (const TracedEvent& traced : mTrace.events) {
            if (traced.event.kind == EventKind::kCall || inSlices.contains(&traced)) continue;
            put(event("i", traced.event, static_cast<double>(traced.event.timeUs)),
                {{"s", "t"}, {"args", arguments(traced)}});
        }
        for (const ModeSlice& mode : modesOf(mTrace)) {
            if (mode.untilUs == mode.fromUs) continue;  // nothing to draw
            Json json = item("X", mode.name, kModeTrack);
            json["cat"] = "mode";
            json["ts"] = mode.fromUs;
            put(std::move(json), {{"dur", mode.untilUs - mode.fromUs}});
        }
        mPut("\n]}\n");
    }

  private:
    static std::string dumped(const Json& json) {
        return json.dump(-1, ' ', false, Json::error_handler_t::replace);
    }

    Json item(const char* phase, std::string_view name, uint32_t thread) const {
        return {{"ph", phase}, {"name", name}, {"pid", mProcess}, {"tid", thread}};
    }

    Json event(const char* phase, const Event& event, double timeUs) const {
        const std::string name = phone::nameOf(event);
        Json json = item(phase, name.empty() ? phone::name(event.kind) : name, event.thread);
        json["cat"] = phone::name(event.kind);
        json["ts"] = timeUs;
        return json;
    }

    void put(Json json, const Json& further) {
        json.update(further);
        mPut(mFirst ? "\n" : ",\n");
        mPut(dumped(json));
        mFirst = false;
    }

    // What its line of the trace says beside when and where.
    static Json arguments(const TracedEvent& traced) {
        Json json = Json::parse(phone::toJson(traced.event, false));
        json.erase("kind");
        json.erase("name");
        json["line"] = traced.line;
        return json;
    }

    void name(const char* what, uint32_t thread, const std::string& name) {
        put(item("M", what, thread), {{"args", {{"name", name}}}});
    }

    void nameTracks() {
        std::set<uint32_t> threads, callers;
        std::map<uint32_t, std::string> openCall;
        std::map<uint64_t, std::string> startedBy;
        for (const auto& [line, event] : mTrace.events) {
            threads.insert(event.thread);
            if (event.kind == EventKind::kCall) callers.insert(event.thread);
            if (event.kind == EventKind::kCall) openCall[event.thread] = event.result ? "" : event.name;
            if (event.kind == EventKind::kThread && event.name == "pthread_create" && event.error == 0)
                startedBy[unsignedField(event, "thread")] = openCall[event.thread];
        }
        const auto program = std::ranges::find_if(mTrace.about, [](const phone::Field& field) {
            return field.name == "program" || field.name == "module";
        });
        name("process_name", 0, program == mTrace.about.end() ? "trace" : toText(*program));
        for (const uint32_t thread : threads) {
            const std::string& by = startedBy[thread];
            const std::string more = callers.contains(thread) ? ", calls the driver"
                                     : by.empty()             ? ""
                                                              : ", started by " + by;
            name("thread_name", thread, fmt::format("thread {}{}", thread, more));
        }
        name("thread_name", kModeTrack, "stabilisation mode");
    }

    const TraceFile& mTrace;
    const std::function<void(std::string_view)>& mPut;
    uint64_t mProcess = 1;
    bool mFirst = true;
};

}  // namespace

std::vector<Slice> slicesOf(const TraceFile& trace) {
    return Slicer(trace).slices();
}

std::vector<ModeSlice> modesOf(const TraceFile& trace) {
    std::vector<ModeSlice> modes;
    for (const auto& [line, event] : trace.events) {
        auto mode = modeSet(event);
        if (!mode) continue;
        if (!modes.empty()) modes.back().untilUs = event.timeUs;
        modes.push_back({std::move(*mode), event.timeUs, event.timeUs});
    }
    if (!modes.empty()) modes.back().untilUs = lastUs(trace);
    return modes;
}

void exportTraceEvents(const TraceFile& trace, const std::function<void(std::string_view)>& put) {
    Writer(trace, put).write();
}

}  // namespace oisctl

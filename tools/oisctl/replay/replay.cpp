#include "replay/replay.h"

#include <fmt/core.h>

#include <algorithm>

#include "base/errors.h"
#include "replay/driver_calls.h"
#include "session/driver_session.h"
#include "trace/decode.h"

namespace oisctl {

using phone::EventKind;

namespace {

// Not every recorder has these; what there is of the others, there is in every trace.
constexpr EventKind kOptionalKinds[] = {EventKind::kMessage, EventKind::kTelemetry,
                                        EventKind::kSleep,   EventKind::kProperty,
                                        EventKind::kSensor,  EventKind::kCustomisation};

// Beginnings of calls; the event that ends one has a result.
std::vector<const TracedEvent*> callsIn(const TraceFile& trace) {
    std::vector<const TracedEvent*> calls;
    for (const TracedEvent& traced : trace.events)
        if (traced.event.kind == EventKind::kCall && !traced.event.result) calls.push_back(&traced);
    if (calls.empty()) {
        throw InputError(trace.path.string() +
                         ": holds no call of the driver; a replay needs them: capture a program that uses "
                         "libois_drv.so, or write the trace with oisctl");
    }
    return calls;
}

std::set<EventKind> kindsNotIn(const TraceFile& trace) {
    std::set<EventKind> kinds(std::begin(kOptionalKinds), std::end(kOptionalKinds));
    for (const TracedEvent& traced : trace.events) kinds.erase(traced.event.kind);
    return kinds;
}

int32_t sensorOf(const TraceFile& trace) {
    const auto sensor = std::ranges::find(trace.about, "sensor", &phone::Field::name);
    if (sensor != trace.about.end())
        return static_cast<int32_t>(phone::integerField({.fields = trace.about}, "sensor"));
    for (const TracedEvent& traced : trace.events) {
        if (traced.event.kind == EventKind::kCustomisation)
            return static_cast<int32_t>(phone::integerField({.fields = traced.event.fields}, "sensor_dev"));
    }
    return 0;
}

void makeCalls(phone::Phone& phone, OISDrv& driver, const TraceFile& trace) {
    const std::vector<const TracedEvent*> calls = callsIn(trace);
    const int64_t startUs = calls.front()->event.timeUs;
    for (const TracedEvent* traced : calls) {
        phone.clock().sleepUntilUs(traced->event.timeUs - startUs);
        phone::Event event = traced->event;
        phone.trace().record(event);
        try {
            makeCall(driver, event);
        } catch (const InputError& error) {
            joinWorkers(driver);
            throw InputError(fmt::format("{}:{}: {}", trace.path.string(), traced->line, error.what()));
        }
        phone.trace().record(event);
    }
    joinWorkers(driver);
}

}  // namespace

Replay replay(const TraceFile& trace, const std::set<std::string>& polled) {
    Replay replay;
    replay.done.path = "replay";
    callsIn(trace);
    const int32_t sensorDev = sensorOf(trace);
    phone::Phone phone;
    OISDrv* driver = OISDrv::GetInstance(sensorDev);
    if (driver == nullptr) {
        throw InputError(
            fmt::format("{}:1: is of sensor {}; it may be 0 to 7", trace.path.string(), sensorDev));
    }
    phone.trace().setKeep(false);
    phone.trace().setListener([&replay](const phone::Event& event) {
        replay.done.events.push_back({replay.done.events.size() + 1, event});
    });
    {
        const RecordedAnswers answers(phone, trace, sensorDev, polled);
        makeCalls(phone, *driver, trace);
        replay.unanswered = answers.unanswered();
    }
    phone.trace().setListener(nullptr);
    numberThreads(replay.done);

    replay.notRecorded = kindsNotIn(trace);
    Aside& aside = replay.aside;
    aside = {.kinds = replay.notRecorded, .commands = polled};
    // Who waits for a thread, and how it is scheduled, is the program's affair as well as the driver's.
    aside.kinds.insert({EventKind::kThread, EventKind::kNote});
    if (!polled.empty()) aside.kinds.insert({EventKind::kSleep, EventKind::kMessage});
    replay.compared = compareTraces(trace, replay.done, aside);
    return replay;
}

}  // namespace oisctl

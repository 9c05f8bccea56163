#include "replay/replay.h"

#include <fmt/core.h>

#include <algorithm>
#include <map>

#include "base/errors.h"
#include "replay/driver_calls.h"
#include "session/driver_session.h"
#include "trace/decode.h"

namespace oisctl {

using phone::EventKind;

namespace {

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

// Of the threads, those that call the driver and those that it started; the others are the program's own.
// Whichever thread makes the calls, here one does.
TraceFile ofDriver(const TraceFile& trace) {
    TraceFile own{trace.path, trace.about, {}, trace.cut};
    std::set<uint32_t> callers, started;
    std::map<uint32_t, size_t> open;  // by thread: the line of a call that has not ended
    for (const auto& [line, event] : trace.events) {
        if (event.kind == EventKind::kThread && event.name == "pthread_create" &&
            findField(event, "thread") != nullptr)
            started.insert(static_cast<uint32_t>(phone::integerField({.fields = event.fields}, "thread")));
        if (event.kind != EventKind::kCall) continue;
        callers.insert(event.thread);
        if (event.result) {
            open.erase(event.thread);
        } else if (!open.empty() && !open.contains(event.thread)) {
            throw InputError(fmt::format(
                "{}:{}: a call begins while another thread's, of line {}, goes on; a replay makes "
                "one after the other",
                trace.path.string(), line, open.begin()->second));
        } else {
            open[event.thread] = line;
        }
    }
    for (TracedEvent traced : trace.events) {
        uint32_t& thread = traced.event.thread;
        const bool calls = callers.contains(thread);
        if (!calls && !started.contains(thread)) continue;
        if (calls) thread = *callers.begin();
        own.events.push_back(std::move(traced));
    }
    numberThreads(own);
    return own;
}

// The driver of the sensor that the call is of.
OISDrv& driverOf(const phone::Event& call) {
    const auto sensor = static_cast<int32_t>(phone::integerField({.fields = call.fields}, "sensor"));
    OISDrv* const driver = OISDrv::GetInstance(sensor);
    if (driver == nullptr)
        throw InputError(fmt::format("{}: of sensor {}; it may be 0 to 7", call.name, sensor));
    return *driver;
}

// As at the time of the recording, the driver's threads are as far as they were when the call was made; not
// waited for without end, for they may do otherwise now.
void awaitThreads(phone::Phone& phone, const RecordedAnswers& answers, size_t line) {
    constexpr int64_t kLongestStepUs = 1000;
    constexpr int64_t kLimitUs = 10'000'000;
    const int64_t endUs = phone.clock().nowUs() + kLimitUs;
    for (int64_t stepUs = 1; !answers.allGivenBefore(line) && phone.clock().nowUs() < endUs;
         stepUs = std::min(2 * stepUs, kLongestStepUs))
        phone.clock().sleepUs(stepUs);
}

void makeCalls(phone::Phone& phone, const TraceFile& trace, const RecordedAnswers& answers) {
    const std::vector<const TracedEvent*> calls = callsIn(trace);
    const int64_t startUs = calls.front()->event.timeUs;
    std::set<OISDrv*> drivers;
    const auto join = [&drivers] {
        for (OISDrv* driver : drivers) joinWorkers(*driver);
    };
    for (const TracedEvent* traced : calls) {
        // In front of what a thread of the driver's does at that very moment, unless it stands before the
        // call.
        phone.clock().sleepUntilUs(traced->event.timeUs - startUs - 1);
        awaitThreads(phone, answers, traced->line);
        phone::Event event = traced->event;
        phone.trace().record(event);
        try {
            OISDrv& driver = driverOf(event);
            drivers.insert(&driver);
            makeCall(driver, event);
        } catch (const InputError& error) {
            join();
            throw InputError(fmt::format("{}:{}: {}", trace.path.string(), traced->line, error.what()));
        }
        phone.trace().record(event);
    }
    join();
}

}  // namespace

Replay replay(const TraceFile& recorded, const std::set<std::string>& polled) {
    Replay replay{.trace = ofDriver(recorded)};
    const TraceFile& trace = replay.trace;
    replay.done.path = "replay";
    callsIn(recorded);
    phone::Phone phone;
    phone.trace().setKeep(false);
    phone.trace().setListener([&replay](const phone::Event& event) {
        replay.done.events.push_back({replay.done.events.size() + 1, event});
    });
    {
        const RecordedAnswers answers(phone, trace, polled);
        makeCalls(phone, trace, answers);
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

#include "replay/recorded_answers.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/errors.h"
#include "trace/decode.h"

namespace oisctl {

using phone::Event;
using phone::EventKind;
using phone::FaultEffect;
using phone::FaultPoint;

namespace {

int64_t numberIn(const Event& event, std::string_view name) {
    return phone::integerField({.fields = event.fields, .answer = event.answer}, name);
}

// What a request or a record to the hub is called where faults strike.
std::string commandName(const Event& event) {
    if (event.kind == EventKind::kHub) {
        const auto* info = phone::hubCommand(phone::recordOf<ois::OisCustomCmd>(event.sent), event.phase);
        return info == nullptr ? std::string() : std::string(info->name);
    }
    const phone::RequestInfo* info = phone::findRequest(event.code);
    return std::string(info == nullptr ? phone::kUnknownRequest : info->name);
}

constexpr size_t kAddressSize = sizeof(uint64_t);
bool sameAddress(const Event& event) {
    return event.kind == EventKind::kSubDevice && event.code == ois::code(ois::Request::kReadFlash) &&
           event.received.size() >= kAddressSize &&
           phone::recordOf<uint64_t>(event.received) == phone::recordOf<uint64_t>(event.sent);
}

FaultEffect failure(int error) {
    return {.kind = FaultEffect::Kind::kAnswer, .error = error};
}

}  // namespace

std::optional<Asked> askedBy(const Event& event) {
    static const std::map<std::string_view, FaultPoint> kByName{
        {"open", FaultPoint::kOpen},
        {"fopen", FaultPoint::kOpen},
        {"close", FaultPoint::kClose},
        {"fclose", FaultPoint::kClose},
        {"readlink", FaultPoint::kReadlink},
        {"createInstance", FaultPoint::kSensorProvider},
        {"enableSensor", FaultPoint::kSensorEnable},
        {"isEnabled", FaultPoint::kSensorEnabled},
        {"disableSensor", FaultPoint::kSensorDisable},
        {"getAllSensorData", FaultPoint::kSensorSamples},
        {"getService", FaultPoint::kTelemetry},
        {"report", FaultPoint::kTelemetryReport},
        {"GetOisDriverName", FaultPoint::kCustomisation},
        {"pthread_create", FaultPoint::kThreadCreate},
        {"pthread_getschedparam", FaultPoint::kThreadPriority},
        {"pthread_setschedparam", FaultPoint::kThreadSchedule},
    };
    switch (event.kind) {
        case EventKind::kSubDevice:
            return {{FaultPoint::kRequest, commandName(event)}};
        case EventKind::kMedia:
            return {{FaultPoint::kMediaRequest, commandName(event)}};
        case EventKind::kHub:
            return {{FaultPoint::kHubCommand, commandName(event)}};
        case EventKind::kProperty:
            return {{FaultPoint::kProperty, event.name}};
        case EventKind::kFile:
        case EventKind::kSensor:
        case EventKind::kCustomisation:
        case EventKind::kTelemetry:
        case EventKind::kThread: {
            const auto found = kByName.find(event.name);
            if (found == kByName.end()) return std::nullopt;
            return {{found->second, textIn(event, "path")}};
        }
        default:
            return std::nullopt;
    }
}

std::string_view placeName(FaultPoint point) {
    for (const phone::FaultPlace& place : phone::faultPlaces())
        if (place.point == point) return place.name;
    return "call";
}

RecordedAnswers::RecordedAnswers(phone::Phone& phone, const TraceFile& trace,
                                 const std::set<std::string>& polled)
    : mPhone(phone), mPolled(polled) {
    constexpr size_t kCustomisationSize =
        sizeof phone::ModuleDescription::custInfo + sizeof phone::ModuleDescription::otpAddresses;
    for (const TracedEvent& traced : trace.events) {
        const phone::Event& event = traced.event;
        if (event.kind == EventKind::kCustomisation && event.result == 1 &&
            event.received.size() < kCustomisationSize) {
            throw InputError(fmt::format(
                "{}:{}: {}: the trace has {} bytes of the customisation, not {}; an earlier version wrote it",
                trace.path.string(), traced.line, event.name, event.received.size(), kCustomisationSize));
        }
        const auto place = askedBy(traced.event);
        if (!place) continue;
        mQueues[{traced.event.thread, place->point, place->key}].events.push_back(&traced);
        mRecorded.insert(place->point);
    }
    mPhone.faults().setOverride([this](FaultPoint point, std::string_view key,
                                       std::span<const uint8_t> sent) { return answer(point, key, sent); });
}

RecordedAnswers::~RecordedAnswers() {
    mPhone.faults().setOverride(nullptr);
}

bool RecordedAnswers::allGivenBefore(size_t line) const {
    const std::lock_guard lock(mMutex);
    return std::ranges::all_of(mQueues, [line](const auto& entry) {
        const auto& [place, queue] = entry;
        return std::get<uint32_t>(place) == 0 || queue.next == queue.events.size() ||
               queue.events[queue.next]->line >= line;
    });
}

std::optional<Unanswered> RecordedAnswers::unanswered() const {
    const std::lock_guard lock(mMutex);
    return mUnanswered;
}

const Event* RecordedAnswers::take(const Place& place) {
    const std::lock_guard lock(mMutex);
    Queue& queue = mQueues[place];
    if (queue.next < queue.events.size()) return &queue.events[queue.next++]->event;
    const auto& [thread, point, name] = place;
    if (!queue.events.empty() && mPolled.contains(name)) return &queue.events.back()->event;
    if (!mUnanswered) mUnanswered = {thread, fmt::format("{} {}", placeName(point), name)};
    return nullptr;
}

std::optional<FaultEffect> RecordedAnswers::answer(FaultPoint point, std::string_view key,
                                                   std::span<const uint8_t> sent) {
    // What the recorder did not look at is as the phone has it.
    if (!mRecorded.contains(point)) return std::nullopt;
    const Event* event = take({mPhone.clock().threadNumber(), point, std::string(key)});
    if (event == nullptr) return failure(ENODATA);
    if (event->error != 0) return failure(event->error);
    std::optional<FaultEffect> effect = prepare(point, *event);
    // A flash record that came back with its address comes back with that of now.
    if (effect && sameAddress(*event))
        std::copy_n(sent.begin(), std::min(sent.size(), kAddressSize), effect->bytes.begin());
    return effect;
}

// Some questions the phone answers itself, once it has been told what to answer.
std::optional<FaultEffect> RecordedAnswers::prepare(FaultPoint point, const Event& event) {
    switch (point) {
        case FaultPoint::kCustomisation:
            fitModule(event);
            return std::nullopt;
        case FaultPoint::kSensorSamples: {
            std::vector<NSCam::Utils::SensorData> samples(event.received.size() /
                                                          sizeof(NSCam::Utils::SensorData));
            if (!samples.empty())
                std::memcpy(samples.data(), event.received.data(), samples.size() * sizeof samples[0]);
            mPhone.hub().setNextSamples(std::move(samples));
            return event.result == 0 ? std::optional(failure(EIO)) : std::nullopt;
        }
        case FaultPoint::kSensorProvider:
        case FaultPoint::kSensorEnable:
        case FaultPoint::kSensorEnabled:
        case FaultPoint::kTelemetry:
            return event.result == 0 ? std::optional(failure(EIO)) : std::nullopt;
        case FaultPoint::kOpen:
            if (event.name != "fopen") break;
            if (!event.received.empty())
                mPhone.files().setThermal({event.received.begin(), event.received.end()});
            return std::nullopt;
        case FaultPoint::kClose:
        case FaultPoint::kThreadCreate:
        case FaultPoint::kThreadPriority:
        case FaultPoint::kThreadSchedule:
            return std::nullopt;
        default:
            break;
    }
    return answerOf(point, event);
}

FaultEffect RecordedAnswers::answerOf(FaultPoint point, const Event& event) {
    FaultEffect effect{.kind = FaultEffect::Kind::kAnswer, .error = 0, .result = event.result.value_or(0)};
    effect.bytes = event.received;
    if (point == FaultPoint::kReadlink || point == FaultPoint::kProperty) {
        const std::string text = textIn(event, point == FaultPoint::kReadlink ? "target" : "value");
        effect.bytes.assign(text.begin(), text.end());
    }
    return effect;
}

void RecordedAnswers::fitModule(const Event& event) {
    phone::ModuleDescription module;
    module.name = "recorded";
    module.hasOis = event.result == 1;
    module.status = static_cast<int32_t>(numberIn(event, "status"));
    module.driverName = textIn(event, "driver_name");
    std::span<const uint8_t> rest(event.received);
    const auto fill = [&rest](auto& block) {
        const std::span<const uint8_t> part = rest.first(std::min(sizeof block, rest.size()));
        std::ranges::copy(part, reinterpret_cast<uint8_t*>(&block));
        rest = rest.subspan(part.size());
    };
    fill(module.custInfo);
    fill(module.otpAddresses);
    mPhone.fit(static_cast<int32_t>(numberIn(event, "sensor_dev")), module);
}

}  // namespace oisctl

#include "trace/trace.h"

#include <algorithm>
#include <array>
#include <utility>

#include "time/clock.h"

namespace phone {

std::string_view name(EventKind kind) {
    constexpr std::array<std::string_view, kEventKinds> kNames{
        "sub-device", "hub",    "media",         "file",      "sleep", "property", "message",
        "thread",     "sensor", "customisation", "telemetry", "call",  "note"};
    static_assert(!kNames.back().empty());
    return kNames.at(static_cast<size_t>(kind));
}

const Field* findField(const Event& event, std::string_view name) {
    for (const std::vector<Field>* fields : {&event.answer, &event.fields}) {
        const auto found = std::ranges::find(*fields, name, &Field::name);
        if (found != fields->end()) return &*found;
    }
    return nullptr;
}

std::string textIn(const Event& event, std::string_view name) {
    const Field* field = findField(event, name);
    const auto* text = field == nullptr ? nullptr : std::get_if<std::string>(&field->value);
    return text == nullptr ? std::string() : *text;
}

Trace::Trace(Clock& clock) : mClock(clock) {}

void Trace::setEnabled(bool enabled) {
    mEnabled.store(enabled, std::memory_order_relaxed);
}

void Trace::record(Event event) {
    if (!enabled()) return;
    event.thread = mClock.threadNumber();
    const std::lock_guard lock(mMutex);
    event.timeUs = mClock.nowUs();
    event.sequence = ++mCount;
    if (mListener) mListener(event);
    if (mKeep) mEvents.push_back(std::move(event));
}

void Trace::setListener(Listener listener) {
    const std::lock_guard lock(mMutex);
    mListener = std::move(listener);
}

void Trace::setKeep(bool keep) {
    const std::lock_guard lock(mMutex);
    mKeep = keep;
}

std::vector<Event> Trace::events() const {
    const std::lock_guard lock(mMutex);
    return mEvents;
}

std::vector<Event> Trace::events(EventKind kind) const {
    const std::lock_guard lock(mMutex);
    std::vector<Event> chosen;
    std::copy_if(mEvents.begin(), mEvents.end(), std::back_inserter(chosen),
                 [kind](const Event& event) { return event.kind == kind; });
    return chosen;
}

uint64_t Trace::count() const {
    const std::lock_guard lock(mMutex);
    return mCount;
}

void Trace::clear() {
    const std::lock_guard lock(mMutex);
    mEvents.clear();
    mCount = 0;
}

}  // namespace phone

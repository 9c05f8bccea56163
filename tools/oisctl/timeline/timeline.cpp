#include "timeline/timeline.h"

#include <algorithm>
#include <array>
#include <utility>

#include "session/calls.h"
#include "session/request_fields.h"
#include "trace/decode.h"

namespace oisctl {

using phone::Event;
using phone::EventKind;

namespace {

constexpr std::string_view kRequest = "SetOisParams";
// What 3A calls with every frame: what was sent may differ within a stretch of them.
constexpr std::array<std::string_view, 3> kOfEveryFrame{kRequest, "SetAccParam", "SetOisAFdriftParams"};
constexpr size_t kLongestPattern = 12;
constexpr uint64_t kFewestRepeats = 3;

bool hasFailed(const Event& event) {
    return event.error != 0 || event.fault != nullptr || event.result.value_or(0) < 0;
}

// Reading, looking for the device and what a thread says of itself are no steps unless they fail.
bool isStep(const Event& event) {
    switch (event.kind) {
        case EventKind::kSubDevice:
        case EventKind::kHub:
        case EventKind::kSleep:
        case EventKind::kSensor:
        case EventKind::kTelemetry:
        case EventKind::kNote:
            return true;
        case EventKind::kThread:
            return event.name == "pthread_create" || hasFailed(event);
        case EventKind::kMedia:
        case EventKind::kFile:
            return hasFailed(event);
        case EventKind::kProperty:
        case EventKind::kMessage:
        case EventKind::kCustomisation:
        case EventKind::kCall:
            return false;
    }
    return false;
}

bool sameShape(const Event& a, const Event& b) {
    return a.kind == b.kind && a.code == b.code && a.name == b.name && a.phase == b.phase &&
           a.error == b.error && hasFailed(a) == hasFailed(b);
}

bool sameShape(const Step& a, const Step& b, bool sameBytes) {
    return a.times == b.times &&
           std::ranges::equal(a.events, b.events, [sameBytes](const Event& x, const Event& y) {
               return sameShape(x, y) && (!sameBytes || x.sent == y.sent);
           });
}

bool isOfEveryFrame(const Event& call) {
    return std::ranges::find(kOfEveryFrame, call.name) != kOfEveryFrame.end();
}

// Of calls of that shape, one in a row is like the other.
bool sameShape(const Episode& a, const Episode& b) {
    const auto what = [](const Episode& episode) {
        std::vector<std::string_view> names;
        for (const Change& change : episode.changes) names.push_back(change.what);
        return names;
    };
    if (!a.call || !b.call || a.thread != b.thread) return false;
    if (a.sentNothing() && b.sentNothing()) return true;
    return a.call->name == b.call->name && a.result == b.result && what(a) == what(b) &&
           std::ranges::equal(a.steps, b.steps, [&a](const Step& x, const Step& y) {
               return sameShape(x, y, !isOfEveryFrame(*a.call));
           });
}

// --- Folding.

// How often the `length` steps at `begin` come one after the other.
uint64_t repeats(const std::vector<Event>& events, size_t begin, size_t length) {
    size_t at = begin + length;
    while (at < events.size() && sameShape(events[at], events[begin + (at - begin) % length])) ++at;
    return (at - begin) / length;
}

Step stepAt(const std::vector<Event>& events, size_t begin, size_t length, uint64_t times) {
    Step step{.times = times};
    const size_t end = begin + length * times;
    for (size_t at = begin; at < end; ++at) {
        const size_t inFirst = at - begin;
        if (inFirst < length) {
            step.events.push_back(events[at]);
        } else if (events[at].sent != step.events[inFirst % length].sent) {
            step.alike = false;
        }
    }
    step.untilUs = events[end - 1].timeUs;
    return step;
}

std::vector<Step> stepsOf(const std::vector<Event>& events, bool fold) {
    std::vector<Step> steps;
    for (size_t begin = 0; begin < events.size();) {
        size_t length = 1;
        uint64_t times = 1;
        for (size_t tried = 1; fold && tried <= kLongestPattern && begin + tried <= events.size(); ++tried) {
            const uint64_t found = repeats(events, begin, tried);
            if (found >= kFewestRepeats && found * tried > times * length) {
                length = tried;
                times = found;
            }
        }
        steps.push_back(stepAt(events, begin, length, times));
        begin += length * times;
    }
    return steps;
}

void append(std::vector<Change>& changes, const Change& further) {
    const auto known = std::ranges::find(changes, further.what, &Change::what);
    if (known == changes.end()) {
        changes.push_back(further);
    } else {
        known->after = further.after;
        known->times += further.times;
    }
}

void append(Episode& stretch, const Episode& further) {
    stretch.untilUs = further.untilUs;
    for (const auto& [name, count] : further.calls) stretch.calls[name] += count;
    if (!stretch.firstRequest) stretch.firstRequest = further.firstRequest;
    if (further.lastRequest) stretch.lastRequest = further.lastRequest;
    for (const Change& change : further.changes) append(stretch.changes, change);
    for (size_t at = 0; at < stretch.steps.size(); ++at) {
        Step& step = stretch.steps[at];
        for (size_t event = 0; event < step.events.size(); ++event)
            if (step.events[event].sent != further.steps[at].events[event].sent) step.alike = false;
        step.untilUs = further.steps[at].untilUs;
    }
    stretch.reason.clear();
}

std::vector<Episode> folded(std::vector<Episode> episodes) {
    std::vector<Episode> stretches;
    for (size_t begin = 0; begin < episodes.size();) {
        size_t end = begin + 1;
        while (end < episodes.size() && sameShape(episodes[begin], episodes[end])) ++end;
        // Two of a kind read better as they are, unless there is nothing to read.
        if (end - begin < kFewestRepeats && !episodes[begin].sentNothing()) end = begin + 1;
        stretches.push_back(std::move(episodes[begin]));
        for (size_t at = begin + 1; at < end; ++at) append(stretches.back(), episodes[at]);
        begin = end;
    }
    return stretches;
}

// --- Reading.

std::map<std::string, std::string> textsOf(const std::vector<phone::Field>& fields) {
    std::map<std::string, std::string> texts;
    for (const phone::Field& field : fields) texts[field.name] = toText(field);
    return texts;
}

// What a file held, on one line.
std::string contentText(const Event& read) {
    std::string text(read.received.begin(), read.received.end());
    while (text.ends_with('\n')) text.pop_back();
    return toText(phone::Field{"content", text});
}

class Reader {
  public:
    explicit Reader(bool fold) : mFold(fold) {}

    void take(const Event& event) {
        const std::optional<EndedCall> ended = mCalls.take(event);
        if (event.kind == EventKind::kCall && !event.result) return begin(event);
        Open& open = openOn(event);
        open.episode.untilUs = event.timeUs;
        if (event.kind == EventKind::kCall) {
            open.episode.result = event.result;
            if (ended && ended->sentNothing()) open.episode.reason = ended->lastMessage;
            close(event.thread);
            return;
        }
        noteCause(event, open.episode);
        if (event.kind == EventKind::kThread && event.name == "pthread_create") noteThread(event, open);
        if (isStep(event)) open.steps.push_back(event);
    }

    std::vector<Episode> finish() {
        while (!mOpen.empty()) close(mOpen.begin()->first);
        std::ranges::sort(mDone, {}, &Done::first);
        std::vector<Episode> episodes;
        for (auto& [sequence, episode] : mDone) episodes.push_back(std::move(episode));
        return mFold ? folded(std::move(episodes)) : episodes;
    }

  private:
    struct Open {
        size_t order = 0;
        Episode episode;
        std::vector<Event> steps;
    };
    using Done = std::pair<size_t, Episode>;

    void begin(const Event& call) {
        close(call.thread);
        Open& open = mOpen[call.thread];
        open.order = mOrder++;
        Episode& episode = open.episode;
        episode = {.fromUs = call.timeUs, .untilUs = call.timeUs, .thread = call.thread, .call = call};
        episode.calls[call.name] = 1;
        if (call.name == kRequest) episode.firstRequest = episode.lastRequest = mRequests++;
        if (isOfEveryFrame(call)) noteArguments(call, episode);
    }

    void noteArguments(const Event& call, Episode& episode) {
        const std::vector<phone::Field> fields =
            call.name == kRequest ? requestFields(call).value_or(call.fields) : call.fields;
        std::map<std::string, std::string>& last = mArguments[call.name];
        for (const phone::Field& field : fields) {
            const std::string after = toText(field);
            std::string& before = last[field.name];
            if (before != after) episode.changes.push_back({field.name, before, after});
            before = after;
        }
    }

    Open& openOn(const Event& event) {
        const auto [open, isNew] = mOpen.try_emplace(event.thread);
        if (isNew) {
            open->second.order = mOrder++;
            open->second.episode = {
                .fromUs = event.timeUs, .thread = event.thread, .startedBy = mStartedBy[event.thread]};
        }
        return open->second;
    }

    void close(uint32_t thread) {
        auto open = mOpen.extract(thread);
        if (open.empty()) return;
        Episode& episode = open.mapped().episode;
        episode.steps = stepsOf(open.mapped().steps, mFold);
        // Between calls a thread that makes them has nothing to tell.
        if (!episode.call && episode.steps.empty() && episode.changes.empty()) return;
        mDone.emplace_back(open.mapped().order, std::move(episode));
    }

    void noteCause(const Event& event, Episode& episode) {
        if (event.kind == EventKind::kCustomisation) {
            const phone::Field* name = findField(event, "driver_name");
            if (name != nullptr) append(episode.changes, {"customisation", "", toText(*name)});
        }
        if (event.kind == EventKind::kFile && event.name == "fopen" && !event.received.empty()) {
            const phone::Field* path = findField(event, "path");
            if (path != nullptr) noteValue(toText(*path), "", contentText(event), episode);
        }
        if (event.kind != EventKind::kProperty) return;
        const phone::Field* value = findField(event, "value");
        const phone::Field* usual = findField(event, "default");
        if (value == nullptr && !event.result) return;
        const std::string read = value != nullptr ? toText(*value) : std::to_string(*event.result);
        noteValue(event.name, usual != nullptr ? toText(*usual) : "", read, episode);
    }

    // `usual`: what it counts as before it was read first.
    void noteValue(const std::string& what, const std::string& usual, const std::string& value,
                   Episode& episode) {
        const auto [known, isNew] = mValues.try_emplace(what, usual);
        if (known->second != value) append(episode.changes, {what, known->second, value});
        known->second = value;
    }

    void noteThread(const Event& event, const Open& by) {
        const phone::Field* thread = findField(event, "thread");
        if (thread == nullptr || !by.episode.call) return;
        const auto number = static_cast<uint32_t>(phone::integerField({.fields = {*thread}}, "thread"));
        mStartedBy[number] = by.episode.firstRequest ? "request " + std::to_string(*by.episode.firstRequest)
                                                     : by.episode.call->name;
    }

    const bool mFold;
    Calls mCalls;
    size_t mOrder = 0;
    uint64_t mRequests = 0;
    // What the last call of each name was given.
    std::map<std::string, std::map<std::string, std::string>> mArguments{
        {std::string(kRequest), textsOf(usualRequestFields())}};
    std::map<std::string, std::string> mValues;  // of properties and files
    std::map<uint32_t, std::string> mStartedBy;
    std::map<uint32_t, Open> mOpen;  // by thread
    std::vector<Done> mDone;
};

}  // namespace

bool Episode::sentNothing() const {
    return call.has_value() && steps.empty();
}

uint64_t Episode::callCount() const {
    uint64_t count = 0;
    for (const auto& [name, times] : calls) count += times;
    return count;
}

std::vector<Episode> timeline(const std::vector<Event>& events, bool fold) {
    Reader reader(fold);
    for (const Event& event : events) reader.take(event);
    return reader.finish();
}

}  // namespace oisctl

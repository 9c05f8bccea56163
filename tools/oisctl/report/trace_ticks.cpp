#include "report/trace_ticks.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "report/packed_column.h"
#include "session/tally.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

using Json = nlohmann::ordered_json;
using phone::Event;
using phone::EventKind;

constexpr size_t kMostDetails = 1000;  // of one lane; a click needs no more, and a file stays small

enum class Lane { kCall, kCommand, kMessage, kNote };

constexpr const char* keyOf(Lane lane) {
    constexpr const char* kKeys[] = {"call", "command", "message", "note"};
    return kKeys[static_cast<size_t>(lane)];
}

struct LaneName {
    Lane kind;
    std::string name;
    bool operator<(const LaneName& other) const {
        return std::tie(kind, name) < std::tie(other.kind, other.name);
    }
};

struct Tick {
    const TracedEvent* traced;  // a call's is its end, or its begin where the trace has none
    int64_t beginUs;
    LaneName lane;
    std::optional<int64_t> call;  // the tick of the call that it belongs to
};

Json fieldsJson(const std::vector<phone::Field>& fields) {
    Json rows = Json::array();
    for (const phone::Field& field : fields) rows.push_back({field.name, toText(field), field.meaning});
    return rows;
}

Json detailOf(const Event& event) {
    const phone::Decoded decoded = phone::decode(event);
    return {{"text", event.kind == EventKind::kCall ? callText(event) : toText(event, false)},
            {"sent", fieldsJson(decoded.fields)},
            {"received", fieldsJson(decoded.answer)},
            {"sent_bytes", phone::hexBytes(event.sent)},
            {"received_bytes", phone::hexBytes(event.received)},
            {"result", event.result ? Json(*event.result) : Json()},
            {"error", event.error == 0 ? Json() : Json(phone::errorText(event.error))}};
}

struct LaneCount {
    LaneName lane;
    size_t count;
};

// Ticks in the order of their begin.
class Ticks {
  public:
    explicit Ticks(const TraceFile& trace) {
        for (const TracedEvent& traced : trace.events) take(traced);
    }

    Json json() {
        countLanes();
        Json data;
        data["lanes"] = lanesJson();
        data["ticks"] = columns();
        data["details"] = std::move(mDetails);
        return data;
    }

  private:
    void take(const TracedEvent& traced) {
        const Event& event = traced.event;
        if (event.kind == EventKind::kCall) return takeCall(traced);
        if (phone::isCommand(event.kind)) return add(traced, {Lane::kCommand, nameOf(event)});
        if (event.kind == EventKind::kNote) return add(traced, {Lane::kNote, "notes"});
        if (event.kind == EventKind::kMessage) takeMessage(traced);
    }

    void takeCall(const TracedEvent& traced) {
        const Event& event = traced.event;
        const auto open = mOpen.find(event.thread);
        if (event.result && open != mOpen.end()) {
            mTicks[static_cast<size_t>(open->second)].traced = &traced;
            mOpen.erase(open);
            return;
        }
        if (!event.result) mOpen[event.thread] = static_cast<int64_t>(mTicks.size());
        mTicks.push_back({&traced, event.timeUs, {Lane::kCall, event.name}, std::nullopt});
    }

    // The driver says the same to several sinks; one of them is enough.
    void takeMessage(const TracedEvent& traced) {
        if (mSink.empty()) mSink = traced.event.name;
        const phone::Field* const level = phone::findField(traced.event, "level");
        if (level == nullptr || traced.event.name != mSink) return;
        const std::string name = toText(*level);
        if (name == "error" || name == "warning") add(traced, {Lane::kMessage, name + " message"});
    }

    void add(const TracedEvent& traced, LaneName lane) {
        const auto open = mOpen.find(traced.event.thread);
        mTicks.push_back({&traced, traced.event.timeUs, std::move(lane),
                          open == mOpen.end() ? std::nullopt : std::optional(open->second)});
    }

    // Calls, commands, messages; those of one kind as they first appear.
    void countLanes() {
        for (const Tick& tick : mTicks) {
            const auto [known, isNew] = mLaneNumbers.try_emplace(tick.lane, mLanes.size());
            if (isNew) mLanes.push_back({tick.lane, 0});
            ++mLanes[known->second].count;
        }
        std::stable_sort(mLanes.begin(), mLanes.end(),
                         [](const LaneCount& a, const LaneCount& b) { return a.lane.kind < b.lane.kind; });
        for (size_t i = 0; i < mLanes.size(); ++i) mLaneNumbers[mLanes[i].lane] = i;
    }

    Json lanesJson() const {
        Json lanes = Json::array();
        for (const LaneCount& lane : mLanes)
            lanes.push_back({{"kind", keyOf(lane.lane.kind)}, {"name", lane.lane.name}});
        return lanes;
    }

    Json columns() {
        std::vector<size_t> seen(mLanes.size());
        PackedColumn time, length, lanes, line, thread, call, failure, detail;
        for (const Tick& tick : mTicks) {
            const Event& event = tick.traced->event;
            const size_t lane = mLaneNumbers.at(tick.lane);
            time.add(tick.beginUs);
            length.add(event.timeUs - tick.beginUs);
            lanes.add(lane);
            line.add(tick.traced->line);
            thread.add(event.thread);
            call.add(tick.call);
            failure.add(isFailure(event) ? 1 : 0);
            const size_t step = mLanes[lane].count / kMostDetails + 1;
            detail.add(detailIndex(event, seen[lane]++ % step == 0 || isFailure(event)));
        }
        return {{"time_us", time.json()},   {"length_us", length.json()}, {"lane", lanes.json()},
                {"line", line.json()},      {"thread", thread.json()},    {"call", call.json()},
                {"failed", failure.json()}, {"detail", detail.json()}};
    }

    // What was seen before costs nothing more. Empty: it is not kept.
    std::optional<int64_t> detailIndex(const Event& event, bool wanted) {
        const std::string key = phone::toJson(event, false);
        const auto known = mIndexes.find(key);
        if (known != mIndexes.end()) return known->second;
        if (!wanted) return std::nullopt;
        const auto index = static_cast<int64_t>(mDetails.size());
        mDetails.push_back(detailOf(event));
        mIndexes.emplace(key, index);
        return index;
    }

    std::vector<Tick> mTicks;
    std::map<uint32_t, int64_t> mOpen;  // calls, by thread
    std::string mSink;
    std::vector<LaneCount> mLanes;
    std::map<LaneName, size_t> mLaneNumbers;
    std::map<std::string, int64_t> mIndexes;
    Json mDetails = Json::array();
};

}  // namespace

Json traceTicks(const TraceFile& trace) {
    return Ticks(trace).json();
}

}  // namespace oisctl

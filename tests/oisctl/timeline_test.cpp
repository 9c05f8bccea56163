// What was sent and why, told once.

#include "timeline/timeline.h"

#include <gtest/gtest.h>

#include "ois_drv.h"
#include "oisctl_fixture.h"
#include "session/driver_session.h"
#include "session/request_fields.h"
#include "wire/requests.h"

namespace {

using oisctl::Episode;
using phone::Event;
using phone::EventKind;

// A trace that is written down call by call, a millisecond apart.
class Story {
  public:
    Story& call(const char* name, int64_t argument, const std::vector<Event>& inside = {},
                int64_t result = 0) {
        add({.kind = EventKind::kCall, .name = name, .fields = {{"argument", argument}}});
        return end(inside, result);
    }
    Story& request(float zoom, const std::vector<Event>& inside = {}) {
        ois_params params{};
        params.zoom_ratio = zoom;
        params.engineer_operation = -1;
        const auto bytes = oisctl::bytesOf(params);
        add({.kind = EventKind::kCall, .name = "SetOisParams", .sent = {bytes.begin(), bytes.end()}});
        return end(inside, 0);
    }
    Story& add(Event event, uint32_t thread = 0) {
        event.timeUs = static_cast<int64_t>(mEvents.size()) * 1000;
        event.thread = thread;
        mEvents.push_back(std::move(event));
        return *this;
    }
    std::vector<Episode> told(bool fold = true) const { return oisctl::timeline(mEvents, fold); }

  private:
    Story& end(const std::vector<Event>& inside, int64_t result) {
        const std::string name = mEvents.back().name;
        for (const Event& event : inside) add(event);
        return add({.kind = EventKind::kCall, .name = name, .result = result});
    }
    std::vector<Event> mEvents;
};

Event mode(uint8_t value) {
    return {.kind = EventKind::kSubDevice,
            .code = ois::code(ois::Request::kSetMode),
            .sent = {value, 0, 0, 0},
            .result = 0};
}
Event property(int64_t value) {
    return {.kind = EventKind::kProperty, .name = "p", .fields = {{"default", int64_t{1}}}, .result = value};
}
Event sleep() {
    return {.kind = EventKind::kSleep, .name = "usleep", .fields = {{"us", int64_t{4000}}}};
}

// One line an episode: calls, requests, changes, commands.
std::vector<std::string> told(const std::vector<Episode>& episodes) {
    std::vector<std::string> lines;
    for (const Episode& episode : episodes) {
        std::string line = "thread " + std::to_string(episode.thread);
        for (const auto& [name, count] : episode.calls) line += ' ' + name + '*' + std::to_string(count);
        if (episode.firstRequest)
            line += " #" + std::to_string(*episode.firstRequest) + '-' + std::to_string(*episode.lastRequest);
        for (const oisctl::Change& change : episode.changes)
            line += ' ' + change.what + ' ' + change.before + '>' + change.after + '*' +
                    std::to_string(change.times);
        for (const oisctl::Step& step : episode.steps)
            line += " [" + std::to_string(step.events.size()) + "]*" + std::to_string(step.times) +
                    (step.alike ? "" : "~");
        lines.push_back(line);
    }
    return lines;
}

TEST(Timeline, SaysWhatChangedAndFoldsWhatRepeats) {
    const Event recorder{.kind = EventKind::kThread,
                         .name = "pthread_create",
                         .fields = {{"thread", int64_t{3}}},
                         .result = 0};
    struct Case {
        const char* what;
        Story story;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {"a steady stretch, and what interrupts it",
         Story().request(1, {mode(2)}).request(1).request(1).request(2).request(3, {mode(3)}).request(3),
         {"thread 0 SetOisParams*1 #0-0 zoom_ratio 0>1*1 [1]*1",
          "thread 0 SetOisParams*3 #1-3 zoom_ratio 1>2*1",
          "thread 0 SetOisParams*1 #4-4 zoom_ratio 2>3*1 [1]*1", "thread 0 SetOisParams*1 #5-5"}},
        {"a ramp of which each step sends",
         Story().request(1, {mode(1)}).request(2, {mode(2)}).request(3, {mode(3)}),
         {"thread 0 SetOisParams*3 #0-2 zoom_ratio 0>3*3 [1]*1~"}},
        {"modes are told one by one, the same one is not",
         Story()
             .call("SetMode", 2, {mode(2)})
             .call("SetMode", 3, {mode(3)})
             .call("SetMode", 3, {mode(3)})
             .call("SetMode", 3, {mode(3)}),
         {"thread 0 SetMode*1 [1]*1", "thread 0 SetMode*3 [1]*1"}},
        {"what failed is not like what did not",
         Story()
             .call("SetMode", 2, {mode(2)})
             .call("SetMode", 2, {mode(2)}, -1)
             .call("SetMode", 2, {mode(2)}),
         {"thread 0 SetMode*1 [1]*1", "thread 0 SetMode*1 [1]*1", "thread 0 SetMode*1 [1]*1"}},
        {"a property counts when it is not as before, the default to begin with",
         Story()
             .request(0, {property(1), mode(1)})
             .request(0, {property(7), mode(1)})
             .request(0, {property(7), mode(1)}),
         {"thread 0 SetOisParams*1 #0-0 [1]*1", "thread 0 SetOisParams*1 #1-1 p 1>7*1 [1]*1",
          "thread 0 SetOisParams*1 #2-2 [1]*1"}},
        {"a thread goes on by itself, and says again and again the same",
         Story()
             .call("SetOperation", 1, {recorder})
             .add(mode(1), 3)
             .add(sleep(), 3)
             .request(0)
             .add(mode(1), 3)
             .add(sleep(), 3)
             .add(mode(2), 3)
             .add(sleep(), 3)
             .add(mode(2), 3),
         {"thread 0 SetOperation*1 [1]*1", "thread 3 [2]*3~ [1]*1", "thread 0 SetOisParams*1 #0-0"}},
        {"a program without a driver", Story().add(mode(1)).add(mode(2)), {"thread 0 [1]*1 [1]*1"}},
    };
    for (const Case& test : cases) EXPECT_EQ(told(test.story.told()), test.lines) << test.what;
    EXPECT_EQ(cases[0].story.told(false).size(), 6U);
    EXPECT_EQ(cases[5].story.told()[1].startedBy, "SetOperation");
}

TEST_F(Oisctl, ATimelineSaysWhyACommandWasSent) {
    run("session -m dw9786 --scenario video-zoom --trace=t.jsonl");
    const Outcome ofTrace = run("timeline t.jsonl");
    EXPECT_EQ(ofTrace.status, 0) << ofTrace.err;
    EXPECT_NE(ofTrace.out.find("request 60\n              video_mode 0 -> 1\n"
                               "              sub-device  SET_MODE(0x400456C2) mode=3 -> 0\n"),
              std::string::npos)
        << ofTrace.out;
    EXPECT_NE(ofTrace.out.find("requests 61 to 329, until 10.9747 s: nothing sent\n"), std::string::npos);
    EXPECT_LT(lines(ofTrace.out), 50U);
    EXPECT_GT(lines(run("timeline t.jsonl --all").out), 700U);
    const json played = runJson("timeline video-zoom -m dw9786");
    EXPECT_EQ(played["episodes"], runJson("timeline t.jsonl")["episodes"]);
    write("steering.jsonl",
          "{\"kind\":\"call\",\"name\":\"Set\\u001b]0;x\\u0007\\u202eMode\",\"result\":0}\n");
    EXPECT_EQ(run("timeline steering.jsonl").out.find_first_of("\x1b\xe2"), std::string::npos);
    for (const char* wrong : {"timeline t.jsonl -m dw9786", "timeline nothing.jsonl", "timeline"})
        EXPECT_EQ(run(wrong).status, 2) << wrong;
}

}  // namespace

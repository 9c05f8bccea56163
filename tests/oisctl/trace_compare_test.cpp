// Two traces held beside each other.

#include "capture/trace_compare.h"

#include <gtest/gtest.h>

#include <functional>

#include <fmt/format.h>

#include "trace/decode.h"
#include "wire/records.h"

namespace {

using oisctl::Aside;
using oisctl::TraceComparison;
using oisctl::TraceFile;
using phone::Event;
using phone::EventKind;

Event request(ois::Request request, std::vector<uint8_t> sent, std::vector<uint8_t> received) {
    Event event = phone::requestEvent(ois::code(request), sent, received);
    event.result = 0;
    return event;
}

// Two threads; numbers of descriptors and addresses as `process` has them.
TraceFile story(uint8_t process) {
    std::vector<uint8_t> flash(sizeof(ois::OisFlashRecord));
    flash[0] = process;
    flash[2] = 0x55;
    std::vector<Event> events{
        {.kind = EventKind::kFile, .name = "open", .fields = {{"path", std::string("/dev/media0")}}},
        {.kind = EventKind::kMessage, .name = "unified"},
        request(ois::Request::kSetMode, {2, 0, 0, 0}, {}),
        request(ois::Request::kReadHallInfo, std::vector<uint8_t>(16), std::vector<uint8_t>(16, 7)),
        request(ois::Request::kReadFlash, flash, flash),
        {.kind = EventKind::kMessage, .name = "unified"},
        {.kind = EventKind::kMessage, .name = "unified"},
    };
    events[0].result = process;
    events[1].text = "open as " + std::to_string(process) + ", mode 2";
    events[5].text = fmt::format("at 0x5500{:02x}, size 8", process);
    events[6].text = "[DetectActutorDefect] hall_x (3), error_y (42)\n";
    TraceFile trace{"trace", {}, {}};
    for (const Event& event : events) {
        trace.events.push_back({trace.events.size() + 1, event});
        trace.events.back().event.thread = event.code == ois::code(ois::Request::kReadHallInfo) ? 1 : 0;
        trace.events.back().event.timeUs = process * 1000;
    }
    return trace;
}

TEST(TraceCompare, FindsTheFirstDifferenceAndNamesIt) {
    struct Case {
        const char* what;
        std::function<void(std::vector<oisctl::TracedEvent>&)> change;
        size_t line;  // in A; 0: no difference
        const char* value;
        Aside aside{};
    };
    const Case cases[] = {
        {"nothing but descriptors, addresses and times", [](auto&) {}, 0, ""},
        {"a byte sent", [](auto& e) { e[2].event.sent[0] = 3; }, 3, "mode"},
        {"a byte without a name", [](auto& e) { e[4].event.sent[100] = 3; }, 5, "byte 100 sent"},
        {"a byte answered", [](auto& e) { e[3].event.received[1] = 3; }, 4, "answered centerX"},
        {"that byte's field aside", [](auto& e) { e[3].event.received[1] = 3; }, 0, "", {{}, {"centerX"}}},
        {"another's aside",
         [](auto& e) { e[3].event.received[5] = 3; },
         4,
         "answered centerY",
         {{}, {"centerX"}}},
        {"no answer", [](auto& e) { e[3].event.received.clear(); }, 4, "answered centerX"},
        {"a result", [](auto& e) { e[2].event.result = 1; }, 3, "result"},
        {"an errno", [](auto& e) { e[2].event.error = EIO; }, 3, "error"},
        {"a message's number that is no descriptor", [](auto& e) { e[1].event.text.back() = '3'; }, 2,
         "text"},
        {"a message's other number", [](auto& e) { e[5].event.text.back() = '9'; }, 6, "text"},
        {"a number without a meaning", [](auto& e) { e[6].event.text.replace(43, 2, "17"); }, 0, ""},
        {"one in front of it", [](auto& e) { e[6].event.text.replace(30, 1, "7"); }, 7, "text"},
        {"messages aside", [](auto& e) { e[5].event.text.back() = '9'; }, 0, "", {{EventKind::kMessage}, {}}},
        {"another path", [](auto& e) { e[0].event.fields[0].value = std::string("/dev/media1"); }, 1, "path"},
        {"a failed open", [](auto& e) { e[0].event.result = -1; }, 1, "result"},
        {"an event less", [](auto& e) { e.erase(e.begin() + 2); }, 3, "event"},
        {"the end missing", [](auto& e) { e.pop_back(); }, 7, nullptr},
        {"another thread", [](auto& e) { e[3].event.thread = 2; }, 4, nullptr},
    };
    for (const Case& one : cases) {
        const TraceFile a = story(5);
        TraceFile b = story(9);
        one.change(b.events);
        const TraceComparison found = compareTraces(a, b, one.aside);
        ASSERT_EQ(found.first.has_value(), one.line != 0) << one.what;
        if (one.line == 0) {
            EXPECT_TRUE(found.commands.empty()) << one.what;
            continue;
        }
        ASSERT_NE(found.first->a, nullptr) << one.what;
        EXPECT_EQ(found.first->a->line, one.line) << one.what;
        EXPECT_EQ(found.first->b == nullptr, one.value == nullptr) << one.what;
        if (one.value != nullptr) {
            ASSERT_FALSE(found.first->values.empty()) << one.what;
            EXPECT_EQ(found.first->values[0].what, one.value) << one.what;
        }
    }
}

TEST(TraceCompare, CountsCommandByCommand) {
    const TraceFile a = story(5);
    TraceFile b = story(5);
    b.events.push_back({8, b.events[2].event});
    b.events.back().event.sent[0] = 3;
    b.events[3].event.received[0] = 9;
    const TraceComparison found = compareTraces(a, b, {});
    ASSERT_EQ(found.commands.size(), 2U);
    const auto& mode = found.commands.at("sub-device SET_MODE");
    EXPECT_EQ(std::tuple(mode.a, mode.b, mode.other), std::tuple(1U, 2U, 0U));
    const auto& hall = found.commands.at("sub-device READ_HALL_INFO");
    EXPECT_EQ(hall.other, 1U);
    ASSERT_TRUE(hall.firstOther);
    EXPECT_EQ(hall.firstOther->values[0].what, "answered centerX");
}

}  // namespace

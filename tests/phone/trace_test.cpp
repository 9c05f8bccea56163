// What the phone says about the traffic: decoding and trace.

#include "trace/trace.h"

#include <cerrno>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <thread>

#include "driver/driver_fixture.h"
#include "faults/faults.h"
#include "test_support.h"
#include "trace/decode.h"

namespace {

using namespace phone;
using Bytes = std::vector<uint8_t>;
using driver_test::bytes;
using Json = nlohmann::json;

// Of that size, with zeros behind.
Bytes padded(std::string_view hex, size_t size) {
    Bytes result = bytes(hex);
    result.resize(size);
    return result;
}

// --- Requests.

// The request, what is sent, what comes back if anything does, and what is to be read.
constexpr std::tuple<uint32_t, const char*, const char*, const char*> kRequestRecords[] = {
    {0xC00856D8, "02000000 01000000", nullptr, "SET_ACTIVE_OIS(0xC00856D8) enable=2 angle=none"},
    // What comes back changed shows, asked for or not.
    {0xC01856D4, "01000000 00000000 0a000000 14000000", "01000000 00000000 0b000000 14000000",
     "SET_FIX_MODE(0xC01856D4) manualEnable=1 gethall=0 target_x=10 target_y=20 hall_x=0 hall_y=0 -> "
     "target_x=11"},
    {0xC03856DA, "0f",
     "0f00000000000000 0300000000000000 8f13000000000000 0100feff03000400 05000600e80318fc "
     "09000a000b000c00 0d000e00",
     "READ_STATUS(0xC03856DA) chose=15 -> seconds=3 microseconds=5007 gyro_raw_x=1 gyro_raw_y=-2 "
     "gyro_raw_z=3 acc_raw_x=4 acc_raw_y=5 acc_raw_z=6 gyro_target_x=1000 gyro_target_y=-1000 "
     "acc_target_x=9 acc_target_y=10 hall_x=11 hall_y=12 synthetic_x=13 synthetic_y=14"},
    {0xC60856DB, "", "03000000 00200000 ab 05 00 ff",
     "READ_FLASH(0xC60856DB) -> length=3 base=0x2000 data=\"ab 05 00\""},
    // A known number with another size or direction is another request.
    {0xC00256C2, "dead", nullptr,
     "0xC00256C2: type 'V' number 0xC2 size 2 read/write: unknown, SET_MODE is 0x400456C2 bytes=\"de ad\""},
    {0x00000001, "", nullptr, "0x00000001: type 0x00 number 0x01 size 0 none: unknown"},
};

TEST(Decode, ShowsTheFieldsOfRequests) {
    for (const auto& [code, in, out, text] : kRequestRecords) {
        const size_t size = _IOC_SIZE(code);
        const Bytes answer = out == nullptr ? Bytes{} : padded(out, size);
        EXPECT_EQ(toText(requestEvent(code, padded(in, size), answer), false),
                  std::string("sub-device  ") + text);
    }
}

// --- The hub's records.

// What is sent, the payload of the answer if there is one, and what is to be read.
constexpr const char* kHubLines[][3] = {
    {"010c0000 02000000 01000000 10000000", nullptr, "write register 0x0002 STABILISATION_MODE = 16"},
    {"010c0000 88050000 04000000 00409c45", nullptr, "write register 0x0588 ACC_OBJECT_DISTANCE = 5000"},
    {"010c0000 34120000 02000000 05000000", nullptr, "write register 0x1234 unknown (2 bytes) = 0x0005"},
    {"000c0100 48020000 01000000 00000000", "f6",
     "read register 0x0248 GYRO_OFFSET_X (1 byte of a register of 2) = 246"},
    {"0e0c0000 00000000 02000000 00010000", nullptr,
     "FIRMWARE(14) op=0 action=report outcome=\"controller error\" outcome_code=2 value=0x0100"},
    {"110c0000 01000000 03000000 00000000", nullptr, "INIT(17) bypass=1 log_level=3"},
    // Two of the sizes are shorter than the record, on purpose.
    {"18020000 0200", nullptr, "SET_ACTIVE_OIS(24) enable=2 carried=\"2 of 8 bytes\""},
    {"14140000 01000000 00000000 0a000000 14000000 05000000", nullptr,
     "SET_FIX_MODE(20) manualEnable=1 gethall=0 target_x=10 target_y=20 hall_x=5 carried=\"20 of 24 bytes\""},
    {"63020100 abcd", "7f", "COMMAND_99(99) bytes=\"ab cd\" -> bytes=7f"},
};

TEST(Decode, ShowsTheHubsRecords) {
    for (const auto& [record, payload, text] : kHubLines) {
        ois::OisCustomCmd sent;
        std::memcpy(&sent, padded(record, sizeof sent).data(), sizeof sent);
        ois::OisCustomCmd answered = sent;
        if (payload != nullptr) std::ranges::copy(bytes(payload), answered.payload);
        EXPECT_EQ(toText(hubEvent(sent, &answered), false), std::string("hub  ") + text);
    }
}

// Who reads captures by hand reads the same as the decoder does.
TEST(Decode, AgreesWithTheDocument) {
    std::ifstream file(OIS_SOURCE_DIR "/docs/wire-formats.md");
    const std::string document{std::istreambuf_iterator<char>(file), {}};
    const auto expectRow = [&document](const char* format, auto... columns) {
        char row[128];
        std::snprintf(row, sizeof row, format, columns...);
        EXPECT_NE(document.find(row), std::string::npos) << row;
    };
    for (const RequestInfo& info : privateRequests()) {
        EXPECT_EQ(findRequest(info.code), findRequest(info.name));
        expectRow("\n| `%s` | 0x%08X | %u | %s | %zu |", info.name.data(), info.code,
                  _IOC_NR(info.code) - 192U, direction(info.code).data(), recordSize(info));
    }
    for (const HubCommandInfo& info : hubCommands()) expectRow("\n| %d | `%s` | ", info.id, info.name.data());
    for (const RegisterInfo& info : registers())
        expectRow("\n| 0x%04x | `%s` | %zu |", info.address, info.name.data(), info.size);
}

// Garbage of every kind and length: nothing may read past its bytes, and JSON stays JSON.
TEST(Decode, AnyBytesCanBeDecoded) {
    std::mt19937 random(20240607);
    const auto check = [](const Event& event) {
        EXPECT_FALSE(toText(event).empty());
        const std::string json = toJson(event);
        EXPECT_EQ(toJson(std::get<Event>(traceLineOfJson(json))), json) << toText(event);
    };
    std::vector<uint32_t> codes{0, 0xffffffff, 0x400456C3};
    for (const auto& table : {privateRequests(), mediaRequests()}) {
        for (const RequestInfo& info : table) codes.push_back(info.code);
    }
    // Not a byte more than that, so that a sanitizer sees the first one behind.
    const auto garbage = [&random](size_t size) {
        Bytes result(size);
        std::generate(result.begin(), result.end(), [&] { return static_cast<uint8_t>(random()); });
        return result;
    };
    const auto upTo = [&](size_t size) { return garbage(random() % (size + 9)); };
    for (size_t round = 0; round < 10 * codes.size(); ++round) {
        const uint32_t code = codes[round % codes.size()];
        check(requestEvent(code, upTo(_IOC_SIZE(code)), upTo(_IOC_SIZE(code))));
    }
    for (int round = 0; round < 4 * 256; ++round) {
        ois::OisCustomCmd records[2];
        std::ranges::copy(garbage(sizeof records), reinterpret_cast<uint8_t*>(records));
        records[0].id = static_cast<uint8_t>(round);
        // Hardly any other address is one of the controller's.
        const uint32_t address = registers()[random() % registers().size()].address;
        std::memcpy(records[0].payload, &address, sizeof address);
        check(hubEvent(records[0], &records[1], static_cast<HubPhase>(round % 3)));
        check(hubEvent(records[0], nullptr));
    }
}

// --- Text and JSON of events.

Event eventOf(EventKind kind, std::string name, std::vector<Field> fields = {}) {
    Event event;
    event.kind = kind;
    event.name = std::move(name);
    event.fields = std::move(fields);
    return event;
}

TEST(TraceText, ShowsHeadResultErrorAndFault) {
    Event event = requestEvent(0xC01856D0, padded("01", 24), padded("01", 24));
    event.sequence = 4;
    event.timeUs = 12345;
    event.thread = 1;
    event.result = 0;
    EXPECT_EQ(toText(event),
              "   12.345 ms  #1  sub-device  READ_GAIN(0xC01856D0) axis=1 -> 0: valueXf=0 valueYf=0 "
              "valueXi=0 valueYi=0");
    EXPECT_EQ(toJson(std::get<Event>(traceLineOfJson(toJson(event)))), toJson(event));
    event.received = {};
    event.result = -1;
    event.error = EIO;
    event.fault = std::make_shared<const Fault>(parseFault("READ_GAIN:errno=EIO"));
    EXPECT_EQ(toText(event, false),
              "sub-device  READ_GAIN(0xC01856D0) axis=1 -> -1 EIO (Input/output error)  [fault: "
              "READ_GAIN:errno=EIO]");
    EXPECT_EQ(
        toJson(event),
        R"({"sequence":4,"time_us":12345,"thread":1,"kind":"sub-device","name":"READ_GAIN","code":3222820560,)"
        R"("sent":"01)" +
            std::string(46, '0') +
            R"(","fields":{"axis":1},"result":-1,"error":"EIO","fault":"READ_GAIN:errno=EIO"})");
}

TEST(TraceText, HasAFormForEveryKind) {
    Event message = eventOf(EventKind::kMessage, "unified", {{"level", std::string("error")}});
    message.text = "[SetMode] one\ntwo\n";
    Event file = eventOf(EventKind::kFile, "open", {{"path", std::string("/dev/media0")}});
    file.result = 0;
    EXPECT_EQ(toText(message, false), "message E [SetMode] one\\ntwo");
    EXPECT_EQ(toText(file, false), "file  open path=/dev/media0 -> 0");
    EXPECT_EQ(toText(eventOf(EventKind::kSleep, "usleep", {{"us", uint64_t{2500}}}), false), "sleep  2.5 ms");
    EXPECT_EQ(toText(eventOf(EventKind::kProperty, "a.b", {{"default", int64_t{3}}, {"value", int64_t{-1}}}),
                     false),
              "property  a.b = -1 (default 3)");
}

TEST(TraceText, KeepsControlCharactersFromTheTerminal) {
    const Event event = eventOf(
        EventKind::kNote, "x", {{"a", std::string("\x1b[31m\xff gr\u00fcn")}, {"b", std::string(5000, 'y')}});
    EXPECT_EQ(toText(event, false),
              "note  x a=\"\\x1b[31m\\xff gr\u00fcn\" b=" + std::string(120, 'y') + "... (5000 characters)");
}

TEST(TraceJson, TakesAnyTextAndNumber) {
    Event event = eventOf(EventKind::kNote, "n\xc3",
                          {{"text", std::string("a\"\n\xff\xc3\xa4")},
                           {"float", static_cast<double>(0.1F)},
                           {"infinite", std::numeric_limits<double>::infinity()}});
    event.answer = {{"yes", int64_t{-1}}};
    const std::string text = toJson(event);
    EXPECT_EQ(text.find('\n'), std::string::npos);
    const Json object = Json::parse(text);
    EXPECT_EQ(object["name"], "n\xef\xbf\xbd");
    EXPECT_EQ(object["answer"]["yes"], -1);
    EXPECT_EQ(object["fields"],
              (Json{{"text", "a\"\n\xef\xbf\xbd\xc3\xa4"}, {"float", 0.1}, {"infinite", "inf"}}));
}

TEST(TraceJson, HeadTellsWhatTheTraceIsOf) {
    const auto line = traceLineOfJson(phone::traceHead({{"kernel", std::string("real")}}));
    const auto& about = std::get<phone::TraceHead>(line).about;
    ASSERT_EQ(about.size(), 1U);
    EXPECT_EQ(toText(about.front()), "real");
    EXPECT_TRUE(std::holds_alternative<Event>(traceLineOfJson(toJson(eventOf(EventKind::kNote, "trace")))));
    for (const char* wrong : {R"({"kind":"trace","format":2})", R"({"kind":"trace"})", "{", "[]"})
        EXPECT_THROW(traceLineOfJson(wrong), std::invalid_argument) << wrong;
}

// --- The trace.

TEST(TraceRecord, CanBeOffHeardOrForgotten) {
    Clock clock(ClockMode::kSimulated);
    Trace trace(clock);
    std::string heard;
    trace.setListener([&heard](const Event& event) { heard += event.name; });
    trace.setEnabled(false);
    trace.record(eventOf(EventKind::kNote, "unheard"));
    trace.setEnabled(true);
    trace.setKeep(false);
    trace.record(eventOf(EventKind::kNote, "heard"));
    trace.setKeep(true);
    clock.sleepUs(2000);
    trace.record(eventOf(EventKind::kSleep, "kept"));
    EXPECT_EQ(heard, "heardkept");
    EXPECT_EQ(trace.count(), 2U);
    ASSERT_EQ(trace.events().size(), 1U);
    EXPECT_EQ(trace.events(EventKind::kSleep)[0].timeUs, clock.nowUs());
    trace.clear();
    EXPECT_TRUE(trace.events().empty());
}

TEST(TraceRecord, NumbersEventsOfAllThreadsInOneOrder) {
    Clock clock(ClockMode::kFreeRunning);
    Trace trace(clock);
    const auto work = [&trace] {
        for (int n = 0; n < 500; ++n) trace.record(eventOf(EventKind::kNote, "n"));
    };
    { const std::jthread a(work), b(work), c(work), d(work); }
    const auto events = trace.events();
    ASSERT_EQ(events.size(), 2000U);
    for (size_t i = 0; i < events.size(); ++i) ASSERT_EQ(events[i].sequence, i + 1);
    EXPECT_TRUE(std::ranges::is_sorted(events, {}, &Event::timeUs));
}

}  // namespace

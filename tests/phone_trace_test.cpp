// What the phone says about the traffic: decoding, trace, faults, and the tool's decoder of captures.

#include "trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "clock.h"
#include "decode.h"
#include "decode_command.h"
#include "faults.h"

namespace {

using namespace phone;
using Bytes = std::vector<uint8_t>;
using Json = nlohmann::json;

int digitValue(char digit) {
    return digit <= '9' ? digit - '0' : digit - 'a' + 10;
}

// "0200 0000" as bytes; `size` more than that fills up with zeros.
Bytes bytes(std::string_view hex, size_t size = 0) {
    std::string digits;
    std::copy_if(hex.begin(), hex.end(), std::back_inserter(digits), [](char c) { return c != ' '; });
    Bytes result;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        result.push_back(static_cast<uint8_t>(digitValue(digits[i]) * 16 + digitValue(digits[i + 1])));
    }
    result.resize(std::max(size, result.size()));
    return result;
}

ois::OisCustomCmd hubRecordOf(std::string_view hex) {
    const Bytes raw = bytes(hex, 64);
    ois::OisCustomCmd record;
    std::memcpy(&record, raw.data(), sizeof record);
    return record;
}

// --- Requests.

struct RequestLine {
    uint32_t code;
    const char* name;
    unsigned size;
    const char* direction;
};

// As a kernel driver's author would write them down.
constexpr RequestLine kRequests[] = {
    {0x400456C2, "SET_MODE", 4, "write"},
    {0xC00456C4, "SET_GYRO_OFFSET", 4, "read/write"},
    {0xC01056C5, "UPDATE_FIRMWARE", 16, "read/write"},
    {0xC6A856C7, "SET_CUSTOMISATION", 1704, "read/write"},
    {0xC00456C8, "END_SESSION", 4, "read/write"},
    {0xC01C56C9, "SET_ACC_PARAMS", 28, "read/write"},
    {0xC00256CA, "SET_AF_POSITION", 2, "read/write"},
    {0xC00456CD, "OPERATION_18", 4, "read/write"},
    {0xC01856CE, "WRITE_GAIN", 24, "read/write"},
    {0xC01856D0, "READ_GAIN", 24, "read/write"},
    {0xC01056D2, "READ_HALL_INFO", 16, "read/write"},
    {0xC01856D4, "SET_FIX_MODE", 24, "read/write"},
    {0xC00856D5, "NOTIFY_STREAM", 8, "read/write"},
    {0xC00156D6, "CHECK_STATUS", 1, "read/write"},
    {0xC00156D7, "START_ENGINEERING", 1, "read/write"},
    {0xC00856D8, "SET_ACTIVE_OIS", 8, "read/write"},
    {0xC01856D9, "GET_HALL", 24, "read/write"},
    {0xC03856DA, "READ_STATUS", 56, "read/write"},
    {0xC60856DB, "READ_FLASH", 1544, "read/write"},
    {0xC00456DC, "SET_ZOOM_ACTIVE_OIS", 4, "read/write"},
};

TEST(Decode, KnowsEveryRequestByNameAndByCode) {
    EXPECT_EQ(privateRequests().size(), std::size(kRequests));
    for (const RequestLine& line : kRequests) {
        const RequestInfo* info = findRequest(line.code);
        ASSERT_NE(info, nullptr) << line.name;
        EXPECT_EQ(info->name, line.name);
        EXPECT_EQ(info, findRequest(line.name));
        EXPECT_EQ(recordSize(*info), line.size) << line.name;
        EXPECT_EQ(direction(line.code), line.direction) << line.name;
    }
    EXPECT_EQ(findMediaRequest("DEVICE_INFO")->code, 0xC1007C00);
    EXPECT_EQ(findMediaRequest(0xC1007C01U)->name, "ENUM_ENTITIES");
}

TEST(Decode, TellsAnUnknownRequestByItsParts) {
    EXPECT_EQ(requestName(0x400456C3), "type 'V' number 0xC3 size 4 write: unknown");
    EXPECT_EQ(requestName(0x00000001), "type 0x00 number 0x01 size 0 none: unknown");
    // A known number with another size or direction is another request.
    EXPECT_EQ(requestName(0xC00456C2),
              "type 'V' number 0xC2 size 4 read/write: unknown, SET_MODE is 0x400456C2");
    const Event event = decodeRequest(0x400456C3, bytes("dead"), {});
    EXPECT_EQ(toText(event, false),
              "sub-device  0x400456C3: type 'V' number 0xC3 size 4 write: unknown bytes=\"de ad\"");
}

struct RequestRecord {
    uint32_t code;
    const char* in;
    const char* out;  // null: nothing came back
    size_t size;
    const char* text;
};

constexpr RequestRecord kRequestRecords[] = {
    {0x400456C2, "02000000", nullptr, 4, "SET_MODE(0x400456C2) mode=2"},
    {0xC00456C8, "ffffffff", "ffffffff", 4, "END_SESSION(0xC00456C8) value=-1"},
    {0xC00256CA, "0080", "0080", 2, "SET_AF_POSITION(0xC00256CA) position=32768"},
    {0xC01056C5, "6162 2064", nullptr, 16, "UPDATE_FIRMWARE(0xC01056C5) camera_type=\"ab d\""},
    {0xC01C56C9, "00000000 01000000 2c010000 c8000000 00004843 ffffff27 08000000", nullptr, 28,
     "SET_ACC_PARAMS(0xC01C56C9) enable=1 lastDistance=300 distance=200 distanceF=200 distanceQ31=671088639 "
     "count=8"},
    {0xC01856CE, "01000000 00000000 cdcccc3d 00000000 f6ffffff 00000000", nullptr, 24,
     "WRITE_GAIN(0xC01856CE) axis=1 valueXf=0.1 valueYf=0 valueXi=-10 valueYi=0"},
    {0xC01856D0, "", "00000000 00000000 0000003f 0000403f 0a000000 14000000", 24,
     "READ_GAIN(0xC01856D0) axis=0 -> valueXf=0.5 valueYf=0.75 valueXi=10 valueYi=20"},
    {0xC01056D2, "", "00020000 01020000 0004ff03 00010002", 16,
     "READ_HALL_INFO(0xC01056D2) -> centerX=512 centerY=513 upperWord=0x03ff0400 lowerWord=0x02000100"},
    {0xC00856D8, "02000000 01000000", nullptr, 8, "SET_ACTIVE_OIS(0xC00856D8) enable=2 angle=none"},
    {0xC00856D8, "02000000 0000803f", nullptr, 8, "SET_ACTIVE_OIS(0xC00856D8) enable=2 angle=1"},
    {0xC01856D9, "01000000 01000000 d0070000 d0070000",
     "01000000 01000000 d0070000 d0070000 cb070000 f9ffffff", 24,
     "GET_HALL(0xC01856D9) manualEnable=1 gethall=1 target_x=2000 target_y=2000 -> hall_x=1995 hall_y=-7"},
    // What comes back changed shows, asked for or not.
    {0xC01856D4, "01000000 00000000 0a000000 14000000", "01000000 00000000 0b000000 14000000", 24,
     "SET_FIX_MODE(0xC01856D4) manualEnable=1 gethall=0 target_x=10 target_y=20 hall_x=0 hall_y=0 -> "
     "target_x=11"},
    {0xC03856DA, "0f",
     "0f00000000000000 0300000000000000 8f13000000000000 0100 feff 0300 0400 0500 0600 e803 18fc 0900 0a00 "
     "0b00 0c00 "
     "0d00 0e00",
     56,
     "READ_STATUS(0xC03856DA) chose=15 -> seconds=3 microseconds=5007 gyro_raw_x=1 gyro_raw_y=-2 "
     "gyro_raw_z=3 "
     "acc_raw_x=4 acc_raw_y=5 acc_raw_z=6 gyro_target_x=1000 gyro_target_y=-1000 acc_target_x=9 "
     "acc_target_y=10 "
     "hall_x=11 hall_y=12 synthetic_x=13 synthetic_y=14"},
    {0xC60856DB, "", "03000000 00200000 ab 05 00 ff", 1544,
     "READ_FLASH(0xC60856DB) -> length=3 base=0x2000 data=\"ab 05 00\""},
};

TEST(Decode, ShowsTheFieldsOfRequests) {
    for (const RequestRecord& line : kRequestRecords) {
        const Bytes in = bytes(line.in, line.size);
        const Bytes out = line.out == nullptr ? Bytes{} : bytes(line.out, line.size);
        EXPECT_EQ(toText(decodeRequest(line.code, in, out), false), std::string("sub-device  ") + line.text);
    }
}

TEST(Decode, ShowsTheCustomisationBlock) {
    Bytes block(1704);
    const auto put = [&block](size_t offset, std::string_view hex) {
        const Bytes raw = bytes(hex);
        std::copy(raw.begin(), raw.end(), block.begin() + static_cast<std::ptrdiff_t>(offset));
    };
    put(0, "0300 d007");  // Q31, hall range 2000
    put(28, "0200 01");   // two coordinates, sensor hub
    put(32, "0000003f");  // 0.5
    put(56, "0000803f 000000c0");
    put(856, "00004040");
    put(1656, "6b6f727661");          // korva
    put(1688, std::string(32, '6'));  // 16 letters, no NUL
    const Event event = decodeRequest(0xC6A856C7, block, {});
    const Json fields = Json::parse(toJson(event))["fields"];
    EXPECT_EQ(fields["gainFormat"], 3);
    EXPECT_EQ(fields["hallRange"], 2000);
    EXPECT_EQ(fields["useSensorHub"], 1);
    EXPECT_EQ(fields["angleAmplitude"], 0.5);
    EXPECT_EQ(fields["coordinateX"], "1 -2");
    EXPECT_EQ(fields["coordinateY"], "3 0");
    EXPECT_EQ(fields["mOisIcName"], "korva");
    EXPECT_EQ(fields["cameraTypeName"], std::string(16, 'f'));
}

TEST(Decode, ShowsMediaEntities) {
    Bytes in(256);
    Bytes out(256);
    in[3] = 0x80;  // the next after 0
    out[0] = 7;
    std::copy_n("lens", 4, out.begin() + 4);
    const Bytes node = bytes("51000000 03000000");  // 81:3
    std::copy(node.begin(), node.end(), out.begin() + 72);
    EXPECT_EQ(
        toText(decodeRequest(0xC1007C01, in, out), false),
        "media  ENUM_ENTITIES(0xC1007C01) id=0x80000000 -> id=0x0007 name=lens type=0x0000 pads=0 links=0 "
        "major=81 minor=3");
}

// --- The hub's records.

struct RegisterLine {
    uint32_t address;
    const char* name;
    size_t size;
};

constexpr RegisterLine kRegisters[] = {
    {0x0000, "CONTROL", 1},
    {0x0001, "STATE", 1},
    {0x0002, "STABILISATION_MODE", 1},
    {0x0003, "FLASH_WRITE", 1},
    {0x0004, "STATUS", 1},
    {0x0006, "UPDATE_STATUS", 2},
    {0x0008, "IMAGE_CHECK_VALUE", 4},
    {0x000c, "FLASH_DOWNLOAD", 1},
    {0x000d, "APPLY_UNLOCK", 1},
    {0x000e, "APPLY_COMMAND", 1},
    {0x0014, "GYRO_CALIBRATION", 1},
    {0x0036, "PID_INIT", 1},
    {0x0060, "FLASH_CHECK_REQUEST", 1},
    {0x0064, "FLASH_CHECK_VALUE", 2},
    {0x00fc, "FIRMWARE_VERSION", 4},
    {0x0248, "GYRO_OFFSET_X", 2},
    {0x024a, "GYRO_OFFSET_Y", 2},
    {0x03f0, "CLOCK", 4},
    {0x0558, "ACC_COMPENSATION", 1},
    {0x0588, "ACC_OBJECT_DISTANCE", 4},
};

TEST(Decode, KnowsEveryRegisterByNameAndByAddress) {
    EXPECT_EQ(registers().size(), std::size(kRegisters));
    for (const RegisterLine& line : kRegisters) {
        const RegisterInfo* info = findRegister(line.address);
        ASSERT_NE(info, nullptr) << line.name;
        EXPECT_EQ(info->name, line.name);
        EXPECT_EQ(info->size, line.size) << line.name;
        EXPECT_EQ(info, findRegister(line.name));
    }
    EXPECT_EQ(findRegister(0x0005U), nullptr);
}

struct HubLine {
    const char* sent;
    const char* payload;  // the answer's; null: none
    const char* text;
};

constexpr HubLine kHubLines[] = {
    {"010c0000 02000000 01000000 10000000", nullptr, "write register 0x0002 STABILISATION_MODE = 16"},
    {"010c0000 58050000 01000000 ff01ffff", nullptr, "write register 0x0558 ACC_COMPENSATION = 255"},
    {"010c0000 88050000 04000000 00409c45", nullptr, "write register 0x0588 ACC_OBJECT_DISTANCE = 5000"},
    {"010c0000 08000000 04000000 34120080", nullptr, "write register 0x0008 IMAGE_CHECK_VALUE = 0x80001234"},
    {"010c0000 34120000 02000000 05000000", nullptr, "write register 0x1234 unknown (2 bytes) = 0x0005"},
    {"000c0100 01000000 01000000 00000000", "01", "read register 0x0001 STATE = 1"},
    {"000c0200 48020000 02000000 00000000", "f6ff0000", "read register 0x0248 GYRO_OFFSET_X = -10"},
    {"000c0400 f0030000 04000000 00000000", "00f82401", "read register 0x03f0 CLOCK = 19200000"},
    {"000c0100 48020000 01000000 00000000", "f6",
     "read register 0x0248 GYRO_OFFSET_X (1 byte of a register of 2) = 246"},
    {"04040000 02000000", nullptr, "SET_MODE(4) mode=2"},
    {"09181800 01000000", "01000000 00000000 0000003f",
     "READ_GAIN(9) axis=1 -> valueXf=0.5 valueYf=0 valueXi=0 valueYi=0"},
    {"0e0c0400 01000000 00000000 00000000", "39300000",
     "FIRMWARE(14) op=1 action=\"image version\" -> version=12345"},
    {"0e0c0000 01000000 00010000 00010000", nullptr,
     "FIRMWARE(14) op=1 action=\"write block\" address=0x0100 size=256"},
    {"0e0c0200 03000000 00000000 00000000", "adde",
     "FIRMWARE(14) op=3 action=\"image check value\" -> check_value=0xdead"},
    {"0e0c0000 00000000 02000000 00010000", nullptr,
     "FIRMWARE(14) op=0 action=report outcome=\"controller error\" outcome_code=2 value=0x0100"},
    {"10040000 48e80100", nullptr, "CAPTURE(16) capture_value=125000"},
    {"110c0000 01000000 03000000 00000000", nullptr, "INIT(17) bypass=1 log_level=3"},
    {"110c0000", nullptr, "BYPASS_DISABLE(17)"},
    {"12020000 0004", nullptr, "SET_AF_POSITION(18) position=1024"},
    // Two of the sizes are shorter than the record, on purpose.
    {"18020000 0200", nullptr, "SET_ACTIVE_OIS(24) enable=2 carried=\"2 of 8 bytes\""},
    {"14140000 01000000 00000000 0a000000 14000000 05000000", nullptr,
     "SET_FIX_MODE(20) manualEnable=1 gethall=0 target_x=10 target_y=20 hall_x=5 carried=\"20 of 24 bytes\""},
    {"16040000 01000000", nullptr, "NOTIFY_STREAM(22) notify_stream=1"},
    {"19040000 1e000000", nullptr, "SET_TEMPERATURE(25) celsius=30"},
    {"1a040000", nullptr, "END_SESSION(26) value=0"},
    {"1b040000 02000000", nullptr, "SET_TEMP_STRATEGY(27) strategy=2"},
    {"1c010000 00", nullptr, "COMMAND_28(28) bytes=00"},
    {"1c1c0000 00000000 01000000", nullptr,
     "COMMAND_28(28) enable=1 lastDistance=0 distance=0 distanceF=0 distanceQ31=0 count=0"},
    {"63020100 abcd", "7f", "COMMAND_99(99) bytes=\"ab cd\" -> bytes=7f"},
};

TEST(Decode, ShowsTheHubsRecords) {
    for (const HubLine& line : kHubLines) {
        const ois::OisCustomCmd sent = hubRecordOf(line.sent);
        ois::OisCustomCmd answered = sent;
        if (line.payload != nullptr) {
            const Bytes payload = bytes(line.payload, 60);
            std::copy(payload.begin(), payload.end(), answered.payload);
        }
        EXPECT_EQ(toText(decodeHub(sent, answered), false), std::string("hub  ") + line.text);
    }
}

TEST(Decode, TellsInitFromBypassDisableByPayloadOrPhase) {
    const auto zeros = hubRecordOf("110c0000");
    EXPECT_EQ(hubCommandName(zeros), "BYPASS_DISABLE");
    EXPECT_EQ(hubCommandName(zeros, HubPhase::kBringUp), "INIT");
    EXPECT_EQ(hubCommandName(hubRecordOf("110c0000 00000000 03000000")), "INIT");
    EXPECT_EQ(hubCommandName(hubRecordOf("110c0000 00000000 03000000"), HubPhase::kRunning),
              "BYPASS_DISABLE");
}

TEST(Decode, ARecordAloneHasNoAnswer) {
    const Event event = decodeHub(hubRecordOf("000c0100 14000000 01000000 01000000"));
    EXPECT_EQ(toText(event, false), "hub  read register 0x0014 GYRO_CALIBRATION");
    EXPECT_TRUE(event.answer.empty());
    // The request's value word is part of the traffic.
    EXPECT_EQ(Json::parse(toJson(event))["fields"]["word"], 1);
}

// Who reads captures by hand reads the same as the decoder does.
TEST(Decode, AgreesWithTheDocument) {
    std::ifstream file(OIS_SOURCE_DIR "/docs/wire-formats.md");
    const std::string document{std::istreambuf_iterator<char>(file), {}};
    const auto expectRow = [&document](const std::string& row) {
        EXPECT_NE(document.find(row), std::string::npos) << row;
    };
    const auto named = [](std::string_view name) { return " | `" + std::string(name) + "` | "; };
    for (const RequestInfo& info : privateRequests()) {
        char columns[64];
        std::snprintf(columns, sizeof columns, "0x%08X | %u | %s | %zu |", info.code,
                      _IOC_NR(info.code) - 192U, std::string(direction(info.code)).c_str(), recordSize(info));
        expectRow("\n|" + named(info.name).substr(2) + columns);
    }
    for (const HubCommandInfo& info : hubCommands())
        expectRow("\n| " + std::to_string(info.id) + named(info.name));
    for (const RegisterInfo& info : registers()) {
        char address[16];
        std::snprintf(address, sizeof address, "\n| 0x%04x", ois::korva::address(info.reg));
        expectRow(address + named(info.name) + std::to_string(info.size) + " |");
    }
}

// Garbage of every kind and length: nothing may read past its bytes, and JSON stays JSON.
TEST(Decode, AnyBytesCanBeDecoded) {
    std::mt19937 random(20240607);
    const auto byte = [&random] { return static_cast<uint8_t>(random()); };
    const auto check = [](const Event& event) {
        EXPECT_FALSE(toText(event).empty());
        EXPECT_TRUE(Json::accept(toJson(event))) << toText(event);
    };
    std::vector<uint32_t> codes{0, 0xffffffff, 0x400456C3};
    for (const auto& table : {privateRequests(), mediaRequests()}) {
        for (const RequestInfo& info : table) codes.push_back(info.code);
    }
    for (const uint32_t code : codes) {
        for (int round = 0; round < 30; ++round) {
            Bytes in(random() % (_IOC_SIZE(code) + 9));
            Bytes out(random() % (_IOC_SIZE(code) + 9));
            std::generate(in.begin(), in.end(), byte);
            std::generate(out.begin(), out.end(), byte);
            in.shrink_to_fit();  // so that a sanitizer sees the first byte behind
            out.shrink_to_fit();
            check(decodeRequest(code, in, out));
        }
    }
    for (int id = 0; id < 256; ++id) {
        for (int round = 0; round < 10; ++round) {
            ois::OisCustomCmd sent;
            ois::OisCustomCmd answered;
            std::generate_n(reinterpret_cast<uint8_t*>(&sent), sizeof sent, byte);
            std::generate_n(reinterpret_cast<uint8_t*>(&answered), sizeof answered, byte);
            sent.id = static_cast<uint8_t>(id);
            // Most addresses are none of the controller's; half of the rounds use one that is.
            if (round % 2 == 0) {
                const uint32_t address = ois::korva::address(registers()[random() % registers().size()].reg);
                std::memcpy(sent.payload, &address, sizeof address);
            }
            check(decodeHub(sent, answered));
            check(decodeHub(sent));
        }
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
    Event event = decodeRequest(0x400456C2, bytes("02000000"), {});
    event.timeUs = 12345;
    event.thread = 1;
    event.hasResult = true;
    EXPECT_EQ(toText(event), "   12.345 ms  #1  sub-device  SET_MODE(0x400456C2) mode=2 -> 0");
    event.result = -1;
    event.error = EIO;
    event.fault = "SET_MODE:errno=EIO";
    EXPECT_EQ(toText(event, false),
              "sub-device  SET_MODE(0x400456C2) mode=2 -> -1 EIO (Input/output error)  [fault: "
              "SET_MODE:errno=EIO]");

    event = decodeRequest(0xC01856D0, bytes("", 24), bytes("", 24));
    event.hasResult = true;
    EXPECT_EQ(toText(event, false),
              "sub-device  READ_GAIN(0xC01856D0) axis=0 -> 0: valueXf=0 valueYf=0 valueXi=0 valueYi=0");
}

TEST(TraceText, HasAFormForEveryKind) {
    EXPECT_EQ(toText(eventOf(EventKind::kSleep, "usleep", {{"us", uint64_t{10000}}}), false), "sleep  10 ms");
    EXPECT_EQ(toText(eventOf(EventKind::kSleep, "usleep", {{"us", uint64_t{2500}}}), false), "sleep  2.5 ms");
    EXPECT_EQ(toText(eventOf(EventKind::kSleep, "usleep", {{"us", uint64_t{999}}}), false), "sleep  999 us");
    EXPECT_EQ(toText(eventOf(EventKind::kProperty, "a.b", {{"default", int64_t{3}}, {"value", int64_t{-1}}}),
                     false),
              "property  a.b = -1 (default 3)");
    Event read = eventOf(EventKind::kProperty, "a.c", {{"default", int64_t{3}}});
    read.hasResult = true;
    read.result = 4;
    EXPECT_EQ(toText(read, false), "property  a.c = 4 (default 3)");
    EXPECT_EQ(toText(eventOf(EventKind::kThread, "pthread_create"), false), "thread  pthread_create");

    Event event = eventOf(EventKind::kMessage, "unified", {{"level", std::string("error")}});
    event.text = "[SetMode] one\ntwo\n";
    EXPECT_EQ(toText(event, false), "message E [SetMode] one\\ntwo");

    event = eventOf(EventKind::kFile, "open", {{"path", std::string("/dev/media0")}});
    event.hasResult = true;
    event.result = 7;
    EXPECT_EQ(toText(event, false), "file  open path=/dev/media0 -> 7");

    event = eventOf(EventKind::kCall, "SetMode");
    event.text = "SetMode(2)";
    event.hasResult = true;
    EXPECT_EQ(toText(event, false), "call  SetMode(2) -> 0");
}

TEST(TraceText, KeepsControlCharactersFromTheTerminal) {
    const Event event =
        eventOf(EventKind::kNote, "x", {{"a", std::string("\x1b[31m\xff gr\u00fcn")}, {"b", std::string()}});
    EXPECT_EQ(toText(event, false), "note  x a=\"\\x1b[31m\\xff gr\u00fcn\" b=\"\"");
    const Event longText = eventOf(EventKind::kNote, "x", {{"a", std::string(5000, 'y')}});
    EXPECT_EQ(toText(longText, false), "note  x a=" + std::string(120, 'y') + "... (5000 characters)");
}

TEST(TraceJson, IsOneObjectWithStableKeys) {
    Event event = decodeRequest(0xC01856D0, bytes("01", 24), bytes("01", 24));
    event.sequence = 4;
    event.timeUs = 1500;
    event.thread = 2;
    event.hasResult = true;
    event.result = -1;
    event.error = EBUSY;
    event.fault = "f";
    EXPECT_EQ(
        toJson(event),
        R"({"sequence":4,"time_us":1500,"thread":2,"kind":"sub-device","name":"READ_GAIN","code":3222820560,)"
        R"("fields":{"axis":1},"answer":{"valueXf":0.0,"valueYf":0.0,"valueXi":0,"valueYi":0},)"
        R"("result":-1,"error":"EBUSY","fault":"f"})");
}

TEST(TraceJson, TakesAnyTextAndNumber) {
    const Event event = eventOf(EventKind::kNote, "n\xc3",
                                {{"text", std::string("a\"\n\xff\xc3\xa4")},
                                 {"float", static_cast<double>(0.1F)},
                                 {"double", 0.1},
                                 {"infinite", std::numeric_limits<double>::infinity()},
                                 {"nan", std::nan("")},
                                 {"large", std::numeric_limits<uint64_t>::max()}});
    const std::string text = toJson(event);
    EXPECT_EQ(text.find('\n'), std::string::npos);
    const Json object = Json::parse(text);
    EXPECT_EQ(object["name"], "n\xef\xbf\xbd");
    const Json& fields = object["fields"];
    EXPECT_EQ(fields["text"], "a\"\n\xef\xbf\xbd\xc3\xa4");
    EXPECT_EQ(fields["float"], 0.1);
    EXPECT_EQ(fields["double"], 0.1);
    EXPECT_EQ(fields["infinite"], "inf");
    EXPECT_EQ(fields["nan"], "nan");
    EXPECT_EQ(fields["large"], std::numeric_limits<uint64_t>::max());
}

// --- The trace.

TEST(TraceRecord, KeepsOrderTimeAndThread) {
    Clock clock(ClockMode::kSimulated);
    Trace trace(clock);
    trace.record(eventOf(EventKind::kNote, "first"));
    clock.sleepUs(2000);
    trace.record(eventOf(EventKind::kSleep, "second"));
    const auto events = trace.events();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].name, "first");
    EXPECT_EQ(events[0].sequence, 1U);
    EXPECT_EQ(events[1].sequence, 2U);
    EXPECT_EQ(events[1].timeUs - events[0].timeUs, 2000);
    EXPECT_EQ(events[1].thread, 0U);
    ASSERT_EQ(trace.events(EventKind::kSleep).size(), 1U);
    EXPECT_EQ(trace.events(EventKind::kSleep)[0].name, "second");
}

TEST(TraceRecord, CanBeOffHeardOrForgotten) {
    Clock clock(ClockMode::kSimulated);
    Trace trace(clock);
    std::vector<std::string> heard;
    trace.setListener([&heard](const Event& event) { heard.push_back(event.name); });
    trace.setEnabled(false);
    trace.record(eventOf(EventKind::kNote, "unheard"));
    trace.setEnabled(true);
    trace.setKeep(false);
    trace.record(eventOf(EventKind::kNote, "heard"));
    EXPECT_EQ(heard, std::vector<std::string>{"heard"});
    EXPECT_TRUE(trace.events().empty());
    EXPECT_EQ(trace.count(), 1U);
    trace.setKeep(true);
    trace.record(eventOf(EventKind::kNote, "kept"));
    EXPECT_EQ(trace.events().size(), 1U);
    trace.clear();
    EXPECT_EQ(trace.count(), 0U);
    EXPECT_TRUE(trace.events().empty());
}

TEST(TraceRecord, NumbersEventsOfAllThreadsInOneOrder) {
    constexpr int kThreads = 4;
    constexpr int kEvents = 500;
    Clock clock(ClockMode::kFreeRunning);
    Trace trace(clock);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < kEvents; ++n) trace.record(eventOf(EventKind::kNote, "n"));
        });
    }
    for (std::thread& thread : threads) thread.join();
    const auto events = trace.events();
    ASSERT_EQ(events.size(), size_t{kThreads * kEvents});
    for (size_t i = 0; i < events.size(); ++i) ASSERT_EQ(events[i].sequence, i + 1);
    EXPECT_TRUE(std::is_sorted(events.begin(), events.end(),
                               [](const Event& a, const Event& b) { return a.timeUs < b.timeUs; }));
}

// --- Faults.

struct FaultLine {
    const char* text;
    FaultPoint point;
    const char* key;
    uint64_t occurrence;
    FaultEffect effect;
};

TEST(FaultText, SaysWhereWhenAndWhat) {
    using Kind = FaultEffect::Kind;
    const FaultLine lines[] = {
        {"SET_MODE:errno=EBUSY", FaultPoint::kRequest, "SET_MODE", 0, {Kind::kFail, EBUSY, 0, 0, {}}},
        {"SET_MODE:errno=16", FaultPoint::kRequest, "SET_MODE", 0, {Kind::kFail, EBUSY, 0, 0, {}}},
        {"SET_MODE@3:lost", FaultPoint::kRequest, "SET_MODE", 3, {Kind::kLost, EIO, 0, 0, {}}},
        {"WRITE_REGISTER:slow=1.5ms",
         FaultPoint::kHubCommand,
         "WRITE_REGISTER",
         0,
         {Kind::kSlow, EIO, 1500, 0, {}}},
        {"hub.SET_MODE@2:slow=2s",
         FaultPoint::kHubCommand,
         "SET_MODE",
         2,
         {Kind::kSlow, EIO, 2000000, 0, {}}},
        {"hub:fail", FaultPoint::kHubCommand, "", 0, {Kind::kFail, EIO, 0, 0, {}}},
        {"READ_STATUS:garbage=fF00",
         FaultPoint::kRequest,
         "READ_STATUS",
         0,
         {Kind::kGarbage, EIO, 0, 0, {0xff, 0}}},
        {"request@7:result=-3", FaultPoint::kRequest, "", 7, {Kind::kResult, EIO, 0, -3, {}}},
        {"media.DEVICE_INFO:lost", FaultPoint::kMediaRequest, "DEVICE_INFO", 0, {Kind::kLost, EIO, 0, 0, {}}},
        {"open./dev/media1:errno=EACCES",
         FaultPoint::kOpen,
         "/dev/media1",
         0,
         {Kind::kFail, EACCES, 0, 0, {}}},
        {"readlink./sys/dev/char/81:3@1:errno=ENOENT",
         FaultPoint::kReadlink,
         "/sys/dev/char/81:3",
         1,
         {Kind::kFail, ENOENT, 0, 0, {}}},
        {"thread@2:errno=EAGAIN", FaultPoint::kThreadCreate, "", 2, {Kind::kFail, EAGAIN, 0, 0, {}}},
        {"sensor-disable:result=-1", FaultPoint::kSensorDisable, "", 0, {Kind::kResult, EIO, 0, -1, {}}},
        {"telemetry:fail", FaultPoint::kTelemetry, "", 0, {Kind::kFail, EIO, 0, 0, {}}},
    };
    for (const FaultLine& line : lines) {
        const FaultRule rule = parseFault(line.text);
        EXPECT_EQ(rule.point, line.point) << line.text;
        EXPECT_EQ(rule.key, line.key) << line.text;
        EXPECT_EQ(rule.occurrence, line.occurrence) << line.text;
        EXPECT_EQ(rule.effect.kind, line.effect.kind) << line.text;
        EXPECT_EQ(rule.effect.error, line.effect.error) << line.text;
        EXPECT_EQ(rule.effect.delayUs, line.effect.delayUs) << line.text;
        EXPECT_EQ(rule.effect.result, line.effect.result) << line.text;
        EXPECT_EQ(rule.effect.bytes, line.effect.bytes) << line.text;
        EXPECT_EQ(rule.text, line.text);
    }
}

TEST(FaultText, ErrorsSayWhatWouldBeRight) {
    const std::pair<const char*, const char*> lines[] = {
        {"", "an effect is missing"},
        {"SET_MODE", "an effect is missing; write 'SET_MODE:EFFECT' with one of: fail, errno=EIO, lost"},
        {":lost", "what shall fail?"},
        {"set_mode:lost", "did you mean 'SET_MODE'?"},
        {"READ_REGISTR:lost", "did you mean 'READ_REGISTER'?"},
        {"hub.CHECK_STATUS:lost", "no hub command 'CHECK_STATUS'; it may be: READ_REGISTER, WRITE_REGISTER"},
        {"hup.SET_MODE:lost", "did you mean 'hub'?"},
        {"hub.:lost", "a name is missing behind 'hub.'"},
        {"thread.x:fail", "'thread' takes no name"},
        {"open.dev/media0:fail", "paths begin with '/'"},
        {"SET_MODE@0:lost", "count from 1 on"},
        {"SET_MODE@x:lost", "count from 1 on"},
        {"SET_MODE:losy", "did you mean 'lost'?"},
        {"SET_MODE:errno=EBUSSY", "did you mean 'EBUSY'?"},
        {"SET_MODE:errno=0", "no error '0'"},
        {"SET_MODE:errno", "a value is missing, as in 'errno=EIO'"},
        {"SET_MODE:lost=1", "'lost' takes no value"},
        {"SET_MODE:slow=20", "with us, ms or s, as in 'slow=20ms'"},
        {"SET_MODE:slow=-1ms", "is no delay"},
        {"SET_MODE:slow=nans", "is no delay"},
        {"SET_MODE:garbage=f", "pairs of hex digits"},
        {"SET_MODE:garbage=zz", "pairs of hex digits"},
        {"SET_MODE:result=x", "is no result"},
        {"thread:garbage=00", "'garbage' means nothing at 'thread'; it may be: fail, errno=EIO, slow=20ms"},
    };
    for (const auto& [text, expected] : lines) {
        try {
            parseFault(text);
            ADD_FAILURE() << text << " was taken";
        } catch (const std::invalid_argument& error) {
            const std::string message = error.what();
            EXPECT_NE(message.find(expected), std::string::npos) << message;
            EXPECT_EQ(message.rfind("fault '" + std::string(text) + "'", 0), 0U) << message;
            EXPECT_EQ(message.find('\n'), std::string::npos);
        }
    }
}

TEST(FaultStrikes, CountMatchesOfEachRule) {
    Faults faults;
    EXPECT_FALSE(faults.strike(FaultPoint::kRequest, "SET_MODE"));
    faults.add(parseFault("SET_MODE@2:lost"));
    faults.add(parseFault("request:slow=1ms"));
    EXPECT_EQ(faults.strike(FaultPoint::kRequest, "SET_MODE")->text, "request:slow=1ms");
    EXPECT_FALSE(faults.strike(FaultPoint::kHubCommand, "SET_MODE"));
    EXPECT_EQ(faults.strike(FaultPoint::kRequest, "READ_GAIN")->text, "request:slow=1ms");
    // The first rule that is due strikes.
    EXPECT_EQ(faults.strike(FaultPoint::kRequest, "SET_MODE")->effect.kind, FaultEffect::Kind::kLost);
    EXPECT_EQ(faults.strike(FaultPoint::kRequest, "SET_MODE")->text, "request:slow=1ms");
    EXPECT_EQ(faults.strikes(), 4U);
    faults.clear();
    EXPECT_FALSE(faults.strike(FaultPoint::kRequest, "SET_MODE"));
}

TEST(FaultStrikes, AnOverrideDecidesFirstAndMayDecline) {
    Faults faults;
    faults.add(parseFault("SET_MODE:lost"));
    faults.setOverride([](FaultPoint, std::string_view, std::span<const uint8_t> input) {
        FaultEffect effect;
        effect.error = ENODEV;
        return !input.empty() && input[0] == 2 ? std::optional(effect) : std::nullopt;
    });
    EXPECT_EQ(faults.strike(FaultPoint::kRequest, "SET_MODE", bytes("02000000"))->effect.error, ENODEV);
    EXPECT_EQ(faults.strike(FaultPoint::kRequest, "SET_MODE", bytes("03000000"))->text, "SET_MODE:lost");
    EXPECT_FALSE(faults.strike(FaultPoint::kRequest, "READ_GAIN", bytes("03")));
    faults.setOverride(nullptr);
    EXPECT_EQ(faults.strike(FaultPoint::kRequest, "SET_MODE", bytes("02"))->text, "SET_MODE:lost");
}

// --- Captures on the command line.

struct Decoded {
    int status;
    std::string out;
    std::string err;
};

Decoded decode(const std::vector<std::string>& inputs, const std::string& standardInput = {},
               bool json = false, const std::optional<std::string>& file = std::nullopt) {
    std::istringstream in(standardInput);
    std::ostringstream out;
    std::ostringstream err;
    const int status = oisctl::runDecode(inputs, file, json, in, out, err);
    return {status, out.str(), err.str()};
}

std::string hubDigits(const std::string& start) {
    return start + std::string(128 - start.size(), '0');
}

constexpr const char* kFixModeInfo =
    "sub-device  SET_FIX_MODE(0xC01856D4)  read/write, 24 bytes (OisFixMode): holds the lens at a target\n";
constexpr const char* kModeTwo = "sub-device  SET_MODE(0x400456C2) mode=2\n";
constexpr const char* kModeOn = "hub  write register 0x0002 STABILISATION_MODE = 16\n";

TEST(DecodeCommand, ReadsRequestsAndRecordsAsTheyAreCaptured) {
    const std::string record = hubDigits("010c0000020000000100000010000000");
    const std::pair<std::string, std::string> items[] = {
        {"0xC01856D4", kFixModeInfo},
        {"c01856d4", kFixModeInfo},
        {"SET_FIX_MODE", kFixModeInfo},
        {"ffffffffc01856d4", kFixModeInfo},  // sign-extended
        {"[pid 7] ioctl(5, _IOC(_IOC_READ|_IOC_WRITE, 0x56, 0xd4, 0x18), 0x7ffd) = 0", kFixModeInfo},
        {"ioctl(5, 0xc01856d4, 0x7ffd) = -1 ENOTTY (Inappropriate ioctl for device)", kFixModeInfo},
        {"400456C2:02000000", kModeTwo},
        {"0x400456C2 02 00 00 00", kModeTwo},
        {"SET_MODE: {0x2, 0x0, 0x0, 0x0}", kModeTwo},
        {record, kModeOn},
        {record.substr(0, 4) + " " + record.substr(4), kModeOn},
        {"static const uint8_t r[64] = { 0x01, 0x0C, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 0x10" +
             [] {
                 std::string zeros;
                 for (int i = 0; i < 51; ++i) zeros += ", 0";
                 return zeros;
             }() +
             "};",
         kModeOn},
        {hubDigits("000c01000100000001000000") + " -> " + hubDigits("000c010001"),
         "hub  read register 0x0001 STATE = 1\n"},
        {"READ_GAIN: " + std::string(48, '0') + " -> " + std::string(40, '0') + "2a000000",
         "sub-device  READ_GAIN(0xC01856D0) axis=0 -> valueXf=0 valueYf=0 valueXi=0 valueYi=42\n"},
    };
    for (const auto& [item, expected] : items) {
        const Decoded argument = decode({item});
        EXPECT_EQ(argument.out, expected) << item << '\n' << argument.err;
        EXPECT_EQ(argument.status, 0) << item;
        EXPECT_EQ(decode({}, item + "\n").out, expected) << item;
    }
}

TEST(DecodeCommand, PutsTogetherWhatAShellOrAnEditorSplit) {
    EXPECT_EQ(decode({"400456C2", "02000000", "C01856D4"}).out, std::string(kModeTwo) + kFixModeInfo);
    EXPECT_EQ(decode({hubDigits("000c01000100000001000000"), "->", hubDigits("000c010001")}).out,
              "hub  read register 0x0001 STATE = 1\n");
    const std::string record = hubDigits("010c0000020000000100000010000000");
    const std::string lines = "# a capture\n\nSET_MODE: {0x02, 0x00, # low\n 0x00,\n 0x00}\n" +
                              record.substr(0, 60) + "\\\n" + record.substr(60) +
                              "\n+++ exited with 0 +++\n0xC01856D4\n";
    EXPECT_EQ(decode({}, lines).out, std::string(kModeTwo) + kModeOn + kFixModeInfo);
    EXPECT_EQ(decode({}, "SET_MODE: {2, 0, 0, 0},\n0xC01856D4\n").out, std::string(kModeTwo) + kFixModeInfo);
}

TEST(DecodeCommand, ReportsWhatItCannotReadAndGoesOn) {
    const std::pair<std::string, std::string> items[] = {
        {hubDigits("01").substr(0, 126),
         "a hub record has 64 bytes, that is 128 hex digits; here are 126, 2 missing"},
        {hubDigits("01") + "00", "here are 130, 2 too many"},
        {"400456C2: 0200", "the record of SET_MODE has 4 bytes, that is 8 hex digits; here are 4, 4 missing"},
        {"400456C2: 0200000g", "'0200000g' is not hexadecimal"},
        {"400456C2: 0x00000002", "write the bytes in memory order"},
        {"SET_MOD", "did you mean 'SET_MODE'?"},
        {"0x400456C21", "a request has 8"},
        {"a b: 00", "':' stands behind a request's code"},
        {"ioctl(5, TCGETS, 0x7ffd) = 0", "'TCGETS' is neither a request"},
        {"SET_MODE: {02, 00", "'{' is not closed"},
        {"\x1b[2J\xff", "'?[2J?' is neither a request"},
    };
    for (const auto& [item, expected] : items) {
        const Decoded decoded = decode({}, "0xC01856D4\n" + item + "\n0xC01856D4\n");
        EXPECT_EQ(decoded.out, std::string(kFixModeInfo) + kFixModeInfo) << item;
        EXPECT_EQ(decoded.err.rfind("standard input:2: ", 0), 0U) << decoded.err;
        EXPECT_NE(decoded.err.find(expected), std::string::npos) << decoded.err;
        EXPECT_EQ(std::count(decoded.err.begin(), decoded.err.end(), '\n'), 1) << decoded.err;
        EXPECT_NE(decoded.status, 0);
    }
}

TEST(DecodeCommand, ReadsFilesAndSaysWhenThereIsNothing) {
    const auto path =
        std::filesystem::temp_directory_path() / ("ois_decode_" + std::to_string(getpid()) + ".txt");
    std::ofstream(path) << "0xC01856D4\r\n";
    EXPECT_EQ(decode({}, {}, false, path.string()).out, kFixModeInfo);
    std::filesystem::remove(path);
    const Decoded missing = decode({}, {}, false, path.string());
    EXPECT_NE(missing.status, 0);
    EXPECT_EQ(missing.err, path.string() + ": cannot be read: No such file or directory\n");
    EXPECT_EQ(decode({}, "0xC01856D4\n", false, "-").out, kFixModeInfo);
    const Decoded empty = decode({}, "# nothing\n");
    EXPECT_NE(empty.status, 0);
    EXPECT_NE(empty.err.find("nothing to decode"), std::string::npos);
}

TEST(DecodeCommand, WritesJson) {
    const Json info = Json::parse(decode({"0xC01856D4"}, {}, true).out);
    EXPECT_EQ(info["name"], "SET_FIX_MODE");
    EXPECT_EQ(info["size"], 24);
    EXPECT_EQ(info["direction"], "read/write");
    const Json record = Json::parse(decode({"400456C2", "02000000"}, {}, true).out);
    EXPECT_EQ(record["fields"]["mode"], 2);
    EXPECT_FALSE(record.contains("time_us"));
}

}  // namespace

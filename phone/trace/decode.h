#pragma once
// What travels between driver and controller, by name: private and media requests, hub commands, registers,
// and the fields of their records. The tables are constant; every function here may be called from any
// thread.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "trace/trace.h"
#include "wire/hub_commands.h"
#include "wire/registers.h"
#include "wire/requests.h"

namespace phone {

// How the bytes of a record's field read; all little-endian.
enum class FieldType {
    kUnsigned,  // integers of the field's size
    kSigned,
    kHex,  // unsigned, shown in hexadecimal
    kFloat,
    kAngle,   // a float's bits, or the integer 1 when no angle applies
    kText,    // NUL-terminated or full
    kFloats,  // an array of floats
    kBytes,
};

struct RecordField {
    std::string_view name;
    FieldType type = FieldType::kUnsigned;
    size_t offset = 0;
    size_t size = 0;        // bytes
    bool answered = false;  // filled in by whoever answers
    // Of an array: the field that says how many elements count. Empty: all.
    std::string_view countField = {};
};

struct RecordLayout {
    std::string_view name;  // as the headers have it
    size_t size = 0;        // bytes
    std::span<const RecordField> fields;
};

struct RequestInfo {
    std::string_view name;  // "SET_MODE"
    uint32_t code = 0;      // the whole request
    EventKind kind = EventKind::kSubDevice;
    const RecordLayout* record = nullptr;
    bool reads = false;  // the record's answered fields are what it asks for
    std::string_view meaning;
};
// Bytes that travel.
constexpr size_t recordSize(const RequestInfo& info) {
    return _IOC_SIZE(info.code);
}
// "write", "read/write", "read" or "none".
std::string_view direction(uint32_t request);

struct HubCommandInfo {
    std::string_view name;  // "WRITE_REGISTER"
    int32_t id = 0;
    const RecordLayout* record = nullptr;  // null: any bytes
    bool reads = false;
    std::string_view meaning;
};

struct RegisterInfo {
    std::string_view name;  // "STABILISATION_MODE"
    uint32_t address = 0;
    size_t size = 1;  // bytes
    FieldType format = FieldType::kUnsigned;
    std::string_view meaning;
};

// In order of request number, command id and address.
std::span<const RequestInfo> privateRequests();
std::span<const RequestInfo> mediaRequests();
std::span<const HubCommandInfo> hubCommands();
std::span<const RegisterInfo> registers();

// Null when there is none. Names are exact.
const RequestInfo* findRequest(std::string_view name);
const RequestInfo* findRequest(uint32_t code);
const HubCommandInfo* findHubCommand(std::string_view name);
// Id 17 has two meanings; see `hubCommand`.
const HubCommandInfo* findHubCommand(int32_t id);
const RegisterInfo* findRegister(std::string_view name);
const RegisterInfo* findRegister(uint32_t address);

// What that record asks for; null for an unknown id.
const HubCommandInfo* hubCommand(const ois::OisCustomCmd& command, HubPhase phase = HubPhase::kUnknown);
// The layout of its payload; null when only its bytes can be shown.
const RecordLayout* hubRecord(const ois::OisCustomCmd& command, HubPhase phase = HubPhase::kUnknown);
// The request's name, or its parts: "type 'V' number 0xC3 size 4 write: unknown".
std::string requestName(uint32_t request);

// The fields of a record, as far as `bytes` reach.
std::vector<Field> decodeRecord(const RecordLayout& layout, std::span<const uint8_t> bytes);

// A private or media request as an event, with its record as it went in and, unless it failed, as it came
// out; either may be empty. A record to the hub, and what came back if anything did.
Event requestEvent(uint32_t request, std::span<const uint8_t> in, std::span<const uint8_t> out);
Event hubEvent(const ois::OisCustomCmd& sent, const ois::OisCustomCmd* answered,
               HubPhase phase = HubPhase::kUnknown);

// What an event is about.
struct Decoded {
    std::string name{};           // "SET_MODE", "COMMAND_99"; of other events their own
    std::vector<Field> fields{};  // what was sent
    // What came back: of a request what it asked for, and whatever else changed; of a record to the hub, also
    // what the hub left as it was, for that is what the driver reads.
    std::vector<Field> answer{};
    std::string sentence{};  // how all of that reads, where it reads better than as a list
};
Decoded decode(const Event& event);
// Its name alone.
std::string nameOf(const Event& event);
// A field that requests or hub commands of some name decode to.
struct FieldKind {
    std::string_view name;
    bool isText = false;  // else a number
};
// All that those of that name may decode to, whichever way they go; empty for an unknown name.
std::vector<FieldKind> fieldKinds(std::string_view command);
// A field of what came back, or else of what was sent; 0 when neither has it or it is no number.
int64_t integerField(const Decoded& decoded, std::string_view name);

// The record that went out or came back, as far as the bytes reach; the rest is zero.
template <typename Record>
Record recordOf(std::span<const uint8_t> bytes) {
    Record record{};
    std::ranges::copy(bytes.first(std::min(sizeof record, bytes.size())),
                      reinterpret_cast<uint8_t*>(&record));
    return record;
}

// The shortest text that reads back as the same number. What came as a float reads as one: 0.1 and not
// 0.10000000149011612.
std::string numberText(double value);

// "EIO", "error 4711"; and back, 0 for what is no error's name.
std::string errorName(int error);
int errorByName(std::string_view name);
// "EIO (Input/output error)"
std::string errorText(int error);

// "0c 00 ff"; "0c00ff", and back (throws std::invalid_argument).
std::string hexBytes(std::span<const uint8_t> bytes);
std::string hexOf(std::span<const uint8_t> bytes);
std::vector<uint8_t> bytesOfHex(std::string_view text);

}  // namespace phone

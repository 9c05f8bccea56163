#pragma once
// What travels between driver and controller, by name: private and media requests, hub commands, registers,
// and the fields of their records. The tables are constant; every function here may be called from any
// thread.

#include <cstddef>
#include <cstdint>
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
    kInt32,
    kUint32,
    kHex32,  // uint32, shown in hexadecimal
    kFloat,
    kAngle,  // a float's bits, or the integer 1 when no angle applies
    kUint64,
    kInt16,
    kUint16,
    kUint8,
    kText,    // NUL-terminated or full
    kFloats,  // an array of floats
    kBytes,
};

struct RecordField {
    std::string_view name;
    FieldType type = FieldType::kInt32;
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

enum class RegisterFormat { kUnsigned, kSigned, kHex, kFloat };

struct RegisterInfo {
    std::string_view name;  // "STABILISATION_MODE"
    uint32_t address = 0;
    size_t size = 1;  // bytes
    RegisterFormat format = RegisterFormat::kUnsigned;
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
const RequestInfo* findMediaRequest(std::string_view name);
const RequestInfo* findMediaRequest(uint32_t code);
const HubCommandInfo* findHubCommand(std::string_view name);
// Id 17 has two meanings; see `hubCommand`.
const HubCommandInfo* findHubCommand(int32_t id);
const RegisterInfo* findRegister(std::string_view name);
const RegisterInfo* findRegister(uint32_t address);

// Where the hub stands when a record of id 17 reaches it: the first after the channel was enabled is INIT.
enum class HubPhase {
    kUnknown,  // told by the payload: all zero is BYPASS_DISABLE
    kBringUp,
    kRunning,
};
// What that record asks for; null for an unknown id.
const HubCommandInfo* hubCommand(const ois::OisCustomCmd& command, HubPhase phase = HubPhase::kUnknown);
// The layout of its payload; null when only its bytes can be shown.
const RecordLayout* hubRecord(const ois::OisCustomCmd& command, HubPhase phase = HubPhase::kUnknown);
// Its name, or "COMMAND_<id>".
std::string hubCommandName(const ois::OisCustomCmd& command, HubPhase phase = HubPhase::kUnknown);

// The request's name, or its parts: "type 'V' number 0xC3 size 4 write: unknown".
std::string requestName(uint32_t request);

// The fields of a record, as far as `bytes` reach.
std::vector<Field> decodeRecord(const RecordLayout& layout, std::span<const uint8_t> bytes);

// A private or media request, with its record as it went in and, unless it failed, as it came out; either may
// be empty. `answer` holds what was asked for and whatever else came back changed.
Event decodeRequest(uint32_t request, std::span<const uint8_t> in, std::span<const uint8_t> out);

// A record to the hub, before and after. What was asked for is decoded from `answered` also when the hub left
// it as it was: that is what the driver reads.
Event decodeHub(const ois::OisCustomCmd& sent, const ois::OisCustomCmd& answered,
                HubPhase phase = HubPhase::kUnknown);
// The record alone, as sent.
Event decodeHub(const ois::OisCustomCmd& sent, HubPhase phase = HubPhase::kUnknown);

// "0c 00 ff".
std::string hexBytes(std::span<const uint8_t> bytes);

}  // namespace phone

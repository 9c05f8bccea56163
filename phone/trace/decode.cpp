#include "trace/decode.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace phone {

namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";
constexpr uint32_t kMediaType = '|';
constexpr uint32_t kNoAngle = 1;  // the integer that stands for "no angle applies"

std::string hexNumber(uint32_t value, int digits, bool upperCase = false) {
    std::string text = "0x";
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        const char digit = kHexDigits[value >> shift & 0xfU];
        text += upperCase && digit >= 'a' ? static_cast<char>(digit - 'a' + 'A') : digit;
    }
    return text;
}

// A number whose last bytes may be missing; they count as 0.
template <typename T>
T numberAt(std::span<const uint8_t> bytes) {
    std::array<uint8_t, sizeof(T)> raw{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof(T)), raw.begin());
    T value;
    std::memcpy(&value, raw.data(), sizeof value);
    return value;
}

std::string textOf(std::span<const uint8_t> bytes) {
    return {bytes.begin(), std::find(bytes.begin(), bytes.end(), uint8_t{0})};
}

std::string shortFloat(float value) {
    std::array<char, 32> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.6g", static_cast<double>(value));
    return {text.data(), static_cast<size_t>(length)};
}

std::string floatList(std::span<const uint8_t> bytes) {
    std::string text;
    for (size_t at = 0; at + sizeof(float) <= bytes.size(); at += sizeof(float)) {
        if (!text.empty()) text += ' ';
        text += shortFloat(numberAt<float>(bytes.subspan(at)));
    }
    return text;
}

size_t elementSize(FieldType type) {
    return type == FieldType::kFloats ? sizeof(float) : 1;
}

// The elements of an array field that count, by the field of the same record that says so.
std::span<const uint8_t> countedElements(const RecordLayout& layout, const RecordField& field,
                                         std::span<const uint8_t> record, std::span<const uint8_t> elements) {
    for (const RecordField& counter : layout.fields) {
        if (counter.name != field.countField || counter.offset >= record.size()) continue;
        const auto bytes =
            record.subspan(counter.offset, std::min(counter.size, record.size() - counter.offset));
        return elements.first(
            std::min<size_t>(elements.size(), numberAt<uint32_t>(bytes) * elementSize(field.type)));
    }
    return elements;
}

Field decodeAngle(const RecordField& field, std::span<const uint8_t> bytes) {
    const auto bits = numberAt<uint32_t>(bytes);
    if (bits == kNoAngle) return {std::string(field.name), std::string("none")};
    return {std::string(field.name), static_cast<double>(numberAt<float>(bytes))};
}

Field decodeField(const RecordLayout& layout, const RecordField& field, std::span<const uint8_t> record) {
    std::string name(field.name);
    const auto bytes = record.subspan(field.offset, std::min(field.size, record.size() - field.offset));
    switch (field.type) {
        case FieldType::kInt32:
            return {std::move(name), int64_t{numberAt<int32_t>(bytes)}};
        case FieldType::kUint32:
            return {std::move(name), uint64_t{numberAt<uint32_t>(bytes)}};
        case FieldType::kHex32:
            return {std::move(name), uint64_t{numberAt<uint32_t>(bytes)}, true};
        case FieldType::kFloat:
            return {std::move(name), static_cast<double>(numberAt<float>(bytes))};
        case FieldType::kAngle:
            return decodeAngle(field, bytes);
        case FieldType::kUint64:
            return {std::move(name), numberAt<uint64_t>(bytes)};
        case FieldType::kInt16:
            return {std::move(name), int64_t{numberAt<int16_t>(bytes)}};
        case FieldType::kUint16:
            return {std::move(name), uint64_t{numberAt<uint16_t>(bytes)}};
        case FieldType::kUint8:
            return {std::move(name), uint64_t{numberAt<uint8_t>(bytes)}};
        case FieldType::kText:
            return {std::move(name), textOf(bytes)};
        case FieldType::kFloats:
            return {std::move(name), floatList(countedElements(layout, field, record, bytes))};
        case FieldType::kBytes:
            return {std::move(name), hexBytes(countedElements(layout, field, record, bytes))};
    }
    return {std::move(name), std::string()};
}

// What is not as the layout has it.
void addSizeRemark(std::vector<Field>& fields, const RecordLayout& layout, std::span<const uint8_t> bytes) {
    if (bytes.size() < layout.size) {
        fields.push_back(
            {"carried", std::to_string(bytes.size()) + " of " + std::to_string(layout.size) + " bytes"});
    } else if (bytes.size() > layout.size) {
        const auto rest = bytes.subspan(layout.size);
        const bool zero = std::all_of(rest.begin(), rest.end(), [](uint8_t byte) { return byte == 0; });
        if (!zero) fields.push_back({"further", hexBytes(rest)});
    }
}

std::vector<Field> sentFields(const RecordLayout& layout, bool reads, std::span<const uint8_t> in) {
    std::vector<Field> fields;
    if (in.empty()) return fields;
    fields.reserve(layout.fields.size());
    for (const RecordField& field : layout.fields) {
        if (field.offset >= in.size() || (reads && field.answered)) continue;
        fields.push_back(decodeField(layout, field, in));
    }
    addSizeRemark(fields, layout, in);
    return fields;
}

bool sameBytes(const RecordField& field, std::span<const uint8_t> in, std::span<const uint8_t> out) {
    const size_t end = field.offset + field.size;
    return in.size() >= end && out.size() >= end &&
           std::memcmp(in.data() + field.offset, out.data() + field.offset, field.size) == 0;
}

// What was asked for, and whatever else changed on the way.
std::vector<Field> answeredFields(const RecordLayout& layout, bool reads, std::span<const uint8_t> in,
                                  std::span<const uint8_t> out) {
    std::vector<Field> fields;
    for (const RecordField& field : layout.fields) {
        if (field.offset >= out.size()) continue;
        const bool asked = reads && field.answered;
        if (asked || (!in.empty() && !sameBytes(field, in, out)))
            fields.push_back(decodeField(layout, field, out));
    }
    return fields;
}

std::string typeName(uint32_t request) {
    const auto type = static_cast<unsigned char>(_IOC_TYPE(request));
    if (type < ' ' || type > '~') return hexNumber(type, 2);
    return {'\'', static_cast<char>(type), '\''};
}

// A known request that differs in size or direction alone.
const RequestInfo* sameNumber(uint32_t request) {
    for (const auto& table : {privateRequests(), mediaRequests()}) {
        for (const RequestInfo& info : table) {
            if (_IOC_TYPE(info.code) == _IOC_TYPE(request) && _IOC_NR(info.code) == _IOC_NR(request))
                return &info;
        }
    }
    return nullptr;
}

Event unknownRequest(uint32_t request, std::span<const uint8_t> in, std::span<const uint8_t> out) {
    Event event;
    event.kind = _IOC_TYPE(request) == kMediaType ? EventKind::kMedia : EventKind::kSubDevice;
    event.name = requestName(request);
    event.code = request;
    event.text = hexNumber(request, 8, true) + ": " + event.name;
    if (!in.empty()) {
        event.fields.push_back({"bytes", hexBytes(in)});
        event.text += " bytes=" + toText(event.fields.back());
    }
    if (!out.empty() && !std::equal(in.begin(), in.end(), out.begin(), out.end())) {
        event.answer.push_back({"bytes", hexBytes(out)});
    }
    return event;
}

// --- The hub's records.

std::span<const uint8_t> hubInput(const ois::OisCustomCmd& sent) {
    return {sent.payload, std::min<size_t>(sent.inputLength, ois::kHubPayloadSize)};
}
std::span<const uint8_t> hubOutput(const ois::OisCustomCmd& sent, const ois::OisCustomCmd& answered) {
    return {answered.payload, std::min<size_t>(sent.outputLength, ois::kHubPayloadSize)};
}

uint32_t lowBytes(uint32_t word, uint32_t count) {
    return count >= sizeof word ? word : word & ((1U << (8 * count)) - 1);
}

// A register's value. A width other than the register's own says nothing about its meaning.
Field registerValue(const RegisterInfo* reg, uint32_t byteCount, uint32_t word) {
    const uint32_t bits = lowBytes(word, byteCount);
    const bool asDeclared = reg != nullptr && reg->size == byteCount;
    if (asDeclared && reg->format == RegisterFormat::kFloat) {
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return {"value", static_cast<double>(value)};
    }
    if (asDeclared && reg->format == RegisterFormat::kSigned) {
        return {"value", int64_t{static_cast<int16_t>(bits)}};
    }
    return {"value", uint64_t{bits}, reg == nullptr || reg->format == RegisterFormat::kHex};
}

std::string registerName(const RegisterInfo* reg) {
    return reg == nullptr ? "unknown" : std::string(reg->name);
}

// "register 0x0002 STABILISATION_MODE"
std::string registerText(const RegisterInfo* reg, const ois::HubRegisterAccess& access) {
    constexpr uint32_t kFourDigits = 0xffff;
    std::string text = "register " + hexNumber(access.address, access.address > kFourDigits ? 8 : 4) + " ";
    text += registerName(reg);
    if (reg == nullptr || reg->size != access.byteCount) {
        text += " (" + std::to_string(access.byteCount) + (access.byteCount == 1 ? " byte" : " bytes");
        if (reg != nullptr) text += " of a register of " + std::to_string(reg->size);
        text += ")";
    }
    return text;
}

void decodeRegisterAccess(Event& event, const ois::OisCustomCmd& sent, const ois::OisCustomCmd* answered) {
    const auto access = numberAt<ois::HubRegisterAccess>(hubInput(sent));
    const RegisterInfo* reg = findRegister(access.address);
    const bool writes = sent.id == ois::idByte(ois::HubCommand::kKorvaWriteReg);
    event.text = (writes ? "write " : "read ") + registerText(reg, access);
    event.fields = {{"address", uint64_t{access.address}, true},
                    {"register", registerName(reg)},
                    {"byte_count", uint64_t{access.byteCount}}};
    if (writes) {
        event.fields.push_back(registerValue(reg, access.byteCount, access.value));
        event.text += " = " + toText(event.fields.back());
    } else {
        // Some reads still carry the value of the write before them.
        if (access.value != 0) event.fields.push_back({"word", uint64_t{access.value}, true});
        if (answered == nullptr) return;
        const auto output = hubOutput(sent, *answered);
        event.answer.push_back(
            registerValue(reg, static_cast<uint32_t>(std::min<size_t>(output.size(), sizeof(uint32_t))),
                          numberAt<uint32_t>(output)));
        event.text += " = " + toText(event.answer.back());
    }
    if (hubInput(sent).size() < sizeof access) addSizeRemark(event.fields, *hubRecord(sent), hubInput(sent));
}

std::string_view outcomeName(uint32_t code) {
    switch (static_cast<ois::FirmwareOutcome>(code)) {
        case ois::FirmwareOutcome::kUpdated:
            return "updated";
        case ois::FirmwareOutcome::kControllerError:
            return "controller error";
        case ois::FirmwareOutcome::kNotUpdated:
            return "not updated";
    }
    return "unknown";
}

void answerFirmware(Event& event, std::string_view name, const ois::OisCustomCmd& sent,
                    const ois::OisCustomCmd* answered) {
    if (answered == nullptr) return;
    event.answer.push_back(
        {std::string(name), uint64_t{numberAt<uint32_t>(hubOutput(sent, *answered))}, name == "check_value"});
}

void decodeFirmware(Event& event, const ois::OisCustomCmd& sent, const ois::OisCustomCmd* answered) {
    const auto command = numberAt<ois::HubFirmwareCommand>(hubInput(sent));
    const uint64_t first = command.argument1;
    const uint64_t second = command.argument2;
    std::vector<Field>& fields = event.fields;
    fields = {{"op", uint64_t{static_cast<uint32_t>(command.op)}}};
    if (command.op == ois::FirmwareOp::kReport) {
        fields.insert(fields.end(), {{"action", std::string("report")},
                                     {"outcome", std::string(outcomeName(command.argument1))},
                                     {"outcome_code", first},
                                     {"value", second, true}});
    } else if (command.op == ois::FirmwareOp::kImage && sent.outputLength != 0) {
        fields.push_back({"action", std::string("image version")});
        answerFirmware(event, "version", sent, answered);
    } else if (command.op == ois::FirmwareOp::kImage) {
        fields.insert(fields.end(),
                      {{"action", std::string("write block")}, {"address", first, true}, {"size", second}});
    } else if (command.op == ois::FirmwareOp::kCheckValue) {
        fields.push_back({"action", std::string("image check value")});
        answerFirmware(event, "check_value", sent, answered);
    } else {
        fields.insert(fields.end(),
                      {{"action", std::string("unknown")}, {"argument1", first}, {"argument2", second}});
    }
    if (hubInput(sent).size() < sizeof command) addSizeRemark(fields, *hubRecord(sent), hubInput(sent));
}

void decodeHubRecord(Event& event, const HubCommandInfo* info, const RecordLayout* layout,
                     const ois::OisCustomCmd& sent, const ois::OisCustomCmd* answered) {
    const auto in = hubInput(sent);
    const bool reads = info != nullptr && info->reads;
    if (layout != nullptr) {
        event.fields = sentFields(*layout, reads, in);
    } else if (!in.empty()) {
        event.fields.push_back({"bytes", hexBytes(in)});
    }
    if (answered == nullptr || sent.outputLength == 0) return;
    const auto out = hubOutput(sent, *answered);
    if (reads && layout != nullptr) {
        event.answer = answeredFields(*layout, reads, in, out);
    } else {
        event.answer.push_back({"bytes", hexBytes(out)});
    }
}

Event decodeHubEvent(const ois::OisCustomCmd& sent, const ois::OisCustomCmd* answered, HubPhase phase) {
    Event event;
    event.kind = EventKind::kHub;
    event.name = hubCommandName(sent, phase);
    event.code = sent.id;
    switch (static_cast<ois::HubCommand>(sent.id)) {
        case ois::HubCommand::kKorvaReadReg:
        case ois::HubCommand::kKorvaWriteReg:
            decodeRegisterAccess(event, sent, answered);
            break;
        case ois::HubCommand::kKorvaFwCmd:
            decodeFirmware(event, sent, answered);
            break;
        default:
            decodeHubRecord(event, hubCommand(sent, phase), hubRecord(sent, phase), sent, answered);
            break;
    }
    return event;
}

}  // namespace

std::string_view direction(uint32_t request) {
    constexpr std::array<std::string_view, 4> kNames{"none", "write", "read", "read/write"};
    static_assert(_IOC_WRITE == 1 && _IOC_READ == 2);
    return kNames[_IOC_DIR(request)];
}

std::string hexBytes(std::span<const uint8_t> bytes) {
    std::string text;
    text.reserve(bytes.size() * 3);
    for (const uint8_t byte : bytes) {
        if (!text.empty()) text += ' ';
        text += kHexDigits[byte >> 4U];
        text += kHexDigits[byte & 0xfU];
    }
    return text;
}

std::string requestName(uint32_t request) {
    const RequestInfo* info = findRequest(request);
    if (info == nullptr) info = findMediaRequest(request);
    if (info != nullptr) return std::string(info->name);
    std::string text = "type " + typeName(request) + " number " + hexNumber(_IOC_NR(request), 2, true) +
                       " size " + std::to_string(_IOC_SIZE(request)) + " " + std::string(direction(request)) +
                       ": unknown";
    if (const RequestInfo* near = sameNumber(request)) {
        text += ", " + std::string(near->name) + " is " + hexNumber(near->code, 8, true);
    }
    return text;
}

std::string hubCommandName(const ois::OisCustomCmd& command, HubPhase phase) {
    const HubCommandInfo* info = hubCommand(command, phase);
    return info == nullptr ? "COMMAND_" + std::to_string(command.id) : std::string(info->name);
}

std::vector<Field> decodeRecord(const RecordLayout& layout, std::span<const uint8_t> bytes) {
    return sentFields(layout, false, bytes);
}

Event decodeRequest(uint32_t request, std::span<const uint8_t> in, std::span<const uint8_t> out) {
    const RequestInfo* info = findRequest(request);
    if (info == nullptr) info = findMediaRequest(request);
    if (info == nullptr) return unknownRequest(request, in, out);
    Event event;
    event.kind = info->kind;
    event.name = info->name;
    event.code = request;
    event.fields = sentFields(*info->record, info->reads, in);
    event.answer = answeredFields(*info->record, info->reads, in, out);
    return event;
}

Event decodeHub(const ois::OisCustomCmd& sent, const ois::OisCustomCmd& answered, HubPhase phase) {
    return decodeHubEvent(sent, &answered, phase);
}

Event decodeHub(const ois::OisCustomCmd& sent, HubPhase phase) {
    return decodeHubEvent(sent, nullptr, phase);
}

}  // namespace phone

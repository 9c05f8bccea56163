#include "trace/decode.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <iterator>
#include <stdexcept>

#include <fmt/format.h>

namespace phone {

namespace {

constexpr uint32_t kMediaType = '|';
constexpr uint32_t kNoAngle = 1;  // the integer that stands for "no angle applies"

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

std::string floatList(std::span<const uint8_t> bytes) {
    std::string text;
    for (size_t at = 0; at + sizeof(float) <= bytes.size(); at += sizeof(float)) {
        fmt::format_to(std::back_inserter(text), "{}{:.6g}", text.empty() ? "" : " ",
                       numberAt<float>(bytes.subspan(at)));
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

Field decodeField(const RecordLayout& layout, const RecordField& field, std::span<const uint8_t> record) {
    std::string name(field.name);
    const auto bytes = record.subspan(field.offset, std::min(field.size, record.size() - field.offset));
    const auto word = numberAt<uint64_t>(bytes);
    const auto unused = static_cast<unsigned>(8 * (sizeof word - field.size));  // bits of the word
    switch (field.type) {
        case FieldType::kUnsigned:
            return {std::move(name), word};
        case FieldType::kSigned:
            return {std::move(name), static_cast<int64_t>(word << unused) >> unused};
        case FieldType::kHex:
            return {std::move(name), word, true};
        case FieldType::kAngle:
            if (word == kNoAngle) return {std::move(name), std::string("none")};
            [[fallthrough]];
        case FieldType::kFloat:
            return {std::move(name), static_cast<double>(numberAt<float>(bytes))};
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
        fields.push_back({"carried", fmt::format("{} of {} bytes", bytes.size(), layout.size)});
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
    return type < ' ' || type > '~' ? fmt::format("0x{:02x}", type) : fmt::format("'{:c}'", type);
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

Decoded unknownRequest(uint32_t request, std::span<const uint8_t> in, std::span<const uint8_t> out) {
    Decoded decoded{.name = requestName(request)};
    decoded.sentence = fmt::format("0x{:08X}: {}", request, decoded.name);
    if (!in.empty()) {
        decoded.fields.push_back({"bytes", hexBytes(in)});
        decoded.sentence += " bytes=" + toText(decoded.fields.back());
    }
    if (!out.empty() && !std::equal(in.begin(), in.end(), out.begin(), out.end())) {
        decoded.answer.push_back({"bytes", hexBytes(out)});
    }
    return decoded;
}

Decoded decodeRequest(uint32_t request, std::span<const uint8_t> in, std::span<const uint8_t> out) {
    const RequestInfo* info = findRequest(request);
    if (info == nullptr) return unknownRequest(request, in, out);
    return {.name = std::string(info->name),
            .fields = sentFields(*info->record, info->reads, in),
            .answer = answeredFields(*info->record, info->reads, in, out)};
}

// --- The hub's records.

std::span<const uint8_t> hubInput(const ois::OisCustomCmd& sent) {
    return {sent.payload, std::min<size_t>(sent.inputLength, ois::kHubPayloadSize)};
}
std::span<const uint8_t> hubOutput(const ois::OisCustomCmd& sent, const ois::OisCustomCmd& answered) {
    return {answered.payload, std::min<size_t>(sent.outputLength, ois::kHubPayloadSize)};
}

// A register's value. A width other than the register's own says nothing about its meaning.
Field registerValue(const RegisterInfo* reg, uint32_t byteCount, uint32_t word) {
    const size_t size = std::min<size_t>(byteCount, sizeof word);
    FieldType type =
        reg == nullptr || reg->format == FieldType::kHex ? FieldType::kHex : FieldType::kUnsigned;
    if (reg != nullptr && reg->size == byteCount) type = reg->format;
    std::array<uint8_t, sizeof word> bytes{};
    std::memcpy(bytes.data(), &word, size);
    return decodeField({}, {"value", type, 0, size}, bytes);
}

std::string registerName(const RegisterInfo* reg) {
    return reg == nullptr ? "unknown" : std::string(reg->name);
}

// "register 0x0002 STABILISATION_MODE"
std::string registerText(const RegisterInfo* reg, const ois::HubRegisterAccess& access) {
    std::string text = fmt::format("register 0x{:0{}x} {}", access.address,
                                   access.address > UINT16_MAX ? 8 : 4, registerName(reg));
    if (reg == nullptr || reg->size != access.byteCount) {
        text += fmt::format(" ({} byte{}", access.byteCount, access.byteCount == 1 ? "" : "s");
        text += reg != nullptr ? fmt::format(" of a register of {})", reg->size) : ")";
    }
    return text;
}

void decodeRegisterAccess(Decoded& decoded, const ois::OisCustomCmd& sent,
                          const ois::OisCustomCmd* answered) {
    const auto access = numberAt<ois::HubRegisterAccess>(hubInput(sent));
    const RegisterInfo* reg = findRegister(access.address);
    const bool writes = sent.id == ois::idByte(ois::HubCommand::kKorvaWriteReg);
    decoded.sentence = (writes ? "write " : "read ") + registerText(reg, access);
    decoded.fields = {{"address", uint64_t{access.address}, true},
                      {"register", registerName(reg)},
                      {"byte_count", uint64_t{access.byteCount}}};
    if (writes) {
        decoded.fields.push_back(registerValue(reg, access.byteCount, access.value));
        decoded.sentence += " = " + toText(decoded.fields.back());
    } else {
        // Some reads still carry the value of the write before them.
        if (access.value != 0) decoded.fields.push_back({"word", uint64_t{access.value}, true});
        if (answered == nullptr) return;
        const auto output = hubOutput(sent, *answered);
        decoded.answer.push_back(
            registerValue(reg, static_cast<uint32_t>(std::min<size_t>(output.size(), sizeof(uint32_t))),
                          numberAt<uint32_t>(output)));
        decoded.sentence += " = " + toText(decoded.answer.back());
    }
    if (hubInput(sent).size() < sizeof access)
        addSizeRemark(decoded.fields, *hubRecord(sent), hubInput(sent));
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

void answerFirmware(Decoded& decoded, std::string_view name, const ois::OisCustomCmd& sent,
                    const ois::OisCustomCmd* answered) {
    if (answered == nullptr) return;
    decoded.answer.push_back(
        {std::string(name), uint64_t{numberAt<uint32_t>(hubOutput(sent, *answered))}, name == "check_value"});
}

void decodeFirmware(Decoded& decoded, const ois::OisCustomCmd& sent, const ois::OisCustomCmd* answered) {
    const auto command = numberAt<ois::HubFirmwareCommand>(hubInput(sent));
    const uint64_t first = command.argument1;
    const uint64_t second = command.argument2;
    std::vector<Field>& fields = decoded.fields;
    fields = {{"op", uint64_t{static_cast<uint32_t>(command.op)}}};
    if (command.op == ois::FirmwareOp::kReport) {
        fields.insert(fields.end(), {{"action", std::string("report")},
                                     {"outcome", std::string(outcomeName(command.argument1))},
                                     {"outcome_code", first},
                                     {"value", second, true}});
    } else if (command.op == ois::FirmwareOp::kImage && sent.outputLength != 0) {
        fields.push_back({"action", std::string("image version")});
        answerFirmware(decoded, "version", sent, answered);
    } else if (command.op == ois::FirmwareOp::kImage) {
        fields.insert(fields.end(),
                      {{"action", std::string("write block")}, {"address", first, true}, {"size", second}});
    } else if (command.op == ois::FirmwareOp::kCheckValue) {
        fields.push_back({"action", std::string("image check value")});
        answerFirmware(decoded, "check_value", sent, answered);
    } else {
        fields.insert(fields.end(),
                      {{"action", std::string("unknown")}, {"argument1", first}, {"argument2", second}});
    }
    if (hubInput(sent).size() < sizeof command) addSizeRemark(fields, *hubRecord(sent), hubInput(sent));
}

void decodeHubRecord(Decoded& decoded, const HubCommandInfo* info, const RecordLayout* layout,
                     const ois::OisCustomCmd& sent, const ois::OisCustomCmd* answered) {
    const auto in = hubInput(sent);
    const bool reads = info != nullptr && info->reads;
    if (layout != nullptr) {
        decoded.fields = sentFields(*layout, reads, in);
    } else if (!in.empty()) {
        decoded.fields.push_back({"bytes", hexBytes(in)});
    }
    if (answered == nullptr || sent.outputLength == 0) return;
    const auto out = hubOutput(sent, *answered);
    if (reads && layout != nullptr) {
        decoded.answer = answeredFields(*layout, reads, in, out);
    } else {
        decoded.answer.push_back({"bytes", hexBytes(out)});
    }
}

// Its name, or "COMMAND_<id>".
std::string hubCommandName(const ois::OisCustomCmd& command, HubPhase phase) {
    const HubCommandInfo* info = hubCommand(command, phase);
    return info == nullptr ? fmt::format("COMMAND_{}", command.id) : std::string(info->name);
}

Decoded decodeHub(const ois::OisCustomCmd& sent, const ois::OisCustomCmd* answered, HubPhase phase) {
    Decoded decoded{.name = hubCommandName(sent, phase)};
    switch (static_cast<ois::HubCommand>(sent.id)) {
        case ois::HubCommand::kKorvaReadReg:
        case ois::HubCommand::kKorvaWriteReg:
            decodeRegisterAccess(decoded, sent, answered);
            break;
        case ois::HubCommand::kKorvaFwCmd:
            decodeFirmware(decoded, sent, answered);
            break;
        default:
            decodeHubRecord(decoded, hubCommand(sent, phase), hubRecord(sent, phase), sent, answered);
            break;
    }
    return decoded;
}

Decoded decodeHub(const Event& event) {
    const auto sent = recordOf<ois::OisCustomCmd>(event.sent);
    if (event.received.empty()) return decodeHub(sent, nullptr, event.phase);
    const auto answered = recordOf<ois::OisCustomCmd>(event.received);
    return decodeHub(sent, &answered, event.phase);
}

}  // namespace

std::string_view direction(uint32_t request) {
    constexpr std::array<std::string_view, 4> kNames{"none", "write", "read", "read/write"};
    static_assert(_IOC_WRITE == 1 && _IOC_READ == 2);
    return kNames[_IOC_DIR(request)];
}

std::string hexOf(std::span<const uint8_t> bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::string hexBytes(std::span<const uint8_t> bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, " "));
}

std::vector<uint8_t> bytesOfHex(std::string_view text) {
    std::vector<uint8_t> bytes(text.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char* const first = text.data() + 2 * i;
        if (std::from_chars(first, first + 2, bytes[i], 16).ptr != first + 2) {
            throw std::invalid_argument(fmt::format("'{}' are no bytes in hex", text));
        }
    }
    if (text.size() % 2 != 0) throw std::invalid_argument("half a byte at the end of the hex digits");
    return bytes;
}

std::string requestName(uint32_t request) {
    const RequestInfo* info = findRequest(request);
    if (info != nullptr) return std::string(info->name);
    std::string text = fmt::format("type {} number 0x{:02X} size {} {}: unknown", typeName(request),
                                   _IOC_NR(request), _IOC_SIZE(request), direction(request));
    if (const RequestInfo* near = sameNumber(request)) {
        text += fmt::format(", {} is 0x{:08X}", near->name, near->code);
    }
    return text;
}

std::vector<Field> decodeRecord(const RecordLayout& layout, std::span<const uint8_t> bytes) {
    return sentFields(layout, false, bytes);
}

Event requestEvent(uint32_t request, std::span<const uint8_t> in, std::span<const uint8_t> out) {
    return {.kind = _IOC_TYPE(request) == kMediaType ? EventKind::kMedia : EventKind::kSubDevice,
            .code = request,
            .sent = {in.begin(), in.end()},
            .received = {out.begin(), out.end()}};
}

Event hubEvent(const ois::OisCustomCmd& sent, const ois::OisCustomCmd* answered, HubPhase phase) {
    const auto bytesOf = [](const ois::OisCustomCmd& command) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(&command);
        return std::vector<uint8_t>(bytes, bytes + sizeof command);
    };
    Event event{.kind = EventKind::kHub, .code = sent.id, .phase = phase, .sent = bytesOf(sent)};
    if (answered != nullptr) event.received = bytesOf(*answered);
    return event;
}

Decoded decode(const Event& event) {
    switch (event.kind) {
        case EventKind::kSubDevice:
        case EventKind::kMedia:
            return decodeRequest(event.code, event.sent, event.received);
        case EventKind::kHub:
            return decodeHub(event);
        default:
            return {.name = event.name, .fields = event.fields, .answer = event.answer};
    }
}

std::string nameOf(const Event& event) {
    switch (event.kind) {
        case EventKind::kSubDevice:
        case EventKind::kMedia:
            return requestName(event.code);
        case EventKind::kHub:
            return hubCommandName(recordOf<ois::OisCustomCmd>(event.sent), event.phase);
        default:
            return event.name;
    }
}

std::vector<FieldKind> fieldKinds(std::string_view command) {
    constexpr bool kText = true;
    const RequestInfo* request = findRequest(command);
    const HubCommandInfo* hub = findHubCommand(command);
    if (hub != nullptr && hub->id == ois::id(ois::HubCommand::kKorvaFwCmd)) {
        return {{"op"},      {"action", kText}, {"outcome", kText}, {"outcome_code"}, {"value"},
                {"version"}, {"check_value"},   {"address"},        {"size"}};
    }
    std::vector<FieldKind> kinds;
    if (hub != nullptr && hub->record == findHubCommand("WRITE_REGISTER")->record)
        kinds = {{"register", kText}, {"value"}};
    std::vector<const RecordLayout*> layouts{request == nullptr ? nullptr : request->record,
                                             hub == nullptr ? nullptr : hub->record};
    if (hub != nullptr && hub->record == nullptr)  // its length tells which (hubRecord)
        layouts = {findRequest("SET_ACC_PARAMS")->record, findRequest("SET_FIX_MODE")->record};
    for (const RecordLayout* layout : layouts) {
        for (const RecordField& field : layout == nullptr ? std::span<const RecordField>() : layout->fields) {
            const bool isText = field.type == FieldType::kText || field.type == FieldType::kFloats ||
                                field.type == FieldType::kBytes;
            if (std::ranges::find(kinds, field.name, &FieldKind::name) == kinds.end())
                kinds.push_back({field.name, isText});
        }
    }
    if (hub != nullptr && hub->record == nullptr) kinds.push_back({"bytes", kText});
    return kinds;
}

int64_t integerField(const Decoded& decoded, std::string_view name) {
    for (const std::vector<Field>* fields : {&decoded.answer, &decoded.fields}) {
        const auto found = std::ranges::find(*fields, name, &Field::name);
        if (found == fields->end()) continue;
        return std::visit(
            [](const auto& value) {
                if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>)
                    return static_cast<int64_t>(value);
                return int64_t{0};
            },
            found->value);
    }
    return 0;
}

}  // namespace phone

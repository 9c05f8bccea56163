// Tables of requests, hub commands, registers and record layouts.

#include <linux/media.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <type_traits>

#include "modules/customisation_fields.h"
#include "ois_drv.h"
#include "trace/decode.h"
#include "wire/records.h"

namespace phone {

namespace {

constexpr bool kAnswered = true;

template <typename Value>
constexpr RecordField field(std::string_view name, size_t offset, bool answered = false) {
    const FieldType integer = std::is_signed_v<Value> ? FieldType::kSigned : FieldType::kUnsigned;
    const FieldType type = std::is_floating_point_v<Value> ? FieldType::kFloat : integer;
    return {name, type, offset, sizeof(Value), answered};
}
constexpr RecordField hexField(std::string_view name, size_t offset, bool answered = false) {
    return {name, FieldType::kHex, offset, sizeof(uint32_t), answered};
}
constexpr RecordField textField(std::string_view name, size_t offset, size_t size, bool answered = false) {
    return {name, FieldType::kText, offset, size, answered};
}

// --- Records.

constexpr std::array kModeFields{field<int32_t>("mode", 0)};
constexpr std::array kCaptureFields{field<int32_t>("capture_value", 0)};
constexpr std::array kWordFields{field<uint32_t>("word", 0)};
constexpr std::array kEndSessionFields{field<int32_t>("value", 0)};
constexpr std::array kAfPositionFields{field<uint16_t>("position", 0)};
constexpr std::array kByteFields{field<uint8_t>("byte", 0)};
constexpr std::array kSwitchFields{field<int32_t>("on", 0)};
constexpr std::array kStreamFields{
    field<int32_t>("notify_stream", offsetof(ois_stream_info, notify_stream)),
};
constexpr std::array kTemperatureFields{field<int32_t>("celsius", 0)};
constexpr std::array kStrategyFields{field<int32_t>("strategy", 0)};

constexpr std::array kCameraTypeFields{
    textField("camera_type", 0, sizeof(ois::OisCameraType)),
};

constexpr auto kCustInfoFields = [] {
    std::array<RecordField, kCustomisationFields.size()> fields;
    std::ranges::transform(kCustomisationFields, fields.begin(), &CustomisationField::record);
    return fields;
}();

constexpr std::array kAccParamsFields{
    field<uint32_t>("enable", offsetof(ois_acc_params, enable)),
    field<uint32_t>("lastDistance", offsetof(ois_acc_params, lastDistance)),
    field<int32_t>("distance", offsetof(ois_acc_params, distance)),
    field<float>("distanceF", offsetof(ois_acc_params, distanceF)),
    field<int32_t>("distanceQ31", offsetof(ois_acc_params, distanceQ31)),
    field<uint32_t>("count", offsetof(ois_acc_params, count)),
};

constexpr std::array kGainFields{
    field<uint32_t>("axis", offsetof(ois::OisGain, axis)),
    field<float>("valueXf", offsetof(ois::OisGain, valueXf), kAnswered),
    field<float>("valueYf", offsetof(ois::OisGain, valueYf), kAnswered),
    field<int32_t>("valueXi", offsetof(ois::OisGain, valueXi), kAnswered),
    field<int32_t>("valueYi", offsetof(ois::OisGain, valueYi), kAnswered),
};

constexpr std::array kHallInfoFields{
    field<int32_t>("centerX", offsetof(ois::OisHallInfo, centerX), kAnswered),
    field<int32_t>("centerY", offsetof(ois::OisHallInfo, centerY), kAnswered),
    hexField("upperWord", offsetof(ois::OisHallInfo, upperWord), kAnswered),
    hexField("lowerWord", offsetof(ois::OisHallInfo, lowerWord), kAnswered),
};

constexpr std::array kFixModeFields{
    field<int32_t>("manualEnable", offsetof(ois::OisFixMode, manualEnable)),
    field<int32_t>("gethall", offsetof(ois::OisFixMode, gethall)),
    field<int32_t>("target_x", offsetof(ois::OisFixMode, target_x)),
    field<int32_t>("target_y", offsetof(ois::OisFixMode, target_y)),
    field<int32_t>("hall_x", offsetof(ois::OisFixMode, hall_x), kAnswered),
    field<int32_t>("hall_y", offsetof(ois::OisFixMode, hall_y), kAnswered),
};

constexpr std::array kActiveOisFields{
    field<int32_t>("enable", offsetof(ois_act_parameters, enable)),
    RecordField{"angle", FieldType::kAngle, offsetof(ois_act_parameters, angle), sizeof(uint32_t)},
};

constexpr std::array kStatusFields{
    field<uint8_t>("chose", offsetof(ois::OisStatusRecord, chose)),
    field<uint64_t>("seconds", offsetof(ois::OisStatusRecord, timestampSeconds), kAnswered),
    field<uint64_t>("microseconds", offsetof(ois::OisStatusRecord, timestampFraction), kAnswered),
    field<int16_t>("gyro_raw_x", offsetof(ois::OisStatusRecord, gyro_raw_x), kAnswered),
    field<int16_t>("gyro_raw_y", offsetof(ois::OisStatusRecord, gyro_raw_y), kAnswered),
    field<int16_t>("gyro_raw_z", offsetof(ois::OisStatusRecord, gyro_raw_z), kAnswered),
    field<int16_t>("acc_raw_x", offsetof(ois::OisStatusRecord, acc_raw_x), kAnswered),
    field<int16_t>("acc_raw_y", offsetof(ois::OisStatusRecord, acc_raw_y), kAnswered),
    field<int16_t>("acc_raw_z", offsetof(ois::OisStatusRecord, acc_raw_z), kAnswered),
    field<int16_t>("gyro_target_x", offsetof(ois::OisStatusRecord, gyro_target_x), kAnswered),
    field<int16_t>("gyro_target_y", offsetof(ois::OisStatusRecord, gyro_target_y), kAnswered),
    field<int16_t>("acc_target_x", offsetof(ois::OisStatusRecord, acc_target_x), kAnswered),
    field<int16_t>("acc_target_y", offsetof(ois::OisStatusRecord, acc_target_y), kAnswered),
    field<int16_t>("hall_x", offsetof(ois::OisStatusRecord, hall_x), kAnswered),
    field<int16_t>("hall_y", offsetof(ois::OisStatusRecord, hall_y), kAnswered),
    field<int16_t>("synthetic_x", offsetof(ois::OisStatusRecord, synthetic_x), kAnswered),
    field<int16_t>("synthetic_y", offsetof(ois::OisStatusRecord, synthetic_y), kAnswered),
};

constexpr std::array kFlashFields{
    field<uint32_t>("length", offsetof(ois::OisFlashRecord, length), kAnswered),
    hexField("base", offsetof(ois::OisFlashRecord, base), kAnswered),
    RecordField{"data", FieldType::kBytes, offsetof(ois::OisFlashRecord, data), ois::kFlashDataSize,
                kAnswered, "length"},
};

constexpr std::array kHubInitFields{
    field<int32_t>("bypass", offsetof(ois::HubInit, bypass)),
    field<int32_t>("log_level", offsetof(ois::HubInit, logLevel)),
};

constexpr std::array kRegisterAccessFields{
    hexField("address", offsetof(ois::HubRegisterAccess, address)),
    field<uint32_t>("byte_count", offsetof(ois::HubRegisterAccess, byteCount)),
    field<uint32_t>("word", offsetof(ois::HubRegisterAccess, value)),
};

constexpr std::array kFirmwareFields{
    field<uint32_t>("op", offsetof(ois::HubFirmwareCommand, op)),
    field<uint32_t>("argument1", offsetof(ois::HubFirmwareCommand, argument1)),
    field<uint32_t>("argument2", offsetof(ois::HubFirmwareCommand, argument2)),
};

constexpr std::array kDeviceInfoFields{
    textField("driver", offsetof(media_device_info, driver), sizeof(media_device_info::driver), kAnswered),
    textField("model", offsetof(media_device_info, model), sizeof(media_device_info::model), kAnswered),
    textField("serial", offsetof(media_device_info, serial), sizeof(media_device_info::serial), kAnswered),
    textField("bus_info", offsetof(media_device_info, bus_info), sizeof(media_device_info::bus_info),
              kAnswered),
    hexField("media_version", offsetof(media_device_info, media_version), kAnswered),
    hexField("hw_revision", offsetof(media_device_info, hw_revision), kAnswered),
    hexField("driver_version", offsetof(media_device_info, driver_version), kAnswered),
};

// The id asks with MEDIA_ENT_ID_FLAG_NEXT and is answered without, so it shows on both sides.
constexpr std::array kEntityFields{
    hexField("id", offsetof(media_entity_desc, id)),
    textField("name", offsetof(media_entity_desc, name), sizeof(media_entity_desc::name), kAnswered),
    hexField("type", offsetof(media_entity_desc, type), kAnswered),
    field<uint16_t>("pads", offsetof(media_entity_desc, pads), kAnswered),
    field<uint16_t>("links", offsetof(media_entity_desc, links), kAnswered),
    field<uint32_t>("major", offsetof(media_entity_desc, dev.major), kAnswered),
    field<uint32_t>("minor", offsetof(media_entity_desc, dev.minor), kAnswered),
};

constexpr RecordLayout kMode{"mode word", 4, kModeFields};
constexpr RecordLayout kCapture{"capture value", 4, kCaptureFields};
constexpr RecordLayout kWord{"word", 4, kWordFields};
constexpr RecordLayout kEndSession{"word", 4, kEndSessionFields};
constexpr RecordLayout kAfPosition{"AF position", 2, kAfPositionFields};
constexpr RecordLayout kByte{"byte", 1, kByteFields};
constexpr RecordLayout kSwitch{"switch word", 4, kSwitchFields};
constexpr RecordLayout kStreamInfo{"ois_stream_info", sizeof(ois_stream_info), kStreamFields};
constexpr RecordLayout kStreamWord{"stream word", 4, kStreamFields};
constexpr RecordLayout kTemperature{"temperature", 4, kTemperatureFields};
constexpr RecordLayout kStrategy{"strategy word", 4, kStrategyFields};
constexpr RecordLayout kCameraType{"OisCameraType", sizeof(ois::OisCameraType), kCameraTypeFields};
constexpr RecordLayout kCustInfo{"OisCustInfo", sizeof(ois::OisCustInfo), kCustInfoFields};
constexpr RecordLayout kAccParams{"ois_acc_params", sizeof(ois_acc_params), kAccParamsFields};
constexpr RecordLayout kGain{"OisGain", sizeof(ois::OisGain), kGainFields};
constexpr RecordLayout kHallInfo{"OisHallInfo", sizeof(ois::OisHallInfo), kHallInfoFields};
constexpr RecordLayout kFixMode{"OisFixMode", sizeof(ois::OisFixMode), kFixModeFields};
constexpr RecordLayout kActiveOis{"ois_act_parameters", sizeof(ois_act_parameters), kActiveOisFields};
constexpr RecordLayout kStatus{"OisStatusRecord", sizeof(ois::OisStatusRecord), kStatusFields};
constexpr RecordLayout kFlash{"OisFlashRecord", sizeof(ois::OisFlashRecord), kFlashFields};
constexpr RecordLayout kHubInit{"HubInit", sizeof(ois::HubInit), kHubInitFields};
constexpr RecordLayout kBypassDisable{"three zero words", sizeof(ois::HubInit), {}};
constexpr RecordLayout kRegisterAccess{"HubRegisterAccess", sizeof(ois::HubRegisterAccess),
                                       kRegisterAccessFields};
constexpr RecordLayout kFirmware{"HubFirmwareCommand", sizeof(ois::HubFirmwareCommand), kFirmwareFields};
// Behind it are two pointers, which say nothing.
constexpr std::array kLinksFields{field<uint32_t>("entity", offsetof(media_links_enum, entity))};

constexpr RecordLayout kDeviceInfo{"media_device_info", sizeof(media_device_info), kDeviceInfoFields};
constexpr RecordLayout kEntity{"media_entity_desc", sizeof(media_entity_desc), kEntityFields};
constexpr RecordLayout kLinks{"media_links_enum", sizeof(media_links_enum), kLinksFields};

// --- Requests.

using ois::Request;

constexpr RequestInfo writes(std::string_view name, Request request, const RecordLayout& record,
                             std::string_view meaning) {
    return {name, ois::code(request), EventKind::kSubDevice, &record, false, meaning};
}
constexpr RequestInfo reads(std::string_view name, Request request, const RecordLayout& record,
                            std::string_view meaning) {
    return {name, ois::code(request), EventKind::kSubDevice, &record, true, meaning};
}

constexpr std::array kPrivateRequests{
    writes("SET_MODE", Request::kSetMode, kMode, "stabilisation mode: 0 off, 2 on; or a capture value"),
    writes("SET_GYRO_OFFSET", Request::kSetGyroOffset, kWord, "measures and keeps the gyro offset"),
    writes("UPDATE_FIRMWARE", Request::kUpdateFirmware, kCameraType, "updates the controller's firmware"),
    writes("SET_CUSTOMISATION", Request::kSetCustomisation, kCustInfo, "the module's customisation block"),
    writes("END_SESSION", Request::kEndSession, kEndSession, "last command of a session"),
    writes("SET_ACC_PARAMS", Request::kSetAccParams, kAccParams, "accelerometer compensation"),
    writes("SET_AF_POSITION", Request::kSetAfPosition, kAfPosition, "coded AF position"),
    writes("OPERATION_18", Request::kOperation18, kWord, "one-word command of operation 18"),
    writes("WRITE_GAIN", Request::kWriteGain, kGain, "writes the value of an axis"),
    reads("READ_GAIN", Request::kReadGain, kGain, "reads the values of the axes"),
    reads("READ_HALL_INFO", Request::kReadHallInfo, kHallInfo, "reads the hall calibration"),
    writes("SET_FIX_MODE", Request::kSetFixMode, kFixMode, "holds the lens at a target"),
    writes("NOTIFY_STREAM", Request::kNotifyStream, kStreamInfo, "the stream starts (1) or stops (0)"),
    writes("CHECK_STATUS", Request::kCheckStatus, kByte, "makes the controller check itself"),
    writes("START_ENGINEERING", Request::kStartEngineering, kByte,
           "the first engineering request of a session"),
    writes("SET_ACTIVE_OIS", Request::kSetActiveOis, kActiveOis, "angle-based active OIS"),
    reads("GET_HALL", Request::kGetHall, kFixMode, "reads the hall position"),
    reads("READ_STATUS", Request::kReadStatus, kStatus, "reads one sample of the controller's state"),
    reads("READ_FLASH", Request::kReadFlash, kFlash, "reads the controller's flash data"),
    writes("SET_ZOOM_ACTIVE_OIS", Request::kSetZoomActiveOis, kSwitch, "zoom-triggered active OIS"),
};

constexpr std::array kMediaRequests{
    RequestInfo{"DEVICE_INFO", static_cast<uint32_t>(MEDIA_IOC_DEVICE_INFO), EventKind::kMedia, &kDeviceInfo,
                true, "describes the media device"},
    RequestInfo{"ENUM_ENTITIES", static_cast<uint32_t>(MEDIA_IOC_ENUM_ENTITIES), EventKind::kMedia, &kEntity,
                true, "describes an entity, or the next one"},
    RequestInfo{"ENUM_LINKS", static_cast<uint32_t>(MEDIA_IOC_ENUM_LINKS), EventKind::kMedia, &kLinks, true,
                "describes an entity's pads, and the links that begin there"},
};

// --- Hub commands.

using ois::HubCommand;

constexpr HubCommandInfo hub(std::string_view name, HubCommand command, const RecordLayout* record,
                             std::string_view meaning) {
    return {name, ois::id(command), record, false, meaning};
}

// BYPASS_DISABLE shares its id with INIT and stands behind it.
constexpr std::array kHubCommands{
    hub("READ_REGISTER", HubCommand::kKorvaReadReg, &kRegisterAccess, "reads a register of the Korva family"),
    hub("WRITE_REGISTER", HubCommand::kKorvaWriteReg, &kRegisterAccess,
        "writes a register of the Korva family"),
    hub("SET_MODE", HubCommand::kSetMode, &kMode, "stabilisation mode: 0 off, 2 on"),
    hub("WRITE_GAIN", HubCommand::kWriteGain, &kGain, "writes the value of an axis"),
    hub("SET_ACC_PARAMS", HubCommand::kSetAccParams, &kAccParams, "accelerometer compensation"),
    hub("OPERATION_18", HubCommand::kOperation18, &kWord, "one-word command of operation 18"),
    HubCommandInfo{"READ_GAIN", ois::id(HubCommand::kReadGain), &kGain, true, "reads the values of the axes"},
    hub("SET_GYRO_OFFSET", HubCommand::kSetGyroOffset, &kWord, "measures and keeps the gyro offset"),
    hub("FIRMWARE", HubCommand::kKorvaFwCmd, &kFirmware, "the hub's firmware service"),
    hub("CAPTURE", HubCommand::kCapture, &kCapture, "a still capture is due"),
    hub("INIT", HubCommand::kInit, &kHubInit, "brings the channel up"),
    hub("BYPASS_DISABLE", HubCommand::kKorvaBypassDisable, &kBypassDisable,
        "the hub stops bypassing the controller"),
    hub("SET_AF_POSITION", HubCommand::kSetAfPosition, &kAfPosition, "coded AF position"),
    hub("SET_FIX_MODE", HubCommand::kSetFixMode, &kFixMode, "holds the lens at a target"),
    hub("NOTIFY_STREAM", HubCommand::kNotifyStream, &kStreamWord, "the stream starts (1) or stops (0)"),
    hub("SET_ACTIVE_OIS", HubCommand::kSetActiveOis, &kActiveOis, "angle-based active OIS; two bytes travel"),
    hub("SET_TEMPERATURE", HubCommand::kSetTemperature, &kTemperature, "the camera module's temperature"),
    hub("END_SESSION", HubCommand::kEndSession, &kEndSession, "last command of a session"),
    hub("SET_TEMP_STRATEGY", HubCommand::kSetTempStrategy, &kStrategy, "temperature strategy"),
    hub("COMMAND_28", HubCommand::kNoHubMeaning, nullptr, "goes with what only a sub-device understands"),
};

// --- Registers.

using ois::korva::Register;
using enum FieldType;

template <typename Value>
constexpr RegisterInfo registerInfo(std::string_view name, ois::korva::RegisterOf<Value> reg,
                                    FieldType format, std::string_view meaning) {
    return {name, reg.address, sizeof(Value), format, meaning};
}

constexpr std::array kRegisters{
    registerInfo("CONTROL", Register::kControl, kUnsigned, "0 idle request, 1 restart"),
    registerInfo("STATE", Register::kState, kUnsigned, "1 when idle"),
    registerInfo("STABILISATION_MODE", Register::kStabilisationMode, kUnsigned, "16 on, 5 off"),
    registerInfo("FLASH_WRITE", Register::kFlashWrite, kUnsigned, "1 starts the flash write"),
    registerInfo("STATUS", Register::kStatus, kHex, "error bits of calibration and flash write"),
    registerInfo("UPDATE_STATUS", Register::kUpdateStatus, kHex, "error bits of a firmware update"),
    registerInfo("IMAGE_CHECK_VALUE", Register::kImageCheckValue, kHex,
                 "the image's check value, bit 31 set"),
    registerInfo("FLASH_DOWNLOAD", Register::kFlashDownload, kUnsigned, "117 opens the flash for a download"),
    registerInfo("APPLY_UNLOCK", Register::kApplyUnlock, kUnsigned, "1, before APPLY_COMMAND"),
    registerInfo("APPLY_COMMAND", Register::kApplyCommand, kUnsigned, "6, after APPLY_UNLOCK"),
    registerInfo("GYRO_CALIBRATION", Register::kGyroCalibration, kUnsigned, "1 starts it; 0 when done"),
    registerInfo("PID_INIT", Register::kPidInit, kUnsigned, "PID init value, 33"),
    registerInfo("FLASH_CHECK_REQUEST", Register::kFlashCheckRequest, kUnsigned,
                 "1 computes FLASH_CHECK_VALUE"),
    registerInfo("FLASH_CHECK_VALUE", Register::kFlashCheckValue, kHex,
                 "check value of the other flash data"),
    registerInfo("FIRMWARE_VERSION", Register::kFirmwareVersion, kUnsigned,
                 "version of the running firmware"),
    registerInfo("GYRO_OFFSET_X", Register::kGyroOffsetX, kSigned, "gyro offset about x, raw counts"),
    registerInfo("GYRO_OFFSET_Y", Register::kGyroOffsetY, kSigned, "gyro offset about y, raw counts"),
    registerInfo("CLOCK", Register::kClock, kUnsigned, "clock, Hz; 19200000 is the old one"),
    registerInfo("ACC_COMPENSATION", Register::kAccCompensation, kUnsigned, "1 on, 0 off"),
    registerInfo("ACC_OBJECT_DISTANCE", Register::kAccObjectDistance, kFloat,
                 "object distance, mm; 5000 while compensation is off"),
};

template <typename Table, typename Matches>
auto findIn(const Table& table, Matches matches) -> decltype(table.data()) {
    const auto found = std::find_if(table.begin(), table.end(), matches);
    return found == table.end() ? nullptr : &*found;
}

constexpr bool fieldsFit(const RecordLayout& layout) {
    return std::all_of(layout.fields.begin(), layout.fields.end(), [&layout](const RecordField& field) {
        return field.offset + field.size <= layout.size;
    });
}
static_assert(std::all_of(kPrivateRequests.begin(), kPrivateRequests.end(), [](const RequestInfo& info) {
    return info.record->size == recordSize(info) && fieldsFit(*info.record);
}));
static_assert(std::all_of(kMediaRequests.begin(), kMediaRequests.end(), [](const RequestInfo& info) {
    return info.record->size == recordSize(info) && fieldsFit(*info.record);
}));
static_assert(std::all_of(kHubCommands.begin(), kHubCommands.end(), [](const HubCommandInfo& info) {
    return info.record == nullptr || (info.record->size <= ois::kHubPayloadSize && fieldsFit(*info.record));
}));

}  // namespace

std::span<const RequestInfo> privateRequests() {
    return kPrivateRequests;
}
std::span<const RequestInfo> mediaRequests() {
    return kMediaRequests;
}
std::span<const HubCommandInfo> hubCommands() {
    return kHubCommands;
}
std::span<const RegisterInfo> registers() {
    return kRegisters;
}

const RequestInfo* findRequest(std::string_view name) {
    const auto named = [name](const RequestInfo& info) { return info.name == name; };
    const RequestInfo* info = findIn(kPrivateRequests, named);
    return info != nullptr ? info : findIn(kMediaRequests, named);
}
const RequestInfo* findRequest(uint32_t code) {
    // Every request asks. No two of the private and media requests have one number.
    static constexpr auto kByNumber = [] {
        std::array<const RequestInfo*, _IOC_NRMASK + 1> found{};
        for (const RequestInfo& info : kPrivateRequests) found[_IOC_NR(info.code)] = &info;
        for (const RequestInfo& info : kMediaRequests) found[_IOC_NR(info.code)] = &info;
        return found;
    }();
    const RequestInfo* info = kByNumber[_IOC_NR(code)];
    return info != nullptr && info->code == code ? info : nullptr;
}
const HubCommandInfo* findHubCommand(std::string_view name) {
    return findIn(kHubCommands, [name](const HubCommandInfo& info) { return info.name == name; });
}
const HubCommandInfo* findHubCommand(int32_t id) {
    return findIn(kHubCommands, [id](const HubCommandInfo& info) { return info.id == id; });
}
const RegisterInfo* findRegister(std::string_view name) {
    return findIn(kRegisters, [name](const RegisterInfo& info) { return info.name == name; });
}
const RegisterInfo* findRegister(uint32_t address) {
    return findIn(kRegisters, [address](const RegisterInfo& info) { return info.address == address; });
}

const HubCommandInfo* hubCommand(const ois::OisCustomCmd& command, HubPhase phase) {
    if (command.id != ois::idByte(HubCommand::kInit)) return findHubCommand(command.id);
    const bool empty = std::all_of(std::begin(command.payload), std::end(command.payload),
                                   [](uint8_t byte) { return byte == 0; });
    const bool bringsUp = phase == HubPhase::kBringUp || (phase == HubPhase::kUnknown && !empty);
    return findHubCommand(bringsUp ? std::string_view("INIT") : std::string_view("BYPASS_DISABLE"));
}

const RecordLayout* hubRecord(const ois::OisCustomCmd& command, HubPhase phase) {
    const HubCommandInfo* info = hubCommand(command, phase);
    if (info == nullptr || info->record != nullptr) return info == nullptr ? nullptr : info->record;
    // Of what travels under the id without a meaning, these are known by their length.
    if (command.inputLength == sizeof(ois_acc_params)) return &kAccParams;
    if (command.inputLength == sizeof(ois::OisFixMode)) return &kFixMode;
    return nullptr;
}

}  // namespace phone

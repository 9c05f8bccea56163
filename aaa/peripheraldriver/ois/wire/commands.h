#pragma once
// Every command of the driver in one table: what goes to the sub-device, and what goes to the sensor hub. A
// call names the command and passes its record; another record does not compile.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "wire/customisation.h"
#include "wire/hub_commands.h"
#include "wire/records.h"
#include "wire/requests.h"

namespace ois {

// Whether a command's record is its request's, byte for byte, or longer, since a length that goes with it is.
enum class Fit { kExact, kLonger };

// A command in both forms. On the sub-device way the record travels by its request, as many bytes as the
// request's code says, both ways. On the hub way the first `inLength` bytes travel, and `outLength` bytes
// come back to the record's beginning.
template <typename RecordType>
struct Command {
    using Record = RecordType;
    static_assert(std::is_trivially_copyable_v<Record>);

    consteval Command(Request theRequest, HubCommand theHub, int32_t in, int32_t out, Fit fit = Fit::kExact)
        : request(theRequest), hub(theHub), inLength(in), outLength(out) {
        const size_t hubReach = static_cast<size_t>(std::max(in, out));
        if (fit == Fit::kExact && sizeOf(theRequest) != sizeof(Record))
            throw "not the record of this request";
        if (std::max<size_t>(sizeOf(theRequest), hubReach) > sizeof(Record))
            throw "reaches behind the record";
    }

    Request request;
    HubCommand hub;
    int32_t inLength;
    int32_t outLength;
};

// A request that goes to the sub-device whatever the module's way.
template <typename RecordType>
struct BareRequest {
    using Record = RecordType;
    consteval explicit BareRequest(Request theRequest) : request(theRequest) {
        if (sizeOf(theRequest) != sizeof(Record)) throw "not the record of this request";
    }
    Request request;
};

// A command that goes to the hub alone, by way of the provider and not through the choice of the way. The hub
// is told the whole record.
template <typename RecordType>
struct HubOnly {
    using Record = RecordType;
    static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) <= kHubPayloadSize);
    HubCommand hub;
};

// The transfers of status and flash name 60 bytes to the hub, a whole payload, whatever their record.
struct StatusTransfer {
    OisStatusRecord record;
    uint8_t beyond[8];
};
static_assert(offsetof(StatusTransfer, record) == 0 && sizeof(StatusTransfer) >= kHubPayloadSize);

// What the kernel gets for a flash transfer: the address of a pointer to the flash buffer. One kernel driver
// follows the pointer; another writes an OisFlashRecord in its place, so as many bytes belong to the
// transfer.
using FlashBlock = std::array<std::byte, sizeof(OisFlashRecord)>;

namespace command {

// clang-format off
//                      record                                request                      hub command                 in  out
inline constexpr Command<uint32_t>           kSetMode         {Request::kSetMode,          HubCommand::kSetMode,        4,  0};
// The hub knows captures; a sub-device gets the value as a mode word.
inline constexpr Command<uint32_t>           kForwardCapture  {Request::kSetMode,          HubCommand::kCapture,        4,  0};
inline constexpr Command<uint32_t>           kSetGyroOffset   {Request::kSetGyroOffset,    HubCommand::kSetGyroOffset,  4,  0};
inline constexpr Command<OisCameraType>      kUpdateFirmware  {Request::kUpdateFirmware,   HubCommand::kNoHubMeaning,  16,  0};
inline constexpr Command<OisCustInfo>        kSetCustomisation{Request::kSetCustomisation, HubCommand::kNoHubMeaning,  60,  0};
// The last command of a session carries 0 on the hub way and -1 on the sub-device way.
inline constexpr Command<int32_t>            kEndHubSession   {Request::kEndSession,       HubCommand::kEndSession,     4,  0};
inline constexpr Command<int32_t>            kEndSession      {Request::kEndSession,       HubCommand::kNoHubMeaning,   4,  0};
// The same record under two hub ids: the first by operations 11 and 12, the second by a new focus distance.
inline constexpr Command<ois_acc_params>     kSetAccParams    {Request::kSetAccParams,     HubCommand::kSetAccParams,  28,  0};
inline constexpr Command<ois_acc_params>     kUpdateAccParams {Request::kSetAccParams,     HubCommand::kNoHubMeaning,  28,  0};
inline constexpr Command<uint16_t>           kSetAfPosition   {Request::kSetAfPosition,    HubCommand::kSetAfPosition,  2,  0};
inline constexpr Command<uint32_t>           kOperation18     {Request::kOperation18,      HubCommand::kOperation18,    4,  0};
inline constexpr Command<OisGain>            kWriteGain       {Request::kWriteGain,        HubCommand::kWriteGain,     24,  0};
inline constexpr Command<OisGain>            kReadGain        {Request::kReadGain,         HubCommand::kReadGain,      24, 24};
// The bring-up reads calibration on the sub-device way alone.
inline constexpr Command<OisGain>            kReadGains       {Request::kReadGain,         HubCommand::kNoHubMeaning,  24,  0};
inline constexpr Command<OisHallInfo>        kReadHallInfo    {Request::kReadHallInfo,     HubCommand::kNoHubMeaning,  16,  0};
inline constexpr Command<OisFixMode>         kSetFixMode      {Request::kSetFixMode,       HubCommand::kSetFixMode,    24,  0};
// The target that goes with a request is sent to the hub without the last hall field.
inline constexpr Command<OisFixMode>         kSetFixTarget    {Request::kSetFixMode,       HubCommand::kSetFixMode,    20,  0};
inline constexpr Command<OisFixMode>         kGetHall         {Request::kGetHall,          HubCommand::kNoHubMeaning,  24,  0};
// The hub gets the first of the record's two words.
inline constexpr Command<ois_stream_info>    kNotifyStream    {Request::kNotifyStream,     HubCommand::kNotifyStream,   4,  0};
// One byte travels to the sub-device; the length names a whole word.
inline constexpr Command<uint32_t>           kCheckStatus     {Request::kCheckStatus,      HubCommand::kNoHubMeaning,   4,  0, Fit::kLonger};
// The hub gets half of the state word, and no angle.
inline constexpr Command<ois_act_parameters> kSetActiveOis    {Request::kSetActiveOis,     HubCommand::kSetActiveOis,   2,  0};
inline constexpr Command<StatusTransfer>     kReadStatus      {Request::kReadStatus,       HubCommand::kNoHubMeaning,  60,  0, Fit::kLonger};
inline constexpr Command<FlashBlock>         kReadFlash       {Request::kReadFlash,        HubCommand::kNoHubMeaning,  60,  0};

inline constexpr BareRequest<uint8_t>        kStartEngineering{Request::kStartEngineering};
inline constexpr BareRequest<int32_t>        kSetZoomActiveOis{Request::kSetZoomActiveOis};

inline constexpr HubOnly<HubInit>                 kInit           {HubCommand::kInit};
inline constexpr HubOnly<int32_t>                 kSetTemperature {HubCommand::kSetTemperature};
inline constexpr HubOnly<int32_t>                 kSetTempStrategy{HubCommand::kSetTempStrategy};
// Of the Korva family; answers are as long as the register, or as what the firmware service is asked for.
inline constexpr HubOnly<HubRegisterAccess>       kReadRegister   {HubCommand::kKorvaReadReg};
inline constexpr HubOnly<HubRegisterAccess>       kWriteRegister  {HubCommand::kKorvaWriteReg};
inline constexpr HubOnly<std::array<uint32_t, 3>> kDisableBypass  {HubCommand::kKorvaBypassDisable};  // zeros
inline constexpr HubOnly<HubFirmwareCommand>      kFirmware       {HubCommand::kKorvaFwCmd};
// clang-format on

}  // namespace command

}  // namespace ois

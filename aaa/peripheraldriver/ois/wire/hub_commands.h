#pragma once
// The sensor hub's command record, its command ids, and the payloads that are not records of the controller
// (records.h).

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "camera_platform/sensor_provider.h"

namespace ois {

// The channel over which the sensor service relays OIS commands.
constexpr auto kOisSensorType = static_cast<NSCam::Utils::eSensorType>(8);

constexpr size_t kHubPayloadSize = 60;

// One command to the sensor hub, answered in place: input bytes first, the rest zero; the reply occupies the
// first `outputLength` bytes of the payload.
struct OisCustomCmd {
    uint8_t id;
    uint8_t inputLength;
    uint8_t outputLength;
    uint8_t reserved;
    uint8_t payload[kHubPayloadSize];
};
static_assert(sizeof(OisCustomCmd) == 64);
static_assert(offsetof(OisCustomCmd, id) == 0);
static_assert(offsetof(OisCustomCmd, inputLength) == 1);
static_assert(offsetof(OisCustomCmd, outputLength) == 2);
static_assert(offsetof(OisCustomCmd, payload) == 4);

enum class HubCommand : int32_t {
    kKorvaReadReg = 0,    // HubRegisterAccess, answered with the register's bytes
    kKorvaWriteReg = 1,   // HubRegisterAccess
    kSetMode = 4,         // mode word; the family parser writes the mode register instead
    kWriteGain = 5,       // OisGain
    kSetAccParams = 6,    // ois_acc_params; the family parser writes the acceleration registers instead
    kOperation18 = 7,     // zero word
    kReadGain = 9,        // OisGain, answered with 24 bytes
    kSetGyroOffset = 12,  // zero word; the family parser runs the offset calibration instead
    kKorvaFwCmd = 14,     // HubFirmwareCommand
    kCapture = 16,        // capture value
    // One id, two meanings. While the channel comes up it carries HubInit. With twelve zero bytes it ends the
    // hub's bypass; the family parser sends that before it writes the registers of mode and acceleration, and
    // before no other register. The driver leaves it to the hub to tell them apart.
    kInit = 17,
    kKorvaBypassDisable = 17,
    kSetAfPosition = 18,    // coded AF position
    kSetFixMode = 20,       // OisFixMode
    kNotifyStream = 22,     // stream word
    kSetActiveOis = 24,     // the first half of the state word of an ois_act_parameters
    kSetTemperature = 25,   // degrees Celsius
    kEndSession = 26,       // zero word
    kSetTempStrategy = 27,  // strategy word
    kNoHubMeaning = 28,     // what goes with requests that only the sub-device understands
};

constexpr int32_t id(HubCommand command) {
    return static_cast<int32_t>(command);
}
constexpr uint8_t idByte(HubCommand command) {
    return static_cast<uint8_t>(command);
}

// Makes `command` a fresh one whose whole input is `input`.
template <typename Input>
void packInput(OisCustomCmd& command, HubCommand which, const Input& input, uint8_t outputLength = 0) {
    static_assert(std::is_trivially_copyable_v<Input> && sizeof(Input) <= kHubPayloadSize);
    command = {};
    command.id = idByte(which);
    command.inputLength = sizeof(Input);
    command.outputLength = outputLength;
    std::memcpy(command.payload, &input, sizeof input);
}

// The first bytes of the hub's answer.
template <typename Output>
Output unpackOutput(const OisCustomCmd& command) {
    static_assert(std::is_trivially_copyable_v<Output> && sizeof(Output) <= kHubPayloadSize);
    Output output;
    std::memcpy(&output, command.payload, sizeof output);
    return output;
}

struct HubInit {
    int32_t bypass;  // the bypass switch, as the property has it
    int32_t logLevel;
    int32_t zero;
};
static_assert(sizeof(HubInit) == 12);
static_assert(offsetof(HubInit, bypass) == 0);
static_assert(offsetof(HubInit, logLevel) == 4);
static_assert(offsetof(HubInit, zero) == 8);

struct HubRegisterAccess {
    uint32_t address;
    uint32_t byteCount;
    uint32_t value;  // written; a read carries 0, or the value of the write before it
};
static_assert(sizeof(HubRegisterAccess) == 12);
static_assert(offsetof(HubRegisterAccess, address) == 0);
static_assert(offsetof(HubRegisterAccess, byteCount) == 4);
static_assert(offsetof(HubRegisterAccess, value) == 8);

// The hub holds a firmware image for the controller. What its firmware service is asked for; op 1 means two
// things, told apart by its second argument.
enum class FirmwareOp : uint32_t {
    kReport = 0,  // (FirmwareOutcome, value): how an update ended
    kImage =
        1,  // (0, 0): the image's 32-bit version; (flash address, 256): write that block to the controller
    kCheckValue = 3,  // (0, 0): the image's 16-bit check value
};

struct HubFirmwareCommand {
    FirmwareOp op;
    uint32_t argument1;
    uint32_t argument2;
};
static_assert(sizeof(HubFirmwareCommand) == 12);
static_assert(offsetof(HubFirmwareCommand, op) == 0);
static_assert(offsetof(HubFirmwareCommand, argument1) == 4);
static_assert(offsetof(HubFirmwareCommand, argument2) == 8);

// How a firmware update ended.
enum class FirmwareOutcome : uint32_t {
    kUpdated = 1,
    kControllerError = 2,  // the controller's error status was set
    kNotUpdated = 4,       // same version, controller not idle, or another version after the download
};

constexpr uint32_t kFirmwareBlockSize = 256;
constexpr uint32_t kFirmwareBlockCount = 112;
constexpr uint32_t kFirmwareImageSize = kFirmwareBlockSize * kFirmwareBlockCount;
static_assert(kFirmwareImageSize == 28672);

}  // namespace ois

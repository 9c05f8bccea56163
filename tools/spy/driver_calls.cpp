// The public calls of the driver's library, as a program makes them. The library calls its own members by the
// same names; what it calls, or runs on a thread of its own, is no call of the program.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <initializer_list>
#include <span>
#include <type_traits>
#include <utility>
#include <variant>

#include "driver.h"
#include "next.h"
#include "ois_drv.h"
#include "trace.h"

namespace spy {

namespace {

[[gnu::tls_model("initial-exec")]] thread_local constinit int tDepth = 0;

constexpr size_t kSensors = 8;
constinit std::array<std::atomic<OISDrv*>, kSensors> gDrivers{};

struct Argument {
    const char* name;
    std::variant<int64_t, float, const char*> value;
};
using Arguments = std::initializer_list<Argument>;

constexpr size_t kLineSize = 1024;

// What a request asks for, as far as it is not as usual.
void describe(Text<kLineSize>& text, const ois_params& params) {
    const auto add = [&text](const char* name, int64_t value, int64_t usual = 0) {
        if (value != usual) text.number(name, value);
    };
    add("ois_mode_from_tag", params.ois_mode_from_tag);
    add("video_mode", params.video_mode);
    add("engineer_mode", params.engineer_mode);
    add("engineer_operation", params.engineer_operation, -1);
    add("act_scene", params.act_scene);
    text.number("zoom_ratio", params.zoom_ratio);
    add("zoom_scale_en", params.zoom_scale_en);
    add("extra_param", params.extra_param);
    add("scenario", params.scenario);
    add("capture_en", params.capture_en);
    add("capture_value", params.capture_value);
    add("scenario_flag", params.scenario_flag);
}

void describe(Text<kLineSize>& text, const Arguments& arguments) {
    for (const auto& [name, value] : arguments) {
        std::visit(
            [&text, key = name](auto shown) {
                if constexpr (std::is_same_v<decltype(shown), const char*>) {
                    text.text(key, shown == nullptr ? "" : shown);
                } else {
                    text.number(key, shown);
                }
            },
            value);
    }
}

// A record that an argument points to, as it stands at the moment.
template <typename Record>
class Pointed {
  public:
    explicit Pointed(const Record* record) : mRecord(record) {}
    std::span<const uint8_t> bytes() {
        if (mRecord == nullptr) return {};
        std::memcpy(mBytes.data(), mRecord, sizeof(Record));
        // An address in the program, and into this very record.
        if constexpr (std::is_same_v<Record, ois_params>)
            std::memset(mBytes.data() + offsetof(ois_params, op_result_ptr), 0,
                        sizeof(ois_params::op_result_ptr));
        return mBytes;
    }

  private:
    const Record* mRecord;
    std::array<uint8_t, sizeof(Record)> mBytes;
};

// Bytes of a length that another argument tells.
struct Buffer {
    const void* address;
    int64_t size;
    std::span<const uint8_t> bytes() const {
        if (address == nullptr || size <= 0) return {};
        return {static_cast<const uint8_t*>(address), static_cast<size_t>(size)};
    }
};

// Of a command: what goes out, and what comes back, which is all of it where it comes to the same place.
Buffer answerTo(const void* in, const void* out, int32_t inLength, int32_t outLength) {
    return {out, in == out ? std::max(inLength, outLength) : outLength};
}

struct Nothing {
    static std::span<const uint8_t> bytes() { return {}; }
};

// A line for the beginning of a call, or its end. Which sensor it is of stands there when it is not the
// first.
template <typename Described>
Line<kLineSize> callLine(const char* name, const OISDrv* driver, const Described& described) {
    Line<kLineSize> line("call", name);
    line.open("fields");
    describe(line, described);
    for (size_t sensor = 1; sensor < kSensors; ++sensor)
        if (gDrivers[sensor].load(std::memory_order_relaxed) == driver) line.number("sensor", sensor);
    line.close();
    return line;
}

// One call: what the program passes, what the library does, what the program gets.
template <typename Work, typename Described, typename Sent, typename Received>
auto call(const char* name, OISDrv* driver, const Described& described, Sent sent, Received received,
          Work work) {
    const InDriver in;
    if (!in.outermost() || !wanted()) return work();
    Line<kLineSize> line = callLine(name, driver, described);
    line.record(sent.bytes());
    try {
        if constexpr (std::is_void_v<decltype(work())>) {
            work();
            line.result(0).record({}, received.bytes());
        } else {
            const auto result = work();
            line.result(result).record({}, received.bytes());
            return result;
        }
    } catch (...) {
        line.result(-1).record({}, received.bytes());
        throw;
    }
}

template <typename Record, typename Described, typename Work>
auto callWith(const char* name, OISDrv* driver, const Described& described, const Record* record, Work work) {
    return call(name, driver, described, Pointed(record), Pointed(record), work);
}

template <typename Work>
auto plainCall(const char* name, OISDrv* driver, const Arguments& arguments, Work work) {
    return call(name, driver, arguments, Nothing(), Nothing(), work);
}

}  // namespace

InDriver::InDriver() : mOutermost(tDepth++ == 0) {}
InDriver::~InDriver() {
    --tDepth;
}
bool inDriver() {
    return tDepth > 0;
}
OutOfDriver::OutOfDriver() : mDepth(std::exchange(tDepth, 0)) {}
OutOfDriver::~OutOfDriver() {
    tDepth = mDepth;
}

}  // namespace spy

using namespace spy;

// A member of OISDrv as the linker knows it, and the library's own behind it. A member's first argument is
// its object.
#define SPY_MEMBER(Result, Name, symbol, ...)                              \
    SPY_EXPORT Result spy##Name(__VA_ARGS__) __asm__("_ZN6OISDrv" symbol); \
    static constinit Next<Result(__VA_ARGS__)> g##Name("_ZN6OISDrv" symbol);
// One without arguments, and one with a number.
#define SPY_PLAIN(Result, Name, symbol)                                       \
    SPY_MEMBER(Result, Name, symbol, OISDrv*)                                 \
    Result spy##Name(OISDrv* driver) {                                        \
        return plainCall(#Name, driver, {}, [=] { return g##Name(driver); }); \
    }
#define SPY_NUMBER(Result, Name, symbol, argument)                                                    \
    SPY_MEMBER(Result, Name, symbol, OISDrv*, int32_t)                                                \
    Result spy##Name(OISDrv* driver, int32_t value) {                                                 \
        return plainCall(#Name, driver, {{argument, value}}, [=] { return g##Name(driver, value); }); \
    }
#define SPY_NUMBERS(Result, Name, symbol, argument, other)                    \
    SPY_MEMBER(Result, Name, symbol, OISDrv*, int32_t, int32_t)               \
    Result spy##Name(OISDrv* driver, int32_t value, int32_t second) {         \
        return plainCall(#Name, driver, {{argument, value}, {other, second}}, \
                         [=] { return g##Name(driver, value, second); });     \
    }
#define SPY_RECORD(Result, Name, symbol, Record, ...)                                               \
    SPY_MEMBER(Result, Name, symbol, OISDrv*, Record*)                                              \
    Result spy##Name(OISDrv* driver, Record* record) {                                              \
        const Arguments arguments = {__VA_ARGS__};                                                  \
        return callWith(#Name, driver, arguments, record, [=] { return g##Name(driver, record); }); \
    }

extern "C" {

SPY_NUMBERS(int32_t, Init, "4InitEii", "sensor_id", "module_id")
SPY_NUMBERS(int32_t, FirmwareUpdate, "14FirmwareUpdateEii", "sensor_id", "module_id")
SPY_PLAIN(int32_t, Uninit, "6UninitEv")
SPY_PLAIN(int32_t, InitDrv, "7InitDrvEv")
SPY_NUMBER(int32_t, SetMode, "7SetModeEi", "mode")
SPY_NUMBER(int32_t, SetOperation, "12SetOperationEi", "operation")
SPY_NUMBER(int32_t, EnableOis, "9EnableOisEi", "dynamic")
SPY_NUMBER(int32_t, SetActOisBySoftTrigger, "22SetActOisBySoftTriggerEi", "trigger")
SPY_NUMBER(int32_t, SetOisAFdriftParams, "19SetOisAFdriftParamsEi", "position")
SPY_NUMBER(int32_t, korvas4sw_set_mode, "18korvas4sw_set_modeEi", "on")
SPY_PLAIN(int32_t, CheckIcStatus, "13CheckIcStatusEv")
SPY_PLAIN(int32_t, SetFixMode, "10SetFixModeEv")
SPY_PLAIN(int32_t, GetHall, "7GetHallEv")
SPY_PLAIN(void, GimbalCalibration, "17GimbalCalibrationEv")
SPY_PLAIN(void, update_temp_cmp, "15update_temp_cmpEv")
SPY_PLAIN(void, UpdateTempStrategy, "18UpdateTempStrategyEv")
SPY_PLAIN(int32_t, korvas4sw_set_idle, "18korvas4sw_set_idleEv")
SPY_PLAIN(int32_t, korvas4sw_init_pid, "18korvas4sw_init_pidEv")
SPY_PLAIN(int32_t, korvas4sw_set_offset_calibration, "32korvas4sw_set_offset_calibrationEv")
SPY_PLAIN(int32_t, korvas4sw_flash_save, "20korvas4sw_flash_saveEv")
SPY_PLAIN(int32_t, check_ois_clock, "15check_ois_clockEv")
SPY_PLAIN(int32_t, update_fw_func, "14update_fw_funcEv")
SPY_PLAIN(void, GetSensorData, "13GetSensorDataEv")
SPY_PLAIN(int32_t, DumpGyroAccRawTargetHallData2File, "33DumpGyroAccRawTargetHallData2FileEv")
SPY_PLAIN(int32_t, DetectActutorDefect, "19DetectActutorDefectEv")
SPY_PLAIN(int32_t, DumpOtp2File, "12DumpOtp2FileEv")
SPY_PLAIN(int32_t, DumpOisFlashData2File, "21DumpOisFlashData2FileEv")
SPY_PLAIN(int32_t, GetDataRuvex, "12GetDataRuvexEv")
SPY_RECORD(int32_t, NotifyStream, "12NotifyStreamEP15ois_stream_info", ois_stream_info,
           {"notify_stream", record == nullptr ? 0 : record->notify_stream})
SPY_RECORD(int32_t, SetOisCfgData, "13SetOisCfgDataEP12ois_cfg_data", ois_cfg_data,
           {"sensor_mode", record == nullptr ? 0 : record->SensorMode})
SPY_RECORD(int32_t, korvas4sw_set_acc, "17korvas4sw_set_accEP14ois_acc_params", ois_acc_params)
SPY_RECORD(void, GetOisOtpData, "13GetOisOtpDataEP12ois_otp_data", ois_otp_data)

SPY_MEMBER(int32_t, SetOisParams, "12SetOisParamsEP10ois_params", OISDrv*, ois_params*)
int32_t spySetOisParams(OISDrv* driver, ois_params* params) {
    return callWith("SetOisParams", driver, params == nullptr ? ois_params{} : *params, params,
                    [=] { return gSetOisParams(driver, params); });
}

// Opaque to the driver, and so to whoever looks at it.
SPY_MEMBER(int32_t, GetOisInfo, "10GetOisInfoEP17ois_lens_info_buf", OISDrv*, ois_lens_info_buf*)
int32_t spyGetOisInfo(OISDrv* driver, ois_lens_info_buf* info) {
    return plainCall("GetOisInfo", driver, {}, [=] { return gGetOisInfo(driver, info); });
}

SPY_MEMBER(int32_t, SetActOis, "9SetActOisE18ois_act_parameters", OISDrv*, ois_act_parameters)
int32_t spySetActOis(OISDrv* driver, ois_act_parameters params) {
    return callWith("SetActOis", driver, Arguments{{"enable", params.enable}}, &params,
                    [=] { return gSetActOis(driver, params); });
}

// The argument is the address of a record, or 0.
SPY_MEMBER(int32_t, SetAccParam, "11SetAccParamEl", OISDrv*, long)
int32_t spySetAccParam(OISDrv* driver, long address) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an address is what the operation takes.
    const auto* const focus = reinterpret_cast<const ois_focus_params*>(address);
    Argument shown{"distance_mm", int64_t{focus == nullptr ? 0 : focus->distance}};
    if (focus != nullptr && focus->useFocus != 0) shown = {"focus_diopter", focus->focusDiopter};
    return callWith("SetAccParam", driver, Arguments{shown}, focus,
                    [=] { return gSetAccParam(driver, address); });
}

SPY_MEMBER(uint16_t, korvas4sw_fw_checksum, "21korvas4sw_fw_checksumEPKvt", OISDrv*, const void*, uint16_t)
uint16_t spykorvas4sw_fw_checksum(OISDrv* driver, const void* image, uint16_t size) {
    return call("korvas4sw_fw_checksum", driver, Arguments{{"size", int64_t{size}}}, Buffer{image, size},
                Nothing(), [=] { return gkorvas4sw_fw_checksum(driver, image, size); });
}

SPY_MEMBER(int32_t, ConfigOisTransfer, "17ConfigOisTransferEjiPvS0_ii", OISDrv*, uint32_t, int32_t, void*,
           void*, int32_t, int32_t)
int32_t spyConfigOisTransfer(OISDrv* driver, uint32_t request, int32_t command, void* in, void* out,
                             int32_t inLength, int32_t outLength) {
    return call("ConfigOisTransfer", driver,
                Arguments{{"request", int64_t{request}},
                          {"command", int64_t{command}},
                          {"output_length", int64_t{outLength}},
                          {"in_place", int64_t{in == out}}},
                Buffer{in, inLength}, answerTo(in, out, inLength, outLength),
                [=] { return gConfigOisTransfer(driver, request, command, in, out, inLength, outLength); });
}

#define SPY_TRANSFER(Name, symbol)                                                            \
    SPY_MEMBER(int32_t, Name, symbol, OISDrv*, int32_t, void*, void*, int32_t, int32_t)       \
    int32_t spy##Name(OISDrv* driver, int32_t command, void* in, void* out, int32_t inLength, \
                      int32_t outLength) {                                                    \
        return call(#Name, driver,                                                            \
                    Arguments{{"command", int64_t{command}},                                  \
                              {"output_length", int64_t{outLength}},                          \
                              {"in_place", int64_t{in == out}}},                              \
                    Buffer{in, inLength}, answerTo(in, out, inLength, outLength),             \
                    [=] { return g##Name(driver, command, in, out, inLength, outLength); });  \
    }
SPY_TRANSFER(CustomCmdPackage, "16CustomCmdPackageEiPvS0_ii")
SPY_TRANSFER(KorvaCmdParse, "13KorvaCmdParseEiPvS0_ii")

SPY_MEMBER(int32_t, GetV4l2MediaDevice, "18GetV4l2MediaDeviceEPKc", OISDrv*, const char*)
int32_t spyGetV4l2MediaDevice(OISDrv* driver, const char* name) {
    return plainCall("GetV4l2MediaDevice", driver, {{"name", name}},
                     [=] { return gGetV4l2MediaDevice(driver, name); });
}

SPY_MEMBER(int32_t, GetV4l2SubDevice, "16GetV4l2SubDeviceEPKc", OISDrv*, const char*)
int32_t spyGetV4l2SubDevice(OISDrv* driver, const char* name) {
    return plainCall("GetV4l2SubDevice", driver, {{"name", name}},
                     [=] { return gGetV4l2SubDevice(driver, name); });
}

SPY_MEMBER(int32_t, GetV4l2SubDevName, "17GetV4l2SubDevNameEiiPc", OISDrv*, int32_t, int32_t, char*)
int32_t spyGetV4l2SubDevName(OISDrv* driver, int32_t major, int32_t minor, char* path) {
    return plainCall("GetV4l2SubDevName", driver, {{"major", major}, {"minor", minor}},
                     [=] { return gGetV4l2SubDevName(driver, major, minor, path); });
}

// No call to anybody: it tells which sensor an object is of.
SPY_MEMBER(OISDrv*, GetInstance, "11GetInstanceEi", int32_t)
OISDrv* spyGetInstance(int32_t sensor) {
    OISDrv* const driver = gGetInstance(sensor);
    const auto index = static_cast<size_t>(sensor);
    if (index < kSensors) gDrivers[index].store(driver, std::memory_order_relaxed);
    return driver;
}

}  // extern "C"

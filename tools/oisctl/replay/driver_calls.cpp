#include "replay/driver_calls.h"

#include <fmt/core.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string_view>
#include <system_error>

#include "base/errors.h"
#include "base/suggest.h"
#include "session/driver_session.h"
#include "trace/decode.h"

namespace oisctl {

using phone::Event;

namespace {

int32_t number(const Event& call, std::string_view name) {
    const phone::Field* field = findField(call, name);
    if (field == nullptr) {
        throw InputError(
            fmt::format("{}: the trace does not say its {}; an earlier version wrote it", call.name, name));
    }
    return static_cast<int32_t>(phone::integerField({.fields = {*field}}, name));
}

template <typename Record>
Record record(const Event& call) {
    if (call.sent.size() != sizeof(Record)) {
        throw InputError(
            fmt::format("{}: the trace has {} bytes of its argument, not {}; an earlier version wrote it",
                        call.name, call.sent.size(), sizeof(Record)));
    }
    return phone::recordOf<Record>(call.sent);
}

// The record as the call left it, without the address that a request may hold.
template <typename Record>
void keep(Event& call, const Record& record) {
    Record shown = record;
    if constexpr (std::is_same_v<Record, ois_params>) shown.op_result_ptr = nullptr;
    const std::span bytes = bytesOf(shown);
    call.received.assign(bytes.begin(), bytes.end());
}

using Make = std::function<int32_t(OISDrv&, Event&)>;

// A command with its lengths, whose answer comes to a place of its own or to that of the record. `make` is
// given both.
using Transfer =
    std::function<int32_t(int32_t command, void* in, void* out, int32_t inLength, int32_t outLength)>;
int32_t transfer(OISDrv& driver, Event& call, size_t recordSize, const Transfer& make) {
    const bool behindHub = driver.mOisCustInfo.useSensorHub != 0;
    const int32_t outLength = number(call, "output_length");
    const size_t most = behindHub ? ois::kHubPayloadSize : sizeof(ois::OisCustInfo);
    if (call.sent.size() > most || outLength < 0 || static_cast<size_t>(outLength) > most) {
        throw InputError(fmt::format("{}: {} bytes out and {} back; no command has more than {}", call.name,
                                     call.sent.size(), outLength, most));
    }
    const auto inLength = static_cast<int32_t>(call.sent.size());
    std::vector<uint8_t> in = call.sent;
    std::vector<uint8_t> out(static_cast<size_t>(outLength));
    in.resize(std::max({in.size(), out.size(), recordSize}));
    const bool inPlace = number(call, "in_place") != 0;
    const int32_t result =
        make(number(call, "command"), in.data(), inPlace ? in.data() : out.data(), inLength, outLength);
    in.resize(std::max(call.sent.size(), out.size()));
    call.received = inPlace ? std::move(in) : std::move(out);
    return result;
}

Make transferBy(int32_t (OISDrv::*operation)(int32_t, void*, void*, int32_t, int32_t)) {
    return [operation](OISDrv& driver, Event& call) {
        return transfer(driver, call, 0,
                        [&](auto... arguments) { return (driver.*operation)(arguments...); });
    };
}

int32_t transferRequest(OISDrv& driver, Event& call) {
    const auto request = static_cast<uint32_t>(number(call, "request"));
    return transfer(driver, call, _IOC_SIZE(request),
                    [&](auto... arguments) { return driver.ConfigOisTransfer(request, arguments...); });
}

int32_t setAccParam(OISDrv& driver, Event& call) {
    if (call.sent.empty()) return driver.SetAccParam(0);
    auto focus = record<ois_focus_params>(call);
    const int32_t result = driver.SetAccParam(reinterpret_cast<long>(&focus));
    keep(call, focus);
    return result;
}

// A call without arguments that gives nothing, and one that gives a result.
Make plain(void (OISDrv::*operation)()) {
    return [operation](OISDrv& driver, const Event&) {
        (driver.*operation)();
        return 0;
    };
}
Make plain(int32_t (OISDrv::*operation)()) {
    return [operation](OISDrv& driver, const Event&) { return (driver.*operation)(); };
}

// One that takes a number, or a record by its address.
Make withNumber(int32_t (OISDrv::*operation)(int32_t), const char* name) {
    return [=](OISDrv& driver, const Event& call) { return (driver.*operation)(number(call, name)); };
}
template <typename Record>
Make withRecord(int32_t (OISDrv::*operation)(Record*)) {
    return [operation](OISDrv& driver, Event& call) {
        auto argument = record<Record>(call);
        const int32_t result = (driver.*operation)(&argument);
        keep(call, argument);
        return result;
    };
}

Make withIds(int32_t (OISDrv::*operation)(int32_t, int32_t)) {
    return [operation](OISDrv& driver, const Event& call) {
        return (driver.*operation)(number(call, "sensor_id"), number(call, "module_id"));
    };
}

const std::map<std::string_view, Make>& makers() {
    static const std::map<std::string_view, Make> all{
        {"Init", withIds(&OISDrv::Init)},
        {"Uninit", plain(&OISDrv::Uninit)},
        {"SetMode", withNumber(&OISDrv::SetMode, "mode")},
        {"SetOperation", withNumber(&OISDrv::SetOperation, "operation")},
        {"EnableOis", withNumber(&OISDrv::EnableOis, "dynamic")},
        {"CheckIcStatus", plain(&OISDrv::CheckIcStatus)},
        {"SetOisParams", withRecord(&OISDrv::SetOisParams)},
        {"SetOisCfgData", withRecord(&OISDrv::SetOisCfgData)},
        {"SetFixMode", plain(&OISDrv::SetFixMode)},
        {"GetHall", plain(&OISDrv::GetHall)},
        {"SetActOis",
         [](OISDrv& driver, Event& call) {
             const auto params = record<ois_act_parameters>(call);
             const int32_t result = driver.SetActOis(params);
             keep(call, params);
             return result;
         }},
        {"SetActOisBySoftTrigger", withNumber(&OISDrv::SetActOisBySoftTrigger, "trigger")},
        {"GimbalCalibration", plain(&OISDrv::GimbalCalibration)},
        {"NotifyStream", withRecord(&OISDrv::NotifyStream)},
        {"SetAccParam", setAccParam},
        {"SetOisAFdriftParams", withNumber(&OISDrv::SetOisAFdriftParams, "position")},
        {"update_temp_cmp", plain(&OISDrv::update_temp_cmp)},
        {"UpdateTempStrategy", plain(&OISDrv::UpdateTempStrategy)},
        {"korvas4sw_set_mode", withNumber(&OISDrv::korvas4sw_set_mode, "on")},
        {"korvas4sw_set_acc", withRecord(&OISDrv::korvas4sw_set_acc)},
        {"korvas4sw_set_idle", plain(&OISDrv::korvas4sw_set_idle)},
        {"korvas4sw_init_pid", plain(&OISDrv::korvas4sw_init_pid)},
        {"korvas4sw_set_offset_calibration", plain(&OISDrv::korvas4sw_set_offset_calibration)},
        {"korvas4sw_flash_save", plain(&OISDrv::korvas4sw_flash_save)},
        {"FirmwareUpdate", withIds(&OISDrv::FirmwareUpdate)},
        {"check_ois_clock", plain(&OISDrv::check_ois_clock)},
        {"update_fw_func", plain(&OISDrv::update_fw_func)},
        {"GetSensorData", plain(&OISDrv::GetSensorData)},
        {"DumpGyroAccRawTargetHallData2File", plain(&OISDrv::DumpGyroAccRawTargetHallData2File)},
        {"DetectActutorDefect", plain(&OISDrv::DetectActutorDefect)},
        {"GetOisOtpData",
         [](OISDrv& driver, Event& call) {
             auto otp = record<ois_otp_data>(call);
             driver.GetOisOtpData(&otp);
             keep(call, otp);
             return 0;
         }},
        {"DumpOtp2File", plain(&OISDrv::DumpOtp2File)},
        {"DumpOisFlashData2File", plain(&OISDrv::DumpOisFlashData2File)},
        {"GetDataRuvex", plain(&OISDrv::GetDataRuvex)},
        {"CustomCmdPackage", transferBy(&OISDrv::CustomCmdPackage)},
        {"KorvaCmdParse", transferBy(&OISDrv::KorvaCmdParse)},
        {"ConfigOisTransfer", transferRequest},
    };
    return all;
}

}  // namespace

std::vector<std::string> driverCallNames() {
    return namesIn(makers(), [](const auto& operation) { return std::string(operation.first); });
}

void makeCall(OISDrv& driver, Event& call) {
    const auto found = makers().find(call.name);
    if (found == makers().end())
        throw InputError(fmt::format("{}: no operation of the driver that can be called again", call.name));
    try {
        call.result = found->second(driver, call);
    } catch (const std::system_error&) {
        call.result = -1;  // a thread that could not be started; the session goes on without
    }
    call.sent.clear();
}

}  // namespace oisctl

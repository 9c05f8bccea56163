#include "replay/driver_calls.h"

#include <fmt/core.h>

#include <functional>
#include <map>
#include <string_view>

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

// A register of the chip behind the hub, read or written alone.
int32_t accessRegister(OISDrv& driver, Event& call) {
    auto access = record<ois::HubRegisterAccess>(call);
    if (access.byteCount > sizeof access.value) {
        throw InputError(fmt::format("{}: {} bytes of a register, which has no more than {}", call.name,
                                     access.byteCount, sizeof access.value));
    }
    const bool writes = findField(call, "write") != nullptr;
    uint32_t value = 0;
    const int32_t result = driver.CustomCmdPackage(
        ois::id(writes ? ois::HubCommand::kKorvaWriteReg : ois::HubCommand::kKorvaReadReg), &access, &value,
        sizeof access, writes ? 0 : static_cast<int32_t>(access.byteCount));
    keep(call, access);
    return result;
}

// Any command, whose record is also where the answer goes.
int32_t transfer(OISDrv& driver, Event& call) {
    const auto request = static_cast<uint32_t>(number(call, "request"));
    if (call.sent.size() < _IOC_SIZE(request) || call.sent.size() > sizeof(ois::OisCustInfo)) {
        throw InputError(fmt::format("{}: the trace has {} bytes of its record, not {}", call.name,
                                     call.sent.size(), _IOC_SIZE(request)));
    }
    std::vector<uint8_t> bytes = call.sent;
    const int32_t result = driver.ConfigOisTransfer(
        request, number(call, "command"), bytes.data(), bytes.data(), static_cast<int32_t>(bytes.size()),
        std::min(number(call, "output_length"), static_cast<int32_t>(bytes.size())));
    call.received = std::move(bytes);
    return result;
}

int32_t setAccParam(OISDrv& driver, Event& call) {
    if (call.sent.empty()) return driver.SetAccParam(0);
    auto focus = record<ois_focus_params>(call);
    const int32_t result = driver.SetAccParam(reinterpret_cast<long>(&focus));
    keep(call, focus);
    return result;
}

using Make = std::function<int32_t(OISDrv&, Event&)>;

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

const std::map<std::string_view, Make>& operations() {
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
        {"CustomCmdPackage", accessRegister},
        {"ConfigOisTransfer", transfer},
    };
    return all;
}

}  // namespace

std::vector<std::string> driverCallNames() {
    return namesIn(operations(), [](const auto& operation) { return std::string(operation.first); });
}

void makeCall(OISDrv& driver, Event& call) {
    const auto found = operations().find(call.name);
    if (found == operations().end())
        throw InputError(fmt::format("{}: no operation of the driver that can be called again", call.name));
    call.result = found->second(driver, call);
    call.sent.clear();
}

}  // namespace oisctl

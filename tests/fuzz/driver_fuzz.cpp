// One input: a driver of its own, opened, used and closed by calls that the fuzzer's bytes choose.

#include <sys/ioctl.h>

#include <system_error>

#include "phone.h"

using fuzz::require;
using fuzz::Script;

namespace {

using Buffer = std::vector<uint8_t>;

Buffer buffer(Script& script, size_t size) {
    Buffer bytes(size);
    script.fill(bytes.data(), size);
    return bytes;
}

template <typename Record>
Record record(Script& script) {
    Record value{};
    script.fill(&value, sizeof value);
    return value;
}

void closeSession(OISDrv& driver) {
    while (driver.m_user_count > 0) driver.Uninit();
}

void joinRecorder(OISDrv& driver) {
    driver.mProperty.isRun = 0;
    if (driver.mDumpThread.joinable()) driver.mDumpThread.join();
}

void makeRequest(OISDrv& driver, Script& script) {
    constexpr int32_t kEngineerMode = 8;
    std::array<int32_t, sizeof(ois_params) / sizeof(int32_t)> words;
    for (int32_t& word : words) word = script.number();
    auto params = std::bit_cast<ois_params>(words);
    params.zoom_ratio = script.real();
    // A recorder that an earlier session left is its caller's to join before the next one starts.
    if (params.engineer_mode == kEngineerMode && driver.mParamsCallCount == 0) joinRecorder(driver);
    driver.SetOisParams(script.rarely() ? nullptr : &params);
}

// A command by one of the three ways, with buffers of exactly the bytes that it may touch.
void sendCommand(OISDrv& driver, Script& script) {
    constexpr int32_t kLongestInput = 60;  // longer ones end the process, as they should
    const uint8_t way = script.byte() % 3;
    const unsigned requestSize = way == 0 ? script.byte() * 8U : sizeof(int32_t);
    const int32_t id = script.number();
    const int32_t inLength = script.byte() % (kLongestInput + 1);
    const int32_t outLength = script.number();
    Buffer inBytes = buffer(script, std::max(static_cast<unsigned>(inLength), requestSize));
    Buffer outBytes(static_cast<size_t>(std::clamp(outLength, 0, kLongestInput)));
    void* in = script.rarely() ? nullptr : inBytes.data();
    void* out = script.rarely() ? nullptr : outBytes.data();
    if (way == 0) {
        const auto request =
            static_cast<uint32_t>(_IOC(_IOC_READ | _IOC_WRITE, 'V', script.byte(), requestSize));
        driver.ConfigOisTransfer(request, id, in, out, inLength, outLength);
    } else {
        (driver.*(way == 1 ? &OISDrv::CustomCmdPackage : &OISDrv::KorvaCmdParse))(id, in, out, inLength,
                                                                                  outLength);
    }
}

void sumUp(OISDrv& driver, Script& script) {
    const auto size = static_cast<uint16_t>(script.number());
    const Buffer image = buffer(script, size + 1U);  // the first byte is skipped, for an odd address
    uint16_t sum = 0;
    for (size_t i = 1; i + 1 < image.size(); i += 2)
        sum = static_cast<uint16_t>(sum + image[i] + (image[i + 1] << 8));
    require(driver.korvas4sw_fw_checksum(image.data() + 1, size) == sum);
}

using Step = void (*)(OISDrv& driver, Script& script);

constexpr Step kSteps[] = {
    // Opening; seldom by a second user.
    [](OISDrv& d, Script& s) {
        if (!s.rarely()) closeSession(d);
        d.Init(s.byte(), s.byte());
    },
    [](OISDrv& d, Script&) { d.Uninit(); },
    makeRequest,
    sendCommand,
    sumUp,
    [](OISDrv& d, Script& s) { d.SetMode(s.number()); },
    [](OISDrv& d, Script& s) { d.SetOperation(s.number()); },
    [](OISDrv& d, Script& s) { d.EnableOis(s.number()); },
    [](OISDrv& d, Script&) { d.CheckIcStatus(); },
    [](OISDrv& d, Script&) { d.SetFixMode(); },
    [](OISDrv& d, Script&) { d.GetHall(); },
    [](OISDrv& d, Script& s) { d.SetActOis(record<ois_act_parameters>(s)); },
    [](OISDrv& d, Script& s) {
        ois_stream_info stream{s.number(), 0};
        d.NotifyStream(s.rarely() ? nullptr : &stream);
    },
    [](OISDrv& d, Script& s) {
        ois_focus_params focus{s.byte() % 2, s.number(), s.byte() % 2, s.real()};
        d.SetAccParam(s.rarely() ? 0 : reinterpret_cast<long>(&focus));
    },
    [](OISDrv& d, Script& s) { d.SetOisAFdriftParams(s.number()); },
    [](OISDrv& d, Script&) { d.update_temp_cmp(); },
    [](OISDrv& d, Script&) { d.GetSensorData(); },
    [](OISDrv& d, Script& s) { d.korvas4sw_set_mode(s.number()); },
    [](OISDrv& d, Script& s) {
        auto params = record<ois_acc_params>(s);
        d.korvas4sw_set_acc(&params);
    },
    [](OISDrv& d, Script&) { d.check_ois_clock(); },
    [](OISDrv& d, Script&) { d.korvas4sw_set_offset_calibration(); },
    [](OISDrv& d, Script&) { d.korvas4sw_flash_save(); },
    [](OISDrv& d, Script& s) { d.FirmwareUpdate(s.byte(), s.byte()); },
    [](OISDrv& d, Script& s) {
        auto otp = record<ois_otp_data>(s);
        d.GetOisOtpData(s.rarely() ? nullptr : &otp);
        d.DumpOtp2File();
    },
    [](OISDrv& d, Script&) { d.DumpOisFlashData2File(); },
    [](OISDrv& d, Script&) { d.DumpGyroAccRawTargetHallData2File(); },
    [](OISDrv& d, Script&) { d.DetectActutorDefect(); },
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr int kMostSteps = 24;
    const size_t callsSize = size / 3;
    Script calls(data, callsSize, Script::From::kFront);
    const uint8_t head = calls.byte();
    OISDrv driver(head % 8);
    fuzz::switchOn(Script(data + callsSize, size - callsSize, Script::From::kBack), driver, head >= 0x80,
                   head / 8 % 8 == 7);
    // The first step opens the driver.
    for (int i = 0; i == 0 || (i < kMostSteps && !calls.empty()); ++i) {
        fuzz::pause();
        try {
            kSteps[i == 0 ? 0 : calls.byte() % std::size(kSteps)](driver, calls);
        } catch (const std::system_error&) {
            // No thread could be made; the call had no other effect.
        }
    }
    closeSession(driver);
    joinRecorder(driver);
    if (driver.mDefectDetectThread.joinable()) driver.mDefectDetectThread.join();
    fuzz::switchOff();
    return 0;
}

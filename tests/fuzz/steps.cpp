// One input: a driver of its own, opened, used and closed by calls that the script chooses.

#include <sys/ioctl.h>
#include <unistd.h>

#include <system_error>

#include "platform.h"

using fuzz::require;
using fuzz::Script;

namespace {

// Memory of exactly that many bytes, so that a sanitizer sees any access behind them.
using Buffer = std::vector<uint8_t>;

Buffer buffer(Script& script, size_t size) {
    Buffer bytes(size);
    script.fill(bytes.data(), size);
    return bytes;
}

template <typename Record>
Record record(Script& script) {
    Record value;
    script.fill(&value, sizeof value);
    return value;
}

void joinRecorder(OISDrv& driver) {
    driver.mProperty.isRun = 0;
    if (driver.mDumpThread.joinable()) driver.mDumpThread.join();
}

void request(OISDrv& driver, Script& script) {
    constexpr int32_t kEngineerMode = 8;
    ois_params params{};
    params.ois_mode_from_tag = script.byte();
    params.engineer_mode = script.number();
    for (int32_t* field : {&params.video_mode, &params.engineer_operation, &params.act_scene,
                           &params.zoom_scale_en, &params.scenario, &params.sensor_dev, &params.capture_en,
                           &params.capture_value, &params.scenario_flag})
        *field = script.number();
    params.zoom_ratio = script.real();
    params.extra_param = script.byte();
    // A recorder that an earlier session left is its caller's to join before the next one starts.
    if (params.engineer_mode == kEngineerMode && driver.mParamsCallCount == 0) joinRecorder(driver);
    driver.SetOisParams(script.rarely() ? nullptr : &params);
}

// Longer inputs end the process, as they should.
constexpr int32_t kLongestInput = 60;

// A hub command's id, input and output.
struct Command {
    explicit Command(Script& script, size_t leastInput = sizeof(int32_t))
        : id(script.number()),
          inputLength(script.byte() % (kLongestInput + 1)),
          outputLength(script.number()),
          inputBytes(buffer(script, std::max<size_t>(static_cast<size_t>(inputLength), leastInput))),
          outputBytes(static_cast<size_t>(std::clamp(outputLength, 0, kLongestInput))),
          input(script.rarely() ? nullptr : inputBytes.data()),
          output(script.rarely() ? nullptr : outputBytes.data()) {}

    int32_t id, inputLength, outputLength;
    Buffer inputBytes, outputBytes;
    void *input, *output;
};

void transfer(OISDrv& driver, Script& script) {
    const size_t size = script.byte() * 8U;
    const auto code = static_cast<uint32_t>(_IOC(_IOC_READ | _IOC_WRITE, 'V', script.byte(), size));
    const Command command(script, std::max<size_t>(size, sizeof(int32_t)));
    driver.ConfigOisTransfer(code, command.id, command.input, command.output, command.inputLength,
                             command.outputLength);
}

void checksum(OISDrv& driver, Script& script) {
    const auto size = static_cast<uint16_t>(script.number());
    const Buffer image = buffer(script, size + 1U);
    uint16_t sum = 0;
    for (size_t i = 1; i + 1 < image.size(); i += 2)
        sum = static_cast<uint16_t>(sum + image[i] + (image[i + 1] << 8));
    require(driver.korvas4sw_fw_checksum(image.data() + 1, size) == sum);
}

void closeDescriptor(int descriptor) {
    if (descriptor >= 0) close(descriptor);
}

void findDevices(OISDrv& driver, Script& script) {
    const Buffer name = buffer(script, 33);
    const std::string text(reinterpret_cast<const char*>(name.data()), name.size());
    closeDescriptor(driver.GetV4l2MediaDevice(text.c_str()));
    closeDescriptor(driver.GetV4l2SubDevice(text.c_str()));
    char path[32];
    driver.GetV4l2SubDevName(script.number(), script.number(), path);
}

using Step = void (*)(OISDrv& driver, Script& script);

constexpr Step kOpenAndClose[] = {
    [](OISDrv& d, Script& s) { d.Init(s.byte(), s.byte()); },
    [](OISDrv& d, Script&) { d.Uninit(); },
};

constexpr Step kControl[] = {
    request,
    transfer,
    [](OISDrv& d, Script& s) { d.SetMode(s.number()); },
    [](OISDrv& d, Script& s) { d.SetOperation(s.number()); },
    [](OISDrv& d, Script& s) { d.EnableOis(s.number()); },
    [](OISDrv& d, Script&) { d.CheckIcStatus(); },
    [](OISDrv& d, Script& s) {
        auto config = record<ois_cfg_data>(s);
        d.SetOisCfgData(&config);
    },
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
    [](OISDrv& d, Script&) { d.GetDataRuvex(); },
    findDevices,
};

constexpr Step kKorva[] = {
    [](OISDrv& d, Script& s) {
        const Command c(s, 0);
        d.CustomCmdPackage(c.id, c.input, c.output, c.inputLength, c.outputLength);
    },
    [](OISDrv& d, Script& s) {
        const Command c(s);
        d.KorvaCmdParse(c.id, c.input, c.output, c.inputLength, c.outputLength);
    },
    [](OISDrv& d, Script& s) { d.korvas4sw_set_mode(s.number()); },
    [](OISDrv& d, Script& s) {
        auto params = record<ois_acc_params>(s);
        d.korvas4sw_set_acc(&params);
    },
    [](OISDrv& d, Script&) { d.korvas4sw_set_idle(); },
    [](OISDrv& d, Script&) { d.korvas4sw_init_pid(); },
    [](OISDrv& d, Script&) { d.korvas4sw_set_offset_calibration(); },
    [](OISDrv& d, Script&) { d.korvas4sw_flash_save(); },
    [](OISDrv& d, Script&) { d.check_ois_clock(); },
    [](OISDrv& d, Script&) { d.update_fw_func(); },
    [](OISDrv& d, Script& s) { d.FirmwareUpdate(s.byte(), s.byte()); },
    checksum,
};

constexpr Step kDumps[] = {
    [](OISDrv& d, Script& s) {
        const auto otp = std::make_unique<ois_otp_data>(record<ois_otp_data>(s));
        d.GetOisOtpData(s.rarely() ? nullptr : otp.get());
    },
    [](OISDrv& d, Script&) { d.DumpOtp2File(); },
    [](OISDrv& d, Script&) { d.DumpOisFlashData2File(); },
    [](OISDrv& d, Script&) { d.DumpGyroAccRawTargetHallData2File(); },
    [](OISDrv& d, Script&) { d.DetectActutorDefect(); },
};

std::vector<Step> steps() {
    std::vector<Step> chosen;
    const auto add = [&chosen](const auto& group) {
        chosen.insert(chosen.end(), std::begin(group), std::end(group));
    };
    add(kOpenAndClose);
    if (OIS_FUZZ_CONTROL) add(kControl);
    if (OIS_FUZZ_KORVA) add(kKorva);
    if (OIS_FUZZ_DUMPS) add(kDumps);
    return chosen;
}

}  // namespace

extern "C" const char* __lsan_default_suppressions() {
    return "leak:OISDrv::allocateBuffers\n";  // a second Init leaks the first one's buffers on purpose
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr int kMostSteps = 64;
    static const std::vector<Step> kSteps = steps();
    Script script(data, size);
    const uint8_t head = script.byte();
    OISDrv driver(head % 8);
    fuzz::Platform platform(script, driver, head >= 0x80);
    for (int i = 0; i < kMostSteps && !script.empty(); ++i) {
        platform.pause();
        try {
            kSteps[script.byte() % kSteps.size()](driver, script);
        } catch (const std::system_error&) {
            // No thread could be made; the call had no other effect.
        }
    }
    while (driver.m_user_count > 0) driver.Uninit();
    joinRecorder(driver);
    if (driver.mDefectDetectThread.joinable()) driver.mDefectDetectThread.join();
    return 0;
}

#include "session/kept_state.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <stdexcept>

#include "base/errors.h"
#include "base/file_content.h"
#include "base/toml_reader.h"
#include "trace/decode.h"

namespace oisctl {

namespace fs = std::filesystem;
using phone::KeptByController;
using phone::KorvaFlash;
using phone::TableReader;

namespace {

constexpr const char* kFile = "state.toml";
constexpr int64_t kFormat = 1;
constexpr size_t kMostHexDigits = 1 << 20;

std::string gainToml(const ois::OisGain& gain) {
    return fmt::format("\n[gain]\nvalueXf = {}\nvalueYf = {}\nvalueXi = {}\nvalueYi = {}\n", gain.valueXf,
                       gain.valueYf, gain.valueXi, gain.valueYi);
}

std::string flashText(const KorvaFlash& flash) {
    return fmt::format(
        "gyro_offset = [{}, {}]\nother_data = \"{}\"\nclock_hz = {}\nupdated_clock_hz = {}\n"
        "firmware_version = {}\nfirmware_good = {}\nfirmware = \"{}\"\n",
        flash.gyroOffset[0], flash.gyroOffset[1], phone::hexOf(flash.otherData), flash.clockHz,
        flash.updatedClockHz, flash.firmwareVersion, flash.firmwareGood, phone::hexOf(flash.firmware));
}

std::string textOf(const std::string& module, bool behindHub, const KeptByController& kept) {
    std::string text = fmt::format(
        "# What a simulated controller keeps without power: oisctl --state\n"
        "format = {}\nmodule = \"{}\"\n",
        kFormat, module);
    if (behindHub) text += "\n[flash]\n" + flashText(kept.flash);
    if (!behindHub && kept.gyroOffset)
        text += fmt::format("gyro_offset = [{}, {}]\n", (*kept.gyroOffset)[0], (*kept.gyroOffset)[1]);
    return text + gainToml(kept.gain);
}

std::optional<std::array<int16_t, 2>> readOffset(TableReader& table) {
    using Limits = std::numeric_limits<int16_t>;
    const auto offset = table.integers("gyro_offset", Limits::min(), Limits::max(), 2, 2);
    if (!offset) return std::nullopt;
    return {{static_cast<int16_t>((*offset)[0]), static_cast<int16_t>((*offset)[1])}};
}

std::vector<uint8_t> readBytes(TableReader& table, const char* key) {
    const std::string text = table.text(key, kMostHexDigits).value_or("");
    try {
        return phone::bytesOfHex(text);
    } catch (const std::invalid_argument&) {
        table.fail(key, "are no bytes; it may be pairs of hex digits");
    }
}

KorvaFlash readFlash(TableReader table) {
    KorvaFlash flash;
    flash.gyroOffset = readOffset(table).value_or(flash.gyroOffset);
    flash.otherData = readBytes(table, "other_data");
    table.read("clock_hz", flash.clockHz);
    table.read("updated_clock_hz", flash.updatedClockHz);
    table.read("firmware_version", flash.firmwareVersion);
    table.read("firmware_good", flash.firmwareGood);
    flash.firmware = readBytes(table, "firmware");
    if (flash.firmware.size() != ois::kFirmwareImageSize) {
        table.fail("firmware", fmt::format("has {} bytes; an image has {}", flash.firmware.size(),
                                           ois::kFirmwareImageSize));
    }
    table.finish();
    return flash;
}

KeptByController readState(TableReader table, const phone::ModuleDescription& module) {
    int64_t format = 0;
    table.read("format", format);
    if (format != kFormat)
        table.fail("format", fmt::format("is {}; this tool reads format {}", format, kFormat));
    const std::string of = table.text("module").value_or("");
    if (of != module.name) {
        table.fail("module", fmt::format("is \"{}\", and this run is of {}; name another folder, or -m {}",
                                         of, module.name, of));
    }
    KeptByController kept;
    if (module.behindHub()) {
        table.require("flash", "a controller behind the hub keeps one");
        kept.flash = readFlash(*table.table("flash"));
    } else {
        kept.gyroOffset = readOffset(table);
    }
    table.require("gain", "what the controller keeps of its gains");
    TableReader gain = *table.table("gain");
    gain.read("valueXf", kept.gain.valueXf);
    gain.read("valueYf", kept.gain.valueYf);
    gain.read("valueXi", kept.gain.valueXi);
    gain.read("valueYi", kept.gain.valueYi);
    gain.finish();
    table.finish();
    return kept;
}

// The descriptor that holds the folder until it is closed, also by the end of the process.
int lock(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    const std::string option = "--state " + folder.string();
    if (error) throw InputError(fmt::format("{}: cannot be created: {}", option, error.message()));
    const int fd = open((folder / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) throw InputError(fmt::format("{}: cannot be written: {}", option, std::strerror(errno)));
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) return fd;
    close(fd);
    throw InputError(
        fmt::format("{}: another run uses it; wait for its end, or name another folder", option));
}

}  // namespace

KeptState::KeptState(const Settings& settings, const phone::ModuleDescription& module, phone::Phone& phone)
    : mFolder(settings.state), mSensorDev(settings.sensorDev), mModule(module.name), mPhone(phone) {
    if (!module.hasOis) {
        throw InputError(fmt::format("--state {}: {} has no controller that could keep anything",
                                     mFolder.string(), module.name));
    }
    mLock = lock(mFolder);
    mKept = phone.kept(mSensorDev);
    const std::string file = (mFolder / kFile).string();
    if (!fs::exists(file)) return;
    try {
        mKept = asInput("--state: ",
                        [&] { return readState(TableReader(phone::parseTomlFile(file), "", file), module); });
    } catch (...) {
        close(mLock);
        throw;
    }
    phone.restore(mSensorDev, mKept);
}

KeptState::~KeptState() {
    close(mLock);
}

void KeptState::keep() {
    const KeptByController now = mPhone.kept(mSensorDev);
    if (now == mKept) return;
    const fs::path file = mFolder / kFile, fresh = file.string() + ".new";
    std::ofstream stream(fresh);
    stream << textOf(mModule, mPhone.module(mSensorDev)->behindHub(), now);
    stream.close();
    std::error_code error;
    if (stream) fs::rename(fresh, file, error);
    mWritten = stream && !error;
    if (mWritten) {
        mKept = now;
    } else {
        fs::remove(fresh, error);
    }
}

void KeptState::finish() {
    keep();
    if (mWritten) return;
    throw JobError(
        fmt::format("--state {}: the controller's state could not be written; what stood there "
                    "before still does",
                    mFolder.string()));
}

}  // namespace oisctl

#pragma once
// What the tests of sessions and of the driver's dump files share.

#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "driver/driver_fixture.h"
#include "kernel/kernel.h"

namespace driver_test {

inline std::optional<std::string> textOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

// Without their newlines; what stands behind the last newline counts as a line too.
inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// What a session leaves open.
inline std::string stateOf(const OISDrv& driver) {
    std::ostringstream text;
    text << "users " << driver.m_user_count << " device " << driver.fd_driver << " hub "
         << int{driver.mSensorHubEnabled} << " provider " << (driver.mpSensorProvider != nullptr)
         << " buffers " << (driver.mStatusBuf != nullptr) << (driver.mOisFlashData != nullptr) << " support "
         << driver.mIsOisSupport << " run " << int{driver.mProperty.isRun} << " bring-up "
         << driver.mInitDrvThread.joinable();
    return text.str();
}
constexpr const char* kClosed = "users 0 device -1 hub 0 provider 0 buffers 00 support 0 run 0 bring-up 0";

class DumpTest : public DriverTest {
  protected:
    using Effect = std::optional<phone::FaultEffect>;

    // A sub-device module whose dump files are called ois_dump_tele_dw9786_*.txt.
    static phone::ModuleDescription dumpModule() { return phone::moduleByName("dw9786"); }
    void openQuiet(int dump) {
        open(dumpModule());
        driver.mProperty.dump = static_cast<uint8_t>(dump);
    }

    std::filesystem::path dumpFile(const std::string& suffix) {
        return phone.files().dumpFolder() / ("ois_dump_tele_dw9786" + suffix);
    }
    // The file's text; nothing when there is no file.
    std::optional<std::string> dumped(const std::string& suffix) { return textOf(dumpFile(suffix)); }
    bool anythingDumped() { return !std::filesystem::is_empty(phone.files().dumpFolder()); }
    void removeDumpFolder() { std::filesystem::remove_all(phone.files().dumpFolder()); }

    // Commands of that name meet what `effect` says.
    void onCommand(const std::string& name, std::function<Effect(std::span<const uint8_t>)> effect) {
        decide = [=](phone::FaultPoint, std::string_view key, std::span<const uint8_t> input) {
            return key == name ? effect(input) : Effect{};
        };
    }
    // The controller's answer, byte for byte.
    static Effect answer(const std::vector<uint8_t>& record) {
        return phone::FaultEffect{.kind = phone::FaultEffect::Kind::kGarbage, .bytes = record};
    }
    template <typename Record>
    static Effect answerWith(const Record& record) {
        const auto* raw = reinterpret_cast<const uint8_t*>(&record);
        return answer({raw, raw + sizeof record});
    }

    // Words of the courses: descriptor and flash buffer as they are now, the rest unless given otherwise. {t}
    // begins the lines of a thread that a course leaves open, {up} is the bring-up's.
    Values words(Values given = {}) {
        std::vector<uint8_t> flash(sizeof(ois::OisFlashRecord));
        std::memcpy(flash.data(), &driver.mOisFlashData, sizeof driver.mOisFlashData);
        std::ostringstream address;
        address << std::hex << std::setfill('0') << std::setw(8)
                << static_cast<uint32_t>(reinterpret_cast<uintptr_t>(driver.mOisFlashData));
        given.insert({{"t", ""},
                      {"up", "t1"},
                      {"fd", std::to_string(driver.fd_driver)},
                      {"driver", "dw9786"},
                      {"file", "tele_dw9786"},
                      {"flash", courseBytes(flash)},
                      {"pointer", courseBytes({flash.begin(), flash.begin() + sizeof(void*)})},
                      {"address", address.str()},
                      {"result", "0"},
                      {"level", "0f000000"}});
        return given;
    }
};

}  // namespace driver_test

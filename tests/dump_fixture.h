#pragma once
// What the tests of the driver's dump files share.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "driver_fixture.h"
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
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

// The controller's answer, byte for byte.
inline phone::FaultEffect answer(std::vector<uint8_t> record) {
    return {.kind = phone::FaultEffect::Kind::kGarbage, .bytes = std::move(record)};
}
inline phone::FaultEffect failure(int error = EIO) {
    return {.kind = phone::FaultEffect::Kind::kFail, .error = error};
}
inline phone::FaultEffect result(int64_t value) {
    return {.kind = phone::FaultEffect::Kind::kResult, .result = value};
}

class DumpTest : public DriverTest {
  protected:
    // A sub-device module whose dump files are called ois_dump_tele_dw9786_*.txt.
    static phone::ModuleDescription dumpModule() { return phone::moduleByName("dw9786"); }

    std::filesystem::path dumpFile(const std::string& suffix) {
        return phone.files().dumpFolder() / ("ois_dump_tele_dw9786" + suffix);
    }
    // The file's text; nothing when there is no file.
    std::optional<std::string> dumped(const std::string& suffix) { return textOf(dumpFile(suffix)); }
    bool anythingDumped() { return !std::filesystem::is_empty(phone.files().dumpFolder()); }
    void removeDumpFolder() { std::filesystem::remove_all(phone.files().dumpFolder()); }

    void setProperty(const std::string& name, int value) {
        phone.properties().set("vendor.debug.ois." + name, std::to_string(value));
    }
    bool logged(const std::string& beginning) {
        for (const std::string& message : messages()) {
            if (message.starts_with(beginning)) return true;
        }
        return false;
    }
    // Commands and sleeps of the calling thread, in order: "SET_MODE", "sleep 2000".
    std::vector<std::string> course() {
        std::vector<std::string> lines;
        for (const phone::Event& event : phone.trace().events()) {
            if (event.kind == phone::EventKind::kSubDevice || event.kind == phone::EventKind::kHub) {
                lines.push_back(event.name);
            } else if (event.kind == phone::EventKind::kSleep) {
                const phone::Field* us = phone::findField(event, "us");
                lines.push_back("sleep " + (us != nullptr ? phone::toText(*us) : ""));
            }
        }
        return lines;
    }
};

}  // namespace driver_test

#include "controllers/korva_faults.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

#include "wire/hub_commands.h"
#include "wire/registers.h"

namespace phone {

namespace {

constexpr uint32_t kLastBlock = ois::kFirmwareBlockCount - 1;
constexpr uint32_t kMaxIdleRead = 1000;

struct FaultName {
    std::string_view name;
    // The value's range; a fault without a value has an empty one.
    uint32_t low;
    uint32_t high;
    void (*apply)(KorvaFaults& faults, uint32_t value);

    bool takesValue() const { return high != 0; }
};

constexpr std::array kFaults = {
    FaultName{"chip.never-idle", 0, 0, [](KorvaFaults& f, uint32_t) { f.neverIdle = true; }},
    FaultName{"chip.idle-on-read", 1, kMaxIdleRead, [](KorvaFaults& f, uint32_t v) { f.idleOnRead = v; }},
    FaultName{"chip.calibration-never-done", 0, 0,
              [](KorvaFaults& f, uint32_t) { f.calibrationNeverDone = true; }},
    FaultName{"chip.calibration-error", 1, UINT8_MAX,
              [](KorvaFaults& f, uint32_t v) { f.calibrationError = static_cast<uint8_t>(v); }},
    FaultName{"chip.flash-write-error", 0, 0, [](KorvaFaults& f, uint32_t) { f.flashWriteError = true; }},
    FaultName{"chip.flash-data-changed", 0, 0, [](KorvaFaults& f, uint32_t) { f.flashDataChanged = true; }},
    FaultName{"chip.download-error", 1, UINT16_MAX,
              [](KorvaFaults& f, uint32_t v) { f.downloadError = static_cast<uint16_t>(v); }},
    FaultName{"chip.check-value-wrong", 0, 0, [](KorvaFaults& f, uint32_t) { f.checkValueWrong = true; }},
    FaultName{"chip.version-mismatch", 0, 0, [](KorvaFaults& f, uint32_t) { f.versionMismatch = true; }},
    FaultName{"chip.block-lost", 0, kLastBlock, [](KorvaFaults& f, uint32_t v) { f.blockLost = v; }},
    FaultName{"chip.block-corrupted", 0, kLastBlock,
              [](KorvaFaults& f, uint32_t v) { f.blockCorrupted = v; }},
    FaultName{"chip.power-cut", 0, kLastBlock, [](KorvaFaults& f, uint32_t v) { f.powerCut = v; }},
    FaultName{"chip.old-clock", 0, 0, [](KorvaFaults& f, uint32_t) { f.oldClock = true; }},
};

std::string written(const FaultName& fault) {
    std::string text(fault.name);
    if (fault.takesValue()) text += "=" + std::to_string(fault.low) + ".." + std::to_string(fault.high);
    return text;
}

// Decimal, or hexadecimal after 0x.
std::optional<uint32_t> parseNumber(std::string_view text) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    if (hex) text.remove_prefix(2);
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

const FaultName& find(std::string_view name) {
    const auto found = std::ranges::find(kFaults, name, &FaultName::name);
    if (found != kFaults.end()) return *found;
    std::string text = "\"" + std::string(name) + "\" is no fault of the chip; there are";
    for (const FaultName& fault : kFaults) text += (&fault == kFaults.data() ? " " : ", ") + written(fault);
    throw std::invalid_argument(text);
}

}  // namespace

void addKorvaFault(KorvaFaults& faults, std::string_view text) {
    const size_t equals = text.find('=');
    const FaultName& fault = find(text.substr(0, equals));
    if (!fault.takesValue()) {
        if (equals != std::string_view::npos) {
            throw std::invalid_argument(std::string(fault.name) + " takes no value");
        }
        fault.apply(faults, 0);
        return;
    }
    const auto value = equals == std::string_view::npos ? std::nullopt : parseNumber(text.substr(equals + 1));
    if (!value || *value < fault.low || *value > fault.high) {
        throw std::invalid_argument("\"" + std::string(text) + "\": write " + written(fault));
    }
    fault.apply(faults, *value);
}

std::vector<std::string> korvaFaultNames() {
    std::vector<std::string> names;
    names.reserve(kFaults.size());
    for (const FaultName& fault : kFaults) names.push_back(written(fault));
    return names;
}

}  // namespace phone

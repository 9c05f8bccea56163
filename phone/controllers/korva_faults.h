#pragma once
// What can be wrong with a Korva chip, and how it is written.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

struct KorvaFaults {
    bool neverIdle = false;
    std::optional<uint32_t>
        idleOnRead;  // the n-th read of the state after an idle request is the first idle one
    bool calibrationNeverDone = false;
    uint8_t calibrationError = 0;  // bits that every calibration leaves in the status
    bool flashWriteError = false;
    bool flashDataChanged = false;  // a flash write damages the other data
    uint16_t downloadError = 0;     // bits that every block leaves in the update status
    bool checkValueWrong = false;
    bool versionMismatch = false;  // a good image reports the version below its own
    // Number of the block; these strike once.
    std::optional<uint32_t> blockLost;
    std::optional<uint32_t> blockCorrupted;
    std::optional<uint32_t> powerCut;
    bool oldClock = false;  // the chip runs from the old clock until it is updated
};

// Adds a fault as it is written: "chip.never-idle", "chip.idle-on-read=21". Throws std::invalid_argument that
// says what is wrong and lists what there is.
void addKorvaFault(KorvaFaults& faults, std::string_view text);
// As they are written, with the range of the value: "chip.idle-on-read=1..1000".
std::vector<std::string> korvaFaultNames();

}  // namespace phone

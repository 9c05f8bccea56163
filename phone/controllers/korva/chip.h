#pragma once
// The OIS controller behind the sensor hub: a Korva S4SW with its registers, flash and stabilisation loop.

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "controllers/stabiliser.h"
#include "hub/firmware_image.h"
#include "wire/registers.h"

namespace phone {

class Clock;
class Faults;
class KorvaMachine;
class Motion;
class Trace;
struct ModuleDescription;

// Values of the chip's state register.
enum class KorvaState : uint8_t { kStarting = 0, kIdle = 1, kRunning = 2 };

// Bits of the status register (one byte), as calibration and flash write leave them.
namespace korva_status {
constexpr uint8_t kMovedX = 0x01;      // calibration: the phone was not still about x
constexpr uint8_t kMovedY = 0x02;      // ... about y
constexpr uint8_t kFlashWrite = 0x04;  // flash write failed
constexpr uint8_t kRefused = 0x20;     // calibration: offset out of range, or the chip not idle
constexpr uint8_t kBusy = 0x80;        // still writing
}  // namespace korva_status

// Bits of the update status register (two bytes).
namespace korva_update {
constexpr uint16_t kNotOpen = 0x0001;     // block or check value while the flash was not open, or not idle
constexpr uint16_t kCheckValue = 0x0002;  // flash does not add up to the check value
constexpr uint16_t kTooEarly = 0x0004;    // block while the flash was still busy; not taken
constexpr uint16_t kAddress = 0x0008;     // block outside the flash
constexpr uint16_t kBusy = 0x8000;        // still verifying
}  // namespace korva_update

// Thread-safe. What takes time is settled by the phone's clock at the next look.
class KorvaChip {
  public:
    KorvaChip(Clock& clock, Trace& trace, const Motion& motion, Faults& faults);
    ~KorvaChip();
    KorvaChip(const KorvaChip&) = delete;
    KorvaChip& operator=(const KorvaChip&) = delete;

    // Becomes the controller of that module, freshly powered on, with the module's firmware, clock and flash
    // data. Not while the driver uses it.
    void fit(const ModuleDescription& module);

    // --- Bus: 1, 2 or 4 bytes, little-endian. Addresses without a register read 0 and ignore writes.
    uint32_t readRegister(uint32_t at, uint32_t byteCount);
    void writeRegister(uint32_t at, uint32_t byteCount, uint32_t value);
    // One block of a download.
    void programBlock(uint32_t at, std::span<const uint8_t> block);
    // What the hub asks of it on behalf of relayed commands. A held lens stays until the next mode.
    void holdLens(int32_t targetHallX, int32_t targetHallY);
    void setActive(bool active, double angle);
    // Idle, offset calibration, and on as before.
    void calibrate();

    // --- State.
    // Reads as the bus does, without the side effects of a read.
    uint32_t peek(uint32_t at, uint32_t byteCount);
    template <typename Value>
    Value peek(ois::korva::RegisterOf<Value> reg) {
        return ois::korva::fromWord<Value>(peek(reg.address, sizeof(Value)));
    }
    void poke(uint32_t at, uint32_t byteCount, uint32_t value);
    KorvaState state();
    bool downloadOpen();
    // The firmware in flash is whole and verified; without it the chip only takes downloads.
    bool hasFirmware();
    std::vector<uint8_t> flash();
    // The gyro offsets in flash, x and y, raw counts.
    std::array<int16_t, 2> savedGyroOffset();
    // Loses power and comes back: registers from flash, no download open.
    void powerCycle();
    // Firmware the chip holds, as if it had been made with it.
    void installFirmware(const FirmwareImage& image);
    // Valid until the next fit.
    Stabiliser& stabiliser();

  private:
    class Held;
    Held held();

    std::mutex mMutex;
    const std::unique_ptr<KorvaMachine> mMachine;
};

}  // namespace phone

#pragma once
// What goes on in the chip: its states, and the procedures that its registers start. Not thread-safe, and
// time does not pass by itself: the chip's front (chip.h) calls settle() before and updateLoop() after
// whatever it does.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "controllers/korva/flash.h"
#include "controllers/korva/register_file.h"
#include "controllers/lens_faults.h"
#include "controllers/stabiliser.h"
#include "faults/faults.h"
#include "hub/firmware_image.h"
#include "wire/hub_commands.h"
#include "wire/registers.h"

namespace phone {

class Clock;
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

// How long the chip takes, in microseconds. The driver's waits leave some room above each.
struct KorvaTiming {
    int64_t idleUs = 8000;           // from the idle request until the state register says so
    int64_t restartUs = 10000;       // from the restart until the loop runs again
    int64_t calibrationUs = 120000;  // gyro offset calibration, which measures for that long
    int64_t checkValueUs = 3000;     // check value of the other flash data
    int64_t flashWriteUs = 380000;   // working data to flash
    int64_t clockUs = 9000;          // change of the clock
    int64_t eraseUs = 48000;         // flash, when a download opens
    int64_t blockUs = 11000;         // one block of a download
    int64_t verifyUs = 150000;       // of the image's check value
};

class KorvaMachine {
  public:
    KorvaMachine(Clock& clock, Trace& trace, const Motion& motion, Faults& faults);

    // Becomes the controller of that module, freshly powered on, with the module's firmware, clock and flash
    // data. Not while the driver uses it.
    void fit(const ModuleDescription& module);
    // From a loss of power: registers from flash, no download open.
    void powerOn();
    // Holds that firmware, as if it had been made with it.
    void install(const FirmwareImage& image);

    // Brings the registers to where they are by now.
    void settle();
    // Lets the stabilisation loop do what the registers say.
    void updateLoop();

    // As the bus does it: 1, 2 or 4 bytes, little-endian. Addresses without a register read 0 and ignore
    // writes.
    uint32_t read(uint32_t at, uint32_t byteCount);
    void write(uint32_t at, uint32_t byteCount, uint32_t value);
    // One block of a download.
    void program(uint32_t at, std::span<const uint8_t> block);
    // As a test does it.
    void poke(uint32_t at, uint32_t byteCount, uint32_t value);

    // What the hub asks of it on behalf of relayed commands. A held lens stays until the next mode.
    void holdLens(int32_t targetHallX, int32_t targetHallY);
    void setActive(bool active, double angle);
    // Idle, offset calibration, and on as before.
    void calibrate();

    KorvaState state() const { return static_cast<KorvaState>(registers.get(Register::kState)); }
    bool downloadOpen() const { return mDownloadOpen; }

    KorvaRegisterFile registers;
    KorvaFlash flash;
    std::unique_ptr<Stabiliser> stabiliser;

  private:
    using Register = ois::korva::Register;
    static constexpr uint8_t kStart = 1;  // written to a register that starts something
    // When something under way will be over.
    using Due = std::optional<int64_t>;
    struct Underway {
        Due idle, restart, calibration, checkValue, flashWrite, clock, verify;
        int64_t flashBusyUntilUs = 0;
    };

    void react(uint32_t at, uint8_t lowByte);
    bool take(Due& due) const;
    int64_t dueIn(int64_t us) const;

    // States.
    void setState(KorvaState state) { registers.set(Register::kState, static_cast<uint8_t>(state)); }
    void restart();
    void requestIdle();
    void becomeIdle();
    void selectMode();
    void applyClock();
    void finishClock();
    void updateAccCompensation();

    // calibration.cpp
    void startCalibration();
    void finishCalibration(int64_t doneUs);
    uint8_t measureOffset(int64_t doneUs, uint8_t forcedBits);
    void startFlashWrite();
    void finishFlashWrite();
    void finishFlashCheck();

    // download.cpp
    void openDownload();
    void startVerify();
    void finishVerify();
    void addUpdateStatus(uint16_t bits);

    // Whether a fault of the chip strikes here; `text` says in the trace what it does.
    Fate consult(std::string_view name, std::string text, std::optional<int64_t> block = {});

    Clock& mClock;
    Trace& mTrace;
    const Motion& mMotion;
    Faults& mFaults;
    LensFaults mLensFaults;
    const KorvaTiming mTiming;
    Underway mUnderway;
    uint32_t mStateReads = 0;            // since the last idle request
    std::optional<int64_t> mIdleOnRead;  // the read that finds the chip idle
    bool mClockUpdated = false;
    bool mDownloadOpen = false;
    bool mHubCalibration = false;  // asked for by the hub: the chip goes on as before afterwards
    bool mLensHeld = false;
    bool mLensMoved = false;  // to another target, which its defects have not seen
    bool mActive = false;
    uint32_t mPendingCheckValue = 0;
};

}  // namespace phone

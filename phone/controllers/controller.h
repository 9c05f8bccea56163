#pragma once
// The OIS controller behind a sub-device, with the kernel driver in front of it.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>

#include "controllers/kept.h"
#include "controllers/lens_faults.h"
#include "controllers/stabiliser.h"
#include "ois_drv.h"
#include "wire/records.h"
#include "wire/requests.h"

namespace phone {

class Clock;
class Motion;
struct ModuleDescription;

// What READ_FLASH does with the address it is given.
enum class FlashAnswer {
    kInPlace,         // the record is written to that address
    kThroughPointer,  // the address holds a pointer; the record is written to where it points
};

// Only the named axis of what is kept changes, in both codings: which one counts is up to the module.
void writeGain(ois::OisGain& kept, const ois::OisGain& written);
// What a record that asks for the gains is answered with.
ois::OisGain gainAnswer(const ois::OisGain& kept, const ois::OisGain& asked);

// Thread-safe.
class Controller {
  public:
    Controller(const ModuleDescription& module, const Motion& motion, const Clock& clock, Faults& faults);

    // Carries out a request on the kernel's copy of the record, which has the request's size. 0 or positive,
    // or a negative errno; ENOTTY for a request it does not know.
    int32_t handle(uint32_t request, std::span<std::byte> record);

    int32_t mode() const;
    // As measured for SET_GYRO_OFFSET, raw counts; empty before.
    std::optional<std::array<int16_t, 2>> gyroOffset() const;
    // What it keeps without power: gains and gyro offset.
    KeptByController kept() const;
    // As it is when power comes. Not while the driver uses it.
    void restore(const KeptByController& kept);
    // How often the request reached the controller.
    uint64_t count(ois::Request request) const;
    uint64_t count() const;  // of all requests

    void setFlash(const ois::OisFlashRecord& flash);
    void setFlashAnswer(FlashAnswer answer);

    // Lens, hall sensors and loop: defects and tracking error are set here.
    Stabiliser& stabiliser() { return mStabiliser; }

  private:
    static constexpr size_t kRequestIndices = 32;

    void setMode(int32_t word);
    void endSession();
    void setAccParams(const ois_acc_params& params);
    void measureGyroOffset();
    void setFixMode(const ois::OisFixMode& fixMode);
    void readHall(std::span<std::byte> record);
    void readStatus(std::span<std::byte> record);
    int32_t readFlash(std::span<std::byte> record) const;
    void applyMode();

    const Clock& mClock;
    Stabiliser mStabiliser;
    std::array<std::atomic<uint64_t>, kRequestIndices> mCounts{};
    mutable std::mutex mMutex;  // of the rest
    LensFaults mLensFaults;
    int32_t mMode = 0;
    bool mPositionHeld = false;  // a set position holds the lens until the next mode
    ois_act_parameters mActiveOis{};
    int32_t mZoomActiveOis = 0;
    ois::OisGain mGain{};
    ois::OisHallInfo mHallInfo{};
    ois::OisFlashRecord mFlash{};
    FlashAnswer mFlashAnswer = FlashAnswer::kInPlace;
    std::optional<std::array<int16_t, 2>> mGyroOffset;
};

}  // namespace phone

#pragma once
// The OIS controller behind a sub-device, with the kernel driver in front of it.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "controllers/lens_faults.h"
#include "controllers/stabiliser.h"
#include "ois_drv.h"
#include "wire/customisation.h"
#include "wire/records.h"
#include "wire/requests.h"

namespace phone {

class Clock;
class Motion;
struct ModuleDescription;

// Mode words from here on are not modes but capture values.
inline constexpr int32_t kCaptureThreshold = 125000;

// What READ_FLASH does with the address it is given.
enum class FlashAnswer {
    kInPlace,         // the record is written to that address
    kThroughPointer,  // the address holds a pointer; the record is written to where it points
};

// Everything the controller has been told, and what it answers with.
struct ControllerState {
    int32_t mode = 0;
    int32_t captureValue = 0;    // last one; 0: none yet
    int32_t streaming = 0;       // last stream state notified
    int32_t zoomActiveOis = 0;   // last zoom-triggered active OIS word
    int16_t afPosition = 0;      // last coded AF position
    int32_t sessionEndWord = 0;  // word of the last END_SESSION
    ois::OisFixMode fixMode{};   // last position set
    ois_act_parameters activeOis{};
    ois::OisGain gain{};
    ois::OisHallInfo hallInfo{};
    ois::OisFlashRecord flash{};
    FlashAnswer flashAnswer = FlashAnswer::kInPlace;
    std::optional<ois::OisCustInfo> customisation;  // once written
    std::optional<ois_acc_params> accParams;
    std::optional<std::string> firmwareCameraType;
    std::optional<std::array<int16_t, 2>> gyroOffset;  // raw counts, once measured
};

// Thread-safe; requests are not serialised.
class Controller {
  public:
    Controller(const ModuleDescription& module, const Motion& motion, const Clock& clock, Faults& faults);

    // Carries out a request on the kernel's copy of the record, which has the request's size. 0 or positive,
    // or a negative errno; ENOTTY for a request it does not know.
    int32_t handle(uint32_t request, std::span<std::byte> record);
    static bool knows(uint32_t request);

    ControllerState state() const;
    int32_t mode() const { return mMode.load(std::memory_order_relaxed); }
    bool streaming() const { return mStreaming.load(std::memory_order_relaxed) != 0; }
    // How often the request reached the controller.
    uint64_t count(ois::Request request) const;
    uint64_t count() const;  // of all requests

    void setGain(const ois::OisGain& gain);
    void setHallInfo(const ois::OisHallInfo& info);
    void setFlash(const ois::OisFlashRecord& flash);
    void setFlashAnswer(FlashAnswer answer);

    // Lens, hall sensors and loop: defects and tracking error are set here.
    Stabiliser& stabiliser() { return mStabiliser; }
    StabiliserState stabiliserState();  // now

  private:
    static constexpr size_t kRequestIndices = 32;

    int32_t keep(ois::Request request, std::span<const std::byte> record);
    int32_t setMode(int32_t word);
    int32_t notifyStream(const ois_stream_info& info);
    int32_t endSession(int32_t word);
    int32_t setAccParams(const ois_acc_params& params);
    int32_t measureGyroOffset();
    int32_t writeGain(const ois::OisGain& gain);
    int32_t setFixMode(const ois::OisFixMode& fixMode);
    int32_t setActiveOis(const ois_act_parameters& parameters);
    int32_t setZoomActiveOis(int32_t word);
    int32_t readGain(std::span<std::byte> record) const;
    int32_t readHallInfo(std::span<std::byte> record) const;
    int32_t readHall(std::span<std::byte> record);
    int32_t readStatus(std::span<std::byte> record);
    int32_t readFlash(std::span<std::byte> record) const;
    void applyMode();

    const Clock& mClock;
    Stabiliser mStabiliser;
    std::array<std::atomic<uint64_t>, kRequestIndices> mCounts{};
    std::atomic<int32_t> mMode{0};
    std::atomic<int32_t> mStreaming{0};
    std::atomic<bool> mPositionHeld{false};  // a set position holds the lens until the next mode
    mutable std::mutex mMutex;               // of mLensFaults and mState
    LensFaults mLensFaults;
    ControllerState mState;  // `mode` and `streaming` stand in the atomics
};

}  // namespace phone

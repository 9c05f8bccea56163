#include "phone.h"

#include <fmt/core.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

#include "entry/phone_in_use.h"
#include "kernel/user_memory.h"

namespace phone {

namespace {

std::atomic<Phone*> gCurrent{nullptr};
std::atomic<uint32_t> gUses{0};  // calls inside any phone

// Counting in and out must not look like an order between the driver's threads, which would hide its races.
void countIn() {
    [[maybe_unused]] const InsideKernel unseen;
    gUses.fetch_add(1);
}

void countOut() {
#ifdef __SANITIZE_THREAD__
    __tsan_release(&gUses);  // for ~Phone alone
#endif
    [[maybe_unused]] const InsideKernel unseen;
    gUses.fetch_sub(1);
}

Phone* enter() {
    if (gCurrent.load(std::memory_order_relaxed) == nullptr) return nullptr;
    countIn();
    // ~Phone clears the phone and then looks at the count, so that one of us sees the other.
    Phone* phone = gCurrent.load();
    if (phone == nullptr) countOut();
    return phone;
}

// How often ~Phone looks whether the last call has left.
constexpr auto kUsePoll = std::chrono::microseconds(20);

// The name the kernel gives an I2C device.
std::string entityNameOf(const ModuleDescription& module, int32_t sensorDev) {
    if (!module.entityName.empty()) return module.entityName;
    return fmt::format("{} {}-0024", module.driverName, sensorDev);
}

size_t checkedPosition(int32_t sensorDev) {
    if (sensorDev >= 0 && sensorDev < kSensorCount) return static_cast<size_t>(sensorDev);
    throw std::out_of_range(
        fmt::format("no sensor position {}: positions are 0 to {}", sensorDev, kSensorCount - 1));
}

// Before anything else of the phone is made.
PhoneOptions onlyPhone(PhoneOptions options) {
    if (gCurrent.load() != nullptr) throw std::logic_error("the process has a phone already");
    return options;
}

}  // namespace

Phone::Phone(PhoneOptions options)
    : mOptions(onlyPhone(std::move(options))),
      mClock(mOptions.clock),
      mTrace(mClock),
      mFaults(mClock),
      mLog(mClock, mTrace),
      mTelemetry(mClock, mTrace, mFaults),
      mFiles(mClock, mOptions),
      mHub(mClock, mTrace, mFaults, mMotion),
      mKernel({mClock, mTrace, mFaults, mMedia, mFiles, mOptions.kernel == KernelKind::kReal}) {
    mTrace.setEnabled(mOptions.trace);
    gCurrent.store(this, std::memory_order_release);
}

Phone::~Phone() {
    gCurrent.store(nullptr);
    mClock.close();
    while (gUses.load() != 0) std::this_thread::sleep_for(kUsePoll);
#ifdef __SANITIZE_THREAD__
    __tsan_acquire(&gUses);
#endif
}

PhoneInUse::PhoneInUse(bool wanted) : mPhone(wanted ? enter() : nullptr) {}

PhoneInUse::~PhoneInUse() {
    if (mPhone != nullptr) countOut();
}

Phone* Phone::current() {
    return gCurrent.load(std::memory_order_acquire);
}

void Phone::fit(int32_t sensorDev, const ModuleDescription& module) {
    Position& position = mPositions[checkedPosition(sensorDev)];
    mMedia.removeLens(sensorDev);
    position.module = std::make_unique<const ModuleDescription>(module);
    position.controller.reset();
    if (!module.hasOis) return;
    if (module.behindHub()) {
        mHub.fit(module);
        return;
    }
    if (mOptions.kernel == KernelKind::kReal) return;  // the machine's kernel has the controller
    position.controller = std::make_shared<Controller>(module, mMotion, mClock, mFaults);
    mMedia.addLens(sensorDev, entityNameOf(module, sensorDev), position.controller);
}

const ModuleDescription* Phone::module(int32_t sensorDev) const {
    if (sensorDev < 0 || sensorDev >= kSensorCount) return nullptr;
    return mPositions[static_cast<size_t>(sensorDev)].module.get();
}

KeptByController Phone::kept(int32_t sensorDev) {
    const Controller* const own = controller(sensorDev);
    return own == nullptr ? mHub.kept() : own->kept();
}

void Phone::restore(int32_t sensorDev, const KeptByController& kept) {
    Controller* const own = controller(sensorDev);
    return own == nullptr ? mHub.restore(kept) : own->restore(kept);
}

Controller* Phone::controller(int32_t sensorDev) const {
    if (sensorDev < 0 || sensorDev >= kSensorCount) return nullptr;
    return mPositions[static_cast<size_t>(sensorDev)].controller.get();
}

}  // namespace phone

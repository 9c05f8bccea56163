#include "phone.h"

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

#include "controllers/controller.h"
#include "entry/phone_in_use.h"
#include "hub/sensor_hub.h"
#include "kernel/file_tree.h"
#include "kernel/kernel.h"
#include "kernel/media_graph.h"
#include "kernel/user_memory.h"
#include "modules/module_description.h"
#include "motion/motion.h"
#include "services/log_service.h"
#include "services/property_store.h"
#include "services/telemetry.h"

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

struct Position {
    std::unique_ptr<const ModuleDescription> module;
    std::shared_ptr<Controller> controller;
};

// The name the kernel gives an I2C device.
std::string entityNameOf(const ModuleDescription& module, int32_t sensorDev) {
    if (!module.entityName.empty()) return module.entityName;
    return module.driverName + " " + std::to_string(sensorDev) + "-0024";
}

size_t checkedPosition(int32_t sensorDev) {
    if (sensorDev >= 0 && sensorDev < kSensorCount) return static_cast<size_t>(sensorDev);
    throw std::out_of_range("no sensor position " + std::to_string(sensorDev) + ": positions are 0 to " +
                            std::to_string(kSensorCount - 1));
}

}  // namespace

struct Phone::Parts {
    explicit Parts(Phone& phone)
        : clock(phone.mOptions.clock),
          trace(clock),
          faults(clock),
          log(clock, trace),
          telemetry(clock, trace, faults),
          files(clock, phone.mOptions),
          hub(clock, trace, faults, motion),
          kernel({clock, trace, faults, media, files, phone.mOptions.kernel == KernelKind::kReal}) {}

    Clock clock;
    Trace trace;
    Faults faults;
    Motion motion;
    PropertyStore properties;
    LogService log;
    Telemetry telemetry;
    FileTree files;
    MediaGraph media;
    SensorHub hub;
    std::array<Position, kSensorCount> positions;
    Kernel kernel;
};

Phone::Phone(PhoneOptions options) : mOptions(std::move(options)) {
    if (current() != nullptr) throw std::logic_error("the process has a phone already");
    mParts = std::make_unique<Parts>(*this);
    mParts->trace.setEnabled(mOptions.trace);
    gCurrent.store(this, std::memory_order_release);
}

Phone::~Phone() {
    gCurrent.store(nullptr);
    mParts->clock.close();
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
    Position& position = mParts->positions[checkedPosition(sensorDev)];
    mParts->media.removeLens(sensorDev);
    position.module = std::make_unique<const ModuleDescription>(module);
    position.controller.reset();
    if (!module.hasOis) return;
    if (module.behindHub()) {
        mParts->hub.fit(module);
        return;
    }
    if (mOptions.kernel == KernelKind::kReal) return;  // the machine's kernel has the controller
    position.controller = std::make_shared<Controller>(module, mParts->motion, mParts->clock, mParts->faults);
    mParts->media.addLens(sensorDev, entityNameOf(module, sensorDev), position.controller);
}

const ModuleDescription* Phone::module(int32_t sensorDev) const {
    if (sensorDev < 0 || sensorDev >= kSensorCount) return nullptr;
    return mParts->positions[static_cast<size_t>(sensorDev)].module.get();
}

Controller* Phone::controller(int32_t sensorDev) const {
    if (sensorDev < 0 || sensorDev >= kSensorCount) return nullptr;
    return mParts->positions[static_cast<size_t>(sensorDev)].controller.get();
}

Clock& Phone::clock() {
    return mParts->clock;
}
Trace& Phone::trace() {
    return mParts->trace;
}
Faults& Phone::faults() {
    return mParts->faults;
}
PropertyStore& Phone::properties() {
    return mParts->properties;
}
LogService& Phone::log() {
    return mParts->log;
}
Telemetry& Phone::telemetry() {
    return mParts->telemetry;
}
FileTree& Phone::files() {
    return mParts->files;
}
MediaGraph& Phone::media() {
    return mParts->media;
}
Kernel& Phone::kernel() {
    return mParts->kernel;
}
SensorHub& Phone::hub() {
    return mParts->hub;
}
Motion& Phone::motion() {
    return mParts->motion;
}

}  // namespace phone

#include "phone.h"

#include <atomic>
#include <stdexcept>
#include <string>

#include "controllers/controller.h"
#include "hub/sensor_hub.h"
#include "kernel/file_tree.h"
#include "kernel/kernel.h"
#include "kernel/media_graph.h"
#include "modules/module_description.h"
#include "motion/motion.h"
#include "services/log_service.h"
#include "services/property_store.h"
#include "services/telemetry.h"

namespace phone {

namespace {

std::atomic<Phone*> gCurrent{nullptr};

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
          kernel(phone) {}

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
    gCurrent.store(nullptr, std::memory_order_release);
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

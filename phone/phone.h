#pragma once
// The simulated phone: everything around the driver that a real phone would provide. Read this first.
//
// Constructing a Phone makes it the phone of this process; from then on the platform's functions and the
// system calls that the driver makes are answered by it. One at a time. A whole program:
//
//   #include <cstdio>
//
//   #include "modules/module_description.h"
//   #include "ois_drv.h"
//   #include "phone.h"
//
//   int main() {
//       phone::Phone phone;
//       phone.fit(0, phone::moduleByName("dw9786"));     // a camera module for sensor 0
//       phone.faults().add("SET_MODE@2:errno=EIO");      // the second one fails
//       OISDrv* driver = OISDrv::GetInstance(0);
//       driver->Init(0, 0);
//       phone.clock().sleepUs(1'000'000);                // simulated: the bring-up runs meanwhile
//       driver->SetMode(2);
//       driver->SetMode(3);
//       driver->Uninit();
//       for (const phone::Event& event : phone.trace().events(phone::EventKind::kSubDevice)) {
//           std::puts(phone::toText(event).c_str());     // "SET_MODE(0x400456C2) mode=2 -> 0"
//       }
//       return phone.faults().counts()[0].strikes == 1 ? 0 : 1;
//   }
//
// Each part has three faces: the driver's side (platform and system calls), the state side (the accessors
// below, for tests and tools), and faults(). Where the parts are, and where a new one goes:
//
//   entry/        what the driver calls: libc, threads, the platform's functions
//   time/         the clock, which runs faster than time, and the order of threads
//   trace/        what happened, as data, and what it means: a new request is a row in decode_tables.cpp,
//                 behind the driver's wire/ and in docs/wire-formats.md
//   faults/       the one table of what can go wrong: a new fault is a row in fault_text.cpp, a FaultPoint in
//                 faults.h if it strikes at a new kind of place (the driver's calls also stand in
//                 tests/driver/courses/sweep.txt), and a consult() where it strikes
//   kernel/       device nodes, how requests travel, the media graph, files
//   hub/          the sensor hub, its samples, its firmware service
//   controllers/  who answers: the sub-device's controller, the Korva chip behind the hub, the lens with its
//                 loop. A new controller stands here; so far the hub holds a KorvaChip by type (sensor_hub.h)
//   motion/       how the phone's body moves: a new motion is a MotionSource
//   modules/      camera modules as TOML: a new module is a file there, named in its CMakeLists.txt
//   services/     properties, log, telemetry
//
// tests/phone/ has a file for each of these; tests/driver/ tests the driver with all of them.

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "controllers/controller.h"
#include "faults/faults.h"
#include "hub/sensor_hub.h"
#include "kernel/file_tree.h"
#include "kernel/kernel.h"
#include "kernel/media_graph.h"
#include "modules/module_description.h"
#include "motion/motion.h"
#include "services/log_service.h"
#include "services/property_store.h"
#include "services/telemetry.h"
#include "time/clock.h"
#include "trace/trace.h"

namespace phone {

enum class KernelKind {
    kSimulated,
    kReal,  // system calls go to the machine's own kernel; platform services stay simulated
};

struct PhoneOptions {
    KernelKind kernel = KernelKind::kSimulated;
    ClockMode clock = ClockMode::kSimulated;
    // Where the phone keeps its files; created if missing. Empty: a fresh temporary folder, removed at the
    // end.
    std::filesystem::path folder;
    // With the real kernel: folders that stand for /mnt/vendor/nvcfg/camera and /sys/cam_thermal. Empty: the
    // paths themselves.
    std::filesystem::path dumpFolder;
    std::filesystem::path thermalFolder;
    bool trace = true;
};

constexpr int kSensorCount = 8;

class Phone {
  public:
    explicit Phone(PhoneOptions options = {});
    // Threads that sleep in the phone go on at once; waits until none is inside, and what they call from then
    // on goes to the machine.
    ~Phone();
    Phone(const Phone&) = delete;
    Phone& operator=(const Phone&) = delete;

    // The phone of this process, or null.
    static Phone* current();

    const PhoneOptions& options() const { return mOptions; }

    // Fits a camera module to a sensor position: customisation, and a lens sub-device with its controller in
    // the media graph, or the controller behind the sensor hub. Replaces what was there. Not while the driver
    // uses that position. Throws std::out_of_range unless sensorDev is 0 to 7.
    void fit(int32_t sensorDev, const ModuleDescription& module);
    // The module at that position; null when there is none.
    const ModuleDescription* module(int32_t sensorDev) const;
    // The controller behind that position's sub-device; null when it has none.
    Controller* controller(int32_t sensorDev) const;

    // What the controller at that position keeps without power, and the other way round: it powers on with
    // it. Not while the driver uses it.
    KeptByController kept(int32_t sensorDev);
    void restore(int32_t sensorDev, const KeptByController& kept);

    Clock& clock() { return mClock; }
    Trace& trace() { return mTrace; }
    Faults& faults() { return mFaults; }
    PropertyStore& properties() { return mProperties; }
    LogService& log() { return mLog; }
    Telemetry& telemetry() { return mTelemetry; }
    FileTree& files() { return mFiles; }
    MediaGraph& media() { return mMedia; }
    Kernel& kernel() { return mKernel; }
    SensorHub& hub() { return mHub; }
    // The motion of the phone's body, one for all its cameras.
    Motion& motion() { return mMotion; }

  private:
    struct Position {
        std::unique_ptr<const ModuleDescription> module;
        std::shared_ptr<Controller> controller;
    };

    PhoneOptions mOptions;
    Clock mClock;
    Trace mTrace;
    Faults mFaults;
    Motion mMotion;
    PropertyStore mProperties;
    LogService mLog;
    Telemetry mTelemetry;
    FileTree mFiles;
    MediaGraph mMedia;
    SensorHub mHub;
    std::array<Position, kSensorCount> mPositions;
    Kernel mKernel;
};

}  // namespace phone

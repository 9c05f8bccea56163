#pragma once
// The simulated phone: everything around the driver that a real phone would provide.
//
// Constructing a Phone makes it the phone of this process; from then on the platform's functions and the
// system calls that the driver makes are answered by it. One at a time. Each part has three faces: the
// driver's side (platform and system calls), the state side (these accessors, for tests and tools), and
// faults().

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "faults/faults.h"
#include "time/clock.h"
#include "trace/trace.h"

namespace phone {

class PropertyStore;       // services/property_store.h
class LogService;          // services/log_service.h
class Telemetry;           // services/telemetry.h
class FileTree;            // kernel/file_tree.h
class MediaGraph;          // kernel/media_graph.h
class Controller;          // controllers/controller.h: the OIS controller behind a sub-device
class Kernel;              // kernel/kernel.h: the driver's system calls
class SensorHub;           // hub/sensor_hub.h: holds the KorvaChip (controllers/korva/chip.h)
class Motion;              // motion/motion.h
struct ModuleDescription;  // modules/module_description.h

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
    // The same for the length of a call from outside: every entry point takes one, and ~Phone waits for it.
    class Use {
      public:
        // Empty too unless `wanted`.
        explicit Use(bool wanted = true);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        explicit operator bool() const { return mPhone != nullptr; }
        Phone& operator*() const { return *mPhone; }
        Phone* operator->() const { return mPhone; }

      private:
        Phone* const mPhone;
    };

    const PhoneOptions& options() const { return mOptions; }

    // Fits a camera module to a sensor position: customisation, and a lens sub-device with its controller in
    // the media graph, or the controller behind the sensor hub. Replaces what was there. Not while the driver
    // uses that position. Throws std::out_of_range unless sensorDev is 0 to 7.
    void fit(int32_t sensorDev, const ModuleDescription& module);
    // The module at that position; null when there is none.
    const ModuleDescription* module(int32_t sensorDev) const;
    // The controller behind that position's sub-device; null when it has none.
    Controller* controller(int32_t sensorDev) const;

    Clock& clock();
    Trace& trace();
    Faults& faults();
    PropertyStore& properties();
    LogService& log();
    Telemetry& telemetry();
    FileTree& files();
    MediaGraph& media();
    Kernel& kernel();
    SensorHub& hub();
    // The motion of the phone's body, one for all its cameras.
    Motion& motion();

  private:
    struct Parts;
    PhoneOptions mOptions;
    std::unique_ptr<Parts> mParts;
};

}  // namespace phone

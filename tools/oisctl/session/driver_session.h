#pragma once
// One driver on one simulated phone, from construction to the last joined thread.

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/interrupt.h"
#include "controllers/stabiliser.h"
#include "modules/module_description.h"
#include "ois_drv.h"
#include "phone.h"
#include "session/calls.h"
#include "session/controller_orders.h"
#include "session/kept_state.h"
#include "session/settings.h"
#include "session/tally.h"
#include "session/trace_output.h"
#include "session/way.h"
#include "session/written_files.h"

namespace oisctl {

// A record that a call points to.
template <typename Record>
std::span<const uint8_t> bytesOf(const Record& record) {
    return {reinterpret_cast<const uint8_t*>(&record), sizeof record};
}

// Ends what still runs on the driver's threads: the last Uninit leaves the recorder unless two engineering
// requests were made, and always the defect detector.
void joinWorkers(OISDrv& driver);

class DriverSession {
  public:
    // Sets the phone up as `settings` say. Throws InputError.
    DriverSession(const Settings& settings, Narration narration);
    // Closes what is open.
    ~DriverSession();
    DriverSession(const DriverSession&) = delete;
    DriverSession& operator=(const DriverSession&) = delete;

    phone::Phone& phone() { return *mPhone; }
    OISDrv& driver() { return *mDriver; }
    const phone::ModuleDescription& module() const { return mModule; }
    const Settings& settings() const { return mSettings; }
    Tally& tally() { return mTally; }
    const WrittenFiles& writtenFiles() const { return mWrittenFiles; }
    const ControllerOrders& orders() const { return mOrders; }
    bool behindHub() const { return mModule.behindHub(); }
    // Whether the controller is one of this machine's own, which outlives the session.
    bool onDevice() const { return mSettings.realKernel && !behindHub(); }
    // Whether what changes or keeps calibration may go out.
    bool mayWrite() const { return !onDevice() || mSettings.allowWrite; }
    // Throws InputError unless it may. `job` is what was asked for; `writes`, what of it would write.
    void requireMayWrite(std::string_view job, std::string_view writes) const;
    // The lens and loop of the module; null for a module without a simulated controller.
    phone::Stabiliser* stabiliser();

    // Called for every event of the trace, in order and one at a time, for as long as the observation lives;
    // must not call back into the phone.
    using Observation = std::shared_ptr<void>;
    [[nodiscard]] Observation observe(std::function<void(const phone::Event&)> observer);
    // Throws InputError when there is no such place.
    void addFault(const phone::Fault& fault);
    void clearFaults();
    // Throws InputError with the modules that would do; `needed` is what they have in common.
    void requireModule(std::string_view command, std::string_view needed,
                       bool (*fits)(const phone::ModuleDescription&)) const;
    // Throws InputError when the properties make a stream's start wait without end.
    void requireStreaming();
    // A built-in motion's name or a file. Throws InputError.
    void setMotion(const std::string& nameOrFile);

    // The driver's operations, each recorded in the trace and counted. What a worker thread that cannot be
    // created throws becomes a failure and the result -1.

    // Init; false when the driver is not open then, and `opening` says why.
    bool open();
    enum class Opening { kNotTried, kDone, kNoOis, kFailed };
    Opening opening() const { return mOpening; }
    // Opens and waits for the bring-up. False, and closed again, when none of its commands was delivered.
    bool openFor();
    // Waits until the bring-up has ended, or, where it goes on as a recorder, until a command was
    // delivered.
    void waitForBringUp();
    bool channelIsUp() const;
    // Uninit, and the end of every worker. A controller on a sub-device is left with stabilisation off and no
    // target held, whatever it was told before.
    void close();
    // The same, but a controller is left as it is, unless it is a real one.
    void closeAsItIs();
    // Whether the sub-device went away meanwhile: nothing that is asked of it from then on gets through.
    bool deviceLost() const { return mTally.deviceLost(); }
    // Whether a job that goes on and on is to stop: a signal came, or the device went away.
    bool endsEarly() const { return interrupted() || deviceLost(); }

    int32_t notifyStream(bool on);
    int32_t setMode(int32_t mode);
    int32_t setOperation(int32_t operation);
    int32_t enableOis(int32_t dynamic);
    int32_t checkStatus();
    int32_t setParams(ois_params& params);
    int32_t setSensorMode(int32_t mode);
    int32_t setFocus(ois_focus_params& focus);
    int32_t setAfPosition(int32_t position);
    int32_t firmwareUpdate();
    // Any other operation. `argument`: the record that it points to, if any; `answer`: what it fills, if not
    // that.
    int32_t call(const char* name, std::vector<phone::Field> arguments,
                 const std::function<int32_t()>& operation, std::span<const uint8_t> argument = {},
                 std::optional<std::span<const uint8_t>> answer = {});

    int64_t nowUs() { return mPhone->clock().nowUs(); }
    double nowS();
    void sleepUs(int64_t us) { mPhone->clock().sleepUs(us); }
    double wallSeconds() const;
    void fail(std::string text);
    // Where the way to the controller ended; empty when a command was delivered.
    std::optional<WayEnd> wayEnd() const;

    // Ends the trace's output, and what --state keeps. Throws JobError.
    void finishTrace() {
        mTraceOutput.finish();
        if (mState) mState->finish();
    }

  private:
    // Empty when it threw.
    std::optional<int32_t> run(const char* name, std::vector<phone::Field> arguments,
                               const std::function<int32_t()>& operation,
                               std::span<const uint8_t> argument = {},
                               std::optional<std::span<const uint8_t>> answer = {});
    void setProperties();
    void bringToRest();
    void uninit();

    const InterruptGuard mInterruptGuard;  // a procedure of the driver is always carried through
    const Settings mSettings;
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    const phone::ModuleDescription mModule;
    Calls mCalls;
    Tally mTally;
    ControllerOrders mOrders;
    WrittenFiles mWrittenFiles;
    Way mWay;
    TraceOutput mTraceOutput;
    std::mutex mObserverMutex;  // events come on every thread of the driver
    std::list<std::function<void(const phone::Event&)>> mObservers;
    std::unique_ptr<KeptState> mState;  // of --state; or null
    std::unique_ptr<phone::Phone> mPhone;
    OISDrv* mDriver = nullptr;
    Opening mOpening = Opening::kNotTried;
    bool mOpen = false;
};

}  // namespace oisctl

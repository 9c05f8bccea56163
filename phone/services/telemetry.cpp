#include "services/telemetry.h"

#include <atomic>
#include <utility>

#include "entry/phone_in_use.h"
#include "faults/faults.h"
#include "time/clock.h"
#include "trace/trace.h"

namespace phone {

using vendor::quor::hardware::ruvex::V1_0::hidl_string;
using vendor::quor::hardware::ruvex::V1_0::IRuvex;

struct Telemetry::State {
    State(Clock& phoneClock, Trace& phoneTrace, Faults& phoneFaults)
        : clock(phoneClock), faults(phoneFaults), trace(phoneTrace) {}

    std::atomic<bool> phoneAlive{true};
    Clock& clock;
    Faults& faults;
    Trace& trace;
    std::atomic<int32_t> references{0};
};

class Telemetry::Service final : public IRuvex {
  public:
    explicit Service(std::shared_ptr<State> state) : mState(std::move(state)) { ++mState->references; }

    android::hardware::Return<void> report(const hidl_string& moduleId, const hidl_string& eventId,
                                           const hidl_string& content) override {
        // While one phone is used, no other is; and while ours is, its parts stay.
        const PhoneInUse phone;
        if (!phone || !mState->phoneAlive) return android::hardware::Return<void>(false);
        mState->clock.enter();
        const Fate fate = mState->faults.consult(FaultPoint::kTelemetryReport);
        if (mState->trace.enabled()) {
            mState->trace.record({.kind = EventKind::kTelemetry,
                                  .name = "report",
                                  .fields = {{"module_id", std::string(moduleId.c_str())},
                                             {"event_id", std::string(eventId.c_str())},
                                             {"content", std::string(content.c_str())}},
                                  .fault = fate.fault()});
        }
        return android::hardware::Return<void>(!fate.fails());
    }

  protected:
    ~Service() override { --mState->references; }

  private:
    std::shared_ptr<State> mState;
};

Telemetry::Telemetry(Clock& clock, Trace& trace, Faults& faults)
    : mState(std::make_shared<State>(clock, trace, faults)) {}

Telemetry::~Telemetry() {
    mState->phoneAlive = false;
}

int32_t Telemetry::references() const {
    return mState->references;
}

android::sp<IRuvex> Telemetry::lookUp(const std::string& serviceName, bool getStub) {
    mState->clock.enter();
    const Fate fate = mState->faults.consult(FaultPoint::kTelemetry);
    const bool found = !fate.fails() && !fate.lost();
    if (mState->trace.enabled()) {
        mState->trace.record({.kind = EventKind::kTelemetry,
                              .name = "getService",
                              .fields = {{"service", serviceName}, {"get_stub", int64_t{getStub}}},
                              .result = found ? 1 : 0,
                              .fault = fate.fault()});
    }
    return found ? android::sp<IRuvex>(new Service(mState)) : android::sp<IRuvex>();
}

}  // namespace phone

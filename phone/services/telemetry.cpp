#include "services/telemetry.h"

#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

#include "faults/faults.h"
#include "phone.h"
#include "time/clock.h"
#include "trace/trace.h"

namespace phone {

using vendor::quor::hardware::ruvex::V1_0::hidl_string;
using vendor::quor::hardware::ruvex::V1_0::IRuvex;
using Kind = FaultEffect::Kind;

struct Telemetry::State {
    State(Clock& phoneClock, Trace& phoneTrace, Faults& phoneFaults)
        : clock(phoneClock), faults(phoneFaults), trace(phoneTrace) {}

    std::atomic<bool> phoneAlive{true};
    Clock& clock;
    Faults& faults;
    Trace& trace;
    std::mutex mutex;  // of the rest
    std::vector<TelemetryReport> reports;
    uint64_t lookups = 0;
    bool present = true;
    std::atomic<int32_t> references{0};
};

class Telemetry::Service final : public IRuvex {
  public:
    explicit Service(std::shared_ptr<State> state) : mState(std::move(state)) { ++mState->references; }

    android::hardware::Return<void> report(const hidl_string& moduleId, const hidl_string& eventId,
                                           const hidl_string& content) override {
        // While one phone is used, no other is; and while ours is, its parts stay.
        const Phone::Use phone;
        if (!phone || !mState->phoneAlive) return android::hardware::Return<void>(false);
        mState->clock.enter();
        const auto strike = mState->faults.strike(FaultPoint::kTelemetryReport, {});
        if (strike && strike->effect.kind == Kind::kSlow) mState->clock.sleepUs(strike->effect.delayUs);
        const bool failed = strike && strike->effect.kind == Kind::kFail;
        const bool lost = strike && strike->effect.kind == Kind::kLost;
        const std::lock_guard lock(mState->mutex);
        if (!failed && !lost) {
            mState->reports.push_back(
                {moduleId.c_str(), eventId.c_str(), content.c_str(), mState->clock.nowUs()});
        }
        if (mState->trace.enabled()) {
            Event event;
            event.kind = EventKind::kTelemetry;
            event.name = "report";
            event.fields = {{"module_id", std::string(moduleId.c_str())},
                            {"event_id", std::string(eventId.c_str())},
                            {"content", std::string(content.c_str())}};
            if (strike) event.fault = strike->text;
            mState->trace.record(std::move(event));
        }
        return android::hardware::Return<void>(!failed);
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

void Telemetry::setPresent(bool present) {
    const std::lock_guard lock(mState->mutex);
    mState->present = present;
}

bool Telemetry::present() const {
    const std::lock_guard lock(mState->mutex);
    return mState->present;
}

std::vector<TelemetryReport> Telemetry::reports() const {
    const std::lock_guard lock(mState->mutex);
    return mState->reports;
}

uint64_t Telemetry::lookups() const {
    const std::lock_guard lock(mState->mutex);
    return mState->lookups;
}

int32_t Telemetry::references() const {
    return mState->references;
}

android::sp<IRuvex> Telemetry::lookUp(const std::string& serviceName, bool getStub) {
    mState->clock.enter();
    const auto strike = mState->faults.strike(FaultPoint::kTelemetry, {});
    const bool hidden = strike && (strike->effect.kind == Kind::kFail || strike->effect.kind == Kind::kLost);
    if (strike && strike->effect.kind == Kind::kSlow) mState->clock.sleepUs(strike->effect.delayUs);

    bool found = false;
    {
        const std::lock_guard lock(mState->mutex);
        ++mState->lookups;
        found = mState->present && !hidden;
    }
    if (mState->trace.enabled()) {
        Event event;
        event.kind = EventKind::kTelemetry;
        event.name = "getService";
        event.fields = {{"service", serviceName}, {"get_stub", int64_t{getStub}}};
        event.hasResult = true;
        event.result = found ? 1 : 0;
        if (strike) event.fault = strike->text;
        mState->trace.record(std::move(event));
    }
    return found ? android::sp<IRuvex>(new Service(mState)) : android::sp<IRuvex>();
}

}  // namespace phone

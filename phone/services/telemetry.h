#pragma once
// The phone's telemetry service; the trace has what was reported to it.

#include <cstdint>
#include <memory>
#include <string>

#include "vendor/quor/hardware/ruvex/1.0/IRuvex.h"

namespace phone {

class Clock;
class Faults;
class Trace;

// Any thread. A reference to the service that outlives the phone fails every report.
class Telemetry {
  public:
    Telemetry(Clock& clock, Trace& trace, Faults& faults);
    ~Telemetry();
    Telemetry(const Telemetry&) = delete;
    Telemetry& operator=(const Telemetry&) = delete;

    // How many of the references handed out are still held.
    int32_t references() const;

    // For the platform's entry point: the service, or null.
    android::sp<vendor::quor::hardware::ruvex::V1_0::IRuvex> lookUp(const std::string& serviceName,
                                                                    bool getStub);

  private:
    class Service;
    struct State;
    std::shared_ptr<State> mState;
};

}  // namespace phone

#pragma once
// The phone's telemetry service.

#include <atomic>
#include <cstdint>
#include <string>

#include "hidl/HidlSupport.h"
#include "utils/StrongPointer.h"

namespace vendor::quor::hardware::ruvex::V1_0 {

using android::hardware::hidl_string;

struct IRuvex {
    // The named instance of the service; null when there is none.
    static android::sp<IRuvex> getService(const std::string& serviceName, bool getStub);

    virtual android::hardware::Return<void> report(const hidl_string& moduleId, const hidl_string& eventId,
                                                   const hidl_string& content) = 0;

    void incStrong(const void* id) const;
    void decStrong(const void* id) const;

  protected:
    virtual ~IRuvex() = default;

  private:
    mutable std::atomic<int32_t> mStrongCount{0};
};

}  // namespace vendor::quor::hardware::ruvex::V1_0

#pragma once
// A phone whose every answer comes from a script: kernel, sensor hub, properties, customisation, files and
// threads. What a driver may not do, whatever the answers, ends the process.

#include <cstdio>
#include <memory>
#include <set>

#include "ois_drv.h"
#include "script.h"

namespace fuzz {

// Ends the process when `holds` does not.
inline void require(bool holds) {
    if (!holds) __builtin_trap();
}

class Platform {
  public:
    // The platform of the process, for `driver` and a module on one of the two ways.
    Platform(Script& script, OISDrv& driver, bool hubWay);
    // Every descriptor must be closed and every worker joined.
    ~Platform();
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;
    static Platform* current();

    int32_t customise(char* driverName, ois::OisCustInfo& info, uint16_t* otpMap);

    int open();
    void close(int descriptor);
    bool owns(int descriptor) const { return mOpen.count(descriptor) != 0; }
    int ioctl(int descriptor, unsigned long request, void* record);
    ssize_t readlink(char* buffer, size_t size);
    FILE* fopen(bool writes);
    void stopRecorder() { mDriver.mProperty.isRun = 0; }

    // A call that takes time: another thread may run meanwhile.
    void pause();

    Script& script;

  private:
    int result();
    void answer(uint32_t request, void* record, size_t size);

    OISDrv& mDriver;
    bool mHubWay;
    char mDriverName[ois::kDriverNameSize] = {};
    std::set<int> mOpen;
    int mLastDescriptor = 0;
};

}  // namespace fuzz

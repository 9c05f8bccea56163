#include "ois_drv.h"

#include <mutex>

#include "log.h"

namespace {

template <typename T>
struct INST_T {
    std::once_flag once;
    std::unique_ptr<T> object;
};

constexpr size_t kSensorCount = 8;

class Registry {
  public:
    ~Registry() {
        for (size_t index = kSensorCount; index-- > 0;) mSlots[index].object.reset();
    }
    INST_T<OISDrv>& slot(size_t index) { return mSlots[index]; }

  private:
    std::array<INST_T<OISDrv>, kSensorCount> mSlots;
};

Registry gRegistry;

}  // namespace

OISDrv* OISDrv::GetInstance(int32_t sensorDev) {
    const auto index = static_cast<uint32_t>(sensorDev);
    if (index >= kSensorCount) {
        OIS_LOG(kError, "Unsupport sensor Index: %d\n", sensorDev);
        return nullptr;
    }
    INST_T<OISDrv>& slot = gRegistry.slot(index);
    std::call_once(slot.once, [&slot, sensorDev] { slot.object = std::make_unique<OISDrv>(sensorDev); });
    return slot.object.get();
}

OISDrv::OISDrv(int32_t sensorDev) : mSensorDev(sensorDev), mSensorIdx(sensorDev), mOisFlashBlock{} {
    mOisFlashData = nullptr;
}

OISDrv::~OISDrv() = default;

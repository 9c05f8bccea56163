// Opening and closing the driver for its users.

#include <cstdint>
#include <string>

#include "camera_platform/lens_customisation.h"
#include "lifecycle/worker.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::loadShared;
using ois::publish;
using ois::storeShared;

int32_t OISDrv::Init(int32_t sensorId, int32_t moduleId) {
    resetForOpen(moduleId);
    mIsOisSupport = readCustomisation(sensorId, moduleId);
    if (mIsOisSupport == 0) {
        OIS_LOG(kDebug, "Dev(%d), the current module isn't support OIS", mSensorDev);
        return 0;
    }
    OIS_LOG(kDebug, "Dev %d, sensor_id 0x%x, module_id 0x%x, ois_driver_name %s, is_ois_support %d",
            mSensorDev, static_cast<uint32_t>(sensorId), static_cast<uint32_t>(moduleId),
            std::string(ois::textOf(mOisDriverName)).c_str(), mIsOisSupport);

    readProperties();
    OIS_LOG(kDebug,
            "mProperty: manual (%d), dump (%d), isRun (%d), dumpIntervalTime (%d), dumpLevel (%d), "
            "actuatorDetect (%d), "
            "statusCheck (%d), actOis (%d), FixMode.manualEnable (%d), mIsOisSupport (%d)\n",
            mProperty.manual, mProperty.dump, mProperty.isRun, mProperty.dumpIntervalTime,
            mProperty.dumpLevel, mProperty.actuatorDetect, mProperty.statusCheck, mProperty.actOis,
            mFixMode.manualEnable, mIsOisSupport);
    if (mIsOisSupport == 0) {
        OIS_LOG(kDebug, "Dev(%d), the current module isn't support OIS", mSensorDev);
        return 0;
    }

    if (mProperty.dump != 0) storeShared(mProperty.isRun, 1);
    allocateBuffers();  // before the bring-up, which may use them
    if (m_user_count == 0 && loadShared(fd_driver) == -1) startBringUp();
    ++m_user_count;
    return 1;
}

int32_t OISDrv::Uninit() {
    OIS_LOG(kDebug, "Dev(%d) , [m_user_count]%d [fd_driver]%d +", mSensorDev, m_user_count,
            loadShared(fd_driver));
    if (m_user_count == 1) {
        // The order matters. A bring-up that is recording ends only when the run flag falls, so the flag
        // falls before the join; the channel is closed only when nobody brings it up any more.
        if (mProperty.dump != 0) storeShared(mProperty.isRun, 0);
        // With fewer engineering requests the recorder's thread is left alone on purpose.
        if (mParamsCallCount == kParamsCallLimit) {
            storeShared(mProperty.isRun, 0);
            if (mDumpThread.joinable()) mDumpThread.join();
        }
        // The members become null now, but the bring-up may still be using what they pointed to.
        const auto buffers = detachBuffers();
        if (mInitDrvThread.joinable()) mInitDrvThread.join();
        if (mOisCustInfo.useSensorHub != 0) {
            tearDownSensorHub();
        } else {
            tearDownSubDevice();
        }
        mIsOisSupport = 0;
    }
    if (m_user_count >= 1) --m_user_count;
    OIS_LOG(kDebug, "Dev(%d) , [m_user_count]%d [fd_driver]%d -", mSensorDev, m_user_count,
            loadShared(fd_driver));
    return 0;
}

// What one opening leaves for the next: every record of an open session is cleared, also for a second user.
// The error flag, the last AF position, the OTP copy, the detector's result and the stream state outlive it.
void OISDrv::resetForOpen(int32_t moduleId) {
    mTargetStatus[0] = mTargetStatus[1] = -1;
    mTargetStatus[2] = mTargetStatus[3] = mTargetStatus[4] = 0;
    mModuleId = moduleId;
    storeShared(mSensorHubEnabled, 0);
    mStatusWord = -1;
    mPreviousActEn = 0;
    mOisDynamic = -1;
    storeShared(mParamsCallCount, 0);
    publish(mOisCustInfo, {});
    publish(mOisCustExt, {});
    publish(mProperty, {});
    storeShared(mUseCustomCmd, 0);
    storeShared(logLevel, 0);
    publish(mFixMode, {});
    publish(mOisGain, {});
    publish(mHallInfo, {});
    publish(mOisCalibInfo, {});
    mOisMode = 0;
    mSineParam = {};
    mAccParams = {};
    mOisParams = {};
    mOisExtraParam = 0;
    mActOisIoctlState = 0;
    mLastEngOperation = 0;
    mLastTemp = 0;
    mOisTempStrategy = 0;
}

// The support flag; driver name and customisation blocks are taken over as the platform left them. The
// platform writes into copies, since a worker of another user may be reading the members.
int32_t OISDrv::readCustomisation(int32_t sensorId, int32_t moduleId) {
    int32_t status = 0;
    auto driverName = ois::snapshot(mOisDriverName);
    auto custInfo = ois::snapshot(mOisCustInfo);
    auto custExt = ois::snapshot(mOisCustExt);
    const int32_t support =
        GetOisDriverName(mSensorIdx, sensorId, moduleId, &status, driverName.data(), &custInfo, &custExt);
    publish(mOisDriverName, driverName);
    publish(mOisCustInfo, custInfo);
    publish(mOisCustExt, custExt);
    return support;
}

void OISDrv::allocateBuffers() {
    const auto storage = std::make_shared<ois::SessionStorage>();
    mBuffers.replace(storage, [this, &storage] {
        mStatusBuf = &storage->status.record;
        storeShared(mOisFlashData, &storage->flash);
    });
}

ois::SessionBuffers::Storage OISDrv::detachBuffers() {
    return mBuffers.detach([this] {
        mStatusBuf = nullptr;
        storeShared(mOisFlashData, nullptr);
    });
}

void OISDrv::startBringUp() {
    ois::startWorker(mInitDrvThread, [this] { InitDrv(); });
    ois::raiseWorkerPriority("Init", mInitDrvThread);
}

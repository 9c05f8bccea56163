// Firmware update and clock check. All messages go straight to the Android log.

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "access/sensor_channel.h"
#include "korva/register_access.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using NSCam::Utils::SensorProvider;
using ois::FirmwareOp;
using ois::FirmwareOutcome;
using ois::korva::Register;
using ois::korva::RegisterAccess;

namespace {

constexpr useconds_t kClockSettleUs = 20000;
constexpr useconds_t kImageVersionUs = 5000;
constexpr useconds_t kFlashOpenUs = 55000;
constexpr useconds_t kBlockWriteUs = 15000;
constexpr useconds_t kImageCheckUs = 190000;
constexpr useconds_t kBeforeRunUs = 10000;
constexpr useconds_t kRunUs = 2000;

constexpr uint32_t kDownloadFailed = 256;  // reported instead of a check value

// Always the whole image area, whatever the image's real length; no block is checked on its own.
void downloadImage(const RegisterAccess& controller) {
    controller.write(Register::kFlashDownload, ois::korva::kFlashDownloadOpen);
    usleep(kFlashOpenUs);
    for (uint32_t block = 0; block < ois::kFirmwareBlockCount; ++block) {
        const uint32_t flashAddress = block * ois::kFirmwareBlockSize;
        controller.firmware(FirmwareOp::kImage, flashAddress, ois::kFirmwareBlockSize);
        OIS_ANDROID_LOG(DEBUG, "flash[%d] write: address %lu, success (%d)", static_cast<int>(block),
                        static_cast<unsigned long>(flashAddress), 0);
        usleep(kBlockWriteUs);
    }
}

}  // namespace

int32_t OISDrv::FirmwareUpdate(int32_t sensorId, int32_t moduleId) {
    mIsOisSupport = readCustomisation(sensorId, moduleId);
    if (mIsOisSupport == 0) {
        OIS_ANDROID_LOG(ERROR, "Dev (%d), the current module isn't support OIS", mSensorDev);
        return 0;
    }
    if (m_user_count == 0 && fd_driver == -1 && !openForUpdate()) return 0;
    ++m_user_count;
    int32_t result = 0;
    if (ois::loadShared(mOisCustInfo.useSensorHub) != 0) {
        check_ois_clock();
        update_fw_func();
    } else {
        ois::OisCameraType cameraType{};
        ois::textOf(ois::snapshot(mOisCustInfo.cameraTypeName)).copy(cameraType.name, sizeof cameraType.name);
        result = send(ois::command::kUpdateFirmware, cameraType);
    }
    if (m_user_count == 1) closeAfterUpdate(result);
    if (m_user_count >= 1) --m_user_count;
    OIS_ANDROID_LOG(DEBUG, "ois_drv Dev (%d), m_user_count (%d), camera_type (%s)", mSensorDev, m_user_count,
                    std::string(ois::textOf(ois::snapshot(mOisCustInfo.cameraTypeName))).c_str());
    return 1;
}

// Opens the controller when no session holds it; without the rest of a session's bring-up.
bool OISDrv::openForUpdate() {
    if (ois::loadShared(mOisCustInfo.useSensorHub) != 0) {
        ois::exchangeShared(mpSensorProvider, SensorProvider::createInstance(ois::kSensorServiceUser));
        usleep(ois::kChannelSettleUs);
        return true;
    }
    ois::storeShared(fd_driver, GetV4l2SubDevice(std::string(ois::textOf(mOisDriverName)).c_str()));
    if (fd_driver < 0) {
        const int error = errno;
        OIS_ANDROID_LOG(ERROR, "Dev(%d) ,error opening (%s)", mSensorDev, std::strerror(error));
        return false;
    }
    return true;
}

void OISDrv::closeAfterUpdate(int32_t result) {
    if (ois::loadShared(mOisCustInfo.useSensorHub) == 0) {
        if (fd_driver >= 1) {
            close(fd_driver);
            ois::storeShared(fd_driver, -1);
        }
    } else if (ois::exchangeShared(mpSensorProvider, {})) {
        if (result != -1) OIS_ANDROID_LOG(DEBUG, "OIS_SENSORHUB UNINIT SUCCEED");
    }
}

int32_t OISDrv::check_ois_clock() {
    const RegisterAccess controller = registers();
    const unsigned long current = controller.read(Register::kClock);
    unsigned long updated = current;
    if (current != ois::korva::kOldClockHz) {
        OIS_ANDROID_LOG(DEBUG, "don't need to update clock\n");
    } else {
        OIS_ANDROID_LOG(DEBUG, "need to update clock start\n");
        updated = updateClock();
    }
    return OIS_ANDROID_LOG(DEBUG, "currclock %lu, newclock %lu\n", current, updated);
}

// The clock value afterwards; 0 when the controller is not idle.
uint32_t OISDrv::updateClock() {
    if (korvas4sw_set_idle() == 0) {
        OIS_ANDROID_LOG(DEBUG, "invalid ic status, skip fw update\n");
        return 0;
    }
    const RegisterAccess controller = registers();
    ois::korva::initPid(controller);
    ois::korva::applySettings(controller);
    usleep(kClockSettleUs);
    const auto clock = controller.read(Register::kClock);
    OIS_ANDROID_LOG(DEBUG, "need to update clock end\n");
    return clock;
}

int32_t OISDrv::update_fw_func() {
    const UpdateReport report = runFirmwareUpdate();
    return registers().firmware(FirmwareOp::kReport, static_cast<uint32_t>(report.outcome), report.value);
}

OISDrv::UpdateReport OISDrv::runFirmwareUpdate() {
    const RegisterAccess controller = registers();
    const auto newVersion = controller.firmwareAnswer<uint32_t>(FirmwareOp::kImage);
    usleep(kImageVersionUs);
    const auto currentVersion = controller.read(Register::kFirmwareVersion);
    OIS_ANDROID_LOG(DEBUG, "current FW %lu\n", static_cast<unsigned long>(currentVersion));
    if (currentVersion == newVersion) {
        OIS_ANDROID_LOG(DEBUG, "no need to update ois FW(%d)", static_cast<int>(newVersion));
        return {FirmwareOutcome::kNotUpdated, 0};
    }
    OIS_ANDROID_LOG(DEBUG, "current FW %lu, new FW %lu", static_cast<unsigned long>(currentVersion),
                    static_cast<unsigned long>(newVersion));
    if (korvas4sw_set_idle() == 0) {
        OIS_ANDROID_LOG(DEBUG, "invalid ic status, skip fw update");
        return {FirmwareOutcome::kNotUpdated, 0};
    }

    downloadImage(controller);
    const auto downloadStatus = controller.read(Register::kUpdateStatus);
    if (downloadStatus != 0) {
        OIS_ANDROID_LOG(DEBUG, "Err ! F/W Update Error Status (0x%04x)", downloadStatus);
        return {FirmwareOutcome::kControllerError, kDownloadFailed};
    }
    const uint32_t checkValue =
        controller.firmwareAnswer<uint16_t>(FirmwareOp::kCheckValue) | ois::korva::kImageCheckValid;
    controller.write(Register::kImageCheckValue, checkValue);
    usleep(kImageCheckUs);
    const auto updateStatus = controller.read(Register::kUpdateStatus);
    if (updateStatus != 0) {
        OIS_ANDROID_LOG(DEBUG, "FW update error status (0x%04x)", updateStatus);
        return {FirmwareOutcome::kControllerError, checkValue};
    }

    ois::korva::initPid(controller);
    const auto runningVersion = controller.read(Register::kFirmwareVersion);
    if (runningVersion != newVersion) {
        OIS_ANDROID_LOG(DEBUG, "FW update fail (%lu, %lu), ret(%d)",
                        static_cast<unsigned long>(runningVersion), static_cast<unsigned long>(newVersion),
                        0);
        return {FirmwareOutcome::kNotUpdated, checkValue};
    }
    OIS_ANDROID_LOG(DEBUG, "firmware version %lu", static_cast<unsigned long>(runningVersion));
    usleep(kBeforeRunUs);
    controller.write(Register::kControl, ois::korva::kControlIdle);
    usleep(kRunUs);
    return {FirmwareOutcome::kUpdated, 0};
}

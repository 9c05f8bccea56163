// Bringing the channel to the controller up and down, on both ways.

#include <unistd.h>

#include <string>

#include "access/sensor_channel.h"
#include "log.h"
#include "numeric.h"
#include "ois_drv.h"
#include "shared_field.h"

namespace command = ois::command;
using NSCam::Utils::SensorProvider;
using ois::loadShared;
using ois::storeShared;

namespace {

constexpr const char* kInitDrv = "InitDrv";  // the operation in whose name these steps log
constexpr const char* kUninit = "Uninit";

constexpr useconds_t kEndSessionUs = 2000;

// One axis' half of the upper word minus that of the lower.
int32_t hallSpan(uint32_t upperHalf, uint32_t lowerHalf) {
    return static_cast<int32_t>(upperHalf - lowerHalf);
}

float amplitudeFromSpan(uint16_t hallRange, int32_t span) {
    return static_cast<float>((hallRange * ois::kHallRangeSteps) / (span * ois::kHallSpanUnit));
}

float amplitudeFromIntegerGain(int32_t gain) {
    const int32_t amplitude =
        ois::wrappingMultiply(gain, ois::kIntegerGainNumerator) / ois::kIntegerGainDenominator;
    return static_cast<float>(amplitude);
}

}  // namespace

int32_t OISDrv::InitDrv() {
    mControllerState = 0;
    storeShared(mStreamState, 0);
    if (loadShared(mOisCustInfo.useSensorHub) != 0) {
        bringUpSensorHub();
    } else {
        bringUpSubDevice();
    }
    return 0;
}

void OISDrv::bringUpSensorHub() {
    const auto provider = SensorProvider::createInstance(ois::kSensorServiceUser);
    ois::exchangeShared(mpSensorProvider, provider);
    if (!provider) {
        OIS_LOG_AS(kInitDrv, kError, "mpSensorProvider is NULL");
        return;
    }
    provider->enableSensor(ois::kOisSensorType, static_cast<uint32_t>(mSensorInterval));
    usleep(ois::kChannelSettleUs);
    const bool enabled = provider->isEnabled(ois::kOisSensorType);
    OIS_LOG_AS(kInitDrv, kDebug, "OIS_SENSORHUB isEnabled :%d ", enabled ? 1 : 0);

    sendToHub(command::kInit, {loadShared(mUseCustomCmd), loadShared(logLevel), 0});
    storeShared(mStreamState, 1);
    storeShared(mSensorHubEnabled, 1);

    ois_stream_info stream{1, 0};
    send(command::kNotifyStream, stream);
    usleep(ois::kChannelSettleUs);
    OIS_LOG_AS(kInitDrv, kDebug, "OIS_SENSORHUB INIT SUCCEED");
}

void OISDrv::bringUpSubDevice() {
    const std::string driverName(ois::textOf(ois::snapshot(mOisDriverName)));
    const int32_t descriptor = GetV4l2SubDevice(driverName.c_str());
    storeShared(fd_driver, descriptor);
    if (descriptor < 0) {
        // The descriptor is printed where the device index is meant.
        OIS_LOG_AS(kInitDrv, kError, "Dev %d , OIS error opening\n", descriptor);
        return;
    }
    // The records travel as copies, since the caller may be using the members meanwhile. What the kernel
    // wrote back is then what the members hold; a failing request writes nothing back.
    ois::OisCustInfo custInfo = ois::snapshot(mOisCustInfo);
    if (send(command::kSetCustomisation, custInfo) >= 0) ois::publish(mOisCustInfo, custInfo);
    mControllerState = -1;
    ois::OisGain gain = ois::snapshot(mOisGain);
    if (send(command::kReadGains, gain) >= 0) ois::publish(mOisGain, gain);
    ois::OisHallInfo hall = ois::snapshot(mHallInfo);
    if (send(command::kReadHallInfo, hall) >= 0) ois::publish(mHallInfo, hall);
    deriveCalibration(custInfo, gain, hall);
    if (loadShared(mProperty.dump) != 0) {
        DumpOisFlashData2File();
        DumpGyroAccRawTargetHallData2File();
    }
}

// The transfers before are not checked: the calibration is derived from whatever the records hold.
void OISDrv::deriveCalibration(const ois::OisCustInfo& custInfo, const ois::OisGain& gain,
                               const ois::OisHallInfo& hall) {
    // With an unknown gain format the amplitudes stay as they stand.
    OisCalibInfo calibration = ois::snapshot(mOisCalibInfo);
    calibration.angle_amplitude = custInfo.angleAmplitude;
    calibration.hall_center_x = hall.centerX;
    calibration.hall_center_y = hall.centerY;

    float gyroGainX = 0.0F;
    float gyroGainY = 0.0F;
    switch (custInfo.gainFormat) {
        case ois::kGainQ31: {
            const int32_t spanX = hallSpan(hall.upperWord & 0xffff, hall.lowerWord & 0xffff);
            const int32_t spanY = hallSpan(hall.upperWord >> 16, hall.lowerWord >> 16);
            calibration.hall_amplitude_x = amplitudeFromSpan(custInfo.hallRange, spanX);
            calibration.hall_amplitude_y = amplitudeFromSpan(custInfo.hallRange, spanY);
            OIS_LOG_AS(kInitDrv, kDebug, "InitDrv(%d)(%d)(%d) -", custInfo.hallRange, spanX, spanY);
            break;
        }
        case ois::kGainInteger:
            calibration.hall_amplitude_x = amplitudeFromIntegerGain(gain.valueXi);
            calibration.hall_amplitude_y = amplitudeFromIntegerGain(gain.valueYi);
            break;
        case ois::kGainFloat:
            gyroGainX = gain.valueXf;
            gyroGainY = gain.valueYf;
            calibration.hall_amplitude_x = gyroGainX * calibration.angle_amplitude * ois::kFloatGainScale;
            calibration.hall_amplitude_y = gyroGainY * calibration.angle_amplitude * ois::kFloatGainScale;
            break;
        default:
            break;
    }
    ois::publish(mOisCalibInfo, calibration);
    OIS_LOG_AS(
        kInitDrv, kDebug,
        "angle_amplitude %f, hall_amplitude_x %f, hall_amplitude_y %f, hall_center_x %d, hall_center_y %d, "
        "gyro_gain_x %f, gyro_gain_y %f\n",
        static_cast<double>(calibration.angle_amplitude), static_cast<double>(calibration.hall_amplitude_x),
        static_cast<double>(calibration.hall_amplitude_y), calibration.hall_center_x,
        calibration.hall_center_y, static_cast<double>(gyroGainX), static_cast<double>(gyroGainY));
}

void OISDrv::tearDownSensorHub() {
    GetDataRuvex();
    if (loadShared(mpSensorProvider)) {
        int32_t zero = 0;
        send(command::kEndHubSession, zero);
        usleep(kEndSessionUs);
        const int32_t disabled = loadShared(mpSensorProvider)->disableSensor(ois::kOisSensorType);
        ois::exchangeShared(mpSensorProvider, {});  // gone before the message says so
        if (disabled != -1) OIS_LOG_AS(kUninit, kDebug, "OIS_SENSORHUB UNINIT SUCCEED");
    }
    storeShared(mSensorHubEnabled, 0);
    mSensorTimestamps.clear();
    for (auto* values :
         {&mSensorValue1, &mSensorValue2, &mSensorValue3, &mSensorValue4, &mSensorValue5, &mSensorValue6}) {
        values->clear();
    }
}

void OISDrv::tearDownSubDevice() {
    if (fd_driver < 1) return;
    int32_t last = -1;
    send(command::kEndSession, last);
    close(fd_driver);
    storeShared(fd_driver, -1);
}

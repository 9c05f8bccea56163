// Temperature compensation of a controller behind the sensor hub. These commands go to the hub directly.

#include <cstdint>
#include <cstdio>

#include "control/mode_choice.h"
#include "log.h"
#include "numeric.h"
#include "ois_drv.h"

namespace {

constexpr size_t kPathSize = 40;
constexpr const char* kThermalFile = "/sys/cam_thermal/cam_thermal_sensor0";

constexpr int32_t kColdestC = 11;  // readings outside these are ignored
constexpr int32_t kHottestC = 79;
constexpr int32_t kDeadBandC = 5;

constexpr int32_t kStillStrategy = 2;

bool worthSending(int32_t temperature, int32_t last) {
    return temperature >= kColdestC && temperature <= kHottestC &&
           ois::wrappingAbs(ois::wrappingSubtract(temperature, last)) >= kDeadBandC;
}

}  // namespace

void OISDrv::update_temp_cmp() {
    char path[kPathSize] = {};
    if (std::snprintf(path, sizeof path, "%s", kThermalFile) < 0) {
        OIS_LOG(kError, "temp_path snprintf fail");
        return;
    }
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        OIS_LOG(kError, "failed to open temppath");
        return;
    }
    int32_t temperature = 0;
    if (std::fscanf(file, "%d", &temperature) != 1) temperature = 0;  // out of range, so not sent
    if (worthSending(temperature, mLastTemp)) {
        sendToHub(ois::command::kSetTemperature, temperature);
        mLastTemp = temperature;
        OIS_LOG(kError, "update temp:%d", temperature);  // an error so that the line always shows
        UpdateTempStrategy();
    }
    const int closed = std::fclose(file);
    if (closed != 0) OIS_LOG(kError, "fclose fail: %d", closed);
}

void OISDrv::UpdateTempStrategy() {
    if (mOisParams.video_mode != 0 || mOisParams.scenario != ois::kMultiCameraScenario ||
        mOisTempStrategy == kStillStrategy) {
        return;
    }
    sendToHub(ois::command::kSetTempStrategy, kStillStrategy);
    mOisTempStrategy = kStillStrategy;
    OIS_LOG(kError, "mOisTempStrategy:%d", mOisTempStrategy);  // likewise
}

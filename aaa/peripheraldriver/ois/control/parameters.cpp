// The per-request path: what the 3A layer asks for with each frame.

#include <bit>
#include <cstdint>

#include "camera_platform/properties.h"
#include "control/mode_choice.h"
#include "lifecycle/worker.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

namespace command = ois::command;
using NSCam::Utils::Properties;
using ois::loadShared;
using ois::storeShared;

namespace {

constexpr const char* kSetOisParams = "SetOisParams";  // the operation in whose name its steps log

constexpr int32_t kEngineerMode = 8;
constexpr int32_t kNoOperation = -1;
constexpr int32_t kFailed = -1;  // SetOperation's answer when the device is not open

// mOisDynamic, as the active OIS rules read it.
constexpr int32_t kActiveOisWithAngle = 2;
constexpr int32_t kActiveOisByZoom = 3;
constexpr float kActiveOisZoom = 25.0F;  // from this zoom ratio on
constexpr uint32_t kNoAngle = 1;

constexpr int32_t kLowestForwardedCapture = 125000;  // of the capture value, in the 3A layer's unit

}  // namespace

int32_t OISDrv::SetOisParams(ois_params* params) {
    if (mIsOisSupport == 0) {
        OIS_LOG(kError, "not support OIS\n");
        return 0;
    }
    const int32_t descriptor = loadShared(fd_driver);
    if (descriptor < 0 && loadShared(mSensorHubEnabled) == 0) {
        // The descriptor is printed where the device index is meant.
        OIS_LOG(kError, "Dev %d , OIS error opening\n", descriptor);
        return 0;
    }
    if (mFixMode.manualEnable != 0) {
        refreshFixMode();
        return 0;
    }
    mOisDynamic = Properties::property_get_int32("vendor.debug.ois.dynamic", mOisDynamic);
    if (params == nullptr) return 0;
    mOisParams = *params;
    params->op_result_ptr = nullptr;

    Execution execution{};
    if (mOisParams.engineer_mode == kEngineerMode) {
        runEngineeringRequest(*params, execution);
    } else {
        runNormalRequest(execution);
    }
    if (mProperty.statusCheck != 0 && loadShared(fd_driver) >= 1) checkStatus();
    if (mProperty.fixTarget != 0) execution.result = sendFixTarget();

    // The last slot prints the caller's engineer_mode once more, not the result.
    OIS_LOG(
        kInfo,
        "Device_id %d, engineer_mode %d, engineer_operation %d, ois_mode_from_tag %d, ois_mode_execute %d, "
        "video_mode %d, zoom_ratio %f, result %d\n",
        mSensorDev, mOisParams.engineer_mode, mOisParams.engineer_operation, mOisParams.ois_mode_from_tag,
        execution.mode, mOisParams.video_mode, static_cast<double>(execution.zoom), params->engineer_mode);
    return execution.result;
}

// Takes the place of everything else while fix mode is on.
void OISDrv::refreshFixMode() {
    SetFixMode();
    // Read after the send, so a record carries the value of the request before.
    mFixMode.gethall = Properties::property_get_bool("vendor.debug.ois.gethall", false) ? 1 : 0;
    if (mFixMode.gethall == 0) return;
    GetHall();
    OIS_LOG_AS(kSetOisParams, kDebug,
               "fixmode (%d), gethall (%d), target_x (%d), target_y (%d), hall_x (%d), hall_y (%d)\n",
               mFixMode.manualEnable, mFixMode.gethall, mFixMode.target_x, mFixMode.target_y, mFixMode.hall_x,
               mFixMode.hall_y);
}

void OISDrv::runNormalRequest(Execution& execution) {
    if (mProperty.manual != 0) {
        execution.mode = mProperty.manualMode;
    } else {
        execution.zoom = mOisParams.zoom_ratio * (mOisParams.zoom_scale_en != 0 ? zoomFactor() : 1.0F);
        execution.mode = ois::chooseMode({
            .stabilisationOn = mOisDynamic != 0,
            .requestedByTag = mOisParams.ois_mode_from_tag != 0,
            .video = mOisParams.video_mode != 0,
            .zoom = execution.zoom,
            .scenario = mOisParams.scenario,
            .concernsThisSensor = mOisParams.sensor_dev == mSensorDev,
            .scenarioFlagSet = mOisParams.scenario_flag != 0,
        });
    }
    execution.result = SetMode(execution.mode);

    if (loadShared(mOisCustInfo.extraParamSupport) != 0) mOisExtraParam = mOisParams.extra_param;
    if (loadShared(mOisCustInfo.zoomActOisSupport) != 0) updateZoomActiveOis();
    if (loadShared(mOisCustInfo.actOisSupport) == 1) updateAngleActiveOis();
    if (loadShared(mOisCustInfo.useSensorHub) != 0 && loadShared(mSensorHubEnabled) != 0) {
        forwardCapture(execution);
        update_temp_cmp();
    }
}

float OISDrv::zoomFactor() const {
    const float scale = loadShared(mOisCustInfo.zoomScale);
    return scale != 0.0F ? scale : mScaleFactor;
}

void OISDrv::updateZoomActiveOis() {
    const bool on = mActOisIoctlState == 1;
    if (mOisDynamic == kActiveOisByZoom) {
        if (mOisParams.zoom_ratio >= kActiveOisZoom && mPreviousActEn != kActiveOisByZoom) {
            switchZoomActiveOis(1);
        } else if (mOisParams.zoom_ratio < kActiveOisZoom && on) {
            switchZoomActiveOis(0);
        }
    } else if (on) {
        switchZoomActiveOis(0);
    }
}

void OISDrv::switchZoomActiveOis(int32_t on) {
    mActOisIoctlState = on;
    sendBare(command::kSetZoomActiveOis, mActOisIoctlState);
    mPreviousActEn = mOisDynamic;
}

void OISDrv::updateAngleActiveOis() {
    if (mProperty.actOis != 0 || mOisDynamic == 0 || mOisDynamic == 1) {
        SetActOis({mOisDynamic, kNoAngle});
        OIS_LOG_AS(kSetOisParams, kDebug, "mPreviousActEn %d, mOisDynamic %d, actOisAngle %d", mPreviousActEn,
                   mOisDynamic, static_cast<int>(kNoAngle));
    } else if (mOisDynamic == kActiveOisWithAngle) {
        const float angle = loadShared(mOisCustInfo.actOisAngle);
        SetActOis({kActiveOisWithAngle, std::bit_cast<uint32_t>(angle)});
        OIS_LOG_AS(kSetOisParams, kDebug, "mPreviousActEn %d, mOisDynamic %d, actOisAngle %f", mPreviousActEn,
                   mOisDynamic, static_cast<double>(angle));
    } else {
        return;
    }
    mPreviousActEn = mOisDynamic;
}

void OISDrv::forwardCapture(Execution& execution) {
    const int32_t value = mOisParams.capture_value;
    if (mOisParams.capture_en != 1 || value < kLowestForwardedCapture) return;
    const auto logCapture = [value] {
        OIS_LOG_AS(kSetOisParams, kDebug, "ois capture: %d ! ++ ++\n", value);
    };
    // Three lines a capture, two before the send and one behind it: the one behind it tells that the send has
    // returned.
    logCapture();
    logCapture();
    auto word = static_cast<uint32_t>(value);
    execution.result = send(command::kForwardCapture, word);
    logCapture();
}

void OISDrv::runEngineeringRequest(ois_params& params, Execution& execution) {
    if (loadShared(fd_driver) >= 1) checkStatus();
    // Counted before the recorder starts, which looks at the count.
    const int32_t callsBefore = mParamsCallCount;
    storeShared(mParamsCallCount, callsBefore + 1);
    if (callsBefore == 0) startEngineering();
    if (mParamsCallCount > kParamsCallLimit) storeShared(mParamsCallCount, kParamsCallLimit);

    const int32_t operation = mOisParams.engineer_operation;
    if (operation == kNoOperation || operation == mLastEngOperation) return;
    execution.result = SetOperation(operation);
    if (execution.result == kFailed) return;
    params.op_result = execution.result;
    params.op_result_ptr = &params.op_result;
    mLastEngOperation = operation;
}

// The first engineering request of a session starts the recorder, or tells the sub-device when dumping is
// off.
void OISDrv::startEngineering() {
    if (mProperty.dump == 0) {
        uint8_t zero = 0;
        sendBare(command::kStartEngineering, zero);
        return;
    }
    storeShared(mProperty.isRun, 1);
    ois::startWorker(mDumpThread, [this] { DumpGyroAccRawTargetHallData2File(); });
    // Raises the bring-up's thread, not the recorder's.
    ois::raiseWorkerPriority(kSetOisParams, mInitDrvThread);
}

int32_t OISDrv::sendFixTarget() {
    mFixMode.manualEnable = mProperty.fixTarget;
    mFixMode.target_x = Properties::property_get_int32("vendor.debug.ois.tarx", 0);
    mFixMode.target_y = Properties::property_get_int32("vendor.debug.ois.tary", 0);
    return send(command::kSetFixTarget, mFixMode);
}

int32_t OISDrv::SetOisCfgData(ois_cfg_data* cfg) {
    if (cfg == nullptr || mIsOisSupport == 0) return 0;
    OIS_LOG(kDebug, "Dev %d, SensorMode %d", mSensorDev, cfg->SensorMode);
    return 0;
}

int32_t OISDrv::GetOisInfo(ois_lens_info_buf* /*info*/) {
    return 0;
}

#pragma once
// The user-space driver of a camera module's optical image stabilisation (OIS) controller.
//
// One OISDrv object serves one camera sensor. The camera's 3A process opens it with Init, calls the control
// operations while the camera streams, and closes it with Uninit.
//
// Threads: all public operations come from one thread, the 3A layer's. The object runs up to three workers of
// its own: bring-up, status recorder and defect detector. Fields that a worker shares with the caller are
// accessed through shared_field.h; no lock is held over a command, a sleep or a message.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "camera_platform/sensor_provider.h"
#include "diagnostics/session_buffers.h"
#include "wire/commands.h"
#include "wire/customisation.h"
#include "wire/records.h"

#define OIS_EXPORT [[gnu::visibility("default")]]

namespace ois {
class DumpFile;
namespace korva {
class RegisterAccess;
}
}  // namespace ois

// One request of the 3A layer.
struct ois_params {
    uint8_t ois_mode_from_tag;  // nonzero: the request asks for stabilisation
    uint8_t reserved0[3];
    int32_t video_mode;          // nonzero: video is recorded
    int32_t engineer_mode;       // 8: engineering path
    int32_t engineer_operation;  // operation for SetOperation; -1: none
    int32_t* op_result_ptr;      // out: null, or &op_result after an engineering operation ran
    int32_t op_result;           // out: result of that operation
    int32_t act_scene;           // scene code: 4, 12 and 14 allow angle-based active OIS
    float zoom_ratio;
    int32_t zoom_scale_en;  // nonzero: scale zoom_ratio by the module's zoom factor
    uint32_t extra_param;   // kept when the module has extra parameters
    int32_t scenario;       // 31: the rule for mode 10; 29: stream changes are ignored
    int32_t sensor_dev;     // sensor device index that the scenario concerns
    uint8_t reserved1[4];
    int32_t capture_en;     // 1: still capture
    int32_t capture_value;  // forwarded to a controller behind the hub from 125000 on
    int32_t scenario_flag;  // with scenario 31, 0 allows mode 10
    uint8_t reserved2[4];
};
static_assert(sizeof(ois_params) == 72);
static_assert(offsetof(ois_params, video_mode) == 4);
static_assert(offsetof(ois_params, engineer_mode) == 8);
static_assert(offsetof(ois_params, engineer_operation) == 12);
static_assert(offsetof(ois_params, op_result_ptr) == 16);
static_assert(offsetof(ois_params, op_result) == 24);
static_assert(offsetof(ois_params, act_scene) == 28);
static_assert(offsetof(ois_params, zoom_ratio) == 32);
static_assert(offsetof(ois_params, zoom_scale_en) == 36);
static_assert(offsetof(ois_params, extra_param) == 40);
static_assert(offsetof(ois_params, scenario) == 44);
static_assert(offsetof(ois_params, sensor_dev) == 48);
static_assert(offsetof(ois_params, capture_en) == 56);
static_assert(offsetof(ois_params, capture_value) == 60);
static_assert(offsetof(ois_params, scenario_flag) == 64);

// Sensor configuration; only the mode is looked at.
struct ois_cfg_data {
    int32_t SensorMode;
};
static_assert(sizeof(ois_cfg_data) == 4);

// Opaque to the driver.
struct ois_lens_info_buf;

// Where the lens focuses; SetAccParam takes its address.
struct ois_focus_params {
    int32_t distanceValid;  // nonzero: `distance` may be used
    int32_t distance;       // object distance, mm
    int32_t useFocus;       // nonzero: use focusDiopter all the same
    float focusDiopter;     // 1/m; values below 0.1 are replaced by 0.1, here too
};
static_assert(sizeof(ois_focus_params) == 16);
static_assert(offsetof(ois_focus_params, distance) == 4);
static_assert(offsetof(ois_focus_params, useFocus) == 8);
static_assert(offsetof(ois_focus_params, focusDiopter) == 12);

constexpr size_t kOtpImageSize = 2112;

// A copy of the module's one-time-programmable memory.
struct ois_otp_data {
    uint8_t reserved[4];
    uint8_t image[kOtpImageSize];
};
static_assert(sizeof(ois_otp_data) == 2116);
static_assert(offsetof(ois_otp_data, image) == 4);

// Hall calibration, derived from customisation and controller at bring-up.
struct OisCalibInfo {
    float angle_amplitude;
    float hall_amplitude_x;  // hall counts per angle unit
    float hall_amplitude_y;
    int32_t hall_center_x;  // hall reading at the lens centre
    int32_t hall_center_y;
};

// Debug switches, one byte each.
struct OisProperty {
    uint8_t manual;
    uint8_t dump;              // bit mask, DumpSwitch
    uint8_t dumpLevel;         // sent with every status request
    uint8_t dumpIntervalTime;  // ms between status requests
    uint8_t isRun;             // run flag of the status recorder
    uint8_t actuatorDetect;
    uint8_t statusCheck;
    uint8_t actOis;
    uint8_t manualMode;
    uint8_t fixTarget;
};

enum DumpSwitch : uint8_t {
    kDumpStatus = 1,
    kDumpOtp = 2,
    kDumpFlash = 4,
};

struct OisSineParam {
    int32_t enable;
    int32_t frequency;
    int32_t amplitudeX;
    int32_t amplitudeY;
};

class OIS_EXPORT OISDrv {
  public:
    // The object of a sensor device index, 0 to 7, created on first use; null for any other index. The object
    // belongs to the library and lives until the process ends. Any thread.
    static OISDrv* GetInstance(int32_t sensorDev);

    // Opens nothing, starts no thread and reads no property.
    explicit OISDrv(int32_t sensorDev);
    // Joins and closes nothing: the last user must have called Uninit, since a worker that was not joined
    // ends the process.
    virtual ~OISDrv();
    OISDrv(const OISDrv&) = delete;
    OISDrv& operator=(const OISDrv&) = delete;

    // --- Session (lifecycle/) ---

    // Opens the driver for one more user. 1 when it is usable, 0 when the module has no OIS or OIS is
    // switched off by property. The channel comes up on a thread of its own. Throws std::system_error when
    // that thread cannot be created. Not to be called at the same time as Uninit or FirmwareUpdate of the
    // same object.
    int32_t Init(int32_t sensorId, int32_t moduleId);
    // Closes the driver for one user; the last one stops the workers, closes the channel and frees the
    // buffers. Always 0.
    int32_t Uninit();

    // --- Access to the controller (access/) ---

    // Sends one command, by ioctl `request` or as hub command `commandId`. On the sub-device way `in` carries
    // the request's size in both directions and the ioctl's result is returned; on the hub way, or when
    // nothing is open, the result is 0. Lengths in bytes. Any worker or the caller.
    int32_t ConfigOisTransfer(uint32_t request, int32_t commandId, void* in, void* out, int32_t inLength,
                              int32_t outLength);
    // Sends one hub command record with up to 60 input bytes; ends the process on more. Always 0.
    int32_t CustomCmdPackage(int32_t commandId, void* in, void* out, int32_t inLength, int32_t outLength);
    // The first media node whose model begins with `name`: its descriptor (the caller's to close), or -1.
    int32_t GetV4l2MediaDevice(const char* name);
    // The /dev path of a character device, into 32 bytes. 1 on success, 0 on failure.
    int32_t GetV4l2SubDevName(int32_t major, int32_t minor, char* path);
    // The lens sub-device whose entity name begins with `driverName`, opened: its descriptor, or -1.
    int32_t GetV4l2SubDevice(const char* driverName);
    // Brings the channel to the controller up; the body of the bring-up thread. Always 0.
    int32_t InitDrv();

    // --- Stabilisation control (control/) ---

    // Sets the working mode; a repeated or unsupported one sends nothing. The transfer's result, or 0.
    int32_t SetMode(int32_t mode);
    // Runs a one-shot operation. -1 when the device is not open; else the transfer's result, a value read
    // back in 1/10000, or 0. Throws std::system_error when the detector's thread cannot be created.
    int32_t SetOperation(int32_t operation);
    // Stores the dynamic mode, which the next SetOisParams uses. Always 0.
    int32_t EnableOis(int32_t dynamic);
    // Asks the sub-device for the controller's status. The transfer's result, or 0 when it is not open.
    int32_t CheckIcStatus();

    // Applies one request. `params` is copied; its op_result fields are written back. The last command's
    // result, or 0. Throws std::system_error when the recorder's thread cannot be created.
    int32_t SetOisParams(ois_params* params);
    // Logs the sensor mode. Always 0.
    int32_t SetOisCfgData(ois_cfg_data* cfg);
    // Does nothing. Always 0.
    int32_t GetOisInfo(ois_lens_info_buf* info);

    // Holds the lens at the debug properties' target while fix mode is on. The transfer's result, or 0.
    int32_t SetFixMode();
    // Reads the hall position into mFixMode. The transfer's result.
    int32_t GetHall();

    // Switches angle-based active OIS when the scene and the mode allow it. The transfer's result, or 0.
    int32_t SetActOis(ois_act_parameters params);
    // These two do nothing; the first returns 0.
    int32_t SetActOisBySoftTrigger(int32_t trigger);
    void GimbalCalibration();
    // Tells the controller of a stream start or stop, after waiting for the bring-up. The transfer's result,
    // or 0.
    int32_t NotifyStream(ois_stream_info* info);

    // Accelerometer compensation from the focus: the address of an ois_focus_params, or 0. The transfer's
    // result, or 0.
    int32_t SetAccParam(long focus);
    // Forwards a new position of the autofocus actuator (its driver's units, from 1). The transfer's result,
    // or 0.
    int32_t SetOisAFdriftParams(int32_t AF_position);

    // Forwards a changed camera temperature to a controller behind the hub.
    void update_temp_cmp();
    // Switches the strategy for still capture between several cameras, once per stream.
    void UpdateTempStrategy();

    // --- Korva S4SW controller family (korva/) ---

    // Turns hub commands into register accesses where the family needs it. 0, or the calibration's result.
    int32_t KorvaCmdParse(int32_t commandId, void* in, void* out, int32_t inLength, int32_t outLength);
    // Writes the mode register: stabilisation on for any nonzero value. Always 0.
    int32_t korvas4sw_set_mode(int32_t on);
    // Writes the acceleration registers: enable from `params`, distance from mAccParams. Always 0.
    int32_t korvas4sw_set_acc(ois_acc_params* params);
    // Asks for the idle state and waits for it, up to 200 ms. 1 when idle, else 0.
    int32_t korvas4sw_set_idle();
    // Writes the PID init value and logs what is read back. Always 0.
    int32_t korvas4sw_init_pid();
    // Measures and saves the gyro offset. 0 also when it was skipped since the controller is not idle; -1
    // when the controller reports an error.
    int32_t korvas4sw_set_offset_calibration();
    // Saves the controller's working data to its flash; the outcome is only logged. Always 0.
    int32_t korvas4sw_flash_save();
    // Sum of the image's little-endian 16-bit words, modulo 65536. `size` in bytes; an odd last byte is
    // ignored. `image` needs no alignment.
    uint16_t korvas4sw_fw_checksum(const void* image, uint16_t size);
    // Brings the controller's firmware up to date, synchronously, with or without an open session. 1 when the
    // module has OIS, whatever came of the update; 0 when it has none or cannot be opened.
    int32_t FirmwareUpdate(int32_t sensorId, int32_t moduleId);
    // Reprograms a controller that runs from the old clock. The result means nothing.
    int32_t check_ois_clock();
    // Streams the hub's image into the controller when the versions differ; reports the outcome to the hub
    // and returns what the hub made of that.
    int32_t update_fw_func();

    // --- Diagnostics (diagnostics/) ---

    // Appends the hub's queued motion samples, oldest first, to the seven sample vectors. Not at the same
    // time as Uninit.
    void GetSensorData();
    // Records the controller's status to a text file until mProperty.isRun is cleared. -3 when the file
    // cannot be created, else the last request's result or 0.
    int32_t DumpGyroAccRawTargetHallData2File();
    // Walks the lens through the module's test coordinates. -1 or -2 when the single or the summed error
    // limit trips, else the last read-back's result or 0.
    int32_t DetectActutorDefect();
    // Takes a copy of the module's OTP memory, and dumps it when the dump switch asks for that.
    void GetOisOtpData(ois_otp_data* otp);
    // -1 when the file cannot be created, else 0.
    int32_t DumpOtp2File();
    // -3 when the file cannot be created, 0 when the device is not open, else the transfer's result.
    int32_t DumpOisFlashData2File();
    // Reports the OIS error flag to the telemetry service. Always 0.
    int32_t GetDataRuvex();

    // --- State. Written by the driver alone; open so that field tools and tests can look at it. ---

    char mOisDriverName[ois::kDriverNameSize]{};  // controller's driver name, looked up in the media graph
    int32_t mSensorDev;                           // sensor device index, as messages print it
    int32_t mSensorIdx;                           // the same, as the customisation library takes it
    int32_t m_user_count = 0;                     // users between Init and Uninit
    int32_t fd_driver = -1;                       // sub-device; open when 1 or more
    int32_t mModuleId = 0;
    int32_t mIsOisSupport = 0;
    int32_t mControllerState = 0;  // -1 once the customisation block was written to the sub-device
    int32_t mStreamState = 0;      // last stream state sent
    int32_t mStatusWord = 0;
    int32_t mPreviousActEn = 0;  // active OIS state of the request before
    int32_t mOisDynamic = 0;
    int32_t mParamsCallCount = 0;  // engineering requests since Init, at most 2
    OisProperty mProperty{};
    uint8_t mUseCustomCmd = 0;  // hub way: 1 relays every command, 0 goes through the family parser
    uint8_t logLevel = 0;       // the hub's log level
    ois::OisCustInfo mOisCustInfo{};
    ois::OisCustExt mOisCustExt{};
    float mScaleFactor = 1.0F;  // zoom factor of a module that sets none
    ois::OisFixMode mFixMode{};
    std::thread mSpareThread;  // never started

    ois::OisStatusRecord* mStatusBuf = nullptr;
    // The flash buffer's address. A flash transfer passes the address of this member, and a kernel driver
    // that does not follow the pointer writes a whole record there; so the member is the beginning of a block
    // of a record's size, of which nothing else is used.
    union {
        ois::OisFlashRecord* mOisFlashData;
        ois::FlashBlock mOisFlashBlock;
    };

    std::thread mInitDrvThread;       // InitDrv
    std::thread mDumpThread;          // DumpGyroAccRawTargetHallData2File
    std::thread mDefectDetectThread;  // DetectActutorDefect
    int32_t mReserved[3] = {0, -1, -1};
    int32_t mSensorInterval = 5;  // ms, of the OIS channel
    uint8_t mSensorHubEnabled = 0;
    std::shared_ptr<NSCam::Utils::SensorProvider> mpSensorProvider;
    std::vector<unsigned long> mSensorTimestamps;
    std::vector<float> mSensorValue1;
    std::vector<float> mSensorValue2;
    std::vector<float> mSensorValue3;
    std::vector<float> mSensorValue4;
    std::vector<float> mSensorValue5;
    std::vector<float> mSensorValue6;

    int32_t mTargetStatus[5]{};  // target and status words

    ois::OisHallInfo mHallInfo{};
    OisCalibInfo mOisCalibInfo{};

    int32_t mOisMode = 0;  // last mode given to SetMode, supported or not
    OisSineParam mSineParam{};
    ois::OisGain mOisGain{};
    ois_acc_params mAccParams{};
    int32_t mOisErrorFlag = 0;      // 1 after a successful gyro offset operation
    int32_t mDefectDetectDone = 0;  // 1 once a defect limit tripped
    int32_t mActuatorDefectError = 0;

    ois_params mOisParams{};  // last request
    uint32_t mOisExtraParam = 0;
    int32_t mActOisIoctlState = 0;  // 1 while zoom-triggered active OIS is on
    int32_t mLastEngOperation = 0;

    int32_t mLastAfPosition = 0;
    int32_t mLastTemp = 0;  // degrees Celsius, last sent
    int32_t mOisTempStrategy = 0;

    ois_otp_data mOtpData{};

  private:
    static constexpr int32_t kParamsCallLimit = 2;  // at which mParamsCallCount stays

    // Session.
    void resetForOpen(int32_t moduleId);
    int32_t readCustomisation(int32_t sensorId, int32_t moduleId);
    void readProperties();
    void allocateBuffers();
    ois::SessionBuffers::Storage detachBuffers();
    void startBringUp();

    // Access. ConfigOisTransfer for a command of the table, whose record comes back as it was answered.
    template <typename Record>
    int32_t send(const ois::Command<Record>& command, std::type_identity_t<Record>& record) {
        void* const out = command.outLength > 0 ? &record : nullptr;
        return ConfigOisTransfer(ois::code(command.request), ois::id(command.hub), &record, out,
                                 command.inLength, command.outLength);
    }
    // Straight to the sub-device, whatever the module's way and also when nothing is open; the result does
    // not matter.
    template <typename Record>
    void sendBare(const ois::BareRequest<Record>& request, std::type_identity_t<Record>& record) const {
        ioctlSubDevice(request.request, &record);
    }
    void ioctlSubDevice(ois::Request request, void* record) const;
    bool isOpen() const;
    int32_t subDeviceTransfer(uint32_t request, void* record) const;
    // Whether there was a provider to send it to.
    bool sendToHub(ois::OisCustomCmd& record) const;
    template <typename Record>
    void sendToHub(const ois::HubOnly<Record>& command, const std::type_identity_t<Record>& input) const {
        ois::OisCustomCmd record;
        ois::packInput(record, command.hub, input);
        sendToHub(record);
    }
    void bringUpSensorHub();
    void bringUpSubDevice();
    void deriveCalibration(const ois::OisCustInfo& custInfo, const ois::OisGain& gain,
                           const ois::OisHallInfo& hall);
    void tearDownSensorHub();
    void tearDownSubDevice();

    // Control.
    int32_t runOperation(int32_t which, int32_t value);
    int32_t sendModeWord(uint32_t word);
    void loadSineParameters();
    int32_t setGyroOffset();
    int32_t readGain(ois::Axis axis);
    int32_t writeGain(ois::Axis axis, int32_t value);
    int32_t enableAccAtDefaultDistance();
    int32_t disableAcc();
    void runDefectDetection();
    int32_t checkStatus();

    // The steps of SetOisParams, and what they leave for its end.
    struct Execution {
        int32_t mode;
        float zoom;
        int32_t result;
    };
    void refreshFixMode();
    void runNormalRequest(Execution& execution);
    void runEngineeringRequest(ois_params& params, Execution& execution);
    void startEngineering();
    float zoomFactor() const;
    void updateZoomActiveOis();
    void switchZoomActiveOis(int32_t on);
    void updateAngleActiveOis();
    void forwardCapture(Execution& execution);
    int32_t sendFixTarget();

    // Korva family. Registers by way of the present provider.
    ois::korva::RegisterAccess registers() const;
    struct UpdateReport {
        ois::FirmwareOutcome outcome;
        uint32_t value;
    };
    bool openForUpdate();
    void closeAfterUpdate(int32_t result);
    uint32_t updateClock();
    UpdateReport runFirmwareUpdate();

    // Diagnostics.
    std::string dumpPath(const char* suffix) const;
    int32_t recordStatus(ois::StatusTransfer& shared, ois::DumpFile& file);
    int32_t moveLensAndReadHall(int32_t targetX, int32_t targetY);
    void markDefect(float error);
    ois::SessionBuffers::Storage settleFlashPointer(const ois::SessionBuffers::Storage& before);

    ois::SessionBuffers mBuffers;  // owns what mStatusBuf and mOisFlashData point to
};

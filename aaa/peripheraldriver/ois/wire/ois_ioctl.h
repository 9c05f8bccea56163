/*
 * The private ioctl requests of an OIS lens sub-device, and the records that
 * travel with them: what a kernel driver has to answer.
 *
 * Little-endian. A record travels whole, in both directions for _IOWR: the size
 * in the code is the size that moves. Floats are 32-bit words with the bits of
 * an IEEE 754 single. "X" is the first axis of a pair, "Y" the second.
 *
 * Laid out as the kernel's own headers are.
 */
/* clang-format off */
#ifndef OIS_IOCTL_H
#define OIS_IOCTL_H

#include <linux/ioctl.h>
#include <linux/types.h>
#include <linux/videodev2.h>

/* The media device's model begins with this, and the lens entity's name with
 * the name of the module's driver. */
#define OIS_MEDIA_MODEL "nxa_camera_af"
#define OIS_NAME_SIZE 32

/* ois_ioc_customisation.gain_format: how values of an axis are coded. */
#define OIS_GAIN_FLOAT 1   /* value_xf and value_yf, plain */
#define OIS_GAIN_INTEGER 2 /* value_xi and value_yi, in 1/10000 */
#define OIS_GAIN_Q31 3     /* value_xi and value_yi, 2^31 is 1.0 */

#define OIS_AXIS_X 0
#define OIS_AXIS_Y 1

#define OIS_COORDINATES 200
#define OIS_CHIP_NAME_SIZE 32
#define OIS_CAMERA_TYPE_SIZE 16

/* The module's customisation; the fields are explained in customisation.h. */
struct ois_ioc_customisation {
	__u16 gain_format;
	__u16 hall_range;
	__u16 acc_support;
	__u16 acc_distance;
	__u16 act_ois_support;
	__u16 zoom_act_ois_support;
	__u16 actuator_detect_support;
	__u16 extra_param_support;
	__u16 camera_type;
	__u16 stream_on_delay;
	__u8 reserved0[8];
	__u16 coordinate_num;
	__u8 use_sensor_hub;
	__u8 reserved1;
	__u32 angle_amplitude;         /* float */
	__u32 max_error_threshold;     /* float */
	__u32 max_sum_error_threshold; /* float */
	__u32 zoom_scale;              /* float */
	__u32 act_ois_angle;           /* float */
	__u8 reserved2[4];
	__u32 coordinate_x[OIS_COORDINATES]; /* floats */
	__u32 coordinate_y[OIS_COORDINATES]; /* floats */
	char ic_name[OIS_CHIP_NAME_SIZE];
	char camera_type_name[OIS_CAMERA_TYPE_SIZE];
};

/* Value of one axis, or of both where a request reads. */
struct ois_ioc_gain {
	__u32 axis; /* OIS_AXIS_X or OIS_AXIS_Y */
	__u32 unused;
	__u32 value_xf; /* float */
	__u32 value_yf; /* float */
	__s32 value_xi;
	__s32 value_yi;
};

/* Hall calibration. A word has X in its low half and Y in its high half; the
 * span of an axis is its half of upper_word minus its half of lower_word. */
struct ois_ioc_hall_info {
	__s32 center_x; /* hall reading at the lens centre */
	__s32 center_y;
	__u32 upper_word;
	__u32 lower_word;
};

/* Holds the lens at a target; the hall position is the controller's answer.
 * All in the controller's own units. */
struct ois_ioc_fix_mode {
	__s32 manual_enable;
	__s32 gethall;
	__s32 target_x;
	__s32 target_y;
	__s32 hall_x;
	__s32 hall_y;
};

struct ois_ioc_stream {
	__s32 notify_stream; /* 1: on, 0: off */
	__s32 reserved;
};

struct ois_ioc_active_ois {
	__s32 enable;
	__u32 angle; /* float, or the integer 1 when no angle applies */
};

/* Accelerometer compensation; distances in mm. */
struct ois_ioc_acc_params {
	__u32 reserved;
	__u32 enable;
	__u32 last_distance;
	__s32 distance;
	__u32 distance_f; /* float */
	__s32 distance_q31;
	__u32 count;
};

/* One sample of the controller's state. */
struct ois_ioc_status {
	__u8 chose; /* in: the level asked for */
	__u8 reserved0[7];
	__u64 timestamp_seconds;
	__u64 timestamp_fraction; /* us */
	__s16 gyro_raw_x;
	__s16 gyro_raw_y;
	__s16 gyro_raw_z;
	__s16 acc_raw_x;
	__s16 acc_raw_y;
	__s16 acc_raw_z;
	__s16 gyro_target_x; /* targets: thousandths of the angle unit */
	__s16 gyro_target_y;
	__s16 acc_target_x;
	__s16 acc_target_y;
	__s16 hall_x;
	__s16 hall_y;
	__s16 synthetic_x;
	__s16 synthetic_y;
	__u8 reserved1[4];
};

#define OIS_FLASH_DATA_SIZE 1536

/* The controller's flash data area. The request that reads it carries, where
 * this record begins, the 64-bit user address of a buffer of this size: a
 * driver either fills that buffer, then or a little later, or answers with
 * this record in place. */
struct ois_ioc_flash {
	__u32 length; /* bytes of data that count */
	__u32 base;   /* flash address of data[0] */
	__u8 data[OIS_FLASH_DATA_SIZE];
};

struct ois_ioc_camera_type {
	char name[OIS_CAMERA_TYPE_SIZE]; /* not terminated when full */
};

#define OIS_IOC(number) (BASE_VIDIOC_PRIVATE + (number))

#define OIS_IOC_SET_MODE _IOW('V', OIS_IOC(2), __u32)
#define OIS_IOC_SET_GYRO_OFFSET _IOWR('V', OIS_IOC(4), __u32)
#define OIS_IOC_UPDATE_FIRMWARE _IOWR('V', OIS_IOC(5), struct ois_ioc_camera_type)
#define OIS_IOC_SET_CUSTOMISATION _IOWR('V', OIS_IOC(7), struct ois_ioc_customisation)
#define OIS_IOC_END_SESSION _IOWR('V', OIS_IOC(8), __s32)
#define OIS_IOC_SET_ACC_PARAMS _IOWR('V', OIS_IOC(9), struct ois_ioc_acc_params)
#define OIS_IOC_SET_AF_POSITION _IOWR('V', OIS_IOC(10), __u16)
#define OIS_IOC_OPERATION_18 _IOWR('V', OIS_IOC(13), __u32)
#define OIS_IOC_WRITE_GAIN _IOWR('V', OIS_IOC(14), struct ois_ioc_gain)
#define OIS_IOC_READ_GAIN _IOWR('V', OIS_IOC(16), struct ois_ioc_gain)
#define OIS_IOC_READ_HALL_INFO _IOWR('V', OIS_IOC(18), struct ois_ioc_hall_info)
#define OIS_IOC_SET_FIX_MODE _IOWR('V', OIS_IOC(20), struct ois_ioc_fix_mode)
#define OIS_IOC_NOTIFY_STREAM _IOWR('V', OIS_IOC(21), struct ois_ioc_stream)
#define OIS_IOC_CHECK_STATUS _IOWR('V', OIS_IOC(22), __u8)
#define OIS_IOC_START_ENGINEERING _IOWR('V', OIS_IOC(23), __u8)
#define OIS_IOC_SET_ACTIVE_OIS _IOWR('V', OIS_IOC(24), struct ois_ioc_active_ois)
#define OIS_IOC_GET_HALL _IOWR('V', OIS_IOC(25), struct ois_ioc_fix_mode)
#define OIS_IOC_READ_STATUS _IOWR('V', OIS_IOC(26), struct ois_ioc_status)
#define OIS_IOC_READ_FLASH _IOWR('V', OIS_IOC(27), struct ois_ioc_flash)
#define OIS_IOC_SET_ZOOM_ACTIVE_OIS _IOWR('V', OIS_IOC(28), __s32)

#endif /* OIS_IOCTL_H */

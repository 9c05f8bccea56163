// SPDX-License-Identifier: GPL-2.0-only
/*
 * The controller: what each request does, and where the lens is.
 */
#include <linux/kernel.h>
#include <linux/ktime.h>
#include <linux/math64.h>
#include <linux/minmax.h>
#include <linux/string.h>
#include <linux/time64.h>
#include <linux/uaccess.h>

#include "ois_virtual.h"

#define MODE_OFF 0
#define FIRST_CAPTURE 125000 /* mode words from here on are capture values */
#define ACTIVE_WITH_ANGLE 2
#define LEAST_DISTANCE_MM 30
#define SETTLING_US 5000 /* until a lens is where it was told to be */
#define GYRO_WINDOW_US 100000 /* over which the gyro's offset is measured */
#define GYRO_SAMPLES 100
#define THOUSAND 1000
#define ONE_G 8192 /* raw counts of the accelerometer */

/* A count of bias that was not subtracted turns the target by so much, in
 * thousandths of a degree: 1 / 16.400 degrees per second through a high pass
 * of 0.3 Hz.
 */
#define ANGLE_PER_BIAS 32

static s64 now_us(void)
{
	return ktime_to_us(ktime_get());
}

static s32 center(const struct ois_controller *controller, int axis)
{
	const struct ois_ioc_hall_info *info =
		&controller->calibration->hall_info;

	return axis == OIS_AXIS_X ? info->center_x : info->center_y;
}

/* Hall counts from the centre of an angle in thousandths of a degree. */
static s32 hall_of(const struct ois_controller *controller, int axis, s32 angle)
{
	s64 product = (s64)angle * controller->calibration->hall_per_degree[axis];

	return DIV_S64_ROUND_CLOSEST(product, THOUSAND * THOUSAND);
}

/* Value of a float, in thousandths; 0 for what is no number or a large one. */
static s32 thousandths(u32 bits)
{
	int exponent = (bits >> 23 & 0xff) - 127;
	u64 mantissa = (bits & GENMASK(22, 0)) | BIT(23);
	s32 size;

	if (exponent > 10 || exponent < -10)
		return 0;
	size = mantissa * THOUSAND >> (23 - exponent);
	return bits >> 31 ? -size : size;
}

/* The angle that would cancel the shake, as the controller believes. */
static s32 gyro_target(const struct ois_controller *controller, int axis, s64 at)
{
	s32 bias = controller->calibration->gyro_bias[axis] -
		   controller->gyro_offset[axis];

	return -ois_shake_angle(axis, at) - bias * ANGLE_PER_BIAS;
}

static s32 acc_target(const struct ois_controller *controller, int axis, s64 at)
{
	if (!controller->acc_compensation)
		return 0;
	return -ois_angle_of_shift(ois_shift(axis, at),
				   controller->distance_mm);
}

/* Hall counts to which the lens is driven, be it beyond its limit. */
static s32 wanted_hall(const struct ois_controller *controller, int axis, s64 at)
{
	bool with_angle = controller->active.enable == ACTIVE_WITH_ANGLE;
	s32 angle;

	if (controller->held)
		return controller->target[axis];
	if (controller->mode == MODE_OFF)
		return center(controller, axis);
	angle = gyro_target(controller, axis, at) +
		acc_target(controller, axis, at);
	if (with_angle)
		angle += thousandths(controller->active.angle);
	return center(controller, axis) + hall_of(controller, axis, angle);
}

static s32 hall(const struct ois_controller *controller, int axis, s64 at)
{
	s32 limit = abs(hall_of(controller, axis,
				controller->calibration->limit_angle));
	s32 middle = center(controller, axis);
	s32 goal = clamp(wanted_hall(controller, axis, at), middle - limit,
			 middle + limit);
	s32 from = controller->moved_from[axis];
	s64 passed = at - controller->moved_us;

	if (passed >= SETTLING_US)
		return goal;
	return from + div_s64(((s64)goal - from) * passed, SETTLING_US);
}

/* Call before anything changes that says where the lens has to be. */
static void begin_move(struct ois_controller *controller)
{
	s64 at = now_us();
	s32 x = hall(controller, OIS_AXIS_X, at);
	s32 y = hall(controller, OIS_AXIS_Y, at);

	controller->moved_from[OIS_AXIS_X] = x;
	controller->moved_from[OIS_AXIS_Y] = y;
	controller->moved_us = at;
}

static int set_mode(struct ois_controller *controller, void *record)
{
	s32 mode = *(s32 *)record;

	if (mode >= FIRST_CAPTURE)
		return 0;
	if (mode != controller->mode || controller->held)
		begin_move(controller);
	controller->mode = mode;
	controller->held = false;
	return 0;
}

static int end_session(struct ois_controller *controller, void *record)
{
	begin_move(controller);
	controller->active = (struct ois_ioc_active_ois){};
	controller->mode = MODE_OFF;
	controller->held = false;
	return 0;
}

/* Holds the lens whatever the record's enable word says: one who looks for
 * defects leaves that word alone.
 */
static int set_fix_mode(struct ois_controller *controller, void *record)
{
	const struct ois_ioc_fix_mode *fix_mode = record;

	begin_move(controller);
	controller->target[OIS_AXIS_X] = fix_mode->target_x;
	controller->target[OIS_AXIS_Y] = fix_mode->target_y;
	controller->held = true;
	return 0;
}

static int get_hall(struct ois_controller *controller, void *record)
{
	struct ois_ioc_fix_mode *fix_mode = record;
	s64 at = now_us();

	fix_mode->hall_x = hall(controller, OIS_AXIS_X, at);
	fix_mode->hall_y = hall(controller, OIS_AXIS_Y, at);
	return 0;
}

static int set_active_ois(struct ois_controller *controller, void *record)
{
	begin_move(controller);
	controller->active = *(struct ois_ioc_active_ois *)record;
	return 0;
}

static int set_acc_params(struct ois_controller *controller, void *record)
{
	const struct ois_ioc_acc_params *params = record;

	begin_move(controller);
	controller->acc_compensation = params->enable != 0;
	controller->distance_mm = max(params->distance, LEAST_DISTANCE_MM);
	return 0;
}

/* The mean of what the gyro said during the last moments. */
static int set_gyro_offset(struct ois_controller *controller, void *record)
{
	s64 at = now_us();
	int axis, i;

	begin_move(controller);
	for (axis = 0; axis < OIS_AXES; axis++) {
		s32 sum = 0;

		for (i = 0; i < GYRO_SAMPLES; i++)
			sum += ois_shake_rate(axis, at - GYRO_WINDOW_US /
							     GYRO_SAMPLES * i);
		controller->gyro_offset[axis] =
			controller->calibration->gyro_bias[axis] +
			sum / GYRO_SAMPLES;
	}
	return 0;
}

/* Only the named axis changes, in both codings: which one counts is up to who
 * reads them.
 */
static int write_gain(struct ois_controller *controller, void *record)
{
	const struct ois_ioc_gain *written = record;

	if (written->axis == OIS_AXIS_X) {
		controller->gain.value_xf = written->value_xf;
		controller->gain.value_xi = written->value_xi;
	} else {
		controller->gain.value_yf = written->value_yf;
		controller->gain.value_yi = written->value_yi;
	}
	return 0;
}

static int read_gain(struct ois_controller *controller, void *record)
{
	struct ois_ioc_gain *asked = record;
	struct ois_ioc_gain answer = controller->gain;

	answer.axis = asked->axis;
	answer.unused = asked->unused;
	*asked = answer;
	return 0;
}

static int read_hall_info(struct ois_controller *controller, void *record)
{
	*(struct ois_ioc_hall_info *)record = controller->calibration->hall_info;
	return 0;
}

static s16 saturated(s32 value)
{
	return clamp_t(s32, value, S16_MIN, S16_MAX);
}

static int read_status(struct ois_controller *controller, void *record)
{
	const s16 *bias = controller->calibration->gyro_bias;
	struct ois_ioc_status *status = record;
	s32 gyro[OIS_AXES], acc[OIS_AXES];
	s64 at = now_us();
	u32 fraction;
	int axis;

	for (axis = 0; axis < OIS_AXES; axis++) {
		gyro[axis] = gyro_target(controller, axis, at);
		acc[axis] = acc_target(controller, axis, at);
	}
	status->timestamp_seconds = div_u64_rem(at, USEC_PER_SEC, &fraction);
	status->timestamp_fraction = fraction;
	status->gyro_raw_x = saturated(ois_shake_rate(OIS_AXIS_X, at) + bias[0]);
	status->gyro_raw_y = saturated(ois_shake_rate(OIS_AXIS_Y, at) + bias[1]);
	status->gyro_raw_z = bias[2];
	status->acc_raw_x = 0;
	status->acc_raw_y = ONE_G;
	status->acc_raw_z = 0;
	status->gyro_target_x = saturated(gyro[OIS_AXIS_X]);
	status->gyro_target_y = saturated(gyro[OIS_AXIS_Y]);
	status->acc_target_x = saturated(acc[OIS_AXIS_X]);
	status->acc_target_y = saturated(acc[OIS_AXIS_Y]);
	status->hall_x = saturated(hall(controller, OIS_AXIS_X, at));
	status->hall_y = saturated(hall(controller, OIS_AXIS_Y, at));
	status->synthetic_x = saturated(gyro[OIS_AXIS_X] + acc[OIS_AXIS_X]);
	status->synthetic_y = saturated(gyro[OIS_AXIS_Y] + acc[OIS_AXIS_Y]);
	return 0;
}

static int read_flash(struct ois_controller *controller, void *record)
{
	const size_t size = sizeof(controller->flash);
	u64 address;

	if (!ois_flash_follow_pointer) {
		memcpy(record, &controller->flash, size);
		return 0;
	}
	memcpy(&address, record, sizeof(address));
	if (copy_to_user(u64_to_user_ptr(address), &controller->flash, size))
		return -EFAULT;
	return 0;
}

#define REQUEST(name, handle) { OIS_IOC_##name, #name, handle }

static const struct ois_request requests[] = {
	REQUEST(SET_MODE, set_mode),
	REQUEST(SET_GYRO_OFFSET, set_gyro_offset),
	REQUEST(UPDATE_FIRMWARE, NULL),
	REQUEST(SET_CUSTOMISATION, NULL),
	REQUEST(END_SESSION, end_session),
	REQUEST(SET_ACC_PARAMS, set_acc_params),
	REQUEST(SET_AF_POSITION, NULL),
	REQUEST(OPERATION_18, NULL),
	REQUEST(WRITE_GAIN, write_gain),
	REQUEST(READ_GAIN, read_gain),
	REQUEST(READ_HALL_INFO, read_hall_info),
	REQUEST(SET_FIX_MODE, set_fix_mode),
	REQUEST(NOTIFY_STREAM, NULL),
	REQUEST(CHECK_STATUS, NULL),
	REQUEST(START_ENGINEERING, NULL),
	REQUEST(SET_ACTIVE_OIS, set_active_ois),
	REQUEST(GET_HALL, get_hall),
	REQUEST(READ_STATUS, read_status),
	REQUEST(READ_FLASH, read_flash),
	REQUEST(SET_ZOOM_ACTIVE_OIS, NULL),
};

const struct ois_request *ois_request_find(u32 code)
{
	int i;

	for (i = 0; i < ARRAY_SIZE(requests); i++)
		if (requests[i].code == code)
			return &requests[i];
	return NULL;
}

const struct ois_request *ois_request_named(const char *name)
{
	int i;

	for (i = 0; i < ARRAY_SIZE(requests); i++)
		if (!strcmp(requests[i].name, name))
			return &requests[i];
	return NULL;
}

int ois_controller_init(struct ois_controller *controller, const char *entity)
{
	int axis;

	controller->calibration = ois_calibration_find(entity);
	controller->gain = controller->calibration->gain;
	controller->distance_mm = THOUSAND;
	controller->moved_us = now_us();
	for (axis = 0; axis < OIS_AXES; axis++)
		controller->moved_from[axis] = center(controller, axis);
	return ois_calibration_flash(controller->calibration,
				     &controller->flash);
}

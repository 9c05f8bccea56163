// SPDX-License-Identifier: GPL-2.0-only
/*
 * The hand that shakes: a few sine waves, functions of time alone.
 */
#include <linux/bug.h>
#include <linux/fixp-arith.h>
#include <linux/kernel.h>
#include <linux/math64.h>
#include <linux/time64.h>

#include "ois_virtual.h"

#define TURN BIT(16) /* a whole turn of a phase */

struct wave {
	u32 hz;
	s32 height; /* thousandths of a degree */
};

/* Sway of arms and trunk, and physiological tremor; by axis. */
static const struct wave waves[OIS_AXES][2] = {
	{ { 1, 300 }, { 10, 20 } },
	{ { 2, 180 }, { 9, 24 } },
};

/* The same that an angle of one wave is to its rate: 2 pi * hz / 1000 degrees
 * per second for each thousandth of a degree, and 16.400 raw counts for each
 * degree per second.
 */
#define RATE_NUMERATOR 103044
#define RATE_DENOMINATOR 1000000

static const struct wave shift_wave = { 1, 500 }; /* height in um */

static s64 sine(const struct wave *wave, s64 now_us, u32 ahead)
{
	s32 in_second;
	u32 phase;

	div_s64_rem(now_us, USEC_PER_SEC, &in_second);
	phase = div_u64((u64)in_second * wave->hz * TURN, USEC_PER_SEC);
	phase = (phase + ahead) % TURN;
	return (s64)wave->height * fixp_sin32_rad(phase, TURN) >> 31;
}

/* Angle by which the camera has turned, in thousandths of a degree. */
s32 ois_shake_angle(int axis, s64 now_us)
{
	s64 sum = 0;
	int i;

	for (i = 0; i < ARRAY_SIZE(waves[axis]); i++)
		sum += sine(&waves[axis][i], now_us, 0);
	return ois_shake ? sum : 0;
}

/* The rate of that angle, in raw counts of the gyro. */
s32 ois_shake_rate(int axis, s64 now_us)
{
	s64 sum = 0;
	int i;

	for (i = 0; i < ARRAY_SIZE(waves[axis]); i++)
		sum += sine(&waves[axis][i], now_us, TURN / 4) *
		       waves[axis][i].hz;
	sum = div_s64(sum * RATE_NUMERATOR, RATE_DENOMINATOR);
	return ois_shake ? sum : 0;
}

/* By how much the camera is shifted across an axis, in um. */
s32 ois_shift(int axis, s64 now_us)
{
	return ois_shake ? sine(&shift_wave, now_us, axis * TURN / 4) : 0;
}

/* The angle under which an object sees a small shift, in thousandths of a
 * degree: um per mm are thousandths, and a radian is 57.296 degrees.
 */
s32 ois_angle_of_shift(s32 shift_um, s32 distance_mm)
{
	return div64_s64((s64)shift_um * 57296, (s64)distance_mm * 1000);
}

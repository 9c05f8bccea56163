// SPDX-License-Identifier: GPL-2.0-only
/*
 * The lenses there are: those of the modules in phone/modules/. A session on
 * either kernel is given the same answers; tests/vm compares them.
 */
#include <linux/kernel.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "ois_virtual.h"

#define PAIR(x, y) ((u32)(y) << 16 | (x))

static const struct ois_calibration lenses[] = {
	{
		.driver = "dw9786",
		.gain.value_xi = 1331439862,
		.gain.value_yi = 1288490189,
		.hall_info = { 64, -40, PAIR(2010, 1985), PAIR(820, 770) },
		.hall_per_degree = { 1058824, 1037037 },
		.limit_angle = 1600,
		.gyro_bias = { -6, -2, 2 },
		.flash_base = 0x5000,
		.flash_length = 768,
		.flash_seed = 9786,
	},
	{
		.driver = "dw9781",
		.gain.value_xf = 0x40139581, /* 2.306 */
		.gain.value_yf = 0x40101062, /* 2.251 */
		.hall_info = { -118, 86, PAIR(2500, 2640),
			       PAIR(62800, 62950) },
		.hall_per_degree = { 2121520, 2070920 },
		.limit_angle = 1400,
		.gyro_bias = { 2, 5, -4 },
		.flash_base = 0x2000,
		.flash_length = 509,
		.flash_seed = 9781,
	},
	{
		.driver = "korvas4sw",
		.gain.value_xi = 6500,
		.gain.value_yi = 6420,
		.hall_info = { 2048, 2039, PAIR(3180, 3166), PAIR(920, 908) },
		.hall_per_degree = { 1057000, 1044000 },
		.limit_angle = 1100,
		.gyro_bias = { -4, 7, 1 },
		.flash_base = 0x8000,
		.flash_length = 1536,
		.flash_seed = 4202,
	},
};

/* An unknown lens is like the first. */
const struct ois_calibration *ois_calibration_find(const char *entity)
{
	int i;

	for (i = 0; i < ARRAY_SIZE(lenses); i++)
		if (strstarts(entity, lenses[i].driver))
			return &lenses[i];
	return &lenses[0];
}

/* The Mersenne Twister MT19937, with the parameters of its authors: flash
 * bytes are the low bytes of its first numbers, as those of the modules.
 */
#define MT_WORDS 624
#define MT_AHEAD 397

static void twister_seed(u32 *words, u32 seed)
{
	int i;

	words[0] = seed;
	for (i = 1; i < MT_WORDS; i++)
		words[i] = 1812433253U *
				   (words[i - 1] ^ words[i - 1] >> 30) + i;
}

static void twister_turn(u32 *words)
{
	int i;

	for (i = 0; i < MT_WORDS; i++) {
		u32 next = words[(i + 1) % MT_WORDS];
		u32 joined = (words[i] & 0x80000000U) | (next & 0x7fffffffU);

		words[i] = words[(i + MT_AHEAD) % MT_WORDS] ^ joined >> 1 ^
			   (joined & 1 ? 0x9908b0dfU : 0);
	}
}

static u32 twister_tempered(u32 word)
{
	word ^= word >> 11;
	word ^= word << 7 & 0x9d2c5680U;
	word ^= word << 15 & 0xefc60000U;
	return word ^ word >> 18;
}

int ois_calibration_flash(const struct ois_calibration *calibration,
			  struct ois_ioc_flash *flash)
{
	u32 *words = kmalloc_array(MT_WORDS, sizeof(*words), GFP_KERNEL);
	u32 i;

	if (!words)
		return -ENOMEM;
	twister_seed(words, calibration->flash_seed);
	flash->base = calibration->flash_base;
	flash->length = calibration->flash_length;
	for (i = 0; i < flash->length; i++) {
		if (i % MT_WORDS == 0)
			twister_turn(words);
		flash->data[i] = twister_tempered(words[i % MT_WORDS]);
	}
	kfree(words);
	return 0;
}

/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * A virtual OIS controller behind a lens sub-device.
 *
 * main.c         parameters, platform devices and their driver
 * graph.c        a media device with its entities
 * lens.c         the lens sub-device: from request to controller
 * controller.c   what each request does
 * motion.c       the hand that shakes
 * calibration.c  the lenses there are
 * debugfs.c      a lens's folder; log.c and knobs.c what lies in it
 */
#ifndef OIS_VIRTUAL_H
#define OIS_VIRTUAL_H

#include <linux/list.h>
#include <linux/mutex.h>
#include <linux/seq_file.h>
#include <linux/types.h>
#include <media/media-device.h>
#include <media/v4l2-device.h>
#include <media/v4l2-subdev.h>

#include "ois_ioctl.h"

#define OIS_VIRTUAL_NAME "ois_virtual"
#define OIS_AXES 2
#define OIS_MAX_LENSES 8

/* calibration.c */

/* What was measured of a lens when it was made, and what it can do. */
struct ois_calibration {
	const char *driver; /* the beginning of its entity's name */
	struct ois_ioc_gain gain;
	struct ois_ioc_hall_info hall_info;
	s32 hall_per_degree[OIS_AXES]; /* thousandths of a hall count */
	s32 limit_angle; /* thousandths of a degree, either way */
	s16 gyro_bias[3]; /* raw counts */
	u32 flash_base;
	u32 flash_length;
	u32 flash_seed;
};

const struct ois_calibration *ois_calibration_find(const char *entity);
int ois_calibration_flash(const struct ois_calibration *calibration,
			  struct ois_ioc_flash *flash);

/* motion.c */

s32 ois_shake_angle(int axis, s64 now_us);
s32 ois_shake_rate(int axis, s64 now_us);
s32 ois_shift(int axis, s64 now_us);
s32 ois_angle_of_shift(s32 shift_um, s32 distance_mm);

/* controller.c */

struct ois_controller {
	const struct ois_calibration *calibration;
	struct ois_ioc_gain gain;
	struct ois_ioc_flash flash;
	s32 mode;
	bool held; /* at the target, until the next mode */
	s32 target[OIS_AXES]; /* hall counts */
	struct ois_ioc_active_ois active;
	bool acc_compensation;
	s32 distance_mm;
	s16 gyro_offset[OIS_AXES]; /* raw counts */
	/* Where the lens was when it was last told to move. */
	s64 moved_us;
	s32 moved_from[OIS_AXES];
};

/* A request that the controller knows. */
struct ois_request {
	u32 code;
	const char *name;
	/* 0 or a negative errno; without one nothing is left behind. */
	int (*handle)(struct ois_controller *controller, void *record);
};

const struct ois_request *ois_request_find(u32 code);
const struct ois_request *ois_request_named(const char *name);
int ois_controller_init(struct ois_controller *controller, const char *entity);

/* log.c */

struct ois_log {
	struct list_head entries;
	size_t size; /* bytes that the entries take */
	u64 last; /* number of the entry written last */
};

struct ois_log_entry;

void ois_log_init(struct ois_log *log);
struct ois_log_entry *ois_log_begin(struct ois_log *log, u32 code,
				    const void *in, size_t in_size);
void ois_log_end(struct ois_log *log, struct ois_log_entry *entry, int result,
		 const void *out, size_t out_size);
void ois_log_clear(struct ois_log *log);

/* knobs.c */

enum ois_knob_kind { OIS_KNOB_FAIL, OIS_KNOB_DELAY, OIS_KNOB_ANSWER };

/* Beside request codes: any request, and the opening of the node. */
#define OIS_ANY_REQUEST 0
#define OIS_OPEN 1

struct ois_knob {
	struct list_head list;
	enum ois_knob_kind kind;
	u32 code;
	u32 value; /* errno, or us */
	u32 count; /* how often it strikes; 0 for always */
	u32 after; /* how often it lets pass before */
	u32 reached;
	u32 struck;
	size_t size;
	u8 bytes[]; /* of the answer */
};

const struct ois_knob *ois_knobs_strike(struct list_head *knobs,
					enum ois_knob_kind kind, u32 code);
int ois_knobs_write(struct list_head *knobs, struct mutex *lock, char *text);
void ois_knobs_show(struct list_head *knobs, struct seq_file *out);
void ois_knobs_clear(struct list_head *knobs);

/* graph.c */

/* A media device. It lives until the last open node of it is closed. */
struct ois_media {
	struct media_device mdev;
	struct v4l2_device v4l2_dev;
	struct list_head lenses;
	struct list_head bystanders;
};

struct ois_media *ois_media_create(struct device *dev, const char *model,
				   const char *const *lenses, int count);
void ois_media_destroy(struct ois_media *media);

/* lens.c */

struct ois_lens {
	struct v4l2_subdev sd;
	struct list_head list;
	struct dentry *folder;
	struct mutex lock; /* of what follows */
	struct ois_controller controller;
	struct ois_log log;
	struct list_head knobs;
};

struct ois_lens *ois_lens_create(const char *name);
void ois_lens_free(struct ois_lens *lens);

/* debugfs.c */

void ois_debugfs_init(void);
void ois_debugfs_exit(void);
void ois_debugfs_name(const char *lens, char folder[OIS_NAME_SIZE]);
void ois_debugfs_add(struct ois_lens *lens);
void ois_debugfs_remove(struct ois_lens *lens);
extern const struct file_operations ois_log_fops;

/* main.c */

extern bool ois_flash_follow_pointer;
extern bool ois_shake;

#endif /* OIS_VIRTUAL_H */

// SPDX-License-Identifier: GPL-2.0-only
/*
 * The lens sub-device: requests come in here, each with its record as the V4L2
 * core copied it, or, from a 32-bit program, as this copies it.
 */
#include <linux/compat.h>
#include <linux/delay.h>
#include <linux/slab.h>
#include <linux/uaccess.h>

#include "ois_virtual.h"

static struct ois_lens *lens_of(struct v4l2_subdev *sd)
{
	return container_of(sd, struct ois_lens, sd);
}

/* Outside the lock, so that others can pass meanwhile. */
static void wait_as_told(struct ois_lens *lens, u32 code)
{
	const struct ois_knob *delay;
	u32 us = 0;

	mutex_lock(&lens->lock);
	delay = ois_knobs_strike(&lens->knobs, OIS_KNOB_DELAY, code);
	if (delay)
		us = delay->value;
	mutex_unlock(&lens->lock);
	if (us)
		fsleep(us);
}

static int answer(struct ois_lens *lens, const struct ois_request *request,
		  u32 code, void *record)
{
	const struct ois_knob *knob;
	int result = -ENOTTY;

	knob = ois_knobs_strike(&lens->knobs, OIS_KNOB_FAIL, code);
	if (knob)
		return -(int)knob->value;
	if (request)
		result = request->handle ?
			 request->handle(&lens->controller, record) : 0;
	knob = ois_knobs_strike(&lens->knobs, OIS_KNOB_ANSWER, code);
	if (knob) {
		memcpy(record, knob->bytes, knob->size);
		result = 0;
	}
	return result;
}

static long lens_ioctl(struct v4l2_subdev *sd, unsigned int code, void *record)
{
	const struct ois_request *request = ois_request_find(code);
	struct ois_lens *lens = lens_of(sd);
	/* Of a request that is not known, the record may not be one. */
	size_t size = request ? _IOC_SIZE(code) : 0;
	struct ois_log_entry *entry;
	bool answered;
	int result;

	wait_as_told(lens, code);
	mutex_lock(&lens->lock);
	entry = ois_log_begin(&lens->log, code, record, size);
	result = answer(lens, request, code, record);
	answered = result >= 0 && _IOC_DIR(code) & _IOC_READ;
	ois_log_end(&lens->log, entry, result, record, answered ? size : 0);
	mutex_unlock(&lens->lock);
	return result;
}

#ifdef CONFIG_COMPAT
/* Records are the same for 32-bit programs, but the core leaves the copying to
 * whoever takes their requests.
 */
static long lens_compat_ioctl(struct v4l2_subdev *sd, unsigned int code,
			      unsigned long argument)
{
	void __user *user = compat_ptr(argument);
	size_t size = _IOC_SIZE(code);
	void *record = NULL;
	long result;

	if (_IOC_DIR(code) != _IOC_NONE) {
		record = kzalloc(size, GFP_KERNEL);
		if (!record)
			return -ENOMEM;
	}
	if (_IOC_DIR(code) & _IOC_WRITE && copy_from_user(record, user, size)) {
		kfree(record);
		return -EFAULT;
	}
	result = lens_ioctl(sd, code, record);
	if (result >= 0 && _IOC_DIR(code) & _IOC_READ &&
	    copy_to_user(user, record, size))
		result = -EFAULT;
	kfree(record);
	return result;
}
#endif

static int lens_open(struct v4l2_subdev *sd, struct v4l2_subdev_fh *fh)
{
	struct ois_lens *lens = lens_of(sd);
	const struct ois_knob *knob;
	int result = 0;

	wait_as_told(lens, OIS_OPEN);
	mutex_lock(&lens->lock);
	knob = ois_knobs_strike(&lens->knobs, OIS_KNOB_FAIL, OIS_OPEN);
	if (knob)
		result = -(int)knob->value;
	mutex_unlock(&lens->lock);
	return result;
}

static const struct v4l2_subdev_core_ops core_ops = {
	.ioctl = lens_ioctl,
#ifdef CONFIG_COMPAT
	.compat_ioctl32 = lens_compat_ioctl,
#endif
};

static const struct v4l2_subdev_ops lens_ops = {
	.core = &core_ops,
};

static const struct v4l2_subdev_internal_ops internal_ops = {
	.open = lens_open,
};

struct ois_lens *ois_lens_create(const char *name)
{
	struct ois_lens *lens = kzalloc(sizeof(*lens), GFP_KERNEL);
	int error;

	if (!lens)
		return ERR_PTR(-ENOMEM);
	v4l2_subdev_init(&lens->sd, &lens_ops);
	lens->sd.internal_ops = &internal_ops;
	mutex_init(&lens->lock);
	ois_log_init(&lens->log);
	INIT_LIST_HEAD(&lens->knobs);
	error = ois_controller_init(&lens->controller, name);
	if (error) {
		kfree(lens);
		return ERR_PTR(error);
	}
	return lens;
}

void ois_lens_free(struct ois_lens *lens)
{
	ois_log_clear(&lens->log);
	ois_knobs_clear(&lens->knobs);
	mutex_destroy(&lens->lock);
	kfree(lens);
}

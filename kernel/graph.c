// SPDX-License-Identifier: GPL-2.0-only
/*
 * A media device: a manager, a sensor, and the lenses, amid others that are not
 * the one that is looked for.
 *
 * Everything is freed when the last user has gone: v4l2_device_unregister()
 * still looks at sub-devices whose nodes it has just released, so the device's
 * release is the place, not theirs.
 */
#include <linux/slab.h>
#include <linux/string.h>

#include "ois_virtual.h"

#define MAX_BYSTANDERS 4

/* A sub-device that answers no private request. */
struct bystander {
	struct v4l2_subdev sd;
	struct list_head list;
};

static const struct v4l2_subdev_ops bystander_ops = {};

static int register_entity(struct ois_media *media, struct v4l2_subdev *sd,
			   const char *name, u32 function)
{
	sd->owner = THIS_MODULE;
	sd->flags |= V4L2_SUBDEV_FL_HAS_DEVNODE;
	sd->dev = media->mdev.dev;
	sd->entity.function = function;
	strscpy(sd->name, name, sizeof(sd->name));
	return v4l2_device_register_subdev(&media->v4l2_dev, sd);
}

static int add_bystander(struct ois_media *media, const char *name, u32 function)
{
	struct bystander *bystander = kzalloc(sizeof(*bystander), GFP_KERNEL);

	if (!bystander)
		return -ENOMEM;
	list_add_tail(&bystander->list, &media->bystanders);
	v4l2_subdev_init(&bystander->sd, &bystander_ops);
	return register_entity(media, &bystander->sd, name, function);
}

static int add_lens(struct ois_media *media, const char *name)
{
	struct ois_lens *lens = ois_lens_create(name);
	int error;

	if (IS_ERR(lens))
		return PTR_ERR(lens);
	list_add_tail(&lens->list, &media->lenses);
	error = register_entity(media, &lens->sd, name, MEDIA_ENT_F_LENS);
	if (!error)
		ois_debugfs_add(lens);
	return error;
}

/* A flash whose name begins like that of the lens: one who looks at names alone
 * takes it for the lens.
 */
static int add_flash(struct ois_media *media, const char *lens)
{
	char name[OIS_NAME_SIZE];

	snprintf(name, sizeof(name), "%.*s flash", (int)strcspn(lens, " "), lens);
	return add_bystander(media, name, MEDIA_ENT_F_FLASH);
}

/* In the order in which they are enumerated. */
static int add_camera(struct ois_media *media, const char *const *lenses,
		      int count)
{
	int error, i;

	error = add_bystander(media, "nxa-af-manager",
			      MEDIA_ENT_F_VID_IF_BRIDGE);
	if (!error)
		error = add_bystander(media, "nxa-sensor 2-0010",
				      MEDIA_ENT_F_CAM_SENSOR);
	if (!error)
		error = add_flash(media, lenses[0]);
	for (i = 0; !error && i < count; i++)
		error = add_lens(media, lenses[i]);
	if (!error)
		error = add_bystander(media, "nxa-focus 5-0018",
				      MEDIA_ENT_F_LENS);
	return error;
}

static void release(struct v4l2_device *v4l2_dev)
{
	struct ois_media *media =
		container_of(v4l2_dev, struct ois_media, v4l2_dev);
	struct bystander *bystander, *next_bystander;
	struct ois_lens *lens, *next_lens;

	list_for_each_entry_safe(lens, next_lens, &media->lenses, list) {
		media_entity_cleanup(&lens->sd.entity);
		ois_lens_free(lens);
	}
	list_for_each_entry_safe(bystander, next_bystander, &media->bystanders,
				 list) {
		media_entity_cleanup(&bystander->sd.entity);
		kfree(bystander);
	}
	media_device_cleanup(&media->mdev);
	kfree(media);
}

static struct ois_media *allocate(struct device *dev, const char *model)
{
	struct ois_media *media = kzalloc(sizeof(*media), GFP_KERNEL);
	int error;

	if (!media)
		return ERR_PTR(-ENOMEM);
	INIT_LIST_HEAD(&media->lenses);
	INIT_LIST_HEAD(&media->bystanders);
	media->mdev.dev = dev;
	strscpy(media->mdev.model, model, sizeof(media->mdev.model));
	/* Else the core asks the device's driver, which it loses first. */
	strscpy(media->mdev.driver_name, OIS_VIRTUAL_NAME,
		sizeof(media->mdev.driver_name));
	snprintf(media->mdev.bus_info, sizeof(media->mdev.bus_info),
		 "platform:%s", dev_name(dev));
	media_device_init(&media->mdev);
	media->v4l2_dev.mdev = &media->mdev;
	media->v4l2_dev.release = release;
	error = v4l2_device_register(dev, &media->v4l2_dev);
	if (error) {
		release(&media->v4l2_dev);
		return ERR_PTR(error);
	}
	return media;
}

/**
 * ois_media_create() - registers a media device with its entities
 * @dev: the device that it belongs to
 * @model: its model
 * @lenses: names of the lens entities; the device of a camera has some
 * @count: how many; 0 for a device that has nothing to do with lenses
 *
 * Return: the device, or an error pointer
 */
struct ois_media *ois_media_create(struct device *dev, const char *model,
				   const char *const *lenses, int count)
{
	struct ois_media *media = allocate(dev, model);
	int error;

	if (IS_ERR(media))
		return media;
	if (count)
		error = add_camera(media, lenses, count);
	else
		error = add_bystander(media, model, MEDIA_ENT_F_VID_IF_BRIDGE);
	if (!error)
		error = media_device_register(&media->mdev);
	if (!error)
		error = v4l2_device_register_subdev_nodes(&media->v4l2_dev);
	if (error) {
		ois_media_destroy(media);
		return ERR_PTR(error);
	}
	return media;
}

/* Closes the way to a node before anything behind it goes: the core looks at
 * what is registered with the media device when a node is opened.
 */
static int unregister_nodes(struct ois_media *media,
			    struct video_device **nodes)
{
	struct v4l2_subdev *sd;
	int count = 0;

	v4l2_device_for_each_subdev(sd, &media->v4l2_dev) {
		if (!sd->devnode)
			continue;
		/* The core looks at it once more, and its last user may go. */
		get_device(&sd->devnode->dev);
		nodes[count++] = sd->devnode;
		video_unregister_device(sd->devnode);
	}
	return count;
}

/**
 * ois_media_destroy() - takes the media device away
 * @media: the device; freed at once, or when the last open node is closed
 */
void ois_media_destroy(struct ois_media *media)
{
	struct video_device *nodes[OIS_MAX_LENSES + MAX_BYSTANDERS];
	struct ois_lens *lens;
	int count;

	list_for_each_entry(lens, &media->lenses, list)
		ois_debugfs_remove(lens);
	count = unregister_nodes(media, nodes);
	media_device_unregister(&media->mdev);
	v4l2_device_unregister(&media->v4l2_dev);
	while (count > 0)
		put_device(&nodes[--count]->dev);
	v4l2_device_put(&media->v4l2_dev);
}

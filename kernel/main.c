// SPDX-License-Identifier: GPL-2.0-only
/*
 * Parameters, and a platform device for each media device, so that each can be
 * unbound and bound again.
 */
#include <linux/module.h>
#include <linux/moduleparam.h>
#include <linux/platform_device.h>
#include <linux/string.h>
#include <linux/version.h>

#include "ois_virtual.h"

#define MAX_OTHERS 30

static char *model = OIS_MEDIA_MODEL;
module_param(model, charp, 0444);
MODULE_PARM_DESC(model, "model of the media device with the lenses (default \""
		 OIS_MEDIA_MODEL "\")");

static char *lenses[OIS_MAX_LENSES] = { "dw9786 4-0069" };
static int lens_count = 1;
module_param_array_named(lens, lenses, charp, &lens_count, 0444);
MODULE_PARM_DESC(lens, "names of the lens entities, with a controller each; those that begin with dw9786, dw9781 or korvas4sw are calibrated like these, others like the first (default \"dw9786 4-0069\")");

static unsigned int others = 2;
module_param(others, uint, 0444);
MODULE_PARM_DESC(others, "number of other media devices, half of them before that with the lenses (default 2)");

bool ois_flash_follow_pointer;
module_param_named(flash_follow_pointer, ois_flash_follow_pointer, bool, 0644);
MODULE_PARM_DESC(flash_follow_pointer, "READ_FLASH fills the buffer to which its record points instead of the record (default N)");

bool ois_shake = true;
module_param_named(shake, ois_shake, bool, 0644);
MODULE_PARM_DESC(shake, "a hand shakes the camera (default Y)");

static struct platform_device *devices[1 + MAX_OTHERS];

static int ois_probe(struct platform_device *pdev)
{
	struct ois_media *media;

	if (pdev->id == PLATFORM_DEVID_NONE)
		media = ois_media_create(&pdev->dev, model,
					 (const char *const *)lenses, lens_count);
	else
		media = ois_media_create(&pdev->dev, pdev->id % 2 ?
					 "nxa_codec" : "nxa_camera_isp", NULL, 0);
	if (IS_ERR(media))
		return PTR_ERR(media);
	platform_set_drvdata(pdev, media);
	return 0;
}

static void ois_remove(struct platform_device *pdev)
{
	ois_media_destroy(platform_get_drvdata(pdev));
}

#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 11, 0)
static int ois_remove_int(struct platform_device *pdev)
{
	ois_remove(pdev);
	return 0;
}

#define ois_remove ois_remove_int
#endif

static struct platform_driver ois_driver = {
	.probe = ois_probe,
	.remove = ois_remove,
	.driver.name = OIS_VIRTUAL_NAME,
};

static int check_name(const char *parameter, const char *name)
{
	size_t length = strlen(name);

	if (length > 0 && length < OIS_NAME_SIZE)
		return 0;
	pr_err(OIS_VIRTUAL_NAME ": %s \"%s\" has %zu characters, expected 1 to %d\n",
	       parameter, name, length, OIS_NAME_SIZE - 1);
	return -EINVAL;
}

/* A folder is named like its lens. */
static int check_distinct(int lens)
{
	char folder[OIS_NAME_SIZE], other[OIS_NAME_SIZE];
	int i;

	ois_debugfs_name(lenses[lens], folder);
	for (i = 0; i < lens; i++) {
		ois_debugfs_name(lenses[i], other);
		if (strcmp(folder, other))
			continue;
		pr_err(OIS_VIRTUAL_NAME ": lens \"%s\" is named twice\n",
		       lenses[i]);
		return -EINVAL;
	}
	return 0;
}

static int check_parameters(void)
{
	int error = check_name("model", model);
	int i;

	for (i = 0; !error && i < lens_count; i++) {
		error = check_name("lens", lenses[i]);
		if (!error)
			error = check_distinct(i);
	}
	if (!error && others > MAX_OTHERS) {
		pr_err(OIS_VIRTUAL_NAME ": others is %u, expected 0 to %d\n",
		       others, MAX_OTHERS);
		error = -EINVAL;
	}
	return error;
}

static void remove_devices(void)
{
	int i;

	for (i = ARRAY_SIZE(devices) - 1; i >= 0; i--)
		platform_device_unregister(devices[i]);
}

static int add_device(int slot, int id)
{
	struct platform_device *device =
		platform_device_register_simple(OIS_VIRTUAL_NAME, id, NULL, 0);

	if (IS_ERR(device))
		return PTR_ERR(device);
	devices[slot] = device;
	return 0;
}

/* The device with the lenses stands in the middle. */
static int add_devices(void)
{
	int slot, id, error = 0;
	int own = DIV_ROUND_UP(others, 2);

	for (slot = 0, id = 0; !error && slot <= others; slot++)
		error = add_device(slot, slot == own ? PLATFORM_DEVID_NONE : id++);
	return error;
}

static int __init ois_init(void)
{
	int error = check_parameters();

	if (error)
		return error;
	ois_debugfs_init();
	error = platform_driver_register(&ois_driver);
	if (error)
		goto no_driver;
	error = add_devices();
	if (error)
		goto no_devices;
	return 0;

no_devices:
	remove_devices();
	platform_driver_unregister(&ois_driver);
no_driver:
	ois_debugfs_exit();
	return error;
}

static void __exit ois_exit(void)
{
	remove_devices();
	platform_driver_unregister(&ois_driver);
	ois_debugfs_exit();
}

module_init(ois_init);
module_exit(ois_exit);

MODULE_DESCRIPTION("Virtual OIS controller behind a lens sub-device");
MODULE_LICENSE("GPL");

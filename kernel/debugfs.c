// SPDX-License-Identifier: GPL-2.0-only
/*
 * Each lens has a folder in ois_virtual/ of debugfs, named like its entity with
 * '-' for what is no good in paths. It is gone when the device is unbound.
 */
#include <linux/debugfs.h>
#include <linux/slab.h>
#include <linux/string.h>
#include <linux/uaccess.h>

#include "ois_virtual.h"

#define LONGEST_KNOBS 16384

static struct dentry *root;

static int knobs_show(struct seq_file *out, void *unused)
{
	struct ois_lens *lens = out->private;

	mutex_lock(&lens->lock);
	ois_knobs_show(&lens->knobs, out);
	mutex_unlock(&lens->lock);
	return 0;
}

static int knobs_open(struct inode *inode, struct file *file)
{
	return single_open(file, knobs_show, inode->i_private);
}

static ssize_t knobs_write(struct file *file, const char __user *text,
			   size_t size, loff_t *position)
{
	struct ois_lens *lens = file_inode(file)->i_private;
	char *copy;
	int error;

	if (size > LONGEST_KNOBS)
		return -EINVAL;
	copy = memdup_user_nul(text, size);
	if (IS_ERR(copy))
		return PTR_ERR(copy);
	error = ois_knobs_write(&lens->knobs, &lens->lock, copy);
	kfree(copy);
	return error ? error : size;
}

static const struct file_operations knobs_fops = {
	.owner = THIS_MODULE,
	.open = knobs_open,
	.read = seq_read,
	.write = knobs_write,
	.llseek = seq_lseek,
	.release = single_release,
};

void ois_debugfs_init(void)
{
	root = debugfs_create_dir(OIS_VIRTUAL_NAME, NULL);
}

void ois_debugfs_exit(void)
{
	debugfs_remove_recursive(root);
}

/* Of a lens's folder. */
void ois_debugfs_name(const char *lens, char folder[OIS_NAME_SIZE])
{
	strscpy(folder, lens, OIS_NAME_SIZE);
	strreplace(folder, ' ', '-');
	strreplace(folder, '/', '-');
}

void ois_debugfs_add(struct ois_lens *lens)
{
	char folder[OIS_NAME_SIZE];

	ois_debugfs_name(lens->sd.name, folder);
	lens->folder = debugfs_create_dir(folder, root);
	debugfs_create_file("log", 0600, lens->folder, lens, &ois_log_fops);
	debugfs_create_file("knobs", 0600, lens->folder, lens, &knobs_fops);
}

void ois_debugfs_remove(struct ois_lens *lens)
{
	debugfs_remove_recursive(lens->folder);
	lens->folder = NULL;
}

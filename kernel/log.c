// SPDX-License-Identifier: GPL-2.0-only
/*
 * The log of the requests that reached a lens: the newest ones, as many as fit.
 *
 *     NUMBER SECONDS PID REQUEST in BYTES out BYTES RESULT
 *
 * What is not there is "-". The time is that of CLOCK_MONOTONIC, at which the
 * controller took the request up. A missing number is an entry for which there was no memory.
 */
#include <linux/ktime.h>
#include <linux/math64.h>
#include <linux/sched.h>
#include <linux/slab.h>
#include <linux/string.h>
#include <linux/time64.h>
#include <linux/uaccess.h>

#include "ois_virtual.h"

#define LARGEST_LOG (1024 * 1024)

struct ois_log_entry {
	struct list_head list;
	u64 number;
	s64 time_us;
	pid_t pid;
	u32 code;
	int result;
	u16 in_size;
	u16 out_size;
	u8 bytes[]; /* in, and out behind it */
};

static size_t size_of(const struct ois_log_entry *entry)
{
	return sizeof(*entry) + entry->in_size + entry->out_size;
}

static void drop_oldest(struct ois_log *log)
{
	struct ois_log_entry *oldest;

	oldest = list_first_entry(&log->entries, struct ois_log_entry, list);
	list_del(&oldest->list);
	log->size -= size_of(oldest);
	kfree(oldest);
}

void ois_log_init(struct ois_log *log)
{
	INIT_LIST_HEAD(&log->entries);
}

/* NULL when there is no memory, which ois_log_end() takes as well. */
struct ois_log_entry *ois_log_begin(struct ois_log *log, u32 code,
				    const void *in, size_t in_size)
{
	struct ois_log_entry *entry;

	log->last++;
	/* Room for an answer, which is no longer than the request. */
	entry = kzalloc(sizeof(*entry) + 2 * in_size, GFP_KERNEL);
	if (!entry)
		return NULL;
	entry->number = log->last;
	entry->time_us = ktime_to_us(ktime_get());
	entry->pid = task_tgid_nr(current);
	entry->code = code;
	entry->in_size = in_size;
	memcpy(entry->bytes, in, in_size);
	return entry;
}

void ois_log_end(struct ois_log *log, struct ois_log_entry *entry, int result,
		 const void *out, size_t out_size)
{
	if (!entry)
		return;
	entry->result = result;
	entry->out_size = out_size;
	memcpy(entry->bytes + entry->in_size, out, out_size);
	list_add_tail(&entry->list, &log->entries);
	log->size += size_of(entry);
	while (log->size > LARGEST_LOG)
		drop_oldest(log);
}

void ois_log_clear(struct ois_log *log)
{
	while (!list_empty(&log->entries))
		drop_oldest(log);
}

/* A reader's position is the number of the entry that comes next, so that it
 * goes on rightly when old ones were dropped meanwhile.
 */
static void *log_start(struct seq_file *out, loff_t *position)
{
	struct ois_lens *lens = out->private;
	struct ois_log_entry *entry;

	mutex_lock(&lens->lock);
	list_for_each_entry(entry, &lens->log.entries, list) {
		if (entry->number >= *position) {
			*position = entry->number;
			return entry;
		}
	}
	return NULL;
}

static void *log_next(struct seq_file *out, void *shown, loff_t *position)
{
	struct ois_lens *lens = out->private;
	struct ois_log_entry *entry = shown;

	*position = entry->number + 1;
	if (list_is_last(&entry->list, &lens->log.entries))
		return NULL;
	entry = list_next_entry(entry, list);
	*position = entry->number;
	return entry;
}

static void log_stop(struct seq_file *out, void *shown)
{
	struct ois_lens *lens = out->private;

	mutex_unlock(&lens->lock);
}

static void show_bytes(struct seq_file *out, const u8 *bytes, size_t size)
{
	size_t i;

	if (!size)
		seq_putc(out, '-');
	for (i = 0; i < size; i++)
		seq_printf(out, "%02x", bytes[i]);
}

static int log_show(struct seq_file *out, void *shown)
{
	const struct ois_log_entry *entry = shown;
	const struct ois_request *request = ois_request_find(entry->code);
	u32 fraction;
	u64 seconds = div_u64_rem(entry->time_us, USEC_PER_SEC, &fraction);

	seq_printf(out, "%llu %llu.%06u %d ", entry->number, seconds, fraction,
		   entry->pid);
	if (request)
		seq_puts(out, request->name);
	else
		seq_printf(out, "0x%08X", entry->code);
	seq_puts(out, " in ");
	show_bytes(out, entry->bytes, entry->in_size);
	seq_puts(out, " out ");
	show_bytes(out, entry->bytes + entry->in_size, entry->out_size);
	seq_printf(out, " %d\n", entry->result);
	return 0;
}

static const struct seq_operations log_operations = {
	.start = log_start,
	.next = log_next,
	.stop = log_stop,
	.show = log_show,
};

static int log_open(struct inode *inode, struct file *file)
{
	int error = seq_open(file, &log_operations);

	if (!error)
		((struct seq_file *)file->private_data)->private =
			inode->i_private;
	return error;
}

/* Whatever is written clears it. */
static ssize_t log_write(struct file *file, const char __user *text,
			 size_t size, loff_t *position)
{
	struct ois_lens *lens = file_inode(file)->i_private;

	mutex_lock(&lens->lock);
	ois_log_clear(&lens->log);
	mutex_unlock(&lens->lock);
	return size;
}

const struct file_operations ois_log_fops = {
	.owner = THIS_MODULE,
	.open = log_open,
	.read = seq_read,
	.write = log_write,
	.llseek = seq_lseek,
	.release = seq_release,
};

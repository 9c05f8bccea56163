// SPDX-License-Identifier: GPL-2.0-only
/*
 * What is armed to make a lens misbehave. A line each:
 *
 *     fail REQUEST ERRNO [COUNT [AFTER]]      fails, and changes nothing
 *     delay REQUEST MICROSECONDS [COUNT [AFTER]]
 *     answer REQUEST BYTES [COUNT [AFTER]]    what comes back begins with them
 *     clear                                   disarms all
 *
 * REQUEST is a name, a code such as 0xC00456C3, * for all requests, or OPEN.
 * It strikes COUNT times, 0 being always, once it was reached AFTER times.
 */
#include <linux/ctype.h>
#include <linux/errno.h>
#include <linux/kernel.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "ois_virtual.h"

#define LONGEST_DELAY_US 10000000
#define MOST_KNOBS 64

static const char * const kinds[] = {
	[OIS_KNOB_FAIL] = "fail",
	[OIS_KNOB_DELAY] = "delay",
	[OIS_KNOB_ANSWER] = "answer",
};

#define ERRNO(name) { name, #name }

static const struct {
	int number;
	const char *name;
} errnos[] = {
	ERRNO(EPERM),	ERRNO(ENOENT),	  ERRNO(EINTR),	    ERRNO(EIO),
	ERRNO(ENXIO),	ERRNO(EAGAIN),	  ERRNO(ENOMEM),    ERRNO(EACCES),
	ERRNO(EFAULT),	ERRNO(EBUSY),	  ERRNO(ENODEV),    ERRNO(EINVAL),
	ERRNO(ENOTTY),	ERRNO(ENOSPC),	  ERRNO(ERANGE),    ERRNO(EPROTO),
	ERRNO(ETIMEDOUT), ERRNO(EREMOTEIO),
};

/* Counts that each was reached; one that strikes, or NULL. */
const struct ois_knob *ois_knobs_strike(struct list_head *knobs,
					enum ois_knob_kind kind, u32 code)
{
	struct ois_knob *knob, *striking = NULL;

	list_for_each_entry(knob, knobs, list) {
		bool any = knob->code == OIS_ANY_REQUEST && code != OIS_OPEN;

		if (knob->kind != kind || (knob->code != code && !any))
			continue;
		knob->reached++;
		if (striking || knob->reached <= knob->after ||
		    (knob->count && knob->struck >= knob->count))
			continue;
		knob->struck++;
		striking = knob;
	}
	return striking;
}

static int parse_kind(const char *word, enum ois_knob_kind *kind)
{
	int i;

	for (i = 0; i < ARRAY_SIZE(kinds); i++) {
		if (!strcmp(kinds[i], word)) {
			*kind = i;
			return 0;
		}
	}
	return -EINVAL;
}

static int parse_request(const char *word, u32 *code)
{
	const struct ois_request *request = ois_request_named(word);

	if (request)
		*code = request->code;
	else if (!strcmp(word, "*"))
		*code = OIS_ANY_REQUEST;
	else if (!strcmp(word, "OPEN"))
		*code = OIS_OPEN;
	else
		return strstarts(word, "0x") ? kstrtou32(word, 16, code) : -EINVAL;
	return 0;
}

static int parse_errno(const char *word, u32 *value)
{
	int i;

	for (i = 0; i < ARRAY_SIZE(errnos); i++) {
		if (!strcmp(errnos[i].name, word)) {
			*value = errnos[i].number;
			return 0;
		}
	}
	return -EINVAL;
}

static int parse_delay(const char *word, u32 *value)
{
	int error = kstrtou32(word, 10, value);

	return error ? error : *value <= LONGEST_DELAY_US ? 0 : -EINVAL;
}

/* No more bytes than come back from the request. */
static int parse_answer(const char *word, struct ois_knob *knob)
{
	size_t length = strlen(word);
	size_t i;

	knob->size = length / 2;
	if (length % 2 || !(_IOC_DIR(knob->code) & _IOC_READ) ||
	    knob->size > _IOC_SIZE(knob->code))
		return -EINVAL;
	for (i = 0; i < knob->size; i++) {
		char digits[] = { word[2 * i], word[2 * i + 1], '\0' };

		if (!isxdigit(digits[0]) || kstrtou8(digits, 16, &knob->bytes[i]))
			return -EINVAL;
	}
	return 0;
}

static int parse_value(const char *word, struct ois_knob *knob)
{
	switch (knob->kind) {
	case OIS_KNOB_FAIL:
		return parse_errno(word, &knob->value);
	case OIS_KNOB_DELAY:
		return parse_delay(word, &knob->value);
	default:
		return parse_answer(word, knob);
	}
}

/* KIND REQUEST VALUE [COUNT [AFTER]] */
static int parse_knob(char *const *words, int count, struct ois_knob *knob)
{
	int error = count < 3 ? -EINVAL : parse_kind(words[0], &knob->kind);

	if (!error)
		error = parse_request(words[1], &knob->code);
	if (!error)
		error = parse_value(words[2], knob);
	if (!error && count > 3)
		error = kstrtou32(words[3], 10, &knob->count);
	if (!error && count > 4)
		error = kstrtou32(words[4], 10, &knob->after);
	return error;
}

/* Adds what a line arms to a list; -ECANCELED for the line that clears. */
static int parse_line(char *line, struct list_head *armed)
{
	char *words[6];
	struct ois_knob *knob;
	char *word;
	int count = 0;
	int error;

	line[strcspn(line, "#")] = '\0';
	while ((word = strsep(&line, " \t"))) {
		if (!*word)
			continue;
		if (count == ARRAY_SIZE(words) - 1)
			return -EINVAL;
		words[count++] = word;
	}
	if (!count)
		return 0;
	if (count == 1 && !strcmp(words[0], "clear"))
		return -ECANCELED;
	/* An answer has two digits for each byte. */
	knob = kzalloc(sizeof(*knob) + (count > 2 ? strlen(words[2]) : 0),
		       GFP_KERNEL);
	if (!knob)
		return -ENOMEM;
	error = parse_knob(words, count, knob);
	if (error)
		kfree(knob);
	else
		list_add_tail(&knob->list, armed);
	return error;
}

static int count_of(struct list_head *knobs)
{
	struct list_head *knob;
	int count = 0;

	list_for_each(knob, knobs)
		count++;
	return count;
}

/* All lines take effect, or none. */
int ois_knobs_write(struct list_head *knobs, struct mutex *lock, char *text)
{
	LIST_HEAD(armed);
	LIST_HEAD(dropped);
	bool clears = false;
	char *line;
	int error = 0;

	while (!error && (line = strsep(&text, "\n"))) {
		error = parse_line(line, &armed);
		if (error == -ECANCELED) {
			ois_knobs_clear(&armed);
			clears = true;
			error = 0;
		}
	}
	if (!error) {
		mutex_lock(lock);
		if ((clears ? 0 : count_of(knobs)) + count_of(&armed) >
		    MOST_KNOBS)
			error = -ENOSPC;
		if (!error && clears)
			list_splice_init(knobs, &dropped);
		if (!error)
			list_splice_tail_init(&armed, knobs);
		mutex_unlock(lock);
	}
	ois_knobs_clear(&armed);
	ois_knobs_clear(&dropped);
	return error;
}

static void show_request(struct seq_file *out, u32 code)
{
	const struct ois_request *request = ois_request_find(code);

	if (request)
		seq_printf(out, " %s ", request->name);
	else if (code == OIS_ANY_REQUEST)
		seq_puts(out, " * ");
	else if (code == OIS_OPEN)
		seq_puts(out, " OPEN ");
	else
		seq_printf(out, " 0x%08X ", code);
}

static void show_value(struct seq_file *out, const struct ois_knob *knob)
{
	size_t i;

	switch (knob->kind) {
	case OIS_KNOB_FAIL:
		for (i = 0; i < ARRAY_SIZE(errnos); i++)
			if (errnos[i].number == knob->value)
				seq_puts(out, errnos[i].name);
		break;
	case OIS_KNOB_DELAY:
		seq_printf(out, "%u", knob->value);
		break;
	case OIS_KNOB_ANSWER:
		for (i = 0; i < knob->size; i++)
			seq_printf(out, "%02x", knob->bytes[i]);
		break;
	}
}

/* As they can be written again. */
void ois_knobs_show(struct list_head *knobs, struct seq_file *out)
{
	const struct ois_knob *knob;

	list_for_each_entry(knob, knobs, list) {
		seq_puts(out, kinds[knob->kind]);
		show_request(out, knob->code);
		show_value(out, knob);
		seq_printf(out, " %u %u # reached %u, struck %u\n", knob->count,
			   knob->after, knob->reached, knob->struck);
	}
}

void ois_knobs_clear(struct list_head *knobs)
{
	struct ois_knob *knob, *next;

	list_for_each_entry_safe(knob, next, knobs, list) {
		list_del(&knob->list);
		kfree(knob);
	}
}

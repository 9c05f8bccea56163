/* Sends requests to a node, one to a line of standard input, keeping it open until the input ends:
 *
 *     request [-c] NODE
 *     CODE BYTES              the record, as long as the code says
 *     CODE BYTES follow       the record's first eight bytes become the address of a buffer
 *     CODE null               there is no record
 *
 * and answers each with a line: 0 or the result, negative for an errno, and the bytes that are there afterwards - of
 * the buffer, if there is one. With -c it is a 32-bit program as far as the kernel can see. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

enum { LARGEST_RECORD = 2048, LINE_LENGTH = 2 * LARGEST_RECORD + 64, COMPAT_IOCTL = 54 };

static unsigned char record[LARGEST_RECORD]; /* below 4 GiB, in a program that is not relocatable */
static unsigned char buffer[LARGEST_RECORD];

static void fail(const char *what, const char *text) {
    fprintf(stderr, "request: %s: %s\n", what, text);
    exit(2);
}

static int compat_request(int fd, unsigned code, void *argument) {
    int result = -ENOSYS;
#ifdef __x86_64__
    __asm__ volatile("int $0x80"
                     : "=a"(result)
                     : "a"(COMPAT_IOCTL), "b"(fd), "c"(code), "d"((uint32_t)(uintptr_t)argument)
                     : "memory", "r8", "r9", "r10", "r11");
#endif
    return result;
}

static void read_bytes(const char *digits, size_t size) {
    if (strlen(digits) != 2 * size) fail("not as long as the code says", digits);
    for (size_t i = 0; i < size; ++i) {
        if (sscanf(digits + 2 * i, "%2hhx", &record[i]) != 1) fail("no bytes", digits);
    }
}

static void print_bytes(const unsigned char *bytes, size_t size) {
    for (size_t i = 0; i < size; ++i) printf("%02x", bytes[i]);
    printf("\n");
    fflush(stdout);
}

static void send(int fd, char *line, int compat) {
    char digits[LINE_LENGTH] = "", mode[16] = "";
    unsigned code = 0;
    if (sscanf(line, "%x %s %15s", &code, digits, mode) < 2) fail("expected CODE BYTES", line);
    const size_t size = _IOC_SIZE(code);
    if (size > sizeof record) fail("no such size", line);
    const int follow = strcmp(mode, "follow") == 0;
    void *argument = record;
    if (strcmp(digits, "null") == 0) {
        argument = NULL;
    } else {
        read_bytes(digits, size);
    }
    if (follow) {
        const uint64_t address = (uintptr_t)buffer;
        memset(buffer, 0, sizeof buffer);
        memcpy(record, &address, sizeof address);
    }
    int result = 0;
    if (compat) {
        result = compat_request(fd, code, argument);
    } else {
        result = ioctl(fd, code, argument);
        if (result < 0) result = -errno;
    }
    printf("%d ", result);
    print_bytes(follow ? buffer : record, size);
}

int main(int count, char **words) {
    const int compat = count > 1 && strcmp(words[1], "-c") == 0;
    if (count != 2 + compat) fail("usage", "request [-c] NODE");
    const int fd = open(words[1 + compat], O_RDWR);
    if (fd < 0) {
        printf("%d\n", -errno);
        return 1;
    }
    static char line[LINE_LENGTH];
    while (fgets(line, sizeof line, stdin) != NULL) send(fd, line, compat);
    return 0;
}

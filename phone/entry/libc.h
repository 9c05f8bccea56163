#pragma once
// libc's own functions behind the names that syscalls.cpp takes over.

#include <pthread.h>
#include <sys/types.h>

#include <cstdio>

namespace phone {

struct Libc {
    int (*open)(const char*, int, ...);
    int (*openChecked)(const char*, int);
    int (*close)(int);
    int (*ioctl)(int, unsigned long, ...);
    ssize_t (*readlink)(const char*, char*, size_t);
    ssize_t (*readlinkChecked)(const char*, char*, size_t, size_t);
    int (*usleep)(unsigned);
    FILE* (*fopen)(const char*, const char*);
    int (*fclose)(FILE*);
    int (*pthreadCreate)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    int (*pthreadJoin)(pthread_t, void**);
    int (*pthreadTryJoin)(pthread_t, void**);
    int (*pthreadSetSchedParam)(pthread_t, int, const sched_param*);
    int (*pthreadGetSchedParam)(pthread_t, int*, sched_param*);
};

// Found at the first call; usable from any thread and before main.
const Libc& libc();

}  // namespace phone

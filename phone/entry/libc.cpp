#include "entry/libc.h"

#include <dlfcn.h>

namespace phone {

namespace {

template <typename Function>
void find(Function*& function, const char* name) {
    function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

Libc findAll() {
    Libc found{};
    find(found.open, "open");
    find(found.openChecked, "__open_2");
    find(found.close, "close");
    find(found.ioctl, "ioctl");
    find(found.readlink, "readlink");
    find(found.readlinkChecked, "__readlink_chk");
    find(found.usleep, "usleep");
    find(found.fopen, "fopen");
    find(found.fclose, "fclose");
    find(found.pthreadCreate, "pthread_create");
    find(found.pthreadJoin, "pthread_join");
    find(found.pthreadTryJoin, "pthread_tryjoin_np");
    find(found.pthreadSetSchedParam, "pthread_setschedparam");
    find(found.pthreadGetSchedParam, "pthread_getschedparam");
    return found;
}

}  // namespace

const Libc& libc() {
    static const Libc found = findAll();
    return found;
}

}  // namespace phone

// Preloaded into every program that runs in the armhf sysroot (scripts/armhf-sysroot).
//
// The emulator passes waitid() to the kernel, whose result makes Qt assume that clone() supports process
// descriptors. QEMU 7.2 refuses such a clone(). A QProcess then takes -1 for its child, and its kill(-1)
// ends every process of the user. Without process descriptors Qt uses fork().

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <sys/wait.h>

typedef long (*SystemCall)(long number, ...);

__attribute__((visibility("default"))) long syscall(long number, ...)
{
    long arguments[6];
    va_list list;
    va_start(list, number);
    for (int i = 0; i < 6; ++i) {
        arguments[i] = va_arg(list, long);
    }
    va_end(list);
    if (number == SYS_waitid && arguments[0] == P_PIDFD) {
        errno = EINVAL;
        return -1;
    }
    const SystemCall next = (SystemCall)dlsym(RTLD_NEXT, "syscall");
    return next(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                arguments[5]);
}

// with_less openat2|futex|processors PROGRAM ARGUMENT...: runs a program of this word size without that system call, as
// an older kernel or a sandbox does, or with one processor. Of futex, only waits between processes fail: the C library
// makes none.
#define _GNU_SOURCE
#include <errno.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/futex.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <stddef.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#define LOAD(member) BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, member))
#define ALLOW_UNLESS(value)                                                                                            \
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 1, 0), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)

static int refuse(unsigned call, int onlyWaits) {
    struct sock_filter filter[] = {
        LOAD(arch),
        ALLOW_UNLESS(sizeof(void*) == 4 ? AUDIT_ARCH_I386 : AUDIT_ARCH_X86_64),
        LOAD(nr),
        ALLOW_UNLESS(call),
        LOAD(args[1]),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, FUTEX_WAIT, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, onlyWaits ? SECCOMP_RET_ALLOW : SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
    };
    struct sock_fprog program = {sizeof filter / sizeof *filter, filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

static int keepOneProcessor(void) {
    cpu_set_t usable, one;
    CPU_ZERO(&one);
    sched_getaffinity(0, sizeof usable, &usable);
    for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&one) == 0; i++)
        if (CPU_ISSET(i, &usable))
            CPU_SET(i, &one);
    return sched_setaffinity(0, sizeof one, &one) == 0;
}

int main(int count, char** arguments) {
    const char* what = count > 2 ? arguments[1] : "";
    if (strcmp(what, "openat2") == 0 ? refuse(SYS_openat2, 0)
        : strcmp(what, "futex") == 0 ? refuse(SYS_futex, 1)
                                     : strcmp(what, "processors") == 0 && keepOneProcessor())
        execv(arguments[2], arguments + 2);
    return 127;
}

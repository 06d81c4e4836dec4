/* The system calls, and calls of the C library that rest on them, that fail when they are told to. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "failing_calls.h"

/* Result, name, (parameters), (arguments), what it returns when it fails, the error of its own then. Their names in C
   are others: some have declarations with any number of arguments. */
#define CALL(result, name, parameters, arguments, failure, number)                                                     \
    __attribute__((visibility("default"))) result failing_##name parameters __asm__(#name);                            \
    result failing_##name parameters {                                                                                 \
        static result(*real) parameters;                                                                               \
        if (real == NULL)                                                                                              \
            *(void**)&real = dlsym(RTLD_NEXT, #name);                                                                  \
        return callFails(systemCalls, __builtin_return_address(0), number) FAILS_TOO ? failure : real arguments;       \
    }

#define FAILS_TOO
CALL(int, access, (const char* path, int mode), (path, mode), -1, EACCES)
CALL(int, chdir, (const char* path), (path), -1, EACCES)
CALL(int, dladdr, (const void* address, Dl_info* info), (address, info), 0, 0)
CALL(void*, dlopen, (const char* name, int flags), (name, flags), NULL, 0)
CALL(int, dup2, (int from, int to), (from, to), -1, EBUSY)
CALL(int, fallocate64, (int file, int mode, off64_t from, off64_t size), (file, mode, from, size), -1, ENOSPC)
CALL(int, fcntl, (int file, int command, void* argument), (file, command, argument), -1, EINVAL)
CALL(int, fcntl64, (int file, int command, void* argument), (file, command, argument), -1, EINVAL)
CALL(FILE*, fdopen, (int file, const char* mode), (file, mode), NULL, ENOMEM)
CALL(FILE*, fopen64, (const char* path, const char* mode), (path, mode), NULL, EMFILE)
CALL(pid_t, fork, (void), (), -1, EAGAIN)
CALL(char*, getcwd, (char* folder, size_t size), (folder, size), NULL, ENOENT)
CALL(int, getgrouplist, (const char* user, gid_t group, gid_t* groups, int* count), (user, group, groups, count), -1, 0)
CALL(int, gethostname, (char* name, size_t size), (name, size), -1, EPERM)
CALL(int, getlogin_r, (char* name, size_t size), (name, size), ENXIO, ENXIO)
CALL(int, getpwnam_r, (const char* name, struct passwd* user, char* text, size_t size, struct passwd** found),
     (name, user, text, size, found), EIO, EIO)
CALL(int, getpwuid_r, (uid_t id, struct passwd* user, char* text, size_t size, struct passwd** found),
     (id, user, text, size, found), EIO, EIO)
CALL(int, getrlimit64, (int what, struct rlimit64* limit), (what, limit), -1, EPERM)
CALL(int, getrusage, (int who, struct rusage* usage), (who, usage), -1, EINVAL)
CALL(int, gettimeofday, (struct timeval * now, void* zone), (now, zone), -1, EPERM)
CALL(struct tm*, localtime_r, (const time_t* seconds, struct tm* local), (seconds, local), NULL, EOVERFLOW)
CALL(int, memfd_create, (const char* name, unsigned flags), (name, flags), -1, EMFILE)
CALL(int, mkdir, (const char* path, mode_t mode), (path, mode), -1, EACCES)
CALL(void*, mmap, (void* at, size_t size, int access, int kind, int file, off_t from),
     (at, size, access, kind, file, from), MAP_FAILED, ENOMEM)
CALL(void*, mmap64, (void* at, size_t size, int access, int kind, int file, off64_t from),
     (at, size, access, kind, file, from), MAP_FAILED, ENOMEM)
CALL(int, mprotect, (void* at, size_t size, int access), (at, size, access), -1, ENOMEM)
CALL(void*, mremap, (void* at, size_t size, size_t wanted, int flags, void* to), (at, size, wanted, flags, to),
     MAP_FAILED, ENOMEM)
CALL(int, pipe2, (int* ends, int flags), (ends, flags), -1, EMFILE)
CALL(int, posix_spawn,
     (pid_t * pid, const char* path, const posix_spawn_file_actions_t* actions, const posix_spawnattr_t* attributes,
      char* const* arguments, char* const* environment),
     (pid, path, actions, attributes, arguments, environment), ENOMEM, 0)
CALL(int, posix_spawn_file_actions_adddup2, (posix_spawn_file_actions_t * actions, int from, int to),
     (actions, from, to), ENOMEM, 0)
CALL(int, pthread_attr_getstacksize, (const pthread_attr_t* attributes, size_t* size), (attributes, size), EINVAL, 0)
CALL(int, pthread_attr_init, (pthread_attr_t * attributes), (attributes), ENOMEM, 0)
CALL(int, pthread_attr_setstacksize, (pthread_attr_t * attributes, size_t size), (attributes, size), EINVAL, 0)
CALL(int, pthread_create, (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument),
     (thread, attributes, body, argument), EAGAIN, 0)
CALL(int, pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes), (mutex, attributes),
     ENOMEM, 0)
CALL(int, pthread_sigmask, (int how, const sigset_t* mask, sigset_t* old), (how, mask, old), EINVAL, EINVAL)
CALL(ssize_t, readlink, (const char* path, char* target, size_t size), (path, target, size), -1, EACCES)
CALL(int, rename, (const char* from, const char* to), (from, to), -1, EACCES)
CALL(int, rmdir, (const char* path), (path), -1, EACCES)
CALL(int, sched_getaffinity, (pid_t pid, size_t size, cpu_set_t* usable), (pid, size, usable), -1, EPERM)
CALL(int, setegid, (gid_t group), (group), -1, EPERM)
CALL(int, seteuid, (uid_t user), (user), -1, EPERM)
CALL(int, setgid, (gid_t group), (group), -1, EPERM)
CALL(int, setgroups, (size_t count, const gid_t* groups), (count, groups), -1, EPERM)
CALL(int, setrlimit64, (int what, const struct rlimit64* limit), (what, limit), -1, EPERM)
CALL(pid_t, setsid, (void), (), -1, EPERM)
CALL(int, setuid, (uid_t user), (user), -1, EPERM)
CALL(int, sigaction, (int sig, const struct sigaction* action, struct sigaction* old), (sig, action, old), -1, EINVAL)
CALL(int, socketpair, (int family, int kind, int protocol, int* sockets), (family, kind, protocol, sockets), -1, EMFILE)
CALL(int, statx, (int folder, const char* path, int flags, unsigned mask, struct statx* status),
     (folder, path, flags, mask, status), -1, EACCES)
CALL(size_t, strftime, (char* text, size_t size, const char* format, const struct tm* time), (text, size, format, time),
     0, 0)
CALL(long, syscall, (long number, long a, long b, long c, long d, long e, long f), (number, a, b, c, d, e, f), -1,
     ENOSYS)
CALL(long, sysconf, (int what), (what), -1, EINVAL)
CALL(int, uname, (struct utsname * system), (system), -1, EFAULT)
CALL(int, unlink, (const char* path), (path), -1, EACCES)

#undef FAILS_TOO
#define FAILS_TOO || callFails(interruptions, __builtin_return_address(0), EINTR)
CALL(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode), -1, EMFILE)
CALL(int, open64, (const char* path, int flags, mode_t mode), (path, flags, mode), -1, EMFILE)
CALL(int, poll, (struct pollfd * files, nfds_t count, int timeout), (files, count, timeout), -1, ENOMEM)
CALL(ssize_t, pread, (int file, void* bytes, size_t size, off_t from), (file, bytes, size, from), -1, EIO)
CALL(ssize_t, pread64, (int file, void* bytes, size_t size, off64_t from), (file, bytes, size, from), -1, EIO)
CALL(ssize_t, read, (int file, void* bytes, size_t size), (file, bytes, size), -1, EIO)
CALL(ssize_t, recv, (int file, void* bytes, size_t size, int flags), (file, bytes, size, flags), -1, EIO)
CALL(ssize_t, send, (int file, const void* bytes, size_t size, int flags), (file, bytes, size, flags), -1, EIO)
CALL(pid_t, wait, (int* status), (status), -1, ECHILD)
CALL(pid_t, waitpid, (pid_t pid, int* status, int options), (pid, status, options), -1, ECHILD)
CALL(ssize_t, write, (int file, const void* bytes, size_t size), (file, bytes, size), -1, EIO)

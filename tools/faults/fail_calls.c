/* Preloaded, makes a share of the process's system calls, set by the test, fail at random: with EMFILE, ENOSPC, EIO,
 * EINTR or EACCES if the call knows the error, or by reading or writing fewer bytes than requested. Calls that only
 * wait or release are not affected. */
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>

#include "faults.h"

__attribute__((constructor)) static void start(void)
{
    follow_faults();
}

/* A random number; the same sequence in each run of a process with one thread. */
static uint64_t next_random(void)
{
    static _Atomic uint64_t state;
    uint64_t z = atomic_fetch_add(&state, UINT64_C(0x9e3779b97f4a7c15));
    z = (z ^ (z >> 30)) * UINT64_C(0xbf58476d1ce4e5b9);
    z = (z ^ (z >> 27)) * UINT64_C(0x94d049bb133111eb);
    return z ^ (z >> 31);
}

static int is_due(void)
{
    const uint64_t rate = atomic_load(&g_faults->call_rate);
    if (rate == 0)
        return 0;
    atomic_fetch_add(&g_faults->calls, 1);
    if ((next_random() & 0xffff) >= rate)
        return 0;
    atomic_fetch_add(&g_faults->calls_failed, 1);
    return 1;
}

/* Sets errno to one of the errors at random; a 0 ends the list. */
static void set_error(const int (*errors)[5])
{
    size_t count = 0;
    while (count < 5 && (*errors)[count] != 0)
        ++count;
    errno = (*errors)[next_random() % count];
}

/* Writes to an eventfd never fail: a thread that is not woken would wait forever. */
static int is_wake_up(int fd, size_t size)
{
    struct stat status;
    return size == sizeof(uint64_t) && syscall(SYS_fstat, fd, &status) == 0 && (status.st_mode & S_IFMT) == 0;
}

static const int kOpening[5] = {EMFILE, EIO, EINTR, EACCES, ENOSPC};
static const int kMaking[5] = {ENOSPC, EIO, EACCES};
static const int kLooking[5] = {EIO, EACCES};
static const int kReading[5] = {EIO, EINTR};
static const int kWriting[5] = {EIO, EINTR, ENOSPC};
static const int kDescriptor[5] = {EMFILE};
static const int kWaiting[5] = {EINTR};
static const int kConnecting[5] = {EACCES};

/* The original function of that name. */
#define NEXT(name)                                                                                                     \
    static __typeof__(name) *next;                                                                                     \
    if (next == NULL) {                                                                                                \
        void *found = dlsym(RTLD_NEXT, #name);                                                                         \
        next = *(__typeof__(name) **)&found;                                                                           \
    }

#define FAIL(errors, result)                                                                                           \
    do {                                                                                                               \
        if (is_due()) {                                                                                                \
            set_error(&(errors));                                                                                      \
            return result;                                                                                             \
        }                                                                                                              \
    } while (0)

/* A call that fails completely, and one that may also transfer fewer bytes. */
#define CALL(name, failure, errors, ...)                                                                               \
    do {                                                                                                               \
        NEXT(name)                                                                                                     \
        FAIL(errors, failure);                                                                                         \
        return next(__VA_ARGS__);                                                                                      \
    } while (0)
#define MOVE(name, errors, ...)                                                                                        \
    do {                                                                                                               \
        NEXT(name)                                                                                                     \
        if (!is_wake_up(fd, size) && is_due()) {                                                                       \
            if (size < 2 || next_random() % 2 == 0) {                                                                  \
                set_error(&(errors));                                                                                  \
                return -1;                                                                                             \
            }                                                                                                          \
            size = 1 + next_random() % (size - 1);                                                                     \
        }                                                                                                              \
        return next(__VA_ARGS__);                                                                                      \
    } while (0)

FILE *fopen(const char *restrict path, const char *restrict mode)
{
    CALL(fopen, NULL, kOpening, path, mode);
}

FILE *fdopen(int fd, const char *mode)
{
    CALL(fdopen, NULL, kDescriptor, fd, mode);
}

DIR *opendir(const char *path)
{
    CALL(opendir, NULL, kOpening, path);
}

int unlink(const char *path)
{
    CALL(unlink, -1, kLooking, path);
}

int rename(const char *from, const char *to)
{
    CALL(rename, -1, kMaking, from, to);
}

int mkdir(const char *path, mode_t mode)
{
    CALL(mkdir, -1, kMaking, path, mode);
}

int ftruncate(int fd, off_t size)
{
    CALL(ftruncate, -1, kWriting, fd, size);
}

int stat(const char *restrict path, struct stat *restrict status)
{
    CALL(stat, -1, kLooking, path, status);
}

int lstat(const char *restrict path, struct stat *restrict status)
{
    CALL(lstat, -1, kLooking, path, status);
}

int fstat(int fd, struct stat *status)
{
    CALL(fstat, -1, kLooking, fd, status);
}

int access(const char *path, int mode)
{
    CALL(access, -1, kLooking, path, mode);
}

int statvfs(const char *restrict path, struct statvfs *restrict space)
{
    CALL(statvfs, -1, kLooking, path, space);
}

int shm_open(const char *name, int flags, mode_t mode)
{
    CALL(shm_open, -1, kOpening, name, flags, mode);
}

int socket(int domain, int type, int protocol)
{
    CALL(socket, -1, kDescriptor, domain, type, protocol);
}

int accept4(int fd, __SOCKADDR_ARG peer, socklen_t *restrict size, int flags)
{
    CALL(accept4, -1, kDescriptor, fd, peer, size, flags);
}

int connect(int fd, __CONST_SOCKADDR_ARG peer, socklen_t size)
{
    CALL(connect, -1, kConnecting, fd, peer, size);
}

int pipe2(int ends[2], int flags)
{
    CALL(pipe2, -1, kDescriptor, ends, flags);
}

int inotify_init1(int flags)
{
    CALL(inotify_init1, -1, kDescriptor, flags);
}

int inotify_add_watch(int fd, const char *path, uint32_t mask)
{
    CALL(inotify_add_watch, -1, kMaking, fd, path, mask);
}

int dup2(int from, int to)
{
    CALL(dup2, -1, kWaiting, from, to);
}

int poll(struct pollfd *fds, nfds_t count, int timeout_ms)
{
    CALL(poll, -1, kWaiting, fds, count, timeout_ms);
}

pid_t waitpid(pid_t pid, int *status, int options)
{
    CALL(waitpid, -1, kWaiting, pid, status, options);
}

ssize_t sendmsg(int fd, const struct msghdr *message, int flags)
{
    CALL(sendmsg, -1, kWriting, fd, message, flags);
}

/* Returns its error. */
int posix_fallocate(int fd, off_t offset, off_t length)
{
    CALL(posix_fallocate, ENOSPC, kWriting, fd, offset, length);
}

ssize_t read(int fd, void *buffer, size_t size)
{
    MOVE(read, kReading, fd, buffer, size);
}

ssize_t recv(int fd, void *buffer, size_t size, int flags)
{
    MOVE(recv, kReading, fd, buffer, size, flags);
}

ssize_t write(int fd, const void *buffer, size_t size)
{
    MOVE(write, kWriting, fd, buffer, size);
}

ssize_t send(int fd, const void *buffer, size_t size, int flags)
{
    MOVE(send, kWriting, fd, buffer, size, flags);
}

/* The mode is ignored unless a file is created. */
#define OPEN(name, ...)                                                                                                \
    do {                                                                                                               \
        va_list args;                                                                                                  \
        va_start(args, flags);                                                                                         \
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;                                         \
        va_end(args);                                                                                                  \
        CALL(name, -1, kOpening, __VA_ARGS__, flags, mode);                                                            \
    } while (0)

int open(const char *path, int flags, ...)
{
    OPEN(open, path);
}

int openat(int folder, const char *path, int flags, ...)
{
    OPEN(openat, folder, path);
}

// SPDX-License-Identifier: MIT
/*
 * Preloaded into the command: calls that fail as the environment says. FAIL holds rules
 * "call:part:errno:from:to" separated by blanks: the calls number `from` to `to` on names with `part` in them
 * fail. With a negative number they do not, but the signal of that number comes before them; with 0 another
 * program has put the file OTHER in the place of PLACE before. A file system
 * that is full or read-only is one for which statvfs is to tell so: "full" and "readonly" in STATVFS.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

enum { most_rules = 4 };

static int fails(const char *call, const char *name)
{
    static int counts[most_rules];
    const char *rules = getenv("FAIL");
    for (int at = 0; rules && *rules && at < most_rules; ++at) {
        char rule_call[32];
        char part[128];
        int error = 0;
        int from = 0;
        int to = 0;
        int length = 0;
        rules += strspn(rules, " ");
        if (*rules == '\0')
            break;
        if (sscanf(rules, " %31[^:]:%127[^:]:%d:%d:%d%n", rule_call, part, &error, &from, &to, &length) != 5)
            abort();
        rules += length;
        if (strcmp(rule_call, call) != 0 || !strstr(name, part))
            continue;
        ++counts[at];
        if (counts[at] < from || counts[at] > to)
            continue;
        if (error < 0) {
            raise(-error);
            continue;
        }
        if (error == 0) {
            rename(getenv("OTHER"), getenv("PLACE"));
            continue;
        }
        errno = error;
        return 1;
    }
    return 0;
}

static int fails_on(const char *call, int fd)
{
    char link[64];
    char name[1024];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ssize_t size = readlink(link, name, sizeof name - 1);
    if (size < 0)
        return 0;
    name[size] = '\0';
    return fails(call, name);
}

int openat(int folder, const char *name, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    mode_t mode = flags & O_CREAT ? va_arg(more, mode_t) : 0;
    va_end(more);
    if (fails(flags & O_CREAT ? "create" : "open", name))
        return -1;
    return (int)syscall(SYS_openat, folder, name, flags, mode);
}

int devns_lock(unsigned seconds, pid_t *holder)
{
    if (fails("lock", "machine")) {
        *holder = getppid();
        return -1;
    }
    int (*original)(unsigned, pid_t *) = (int (*)(unsigned, pid_t *))dlsym(RTLD_NEXT, "devns_lock");
    return original(seconds, holder);
}

ssize_t read(int fd, void *buffer, size_t size)
{
    return fails_on("read", fd) ? -1 : syscall(SYS_read, fd, buffer, size);
}

ssize_t write(int fd, const void *buffer, size_t size)
{
    return fails_on("write", fd) ? -1 : syscall(SYS_write, fd, buffer, size);
}

int unlinkat(int folder, const char *name, int flags)
{
    return fails("unlink", name) ? -1 : (int)syscall(SYS_unlinkat, folder, name, flags);
}

int fsync(int fd)
{
    return fails_on("fsync", fd) ? -1 : (int)syscall(SYS_fsync, fd);
}

int statvfs(const char *name, struct statvfs *info)
{
    struct statfs found;
    if (syscall(SYS_statfs, name, &found) != 0)
        return -1;
    const char *told = strstr(name, "efivars") || strstr(name, "hwplat") ? getenv("STATVFS") : NULL;
    memset(info, 0, sizeof *info);
    info->f_bsize = info->f_frsize = (unsigned long)found.f_bsize;
    info->f_blocks = info->f_bfree = info->f_bavail = found.f_blocks;
    if (told && strcmp(told, "full") == 0)
        info->f_bfree = info->f_bavail = 0;
    if (told && strcmp(told, "readonly") == 0)
        info->f_flag |= ST_RDONLY;
    return 0;
}

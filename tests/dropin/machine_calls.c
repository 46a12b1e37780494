// SPDX-License-Identifier: MIT
/*
 * Preloaded into another program: it finds the machine in the folder MACHINE in place of this one. Paths
 * below /sys and /dev lead there, a disk's image is a block device, and a network card has the address in its
 * file.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#define NEXT(name) (__extension__(__typeof__(&(name))) dlsym(RTLD_NEXT, #name))
#define LONGEST 4096

int __open_2(const char *path, int flags);
int __xstat(int version, const char *path, struct stat *status);
int __fxstat(int version, int fd, struct stat *status);

static const char *machine(void)
{
    const char *root = getenv("MACHINE");
    return root ? root : "";
}

static const char *there(const char *path, char *room)
{
    const char *root = machine();
    const int is_devices = strncmp(path, "/sys/", 5) == 0 || strncmp(path, "/dev/", 5) == 0;
    if (!is_devices || strncmp(path, root, strlen(root)) == 0)
        return path;
    snprintf(room, LONGEST, "%s%s", root, path);
    return room;
}

/* The first line of a file of a device's. */
static int read_line(const char *kind, const char *name, const char *file, char *line, size_t size)
{
    char path[LONGEST];
    snprintf(path, sizeof path, "%s/sys/class/%s/%s/%s", machine(), kind, name, file);
    FILE *opened = NEXT(fopen)(path, "r");
    if (!opened)
        return 0;
    const int is_read = fgets(line, (int)size, opened) != NULL;
    fclose(opened);
    return is_read;
}

/* The name of the disk whose image an open file is; null for another file. */
static const char *disk_of(int fd, char *room)
{
    char link[64];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t size = NEXT(readlink)(link, room, LONGEST - 1);
    const size_t root = strlen(machine());
    if (root == 0 || size <= 0)
        return NULL;
    room[size] = '\0';
    return strncmp(room, machine(), root) == 0 && strncmp(room + root, "/dev/", 5) == 0 ? room + root + 5
                                                                                        : NULL;
}

static void make_block_device(const char *name, struct stat *status)
{
    char line[64];
    unsigned major = 0;
    unsigned minor = 0;
    if (!read_line("block", name, "dev", line, sizeof line) || sscanf(line, "%u:%u", &major, &minor) != 2)
        return;
    status->st_mode = (status->st_mode & 07777) | S_IFBLK;
    status->st_rdev = makedev(major, minor);
}

int open(const char *path, int flags, ...)
{
    char room[LONGEST];
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return NEXT(open)(there(path, room), flags, mode);
}

int __open_2(const char *path, int flags)
{
    return open(path, flags);
}

int access(const char *path, int mode)
{
    char room[LONGEST];
    return NEXT(access)(there(path, room), mode);
}

DIR *opendir(const char *path)
{
    char room[LONGEST];
    return NEXT(opendir)(there(path, room));
}

ssize_t readlink(const char *path, char *to, size_t size)
{
    char room[LONGEST];
    return NEXT(readlink)(there(path, room), to, size);
}

FILE *fopen(const char *path, const char *mode)
{
    char room[LONGEST];
    return NEXT(fopen)(there(path, room), mode);
}

int __xstat(int version, const char *path, struct stat *status)
{
    char room[LONGEST];
    (void)version;
    const int failed = fstatat(AT_FDCWD, there(path, room), status, 0);
    if (failed == 0 && strncmp(path, "/dev/", 5) == 0 && S_ISREG(status->st_mode))
        make_block_device(path + 5, status);
    return failed;
}

int __fxstat(int version, int fd, struct stat *status)
{
    char room[LONGEST];
    (void)version;
    const int failed = fstatat(fd, "", status, AT_EMPTY_PATH);
    const char *disk = failed == 0 ? disk_of(fd, room) : NULL;
    if (disk)
        make_block_device(disk, status);
    return failed;
}

static int answer_for_disk(const char *disk, int fd, unsigned long request, void *answer)
{
    char line[64];
    struct stat image;
    if (fstatat(fd, "", &image, AT_EMPTY_PATH) != 0)
        return -1;
    if (request == BLKSSZGET)
        *(int *)answer =
            read_line("block", disk, "queue/logical_block_size", line, sizeof line) ? atoi(line) : 512;
    else if (request == BLKGETSIZE64)
        *(unsigned long long *)answer = (unsigned long long)image.st_size;
    else
        *(unsigned long *)answer = (unsigned long)image.st_size / 512;
    return 0;
}

static int answer_for_card(unsigned long request, struct ifreq *card)
{
    char line[64];
    unsigned char *address = (unsigned char *)card->ifr_hwaddr.sa_data;
    if (!read_line("net", card->ifr_name, "type", line, sizeof line)) {
        errno = ENODEV;
        return -1;
    }
    if (request == SIOCETHTOOL)
        return 0;
    memset(&card->ifr_hwaddr, 0, sizeof card->ifr_hwaddr);
    card->ifr_hwaddr.sa_family = (unsigned short)atoi(line);
    if (!read_line("net", card->ifr_name, "address", line, sizeof line))
        return -1;
    return sscanf(line, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", address, address + 1, address + 2, address + 3,
                  address + 4, address + 5) == 6
               ? 0
               : -1;
}

int ioctl(int fd, unsigned long request, ...)
{
    char room[LONGEST];
    va_list rest;
    va_start(rest, request);
    void *argument = va_arg(rest, void *);
    va_end(rest);
    if (request == SIOCETHTOOL || request == SIOCGIFHWADDR)
        return answer_for_card(request, argument);
    const int asks_size = request == BLKSSZGET || request == BLKGETSIZE64 || request == BLKGETSIZE;
    const char *disk = asks_size ? disk_of(fd, room) : NULL;
    return disk ? answer_for_disk(disk, fd, request, argument) : NEXT(ioctl)(fd, request, argument);
}

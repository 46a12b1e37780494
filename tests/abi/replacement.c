// SPDX-License-Identifier: MIT
/*
 * A libdevns of somebody's own, built against an installation: a machine whose firmware knows one variable of
 * two bytes under every name, 0x002A.
 */
#include <hwplat/devns.h>

#include <errno.h>
#include <string.h>

int devns_open(const char *path, int flags)
{
    (void)flags;
    if (strcmp(path, DEVNS_RUNTIME_SERVICES) == 0)
        return 4711;
    errno = ENOENT;
    return -1;
}

int devns_ioctl(int fd, int command, void *record)
{
    const uint8_t number[2] = {0x2a, 0x00};
    ovra_variable_args_t *args = record;

    if (fd != 4711 || command != OVRA_GET_VARIABLE || *args->data_size < sizeof number) {
        errno = EINVAL;
        return -1;
    }
    memcpy(args->data, number, sizeof number);
    *args->data_size = sizeof number;
    *args->ret = EFI_SUCCESS;
    return 0;
}

int devns_close(int fd)
{
    return fd == 4711 ? 0 : -1;
}

ssize_t devns_readlink(const char *path, char *buf, size_t size)
{
    (void)path;
    (void)buf;
    (void)size;
    errno = ENOENT;
    return -1;
}

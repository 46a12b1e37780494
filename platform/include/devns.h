/* SPDX-License-Identifier: MIT */
/*
 * libdevns: the calls with which libovra touches a name below "/dev" or "/devices", and the commands and
 * records of the runtime-services pseudo-device.
 *
 * Each call first does the plain system call on the name as given; only where the system has no such name
 * does it turn to the machine: a folder laid out like a Linux root, "/" itself or the folder that the
 * environment variable HWPLAT_ROOT names (not looked at in a set-user-ID program).
 */
#ifndef HWPLAT_DEVNS_H
#define HWPLAT_DEVNS_H

#include <sys/types.h>

#include <ovra/uefi.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DEVNS_RUNTIME_SERVICES "/devices/pseudo/ovra@0:ovra"

/* Commands of the pseudo-device: plain numbers, no direction or size in them. 10 to 15 are not used. */
enum {
    OVRA_GET_VARIABLE = 1,
    OVRA_GET_NEXT_VARIABLE_NAME = 2,
    OVRA_SET_VARIABLE = 3,
    OVRA_QUERY_VARIABLE_INFO = 4,
    OVRA_GET_TIME = 5,
    OVRA_SET_TIME = 6,
    OVRA_GET_WAKEUP_TIME = 7,
    OVRA_SET_WAKEUP_TIME = 8,
    OVRA_RESET_SYSTEM = 9,
    OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT = 16
};

/* The records: pointers into the caller's memory; `ret` receives the firmware's status. */
typedef struct {
    CHAR16 *variable_name; /* null-terminated */
    EFI_GUID *vendor_guid;
    UINT32 *attributes; /* Get: out, may be null; Set: in */
    UINTN *data_size;   /* bytes. Get: in the buffer's size, out the data's; Set: the data's */
    void *data;
    EFI_STATUS *ret;
    UINTN variable_name_size; /* bytes, terminator included */
} ovra_variable_args_t;

typedef struct {
    UINTN *variable_name_size; /* bytes. In the buffer's size, out the name's with its terminator */
    UINT16 *variable_name;     /* in the previous name (empty at the start), out the next */
    EFI_GUID *vendor_guid;     /* in and out, likewise */
    EFI_STATUS *ret;
} ovra_get_next_variable_name_args_t;

typedef struct {
    UINT32 attributes;
    UINT64 *max_var_storage_size; /* bytes, as are the next two */
    UINT64 *remaining_var_storage_size;
    UINT64 *max_var_size;
    EFI_STATUS *ret;
} ovra_query_variable_info_args_t;

typedef struct {
    EFI_TIME *time;
    EFI_TIME_CAPABILITIES *capabilities;
    EFI_STATUS *ret;
} ovra_get_time_args_t;

typedef struct {
    EFI_TIME *time;
    EFI_STATUS *ret;
} ovra_set_time_args_t;

typedef struct {
    BOOLEAN *enabled;
    BOOLEAN *pending;
    EFI_TIME *time;
    EFI_STATUS *ret;
} ovra_get_wakeup_time_args_t;

typedef struct {
    EFI_TIME *time;
    EFI_STATUS *ret;
    BOOLEAN enable;
} ovra_set_wakeup_time_args_t;

typedef struct {
    UINTN data_size; /* bytes of reset_data */
    EFI_STATUS reset_status;
    void *reset_data;
    EFI_RESET_TYPE reset_type;
} ovra_reset_system_args_t;

typedef struct {
    UINT32 *high_count;
    EFI_STATUS *ret;
} ovra_get_next_high_monotonic_count_args_t;

OVRA_SIZE(ovra_variable_args_t, 56);
OVRA_OFFSET(ovra_variable_args_t, variable_name, 0);
OVRA_OFFSET(ovra_variable_args_t, vendor_guid, 8);
OVRA_OFFSET(ovra_variable_args_t, attributes, 16);
OVRA_OFFSET(ovra_variable_args_t, data_size, 24);
OVRA_OFFSET(ovra_variable_args_t, data, 32);
OVRA_OFFSET(ovra_variable_args_t, ret, 40);
OVRA_OFFSET(ovra_variable_args_t, variable_name_size, 48);
OVRA_SIZE(ovra_get_next_variable_name_args_t, 32);
OVRA_OFFSET(ovra_get_next_variable_name_args_t, variable_name_size, 0);
OVRA_OFFSET(ovra_get_next_variable_name_args_t, variable_name, 8);
OVRA_OFFSET(ovra_get_next_variable_name_args_t, vendor_guid, 16);
OVRA_OFFSET(ovra_get_next_variable_name_args_t, ret, 24);
OVRA_SIZE(ovra_query_variable_info_args_t, 40);
OVRA_OFFSET(ovra_query_variable_info_args_t, attributes, 0);
OVRA_OFFSET(ovra_query_variable_info_args_t, max_var_storage_size, 8);
OVRA_OFFSET(ovra_query_variable_info_args_t, remaining_var_storage_size, 16);
OVRA_OFFSET(ovra_query_variable_info_args_t, max_var_size, 24);
OVRA_OFFSET(ovra_query_variable_info_args_t, ret, 32);
OVRA_SIZE(ovra_get_time_args_t, 24);
OVRA_OFFSET(ovra_get_time_args_t, time, 0);
OVRA_OFFSET(ovra_get_time_args_t, capabilities, 8);
OVRA_OFFSET(ovra_get_time_args_t, ret, 16);
OVRA_SIZE(ovra_set_time_args_t, 16);
OVRA_OFFSET(ovra_set_time_args_t, time, 0);
OVRA_OFFSET(ovra_set_time_args_t, ret, 8);
OVRA_SIZE(ovra_get_wakeup_time_args_t, 32);
OVRA_OFFSET(ovra_get_wakeup_time_args_t, enabled, 0);
OVRA_OFFSET(ovra_get_wakeup_time_args_t, pending, 8);
OVRA_OFFSET(ovra_get_wakeup_time_args_t, time, 16);
OVRA_OFFSET(ovra_get_wakeup_time_args_t, ret, 24);
OVRA_SIZE(ovra_set_wakeup_time_args_t, 24);
OVRA_OFFSET(ovra_set_wakeup_time_args_t, time, 0);
OVRA_OFFSET(ovra_set_wakeup_time_args_t, ret, 8);
OVRA_OFFSET(ovra_set_wakeup_time_args_t, enable, 16);
OVRA_SIZE(ovra_reset_system_args_t, 32);
OVRA_OFFSET(ovra_reset_system_args_t, data_size, 0);
OVRA_OFFSET(ovra_reset_system_args_t, reset_status, 8);
OVRA_OFFSET(ovra_reset_system_args_t, reset_data, 16);
OVRA_OFFSET(ovra_reset_system_args_t, reset_type, 24);
OVRA_SIZE(ovra_get_next_high_monotonic_count_args_t, 16);
OVRA_OFFSET(ovra_get_next_high_monotonic_count_args_t, high_count, 0);
OVRA_OFFSET(ovra_get_next_high_monotonic_count_args_t, ret, 8);

/*
 * open(2). Where the system has no DEVNS_RUNTIME_SERVICES, that name opens the runtime services of the
 * machine, if it has firmware variables. Returns a descriptor (close it with devns_close), or -1 with
 * errno: ENOENT when neither has the name (the machine was not started by UEFI firmware; or its kernel does
 * not serve the variables, or they are not mounted, and then there is a folder sys/firmware/efi), else what
 * open(2) or the allocation gave. The descriptor is that of the folder of variables: fstatvfs(3) says whether
 * it is read-only.
 */
int devns_open(const char *path, int flags);

/*
 * ioctl(2); for a descriptor that devns_open served itself, the command is carried out on the machine in
 * the caller's process and never reaches the kernel. Returns 0 or more, with the firmware's status written
 * through the record's `ret`; or -1 with errno when the request itself could not be carried out (unknown
 * command ENOTTY, null record or a null pointer that the command needs EFAULT, EBADF when the program has
 * closed or replaced what devns_open opened, ENOMEM): then `ret` is not written.
 *
 * Statuses that tell why a change was refused: EFI_INVALID_PARAMETER (also more data than a variable may
 * have), EFI_UNSUPPORTED (a new name that the kernel cannot pass on; a time zone that the clock cannot keep),
 * EFI_OUT_OF_RESOURCES (the variable store is full), EFI_VOLUME_FULL (the file system under a folder machine
 * is), EFI_WRITE_PROTECTED (a read-only file system, or a variable of the firmware's own), EFI_ACCESS_DENIED,
 * EFI_SECURITY_VIOLATION, EFI_TIMEOUT (another had the machine's lock for 30 s) and EFI_DEVICE_ERROR. After
 * EFI_DEVICE_ERROR alone the new value may stand: the disk failed when it was made durable.
 */
int devns_ioctl(int fd, int command, void *record);

/*
 * close(2). Returns 0, or -1 with errno; EBADF, and nothing is closed, when the number is the program's own
 * file by now.
 */
int devns_close(int fd);

/*
 * readlink(2) into buf of `size` bytes. Where the system has no such name, the names "/dev/dsk/<volume>" and
 * "/dev/rdsk/<volume>" of the machine's slices and partitions (either folder for both kinds) are links to
 * "../../devices<physical path>:<minor>", such as "../../devices/pci@0,0/pci8086,2922@1f,2/disk@0,0:a". The
 * minor of s0 to s15 is a to p, that of p0 to p9 q to z, beyond these the letter with the number ("s16").
 *
 * Returns the number of bytes placed in buf, not terminated, cut at `size`; or -1 with errno: ENOENT when
 * neither the system nor the machine has the name, EFAULT for a null pointer, EINVAL for a size of 0, ENOMEM,
 * what readlink(2) gave, or why the machine or the disk cannot be read, such as EACCES or EIO.
 */
ssize_t devns_readlink(const char *path, char *buf, size_t size);

/*
 * Takes the machine's lock for the calling thread, for a program that reads, decides and writes: until it is
 * given back, no other thread and no other process that goes through this library changes the machine. The
 * services that change it take the same lock for themselves, and wait up to 30 s for it. A thread that has
 * the lock takes it again at once; it is free when it was given back as often. The machine is the one that
 * HWPLAT_ROOT names at the call. Reading needs no lock.
 *
 * The lock is that of a file of mode 0600, made where it is missing: /run/ovra.lock of the live machine (root
 * alone can take it), var/lib/hwplat/lock below the root of any other. It is given back when the thread or
 * the process ends, however that happens. A child made by fork does not have it.
 *
 * Waits for at most `seconds`; 0 does not wait. Returns 0, or -1 with errno and nothing taken: ETIMEDOUT when
 * another had it all that time, and then *holder (which may be null) is that process, 0 where the system does
 * not tell; EACCES for a user who may not open the file; EROFS and ENOSPC when it cannot be made; EPERM when
 * the name is that of a link, of a file of somebody else's or of no file; ENOENT when there is no such
 * machine; ENOMEM; or what open(2) and flock(2) gave. errno says nothing otherwise, and *holder is unchanged.
 */
int devns_lock(unsigned int seconds, pid_t *holder);

/*
 * Gives back what one devns_lock took of the machine that HWPLAT_ROOT names; of the machine whose lock was
 * taken last, when that folder is out of reach. Returns 0, or -1 with errno EPERM when the calling thread
 * does not have the lock.
 */
int devns_unlock(void);

/*
 * One picture of the machine: what this thread reads of the machine's device tree and disks between
 * devns_begin and devns_end, through any of the platform libraries, it reads once, at the first call that
 * needs it; so that several calls speak of the same disks. Elsewhere each call reads the machine anew.
 * HWPLAT_ROOT is looked at when the picture is made. Firmware variables are no part of it. Pairs may be
 * nested, and the outermost counts. In between the thread is not cancelled (pthread_cancel). A child that is
 * forked in between has the picture too and ends it for itself.
 *
 * Both always succeed; a devns_end without its devns_begin does nothing. A replacement libdevns may lack the
 * two (libovra then does without), but not one of them alone.
 */
void devns_begin(void);
void devns_end(void);

/*
 * Where the platform libraries of one build keep what they have in common; null for the number of another
 * build. It is for these libraries alone, and a replacement libdevns may lack it: each of them then stands
 * for itself.
 */
void *devns_shared(unsigned long layout);

#ifdef __cplusplus
}
#endif

#endif

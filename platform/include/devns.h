/* SPDX-License-Identifier: MIT */
/*
 * libdevns: system calls on names below "/dev" and "/devices", and the commands and records of the
 * runtime-services pseudo-device.
 *
 *     UINT32 count;
 *     EFI_STATUS status;
 *     ovra_get_next_high_monotonic_count_args_t args = {&count, &status};
 *     int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
 *     if (fd >= 0) {
 *         if (devns_ioctl(fd, OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &args) == 0)
 *             printf("status %lx, count %u\n", status, count);
 *         devns_close(fd);
 *     }
 *
 * Each call first makes the plain system call with the name as given. Only if the system has no such name
 * does it turn to the machine: the folder, laid out like a Linux root, that the environment variable
 * HWPLAT_ROOT names (ignored in a set-user-ID program), else "/". While HWPLAT_VARS names the file of a
 * stopped machine's variables (ignored likewise), the runtime services and the lock are those of that file,
 * and "/" is the machine only if HWPLAT_ROOT says so. All calls may be made in any thread, and
 * run to their end in a thread that is cancelled meanwhile (pthread_cancel).
 */
#ifndef HWPLAT_DEVNS_H
#define HWPLAT_DEVNS_H

#include <sys/types.h>

#include <ovra/uefi.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DEVNS_RUNTIME_SERVICES "/devices/pseudo/ovra@0:ovra"

/* Commands of the pseudo-device: plain numbers without direction and size. 10 to 15 are unused. */
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

/*
 * The records of the commands. Their pointers lead to the caller's memory, which stays the caller's; `ret`
 * receives the firmware's status. A pointer must not be null unless its line says so.
 */
typedef struct {
    CHAR16 *variable_name; /* null-terminated */
    EFI_GUID *vendor_guid;
    UINT32 *attributes; /* Get: out, may be null; Set: in */
    UINTN *data_size; /* bytes. Get: in the size of the buffer, out that of the data; Set: that of the data */
    void *data;       /* may be null: Get, when the buffer is too small; Set, when the size is 0 */
    EFI_STATUS *ret;
    UINTN variable_name_size; /* bytes, terminator included */
} ovra_variable_args_t;

typedef struct {
    UINTN *variable_name_size; /* bytes. In the size of the buffer, out that of the terminated name */
    UINT16 *variable_name;     /* in the previous name (empty at the start), out the next */
    EFI_GUID *vendor_guid;     /* in and out likewise */
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
    EFI_TIME_CAPABILITIES *capabilities; /* may be null */
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
    EFI_TIME *time; /* may be null when `enable` is false: the alarm keeps its time */
    EFI_STATUS *ret;
    BOOLEAN enable;
} ovra_set_wakeup_time_args_t;

typedef struct {
    UINTN data_size; /* bytes of reset_data; ignored, as are the next two */
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
 * open(2). If the system has no DEVNS_RUNTIME_SERVICES, that name opens the runtime services of the machine,
 * if it has firmware variables. `flags` are those of open(2).
 *
 * Returns a file descriptor, to be closed with devns_close; or -1 with errno. ENOENT: neither the system nor
 * the machine has the name. For the runtime services this means that the machine was not started by UEFI
 * firmware, or else, if it has a folder sys/firmware/efi, that its variables are not mounted or its kernel
 * does not serve them. With HWPLAT_VARS, also: EMEDIUMTYPE (no file of variables), EOPNOTSUPP (a qcow2
 * image), ERANGE (a part of the file is missing), EBADMSG (it is damaged), EINPROGRESS (its firmware was
 * stopped while it moved the variables, and must be started once), EISDIR. Any other errno is that of
 * open(2), or ENOMEM. The file descriptor of the runtime services is that of the folder of variables, or of
 * their file: fstatvfs(3) tells whether it is read-only.
 */
int devns_open(const char *path, int flags);

/*
 * ioctl(2). For a file descriptor that devns_open served itself, the command (OVRA_...) is carried out on the
 * machine in the caller's process and never reaches the kernel. `record` is the record of the command.
 *
 * Returns 0 or more, with the firmware's status written through the record's `ret`; or -1 with errno, and
 * `ret` unwritten, when the request itself could not be carried out: ENOTTY (unknown command), EFAULT (null
 * record, or a null pointer that the command needs), EBADF (the program has closed or replaced what
 * devns_open opened), ENOMEM.
 *
 * The record of OVRA_RESET_SYSTEM has no `ret`. On a live machine it does not return; on any other it plays
 * the next start and returns 0. -1 with errno: EINVAL (unknown type), ETIMEDOUT, EOPNOTSUPP (real variables
 * below a root other than "/"), or why the start could not be played.
 *
 * Statuses that say why a change was refused: EFI_INVALID_PARAMETER (also: more data than a variable may
 * have), EFI_UNSUPPORTED (a new name that the kernel cannot pass on; a time zone that the clock cannot keep),
 * EFI_OUT_OF_RESOURCES (the variable store is full; with errno ENOMEM the system has no memory),
 * EFI_VOLUME_FULL (the file system below a folder machine, or of a file of variables, is full),
 * EFI_WRITE_PROTECTED (a read-only file system, or a variable that belongs to the firmware),
 * EFI_ACCESS_DENIED, EFI_SECURITY_VIOLATION, EFI_TIMEOUT (the machine's lock was not free for 30 s) and
 * EFI_DEVICE_ERROR. Only after EFI_DEVICE_ERROR may the new value be in place: the disk failed to make it
 * durable.
 */
int devns_ioctl(int fd, int command, void *record);

/*
 * close(2). Returns 0; or -1 with errno. EBADF also when the program has closed what devns_open opened and
 * the number is its own file's by now; nothing is closed then.
 */
int devns_close(int fd);

/*
 * readlink(2) into `buf` of `size` bytes. If the system has no such name, "/dev/dsk/<volume>" and
 * "/dev/rdsk/<volume>" are links for the slices and partitions of the machine (either folder for both kinds)
 * to "../../devices<physical path>:<minor>", such as "../../devices/pci@0,0/pci8086,2922@1f,2/disk@0,0:a".
 * The minor of s0 to s15 is a to p, that of p0 to p9 is q to z, beyond these the letter with the number
 * ("s16").
 *
 * Returns the number of bytes written to `buf`, without a terminator and cut at `size`; or -1 with errno:
 * ENOENT (neither the system nor the machine has the name), EFAULT (null pointer), EINVAL (size 0), ENOMEM,
 * an error of readlink(2), or why the machine or the disk cannot be read, such as EACCES or EIO.
 */
ssize_t devns_readlink(const char *path, char *buf, size_t size);

/*
 * The names of all firmware variables at once, without looking at any of them: that takes a few system calls
 * for thousands, where a walk with OVRA_GET_NEXT_VARIABLE_NAME takes one for each. Reading a variable then
 * tells what it is. Some of the names may be those of damaged variables, of files without data and of files
 * that are no variable's, which a walk passes over.
 *
 * `fd` is one that devns_open served itself. The names are those of files, such as
 * "Boot0000-8be4df61-93ca-11d2-aa0d-00e098032b8c": the variable's in UTF-8, with "!" for "/", and the GUID of
 * its vendor. Returns a new block, to be released with free(3): the names in no order, each terminated, and
 * after the last an empty one. Null with errno on failure: EBADF (no such file descriptor, or the program has
 * closed or replaced it), ENOTTY (any other file descriptor: one of a driver of the system has no such call),
 * ENOMEM, or why they cannot be read.
 */
char *devns_variable_names(int fd);

/*
 * Takes the machine's lock for the calling thread, for a program that reads, decides and writes: until it is
 * given back, no other thread and no other process changes the machine through this library. The services
 * that change the machine take the same lock themselves and wait up to 30 s for it. A thread that has the
 * lock takes it again at once; it is free after as many devns_unlock. The machine is the one that HWPLAT_ROOT
 * names at the call. Reading needs no lock.
 *
 *     if (devns_lock(30, NULL) == 0) {
 *         ...
 *         devns_unlock();
 *     }
 *
 * It is the lock of a file of mode 0600, made if absent: /run/ovra.lock of the live machine (only root can
 * take it), var/lib/hwplat/lock below the root of any other. The lock of a file of variables (HWPLAT_VARS) is
 * that file's own. It is given back when the thread or the process ends, however that happens. A child made
 * by fork does not have it.
 *
 * Waits up to `seconds`; 0 does not wait. Returns 0; or -1 with errno and nothing taken. ETIMEDOUT: another
 * had the lock all that time; `*holder` (may be null) then is that process, 0 if unknown, and otherwise
 * unchanged. EACCES: the user may not open the file, or may not make it, as is so for a user who may not
 * write the variables. EROFS, ENOSPC: the file cannot be made. EPERM: the name is that of a link, of another
 * user's file or of no regular file. EBUSY: a program that runs the machine has locked the file of variables.
 * ENOENT: there is no such machine. ENOMEM, or an error of open(2) or
 * flock(2).
 */
int devns_lock(unsigned int seconds, pid_t *holder);

/*
 * Gives back what one devns_lock took of the machine that HWPLAT_ROOT names; if that folder is out of reach,
 * of the machine locked last. Returns 0; or -1 with errno EPERM when the calling thread does not have the
 * lock.
 */
int devns_unlock(void);

/*
 * One picture of the machine for several calls. What this thread reads of the device tree and the disks
 * between devns_begin and devns_end, through any of the platform libraries, it reads once, at the first call
 * that needs it: the calls agree about the disks. Elsewhere each call reads the machine anew. HWPLAT_ROOT is
 * read when the picture is made. Firmware variables are not part of it: they are read each time. Whether the
 * file descriptor of the runtime services is still open on what devns_open opened is looked at once, before
 * the first variable that is read: nobody may close it otherwise, or give out its number, in between.
 *
 *     devns_begin();
 *     drives = vs_get_descriptors(VS_DRIVE, NULL, &err);
 *     root = ht_init("/", HT_SUBTREE);
 *     devns_end();
 *
 * Pairs may be nested; the outermost one counts. In between the thread is not cancelled (pthread_cancel). A
 * child forked in between has the picture too, and ends it for itself.
 *
 * Both always succeed. A devns_end without its devns_begin does nothing. A replacement libdevns may lack both
 * (libovra then does without), but not one of them alone.
 */
void devns_begin(void);
void devns_end(void);

/*
 * For the platform libraries alone: where those of one build keep their common state; null for the `layout`
 * of another build. A replacement libdevns may lack it: each library then has its own state.
 */
void *devns_shared(unsigned long layout);

#ifdef __cplusplus
}
#endif

#endif

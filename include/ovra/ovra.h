/* SPDX-License-Identifier: MIT */
/*
 * libovra: read and change the firmware's UEFI boot configuration.
 *
 * Conventions, which hold for every function below unless it says otherwise:
 *
 *  1. The result is 0 on success and -1 on failure, never an errno value. What went wrong is written to
 *     standard error while the environment variable OVRA_PATH_EPRINT exists (with any value); traces while
 *     OVRA_PATH_DEBUG exists. Each is looked up once, at the first message of its kind. A program that has
 *     more rights than its user (set-user-ID, set-group-ID, file capabilities) has none of the library's
 *     environment variables.
 *     A program receives the same messages through ovra_log_to (ovra/log.h).
 *  2. Text is UTF-8 and null-terminated; UCS-2 text is an array of CHAR16 units with a zero unit at its end.
 *     Sizes are in bytes.
 *  3. Pointers must not be null where the description does not say that they may be.
 *  4. A result handed out through a pointer belongs to the handle: release it early with memlist_free,
 *     free_str_array (a null-terminated array of strings) or free_dpath (a decoded path), or leave it to
 *     ovra_fini.
 *  5. Outputs are written on success; a failure leaves them as they were unless the function says otherwise.
 *  6. Arguments are not changed, and nothing keeps a pointer to them.
 *  7. A handle is used by one thread at a time; separate handles are independent. No function is for
 *     signal handlers. The locale that the program has set changes nothing but the language of the
 *     system's own texts in messages.
 *  8. An option's name is "Boot" and four upper-case hexadecimal digits, such as "Boot001F". A function
 *     that takes it more loosely says so.
 *  9. Variables are those of the EFI global-variable GUID; they are written with attributes 7
 *     (non-volatile, boot-service and run-time access). While the environment variable OVRA_TEST_FILE
 *     exists they are plain files in the working directory instead, named like the variable and holding
 *     its data. That is for tests: a file that cannot be opened for whatever reason counts as absent, and an
 *     error of writing is not reported.
 * 10. No function holds a lock from one request to the next. Those that read, change and write (the
 *     setters of fields, ovra_bootorder_insert and _remove, ovra_bootopt_remove, also ovra_bootopt_unused
 *     with the writing of the option) lose what another thread or process writes in between. A program
 *     that is not alone takes the machine's lock around them, and around what it decides before them:
 *     devns_lock and devns_unlock of libdevns (<hwplat/devns.h>), which the command ovra takes too.
 *
 * What stays with the calling program:
 *
 *  - What a call hands out or keeps with the handle grows with each call until it is released. The
 *    setters of fields, ovra_bootopt_devpath_get and ovra_bootopt_bootpath_get keep the parts of the
 *    option that they read until ovra_fini: a program that runs for long finishes its handle now and then.
 *  - OVRA_TEST_FILE stands in for variables by name only. Enumeration (ovra_bootopt_list,
 *    ovra_bootopt_find), the runtime services of any vendor, the clock and ovra_reset_system reach the
 *    real machine all the same. A name is a path then: "../x" or a symbolic link leads out of the folder
 *    where the name is not checked first (ovra_bootopt_remove).
 *  - The environment is read at many calls: setenv, putenv and unsetenv beside other threads in the
 *    library are a race of the program's, as the C library says of them.
 *  - A handle needs two descriptors, and a call on a null handle the same for as long as it takes. A
 *    program that closes descriptors which are not its own (closefrom when it becomes a daemon) takes a
 *    new handle behind it; on the old one calls fail with EBADF, and ovra_fini closes nothing that is not
 *    its own.
 *  - A handle stays with the variables of the machine that it was opened on, but disks and the device tree
 *    are looked up by name at each call: behind a chroot they are another machine's.
 *  - fork waits, from the return of the program's first ovra_init on, until no thread is inside a text
 *    conversion, so that the child may use the library, with handles of its own. (_Fork and clone do not
 *    wait.) The descriptor of an inherited handle is one for both processes.
 *  - pthread_cancel takes effect behind a call, not in the middle: calls that wait hold it off.
 *    Asynchronous cancellation (PTHREAD_CANCEL_ASYNCHRONOUS) must not be on inside the library.
 *  - Once loaded, the library stays loaded: dlclose does not unload it.
 */
#ifndef OVRA_OVRA_H
#define OVRA_OVRA_H

#include <ovra/uefi.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

typedef struct ovra_hdl *ovra_hdl_t;

/* A packed device path: nodes laid end to end (UEFI 10.2). Its length in bytes travels beside it. */
typedef uint8_t *ovra_epath_t;

/*
 * One instance of a device path as text. A whole path is a null-terminated array of pointers to these.
 * device_path: UEFI text such as "/PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)", or a name of the
 * operating system; may be empty. file_path: the text of its File-path node such as "\EFI\BOOT\BOOTX64.EFI",
 * or null.
 */
typedef struct {
    char *device_path;
    char *file_path;
} ovra_path_t;

/*
 * Opens a handle: the firmware's runtime services, unless OVRA_TEST_FILE exists. Close it with ovra_fini.
 * -1: no memory, or no runtime services on this machine, or no permission (errno says which). Then *hdl may
 * have been written but must not be used or finished.
 */
int ovra_init(ovra_hdl_t *hdl);

/*
 * Closes the handle and releases everything that it still owns. `hdl` must not be null. A descriptor that the
 * program has closed itself, or has given to another file since, is left alone.
 */
void ovra_fini(ovra_hdl_t hdl);

/* Releases one block that the handle owns. A null block is allowed; an unknown one is just freed. */
void memlist_free(ovra_hdl_t hdl, void *block);

/* Releases a null-terminated array of strings that the handle owns. A null array is allowed. */
void free_str_array(ovra_hdl_t hdl, char **array);

/* Releases a decoded path with its instances and their texts. A null path is allowed. */
void free_dpath(ovra_hdl_t hdl, ovra_path_t **paths);

/*
 * Runtime services (UEFI chapter 8). Each passes its arguments to the firmware as they are. 0: the request
 * was carried out, and *status holds the firmware's answer, which must be looked at too. -1: there was no
 * answer (no runtime services, no permission; errno says which) and *status is as it was. A null handle opens
 * the services for the one call. Pointers that UEFI allows to be null may be null.
 */

/*
 * Reads a variable of any vendor. *data_size: in the size of `data`, out the size of the variable's data,
 * also with EFI_BUFFER_TOO_SMALL. `attributes` may be null, and `data` when *data_size is 0.
 */
int ovra_get_variable(ovra_hdl_t hdl, CHAR16 *name, EFI_GUID *guid, UINT32 *attributes, UINTN *data_size,
                      void *data, EFI_STATUS *status);

/* Writes a variable of any vendor. A data_size of 0 deletes it; `data` may be null then. */
int ovra_set_variable(ovra_hdl_t hdl, CHAR16 *name, EFI_GUID *guid, UINT32 attributes, UINTN data_size,
                      void *data, EFI_STATUS *status);

/*
 * Steps through all variables. `name` (a buffer of *name_size bytes) and `guid` hold the previous variable,
 * at the start the empty name, and receive the next one; *name_size receives the size of its name with the
 * terminator. EFI_NOT_FOUND: that was the last. EFI_BUFFER_TOO_SMALL: *name_size is what the name needs.
 */
int ovra_get_next_variable_name(ovra_hdl_t hdl, UINTN *name_size, CHAR16 *name, EFI_GUID *guid,
                                EFI_STATUS *status);

/* Capacity for variables of the given attributes, in bytes: in all, left, and the largest single variable. */
int ovra_query_variable_info(ovra_hdl_t hdl, UINT32 attributes, UINT64 *max_storage,
                             UINT64 *remaining_storage, UINT64 *max_size, EFI_STATUS *status);

/* Reads the machine's clock. `capabilities` may be null. */
int ovra_get_time(ovra_hdl_t hdl, EFI_TIME *time, EFI_TIME_CAPABILITIES *capabilities, EFI_STATUS *status);

/* Sets the machine's clock. */
int ovra_set_time(ovra_hdl_t hdl, EFI_TIME *time, EFI_STATUS *status);

/* Reads the wake-up alarm: whether it is enabled, whether it went off unacknowledged, its time. */
int ovra_get_wakeup_time(ovra_hdl_t hdl, BOOLEAN *enabled, BOOLEAN *pending, EFI_TIME *time,
                         EFI_STATUS *status);

/* Sets the wake-up alarm, or with B_FALSE disables it; `time` may be null then. */
int ovra_set_wakeup_time(ovra_hdl_t hdl, BOOLEAN enable, EFI_TIME *time, EFI_STATUS *status);

/*
 * Resets the machine at once. `status` and `data_size` bytes of `data` (may be null when 0) are what the
 * firmware is told about the reason. On a real machine a successful call does not return.
 */
int ovra_reset_system(ovra_hdl_t hdl, EFI_RESET_TYPE type, EFI_STATUS status, UINTN data_size, void *data);

/* Advances and reads the high 32 bits of the firmware's monotonic count. */
int ovra_get_next_high_monotonic_count(ovra_hdl_t hdl, UINT32 *high_count, EFI_STATUS *status);

/*
 * Device paths between text and packed form.
 */

/*
 * Packs a device path given as text; `paths` has at least one instance. The first instance's device text says
 * which kind it is: UEFI text, or the name of a disk's slice or partition ("c0t0d0s0", "/dev/dsk/c0t0d0p1"),
 * which must be the only instance. For a disk the path is the short form, a hard-drive node; with bit 0 of
 * `flags` the hardware nodes of the disk stand in front of it. *epath receives a new block of *len bytes;
 * either may be null. The block of a UEFI text is the caller's, who frees it; that of a disk belongs to the
 * handle, which only a disk's name needs. Another name below "/dev/" or "/devices/" is looked up in the
 * device tree; *epath and *len are as they were also when it is found. -1: a text that cannot be read, a
 * device that is not there, or no memory.
 */
int ovra_epath_encode(ovra_hdl_t hdl, ovra_path_t **paths, int flags, ovra_epath_t *epath, int *len);

/*
 * The UEFI text of a packed path of `len` bytes: a null-terminated array with one element for each of its END
 * nodes, null when it has none (with a `len` of 0, for one); nodes behind the last are left out. device_path
 * is "" for an instance without device nodes, file_path null for one without a File-path node. A node without
 * a text of its own, or shorter than its kind, shows its bytes. A node's text is cut at 1023 bytes, and left
 * out when there is no memory for it. Release the array with free_dpath.
 * -1: the nodes do not fit into `len` bytes or are of no known type, or there is no memory for the result;
 * *paths is as it was, or null.
 */
int ovra_epath_decode_to_uefi(ovra_hdl_t hdl, ovra_epath_t epath, int len, ovra_path_t ***paths);

/*
 * The operating system's devices that a packed path of `len` bytes stands for: a null-terminated array, null
 * when the path is empty or has no END node. device_path is a physical path without "/devices" in front.
 * A path that begins with a hard-drive node gives an instance for each disk with such a partition, with the
 * minor name and without a file_path; any other one an instance for each of its END nodes, matched level by
 * level against the device tree, with the text of its File-path nodes. A hard-drive node behind the hardware
 * nodes of its disk is not found. Release the array with free_dpath.
 * -1: the nodes do not fit into `len` bytes or are of no known type, a device is not there or cannot be read,
 * or there is no memory; *paths is then null, or holds the instances found until then.
 */
int ovra_epath_decode_to_devices(ovra_hdl_t hdl, ovra_epath_t epath, int len, ovra_path_t ***paths);

/*
 * Reads a load option (UEFI 3.1.3) and splits it. Any output may be null and is then not filled; optional
 * data is returned only when both `optdata` and `optdata_len` are given. *desc is UTF-8, cut at 256 bytes;
 * *path has *path_len bytes; *optdata is null when there is none.
 * -1: the name is not valid, the variable is missing or too short for its own fields, its description has
 * more than 127 characters, or there is no memory. Once the variable was read, *attr and *path_len may have
 * been written; when memory ran out, *desc, *optdata and *path are null.
 */
int ovra_bootopt_get(ovra_hdl_t hdl, char *name, ovra_epath_t *path, int *path_len, char **desc,
                     uint32_t *attr, void **optdata, size_t *optdata_len);

/*
 * Writes a whole load option, over an existing one of that name. `path` has path_len bytes, `optdata`
 * optdata_len bytes; either may be null when its length is 0. A path_len above 65535 is stored cut to 16
 * bits, with zero bytes at the variable's end in place of the rest.
 * -1: the name is not valid, the description is no UTF-8 text of 16-bit characters, the lengths do not fit
 * together, there is no memory, or the variable cannot be written; the old option then stands.
 */
int ovra_bootopt_set(ovra_hdl_t hdl, char *name, ovra_epath_t path, int path_len, char *desc, uint32_t attr,
                     void *optdata, size_t optdata_len);

/*
 * Deletes a load option and takes it out of BootOrder. The name is read as the ovra_bootorder_ functions
 * read it, but the variable deleted is the one of exactly that name.
 * -1: the variable cannot be deleted (BootOrder is then as it was); or, with the variable deleted, the name
 * holds no number or BootOrder cannot be rewritten.
 */
int ovra_bootopt_remove(ovra_hdl_t hdl, char *bootname);

/*
 * The names of all load options, of any vendor, in the firmware's order; an array without a name when there
 * are none. When the firmware stops answering, the options found until then are the result; an answer that is
 * an error is passed over once, and the name before it then stands there twice.
 * -1: the firmware has no enumeration, keeps giving errors, or gives a name of over 256 characters; or there
 * is no memory. *names is null then.
 */
int ovra_bootopt_list(ovra_hdl_t hdl, char ***names);

/*
 * The names of all load options that boot from a disk's slice ("c0t0d0s0", also with "/dev/dsk/" in front) or
 * partition ("c0t0d0p1", "/dev/rdsk/"): those whose first hard-drive node has that partition's number, start,
 * size and signature. In the firmware's order; null when there are none. Options that cannot be read are
 * passed over.
 * -1: there is no such slice or partition, it or the options cannot be read, or no memory. *names is null
 * then.
 */
int ovra_bootopt_find(ovra_hdl_t hdl, char *disk, char ***names);

/*
 * The disk names ("c0t0d0s0", "c0t0d0p1") of the partitions that the first hard-drive node of a load option's
 * path stands for; several when disks are alike in signature, start and size.
 * -1: the option cannot be read, its path has no hard-drive node (*names is as it was in these cases), no
 * disk has such a partition, or no memory; *names is null then.
 */
int ovra_bootopt_logdev(ovra_hdl_t hdl, char *bootname, char ***names);

/*
 * The name of the lowest option number that is not in use; one that cannot be asked for counts as used. -1:
 * none below FFFF is free, or no memory for the name.
 */
int ovra_bootopt_unused(ovra_hdl_t hdl, char **bootname);

/*
 * BootOrder. These read an option's name loosely: "Boot" in any case and a hexadecimal number of which the
 * low 16 bits count, so "boot1", "Boot0x1" and "Boot1 and more" are all option 0001. Positions count from 0.
 */

/*
 * Puts an option into BootOrder at `position`, out of its old places if it had any; the position is that in
 * the resulting order. Beyond the end it appends. A negative position counts from the end of the order as it
 * was, with the option still in its old places: -1 is the place behind the last entry, -2 the place of the
 * last entry, and so on, the first place at the least. An option that was in the order therefore comes behind
 * more of the others than one that was not: into 1 2 3, -2 puts 9 as 1 2 9 3, but 1 as 2 3 1. Without a
 * BootOrder it makes one of this option. Whether the option exists is not checked. -1: no such name,
 * BootOrder cannot be read or written; it is then as it was.
 */
int ovra_bootorder_insert(ovra_hdl_t hdl, char *bootname, int position);

/*
 * Takes an option out of BootOrder, at every place. 0 also when it was not there or there is no BootOrder.
 * -1: no such name, BootOrder cannot be read or written; it is then as it was.
 */
int ovra_bootorder_remove(ovra_hdl_t hdl, char *bootname);

/* The first position of an option in BootOrder. -1: no such name, not in it, or it cannot be read. */
int ovra_bootorder_get_position(ovra_hdl_t hdl, char *bootname, int *position);

/*
 * The name of the option at a position of BootOrder. -1: no BootOrder, a position outside it, it cannot be
 * read, or no memory.
 */
int ovra_bootorder_get_bootname(ovra_hdl_t hdl, int position, char **bootname);

/* The option that was booted. -1: the firmware does not say, or no memory. */
int ovra_bootcurrent_get(ovra_hdl_t hdl, char **bootname);

/* The option that will be booted once, at the next start. -1: none is set, or no memory. */
int ovra_bootnext_get(ovra_hdl_t hdl, char **bootname);

/*
 * Sets the option to boot once, at the next start. The name is read as the ovra_bootorder_ functions read it;
 * whether the option exists is not checked. -1: no such name, or the variable cannot be written.
 */
int ovra_bootnext_set(ovra_hdl_t hdl, char *bootname);

/*
 * One field of a load option at a time. A getter reads the option and hands out the field; a setter reads
 * the option, replaces the field and writes the whole option back, so that the other fields stay byte for
 * byte (the description as ovra_bootopt_get reads it). A setter returns -1, with the option as it was, when
 * the option cannot be read or written; a getter when it cannot be read.
 */

/*
 * The device text, respectively the file text, of the first instance of the option's path, in UEFI text form.
 * -1 also when the path cannot be decoded or has no such text.
 */
int ovra_bootopt_devpath_get(ovra_hdl_t hdl, char *bootname, char **devpath);
int ovra_bootopt_bootpath_get(ovra_hdl_t hdl, char *bootname, char **bootpath);

/*
 * Replaces that text. `devpath` may also be the name of a disk. The whole path goes through its text form on
 * the way, which does not carry everything: see ovra_bootopt_encoded_path_set for changes that keep every
 * byte. -1 also when the path has no first instance or the text cannot be encoded.
 */
int ovra_bootopt_devpath_set(ovra_hdl_t hdl, char *bootname, char *devpath);
int ovra_bootopt_bootpath_set(ovra_hdl_t hdl, char *bootname, char *bootpath);

/* Replaces the packed path by `path_len` bytes at `epath`. */
int ovra_bootopt_encoded_path_set(ovra_hdl_t hdl, char *bootname, ovra_epath_t epath, int path_len);

/* The description. Written, it may have any length, but one of more than 127 characters is not read back. */
int ovra_bootopt_desc_get(ovra_hdl_t hdl, char *bootname, char **description);
int ovra_bootopt_desc_set(ovra_hdl_t hdl, char *bootname, char *description);

/* The attributes; LOAD_OPTION_ACTIVE and so on. */
int ovra_bootopt_attr_get(ovra_hdl_t hdl, char *bootname, uint32_t *attributes);
int ovra_bootopt_attr_set(ovra_hdl_t hdl, char *bootname, uint32_t attributes);

/*
 * The optional data, of *data_len bytes: null and 0 when there is none. A data_len of 0 removes it. It is
 * found by 16 bits of its offset: of an option whose path ends beyond byte 65535 the getter gives too much,
 * and every setter writes that back.
 */
int ovra_bootopt_optdata_get(ovra_hdl_t hdl, char *bootname, void **data, size_t *data_len);
int ovra_bootopt_optdata_set(ovra_hdl_t hdl, char *bootname, void *data, size_t data_len);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

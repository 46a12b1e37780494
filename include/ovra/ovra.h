/* SPDX-License-Identifier: MIT */
/*
 * libovra: read and change the firmware's UEFI boot configuration.
 *
 * A program that prints the options in boot order:
 *
 *     ovra_hdl_t hdl;
 *     char *name, *text;
 *     if (ovra_init(&hdl) != 0)
 *         return 1;
 *     for (int at = 0; ovra_bootorder_get_bootname(hdl, at, &name) == 0; ++at) {
 *         if (ovra_bootopt_desc_get(hdl, name, &text) == 0)
 *             printf("%s  %s\n", name, text);
 *     }
 *     ovra_fini(hdl);
 *
 * Conventions. They hold for every function below unless it says otherwise.
 *
 *  1. The result is 0 on success and -1 on failure, never an errno value. The reason is a message. It goes to
 *     standard error while the environment variable OVRA_PATH_EPRINT exists (with any value); traces go there
 *     while OVRA_PATH_DEBUG exists. Each is looked up once, at the first message of its kind. A program with
 *     more rights than its user (set-user-ID, set-group-ID, file capabilities) sees none of the library's
 *     environment variables. A program receives the same messages through ovra_log_to (ovra/log.h).
 *  2. Text is UTF-8 and null-terminated. UCS-2 text is an array of CHAR16 units that ends with a zero unit.
 *     Sizes are in bytes.
 *  3. A pointer must not be null unless the description allows it.
 *  4. A result handed out through a pointer belongs to the handle. Release it early with memlist_free,
 *     free_str_array (a null-terminated array of strings) or free_dpath (a decoded path), or leave it to
 *     ovra_fini.
 *  5. Outputs are written on success. A failure leaves them untouched unless the function says otherwise.
 *  6. Arguments are not changed, and no pointer to them is kept.
 *  7. A handle is used by one thread at a time; separate handles are independent. No function may be called
 *     from a signal handler. The program's locale changes only the language of the system's own texts in
 *     messages.
 *  8. An option's name is "Boot" and four upper-case hexadecimal digits, such as "Boot001F". A function
 *     that reads it more loosely says so.
 *  9. Variables are those of the EFI global-variable GUID (UEFI 3.3). They are written with attributes 7:
 *     non-volatile, boot-service and run-time access. While the environment variable OVRA_TEST_FILE exists
 *     they are plain files in the working directory instead; a file has the variable's name and holds its
 *     data. This is for tests: a file that cannot be opened, for whatever reason, counts as absent, and
 *     errors of writing are not reported.
 * 10. No function holds a lock from one request to the next. Some functions read, change and write: the
 *     setters of fields, ovra_bootorder_insert and _remove, ovra_bootopt_remove, and ovra_bootopt_unused
 *     together with the writing of the option. They lose what another thread or process writes in between.
 *     A program that shares the machine takes its lock first, before it reads what its changes depend on:
 *     devns_lock and devns_unlock of libdevns (<hwplat/devns.h>). The command ovra takes the same lock.
 *
 * What stays with the calling program:
 *
 *  - Memory of a handle grows with each call until it is released. The setters of fields,
 *    ovra_bootopt_devpath_get and ovra_bootopt_bootpath_get keep the parts of the option that they read until
 *    ovra_fini: a program that runs for long should finish its handle now and then.
 *  - OVRA_TEST_FILE replaces variables by name only. Enumeration (ovra_bootopt_list, ovra_bootopt_find), the
 *    runtime services of any vendor, the clock and ovra_reset_system still reach the real machine. A name is
 *    a path then: "../x" or a symbolic link leads out of the folder where the name is not checked first
 *    (ovra_bootopt_remove).
 *  - Many calls read the environment: setenv, putenv and unsetenv in another thread are a data race, as the
 *    C library documents.
 *  - A handle takes two file descriptors; a call on a null handle takes two while it runs. After a program
 *    has closed file descriptors that are not its own (closefrom, when it becomes a daemon) it needs a new
 *    handle. On the old one calls fail with EBADF, and ovra_fini closes nothing that is not its own.
 *  - A handle stays with the variables of the machine that it was opened on. Disks and the device tree are
 *    looked up by name at each call: after a chroot they are another machine's. No code is loaded from that
 *    one's folders: libblkid, which reads disks, must have been loaded before, by the first call that reads
 *    one or by the program. Without it such calls fail (docs/platform.md).
 *  - Once the program's first ovra_init has returned, fork waits until no thread is inside a text conversion
 *    or loads libblkid;
 *    the child may then use the library with handles of its own. (_Fork and clone do not wait.) The
 *    file descriptor of an inherited handle is shared by both processes.
 *  - pthread_cancel never takes effect inside a call, but at the program's own next cancellation point.
 *    Asynchronous cancellation (PTHREAD_CANCEL_ASYNCHRONOUS) must be off while the library is called.
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

/* A packed device path: nodes laid end to end (UEFI 10.2). Its length in bytes is passed beside it. */
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
 * Handles and memory.
 *
 *     ovra_hdl_t hdl;
 *     if (ovra_init(&hdl) != 0)
 *         err(1, "no UEFI runtime services");
 *     ...
 *     ovra_fini(hdl);
 */

/*
 * Opens the firmware's runtime services, unless OVRA_TEST_FILE exists, and makes a handle for them.
 * hdl: receives the handle, which the caller closes with ovra_fini.
 * -1: no memory, no runtime services on this machine, or no permission; errno says which. *hdl may have been
 * written and is invalid.
 */
int ovra_init(ovra_hdl_t *hdl);

/*
 * Closes a handle and frees everything that it still owns; pointers to its results are invalid then. A
 * file descriptor that the program has closed itself, or that belongs to another file by now, is left alone.
 * hdl: a handle of ovra_init, not null, used by no other thread.
 */
void ovra_fini(ovra_hdl_t hdl);

/*
 * Frees one block that the handle owns.
 * block: null does nothing; a block that is not the handle's is passed to free.
 */
void memlist_free(ovra_hdl_t hdl, void *block);

/*
 * Frees a null-terminated array of strings that the handle owns, and the strings.
 * array: as a function handed it out; null does nothing.
 */
void free_str_array(ovra_hdl_t hdl, char **array);

/*
 * Frees a decoded path with its instances and their texts.
 * paths: as a function handed it out; null does nothing.
 */
void free_dpath(ovra_hdl_t hdl, ovra_path_t **paths);

/*
 * Runtime services (UEFI chapter 8). Each passes its arguments to the firmware unchanged.
 * hdl: null opens the services for the one call.
 * status: receives the firmware's answer, EFI_SUCCESS or an error; look at it after a result of 0.
 * 0: the request was carried out. -1: there was no answer (no runtime services, no permission; errno says
 * which), and *status is untouched. Pointers that UEFI allows to be null may be null.
 *
 *     CHAR16 name[] = {'T', 'i', 'm', 'e', 'o', 'u', 't', 0};
 *     EFI_GUID global = {0x8be4df61, 0x93ca, 0x11d2, {0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c}};
 *     UINT16 seconds;
 *     UINTN size = sizeof seconds;
 *     EFI_STATUS status;
 *     if (ovra_get_variable(hdl, name, &global, NULL, &size, &seconds, &status) == 0 &&
 *         status == EFI_SUCCESS)
 *         ...
 */

/*
 * Reads a variable of any vendor (UEFI 8.2, GetVariable).
 * name: UCS-2, at least one unit. guid: its vendor.
 * attributes: receives EFI_VARIABLE_ bits; may be null.
 * data_size: in, the size of `data` in bytes; out, the size of the variable's data, with
 * EFI_BUFFER_TOO_SMALL too. data: receives the bytes; may be null when *data_size is 0.
 */
int ovra_get_variable(ovra_hdl_t hdl, CHAR16 *name, EFI_GUID *guid, UINT32 *attributes, UINTN *data_size,
                      void *data, EFI_STATUS *status);

/*
 * Writes, or deletes, a variable of any vendor (UEFI 8.2, SetVariable).
 * name, guid: as above. attributes: EFI_VARIABLE_ bits.
 * data_size: the number of bytes at `data`; 0 deletes the variable, and `data` may be null then.
 */
int ovra_set_variable(ovra_hdl_t hdl, CHAR16 *name, EFI_GUID *guid, UINT32 attributes, UINTN data_size,
                      void *data, EFI_STATUS *status);

/*
 * Steps through all variables (UEFI 8.2, GetNextVariableName). Start with an empty name.
 * name_size: in, the size of `name` in bytes; out, the size of the next name with its terminator, with
 * EFI_BUFFER_TOO_SMALL too.
 * name, guid: in, the previous variable; out, the next one.
 * EFI_NOT_FOUND in *status: the previous variable was the last.
 */
int ovra_get_next_variable_name(ovra_hdl_t hdl, UINTN *name_size, CHAR16 *name, EFI_GUID *guid,
                                EFI_STATUS *status);

/*
 * Storage for variables with these attributes (UEFI 8.2, QueryVariableInfo), in bytes.
 * max_storage: total. remaining_storage: free. max_size: the largest single variable.
 */
int ovra_query_variable_info(ovra_hdl_t hdl, UINT32 attributes, UINT64 *max_storage,
                             UINT64 *remaining_storage, UINT64 *max_size, EFI_STATUS *status);

/*
 * Reads the machine's clock (UEFI 8.3, GetTime).
 * time: receives date and time. capabilities: receives resolution and accuracy; may be null.
 */
int ovra_get_time(ovra_hdl_t hdl, EFI_TIME *time, EFI_TIME_CAPABILITIES *capabilities, EFI_STATUS *status);

/* Sets the machine's clock (UEFI 8.3, SetTime). time: date and time. */
int ovra_set_time(ovra_hdl_t hdl, EFI_TIME *time, EFI_STATUS *status);

/*
 * Reads the wake-up alarm (UEFI 8.3, GetWakeupTime).
 * enabled: whether it is on. pending: whether it went off and was not acknowledged. time: when it goes off.
 */
int ovra_get_wakeup_time(ovra_hdl_t hdl, BOOLEAN *enabled, BOOLEAN *pending, EFI_TIME *time,
                         EFI_STATUS *status);

/*
 * Sets the wake-up alarm (UEFI 8.3, SetWakeupTime).
 * enable: B_FALSE switches it off. time: when it goes off; may be null to switch it off.
 */
int ovra_set_wakeup_time(ovra_hdl_t hdl, BOOLEAN enable, EFI_TIME *time, EFI_STATUS *status);

/*
 * Resets the machine at once (UEFI 8.5.1, ResetSystem). On a real machine a successful call does not return.
 * type: cold, warm or shutdown. status: the reason that the firmware is told.
 * data: data_size bytes about the reason; may be null when data_size is 0.
 */
int ovra_reset_system(ovra_hdl_t hdl, EFI_RESET_TYPE type, EFI_STATUS status, UINTN data_size, void *data);

/*
 * Advances the firmware's monotonic count to the next value of its high half (UEFI 8.5.2).
 * high_count: receives the high 32 bits.
 */
int ovra_get_next_high_monotonic_count(ovra_hdl_t hdl, UINT32 *high_count, EFI_STATUS *status);

/*
 * Device paths between text and packed form (UEFI chapter 10).
 *
 *     ovra_path_t instance = {"/PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0x0,0x0)", "\\EFI\\BOOT\\BOOTX64.EFI"};
 *     ovra_path_t *path[] = {&instance, NULL}, **decoded;
 *     ovra_epath_t packed;
 *     int size;
 *     if (ovra_epath_encode(hdl, path, 0, &packed, &size) == 0) {
 *         if (ovra_epath_decode_to_uefi(hdl, packed, size, &decoded) == 0 && decoded != NULL) {
 *             puts(decoded[0]->device_path);
 *             free_dpath(hdl, decoded);
 *         }
 *         free(packed);
 *     }
 */

/*
 * Packs a device path given as text.
 * hdl: needed for the name of a disk only; may be null otherwise.
 * paths: at least one instance. The first one's device text says which kind the path is: UEFI text, or the
 * name of a disk's slice or partition ("c0t0d0s0", "/dev/dsk/c0t0d0p1"), which must be the only instance.
 * flags: for a disk, bit 0 puts the disk's hardware nodes before its hard-drive node; without it the path
 * is the short form, which starts with the hard-drive node.
 * epath: receives a new block; may be null. The block of a UEFI text belongs to the caller, who passes it to
 * free; that of a disk belongs to the handle.
 * len: receives the size of the block in bytes; may be null.
 * A logical partition (p5 and above) becomes partition number 0, as the whole disk does, with its own start,
 * size and signature.
 * A node has room for a file text of 32764 characters. Of a longer one the node's length is stored cut to 16
 * bits: the text is lost or damaged, with 0.
 * Another name below "/dev/" or "/devices/" is looked up in the device tree; *epath and *len are not written,
 * even on success.
 * Sata stores its LUN as the port, and UsbWwid its PID as the interface: such a text changes when it is
 * encoded and decoded, also by the setters of paths. MessagingPath takes a node's bytes.
 * -1: the text cannot be read, there is no such device, or there is no memory.
 */
int ovra_epath_encode(ovra_hdl_t hdl, ovra_path_t **paths, int flags, ovra_epath_t *epath, int *len);

/*
 * The UEFI text of a packed path.
 * epath, len: the path and its length in bytes.
 * paths: receives a null-terminated array with one element per END node; null if there is none, as in a path
 * of `len` 0 or less. Nodes after the last END node are left out. device_path is "" for an instance without
 * device nodes; file_path is null for one without a File-path node. Release the array with free_dpath.
 * A node shorter than its kind, or without a text of its own, shows its bytes. A node's text is cut at 1023
 * bytes, and left out when there is no memory for it.
 * -1: the nodes do not fit into `len` bytes or have an unknown type, or there is no memory for the result;
 * *paths is untouched or null.
 */
int ovra_epath_decode_to_uefi(ovra_hdl_t hdl, ovra_epath_t epath, int len, ovra_path_t ***paths);

/*
 * The operating system's devices for a packed path.
 * epath, len: the path and its length in bytes.
 * paths: receives a null-terminated array; null if the path is empty or has no END node. device_path is a
 * physical path without the leading "/devices". Release the array with free_dpath.
 * A path that starts with a hard-drive node gives one instance per disk with such a partition, with the minor
 * name and no file_path. Any other path gives one instance per END node; its nodes are matched level by level
 * against the device tree, and file_path is the text of its File-path nodes. A hard-drive node after the
 * hardware nodes of its disk is not found.
 * A disk or a device of the tree that cannot be looked at, for want of memory too, is passed over, and the
 * others are the result.
 * -1: the nodes do not fit into `len` bytes or have an unknown type, a device is absent or cannot be read, or
 * there is no memory; *paths is null, or holds the instances found so far.
 */
int ovra_epath_decode_to_devices(ovra_hdl_t hdl, ovra_epath_t epath, int len, ovra_path_t ***paths);

/*
 * Load options, whole (UEFI 3.1.3).
 *
 *     char *name;
 *     if (ovra_bootopt_unused(hdl, &name) == 0 &&
 *         ovra_bootopt_set(hdl, name, packed, size, "Debian", LOAD_OPTION_ACTIVE, NULL, 0) == 0 &&
 *         ovra_bootorder_insert(hdl, name, 0) == 0)
 *         printf("%s is the first option\n", name);
 */

/*
 * Reads a load option and splits it. Any output may be null and is then not filled.
 * name: the option's name.
 * path, path_len: receive the packed path and its length in bytes.
 * desc: receives the description as UTF-8, cut at 256 bytes. attr: receives LOAD_OPTION_ bits.
 * optdata, optdata_len: receive the optional data, null and 0 if there is none; only when both are given.
 * -1: the name is invalid, the variable is absent or too short for its own fields, the description has more
 * than 127 characters, or there is no memory. Once the variable has been read, *attr and *path_len may have
 * been written; without memory *desc, *optdata and *path are null.
 */
int ovra_bootopt_get(ovra_hdl_t hdl, char *name, ovra_epath_t *path, int *path_len, char **desc,
                     uint32_t *attr, void **optdata, size_t *optdata_len);

/*
 * Writes a whole load option; an existing one of that name is replaced.
 * name: the option's name. path, path_len: the packed path and its length in bytes; null with 0. A path_len
 * above 65535 is stored cut to 16 bits, and zero bytes at the variable's end stand for the rest.
 * desc: the description. attr: LOAD_OPTION_ bits. optdata, optdata_len: the optional data; null with 0.
 * -1: the name is invalid, the description is no UTF-8 text of 16-bit characters, the lengths do not add up,
 * there is no memory, or the variable cannot be written; the old option stands. One exception, for all that
 * writes variables: when a disk gives an error after the new value is in place (a folder machine's last
 * fsync), it is -1 and the new value stands.
 */
int ovra_bootopt_set(ovra_hdl_t hdl, char *name, ovra_epath_t path, int path_len, char *desc, uint32_t attr,
                     void *optdata, size_t optdata_len);

/*
 * Deletes a load option and takes it out of BootOrder.
 * bootname: read loosely, as BootOrder's functions do; the variable deleted has exactly this name.
 * -1: the variable cannot be deleted, and BootOrder is untouched; or the variable is deleted, but the name
 * holds no number or BootOrder cannot be rewritten.
 */
int ovra_bootopt_remove(ovra_hdl_t hdl, char *bootname);

/*
 * The names of all load options, of any vendor, in the firmware's order.
 * names: receives a null-terminated array, empty if there is no option; release it with free_str_array. When
 * a request gets no answer, the options found so far are the result, with 0; errno says why, such as EBADF
 * for a handle whose file descriptors are closed, or ENOMEM. One error answer is skipped, and the name before
 * it then occurs twice.
 * -1: the firmware has no enumeration, keeps giving errors or gives a name of over 256 characters, or there
 * is no memory; *names is null.
 */
int ovra_bootopt_list(ovra_hdl_t hdl, char ***names);

/*
 * The names of all load options that boot from a slice or partition of a disk: their first hard-drive node
 * has its number, start, size and signature. Options that cannot be read are skipped, and those that the
 * firmware does not name after an error (ovra_bootopt_list).
 * disk: a slice ("c0t0d0s0", also after "/dev/dsk/") or a partition ("c0t0d0p1", "/dev/rdsk/c0t0d0p1").
 * names: receives a null-terminated array in the firmware's order; null if there is none. Release it with
 * free_str_array.
 * -1: there is no such slice or partition, it or the options cannot be read, or there is no memory; *names is
 * null.
 */
int ovra_bootopt_find(ovra_hdl_t hdl, char *disk, char ***names);

/*
 * The disk names ("c0t0d0s0", "c0t0d0p1") for the first hard-drive node of a load option's path.
 * bootname: the option's name.
 * names: receives a null-terminated array; it has several names if disks are alike in signature, start and
 * size. Release it with free_str_array. A disk that cannot be looked at, for want of memory too, is passed
 * over.
 * -1: the option cannot be read or its path has no hard-drive node, and *names is untouched; or no disk has
 * such a partition or there is no memory, and *names is null.
 */
int ovra_bootopt_logdev(ovra_hdl_t hdl, char *bootname, char ***names);

/*
 * The name of the lowest option number that is not in use; an unreadable option counts as used.
 * bootname: receives the name.
 * -1: no number below FFFF is free, or there is no memory for the name.
 */
int ovra_bootopt_unused(ovra_hdl_t hdl, char **bootname);

/*
 * BootOrder, BootCurrent and BootNext (UEFI 3.3).
 *
 * These functions read an option's name loosely, as sscanf reads "Boot%hx": "Boot" in any case, then white
 * space, a sign, "0x" (each may be missing) and a hexadecimal number whose low 16 bits count. "boot1",
 * "Boot0x1", "Boot +1" and "Boot1 and more" all mean option 0001, "Boot-2" FFFE and "Boot0x" 0000. A number
 * that does not fit into 64 bits is FFFF. Positions count from 0.
 *
 *     int position;
 *     if (ovra_bootorder_get_position(hdl, "Boot0003", &position) == 0 && position > 0)
 *         ovra_bootorder_insert(hdl, "Boot0003", 0);
 *     ovra_bootnext_set(hdl, "Boot0003");
 */

/*
 * Puts an option into BootOrder, out of its old places if it had any. Without a BootOrder it makes one of
 * this option. Whether the option exists is not checked.
 * position: its place in the resulting order; beyond the end it appends. A negative position counts from the
 * end of the order as it was, with the option still in its old places: -1 is the place after the last entry,
 * -2 the place of the last entry, and so on down to the first place. So -2 in the order 1 2 3 gives
 * 1 2 9 3 for option 9, but 2 3 1 for option 1, which was in it.
 * -1: the name is invalid, or BootOrder cannot be read or written; BootOrder is untouched.
 */
int ovra_bootorder_insert(ovra_hdl_t hdl, char *bootname, int position);

/*
 * Takes an option out of BootOrder, at every place. 0 also if the option was not in it, or BootOrder is
 * absent.
 * -1: the name is invalid, or BootOrder cannot be read or written; BootOrder is untouched.
 */
int ovra_bootorder_remove(ovra_hdl_t hdl, char *bootname);

/*
 * The first position of an option in BootOrder.
 * position: receives it.
 * -1: the name is invalid, the option is not in BootOrder, or BootOrder cannot be read.
 */
int ovra_bootorder_get_position(ovra_hdl_t hdl, char *bootname, int *position);

/*
 * The name of the option at a position of BootOrder.
 * bootname: receives it.
 * -1: there is no BootOrder, the position lies outside it, it cannot be read, or there is no memory.
 */
int ovra_bootorder_get_bootname(ovra_hdl_t hdl, int position, char **bootname);

/*
 * The option that was booted.
 * bootname: receives its name.
 * -1: the firmware does not say, or there is no memory.
 */
int ovra_bootcurrent_get(ovra_hdl_t hdl, char **bootname);

/*
 * The option that will be booted once, at the next start.
 * bootname: receives its name.
 * -1: none is set, or there is no memory.
 */
int ovra_bootnext_get(ovra_hdl_t hdl, char **bootname);

/*
 * Sets the option to boot once, at the next start. Whether it exists is not checked.
 * -1: the name is invalid, or the variable cannot be written.
 */
int ovra_bootnext_set(ovra_hdl_t hdl, char *bootname);

/*
 * One field of a load option at a time.
 *
 * bootname: the option's name.
 * A getter reads the option and hands out the field. A setter reads the option, replaces the field and writes
 * the whole option back: the other fields stay byte for byte (the description as ovra_bootopt_get reads it).
 * -1: the option cannot be read, or cannot be written by a setter; it is untouched, but see ovra_bootopt_set.
 *
 *     uint32_t attributes;
 *     if (ovra_bootopt_attr_get(hdl, "Boot0003", &attributes) == 0)
 *         ovra_bootopt_attr_set(hdl, "Boot0003", attributes & ~(uint32_t)LOAD_OPTION_ACTIVE);
 */

/*
 * The device text of the first instance of the option's path, in UEFI text form.
 * devpath: receives it.
 * -1 also if the path cannot be decoded or has no such text. A node for which there is no memory is left out.
 */
int ovra_bootopt_devpath_get(ovra_hdl_t hdl, char *bootname, char **devpath);

/* The file text of that instance, likewise. */
int ovra_bootopt_bootpath_get(ovra_hdl_t hdl, char *bootname, char **bootpath);

/*
 * Replaces the device text of the first instance.
 * devpath: UEFI text, or the name of a disk.
 * The whole path goes through its text form, which does not carry everything: of the stored file text what
 * follows its first 1023 bytes of UTF-8, or an unpaired surrogate, is lost, with 0.
 * ovra_bootopt_encoded_path_set keeps every byte.
 * -1 also if the path has no first instance or the text cannot be encoded.
 */
int ovra_bootopt_devpath_set(ovra_hdl_t hdl, char *bootname, char *devpath);

/* Replaces the file text of that instance, likewise. bootpath: such as "\EFI\BOOT\BOOTX64.EFI". */
int ovra_bootopt_bootpath_set(ovra_hdl_t hdl, char *bootname, char *bootpath);

/* Replaces the packed path. epath, path_len: the path and its length in bytes. */
int ovra_bootopt_encoded_path_set(ovra_hdl_t hdl, char *bootname, ovra_epath_t epath, int path_len);

/* The description. description: receives it as UTF-8. */
int ovra_bootopt_desc_get(ovra_hdl_t hdl, char *bootname, char **description);

/*
 * Replaces the description.
 * description: of any length, but one of more than 127 characters cannot be read back.
 */
int ovra_bootopt_desc_set(ovra_hdl_t hdl, char *bootname, char *description);

/* The attributes. attributes: receives LOAD_OPTION_ bits. */
int ovra_bootopt_attr_get(ovra_hdl_t hdl, char *bootname, uint32_t *attributes);

/* Replaces the attributes. attributes: LOAD_OPTION_ bits, all 32. */
int ovra_bootopt_attr_set(ovra_hdl_t hdl, char *bootname, uint32_t attributes);

/*
 * The optional data.
 * data, data_len: receive it and its length in bytes; null and 0 if there is none.
 * It is found by 16 bits of its offset: for an option whose path ends beyond byte 65535 the getter gives too
 * much, and every setter writes that back.
 */
int ovra_bootopt_optdata_get(ovra_hdl_t hdl, char *bootname, void **data, size_t *data_len);

/* Replaces the optional data by data_len bytes at `data`; 0 removes it, and `data` may be null then. */
int ovra_bootopt_optdata_set(ovra_hdl_t hdl, char *bootname, void *data, size_t data_len);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

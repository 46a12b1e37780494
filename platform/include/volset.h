/* SPDX-License-Identifier: MIT */
/*
 * libvolset: the drives of the machine, their media, and the partitions and slices on these.
 *
 *     int err;
 *     vs_descriptor_t *slices = vs_get_descriptors(VS_SLICE, NULL, &err);
 *     for (vs_descriptor_t *slice = slices; slice && *slice; slice++) {
 *         char *name = vs_get_name(*slice, &err);
 *         if (name)
 *             puts(name);
 *         free(name);
 *     }
 *     vs_free_descriptors(slices);
 *
 * What there is, with its attributes (text is a uint8 array that includes the terminator):
 *   - A drive, named c<controller>t<target>d<unit>, has one medium, or none. "blocksize" (uint32, bytes of a
 *     logical block), "nblocks" (uint64, its size in logical blocks), "kernel-name" and "devfs-path" (text,
 *     its name to Linux and its physical path in the device tree). Of an array of disks (md) also "metadata"
 *     (text, its format, such as "1.0") and "members" (text, the Linux names of what it is made of, with
 *     blanks between them).
 *   - A medium: "blocksize" and "nblocks" as above; with an MBR "volserno" (uint32, the disk signature).
 *   - A partition of an MBR, "/dev/rdsk/<drive>p<n>"; p0 is the whole disk. "relsect" and "nsectors" (uint32,
 *     start and size in logical blocks, as the table has them: it may end beyond the disk).
 *   - A slice of a GPT, "/dev/dsk/<drive>s<n>", where n is one less than the number of its entry. "start" and
 *     "size" (uint64, in logical blocks), "uguid" (uint8 array, the 16 bytes of the partition GUID as stored
 *     on disk), "attributes" (uint64, the bits in its entry), "partlabel" (text in UTF-8, the name in its
 * entry) unless that is empty.
 *
 * A descriptor belongs to the caller until vs_free_descriptor, the descriptors of an array until
 * vs_free_descriptors. It stays valid while the machine changes; a call for something that is gone fails.
 * Descriptors are used by one thread at a time; calls with separate descriptors are independent.
 *
 * Errors: each call with `err` (which must not be null) writes 0 there on success. On failure it writes an
 * errno value and returns null: ENOENT (no such name, or gone), ENOMEM, EINVAL (no such kind, or none
 * associated with this one), ELIBACC (libblkid, which media need, cannot be loaded), or why the machine or
 * the disk cannot be read. An empty array is not a failure.
 *
 * If any part of the machine cannot be read (EMFILE, EIO or EACCES, say), every call that reads it fails.
 * What is absent, or makes no sense, is left out.
 *
 * A disk that cannot be read is left out of arrays of all media, partitions or slices. A call for the media
 * of its drive, or for one of these by name, fails with the reason, such as EACCES or EIO. A blank disk, or
 * one without a device file, has no media.
 *
 * Between devns_begin and devns_end (devns.h) all calls of a thread use one picture of the machine.
 */
#ifndef HWPLAT_VOLSET_H
#define HWPLAT_VOLSET_H

#include <stdint.h>

#include "kvlist.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef uint64_t vs_descriptor_t; /* null: 0 */
typedef enum { VS_DRIVE = 1, VS_MEDIA = 2, VS_PARTITION = 3, VS_SLICE = 4 } vs_kind_t;

/*
 * All descriptors of a kind, as a new array that ends with 0; release it with vs_free_descriptors. The order
 * stays the same while the machine does. `filter` is null: all.
 */
vs_descriptor_t *vs_get_descriptors(vs_kind_t kind, const int *filter, int *err);

/*
 * The descriptor with a name; release it with vs_free_descriptor. A slice is named "/dev/dsk/<slice>" and a
 * partition "/dev/rdsk/<partition>", either also without the folder. A drive, and the medium of that drive,
 * is named "<drive>" or "/dev/dsk/<drive>".
 */
vs_descriptor_t vs_get_descriptor_by_name(vs_kind_t kind, const char *name, int *err);

/*
 * What is associated with a descriptor, as a new array that ends with 0; release it with vs_free_descriptors.
 * Of a drive, a partition or a slice: its medium (VS_MEDIA). Of a medium: its partitions or slices, by
 * number.
 */
vs_descriptor_t *vs_get_associated_descriptors(vs_descriptor_t desc, vs_kind_t kind, int *err);

/* The attributes of a descriptor, as a new list; release it with kvlist_free. Unknown ones are not in the
 * list. */
kvlist_t *vs_get_attributes(vs_descriptor_t desc, int *err);

/*
 * The file system in a partition or a slice, as a new list; release it with kvlist_free. Text without its
 * encoding changed: "type" (such as "vfat"), "uuid" (as Linux writes it, for a FAT "1A2B-3C4D"), "label".
 * What it has not, or has empty, is not in the list, which is empty when there is no file system, or several
 * at once. A member of a RAID or of a volume group counts as none: the identity stands for the whole. The
 * device is read at each call. EINVAL for a drive or a medium.
 */
kvlist_t *vs_get_file_system(vs_descriptor_t desc, int *err);

/*
 * What is on a drive, whether or not it has a medium, as a new list; release it with kvlist_free. "kind"
 * (text) is one of
 *     "gpt", "mbr"    a table, which media are there for. "first-header-damaged" (uint32): 1 if only the copy
 *                     at the end of the disk makes this a GPT, which some firmware does not look for.
 *     "damaged-gpt"   a GPT of which neither copy is good; "detail" (text): what is wrong, unless both
 * headers are damaged "unused-gpt"    a good GPT that Linux does not take for one; "detail" (text): why, such
 * as "no protective MBR" "other-table"   a table without media; "detail" (text): its kind, such as "sun"
 *     "file-system"   a file system without a table; "detail" (text): its type, such as "vfat"
 *     "unknown"       something else
 *     "blank"         zeros in the first and the last 256 KiB
 *     "absent"        nothing that can be read: no device file, or no medium in the drive
 * "short" (uint32): 1 if the device or image ends before the disk does. "more-entries" (uint32): 1 if the
 * table has entries that are not among its slices or partitions, as they make no sense. A disk that cannot be
 * read is no error: "error" (uint32) is the errno value, and there is no "kind". Null with EINVAL for a
 * descriptor of another kind than VS_DRIVE.
 */
kvlist_t *vs_get_contents(vs_descriptor_t drive, int *err);

/*
 * How a drive is attached behind its controller, as far as the machine tells, as a new list; release it with
 * kvlist_free.
 *     "transport" (text): "sata", "ide", "scsi", "sas", "nvme", "usb", "sd", "emmc", "virtio-blk" or "ufs"
 *     "place-unknown" (text): why its place is not known, which then has no numbers
 *     numbers (uint64), from 0 unless said otherwise: "port" and "multiplier-port" (sata, the latter behind a
 *         port multiplier), "channel" (ide, scsi), "target" (ide, scsi, ufs), "lun" (scsi, sas, ufs; usb,
 *         where the device has several), "sas-address", "namespace" (nvme, from 1), "interface" (usb), "slot"
 *         (sd, emmc)
 *     "eui64" (uint8 array): of an nvme namespace that has one, the 8 bytes of its EUI-64
 *     "usb-ports" (uint8 array): from the controller to the drive, as firmware counts them
 *     "removable" (uint64): 1 for a drive with removable media
 * What does not apply is not in the list. It is read at each call.
 * Null with EINVAL for a descriptor of another kind than VS_DRIVE.
 */
kvlist_t *vs_get_attachment(vs_descriptor_t drive, int *err);

/*
 * The name of a drive ("c0t0d0"), a partition ("/dev/rdsk/c0t0d0p1") or a slice ("/dev/dsk/c0t0d0s0"), as a
 * new string; release it with free(3). A medium has the name of its drive.
 */
char *vs_get_name(vs_descriptor_t desc, int *err);

/* Release one descriptor, or an array with its descriptors. `desc` may be 0, `descs` null. */
void vs_free_descriptor(vs_descriptor_t desc);
void vs_free_descriptors(vs_descriptor_t *descs);

#ifdef __cplusplus
}
#endif

#endif

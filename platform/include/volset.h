/* SPDX-License-Identifier: MIT */
/*
 * libvolset: the drives of the machine, their media, and the partitions and slices on these.
 *
 * A drive, named c<controller>t<target>d<lun>, has one medium, or none that can be read. Attributes:
 * "blocksize" (uint32, bytes of a logical block), "nblocks" (uint64), and as text with its terminator (uint8
 * array) "kernel-name" and "devfs-path", its names to Linux and in the device tree.
 *
 * A medium. Attributes: "blocksize" and "nblocks" too; with an MBR "volserno" (uint32), the disk signature.
 *
 * A partition of an MBR, "/dev/rdsk/<drive>p<n>"; p0 is the whole disk. Attributes: "relsect", "nsectors"
 * (uint32).
 *
 * A slice of a GPT, "/dev/dsk/<drive>s<n>", n one less than the number of its entry. Attributes: "start",
 * "size" (uint64), "uguid" (uint8 array, the 16 bytes of the partition GUID as they stand on disk).
 *
 * Starts and sizes are in logical blocks of the medium.
 *
 * A descriptor belongs to the caller until vs_free_descriptor, one in an array until vs_free_descriptors. It
 * stays usable while the machine changes; a call for something that is gone fails. Descriptors are used by
 * one thread at a time; calls with separate descriptors are independent.
 *
 * Errors: each call that takes `err` (which must not be null) writes 0 there on success, and on failure an
 * errno value, and returns null: ENOENT (no such name, or gone), ENOMEM, EINVAL (no such kind, or none
 * associated with this one), or why the machine or the disk cannot be read. That there are none is no
 * failure: the array is then empty. A machine that cannot be read whole fails every call that looks at it,
 * such as with EMFILE, EIO or EACCES; what is not there, or says nothing that makes sense, is left out.
 *
 * A disk that cannot be read itself is left out of arrays of all media, partitions or slices. Asked for the
 * media of its drive, or for one of these by name, the call fails with the reason, such as EACCES or EIO. A
 * blank disk, or one without a file, has no media.
 *
 * Between devns_begin and devns_end (devns.h) all calls of a thread look at one picture of the machine.
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
 * All descriptors of a kind, as a new array with a 0 at its end, in an order that stays the same while the
 * machine does. `filter` is null: all.
 */
vs_descriptor_t *vs_get_descriptors(vs_kind_t kind, const int *filter, int *err);

/*
 * The slice of the name "/dev/dsk/<slice>", or the partition of the name "/dev/rdsk/<partition>", either also
 * without its folder; the drive, respectively its medium, of the name "<drive>" or "/dev/dsk/<drive>".
 */
vs_descriptor_t vs_get_descriptor_by_name(vs_kind_t kind, const char *name, int *err);

/*
 * What belongs to a descriptor, as a new array with a 0 at its end: the media of a drive, of a partition or
 * of a slice; the partitions or slices of a medium, in order of their numbers.
 */
vs_descriptor_t *vs_get_associated_descriptors(vs_descriptor_t desc, vs_kind_t kind, int *err);

/* The attributes of a descriptor, as a new list (kvlist_free). One that is not known is not in the list. */
kvlist_t *vs_get_attributes(vs_descriptor_t desc, int *err);

/*
 * The name of a drive ("c0t0d0"), a partition ("/dev/rdsk/c0t0d0p1") or a slice ("/dev/dsk/c0t0d0s0"), as a
 * new string: free() it. A medium has the name of its drive.
 */
char *vs_get_name(vs_descriptor_t desc, int *err);

/* Release one descriptor, respectively an array with those in it. 0 and null are allowed. */
void vs_free_descriptor(vs_descriptor_t desc);
void vs_free_descriptors(vs_descriptor_t *descs);

#ifdef __cplusplus
}
#endif

#endif

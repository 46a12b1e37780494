/* SPDX-License-Identifier: MIT */
/*
 * The operating system's devices as device paths and back: nodes of the device tree and disk names to device
 * path nodes, and hard-drive nodes to disk names. Nodes and lists are of the malloc family, not tracked.
 */
#ifndef SRC_OSMAP_OSMAP_H
#define SRC_OSMAP_OSMAP_H

#include <ovra/ovra.h>

#include "platform/include/hwtree.h"
#include "platform/include/volset.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A new node of the given values. 0; or -1 without memory, with *out as it was. The caller frees *out. */
int add_acpi(uint32_t hid, uint32_t uid, uefi_device_path_t **out);
int add_pci(uint8_t function, uint8_t device, uefi_device_path_t **out);
int add_ctrl(uint8_t controller, uefi_device_path_t **out);
int add_scsi(uint16_t target, uint16_t lun, uefi_device_path_t **out);
int add_atapi(uint8_t channel, uint8_t drive, uint16_t lun, uefi_device_path_t **out);
int add_sata(uint16_t port, uint16_t port_mult, uint16_t lun, uefi_device_path_t **out);

/*
 * The device path node that stands for a node of the device tree. 0 with a new node, which the caller frees;
 * 0 with *out as it was for an "ide" node, which stands for nothing; or -1 with *out as it was.
 */
int dinode_to_uefinode(ht_node_t node, uefi_device_path_t **out);

/*
 * Appends to *list (null: none yet) a node for each component of a physical path. `path` is a name that holds
 * "/devices/", one of a link below "/dev/", or a disk's name such as "c0t0d0s0". 0 or -1; either way the
 * caller frees *list with free_device_path, including nodes appended before a failure. After an "ide"
 * component it holds the preceding node twice.
 */
int add_hardware_paths(const char *path, uefi_device_path_t ***list);

/*
 * The hard-drive node of a slice ("c0t0d0s0") or partition ("c0t0d0p1"), also with "/dev/dsk/" or
 * "/dev/rdsk/" in front. 0 with a new node, which the caller frees; or -1 with *out as it was.
 */
int add_hd_path(const char *name, uefi_device_path_t **out);

/* The same for one of the two forms, by the bare disk name. */
int add_hd_path_slice(const char *disk, uefi_device_path_t **out);
int add_hd_path_partition(const char *disk, uefi_device_path_t **out);

/* The MBR signature of the medium that holds a partition. 0, or -1 with *sig as it was. */
int get_mbr_sig(vs_descriptor_t partition, uint32_t *sig);

/*
 * The packed path of a disk's slice or partition: a hard-drive node, a File-path node of `file` (null: none)
 * and an END node; with bit 0 of `flags` the hardware nodes of the disk in front. *epath receives a new block
 * of *len bytes that the handle owns; either may be null. 0, or -1 with both as they were.
 */
int encode_path_logdrive(ovra_hdl_t hdl, const char *device, const char *file, int flags, ovra_epath_t *epath,
                         int *len);

/*
 * The short names of all partitions or slices that a hard-drive node of at least 42 bytes stands
 * for, in the order of the drives. *names must be null. 0 with a null-terminated array that the handle owns
 * (free_str_array); or -1, with *names as it was: there is none, or no memory.
 */
int find_drive_mbrsig(ovra_hdl_t hdl, const uefi_hard_drive_path_t *hd, char ***names);
int find_drive_guid(ovra_hdl_t hdl, const uefi_hard_drive_path_t *hd, char ***names);

#ifdef __cplusplus
}
#endif

#endif

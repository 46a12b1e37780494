/* SPDX-License-Identifier: MIT */
/*
 * Device paths in binary (UEFI chapter 10): lists of separately allocated nodes, and packed paths. All blocks
 * are of the malloc family, not tracked by a handle.
 */
#ifndef SRC_DPATH_DPATH_H
#define SRC_DPATH_DPATH_H

#include <ovra/ovra.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Appends `node` to *list, a null-terminated array (null: none yet), which owns it from then on. 0, or -1
 * without memory: *list and the node's owner are as they were.
 */
int add_dpath_list(uefi_device_path_t ***list, uefi_device_path_t *node);

/* A new File-path node of the UTF-8 text as it stands. 0 or -1; the caller frees *out. */
int add_file_path(const char *path, uefi_device_path_t **out);

/* A new END node. 0 or -1; the caller frees *out. */
int add_device_end(uint8_t subtype, uefi_device_path_t **out);

/* Frees the list and its nodes; a node repeated in a row is freed once. A null list is allowed. */
void free_device_path(uefi_device_path_t **list);

/*
 * Lays the nodes of a null-terminated list (null: none) end to end in a new block, which the caller frees.
 * Either output may be null; without `out` the call only measures. 0, or -1 without memory.
 */
int device_path_pack(uefi_device_path_t **list, ovra_epath_t *out, int *len);

/*
 * Splits a packed path of `len` bytes into a new list, up to and with its END-entire node, which may be
 * missing. 0, with a null list when `len` is below 1; or -1: a node that runs past `len`, is shorter than
 * its header or of no known type, or no memory. *list is null then.
 */
int device_path_unpack(ovra_epath_t path, int len, uefi_device_path_t ***list);

/* 0 when the nodes match: alike in every byte, or both a PCI root bridge of either kind. Else -1. */
int compare_dpath_nodes(uefi_device_path_t *a, uefi_device_path_t *b);

#ifdef __cplusplus
}
#endif

#endif

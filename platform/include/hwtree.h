/* SPDX-License-Identifier: MIT */
/*
 * libhwtree: a read-only snapshot of the device tree.
 *
 * The root is named "hwplat". A node is known by its name and its unit address, together a component
 * "name@address" of a physical path; what the names, addresses and properties of each level are is in
 * docs/platform.md. Nothing in a snapshot changes while it exists, whatever happens to the machine.
 *
 * Nodes, and every string and integer that a call below returns without saying that it is new, belong to the
 * snapshot and are valid until ht_fini. A snapshot is used by one thread at a time; separate snapshots are
 * independent.
 */
#ifndef HWPLAT_HWTREE_H
#define HWPLAT_HWTREE_H

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ht_node *ht_node_t; /* null: no node */

#define HT_SUBTREE 0x1u        /* every node below the path, not its own alone */
#define HT_PROPS 0x2u          /* with properties */
#define HT_DEV_ANY ((dev_t)-1) /* a property for any device number */

/*
 * Takes a snapshot from `path` ("/": the root of the tree) on. Returns its root, to be released with ht_fini;
 * or null with errno: ENOENT (no such node), ENOMEM, or why the machine cannot be read, such as EMFILE, EIO
 * or EACCES. Nothing is left out because it cannot be read; what is not there, or says nothing that makes
 * sense, is. Between devns_begin and devns_end (devns.h) it is of the one picture that the thread has there.
 */
ht_node_t ht_init(const char *path, unsigned int flags);

/* Releases the snapshot of which `root` is the root. Null is allowed. */
void ht_fini(ht_node_t root);

/*
 * The neighbours of a node, or null: the first child; the next child of the same parent; the parent. The
 * order of children is the same in every snapshot of an unchanged machine.
 */
ht_node_t ht_child_node(ht_node_t node);
ht_node_t ht_sibling_node(ht_node_t node);
ht_node_t ht_parent_node(ht_node_t node);

/* The part of a component before its "@", such as "pci8086,2922" or "disk". */
const char *ht_node_name(ht_node_t node);

/* The part behind it, such as "1f,2"; null when the node has none. */
const char *ht_bus_addr(ht_node_t node);

/*
 * The physical path of a node, such as "/pci@0,0/pci8086,2922@1f,2/disk@0,0"; "/" for the root. Without
 * "/devices" in front and without a minor name behind. A new string, to be released with ht_devfs_path_free;
 * null with errno when there is no memory.
 */
char *ht_devfs_path(ht_node_t node);
void ht_devfs_path_free(char *path);

/*
 * Properties, for the device number `dev` (HT_DEV_ANY). The number of values, with the pointer written; or -1
 * when the node has no such property or one of another type, with the pointer as it was. Strings stand one
 * behind the other, each with its terminator.
 */
int ht_prop_lookup_ints(dev_t dev, ht_node_t node, const char *name, int **values);
int ht_prop_lookup_strings(dev_t dev, ht_node_t node, const char *name, char **strings);

#ifdef __cplusplus
}
#endif

#endif

/* SPDX-License-Identifier: MIT */
/*
 * libhwtree: a read-only snapshot of the device tree.
 *
 *     ht_node_t root = ht_init("/", HT_SUBTREE | HT_PROPS);
 *     for (ht_node_t node = root ? ht_child_node(root) : NULL; node; node = ht_sibling_node(node))
 *         puts(ht_node_name(node));
 *     ht_fini(root);
 *
 * The root of the tree is named "hwplat". A node has a name and a unit address; together they are a component
 * "name@address" of a physical path. docs/platform.md lists the names, addresses and properties of each
 * level. A snapshot does not change while it exists, whatever happens to the machine.
 *
 * Nodes belong to their snapshot and are valid until ht_fini. So are the strings and integers that the calls
 * return, unless a call says that its string is new. A snapshot is used by one thread at a time; separate
 * snapshots are independent.
 */
#ifndef HWPLAT_HWTREE_H
#define HWPLAT_HWTREE_H

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ht_node *ht_node_t; /* null: no node */

#define HT_SUBTREE 0x1u        /* every node below the path, instead of its own alone */
#define HT_PROPS 0x2u          /* with properties */
#define HT_DEV_ANY ((dev_t)-1) /* a property for any device number */

/*
 * Takes a snapshot of the node with the physical path `path` ("/" for the root), and of the nodes below it
 * with HT_SUBTREE. `flags`: HT_SUBTREE, HT_PROPS, both or 0.
 *
 * Returns the root of the snapshot, to be released with ht_fini; or null with errno: ENOENT (no such node),
 * ENOMEM, or why the machine cannot be read, such as EMFILE, EIO or EACCES. Nothing is left out because it
 * cannot be read; what is absent, or makes no sense, is left out. Between devns_begin and devns_end (devns.h)
 * the snapshot shows the thread's picture of the machine.
 */
ht_node_t ht_init(const char *path, unsigned int flags);

/* Releases the snapshot with this root. `root` may be null. */
void ht_fini(ht_node_t root);

/*
 * The neighbours of a node: its first child, the next child of its parent, its parent. Null if there is none
 * in the snapshot. Every snapshot of an unchanged machine has the same order of children.
 */
ht_node_t ht_child_node(ht_node_t node);
ht_node_t ht_sibling_node(ht_node_t node);
ht_node_t ht_parent_node(ht_node_t node);

/* The part of a component before its "@", such as "pci8086,2922" or "disk". */
const char *ht_node_name(ht_node_t node);

/* The part after the "@", such as "1f,2"; null if the node has no address. */
const char *ht_bus_addr(ht_node_t node);

/*
 * The physical path of a node, such as "/pci@0,0/pci8086,2922@1f,2/disk@0,0"; "/" for the root of the tree.
 * It has no leading "/devices" and no minor name. Returns a new string, to be released with
 * ht_devfs_path_free; or null with errno ENOMEM.
 */
char *ht_devfs_path(ht_node_t node);

/* Releases a string of ht_devfs_path. `path` may be null. */
void ht_devfs_path_free(char *path);

/*
 * Look up a property by its name. `dev` is a device number, or HT_DEV_ANY. Return the number of values and
 * point `*values` or `*strings` at the first; or return -1, with the pointer unchanged, when the node has no
 * such property, or one of the other type, or the snapshot was taken without HT_PROPS. The strings follow one
 * another, each with its terminator.
 */
int ht_prop_lookup_ints(dev_t dev, ht_node_t node, const char *name, int **values);
int ht_prop_lookup_strings(dev_t dev, ht_node_t node, const char *name, char **strings);

#ifdef __cplusplus
}
#endif

#endif

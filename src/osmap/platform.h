/* SPDX-License-Identifier: MIT */
/* Owners of what the platform's calls return, and answers of the device tree made safe to read. */
#ifndef SRC_OSMAP_PLATFORM_H
#define SRC_OSMAP_PLATFORM_H

#include <algorithm>
#include <memory>

#include "platform/include/devns.h"
#include "platform/include/hwtree.h"
#include "platform/include/kvlist.h"
#include "platform/include/volset.h"

// A libdevns of somebody else's may lack these two.
#pragma weak devns_begin
#pragma weak devns_end

namespace ovra {

/*
 * While it exists, the platform's calls see one state of the machine: a name means the same to all of them.
 */
class one_picture {
public:
    one_picture()
    {
        if (devns_begin && devns_end)
            devns_begin();
    }
    one_picture(const one_picture &) = delete;
    one_picture &operator=(const one_picture &) = delete;
    ~one_picture()
    {
        if (devns_begin && devns_end)
            devns_end();
    }
};

struct snapshot_freeing {
    void operator()(ht_node *root) const { ht_fini(root); }
};

/* The root of a snapshot of the device tree. */
using snapshot = std::unique_ptr<ht_node, snapshot_freeing>;

/* The whole tree with its properties; null on failure. */
inline snapshot take_snapshot()
{
    return snapshot(ht_init("/", HT_SUBTREE | HT_PROPS));
}

struct devfs_path_freeing {
    void operator()(char *path) const { ht_devfs_path_free(path); }
};

/* The physical path of a node. */
using devfs_path = std::unique_ptr<char, devfs_path_freeing>;

struct attributes_freeing {
    void operator()(kvlist_t *list) const { kvlist_free(list); }
};

/* The attributes of a descriptor. */
using attributes = std::unique_ptr<kvlist_t, attributes_freeing>;

struct descriptors_freeing {
    void operator()(vs_descriptor_t *descs) const { vs_free_descriptors(descs); }
};

/* An array of descriptors that ends with a 0. */
class descriptors : public std::unique_ptr<vs_descriptor_t[], descriptors_freeing> {
public:
    using unique_ptr::unique_ptr;
    /* No array, or one without a descriptor. */
    bool is_empty() const { return !get() || get()[0] == 0; }
};

/* One descriptor. */
class descriptor {
public:
    explicit descriptor(vs_descriptor_t owned) : desc(owned) {}
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    ~descriptor() { reset(); }

    vs_descriptor_t get() const { return desc; }
    explicit operator bool() const { return desc != 0; }
    void reset()
    {
        if (desc != 0)
            vs_free_descriptor(desc);
        desc = 0;
    }

private:
    vs_descriptor_t desc;
};

/* A node's name and unit address; empty if it has none. */
inline const char *name_of(ht_node_t node)
{
    const char *name = ht_node_name(node);
    return name ? name : "";
}

inline const char *address_of(ht_node_t node)
{
    const char *address = ht_bus_addr(node);
    return address ? address : "";
}

/* Whether snprintf, which returned `length`, had room for its whole text in `size` bytes. */
inline bool fits(int length, size_t size)
{
    return length >= 0 && static_cast<size_t>(length) < size;
}

/* The target of a link, cut to `size` bytes with its terminator. */
inline bool read_link(const char *link, char *target, size_t size)
{
    const ssize_t length = devns_readlink(link, target, size - 1);
    if (length < 0)
        return false;
    target[std::min(static_cast<size_t>(length), size - 1)] = '\0';
    return true;
}

} // namespace ovra

#endif

/* SPDX-License-Identifier: MIT */
/* Node lists inside the library. */
#ifndef SRC_DPATH_LIST_H
#define SRC_DPATH_LIST_H

#include <memory>

#include "src/dpath/dpath.h"
#include "src/rt/owned.h"

namespace ovra {

struct node_list_freeing {
    void operator()(uefi_device_path_t **list) const { free_device_path(list); }
};

/* Owns a list and its nodes. */
using node_list = std::unique_ptr<uefi_device_path_t *, node_list_freeing>;

/* A list under construction, which neither counts nor moves a long path again for each node. */
class node_list_builder {
public:
    /* Takes the node; -1 without memory, and the node is then released. */
    int append(owned<uefi_device_path_t> node);

    /* The list, null without a node, for the caller to free. */
    uefi_device_path_t **release() { return list.release(); }

private:
    node_list list;
    size_t count = 0;
    size_t capacity = 0;
};

} // namespace ovra

#endif

/* SPDX-License-Identifier: MIT */
/* Node lists inside the library. */
#ifndef SRC_DPATH_LIST_H
#define SRC_DPATH_LIST_H

#include <memory>

#include "src/base/nodes.h"
#include "src/dpath/dpath.h"
#include "src/rt/list.h"
#include "src/rt/owned.h"

namespace ovra {

struct node_list_freeing {
    void operator()(uefi_device_path_t **list) const { free_device_path(list); }
};

/* Owns a list and its nodes. */
using node_list = std::unique_ptr<uefi_device_path_t *, node_list_freeing>;

/* A list under construction. A node that it cannot take is released. */
using node_list_builder = growing_list<node_list, plain_memory>;

/*
 * The nodes of a packed path that device_path_unpack makes a list of, where they stand. 0, or -1 with its
 * messages.
 */
int accept_nodes(const uint8_t *path, int len, cursor *accepted);

} // namespace ovra

#endif

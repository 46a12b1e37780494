/* Node lists inside the library. */
#ifndef SRC_DPATH_LIST_H
#define SRC_DPATH_LIST_H

#include <memory>

#include "src/dpath/dpath.h"

namespace ovra {

/* add_dpath_list for a caller that knows the number of nodes, so that a long path is not counted again. */
int append_node(uefi_device_path_t ***list, size_t count, uefi_device_path_t *node);

struct node_list_freeing {
    void operator()(uefi_device_path_t **list) const { free_device_path(list); }
};

/* Owns a list and its nodes. */
using node_list = std::unique_ptr<uefi_device_path_t *, node_list_freeing>;

} // namespace ovra

#endif

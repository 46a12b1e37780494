// SPDX-License-Identifier: MIT
#include "src/dpath/list.h"

#include <cstdlib>

int add_dpath_list(uefi_device_path_t ***list, uefi_device_path_t *node)
{
    return ovra::append_entry(list, node, ovra::plain_memory());
}

void free_device_path(uefi_device_path_t **list)
{
    if (!list)
        return;
    // A node may stand several times in a row: the disk mapper repeats the one before an "ide" level.
    for (uefi_device_path_t **node = list; *node; ++node) {
        if (*node != node[1])
            free(*node);
    }
    free(list);
}

// SPDX-License-Identifier: MIT
#include <cstdlib>

#include "src/dpath/dpath.h"
#include "src/dpath/list.h"

static uefi_device_path_t **resize(uefi_device_path_t **list, size_t pointers)
{
    return static_cast<uefi_device_path_t **>(realloc(list, pointers * sizeof(uefi_device_path_t *)));
}

int add_dpath_list(uefi_device_path_t ***list, uefi_device_path_t *node)
{
    size_t count = 0;
    while (*list && (*list)[count])
        ++count;
    auto **grown = resize(*list, count + 2);
    if (!grown)
        return -1;
    grown[count] = node;
    grown[count + 1] = nullptr;
    *list = grown;
    return 0;
}

int ovra::node_list_builder::append(owned<uefi_device_path_t> node)
{
    if (count + 2 > capacity) {
        const size_t doubled = capacity == 0 ? 8 : 2 * capacity;
        auto **grown = resize(list.get(), doubled);
        if (!grown)
            return -1;
        static_cast<void>(list.release());
        list.reset(grown);
        capacity = doubled;
    }
    list.get()[count] = node.release();
    list.get()[++count] = nullptr;
    return 0;
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

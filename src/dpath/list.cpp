#include <cstdlib>

#include "src/dpath/dpath.h"
#include "src/dpath/list.h"

int ovra::append_node(uefi_device_path_t ***list, size_t count, uefi_device_path_t *node)
{
    auto **grown =
        static_cast<uefi_device_path_t **>(realloc(*list, (count + 2) * sizeof(uefi_device_path_t *)));
    if (!grown)
        return -1;
    grown[count] = node;
    grown[count + 1] = nullptr;
    *list = grown;
    return 0;
}

int add_dpath_list(uefi_device_path_t ***list, uefi_device_path_t *node)
{
    size_t count = 0;
    while (*list && (*list)[count])
        ++count;
    return ovra::append_node(list, count, node);
}

void free_device_path(uefi_device_path_t **list)
{
    if (!list)
        return;
    for (uefi_device_path_t **node = list; *node; ++node)
        free(*node);
    free(list);
}

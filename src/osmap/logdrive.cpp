// SPDX-License-Identifier: MIT
#include <cstring>

#include "src/dpath/list.h"
#include "src/osmap/harddrive.h"
#include "src/osmap/platform.h"
#include "src/rt/diag.h"
#include "src/rt/owned.h"

using ovra::fail;
using ovra::node_list_builder;
using ovra::owned;

namespace {

int append(uefi_device_path_t *node, node_list_builder *list)
{
    return list->append(owned<uefi_device_path_t>(node)) == 0 ? 0 : fail("unable to add dpath_node\n");
}

int add_hardware(const char *disk, node_list_builder *list)
{
    uefi_device_path_t **nodes = nullptr;
    const int result = add_hardware_paths(disk, &nodes);
    *list = node_list_builder(ovra::node_list(nodes));
    return result == 0 ? 0 : fail("unable to construct full path\n");
}

int add_media(const char *disk, node_list_builder *list)
{
    uefi_device_path_t *node = nullptr;
    if (add_hd_path(disk, &node) != 0)
        return fail("unable to create hd media device path\n");
    return append(node, list);
}

int add_file(const char *file, node_list_builder *list)
{
    uefi_device_path_t *node = nullptr;
    if (add_file_path(file, &node) != 0)
        return fail("unable to create file device path\n");
    return append(node, list);
}

int add_end(node_list_builder *list)
{
    uefi_device_path_t *node = nullptr;
    if (add_device_end(UEFI_END_ENTIRE, &node) != 0)
        return fail("unable to create end device path\n");
    return append(node, list);
}

} // namespace

int encode_path_logdrive(ovra_hdl_t hdl, const char *device, const char *file, int flags, ovra_epath_t *epath,
                         int *len)
{
    constexpr int full_path = 1;
    if (strncmp(device, ovra::slice_folder, ovra::length_of(ovra::slice_folder)) == 0)
        device += ovra::length_of(ovra::slice_folder);

    const ovra::one_picture picture;
    node_list_builder list;
    if ((flags & full_path && add_hardware(device, &list) != 0) || add_media(device, &list) != 0 ||
        (file && add_file(file, &list) != 0) || add_end(&list) != 0)
        return -1;

    ovra_epath_t bytes = nullptr;
    int size = 0;
    if (device_path_pack(list.get(), epath ? &bytes : nullptr, &size) != 0)
        return fail("unable to pack device path\n");
    owned<uint8_t> packed(bytes);
    if (memlist_add(hdl, bytes) != 0)
        return -1;
    if (epath)
        *epath = packed.release();
    if (len)
        *len = size;
    return 0;
}

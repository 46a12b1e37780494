// SPDX-License-Identifier: MIT
#include <cstring>

#include "src/dpath/list.h"
#include "src/encode/encode.h"
#include "src/osmap/osmap.h"
#include "src/rt/diag.h"

using ovra::fail;

static bool starts_with(const char *text, const char *prefix)
{
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

// A disk's name, such as "/dev/dsk/c0t0d0s0" or "c0t0d0s0".
static bool is_logical_disk(const char *text)
{
    return starts_with(text, "/dev/dsk/c") || (text[0] == 'c' && text[1] >= '0' && text[1] <= '9');
}

static int encode_uefi_text(ovra_path_t **paths, ovra_epath_t *epath_out, int *len_out)
{
    uefi_device_path_t **nodes = nullptr;
    if (encode_uefipath(paths, &nodes) != 0)
        return fail("error with encode_uefipath\n");
    const ovra::node_list list(nodes);
    if (device_path_pack(list.get(), epath_out, len_out) != 0)
        return fail("unable to pack dpath_list\n");
    return 0;
}

// Kept: a name of the device tree is looked up and accepted, but nothing is packed; the outputs stay as they
// were. [kept_names_of_the_tree_are_accepted_without_a_path]
static int look_up_in_tree(const char *device)
{
    ovra::say("encoding non block /dev or any /devices paths not available\n");
    uefi_device_path_t **nodes = nullptr;
    const int result = add_hardware_paths(device, &nodes);
    const ovra::node_list list(nodes);
    return result == 0 ? 0 : fail("unable to construct full path\n");
}

int ovra_epath_encode(ovra_hdl_t hdl, ovra_path_t **paths, int flags, ovra_epath_t *epath_out, int *len_out)
{
    const char *device = paths[0]->device_path;
    if (is_logical_disk(device)) {
        if (paths[1])
            return fail("encoding composite drives not supported\n");
        return encode_path_logdrive(hdl, device, paths[0]->file_path, flags, epath_out, len_out);
    }
    if (starts_with(device, "/dev/") || starts_with(device, "/devices/"))
        return look_up_in_tree(device);
    return encode_uefi_text(paths, epath_out, len_out);
}

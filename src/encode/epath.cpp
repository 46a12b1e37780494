// SPDX-License-Identifier: MIT
#include "src/base/device_name.h"
#include "src/dpath/list.h"
#include "src/encode/encode.h"
#include "src/osmap/osmap.h"
#include "src/rt/diag.h"

using ovra::fail;

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
    switch (ovra::device_text_of(device)) {
    case ovra::device_text::disk:
        if (paths[1])
            return fail("encoding composite drives not supported\n");
        return encode_path_logdrive(hdl, device, paths[0]->file_path, flags, epath_out, len_out);
    case ovra::device_text::name:
        return look_up_in_tree(device);
    case ovra::device_text::nodes:
        break;
    }
    return encode_packed_path(paths, epath_out, len_out);
}

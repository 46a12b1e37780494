#include <cstring>

#include "src/dpath/list.h"
#include "src/encode/encode.h"
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

int ovra_epath_encode(ovra_hdl_t, ovra_path_t **paths, int, ovra_epath_t *epath_out, int *len_out)
{
    const char *device = paths[0]->device_path;
    if (is_logical_disk(device)) {
        if (paths[1])
            return fail("encoding composite drives not supported\n");
        return fail("unable to construct full path\n");
    }
    if (starts_with(device, "/dev/") || starts_with(device, "/devices/")) {
        ovra::say("encoding non block /dev or any /devices paths not available\n");
        return fail("unable to construct full path\n");
    }
    return encode_uefi_text(paths, epath_out, len_out);
}

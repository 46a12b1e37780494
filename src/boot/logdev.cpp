// SPDX-License-Identifier: MIT
#include "src/boot/boot.h"
#include "src/dpath/list.h"
#include "src/osmap/harddrive.h"
#include "src/rt/diag.h"

using ovra::fail;
using ovra::tracked;

int ovra_bootopt_logdev(ovra_hdl_t hdl, char *bootname, char ***names)
{
    ovra_epath_t path = nullptr;
    int path_len = 0;
    const int result = ovra_bootopt_get(hdl, bootname, &path, &path_len, nullptr, nullptr, nullptr, nullptr);
    if (result != 0)
        return fail("unable to get load option: %d\n", result);
    const tracked<uint8_t> packed(path, {hdl});

    uefi_device_path_t **nodes = nullptr;
    if (device_path_unpack(path, path_len, &nodes) != 0)
        return -1;
    const ovra::node_list list(nodes);
    const uefi_device_path_t *drive = ovra::first_hard_drive(nodes);
    if (!drive)
        return fail("unable to find hard drive path\n");
    *names = nullptr;
    return ovra::find_drives(hdl, drive, names);
}

// SPDX-License-Identifier: MIT
#include "src/boot/boot.h"
#include "src/osmap/harddrive.h"
#include "src/rt/diag.h"

using ovra::fail;

int ovra_bootopt_logdev(ovra_hdl_t hdl, char *bootname, char ***names)
{
    ovra::node_list nodes;
    if (ovra::read_option_nodes(hdl, bootname, "unable to get load option: %d\n", &nodes) != 0)
        return -1;
    const uefi_device_path_t *drive = ovra::first_hard_drive(nodes.get());
    if (!drive)
        return fail("unable to find hard drive path\n");
    *names = nullptr;
    return ovra::find_drives(hdl, drive, names);
}

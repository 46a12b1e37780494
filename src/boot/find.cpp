// SPDX-License-Identifier: MIT
#include <cstring>

#include "src/boot/boot.h"
#include "src/dpath/list.h"
#include "src/osmap/harddrive.h"
#include "src/rt/diag.h"
#include "src/rt/strarray.h"

using ovra::fail;
using ovra::owned;
using ovra::say;
using ovra::tracked_names;

namespace {

// Whether an option's path names the disk of this node first. An option that cannot be read does not.
bool boots_from(ovra_hdl_t hdl, char *option, const uefi_device_path_t *drive)
{
    // Kept: the number is the result of reading, always -1, and says nothing about which option.
    // [kept_the_message_about_an_unreadable_option_has_a_number]
    ovra::node_list nodes;
    if (ovra::read_option_nodes(hdl, option, "unable to get load option for: %d\n", &nodes) != 0)
        return false;
    const uefi_device_path_t *stored = ovra::first_hard_drive(nodes.get());
    if (!stored) {
        say("unable to find media path for %s\n", option);
        return false;
    }
    return stored->len == drive->len && memcmp(stored, drive, drive->len) == 0;
}

} // namespace

int ovra_bootopt_find(ovra_hdl_t hdl, char *disk, char ***names)
{
    *names = nullptr;
    uefi_device_path_t *node = nullptr;
    if (add_hd_path(disk, &node) != 0)
        return fail("unable to create hd media device path\n");
    const owned<uefi_device_path_t> drive(node);

    char **listed = nullptr;
    if (ovra_bootopt_list(hdl, &listed) != 0 || !listed)
        return fail("unable to get load option list\n");
    const tracked_names options(listed, {hdl});

    ovra::str_array_builder found(hdl);
    for (char **option = options.get(); *option; ++option) {
        if (boots_from(hdl, *option, drive.get()) && found.append(*option) != 0)
            return fail("unable to add to boot_name list\n");
    }
    *names = found.release();
    return 0;
}

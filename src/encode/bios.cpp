// SPDX-License-Identifier: MIT
#include "src/base/words.h"
#include "src/dpath/build.h"
#include "src/encode/get.h"
#include "src/rt/diag.h"

using namespace ovra;

int encode_bbs(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    const char *id = ovra_get_arg(args, "Id");
    const char *description = id ? id : "";
    const size_t size = strlen(description) + 1;
    auto node = new_node<uefi_bbs_path_t>(size);
    if (!node)
        return fail("unable to allocate bbs path\n");
    memcpy(node->description, description, size);

    const char *type = ovra_get_arg(args, "Type");
    if (!type)
        return fail("Type is a required argument\n");
    uint16_t device_type = 0;
    if (const word *word = by_text(bbs_device_types, type))
        device_type = word->value;
    else if (!require(args, "Type", &device_type))
        return -1;
    node->device_type = device_type;
    uint16_t flags = 0;
    if (!get_if_given(args, "Flags", &flags))
        return -1;
    node->status_flags = flags;
    return hand_over(std::move(node), out);
}

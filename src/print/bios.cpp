// SPDX-License-Identifier: MIT
#include "src/print/rows.h"

using namespace ovra;

static void print_bbs(const uefi_bbs_path_t &node, text &to)
{
    to.put("/BBS(");
    // Kept: 0 has a word that the encoder does not read.
    if (node.device_type == 0)
        to.put("unknown");
    else if (const word *type = by_value(bbs_device_types, node.device_type))
        to.put(type->text);
    else
        to.add("0x%x", node.device_type);
    to.put(",");
    to.put(bounded_string(tail(node)));
    to.add(",0x%x)", node.status_flags);
}

bool ovra::bios_text(const uefi_device_path_t *node, text &to)
{
    // Kept: the subtype is not looked at.
    if (node->type != UEFI_BIOS || node->len < kind_of<uefi_bbs_path_t>.size)
        return unknown_text(node, to);
    print_bbs(*reinterpret_cast<const uefi_bbs_path_t *>(node), to);
    return true;
}

void print_bios_path(const uefi_device_path_t *node, char **to)
{
    append_node_text(bios_text, node, to);
}

// SPDX-License-Identifier: MIT
#include "src/base/words.h"
#include "src/print/rows.h"

using namespace ovra;

namespace {

void print_bbs(const uefi_bbs_path_t &node, text &to)
{
    to.put("/BBS(");
    // Kept: 0 has a word that the encoder does not read. [kept_bbs_type_0_has_a_word]
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

// Kept: the subtype is not looked at. [kept_bbs_subtype_is_not_looked_at]
constexpr printed bios[] = {row<uefi_bbs_path_t, print_bbs>(subtypes::any)};

} // namespace

const printed_rows ovra::bios_rows = bios;

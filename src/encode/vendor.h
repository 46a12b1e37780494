/* SPDX-License-Identifier: MIT */
/* Vendor-defined nodes: a GUID and, where the keyword takes it, data. */
#ifndef SRC_ENCODE_VENDOR_H
#define SRC_ENCODE_VENDOR_H

#include "src/dpath/build.h"
#include "src/encode/get.h"
#include "src/rt/diag.h"

namespace ovra {

/* The node of a record with a GUID and data of any length, both arguments; `no_memory` is its message. */
template <typename record>
int encode_vendor(uefi_arg_list_t *args, uefi_device_path_t **out, const char *no_memory)
{
    EFI_GUID guid = {};
    if (!require(args, "GUID", &guid))
        return -1;
    hex_bytes data;
    if (is_given(args, "Data") && !require_hex(args, "Data", 1, SIZE_MAX, &data))
        return -1;
    auto node = new_node<record>(data.size);
    if (!node)
        return fail("%s", no_memory);
    node->guid = guid;
    if (data.size != 0)
        memcpy(node->data, data.bytes.get(), data.size);
    return hand_over(std::move(node), out);
}

} // namespace ovra

#endif

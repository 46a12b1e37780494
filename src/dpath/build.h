/* SPDX-License-Identifier: MIT */
/* New nodes: type, subtype and length come from the record type. */
#ifndef SRC_DPATH_BUILD_H
#define SRC_DPATH_BUILD_H

#include <cstring>

#include "src/base/nodes.h"
#include "src/dpath/dpath.h"
#include "src/rt/owned.h"

namespace ovra {

/* A header that says `len`, in a block of `size` bytes whose others are not set; null without memory. */
inline owned<uefi_device_path_t> new_header(uint8_t type, uint8_t subtype, size_t size, uint16_t len)
{
    owned<uefi_device_path_t> node(static_cast<uefi_device_path_t *>(malloc(size)));
    if (node)
        *node = {type, subtype, len};
    return node;
}

/* The same with zeros behind the header. */
inline owned<uefi_device_path_t> new_block(uint8_t type, uint8_t subtype, size_t size, uint16_t len)
{
    auto node = new_header(type, subtype, size, len);
    // No calloc: glibc's passes over the blocks that the thread has at hand.
    if (node)
        memset(node.get() + 1, 0, size - sizeof *node);
    return node;
}

/* A node of `length` bytes; null without memory, and for a length that no node can have. */
inline owned<uefi_device_path_t> new_raw_node(uint8_t type, uint8_t subtype, size_t length)
{
    if (length > UINT16_MAX)
        return nullptr;
    return new_block(type, subtype, length, static_cast<uint16_t>(length));
}

/* The same for a record that states its kind, with `tail` bytes after its fixed part. */
template <typename record>
owned<record> new_node(size_t tail = 0)
{
    constexpr node_kind kind = kind_of<record>;
    static_assert(kind.type != 0, "the record states no kind");
    return owned<record>(
        reinterpret_cast<record *>(new_raw_node(kind.type, kind.subtype, kind.size + tail).release()));
}

/* Gives a finished node to the caller of a builder. Returns 0: nothing can fail after it. */
template <typename record>
int hand_over(owned<record> node, uefi_device_path_t **out)
{
    *out = reinterpret_cast<uefi_device_path_t *>(node.release());
    return 0;
}

} // namespace ovra

#endif

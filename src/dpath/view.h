/* SPDX-License-Identifier: MIT */
/* Stored bytes as nodes. Compares what is left with what is claimed, and never reads beyond. */
#ifndef SRC_DPATH_VIEW_H
#define SRC_DPATH_VIEW_H

#include <span>

#include "src/base/nodes.h"
#include "src/dpath/dpath.h"

namespace ovra {

/* Walks packed nodes. What stopped it can be asked when next() gives null. */
struct cursor {
    std::span<const uint8_t> rest;

    bool at_end() const { return rest.empty(); }

    /* The node that begins here is cut off: its header, or the length it claims, goes beyond the end. */
    bool cut_off() const { return rest.size() < sizeof(uefi_device_path_t) || peek()->len > rest.size(); }

    /* The node that begins here; only where its header is not cut off. */
    const uefi_device_path_t *peek() const
    {
        return reinterpret_cast<const uefi_device_path_t *>(rest.data());
    }

    /* The node that begins here, and on to the next; null at the end, or for a node cut off or too short. */
    const uefi_device_path_t *next()
    {
        if (cut_off() || peek()->len < sizeof(uefi_device_path_t))
            return nullptr;
        const uefi_device_path_t *node = peek();
        rest = rest.subspan(node->len);
        return node;
    }
};

/* The node as a record of its kind, or null when it is of another kind or shorter than the record. */
template <typename record>
const record *as(const uefi_device_path_t *node)
{
    constexpr node_kind kind = kind_of<record>;
    static_assert(kind.type != 0, "the record states no kind");
    if (node->type != kind.type || node->subtype != kind.subtype || node->len < kind.size)
        return nullptr;
    return reinterpret_cast<const record *>(node);
}

inline bool is_end_entire(const uefi_device_path_t *node)
{
    return node->type == UEFI_END && node->subtype == UEFI_END_ENTIRE;
}

} // namespace ovra

#endif

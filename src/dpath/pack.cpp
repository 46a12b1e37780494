// SPDX-License-Identifier: MIT
#include <climits>
#include <cstring>

#include "src/base/nodes.h"
#include "src/dpath/list.h"
#include "src/rt/diag.h"

using ovra::fail;
using ovra::owned;
using ovra::trace;

static size_t packed_size(uefi_device_path_t **list)
{
    size_t size = 0;
    for (uefi_device_path_t **node = list; list && *node; ++node)
        size += (*node)->len;
    return size;
}

int device_path_pack(uefi_device_path_t **list, ovra_epath_t *out, int *len)
{
    const size_t size = packed_size(list);
    if (size > INT_MAX)
        return -1;
    if (out) {
        owned<uint8_t> path(static_cast<uint8_t *>(malloc(size)));
        if (!path)
            return -1;
        uint8_t *to = path.get();
        for (uefi_device_path_t **node = list; list && *node; ++node) {
            memcpy(to, *node, (*node)->len);
            to += (*node)->len;
        }
        *out = path.release();
    }
    if (len)
        *len = static_cast<int>(size);
    return 0;
}

// Calls `visit` with each node up to END-entire. 0, or -1: what is no node ends it, or what `visit` said.
template <typename visitor>
static int walk_nodes(ovra::cursor nodes, const visitor &visit)
{
    while (!nodes.at_end()) {
        if (nodes.cut_off())
            return fail("encoded_path does not match encoded_path_len\n");
        const uint8_t type = nodes.peek()->type;
        const uefi_device_path_t *node = nodes.next();
        // A length below that of the header would never advance; such a node has no type to speak of.
        if (!node || !ovra::is_node_type(type))
            return fail("corrupted node-type for node in unpack: type: %d\n", type);
        if (visit(node) != 0)
            return -1;
        if (ovra::is_end_entire(node))
            return 0;
    }
    trace("device does not have END type\n");
    return 0;
}

static ovra::cursor nodes_of(const uint8_t *path, int len)
{
    return {{path, static_cast<size_t>(len < 1 ? 0 : len)}};
}

int ovra::accept_nodes(const uint8_t *path, int len, cursor *accepted)
{
    const cursor nodes = nodes_of(path, len);
    size_t size = 0;
    const int result = walk_nodes(nodes, [&size](const uefi_device_path_t *node) {
        size += node->len;
        return 0;
    });
    *accepted = {nodes.rest.first(size)};
    return result;
}

int device_path_unpack(ovra_epath_t path, int len, uefi_device_path_t ***list)
{
    *list = nullptr;
    ovra::node_list_builder nodes;
    const int result = walk_nodes(nodes_of(path, len), [&nodes](const uefi_device_path_t *stored) {
        owned<uefi_device_path_t> node(static_cast<uefi_device_path_t *>(malloc(stored->len)));
        if (!node)
            return fail("unable to allocate device_path\n");
        memcpy(node.get(), stored, stored->len);
        return nodes.append(std::move(node)) == 0 ? 0 : fail("unable to add device path\n");
    });
    if (result == 0)
        *list = nodes.release();
    return result;
}

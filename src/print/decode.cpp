// SPDX-License-Identifier: MIT
#include "src/print/decode.h"

#include "src/base/nodes.h"
#include "src/dpath/list.h"
#include "src/print/nodes.h"
#include "src/print/paths.h"

using namespace ovra;

namespace {

struct instance {
    accumulator device;
    accumulator file;

    // False when there was no memory for the node's text.
    bool add(const uefi_device_path_t *node)
    {
        // Kept: several file paths run together, with nothing between them.
        // [kept_file_paths_are_joined_with_nothing_between]
        accumulator &to = as<uefi_file_path_t>(node) ? file : device;
        text piece(to.get() != nullptr);
        return node_text(node, piece) && to.add(piece.view());
    }
};

} // namespace

int ovra::decode_to_uefi(ovra_hdl_t hdl, ovra_epath_t epath, int len, ovra_path_t ***paths, bool *whole)
{
    cursor nodes;
    if (accept_nodes(epath, len, &nodes) != 0)
        return -1;
    *paths = nullptr;
    *whole = true;
    path_list_builder decoded(hdl);
    instance current;
    while (const uefi_device_path_t *node = nodes.next()) {
        if (node->type != UEFI_END) {
            *whole &= current.add(node);
            continue;
        }
        if (decoded.append(current.device.get(), current.file.get()) != 0)
            return -1;
        current = {};
    }
    // Kept: what follows the last END node belongs to no instance and is dropped.
    // [kept_nodes_behind_the_last_end_node_are_lost]
    *paths = decoded.release();
    return 0;
}

int ovra_epath_decode_to_uefi(ovra_hdl_t hdl, ovra_epath_t epath, int len, ovra_path_t ***paths)
{
    bool whole = false;
    return decode_to_uefi(hdl, epath, len, paths, &whole);
}

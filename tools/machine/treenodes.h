/* SPDX-License-Identifier: MIT */
// The device tree through libhwtree.
#ifndef OVRA_TOOLS_TREENODES_H
#define OVRA_TOOLS_TREENODES_H

#include <memory>
#include <optional>
#include <string>

#include "platform/include/hwtree.h"

namespace tool {

struct tree_releasing {
    void operator()(ht_node_t root) const { ht_fini(root); }
};
using tree_owner = std::unique_ptr<ht_node, tree_releasing>;

// The whole tree with its properties. Throws a failure.
tree_owner read_tree();

// The physical path of a node.
std::string tree_path(ht_node_t node);

std::optional<std::string> string_property(ht_node_t node, const char *name);

} // namespace tool

#endif

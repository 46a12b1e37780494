// SPDX-License-Identifier: MIT
#include "tools/machine/treenodes.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "tools/text/failure.h"

namespace tool {

tree_owner read_tree()
{
    tree_owner root(ht_init("/", HT_SUBTREE | HT_PROPS));
    if (!root)
        throw failure(std::string("cannot read the device tree: ") + strerror(errno));
    return root;
}

std::string tree_path(ht_node_t node)
{
    char *path = ht_devfs_path(node);
    if (!path)
        throw std::bad_alloc();
    std::string copy = path;
    ht_devfs_path_free(path);
    return copy;
}

std::optional<std::string> string_property(ht_node_t node, const char *name)
{
    char *text = nullptr;
    if (ht_prop_lookup_strings(HT_DEV_ANY, node, name, &text) < 1 || !text)
        return std::nullopt;
    return text;
}

} // namespace tool

// SPDX-License-Identifier: MIT
#include "platform/include/hwtree.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/machine/failure.h"
#include "platform/machine/picture.h"

namespace {

struct snapshot;

} // namespace

// A node of a snapshot, which has one for each node of the tree: a handle is a plain pointer to it.
struct ht_node {
    snapshot *owner = nullptr;
    std::size_t place = 0;
    std::size_t position = 0; // among its parent's children
};

namespace {

struct snapshot {
    machine::device_tree tree;
    std::size_t top = 0; // the node that ht_init was asked for
    bool subtree = false;
    bool properties = false;
    std::vector<ht_node> handles; // by place

    [[nodiscard]] const machine::tree_node &at(const ht_node *node) const { return tree.nodes[node->place]; }
};

std::size_t find_path(const machine::device_tree &tree, const char *path)
{
    if (std::strcmp(path, "/") == 0)
        return 0;
    for (std::size_t place = 1; place < tree.nodes.size(); ++place) {
        if (tree.path_of(place) == path)
            return place;
    }
    return machine::tree_node::none;
}

ht_node *take_snapshot(const char *path, unsigned flags)
{
    auto taken = std::make_unique<snapshot>();
    // A copy: callers may write to its strings and integers.
    taken->tree = machine::picture::read()->tree();
    taken->top = find_path(taken->tree, path);
    if (taken->top == machine::tree_node::none)
        throw machine::read_failure{ENOENT};
    taken->subtree = (flags & HT_SUBTREE) != 0;
    taken->properties = (flags & HT_PROPS) != 0;
    taken->handles.resize(taken->tree.nodes.size());
    for (std::size_t place = 0; place < taken->handles.size(); ++place) {
        taken->handles[place].owner = taken.get();
        taken->handles[place].place = place;
        const auto &children = taken->tree.nodes[place].children;
        for (std::size_t position = 0; position < children.size(); ++position)
            taken->handles[children[position]].position = position;
    }
    ht_node *top = &taken->handles[taken->top];
    static_cast<void>(taken.release());
    return top;
}

ht_node *child_at(ht_node *node, std::size_t position)
{
    const auto &children = node->owner->at(node).children;
    return position < children.size() ? &node->owner->handles[children[position]] : nullptr;
}

bool is_top(const ht_node *node)
{
    return node->place == node->owner->top;
}

} // namespace

#pragma GCC visibility push(default)

ht_node_t ht_init(const char *path, unsigned int flags)
{
    return machine::value_or(ht_node_t{}, [=] { return take_snapshot(path, flags); });
}

void ht_fini(ht_node_t root)
{
    if (root != nullptr)
        delete root->owner;
}

ht_node_t ht_child_node(ht_node_t node)
{
    return node->owner->subtree ? child_at(node, 0) : nullptr;
}

ht_node_t ht_parent_node(ht_node_t node)
{
    return is_top(node) ? nullptr : &node->owner->handles[node->owner->at(node).parent];
}

ht_node_t ht_sibling_node(ht_node_t node)
{
    ht_node *parent = ht_parent_node(node);
    return parent != nullptr ? child_at(parent, node->position + 1) : nullptr;
}

const char *ht_node_name(ht_node_t node)
{
    return node->owner->at(node).name.c_str();
}

const char *ht_bus_addr(ht_node_t node)
{
    const auto &address = node->owner->at(node).address;
    return address ? address->c_str() : nullptr;
}

char *ht_devfs_path(ht_node_t node)
{
    return machine::value_or<char *>(nullptr,
                                     [=] { return strdup(node->owner->tree.path_of(node->place).c_str()); });
}

void ht_devfs_path_free(char *path)
{
    free(path);
}

int ht_prop_lookup_ints(dev_t, ht_node_t node, const char *name, int **values)
{
    auto &integers = node->owner->tree.nodes[node->place].integers;
    const auto found = integers.find(std::string_view(name));
    if (!node->owner->properties || found == integers.end())
        return -1;
    *values = found->second.data();
    return static_cast<int>(found->second.size());
}

int ht_prop_lookup_strings(dev_t, ht_node_t node, const char *name, char **strings)
{
    auto &texts = node->owner->tree.nodes[node->place].strings;
    const auto found = texts.find(std::string_view(name));
    if (!node->owner->properties || found == texts.end())
        return -1;
    *strings = found->second.data();
    return 1;
}

#pragma GCC visibility pop

// SPDX-License-Identifier: MIT
#include "tests/fakes/tree.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "platform/include/hwtree.h"
#include "tests/fakes/platform.h"

using fakes::failing;

// A node of a snapshot, with its own copy of everything.
struct ht_node {
    fakes::tree_node data;
    std::map<std::string, std::string> joined_strings; // one behind the other, each with its terminator
    ht_node *root = nullptr;
    ht_node *parent = nullptr;
    ht_node *sibling = nullptr;
    std::vector<std::unique_ptr<ht_node>> children;
};

namespace fakes {

namespace {

std::pair<std::string, std::optional<std::string>> split(const std::string &component)
{
    const size_t at = component.rfind('@');
    if (at == std::string::npos)
        return {component, std::nullopt};
    return {component.substr(0, at), component.substr(at + 1)};
}

std::unique_ptr<ht_node> copy_of(const tree_node &from, ht_node *root, ht_node *parent)
{
    auto node = std::make_unique<ht_node>();
    node->data = {from.name, from.address, from.ints, from.strings, {}};
    node->root = root ? root : node.get();
    node->parent = parent;
    for (const auto &[name, values] : from.strings)
        for (const std::string &value : values)
            node->joined_strings[name] += value + '\0';
    for (const tree_node &child : from.children) {
        auto copy = copy_of(child, node->root, node.get());
        if (!node->children.empty())
            node->children.back()->sibling = copy.get();
        node->children.push_back(std::move(copy));
    }
    return node;
}

std::string path_of(const ht_node *node)
{
    if (!node->parent)
        return "";
    return path_of(node->parent) + "/" + node->data.name.value_or("") +
           (node->data.address ? "@" + *node->data.address : "");
}

char *new_text(const std::string &text)
{
    char *copy = new char[text.size() + 1];
    memcpy(copy, text.c_str(), text.size() + 1);
    handed_out(copy);
    return copy;
}

// Begins a call on a node, which must be of a snapshot that is still there.
std::optional<failing> next_call_on(const ht_node *node)
{
    if (!node)
        misused("null node");
    must_be_out(node->root);
    return next_call();
}

const char *text_or_null(const std::optional<std::string> &text, std::optional<failing> failure)
{
    if (failure == failing::empty)
        return "";
    return failure || !text ? nullptr : text->c_str();
}

// A property that is not there as the failure says: no property, one without a value, or a count alone.
int failed_lookup(failing how)
{
    switch (how) {
    case failing::error_and_result:
        return 1;
    case failing::empty:
        return 0;
    default:
        return -1;
    }
}

} // namespace

tree_node &tree_node::add(const std::string &component)
{
    const auto [child_name, child_address] = split(component);
    return children.emplace_back(tree_node{.name = child_name, .address = child_address});
}

tree_node &tree_node::add_bridge(const std::string &component, const char *hid, const char *uid)
{
    tree_node &bridge = add(component);
    if (hid)
        bridge.strings["acpi-hid"] = {hid};
    if (uid)
        bridge.strings["acpi-uid"] = {uid};
    return bridge;
}

tree_node &tree_node::add_function(const std::string &component, int class_code, int device, int function)
{
    tree_node &node = add(component);
    node.ints = {{"class-code", {class_code}},
                 {"vendor-id", {0x8086}},
                 {"device-id", {0x2829}},
                 {"revision-id", {2}},
                 {"reg", {device << 11 | function << 8, 0, 0, 0, 0}}};
    return node;
}

tree_node &tree_node::at(const std::string &component)
{
    const auto [child_name, child_address] = split(component);
    for (tree_node &child : children)
        if (child.name == child_name && child.address == child_address)
            return child;
    throw std::out_of_range(component);
}

tree_node &tree()
{
    static tree_node root{.name = "hwplat"};
    return root;
}

} // namespace fakes

ht_node_t ht_init(const char *path, unsigned int flags)
{
    if (fakes::next_call()) {
        errno = EIO;
        return nullptr;
    }
    if (strcmp(path, "/") != 0 || flags != (HT_SUBTREE | HT_PROPS))
        fakes::misused("not a snapshot of the whole tree with its properties");
    ht_node *root = fakes::copy_of(fakes::tree(), nullptr, nullptr).release();
    fakes::handed_out(root);
    return root;
}

void ht_fini(ht_node_t root)
{
    if (!root)
        return;
    fakes::taken_back(root);
    delete root;
}

ht_node_t ht_child_node(ht_node_t node)
{
    if (fakes::next_call_on(node) || node->children.empty())
        return nullptr;
    return node->children.front().get();
}

ht_node_t ht_sibling_node(ht_node_t node)
{
    return fakes::next_call_on(node) ? nullptr : node->sibling;
}

ht_node_t ht_parent_node(ht_node_t node)
{
    return fakes::next_call_on(node) ? nullptr : node->parent;
}

const char *ht_node_name(ht_node_t node)
{
    return fakes::text_or_null(node->data.name, fakes::next_call_on(node));
}

const char *ht_bus_addr(ht_node_t node)
{
    return fakes::text_or_null(node->data.address, fakes::next_call_on(node));
}

char *ht_devfs_path(ht_node_t node)
{
    if (const auto failure = fakes::next_call_on(node)) {
        errno = ENOMEM;
        return failure == failing::empty ? fakes::new_text("") : nullptr;
    }
    return fakes::new_text(node->parent ? fakes::path_of(node) : "/");
}

void ht_devfs_path_free(char *path)
{
    if (!path)
        return;
    fakes::taken_back(path);
    delete[] path;
}

int ht_prop_lookup_ints(dev_t dev, ht_node_t node, const char *name, int **values)
{
    if (const auto failure = fakes::next_call_on(node))
        return fakes::failed_lookup(*failure);
    const auto found = node->data.ints.find(name);
    if (dev != HT_DEV_ANY || found == node->data.ints.end())
        return -1;
    // A copy of exactly the values, so that a look behind them is found.
    *values = found->second.empty() ? nullptr : found->second.data();
    return static_cast<int>(found->second.size());
}

int ht_prop_lookup_strings(dev_t dev, ht_node_t node, const char *name, char **strings)
{
    if (const auto failure = fakes::next_call_on(node))
        return fakes::failed_lookup(*failure);
    const auto found = node->data.strings.find(name);
    if (dev != HT_DEV_ANY || found == node->data.strings.end())
        return -1;
    *strings = node->joined_strings[name].data();
    return static_cast<int>(found->second.size());
}

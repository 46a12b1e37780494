/* SPDX-License-Identifier: MIT */
/* A device tree in memory, in place of libhwtree. See platform.h for failing calls and what is watched. */
#ifndef TESTS_FAKES_TREE_H
#define TESTS_FAKES_TREE_H

#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace fakes {

struct tree_node {
    std::optional<std::string> name = {};    /* empty: the library gives null */
    std::optional<std::string> address = {}; /* likewise */
    std::map<std::string, std::vector<int>> ints = {};
    std::map<std::string, std::vector<std::string>> strings = {};
    std::list<tree_node> children = {};

    /* A new last child of a component such as "pci@0,0", or a name alone. */
    tree_node &add(const std::string &component);
    /* A host bridge; null: no such property. */
    tree_node &add_bridge(const std::string &component, const char *hid, const char *uid);
    /* A PCI function of bus 0 with all its properties. */
    tree_node &add_function(const std::string &component, int class_code, int device, int function);
    /* The child of a component; there must be one. */
    tree_node &at(const std::string &component);
};

/* The root. Snapshots are copies of what stands below it. */
tree_node &tree();

} // namespace fakes

#endif

// SPDX-License-Identifier: MIT
#include <cstdio>
#include <cstring>

#include "src/base/cancel.h"
#include "src/base/device_name.h"
#include "src/dpath/dpath.h"
#include "src/osmap/osmap.h"
#include "src/osmap/platform.h"
#include "src/rt/diag.h"
#include "src/rt/owned.h"

using ovra::address_of;
using ovra::fail;
using ovra::name_of;
using ovra::say;
using ovra::trace;

namespace {

constexpr size_t path_limit =
    1024; // bytes of a link's target; of a path or a link's name with its terminator
constexpr size_t to_tree_path =
    ovra::length_of(ovra::tree_folder) - 1; // the slash at its end is the root of the tree

struct path_buffer {
    char text[path_limit + 1];
};

// The physical path that `path` holds or, as a link, points at.
int physical_path(const char *path, path_buffer *physical)
{
    if (strstr(path, ovra::tree_folder)) {
        const size_t size = strlen(path) + 1;
        if (size > path_limit)
            return -1;
        memcpy(physical->text, path, size);
        return 0;
    }
    char link[path_limit];
    // A name that does not fit is another one than was asked for.
    if (!ovra::fits(snprintf(link, sizeof link, "%s%s",
                             strstr(path, ovra::device_folder) ? "" : ovra::slice_folder, path),
                    sizeof link) ||
        !ovra::read_link(link, physical->text, sizeof physical->text))
        return fail("unable to read link from %s\n", link);
    return 0;
}

// The child of a node that a component "name@address" of a path names; null when there is none.
ht_node_t find_child(ht_node_t parent, const char *component)
{
    // Kept: no line end; the next message follows on the same one. [kept_traces_of_a_component_share_a_line]
    trace("path_comp is %s ", component);
    path_buffer name;
    memcpy(name.text, component, strlen(component) + 1);
    char *at = strrchr(name.text, '@');
    if (!at) {
        // Kept: no line end. [kept_no_line_end_after_a_malformed_component]
        say("malformed node component: %s", component);
        return nullptr;
    }
    *at = '\0';
    const char *address = at + 1;
    trace("from path:  nodename: %s  busaddr: %s\n", name.text, address);

    ht_node_t child = ht_child_node(parent);
    if (!child) {
        say("cnode is null\n");
        return nullptr;
    }
    for (; child; child = ht_sibling_node(child)) {
        trace("cnode_nodename: '%s' cnode_busaddr: '%s'\n", name_of(child), address_of(child));
        if (strcmp(name_of(child), name.text) == 0 && strcmp(address_of(child), address) == 0) {
            trace("match found for %s\n\n", component);
            return child;
        }
    }
    say("no match found for component %s\n", component);
    return nullptr;
}

} // namespace

int add_hardware_paths(const char *path, uefi_device_path_t ***list)
{
    if (!path)
        return fail("path cannot be NULL\n");
    const ovra::uncancelled reading;
    const ovra::one_picture picture;
    path_buffer physical;
    if (physical_path(path, &physical) != 0)
        return -1;
    char *found = strstr(physical.text, ovra::tree_folder);
    if (!found)
        return fail("unexpected physical path: %s\n", physical.text);
    char *tree_path = found + to_tree_path;
    tree_path[strcspn(tree_path, ":")] = '\0';
    trace("transformed path is: %s\n", tree_path);

    const ovra::snapshot root = ovra::take_snapshot();
    if (!root)
        return fail("ht_init() failed\n");
    ht_node_t current = root.get();
    uefi_device_path_t *node = nullptr;
    char *rest = nullptr;
    for (char *component = strtok_r(tree_path, "/", &rest); component;
         component = strtok_r(nullptr, "/", &rest)) {
        current = find_child(current, component);
        if (!current)
            return -1;
        // Kept: not cleared here: an "ide" level, which translates into nothing, repeats the node
        // before it; stored paths through one carry that node twice. [kept_an_ide_level_*, kept_ide_levels_*]
        uefi_device_path_t *const before = node;
        if (dinode_to_uefinode(current, &node) != 0)
            return -1;
        if (add_dpath_list(list, node) != 0) {
            if (node != before)
                free(node);
            return -1;
        }
    }
    return 0;
}

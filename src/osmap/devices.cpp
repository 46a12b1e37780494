// SPDX-License-Identifier: MIT
#include <cstdio>
#include <cstring>

#include "src/base/cancel.h"
#include "src/dpath/list.h"
#include "src/osmap/harddrive.h"
#include "src/osmap/platform.h"
#include "src/print/paths.h"
#include "src/rt/diag.h"
#include "src/rt/owned.h"
#include "src/rt/strarray.h"

using ovra::address_of;
using ovra::devfs_path;
using ovra::fail;
using ovra::name_of;
using ovra::owned;
using ovra::path_list_builder;
using ovra::say;
using ovra::trace;

namespace {

// One record for each disk that a hard-drive node stands for: the target of its link.
int decode_short_form(ovra_hdl_t hdl, const uefi_device_path_t *node, path_list_builder *paths)
{
    char **found = nullptr;
    const int search = ovra::find_drives(hdl, node, &found);
    const ovra::tracked_names names(found, {hdl});
    if (search != 0 || !names)
        return fail("unable to get logical device\n");

    int result = 0;
    for (char **name = names.get(); *name; ++name) {
        char link[1024];
        char target[1024];
        if (!ovra::fits(snprintf(link, sizeof link, "%s%s", ovra::slice_folder, *name), sizeof link) ||
            !ovra::read_link(link, target, sizeof target)) {
            result = fail("unable to read link from %s\n", link);
            continue;
        }
        char *physical = strstr(target, ovra::tree_folder);
        if (!physical)
            return fail("unexpected physicalpath\n");
        if (paths->append(physical + ovra::length_of(ovra::tree_folder) - 1, nullptr) != 0)
            return -1;
    }
    return result;
}

const char *or_empty(const owned<char> &text)
{
    return text ? text.get() : "";
}

// Finds the tree nodes that the nodes of a path stand for, one level for each, from the root on.
class tree_walk {
public:
    tree_walk(ht_node_t tree, path_list_builder *list) : root(tree), current(tree), paths(list) {}

    int step(uefi_device_path_t *node)
    {
        if (node->type == UEFI_END)
            return end_instance();
        if (ovra::is_kind<uefi_file_path_t>(node)) {
            char *text = file.release();
            print_device_path(node, &text);
            file.reset(text);
            return 0;
        }
        return descend(node);
    }

private:
    int end_instance()
    {
        const devfs_path device(ht_devfs_path(current));
        if (!device)
            return fail("unable to get devfs path\n");
        trace("full match was found %s %s\n", device.get(), or_empty(file));
        if (paths->append(device.get(), file.get()) != 0)
            return -1;
        file.reset();
        current = root;
        return 0;
    }

    int descend(uefi_device_path_t *wanted)
    {
        // Kept: a disk has no children. A hard-drive node after the hardware nodes of its disk therefore ends
        // here; callers decode full paths without it.
        // [kept_a_disk_has_nothing_below_it, kept_full_paths_are_not_descended_into]
        ht_node_t child = ht_child_node(current);
        if (!child)
            return fail("cnode is null\n");
        for (; child; child = ht_sibling_node(child)) {
            if (stands_for(child, wanted)) {
                current = child;
                trace("cnode_nodename: '%s' cnode_busaddr: '%s'\n", name_of(child), address_of(child));
                return 0;
            }
        }
        if (current == root)
            return fail("no match found for component\n");
        const devfs_path device(ht_devfs_path(current));
        if (!device)
            return fail("unable to get devfs path\n");
        return fail("only partial match found: %s...\n", device.get());
    }

    static bool stands_for(ht_node_t child, uefi_device_path_t *wanted)
    {
        uefi_device_path_t *translated = nullptr;
        if (dinode_to_uefinode(child, &translated) != 0) {
            say("unable to encode cnode: %s@%s\n", name_of(child), address_of(child));
            return false;
        }
        const owned<uefi_device_path_t> node(translated);
        owned<char> text;
        if (node) {
            char *printed = nullptr;
            print_device_path(node.get(), &printed);
            text.reset(printed);
        }
        // Kept: a message of the error switch, for what is no error.
        // [kept_every_tried_node_is_told_as_an_error]
        say("encode cnode successful: %s@%s  %s\n", name_of(child), address_of(child), or_empty(text));
        // An "ide" level stands for no node, and so is never entered.
        return node && compare_dpath_nodes(node.get(), wanted) == 0;
    }

    ht_node_t root;
    ht_node_t current;
    path_list_builder *paths;
    owned<char> file; // of the File-path nodes since the last END node
};

int decode_tree_path(uefi_device_path_t **list, path_list_builder *paths)
{
    const ovra::snapshot root = ovra::take_snapshot();
    if (!root)
        return fail("ht_init() failed\n");
    tree_walk walk(root.get(), paths);
    for (uefi_device_path_t **node = list; node && *node; ++node) {
        if (walk.step(*node) != 0)
            return -1;
    }
    return 0;
}

} // namespace

int ovra_epath_decode_to_devices(ovra_hdl_t hdl, ovra_epath_t epath, int len, ovra_path_t ***paths)
{
    *paths = nullptr;
    const ovra::uncancelled reading;
    uefi_device_path_t **nodes = nullptr;
    if (device_path_unpack(epath, len, &nodes) != 0)
        return fail("device_path_unpack failed in decode_devices\n");
    const ovra::node_list list(nodes);
    const ovra::one_picture picture;
    path_list_builder found(hdl);
    const int result = nodes && ovra::is_kind<uefi_hard_drive_path_t>(nodes[0])
                           ? decode_short_form(hdl, nodes[0], &found)
                           : decode_tree_path(nodes, &found);
    *paths = found.release(); // what was found before a failure, too
    return result;
}

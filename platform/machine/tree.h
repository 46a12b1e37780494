/* SPDX-License-Identifier: MIT */
/*
 * The device tree of a machine, from its sysfs: the root "hwplat", PCI host bridges, PCI functions nested as
 * in sysfs, and the disks below their functions; after the bridges the buses of the other disks, with these.
 */
#ifndef HWPLAT_MACHINE_TREE_H
#define HWPLAT_MACHINE_TREE_H

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/root.h"

namespace machine {

struct tree_node {
    static constexpr std::size_t none = SIZE_MAX;

    std::string name;
    std::optional<std::string> address;
    std::size_t parent = none;
    std::vector<std::size_t> children; /* in the order of a walk */
    std::map<std::string, std::vector<int>, std::less<>> integers;
    std::map<std::string, std::string, std::less<>> strings;
};

/* A disk with its names: to Linux, in the tree, and by controller number, target and logical unit. */
struct disk {
    std::string kernel_name; /* such as "sda", or "cciss/c0d0" in a folder below dev */
    std::string place;       /* in sysfs, on the way that leads to it: "sys/devices/.../block/sda" */
    std::size_t node = 0;    /* its node in the tree */
    std::uint64_t blocks = 0;
    std::uint32_t block_size = 512; /* bytes of a logical block */
    unsigned controller = 0;
    unsigned target = 0;
    unsigned lun = 0;

    /* Of an array of the kernel's (md), else empty: its format, such as "1.0", and the Linux names of what it
     * is made of, sorted. */
    std::string metadata;
    std::vector<std::string> members;

    /* The drive's name, such as "c0t0d0". */
    [[nodiscard]] std::string name() const;
};

struct device_tree {
    std::vector<tree_node> nodes; /* the root comes first */
    std::vector<disk> disks;      /* by controller, target and logical unit */

    /* Adds a node after the other children of its parent. Returns its index in `nodes`. */
    std::size_t add_node(std::size_t parent, std::string name, std::string address);

    /* The physical path, such as "/pci@0,0/pci8086,2922@1f,2/disk@0,0"; "/" for the root. */
    [[nodiscard]] std::string path_of(std::size_t node) const;
};

/* What is absent or makes no sense is left out, and HWPLAT_DEBUG says so. Throws read_failure. */
device_tree read_device_tree(const machine_root &root);

} // namespace machine

#endif

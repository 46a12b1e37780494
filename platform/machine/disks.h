/* SPDX-License-Identifier: MIT */
/* The disks of a machine's sysfs: which controller carries each, and what it is called. */
#ifndef HWPLAT_MACHINE_DISKS_H
#define HWPLAT_MACHINE_DISKS_H

#include <string>
#include <vector>

#include "platform/machine/sysfs.h"
#include "platform/machine/tree.h"

namespace machine {

/* A PCI function that is in the tree. */
struct pci_function {
    std::string path; /* in sysfs */
    std::size_t node = 0;
    unsigned class_code = 0;
};

/* Adds the disks below `functions`, which are in the order of the tree, to the tree and its list of disks. */
void add_disks(const sysfs &files, const std::vector<pci_function> &functions, device_tree *tree);

} // namespace machine

#endif

/* SPDX-License-Identifier: MIT */
/* The disks of a machine's sysfs: their controllers and names. */
#ifndef HWPLAT_MACHINE_DISKS_H
#define HWPLAT_MACHINE_DISKS_H

#include <string>
#include <vector>

#include "platform/machine/sysfs.h"
#include "platform/machine/tree.h"

namespace machine {

/* A PCI function of the tree. */
struct pci_function {
    std::string path; /* in sysfs */
    std::size_t node = 0;
    unsigned class_code = 0;
};

/* Adds the disks below `functions` to the tree and its list of disks. `functions` are in the order of the
 * tree. */
void add_disks(const sysfs &files, const std::vector<pci_function> &functions, device_tree *tree);

} // namespace machine

#endif

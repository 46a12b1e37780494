/* SPDX-License-Identifier: MIT */
/* Namespaces of NVMe subsystems, which the kernel shows below no controller: several may lead to one. */
#ifndef HWPLAT_MACHINE_NVME_H
#define HWPLAT_MACHINE_NVME_H

#include <cstddef>
#include <map>
#include <string>

#include "platform/machine/sysfs.h"

namespace machine {

/* Indices of PCI functions in the order of the tree, by their paths in sysfs. */
using functions_by_path = std::map<std::string, std::size_t>;

/* The nearest function above a path in sysfs; the end of `functions` if there is none. */
functions_by_path::const_iterator function_above(const functions_by_path &functions, std::string path);

/*
 * Where a disk with this path in sysfs is. A namespace of a subsystem is at its first path, in the order of
 * the tree, whose controller is live and lets it be read; at the first one if there is none. Every other
 * disk, and a namespace without a path below a PCI function, is where its own path says. Throws read_failure.
 */
std::string nvme_path_of(const sysfs &files, const std::string &path, const functions_by_path &functions);

} // namespace machine

#endif

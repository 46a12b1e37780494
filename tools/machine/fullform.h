/* SPDX-License-Identifier: MIT */
// Where a drive hangs, as text of the nodes that lead to it: as firmware writes them.
#ifndef OVRA_TOOLS_FULLFORM_H
#define OVRA_TOOLS_FULLFORM_H

#include <string>
#include <unordered_map>
#include <vector>

#include "platform/include/hwtree.h"
#include "tools/machine/drives.h"

namespace tool {

// The hardware of the machine, as the device tree has it now.
class hardware {
public:
    // Throws a failure when the tree cannot be read.
    hardware();

    // "/PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)": what leads to a drive, as firmware writes it.
    // Throws a failure, with the reason, when that is not known.
    std::string text_of(const drive &drive) const;

    // Every text of nodes by which an option names a drive: as firmware writes them, and as the library does.
    // Empty when they are not known.
    std::vector<std::string> texts_of(const drive &drive) const;

    // The text of the bridge and functions that carry a drive, also where no more is known; empty when they
    // are not known.
    std::string carrier_of(const drive &drive) const;

    // The same of each bridge and function of the machine, to itself.
    std::vector<std::string> carriers() const;

    // Why firmware may not start what text_of gives; empty when nothing speaks against it.
    std::string doubt_of(const drive &drive) const;

private:
    struct device {
        std::string text;         // of its node; empty when it has none
        std::string problem;      // why it has none; empty for what is no bridge and no function
        bool is_described = true; // false: a host bridge without a number of the firmware's
        unsigned kind = 0;        // of a PCI function
    };
    struct place {
        std::string text;    // of host bridge and functions
        std::string last;    // of the function that carries the drive
        std::string problem; // why it is not known
        bool is_described = true;
        unsigned kind = 0;
    };

    void add(ht_node_t node);
    place place_above(const std::string &path) const;
    place place_of(const drive &drive) const;

    std::unordered_map<std::string, device> devices; // by path in the tree
};

} // namespace tool

#endif

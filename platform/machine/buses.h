/* SPDX-License-Identifier: MIT */
/* The buses of disks that no PCI function carries. */
#ifndef HWPLAT_MACHINE_BUSES_H
#define HWPLAT_MACHINE_BUSES_H

#include <cstddef>
#include <span>
#include <string_view>

namespace machine {

/* How the disks of a bus are told apart. */
enum class addressing {
    scsi,    /* by target and unit; by the port on an ATA host */
    number,  /* by the number in their Linux names */
    counting /* not at all: they are counted */
};

struct bus {
    const char *name; /* of its node in the tree */
    addressing by;
    /* What stands in place of a disk when nothing is on it, such as an unused loop device, is no disk. */
    bool has_empty_disks;
};

/* In the order in which they are numbered: what comes and goes while a machine runs stands last. */
std::span<const bus> all_buses();

/*
 * The index in all_buses() of the bus of a disk, by its Linux name and the components of its path below
 * sys/devices.
 */
std::size_t bus_of(std::string_view kernel_name, std::span<const std::string_view> components);

/* Whether a name is `stem` and a decimal number, such as "loop0". */
bool is_numbered(std::string_view name, std::string_view stem);

/* Whether the kernel shows something below this name that firmware never starts from: the parts of an eMMC
 * beside its user area, memory, optical and floppy drives, raw flash. */
bool is_never_started_from(std::string_view kernel_name);

} // namespace machine

#endif

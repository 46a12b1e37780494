/* SPDX-License-Identifier: MIT */
/* Where a disk is attached to what carries it, from its path in sysfs. */
#ifndef HWPLAT_MACHINE_ATTACHMENT_H
#define HWPLAT_MACHINE_ATTACHMENT_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine/buses.h"
#include "platform/machine/sysfs.h"

namespace machine {

/* What a device path has room for (UEFI 10.3.4). */
inline constexpr unsigned largest_identifier = 0xffff; /* of a SCSI target or unit */
inline constexpr unsigned disks_of_a_channel = 2;      /* of an IDE function */

enum class place_kind {
    sata,
    ide,
    scsi,
    numbered,      /* by the number in its Linux name */
    without_place, /* one of these, not addressable by a path */
    other
};

constexpr bool has_place(place_kind kind)
{
    return kind != place_kind::without_place && kind != place_kind::other;
}

struct attachment {
    place_kind kind = place_kind::other;
    unsigned channel = 0; /* of an IDE function */
    unsigned target = 0;
    unsigned lun = 0;
};

inline constexpr attachment without_place = {place_kind::without_place, 0, 0, 0};

/* PCI class codes (include/linux/pci_ids.h): the base class and subclass of a code. */
constexpr unsigned base_class(unsigned class_code)
{
    return class_code >> 16;
}
constexpr unsigned subclass(unsigned class_code)
{
    return class_code >> 8 & 0xff;
}
inline constexpr unsigned mass_storage = 0x01;

/* The parts of a text between separators, without empty ones. */
std::vector<std::string_view> split(std::string_view text, char separator);

/* Whether the component of a path is a SCSI address, "6:0:1:2". */
bool is_scsi_address(std::string_view component);

/*
 * The place of a disk on the PCI function or bus that carries it. `above` is the path of the function (of
 * sys/devices for a bus), `below` the components from there to the disk. Throws read_failure.
 */
attachment place_on_function(const sysfs &files, unsigned class_code, const std::string &above,
                             std::span<const std::string_view> below);
attachment place_on_bus(const sysfs &files, const bus &on, std::string_view kernel_name,
                        const std::string &above, std::span<const std::string_view> below);

} // namespace machine

#endif

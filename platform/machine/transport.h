/* SPDX-License-Identifier: MIT */
/*
 * How a disk is attached behind its controller, as far as sysfs tells: of this the nodes
 * of a device path behind the function's are made.
 */
#ifndef HWPLAT_MACHINE_TRANSPORT_H
#define HWPLAT_MACHINE_TRANSPORT_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/machine/sysfs.h"

namespace machine {

struct transport {
    std::string kind;    /* "sata", "usb"; empty: not known */
    std::string unknown; /* why the place of the disk is not known; empty when it is */
    std::map<std::string, std::uint64_t> numbers; /* "port", "target" and so on, by their attributes' names */
    std::vector<std::uint8_t> eui64;              /* of an NVMe namespace that has one */
    std::vector<std::uint8_t>
        usb_ports; /* from the controller to the disk, each from 0, as firmware counts */
};

/* Of the disk at a place in sysfs, such as "sys/devices/.../block/sda". Throws read_failure. */
transport read_transport(const sysfs &files, const std::string &disk);

} // namespace machine

#endif

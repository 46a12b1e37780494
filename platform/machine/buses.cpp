// SPDX-License-Identifier: MIT
#include "platform/machine/buses.h"

#include <algorithm>
#include <array>

#include "platform/machine/sysfs.h"

namespace machine {

namespace {

enum place : std::size_t {
    ata,
    scsi,
    nvme,
    virtio,
    vmbus,
    xen,
    mmc,
    pmem,
    platform,
    usb,
    fc,
    iscsi,
    md,
    dm,
    loop,
    nbd,
    others, // that the kernel makes: /sys/devices/virtual
    number_of_buses
};

constexpr std::array<bus, number_of_buses> buses = {{{"ata", addressing::scsi, false},
                                                     {"scsi", addressing::scsi, false},
                                                     {"nvme", addressing::counting, false},
                                                     {"virtio", addressing::scsi, false},
                                                     {"vmbus", addressing::scsi, false},
                                                     {"xen", addressing::counting, false},
                                                     {"mmc", addressing::number, false},
                                                     {"pmem", addressing::number, false},
                                                     {"platform", addressing::counting, false},
                                                     {"usb", addressing::counting, false},
                                                     {"fc", addressing::counting, false},
                                                     {"iscsi", addressing::counting, false},
                                                     {"md", addressing::number, true},
                                                     {"dm", addressing::number, true},
                                                     {"loop", addressing::number, true},
                                                     {"nbd", addressing::number, true},
                                                     {"virtual", addressing::counting, true}}};

bool any_numbered(std::span<const std::string_view> components, std::string_view stem)
{
    return std::ranges::any_of(components, [&](std::string_view name) { return is_numbered(name, stem); });
}

bool any_begins(std::span<const std::string_view> components, std::string_view beginning)
{
    return std::ranges::any_of(components,
                               [&](std::string_view name) { return name.starts_with(beginning); });
}

// The kernel's own block devices are told apart by their drivers, who name them.
place virtual_bus(std::string_view kernel_name)
{
    if (kernel_name.starts_with("md"))
        return md;
    if (kernel_name.starts_with("dm-"))
        return dm;
    if (kernel_name.starts_with("loop"))
        return loop;
    return kernel_name.starts_with("nbd") ? nbd : others;
}

} // namespace

std::span<const bus> all_buses()
{
    return buses;
}

std::size_t bus_of(std::string_view kernel_name, std::span<const std::string_view> components)
{
    if (components.size() > 1 && components[0] == "virtual" && components[1] == "block")
        return virtual_bus(kernel_name);
    // The transport nearest to the disk comes first: a USB controller may be behind another bus.
    if (any_numbered(components, "usb"))
        return usb;
    if (any_numbered(components, "session"))
        return iscsi;
    if (any_begins(components, "rport-"))
        return fc;
    if (any_numbered(components, "ata"))
        return ata;
    if (any_begins(components, "mmc_host"))
        return mmc;
    if (kernel_name.starts_with("nvme"))
        return nvme;
    if (any_numbered(components, "virtio"))
        return virtio;
    // "VMBUS:00", on ARM and newer kernels "MSFT1000:00" (drivers/hv/vmbus_drv.c).
    if (any_begins(components, "VMBUS:") || any_begins(components, "MSFT1000:"))
        return vmbus;
    if (any_numbered(components, "ndbus"))
        return pmem;
    if (any_begins(components, "vbd-"))
        return xen;
    return any_numbered(components, "host") ? scsi : platform;
}

bool is_numbered(std::string_view name, std::string_view stem)
{
    return name.starts_with(stem) && parse_number(name.substr(stem.size()), 10).has_value();
}

bool is_never_started_from(std::string_view kernel_name)
{
    static constexpr std::string_view stems[] = {"sr", "fd", "ram", "zram", "mtdblock"};
    if (std::ranges::any_of(stems, [&](std::string_view stem) { return is_numbered(kernel_name, stem); }) ||
        kernel_name.starts_with("ubiblock"))
        return true;
    // "mmcblk0boot0", "mmcblk0rpmb"
    return kernel_name.starts_with("mmcblk") &&
           (kernel_name.find("boot") != std::string_view::npos || kernel_name.ends_with("rpmb"));
}

} // namespace machine

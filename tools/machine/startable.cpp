// SPDX-License-Identifier: MIT
#include "tools/machine/startable.h"

#include <algorithm>
#include <optional>

#include "src/base/hard_drive.h"
#include "src/base/nodes.h"
#include "tools/machine/contents.h"
#include "tools/machine/drives.h"
#include "tools/machine/kernelpartitions.h"
#include "tools/machine/pathnodes.h"

namespace tool {

namespace {

// A disk or a partition, and nothing on it: the nodes whose media are fixed as a rule.
bool is_fixed_disk(byte_view node)
{
    constexpr struct {
        uint8_t type;
        uint8_t subtype;
    } kinds[] = {
        {UEFI_MESSAGING, 1},  {UEFI_MESSAGING, 2},  {UEFI_MESSAGING, 18}, // ATA, SCSI, SATA
        {UEFI_MESSAGING, 22}, {UEFI_MESSAGING, 23}, {UEFI_MESSAGING, 25}, // SAS, NVMe, UFS
        {UEFI_MESSAGING, 29}, {UEFI_MEDIA, 1},                            // eMMC, a partition
    };
    return std::any_of(std::begin(kinds), std::end(kinds),
                       [node](const auto &kind) { return node[0] == kind.type && node[1] == kind.subtype; });
}

bool is_removable(byte_view node)
{
    constexpr uint8_t usb = 5;
    constexpr uint8_t sd = 26;
    return node[0] == UEFI_MESSAGING && (node[1] == usb || node[1] == sd);
}

} // namespace

std::vector<caution> cautions_of_disk(const chosen_disk &disk, bool full, bool may_be_full)
{
    std::vector<caution> all;
    const auto *node = ovra::as<uefi_hard_drive_path_t>(byte_view(disk.node));
    if (node && node->part_number == 0)
        all.push_back({"the path has the number 0 for " + disk.both_names() +
                           (disk.is_logical ? ", a logical partition" : ", a whole disk"),
                       "Firmware that goes by the number does not find it."});
    if (full)
        return all;
    for (const chosen_disk &other : twins_of(disk))
        all.push_back({other.both_names() + " has the same " +
                           (disk.partuuid.empty() ? "MBR signature" : "PARTUUID") + " as " +
                           disk.both_names(),
                       std::string("The firmware may take either.") +
                           (may_be_full ? " With --full the path leads to one of them alone." : "")});
    return all;
}

std::vector<caution> cautions_of_kernel(const chosen_disk &disk, const drive &drive)
{
    std::vector<caution> all;
    if (is_made_by_the_kernel(drive.path))
        all.push_back({disk.both_names() + " is on a device that the kernel makes of others or of a file",
                       "Firmware does not see that device. Where it stands for a disk, name that one."});
    const auto *node = ovra::as<uefi_hard_drive_path_t>(byte_view(disk.node));
    const auto known = kernel_extent(drive, disk.kernel_name);
    if (!node || !known || disk.kernel_name == drive.kernel_name)
        return all;
    const uint64_t unit = sectors_of_block(drive);
    if (known->start == node->part_start * unit && known->size == node->part_size * unit)
        return all;
    const auto blocks = [](uint64_t start, uint64_t size) {
        return format("at block %llu with %llu blocks", static_cast<unsigned long long>(start),
                      static_cast<unsigned long long>(size));
    };
    all.push_back({"the table on the disk has " + disk.both_names() + ' ' +
                       blocks(node->part_start, node->part_size) + ", the kernel " +
                       blocks(known->start / unit, known->size / unit),
                   "The path is to the one of the table, which firmware reads. 'blockdev --rereadpt' has the "
                   "kernel read it again."});
    return all;
}

std::vector<caution> cautions_of_number(byte_view path)
{
    const auto *node = ovra::as<uefi_hard_drive_path_t>(first_hard_drive(path));
    if (!node || node->part_number != 0)
        return {};
    return {{"the path has the number 0 for its partition",
             "Firmware that goes by the number does not find it."}};
}

std::vector<caution> cautions_of_no_file(byte_view path)
{
    const std::vector<byte_view> nodes = instances_of(path).front();
    if (nodes.empty() || !is_fixed_disk(nodes.back()) ||
        std::any_of(nodes.begin(), nodes.end(), is_removable))
        return {};
    return {{"the path names no file on its disk",
             "Firmware may start nothing then from a disk with fixed media; --file names the loader."}};
}

std::vector<caution> cautions_of_network(byte_view path)
{
    const std::vector<byte_view> nodes = instances_of(path).front();
    if (nodes.empty() || !ovra::as<uefi_macaddr_device_path_t>(nodes.front()))
        return {};
    return {
        {"the path begins with the address of a network card",
         "Firmware looks for a card by the hardware that leads to it: --devpath beside --mac names that."}};
}

} // namespace tool

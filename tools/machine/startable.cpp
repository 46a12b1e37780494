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
#include "tools/text/output.h"

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
    const uint64_t on_disk = // the kernel cuts what reaches beyond the end
        node->part_start < drive.blocks ? std::min(node->part_size, drive.blocks - node->part_start) : 0;
    if (known->start == node->part_start * unit && known->size == on_disk * unit)
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

namespace {

bool overlap(const volume &one, const volume &other)
{
    return one.number != other.number && one.start < other.start + other.size &&
           other.start < one.start + one.size;
}

void add_of_slice(const chosen_disk &disk, const drive &drive, const volume &own, std::vector<caution> *all)
{
    constexpr uint64_t no_block_io = 2; // UEFI 2.10, 5.3.3
    const std::string advice = "Firmware passes over such an entry, and does not find the partition then.";
    if ((own.attributes & no_block_io) != 0)
        all->push_back({"the GPT's entry of " + disk.both_names() + " tells firmware to ignore it", advice});
    for (const volume &other : drive.volumes) {
        if (overlap(own, other))
            all->push_back(
                {disk.both_names() + " overlaps " + both_names(other.name, other.kernel_name), advice});
    }
}

// EDK2 looks at the four entries of an MBR before it takes one of them, and counts those that are used.
void add_of_partition(const chosen_disk &disk, const drive &drive, const volume &own,
                      std::vector<caution> *all)
{
    std::vector<volume> primary = drive.volumes;
    std::erase_if(primary,
                  [](const volume &each) { return each.number == 0 || each.number > ovra::last_primary; });
    const std::string advice = "Firmware may use no partition of a disk with such an MBR.";
    for (auto each = primary.begin(); each != primary.end(); ++each) {
        const std::string name = both_names(each->name, each->kernel_name);
        if (each->size > drive.blocks - each->start)
            all->push_back({name + " reaches beyond the end of its disk", advice});
        for (auto other = each + 1; other != primary.end(); ++other) {
            if (overlap(*each, *other))
                all->push_back({name + " overlaps " + both_names(other->name, other->kernel_name), advice});
        }
    }
    const auto before = static_cast<unsigned>(std::count_if(
        primary.begin(), primary.end(), [&](const auto &each) { return each.number < own.number; }));
    if (own.number <= ovra::last_primary && before + 1 != own.number)
        all->push_back(
            {format("the path has the number %u for %s, before which the MBR has unused entries", own.number,
                    disk.both_names().c_str()),
             format("Firmware may count used entries alone: it has the number %u then, and the short "
                    "form of the path does not find it.",
                    before + 1)});
    if (drive.signature == 0u)
        all->push_back({"the MBR of " + both_names(drive.name, drive.kernel_name) + " has the signature 0",
                        "So has every disk without a signature: firmware may take another one."});
}

} // namespace

std::vector<caution> cautions_of_table(const chosen_disk &disk, const drive &drive)
{
    std::vector<caution> all;
    const auto own = std::find_if(drive.volumes.begin(), drive.volumes.end(),
                                  [&](const volume &each) { return each.name == disk.name; });
    if (own == drive.volumes.end())
        return all;
    if (own->is_slice)
        add_of_slice(disk, drive, *own, &all);
    else if (own->number != 0)
        add_of_partition(disk, drive, *own, &all);
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

bool is_firmware_mark(byte_view optional_data)
{
    // 8108ac4e-9f11-4d59-850e-e21a522c59b2, as EDK2 has it for options that its boot manager makes: at each
    // start those that equal none of what it finds then are deleted.
    constexpr uint8_t mark[] = {0x4e, 0xac, 0x08, 0x81, 0x11, 0x9f, 0x59, 0x4d,
                                0x85, 0x0e, 0xe2, 0x1a, 0x52, 0x2c, 0x59, 0xb2};
    return std::equal(optional_data.begin(), optional_data.end(), std::begin(mark), std::end(mark));
}

std::vector<caution> cautions_of_mark(byte_view optional_data)
{
    if (!is_firmware_mark(optional_data))
        return {};
    return {{"firmware made this option itself, and may make it anew as it was when it starts",
             "'ovra set --no-optdata' takes firmware's mark away: it then leaves the option as it is."}};
}

void warn_of(const std::vector<caution> &cautions)
{
    for (const auto &[what, advice] : cautions)
        warn(what, advice);
}

} // namespace tool

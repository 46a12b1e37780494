// SPDX-License-Identifier: MIT
#include "tools/machine/startable.h"

#include <algorithm>

#include "src/base/nodes.h"
#include "tools/machine/drives.h"
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

} // namespace tool

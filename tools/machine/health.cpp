// SPDX-License-Identifier: MIT
#include "tools/machine/health.h"

#include <algorithm>
#include <cstring>

#include "src/base/nodes.h"
#include "tools/machine/bootorder.h"
#include "tools/machine/drives.h"
#include "tools/machine/named.h"
#include "tools/machine/pathnodes.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

bool start_the_same(const load_option &one, const load_option &other)
{
    return one.attributes == other.attributes && one.path == other.path &&
           one.optional_data == other.optional_data;
}

size_t hash_of(const load_option &option)
{
    const auto view = [](const bytes &data) {
        return std::string_view(reinterpret_cast<const char *>(data.data()), data.size());
    };
    const std::hash<std::string_view> hash;
    return hash(view(option.path)) * 31 + hash(view(option.optional_data));
}

// What firmware goes by when it looks for a partition: not where it begins and ends.
std::string key_of(byte_view hard_drive)
{
    uefi_hard_drive_path_t node = {};
    memcpy(&node, hard_drive.data(), std::min(hard_drive.size(), sizeof node));
    std::string key(reinterpret_cast<const char *>(node.part_sig), sizeof node.part_sig);
    return key + format(" %u %u", node.part_number, node.sig_type);
}

// Nodes in front of a disk that is always in the machine.
bool is_built_in(const uefi_device_path_t *node)
{
    constexpr uint8_t atapi = 1, scsi = 2, sata = 18, sas_ex = 22, nvme = 23, ufs = 25, emmc = 29;
    constexpr uint8_t attached[] = {atapi, scsi, sata, sas_ex, nvme, ufs, emmc};
    return node->type == UEFI_HARDWARE || node->type == UEFI_ACPI || node->type == UEFI_MEDIA ||
           (node->type == UEFI_MESSAGING &&
            std::find(std::begin(attached), std::end(attached), node->subtype) != std::end(attached));
}

bool is_all_built_in(byte_view nodes)
{
    for (ovra::cursor rest{nodes}; const auto *node = rest.next();) {
        if (!is_built_in(node))
            return false;
    }
    return true;
}

} // namespace

std::optional<uint16_t> seen_options::same_as(uint16_t number, const load_option &option)
{
    if (first_instance_of(option.path).empty())
        return std::nullopt;
    const size_t hash = hash_of(option);
    const auto [begin, end] = by_hash.equal_range(hash);
    for (auto at = begin; at != end; ++at) {
        try {
            if (start_the_same(machine.read_option(at->second), option))
                return at->second;
        } catch (const failure &) {
            continue; // removed meanwhile
        }
    }
    by_hash.emplace(hash, number);
    return std::nullopt;
}

present_partitions::present_partitions()
{
    if (!has_devices()) {
        problem = "the disks of this machine are not known, only its variables";
        return;
    }
    for (const drive &drive : read_drives({.media = of_every_drive})) {
        if (drive.error != 0)
            problem = "cannot read /dev/" + drive.kernel_name + ": " + strerror(drive.error);
        for (const volume &volume : drive.volumes)
            names.emplace(key_of(hard_drive_node(drive, volume)), volume.kernel_name);
    }
    if (names.empty() && problem.empty())
        problem = "no partition can be seen on any disk";
}

std::optional<std::string> present_partitions::linux_name(byte_view hard_drive) const
{
    const auto found = names.find(key_of(hard_drive));
    return found == names.end() ? std::nullopt : std::optional(found->second);
}

bool present_partitions::are_gone(byte_view option_path) const
{
    bool names_any = false;
    for (const byte_view path : paths_of(option_path)) {
        const byte_view node = first_hard_drive(path);
        if (node.empty() || !is_all_built_in(first_instance_of(path)) || linux_name(node))
            return false;
        names_any = true;
    }
    return names_any && problem.empty();
}

std::vector<uint16_t> in_boot_order(firmware &machine)
{
    const std::vector<uint16_t> options = machine.options();
    std::vector<bool> exists(UINT16_MAX + 1);
    for (const uint16_t number : options)
        exists[number] = true;
    std::vector<uint16_t> all = machine.order();
    std::erase_if(all, [&exists](uint16_t number) { return !exists[number]; });
    all.insert(all.end(), options.begin(), options.end());
    return distinct(all);
}

namespace {

// Hands over each option that can be read, in boot order.
template <typename Take>
void for_each_option(firmware &machine, Take take)
{
    for (const uint16_t number : in_boot_order(machine)) {
        try {
            take(number, machine.read_option(number));
        } catch (const unreadable &reason) {
            if (!reason.is_gone)
                warn_of_unreadable(reason);
        }
    }
}

} // namespace

std::vector<uint16_t> stale_options(firmware &machine)
{
    const present_partitions partitions;
    if (!partitions.doubt().empty())
        throw failure("which options are stale is not known: " + partitions.doubt());
    const std::optional<uint16_t> booted = named_or_none(machine, &firmware::current);
    std::vector<uint16_t> stale;
    for_each_option(machine, [&](uint16_t number, const load_option &option) {
        if (number != booted && partitions.are_gone(option.path))
            stale.push_back(number);
    });
    return stale;
}

std::vector<uint16_t> duplicate_options(firmware &machine)
{
    seen_options seen(machine);
    const std::optional<uint16_t> next = named_or_none(machine, &firmware::next);
    std::vector<uint16_t> duplicates;
    for_each_option(machine, [&](uint16_t number, const load_option &option) {
        if (seen.same_as(number, option) && number != next)
            duplicates.push_back(number);
    });
    return duplicates;
}

} // namespace tool

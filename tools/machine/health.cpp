// SPDX-License-Identifier: MIT
#include "tools/machine/health.h"

#include <algorithm>
#include <cstring>

#include "src/base/nodes.h"
#include "tools/machine/bootorder.h"
#include "tools/machine/contents.h"
#include "tools/machine/drives.h"
#include "tools/machine/kernelpartitions.h"
#include "tools/machine/named.h"
#include "tools/machine/pathnodes.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

// All of an option that counts when it is started, with the sizes of what it has of any length.
void put_key(const load_option &option, std::string *key)
{
    const auto append = [key](const void *data, size_t size) {
        key->append(static_cast<const char *>(data), size);
    };
    const size_t size = option.path.size();
    key->clear();
    append(&option.attributes, sizeof option.attributes);
    append(&size, sizeof size);
    append(option.path.data(), option.path.size());
    append(option.optional_data.data(), option.optional_data.size());
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

// Firmware sees the disk in place of the members, or of what the kernel makes of it: a table that begins on a
// member may be that of the array.
bool is_part_of_another(const drive &drive, const std::unordered_map<std::string, drive_contents> &contents)
{
    return is_made_by_the_kernel(drive.path) ||
           std::any_of(contents.begin(), contents.end(), [&](const auto &each) {
               const auto &members = each.second.members;
               return std::find(members.begin(), members.end(), drive.kernel_name) != members.end();
           });
}

} // namespace

std::optional<uint16_t> seen_options::same_as(uint16_t number, const load_option &option)
{
    if (first_instance_of(option.path).empty())
        return std::nullopt;
    put_key(option, &key);
    const auto [seen, is_new] = by_key.try_emplace(key, number);
    return is_new ? std::nullopt : std::optional(seen->second);
}

present_partitions::present_partitions()
{
    if (!has_devices()) {
        problem = "the disks of this machine are not known, only its variables";
        return;
    }
    const one_moment picture;
    const auto contents = read_contents(true);
    for (const drive &drive : read_drives({.media = of_every_drive})) {
        if (drive.error != 0)
            problem = "cannot read /dev/" + drive.kernel_name + ": " + strerror(drive.error);
        else if (problem.empty() && !is_part_of_another(drive, contents))
            problem = doubt_of_partitions(drive, contents.at(drive.name));
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
    const std::vector<byte_view> instances = all_instances_of(option_path);
    return !instances.empty() && problem.empty() &&
           std::all_of(instances.begin(), instances.end(), [this](byte_view instance) {
               const byte_view node = first_hard_drive(instance);
               return !node.empty() && is_all_built_in(instance) && !linux_name(node);
           });
}

bool says_where_its_disks_are(byte_view option_path)
{
    const std::vector<byte_view> instances = all_instances_of(option_path);
    return std::none_of(instances.begin(), instances.end(), [](byte_view instance) {
        return ovra::as<uefi_hard_drive_path_t>(instance) != nullptr;
    });
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
    seen_options seen;
    const std::optional<uint16_t> next = named_or_none(machine, &firmware::next);
    std::vector<uint16_t> duplicates;
    for_each_option(machine, [&](uint16_t number, const load_option &option) {
        if (seen.same_as(number, option) && number != next)
            duplicates.push_back(number);
    });
    return duplicates;
}

} // namespace tool

// SPDX-License-Identifier: MIT
#include "tools/machine/leading.h"

#include <algorithm>
#include <cstddef>

#include "src/base/hard_drive.h"
#include "src/base/ids.h"
#include "src/base/nodes.h"
#include "tools/machine/contents.h"
#include "tools/machine/pathnodes.h"

namespace tool {

namespace {

bool begins_with(byte_view nodes, byte_view beginning)
{
    return beginning.size() <= nodes.size() && std::equal(beginning.begin(), beginning.end(), nodes.begin());
}

bytes packed_nodes(device_paths &paths, const std::string &text)
{
    if (text.empty())
        return {};
    const bytes path = paths.encode(text, std::nullopt);
    const byte_view nodes = first_instance_of(path);
    return {nodes.begin(), nodes.end()};
}

bool is_pci_host_bridge(const uefi_device_path_t *node)
{
    const auto *bridge = ovra::as<uefi_acpi_device_path_t>(node);
    return bridge && (bridge->hid == ovra::eisa_id("PNP", ovra::product_pci_root) ||
                      bridge->hid == ovra::eisa_id("PNP", ovra::product_pcie_root));
}

// Beginnings from which firmware looks for the rest itself.
bool is_expanded(const uefi_device_path_t *node)
{
    return ovra::is_kind<uefi_usb_class_device_path_t>(node) ||
           ovra::is_kind<uefi_usb_wwid_device_path_t>(node);
}

// Roots of firmware's own beside the host bridges of PCI, for which the kernel has no names.
bool is_other_root(const uefi_device_path_t *node)
{
    return (node->type == UEFI_ACPI && !is_pci_host_bridge(node)) ||
           ovra::is_kind<uefi_memmap_device_path_t>(node) || ovra::is_kind<uefi_venhw_device_path_t>(node);
}

} // namespace

bool begins_with_any(byte_view nodes, const std::vector<bytes> &beginnings)
{
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [nodes](const bytes &each) { return begins_with(nodes, each); });
}

drive_marks marks_of(const drive &drive, const hardware &hardware, device_paths &paths)
{
    drive_marks marks;
    marks.name = drive.name;
    for (const std::string &text : hardware.texts_of(drive))
        marks.hardware.push_back(packed_nodes(paths, text));
    for (const volume &volume : drive.volumes)
        marks.hard_drives.push_back(hard_drive_node(drive, volume));
    return marks;
}

hard_drive_place hard_drive_in(byte_view path)
{
    hard_drive_place place;
    size_t begin = 0; // of the instance
    for (ovra::cursor nodes{path}; const auto *node = nodes.next();) {
        const byte_view all = ovra::node_bytes(node);
        const size_t at = path.size() - nodes.rest.size() - all.size();
        if (node->type == UEFI_END) {
            begin = at + all.size();
        } else if (ovra::is_kind<uefi_hard_drive_path_t>(node)) {
            place.node = all;
            place.before = path.subspan(begin, at - begin);
            break;
        }
    }
    return place;
}

std::string identity_of(byte_view hard_drive)
{
    std::string identity(hard_drive.begin(), hard_drive.end());
    const auto *node = ovra::as<uefi_hard_drive_path_t>(hard_drive);
    const bool is_signed = node && std::any_of(std::begin(node->part_sig), std::end(node->part_sig),
                                               [](uint8_t byte) { return byte != 0; });
    if (is_signed && node->part_number != 0)
        identity.replace(offsetof(uefi_hard_drive_path_t, part_start),
                         sizeof node->part_start + sizeof node->part_size, "");
    return identity;
}

std::string remark_on(bool other_extent, hardware_doubt doubt)
{
    const auto hardware = [doubt] {
        switch (doubt) {
        case hardware_doubt::unknown:
            return "hardware cannot be checked";
        case hardware_doubt::incomplete:
            return "hardware named incompletely";
        case hardware_doubt::absent:
            return "hardware not on this machine";
        case hardware_doubt::none:
            break;
        }
        return "";
    }();
    return std::string(other_extent ? "other extent" : "") + (other_extent && *hardware ? ", " : "") +
           hardware;
}

drives_by_hardware::drives_by_hardware(const std::vector<drive> &all)
{
    for (const drive &drive : all) {
        drive_marks marks = marks_of(drive, tree, paths);
        if (!marks.hardware.empty())
            drives.push_back(std::move(marks));
        else if (!is_made_by_the_kernel(drive.path) && !drive.path.starts_with("/md@"))
            carriers_of_others.push_back(packed_nodes(paths, tree.carrier_of(drive)));
    }
}

drives_by_hardware::way drives_by_hardware::way_of(byte_view nodes)
{
    way found;
    for (const drive_marks &marks : drives) {
        if (begins_with_any(nodes, marks.hardware))
            found.drives.push_back(marks.name);
    }
    if (found.drives.empty())
        found.doubt = doubt_of(nodes);
    return found;
}

hardware_doubt drives_by_hardware::doubt_of(byte_view nodes)
{
    const auto *first = ovra::cursor{nodes}.next();
    if (!first || is_expanded(first))
        return hardware_doubt::none;
    if (is_other_root(first))
        return hardware_doubt::unknown;
    if (!is_pci_host_bridge(first))
        return hardware_doubt::incomplete;
    if (!carriers) {
        carriers.emplace();
        for (const std::string &text : tree.carriers())
            carriers->push_back(packed_nodes(paths, text));
    }
    const auto goes_on = [nodes](const bytes &longer) { return begins_with(longer, nodes); };
    const bool is_part_of_a_drives = std::any_of(drives.begin(), drives.end(), [&](const drive_marks &marks) {
        return std::any_of(marks.hardware.begin(), marks.hardware.end(), goes_on);
    });
    if (is_part_of_a_drives || std::any_of(carriers->begin(), carriers->end(), goes_on))
        return hardware_doubt::incomplete;
    return begins_with_any(nodes, carriers_of_others) ? hardware_doubt::unknown : hardware_doubt::absent;
}

namespace {

bool begins_with_hardware(byte_view path)
{
    const byte_view nodes = first_instance_of(path);
    return !nodes.empty() && nodes[0] == UEFI_ACPI;
}

} // namespace

parts_of_drives parts_to_follow(byte_view option_path)
{
    parts_of_drives wanted;
    for (const byte_view path : paths_of(option_path)) {
        const hard_drive_place place = hard_drive_in(path);
        if (!place.node.empty())
            wanted.media = of_every_drive;
        if (!place.before.empty() || begins_with_hardware(path))
            wanted.attachments = of_every_drive;
    }
    return wanted;
}

std::vector<led_volume> volumes_of(byte_view option_path, const std::vector<drive> &drives,
                                   drives_by_hardware *hardware)
{
    std::vector<led_volume> found;
    drives_by_hardware::way way;
    const auto add = [&](const hard_drive_place &place, const drive &drive, const volume &volume) {
        const bytes node = hard_drive_node(drive, volume);
        if (identity_of(node) != identity_of(place.node))
            return;
        const bool other_extent = !std::equal(node.begin(), node.end(), place.node.begin(), place.node.end());
        const auto before = std::find_if(found.begin(), found.end(),
                                         [&](const led_volume &each) { return each.name == volume.name; });
        if (before == found.end())
            found.push_back({volume.name, other_extent, way.doubt});
        else
            *before = {volume.name, before->other_extent && other_extent, std::min(before->doubt, way.doubt)};
    };
    for (const byte_view path : paths_of(option_path)) {
        const hard_drive_place place = hard_drive_in(path);
        if (place.node.empty())
            continue;
        way = place.before.empty() ? drives_by_hardware::way() : hardware->way_of(place.before);
        const std::vector<std::string> &names = way.drives;
        for (const drive &drive : drives) {
            if (!names.empty() && std::find(names.begin(), names.end(), drive.name) == names.end())
                continue;
            for (const volume &volume : drive.volumes)
                add(place, drive, volume);
        }
    }
    return found;
}

std::vector<std::string> drives_of(byte_view option_path, drives_by_hardware &hardware)
{
    std::vector<std::string> all;
    for (const byte_view path : paths_of(option_path)) {
        if (!begins_with_hardware(path))
            continue;
        for (std::string &name : hardware.way_of(first_instance_of(path)).drives) {
            if (std::find(all.begin(), all.end(), name) == all.end())
                all.push_back(std::move(name));
        }
    }
    return all;
}

} // namespace tool

// SPDX-License-Identifier: MIT
#include "tools/machine/leading.h"

#include <algorithm>
#include <cstddef>

#include "src/base/hard_drive.h"
#include "src/base/nodes.h"
#include "tools/machine/pathnodes.h"

namespace tool {

namespace {

bool begins_with(byte_view nodes, byte_view beginning)
{
    return beginning.size() <= nodes.size() && std::equal(beginning.begin(), beginning.end(), nodes.begin());
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
    for (const std::string &text : hardware.texts_of(drive)) {
        const bytes path = paths.encode(text, std::nullopt);
        const byte_view nodes = first_instance_of(path);
        marks.hardware.emplace_back(nodes.begin(), nodes.end());
    }
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

drives_by_hardware::drives_by_hardware()
{
    const hardware hardware;
    device_paths paths;
    for (const drive &drive : read_drives({.attachments = of_every_drive})) {
        drive_marks marks = marks_of(drive, hardware, paths);
        if (!marks.hardware.empty())
            drives.push_back(std::move(marks));
    }
}

std::vector<std::string> drives_by_hardware::led_to(byte_view nodes) const
{
    std::vector<std::string> names;
    for (const drive_marks &marks : drives) {
        if (begins_with_any(nodes, marks.hardware))
            names.push_back(marks.name);
    }
    return names;
}

std::vector<led_volume> volumes_of(byte_view option_path, const std::vector<drive> &drives)
{
    std::vector<led_volume> found;
    std::optional<drives_by_hardware> hardware;
    const auto add = [&](const hard_drive_place &place, const drive &drive, const volume &volume) {
        const bytes node = hard_drive_node(drive, volume);
        if (identity_of(node) != identity_of(place.node))
            return;
        const bool other_extent = !std::equal(node.begin(), node.end(), place.node.begin(), place.node.end());
        const auto before = std::find_if(found.begin(), found.end(),
                                         [&](const led_volume &each) { return each.name == volume.name; });
        if (before == found.end())
            found.push_back({volume.name, other_extent});
        else
            before->other_extent = before->other_extent && other_extent;
    };
    for (const byte_view path : paths_of(option_path)) {
        const hard_drive_place place = hard_drive_in(path);
        if (place.node.empty())
            continue;
        if (!place.before.empty() && !hardware)
            hardware.emplace();
        const auto names = place.before.empty() ? std::vector<std::string>() : hardware->led_to(place.before);
        for (const drive &drive : drives) {
            if (!names.empty() && std::find(names.begin(), names.end(), drive.name) == names.end())
                continue;
            for (const volume &volume : drive.volumes)
                add(place, drive, volume);
        }
    }
    return found;
}

std::vector<std::string> drives_of(byte_view option_path)
{
    std::optional<drives_by_hardware> hardware;
    std::vector<std::string> all;
    for (const byte_view path : paths_of(option_path)) {
        const byte_view nodes = first_instance_of(path);
        if (nodes.empty() || nodes[0] != UEFI_ACPI)
            continue;
        if (!hardware)
            hardware.emplace();
        for (std::string &name : hardware->led_to(nodes)) {
            if (std::find(all.begin(), all.end(), name) == all.end())
                all.push_back(std::move(name));
        }
    }
    return all;
}

} // namespace tool

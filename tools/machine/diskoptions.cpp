// SPDX-License-Identifier: MIT
#include "tools/machine/diskoptions.h"

#include <algorithm>

#include "src/base/nodes.h"
#include "tools/machine/contents.h"
#include "tools/machine/named.h"
#include "tools/machine/pathnodes.h"

namespace tool {

namespace {

std::string key(byte_view node)
{
    return {node.begin(), node.end()};
}

bool begins_with(byte_view nodes, byte_view beginning)
{
    return beginning.size() <= nodes.size() && std::equal(beginning.begin(), beginning.end(), nodes.begin());
}

bool begins_with_any(byte_view nodes, const std::vector<bytes> &beginnings)
{
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [nodes](const bytes &each) { return begins_with(nodes, each); });
}

void sort_out(std::vector<uint16_t> *numbers)
{
    std::sort(numbers->begin(), numbers->end());
    numbers->erase(std::unique(numbers->begin(), numbers->end()), numbers->end());
}

} // namespace

drive_marks marks_of(const drive &drive, const hardware &hardware, device_paths &paths)
{
    drive_marks marks;
    for (const std::string &text : hardware.texts_of(drive)) {
        const bytes path = paths.encode(text, std::nullopt);
        const byte_view nodes = first_instance_of(path);
        marks.hardware.emplace_back(nodes.begin(), nodes.end());
    }
    for (const volume &volume : drive.volumes)
        marks.hard_drives.push_back(hard_drive_node(drive, volume));
    return marks;
}

std::vector<std::string> drives_of(byte_view option_path)
{
    std::vector<byte_view> beginnings;
    for (const byte_view path : paths_of(option_path)) {
        const byte_view nodes = first_instance_of(path);
        if (!nodes.empty() && nodes[0] == UEFI_ACPI)
            beginnings.push_back(nodes);
    }
    if (beginnings.empty())
        return {};
    std::vector<std::string> names;
    const hardware hardware;
    device_paths paths;
    for (const drive &drive : read_drives({.attachments = of_every_drive})) {
        const drive_marks marks = marks_of(drive, hardware, paths);
        if (std::any_of(beginnings.begin(), beginnings.end(),
                        [&marks](byte_view nodes) { return begins_with_any(nodes, marks.hardware); }))
            names.push_back(drive.name);
    }
    return names;
}

disk_options::disk_options(firmware &machine)
{
    const one_moment of_many_reads;
    for (const uint16_t number : machine.options()) {
        std::optional<load_option> option;
        try {
            option = machine.find_option(number);
        } catch (const unreadable &reason) {
            warn_of_unreadable(reason);
            continue;
        }
        if (!option)
            continue;
        for (const byte_view path : paths_of(option->path)) {
            if (const byte_view node = first_hard_drive(path); !node.empty()) {
                std::vector<uint16_t> &numbers = by_hard_drive[key(node)];
                if (numbers.empty() || numbers.back() != number)
                    numbers.push_back(number);
            }
            const byte_view nodes = first_instance_of(path);
            if (!nodes.empty() && nodes[0] != UEFI_MEDIA)
                beginnings.push_back({number, {nodes.begin(), nodes.end()}});
        }
    }
}

std::vector<uint16_t> disk_options::of_volume(byte_view hard_drive) const
{
    const auto found = by_hard_drive.find(key(hard_drive));
    return found == by_hard_drive.end() ? std::vector<uint16_t>() : found->second;
}

void disk_options::add_hardware(const drive_marks &marks, std::vector<uint16_t> *found) const
{
    for (const beginning &each : beginnings) {
        if (begins_with_any(each.nodes, marks.hardware))
            found->push_back(each.number);
    }
}

void disk_options::add_volumes(const drive_marks &marks, std::vector<uint16_t> *found) const
{
    for (const bytes &node : marks.hard_drives) {
        const std::vector<uint16_t> numbers = of_volume(node);
        found->insert(found->end(), numbers.begin(), numbers.end());
    }
}

std::vector<uint16_t> disk_options::of_drive(const drive_marks &marks) const
{
    std::vector<uint16_t> found;
    add_hardware(marks, &found);
    add_volumes(marks, &found);
    sort_out(&found);
    return found;
}

std::vector<uint16_t> disk_options::of_no_volume(const drive_marks &marks) const
{
    std::vector<uint16_t> all;
    std::vector<uint16_t> of_volumes;
    add_hardware(marks, &all);
    add_volumes(marks, &of_volumes);
    sort_out(&all);
    sort_out(&of_volumes);
    std::vector<uint16_t> found;
    std::set_difference(all.begin(), all.end(), of_volumes.begin(), of_volumes.end(),
                        std::back_inserter(found));
    return found;
}

} // namespace tool

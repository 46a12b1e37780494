// SPDX-License-Identifier: MIT
#include "tools/machine/diskoptions.h"

#include <algorithm>

#include "src/base/nodes.h"
#include "tools/machine/contents.h"
#include "tools/machine/named.h"
#include "tools/machine/pathnodes.h"
#include "tools/text/loadoption.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"

namespace tool {

namespace {

// By their numbers, each once; of what is said of one in several ways the best holds.
void sort_out(std::vector<found_option> *found)
{
    std::map<uint16_t, found_option> all;
    for (const found_option &each : *found) {
        const auto [at, is_new] = all.try_emplace(each.number, each);
        if (is_new)
            continue;
        at->second.other_extent = at->second.other_extent && each.other_extent;
        at->second.doubt = std::min(at->second.doubt, each.doubt);
    }
    found->clear();
    for (const auto &[number, each] : all)
        found->push_back(each);
}

} // namespace

std::string found_option::remark() const
{
    return remark_on(other_extent, doubt);
}

bool disk_options::interest::has(const std::string &identity) const
{
    return !marks || std::find(identities.begin(), identities.end(), identity) != identities.end();
}

bool disk_options::interest::has_hardware(byte_view nodes) const
{
    return !marks || begins_with_any(nodes, marks->hardware);
}

disk_options::disk_options(firmware &machine, const drive_marks *only)
{
    const one_moment of_many_reads;
    std::vector<std::string> damaged;
    interest kept = {only, {}};
    for (size_t at = 0; only && at < only->hard_drives.size(); ++at)
        kept.identities.push_back(identity_of(only->hard_drives[at]));
    load_option option;
    for (const uint16_t number : machine.options()) {
        try {
            if (!machine.find_option(number, &option))
                continue;
        } catch (const unreadable &reason) {
            if (!reason.damage.empty())
                damaged.push_back(machine.name_of(number));
            else if (!reason.is_gone)
                warn_of_unreadable(reason);
            continue;
        }
        for (const path_instance &each : all_instances_of(option.path)) {
            add_volume_of(number, each.nodes, kept);
            if (each.begins_path)
                add_hardware_of(number, each.nodes, kept);
        }
    }
    if (!damaged.empty())
        warn(join(damaged, ", ") + (damaged.size() == 1 ? " is damaged" : " are damaged"),
             "To which disks this leads is not known; 'ovra list -v' says what is damaged.");
}

void disk_options::add_volume_of(uint16_t number, byte_view nodes, const interest &kept)
{
    if (const hard_drive_place place = hard_drive_in(nodes); !place.node.empty()) {
        const std::string identity = identity_of(place.node);
        if (kept.has(identity))
            by_identity[identity].push_back(
                {number, {place.node.begin(), place.node.end()}, way_of(place.before)});
    }
}

void disk_options::add_hardware_of(uint16_t number, byte_view nodes, const interest &kept)
{
    if (!nodes.empty() && nodes[0] != UEFI_MEDIA && kept.has_hardware(nodes))
        beginnings.push_back({number, {nodes.begin(), nodes.end()}});
}

const drives_by_hardware::way *disk_options::way_of(byte_view nodes)
{
    if (nodes.empty())
        return nullptr;
    const auto [at, is_new] = ways.try_emplace(std::string(nodes.begin(), nodes.end()));
    if (is_new) {
        if (!hardware)
            hardware.emplace(read_drives({.attachments = of_every_drive}));
        at->second = hardware->way_of(nodes);
    }
    return &at->second;
}

std::vector<found_option> disk_options::of_volume(byte_view hard_drive, const std::string &drive) const
{
    std::vector<found_option> found;
    const auto same = by_identity.find(identity_of(hard_drive));
    if (same == by_identity.end())
        return found;
    for (const on_volume &each : same->second) {
        const bool leads_elsewhere = each.led_by && !each.led_by->drives.empty() &&
                                     std::find(each.led_by->drives.begin(), each.led_by->drives.end(),
                                               drive) == each.led_by->drives.end();
        if (leads_elsewhere)
            continue;
        const bool is_same =
            std::equal(each.node.begin(), each.node.end(), hard_drive.begin(), hard_drive.end());
        found.push_back({each.number, !is_same, each.led_by ? each.led_by->doubt : hardware_doubt::none});
    }
    sort_out(&found);
    return found;
}

void disk_options::add_hardware(const drive_marks &marks, std::vector<found_option> *found) const
{
    for (const beginning &each : beginnings) {
        if (begins_with_any(each.nodes, marks.hardware))
            found->push_back({each.number});
    }
}

void disk_options::add_volumes(const drive_marks &marks, std::vector<found_option> *found) const
{
    for (const bytes &node : marks.hard_drives) {
        const std::vector<found_option> options = of_volume(node, marks.name);
        found->insert(found->end(), options.begin(), options.end());
    }
}

std::vector<found_option> disk_options::of_drive(const drive_marks &marks) const
{
    // What is said of an option that leads to a slice or partition is said of it here too.
    std::vector<found_option> found;
    add_volumes(marks, &found);
    sort_out(&found);
    const std::vector<uint16_t> known = numbers_of(found);
    std::vector<found_option> others;
    add_hardware(marks, &others);
    std::erase_if(others, [&known](const found_option &each) {
        return std::binary_search(known.begin(), known.end(), each.number);
    });
    found.insert(found.end(), others.begin(), others.end());
    sort_out(&found);
    return found;
}

std::vector<found_option> disk_options::of_no_volume(const drive_marks &marks) const
{
    std::vector<found_option> found;
    std::vector<found_option> of_volumes;
    add_hardware(marks, &found);
    add_volumes(marks, &of_volumes);
    sort_out(&found);
    sort_out(&of_volumes);
    const std::vector<uint16_t> known = numbers_of(of_volumes);
    std::erase_if(found, [&known](const found_option &each) {
        return std::binary_search(known.begin(), known.end(), each.number);
    });
    return found;
}

std::vector<uint16_t> numbers_of(const std::vector<found_option> &options)
{
    std::vector<uint16_t> numbers;
    numbers.reserve(options.size());
    for (const found_option &each : options)
        numbers.push_back(each.number);
    return numbers;
}

json remarks_of(const option_kind &kind, const std::vector<found_option> &options)
{
    json all = json::object();
    for (const found_option &each : options) {
        if (const std::string what = each.remark(); !what.empty())
            all[kind.name(each.number)] = what;
    }
    return all;
}

} // namespace tool

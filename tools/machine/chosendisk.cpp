// SPDX-License-Identifier: MIT
#include "tools/machine/chosendisk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "src/base/ascii.h"
#include "src/base/device_name.h"
#include "src/base/hard_drive.h"
#include "tools/machine/arrays.h"
#include "tools/machine/drives.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

constexpr std::string_view partuuid_prefix = "PARTUUID=";
constexpr std::string_view partuuid_folder = "/dev/disk/by-partuuid/";

bool has_partuuid_prefix(std::string_view text)
{
    return ovra::alike(text.substr(0, partuuid_prefix.size()), partuuid_prefix);
}

bool same_partuuid(std::string_view text, std::string_view partuuid)
{
    return has_partuuid_prefix(text) && !partuuid.empty() &&
           ovra::alike(text.substr(partuuid_prefix.size()), partuuid);
}

std::string without_folder(std::string_view name)
{
    for (const std::string_view folder :
         {std::string_view(ovra::slice_folder), std::string_view(ovra::partition_folder),
          std::string_view(ovra::device_folder)}) {
        if (name.starts_with(folder)) {
            name.remove_prefix(folder.size());
            break;
        }
    }
    return std::string(name);
}

bool begins_with_name(const std::string &wanted, const std::string &drive)
{
    return !drive.empty() && wanted.size() > drive.size() && wanted.starts_with(drive);
}

// Whether a name has the form of one of a drive's slices or partitions.
bool is_volume_of(const std::string &wanted, const std::string &drive)
{
    if (!begins_with_name(wanted, drive))
        return false;
    std::string_view rest = std::string_view(wanted).substr(drive.size());
    if (rest[0] == 'p' || rest[0] == 's')
        rest.remove_prefix(1);
    return !rest.empty() && rest.find_first_not_of("0123456789") == std::string_view::npos;
}

chosen_disk chosen(const drive &drive, const volume &volume)
{
    chosen_disk disk;
    disk.name = volume.name;
    disk.kernel_name = volume.kernel_name;
    disk.node = hard_drive_node(drive, volume);
    if (volume.is_slice)
        disk.partuuid = guid_text(volume.guid);
    if (drive.signature)
        disk.signature = format("%08x", *drive.signature);
    disk.is_logical = !volume.is_slice && volume.number > ovra::last_primary;
    if (!volume.is_slice && volume.number != 0 && drive.signature)
        disk.partuuid = disk.signature + format("-%02x", volume.number);
    return disk;
}

} // namespace

std::string chosen_disk::told_of(const std::string &typed) const
{
    std::vector<std::string> names;
    for (const std::string &each : {name, "/dev/" + kernel_name}) {
        if (each != typed && each != "/dev/")
            names.push_back(printable(each));
    }
    if (!partuuid.empty() && !same_partuuid(typed, partuuid))
        names.push_back(std::string(partuuid_prefix) + partuuid);
    if (partuuid.empty() && !signature.empty())
        names.push_back("MBR signature " + signature);
    return printable(typed) + " is " + join(names, ", ") + '.';
}

json chosen_disk::members() const
{
    const auto or_null = [](const std::string &text) { return text.empty() ? json(nullptr) : json(text); };
    return {{"disk", name},
            {"kernel_name", kernel_name},
            {"partuuid", or_null(partuuid)},
            {"signature", or_null(signature)}};
}

chosen_disk find_disk(const std::string &text)
{
    require_machine();
    const std::string advice = "'ovra disks' shows the disks with their names.";
    const bool by_link = text.starts_with(partuuid_folder);
    const bool by_uuid = by_link || has_partuuid_prefix(text);
    const std::string wanted = by_link   ? std::string(partuuid_prefix) + text.substr(partuuid_folder.size())
                               : by_uuid ? text
                                         : without_folder(text);
    // Only drives that may have a partition of this name are looked into.
    const std::vector<drive> drives = read_drives([&](const drive &drive) {
        return by_uuid || begins_with_name(wanted, drive.name) || begins_with_name(wanted, drive.kernel_name);
    });
    std::vector<chosen_disk> found;
    for (const drive &drive : drives) {
        const bool is_meant = drive.kernel_name == wanted || drive.name == wanted;
        if (const auto member = is_meant ? member_for_firmware(text, drive) : std::nullopt)
            return find_disk(*member);
        if (is_meant)
            throw failure(in_quotes(text) + " is the whole disk " + drive.name,
                          "One of its slices or partitions is needed. " + advice);
        for (const volume &volume : drive.volumes) {
            const chosen_disk next = chosen(drive, volume);
            if (by_uuid ? same_partuuid(wanted, next.partuuid)
                        : volume.name == wanted || volume.kernel_name == wanted)
                found.push_back(next);
        }
    }
    if (found.size() == 1)
        return found.front();
    if (found.size() > 1)
        throw failure(in_quotes(text) + " names more than one disk",
                      "They are " + found[0].name + " and " + found[1].name + ". " + advice);
    for (const drive &drive : drives) {
        const bool meant =
            by_uuid || is_volume_of(wanted, drive.name) || is_volume_of(wanted, drive.kernel_name);
        if (meant && drive.error != 0)
            throw failure((by_uuid ? "no disk that can be read has " + in_quotes(text) + "; cannot read "
                                   : std::string("cannot read ")) +
                              "/dev/" + drive.kernel_name + ": " + strerror(drive.error),
                          drive.error == EACCES || drive.error == EPERM ? "Run this as root." : advice);
    }
    if (drives.empty())
        require_devices();
    throw failure("no disk is named " + in_quotes(text), advice);
}

std::vector<chosen_disk> twins_of(const chosen_disk &disk)
{
    std::vector<chosen_disk> twins;
    for (const drive &drive : read_drives([](const drive &) { return true; })) {
        for (const volume &volume : drive.volumes) {
            const chosen_disk other = chosen(drive, volume);
            const bool same = disk.partuuid.empty()
                                  ? other.partuuid.empty() && other.signature == disk.signature
                                  : other.partuuid == disk.partuuid;
            if (same && other.name != disk.name)
                twins.push_back(other);
        }
    }
    return twins;
}

} // namespace tool

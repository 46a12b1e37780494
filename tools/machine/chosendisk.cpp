// SPDX-License-Identifier: MIT
#include "tools/machine/chosendisk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "src/base/ascii.h"
#include "src/base/device_name.h"
#include "src/base/hard_drive.h"
#include "tools/machine/arrays.h"
#include "tools/machine/disknames.h"
#include "tools/machine/diskrefusals.h"
#include "tools/machine/drives.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

constexpr std::string_view partuuid_prefix = "PARTUUID=";
constexpr const char *disks_advice = "'ovra disks' shows the disks with their names.";

bool is_partuuid(std::string_view text, std::string_view partuuid)
{
    return ovra::alike(text.substr(0, partuuid_prefix.size()), partuuid_prefix) &&
           ovra::alike(text.substr(std::min(text.size(), partuuid_prefix.size())), partuuid);
}

chosen_disk chosen(const drive &drive, const volume &volume)
{
    chosen_disk disk;
    disk.name = volume.name;
    disk.kernel_name = volume.kernel_name;
    disk.drive = drive.name;
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

// What is empty identifies nothing.
bool is_named(const volume &volume, const chosen_disk &disk, const disk_name &wanted)
{
    if (wanted.value.empty())
        return false;
    switch (wanted.kind) {
    case named_by::partuuid:
        return ovra::alike(wanted.value, disk.partuuid);
    case named_by::partlabel:
        return wanted.value == volume.label;
    case named_by::uuid:
        return ovra::alike(wanted.value, volume.fs_uuid);
    case named_by::label:
        return wanted.value == volume.fs_label;
    case named_by::name:
        break;
    }
    return wanted.value == volume.name || wanted.value == volume.kernel_name;
}

bool is_drive(const drive &drive, const std::string &name)
{
    return drive.name == name || drive.kernel_name == name;
}

chosen_disk with_wanted_file(chosen_disk disk, const disk_name &wanted)
{
    disk.of_file = wanted.of_file;
    disk.file = wanted.file;
    disk.file_system = wanted.file_system;
    return disk;
}

void refuse_unread(bool any, const std::string &text, const std::string &kernel_name, int error)
{
    if (error != 0)
        throw failure((any ? "no disk that can be read has " + in_quotes(text) + "; cannot read "
                           : std::string("cannot read ")) +
                          "/dev/" + kernel_name + ": " + strerror(error),
                      error == EACCES || error == EPERM ? "Run this as root." : disks_advice);
}

// No disk has the name. One that cannot be read may have it.
[[noreturn]] void refuse_name(const std::vector<drive> &drives, const disk_name &wanted,
                              const std::string &text)
{
    const bool any = wanted.kind != named_by::name;
    for (const drive &drive : drives) {
        if (any || is_volume_of(wanted.value, drive.name) || is_volume_of(wanted.value, drive.kernel_name))
            refuse_unread(any, text, drive.kernel_name, drive.error);
        for (const volume &volume : drive.volumes)
            refuse_unread(any, text, volume.kernel_name, volume.error);
    }
    refuse_whole_file_system(drives, wanted, text);
    refuse_former_partition(drives, wanted, text);
    const bool is_another_name = !any && !text.ends_with(in_dev_folder(wanted.value)) && wanted.value != text;
    if (wanted.of_file || is_another_name)
        throw failure(in_quotes(text) + (wanted.of_file ? " is on " : " is ") +
                          printable(in_dev_folder(wanted.value)) +
                          ", which is no disk that a path can lead to",
                      lies_on(wanted) + disks_advice);
    throw failure("no disk is named " + in_quotes(text), lies_on(wanted) + disks_advice);
}

// Only drives that may be meant, or have a partition of this name, are looked into.
std::vector<drive> drives_for(const disk_name &wanted, bool with_attachments)
{
    const auto may_be_meant = [&](const drive &drive) {
        return wanted.kind != named_by::name || is_drive(drive, wanted.value) ||
               begins_with_name(wanted.value, drive.name) ||
               begins_with_name(wanted.value, drive.kernel_name);
    };
    std::vector<drive> drives =
        read_drives({.media = may_be_meant,
                     .attachments = with_attachments ? may_be_meant : parts_of_drives::choice(),
                     .file_systems = wanted.kind == named_by::uuid || wanted.kind == named_by::label});
    if (drives.empty())
        require_devices();
    return drives;
}

// The partition of a disk that is named itself.
chosen_disk part_of(const std::vector<drive> &drives, const disk_name &wanted, const std::string &text,
                    unsigned part)
{
    for (const drive &drive : drives) {
        if (wanted.kind != named_by::name || !is_drive(drive, wanted.value))
            continue;
        refuse_unread(false, text, drive.kernel_name, drive.error);
        for (const volume &volume : drive.volumes) {
            if (volume.number + (volume.is_slice ? 1 : 0) == part)
                return chosen(drive, volume);
        }
        throw failure("the disk " + both_names(drive.name, drive.kernel_name) +
                          format(" has no partition %u", part),
                      disks_advice);
    }
    throw failure("--part needs a whole disk, and " + in_quotes(text) + " names none", disks_advice);
}

} // namespace

std::string chosen_disk::both_names() const
{
    return tool::both_names(name, kernel_name);
}

std::string chosen_disk::told_of(const std::string &typed) const
{
    std::vector<std::string> names;
    for (const std::string &each : {name, "/dev/" + kernel_name}) {
        if (each != typed && each != "/dev/")
            names.push_back(printable(each));
    }
    if (!partuuid.empty() && !is_partuuid(typed, partuuid))
        names.push_back(std::string(partuuid_prefix) + partuuid);
    if (partuuid.empty() && !signature.empty())
        names.push_back("MBR signature " + signature);
    return printable(typed) + (of_file ? " is on " : " is ") + join(names, ", ") + '.';
}

json chosen_disk::members() const
{
    const auto or_null = [](const std::string &text) { return text.empty() ? json(nullptr) : json(text); };
    return {{"disk", name},
            {"kernel_name", kernel_name},
            {"partuuid", or_null(partuuid)},
            {"signature", or_null(signature)}};
}

chosen_disk find_disk(const std::string &text, std::optional<unsigned> part)
{
    require_machine();
    const disk_name wanted = understood(text);
    const std::vector<drive> drives = drives_for(wanted, false);
    if (part)
        return part_of(drives, wanted, text, *part);
    std::vector<chosen_disk> found;
    for (const drive &drive : drives) {
        const bool is_meant = wanted.kind == named_by::name && is_drive(drive, wanted.value);
        if (const auto member = is_meant ? member_for_firmware(text, drive) : std::nullopt)
            return with_wanted_file(find_disk(*member), wanted);
        if (is_meant)
            refuse_without_table(text, drive);
        if (is_meant)
            throw failure(in_quotes(text) + " is the whole disk " + both_names(drive.name, drive.kernel_name),
                          lies_on(wanted) + "One of its slices or partitions is needed. " + disks_advice);
        for (const volume &volume : drive.volumes) {
            const chosen_disk next = chosen(drive, volume);
            if (is_named(volume, next, wanted))
                found.push_back(next);
        }
    }
    if (found.empty())
        refuse_name(drives, wanted, text);
    if (found.size() > 1)
        throw failure(in_quotes(text) + " names more than one disk", "They are " + found[0].both_names() +
                                                                         " and " + found[1].both_names() +
                                                                         ". " + disks_advice);
    return with_wanted_file(std::move(found.front()), wanted);
}

std::vector<drive> find_drives(const std::string &text)
{
    require_machine();
    const disk_name wanted = understood(text);
    std::vector<drive> drives = drives_for(wanted, true);
    std::vector<drive> found;
    for (const drive &drive : drives) {
        const bool has_it =
            std::any_of(drive.volumes.begin(), drive.volumes.end(), [&](const volume &volume) {
                return is_named(volume, chosen(drive, volume), wanted);
            });
        if (has_it || (wanted.kind == named_by::name && is_drive(drive, wanted.value)))
            found.push_back(drive);
    }
    if (found.empty())
        refuse_name(drives, wanted, text);
    return found;
}

std::vector<chosen_disk> twins_of(const chosen_disk &disk)
{
    std::vector<chosen_disk> twins;
    for (const drive &drive : read_drives({.media = of_every_drive})) {
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

// SPDX-License-Identifier: MIT
#include "tools/ovra/drives.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unistd.h>

#include "platform/include/kvlist.h"
#include "platform/include/volset.h"
#include "src/base/device_name.h"
#include "src/base/hard_drive.h"
#include "src/base/words.h"
#include "tools/ovra/failure.h"

namespace tool {

namespace {

struct releasing {
    void operator()(vs_descriptor_t *all) const { vs_free_descriptors(all); }
    void operator()(kvlist_t *list) const { kvlist_free(list); }
    void operator()(char *text) const { free(text); }
};
using descriptors = std::unique_ptr<vs_descriptor_t, releasing>;
using attribute_list = std::unique_ptr<kvlist_t, releasing>;

attribute_list attribute_list_of(vs_descriptor_t of)
{
    int error = 0;
    attribute_list list(vs_get_attributes(of, &error));
    if (!list)
        throw failure(std::string("cannot read a disk: ") + strerror(error));
    return list;
}

std::string name_of(vs_descriptor_t of)
{
    int error = 0;
    const std::unique_ptr<char, releasing> name(vs_get_name(of, &error));
    if (!name)
        throw failure(std::string("cannot read the name of a disk: ") + strerror(error));
    std::string_view text = name.get();
    return std::string(text.substr(text.rfind('/') + 1)); // without its folder, if it has one
}

bytes array_of(kvlist_t *list, const char *name)
{
    uint8_t *array = nullptr;
    unsigned count = 0;
    if (kvlist_lookup_uint8_array(list, name, &array, &count) != 0 || !array)
        return {};
    return {array, array + count};
}

std::string text_of(kvlist_t *list, const char *name)
{
    const bytes array = array_of(list, name);
    const auto *text = reinterpret_cast<const char *>(array.data());
    return array.empty() ? std::string() : std::string(text, strnlen(text, array.size()));
}

uint64_t number_of(kvlist_t *list, const char *name)
{
    uint64_t wide = 0;
    uint32_t narrow = 0;
    if (kvlist_lookup_uint64(list, name, &wide) == 0)
        return wide;
    return kvlist_lookup_uint32(list, name, &narrow) == 0 ? narrow : 0;
}

// Linux puts a "p" between a name that ends in a digit and the number: "nvme0n1p1".
std::string linux_name(const std::string &kernel_name, unsigned number)
{
    if (kernel_name.empty() || number == 0)
        return kernel_name;
    const bool digit = isdigit(static_cast<unsigned char>(kernel_name.back())) != 0;
    return kernel_name + (digit ? "p" : "") + std::to_string(number);
}

void read_volumes(vs_descriptor_t medium, vs_kind_t kind, drive *of)
{
    int error = 0;
    const descriptors found(vs_get_associated_descriptors(medium, kind, &error));
    for (const vs_descriptor_t *at = found.get(); at && *at; ++at) {
        const attribute_list list = attribute_list_of(*at);
        volume next;
        next.name = name_of(*at);
        next.is_slice = kind == VS_SLICE;
        const size_t digits = next.name.find_last_not_of("0123456789") + 1;
        std::from_chars(next.name.data() + digits, next.name.data() + next.name.size(), next.number);
        next.kernel_name = linux_name(of->kernel_name, next.is_slice ? next.number + 1 : next.number);
        next.start = number_of(list.get(), next.is_slice ? "start" : "relsect");
        next.size = number_of(list.get(), next.is_slice ? "size" : "nsectors");
        next.guid = array_of(list.get(), "uguid");
        of->volumes.push_back(std::move(next));
    }
}

void read_medium(vs_descriptor_t of, drive *drive)
{
    int error = 0;
    const descriptors media(vs_get_associated_descriptors(of, VS_MEDIA, &error));
    if (!media || !media.get()[0]) {
        drive->error = error;
        return;
    }
    const vs_descriptor_t medium = media.get()[0];
    const attribute_list list = attribute_list_of(medium);
    drive->has_medium = true;
    uint32_t signature = 0;
    if (kvlist_lookup_uint32(list.get(), "volserno", &signature) == 0)
        drive->signature = signature;
    read_volumes(medium, VS_SLICE, drive);
    read_volumes(medium, VS_PARTITION, drive);
}

drive read_drive(vs_descriptor_t of)
{
    const attribute_list list = attribute_list_of(of);
    drive next;
    next.name = name_of(of);
    next.kernel_name = text_of(list.get(), "kernel-name");
    next.path = text_of(list.get(), "devfs-path");
    next.block_size = static_cast<uint32_t>(number_of(list.get(), "blocksize"));
    next.blocks = number_of(list.get(), "nblocks");
    return next;
}

// Reads every drive, and the media of those for which `wanted` says so.
template <typename predicate>
std::vector<drive> read_all(predicate wanted)
{
    int error = 0;
    const descriptors found(vs_get_descriptors(VS_DRIVE, nullptr, &error));
    if (!found)
        throw failure(std::string("cannot read the disks: ") + strerror(error));
    std::vector<drive> drives;
    for (const vs_descriptor_t *at = found.get(); *at; ++at) {
        drives.push_back(read_drive(*at));
        if (wanted(drives.back()))
            read_medium(*at, &drives.back());
    }
    return drives;
}

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
    if (!volume.is_slice && volume.number != 0 && drive.signature)
        disk.partuuid = disk.signature + format("-%02x", volume.number);
    return disk;
}

} // namespace

const char *drive::medium() const
{
    if (!has_medium)
        return "none";
    return ovra::by_value(ovra::partition_formats, signature ? ovra::format_mbr : ovra::format_gpt)->text;
}

std::vector<drive> read_drives(bool media)
{
    return read_all([media](const drive &) { return media; });
}

bytes hard_drive_node(const drive &drive, const volume &volume)
{
    const ovra::extent where = {volume.start, volume.size};
    const uefi_hard_drive_path_t node =
        volume.is_slice ? ovra::slice_node(volume.number, where, volume.guid)
                        : ovra::partition_node(volume.number, where, drive.signature.value_or(0));
    const byte_view stored = ovra::bytes_of(node);
    return {stored.begin(), stored.end()};
}

byte_view first_hard_drive(byte_view path)
{
    for (ovra::cursor nodes{path}; const auto *node = nodes.next();) {
        if (ovra::is_kind<uefi_hard_drive_path_t>(node))
            return ovra::node_bytes(node);
    }
    return {};
}

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
    const std::string advice = "'ovra disks' shows the disks with their names.";
    const bool by_link = text.starts_with(partuuid_folder);
    const bool by_uuid = by_link || has_partuuid_prefix(text);
    const std::string wanted = by_link   ? std::string(partuuid_prefix) + text.substr(partuuid_folder.size())
                               : by_uuid ? text
                                         : without_folder(text);
    // Only drives of which the name can be a partition are looked into.
    const std::vector<drive> drives = read_all([&](const drive &drive) {
        return by_uuid || begins_with_name(wanted, drive.name) || begins_with_name(wanted, drive.kernel_name);
    });
    std::vector<chosen_disk> found;
    for (const drive &drive : drives) {
        if (drive.kernel_name == wanted || drive.name == wanted)
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
        require_sysfs();
    throw failure("no disk is named " + in_quotes(text), advice);
}

void require_sysfs()
{
    const char *root = secure_getenv("HWPLAT_ROOT");
    const std::string folder = root ? root : "";
    if (access((folder + "/sys/devices").c_str(), F_OK) == 0)
        return;
    const std::string why = strerror(errno);
    if (errno != ENOENT && errno != ENOTDIR)
        throw failure("cannot look into " + folder + "/sys/devices: " + why);
    if (folder.empty() || folder == "/")
        throw failure("/sys is not mounted", "Disks and devices are seen there: mount -t sysfs sysfs /sys");
    throw failure("there is no sys/devices in " + folder,
                  "The devices of a machine's folder are seen there.");
}

std::string guid_text(byte_view guid)
{
    const auto read = ovra::guid_of(guid);
    return read ? guid_text(*read) : std::string();
}

std::string size_text(uint64_t count)
{
    static constexpr const char *units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    auto value = static_cast<double>(count);
    size_t unit = 0;
    while (value >= 1024 && unit + 1 < std::size(units)) {
        value /= 1024;
        ++unit;
    }
    return format("%.*f %s", unit == 0 ? 0 : 1, value, units[unit]);
}

} // namespace tool

// SPDX-License-Identifier: MIT
#include "tools/machine/drives.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/include/kvlist.h"
#include "platform/include/volset.h"
#include "src/base/hard_drive.h"
#include "src/base/whole_number.h"
#include "src/base/words.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

struct releasing {
    void operator()(vs_descriptor_t *all) const { vs_free_descriptors(all); }
    void operator()(kvlist_t *list) const { kvlist_free(list); }
    void operator()(char *text) const { free(text); }
};
using descriptors = std::unique_ptr<vs_descriptor_t, releasing>;
using attribute_list = std::unique_ptr<kvlist_t, releasing>;

[[noreturn]] void refuse_to_read(int error)
{
    throw failure(std::string("cannot read a disk: ") + strerror(error));
}

attribute_list attribute_list_of(vs_descriptor_t of)
{
    int error = 0;
    attribute_list list(vs_get_attributes(of, &error));
    if (!list)
        refuse_to_read(error);
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
    if (kernel_name.starts_with("dm-"))
        return {}; // partitions are devices of their own, if at all
    const bool digit = isdigit(static_cast<unsigned char>(kernel_name.back())) != 0;
    return kernel_name + (digit ? "p" : "") + std::to_string(number);
}

void read_file_system(vs_descriptor_t of, volume *volume)
{
    int error = 0;
    const attribute_list list(vs_get_file_system(of, &error));
    if (error == ENOMEM)
        throw std::bad_alloc();
    volume->error = error;
    if (!list)
        return;
    volume->fs_uuid = text_of(list.get(), "uuid");
    volume->fs_label = text_of(list.get(), "label");
}

void read_volumes(vs_descriptor_t medium, vs_kind_t kind, bool reads_file_systems, drive *of)
{
    int error = 0;
    const descriptors found(vs_get_associated_descriptors(medium, kind, &error));
    if (!found)
        refuse_to_read(error);
    for (const vs_descriptor_t *at = found.get(); *at; ++at) {
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
        next.label = text_of(list.get(), "partlabel");
        next.attributes = number_of(list.get(), "attributes");
        // What a whole disk held before it was partitioned may still stand at its start.
        if (reads_file_systems && (next.is_slice || next.number != 0 || found.get()[1] == 0))
            read_file_system(*at, &next);
        of->volumes.push_back(std::move(next));
    }
}

void read_medium(vs_descriptor_t of, bool reads_file_systems, drive *drive)
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
    read_volumes(medium, VS_SLICE, reads_file_systems, drive);
    read_volumes(medium, VS_PARTITION, reads_file_systems, drive);
}

attachment read_attachment(vs_descriptor_t of)
{
    int error = 0;
    const attribute_list known(vs_get_attachment(of, &error));
    if (!known)
        refuse_to_read(error);
    kvlist_t *const list = known.get();
    attachment read;
    read.transport = text_of(list, "transport");
    read.place_unknown = text_of(list, "place-unknown");
    for (const char *name : {"port", "multiplier-port", "channel", "target", "lun", "sas-address",
                             "namespace", "interface", "slot"}) {
        uint64_t value = 0;
        if (kvlist_lookup_uint64(list, name, &value) == 0)
            read.place[name] = value;
    }
    read.eui64 = array_of(list, "eui64");
    read.usb_ports = array_of(list, "usb-ports");
    read.is_removable = number_of(list, "removable") != 0;
    return read;
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

} // namespace

const char *drive::medium() const
{
    if (!has_medium)
        return "none";
    return ovra::by_value(ovra::partition_formats, signature ? ovra::format_mbr : ovra::format_gpt)->text;
}

bool of_every_drive(const drive &)
{
    return true;
}

std::vector<drive> read_drives(const parts_of_drives &wanted)
{
    if (!has_devices())
        return {};
    int error = 0;
    const descriptors found(vs_get_descriptors(VS_DRIVE, nullptr, &error));
    if (!found)
        throw failure(std::string("cannot read the disks: ") + strerror(error));
    std::vector<drive> drives;
    for (const vs_descriptor_t *at = found.get(); *at; ++at) {
        drive &next = drives.emplace_back(read_drive(*at));
        if (wanted.attachments && wanted.attachments(next))
            next.attached = read_attachment(*at);
        if (wanted.media && wanted.media(next))
            read_medium(*at, wanted.file_systems, &next);
    }
    return drives;
}

drive drive_of(const std::string &volume)
{
    const auto has_it = [&volume](const drive &drive) {
        const size_t size = drive.name.size();
        return volume.starts_with(drive.name) && (volume[size] == 's' || volume[size] == 'p');
    };
    const std::vector<drive> drives = read_drives({.media = has_it, .attachments = has_it});
    if (const auto found = std::find_if(drives.begin(), drives.end(), has_it); found != drives.end())
        return *found;
    throw failure("the disks changed: " + volume + " is gone", "Nothing was written.");
}

std::string both_names(const std::string &name, const std::string &kernel_name)
{
    return name + (kernel_name.empty() ? "" : " (" + printable(kernel_name) + ')');
}

std::string kernel_name_of(const std::vector<drive> &drives, std::string_view volume)
{
    for (const drive &drive : drives) {
        if (volume == drive.name)
            return drive.kernel_name;
        if (!volume.starts_with(drive.name))
            continue;
        const std::string_view rest = volume.substr(drive.name.size());
        const auto number = rest.empty() ? std::nullopt : ovra::whole_number<unsigned>(rest.substr(1));
        if (number && (rest[0] == 's' || rest[0] == 'p'))
            return linux_name(drive.kernel_name, rest[0] == 's' ? *number + 1 : *number);
    }
    return {};
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

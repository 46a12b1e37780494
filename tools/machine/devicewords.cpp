// SPDX-License-Identifier: MIT
#include "tools/machine/devicewords.h"

#include <algorithm>
#include <cstring>

#include "src/base/hard_drive.h"
#include "src/base/nodes.h"
#include "src/base/text.h"
#include "tools/machine/pathnodes.h"
#include "tools/machine/sysfs.h"
#include "tools/text/description.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

// Subtypes of nodes for which the library has no record (UEFI 2.10, 10.3.4 and 10.3.5).
enum messaging_subtype : uint8_t {
    nvme_node = 23,
    uri_node = 24,
    ufs_node = 25,
    sd_node = 26,
    wifi_node = 28,
    emmc_node = 29
};
enum media_subtype : uint8_t { firmware_file_node = 6, firmware_volume_node = 7, ram_disk_node = 9 };

struct kind_in_words {
    uint8_t subtype;
    const char *words;
};

// Messaging devices that hold what is booted.
constexpr kind_in_words boot_devices[] = {
    {1, "ATA device"},    {2, "SCSI device"},         {3, "Fibre Channel device"},
    {5, "USB device"},    {15, "USB device"},         {16, "USB device"},
    {18, "SATA device"},  {19, "iSCSI device"},       {21, "Fibre Channel device"},
    {22, "SAS device"},   {nvme_node, "NVMe device"}, {ufs_node, "UFS device"},
    {sd_node, "SD card"}, {emmc_node, "eMMC device"}};

// What a BIOS boots from (UEFI 2.10, 10.3.6).
constexpr kind_in_words legacy_devices[] = {{1, "legacy floppy disk"}, {2, "legacy hard disk"},
                                            {3, "legacy CD-ROM"},      {4, "legacy PC card"},
                                            {5, "legacy USB device"},  {6, "legacy network"}};

template <size_t size>
const char *words_of(const kind_in_words (&kinds)[size], unsigned subtype)
{
    const auto *found =
        std::find_if(std::begin(kinds), std::end(kinds),
                     [subtype](const kind_in_words &each) { return each.subtype == subtype; });
    return found == std::end(kinds) ? nullptr : found->words;
}

} // namespace

// What an instance of a path consists of, as far as words are made of it.
struct path_parts {
    const uefi_macaddr_device_path_t *card = nullptr;
    const uefi_device_path_t *address = nullptr; // IPv4 or IPv6
    const uefi_device_path_t *uri = nullptr;
    const uefi_device_path_t *bios = nullptr;
    const char *device = nullptr; // the last of `boot_devices`
    const char *media = nullptr;
    bool is_wireless = false;
    std::string file;

    explicit path_parts(byte_view nodes)
    {
        for (ovra::cursor rest{nodes}; const auto *node = rest.next();) {
            if (node->type == UEFI_MESSAGING)
                take_messaging(node);
            else if (node->type == UEFI_MEDIA)
                take_media(node);
            else if (node->type == UEFI_BIOS)
                bios = node;
        }
    }

    bool is_network() const { return card || uri || is_wireless; }

private:
    void take_messaging(const uefi_device_path_t *node)
    {
        if (ovra::is_kind<uefi_macaddr_device_path_t>(node))
            card = ovra::as<uefi_macaddr_device_path_t>(node);
        else if (ovra::is_kind<uefi_ipv4_device_path_t>(node) || ovra::is_kind<uefi_ipv6_device_path_t>(node))
            address = node;
        else if (node->subtype == uri_node)
            uri = node;
        else if (node->subtype == wifi_node)
            is_wireless = true;
        else if (const char *words = words_of(boot_devices, node->subtype))
            device = words;
    }

    void take_media(const uefi_device_path_t *node)
    {
        if (ovra::is_kind<uefi_cdrom_path_t>(node))
            media = "CD-ROM";
        else if (node->subtype == firmware_volume_node || node->subtype == firmware_file_node)
            media = "firmware volume";
        else if (node->subtype == ram_disk_node)
            media = "RAM disk";
        else if (const auto *named = ovra::as<uefi_file_path_t>(node))
            add_file(ovra::tail(*named));
    }

    // A file's name may stand in several nodes.
    void add_file(byte_view units)
    {
        std::string name;
        if (!assign_utf8(units, &name))
            name = description_of_units(units);
        if (!file.empty() && !file.ends_with('\\') && !name.starts_with('\\'))
            file += '\\';
        file = file.empty() ? std::move(name) : file + name;
    }
};

namespace {

std::string network_words(const path_parts &path)
{
    std::string words = path.is_wireless ? "wireless network" : "network";
    if (path.card) {
        constexpr size_t ethernet_size = 6;
        words += " MAC ";
        for (size_t at = 0; at < ethernet_size; ++at)
            words += format(at == 0 ? "%02x" : ":%02x", path.card->mac_addr[at]);
    }
    if (path.address)
        words += ovra::is_kind<uefi_ipv6_device_path_t>(path.address) ? " IPv6" : " IPv4";
    if (path.uri && path.uri->len > sizeof *path.uri) {
        const byte_view text = ovra::node_bytes(path.uri).subspan(sizeof *path.uri);
        words += ' ' + std::string(text.begin(), text.end());
    }
    return words;
}

std::string legacy_words(const uefi_device_path_t *node)
{
    const auto *device = ovra::as<uefi_bbs_path_t>(node);
    const char *words = device ? words_of(legacy_devices, device->device_type) : nullptr;
    return words ? words : "legacy device";
}

bool is_end(byte_view path)
{
    const auto *node = ovra::cursor{path}.next();
    return path.empty() || (node && node->type == UEFI_END);
}

// As "PARTUUID=" in the kernel's command line names it; empty for one that has no such name.
std::string partuuid_of(const uefi_hard_drive_path_t &node)
{
    if (node.sig_type == ovra::signature_guid)
        return guid_text(byte_view(node.part_sig));
    if (node.sig_type == ovra::signature_mbr && node.part_number != 0)
        return format("%08x-%02x", ovra::mbr_signature(node), node.part_number);
    return {};
}

} // namespace

device_words::device_words(const std::vector<drive> &all)
{
    for (const drive &drive : all) {
        drives.emplace(drive.name, drive.kernel_name.empty() ? drive.name : drive.kernel_name);
        for (const volume &volume : drive.volumes) {
            volumes[identity_of(hard_drive_node(drive, volume))].push_back(
                {drive.name, volume.kernel_name.empty() ? volume.name : volume.kernel_name});
        }
    }
}

// Links that are there for anybody to read, on most machines, while disks are not.
std::optional<std::string> device_words::name_by_udev(const std::string &partuuid)
{
    constexpr const char *folder = "/dev/disk/by-partuuid";
    try {
        if (!files) {
            files.emplace();
            for (const std::string &link : has_devices() ? files->names(folder) : std::vector<std::string>())
                links.emplace(link, "");
        }
        const auto found = links.find(partuuid);
        if (found == links.end())
            return std::nullopt;
        if (found->second.empty())
            found->second = files->link_name(std::string(folder) + '/' + partuuid).value_or("");
        return found->second.empty() ? std::nullopt : std::optional(found->second);
    } catch (const failure &) {
        return std::nullopt; // the path still says which it is
    }
}

// Words are worth having without it.
drives_by_hardware::way device_words::way_of(byte_view nodes)
{
    if (drives.empty() || !is_hardware_known)
        return {};
    try {
        if (!hardware)
            hardware.emplace(read_drives({.attachments = of_every_drive}));
        return hardware->way_of(nodes);
    } catch (const failure &) {
        is_hardware_known = false;
        return {};
    }
}

std::string device_words::of_volume(const hard_drive_place &place)
{
    std::vector<std::string> names;
    const auto found = volumes.empty() ? volumes.end() : volumes.find(identity_of(place.node));
    if (found != volumes.end()) {
        const auto way = place.before.empty() ? drives_by_hardware::way() : way_of(place.before);
        for (const named_volume &each : found->second) {
            if (way.drives.empty() ||
                std::find(way.drives.begin(), way.drives.end(), each.drive) != way.drives.end())
                names.push_back(each.kernel_name);
        }
    }
    if (!names.empty())
        return join(names, " or ");
    const auto *node = ovra::as<uefi_hard_drive_path_t>(place.node);
    const std::string partuuid = node ? partuuid_of(*node) : std::string();
    if (partuuid.empty())
        return "a partition";
    return name_by_udev(partuuid).value_or("PARTUUID=" + partuuid);
}

// The drive to which the nodes lead; or as what they say of it. Empty when they say nothing.
std::string device_words::of_drive(byte_view nodes, const char *otherwise)
{
    std::vector<std::string> names;
    if (!nodes.empty() && nodes[0] == UEFI_ACPI) {
        for (const std::string &name : way_of(nodes).drives)
            names.push_back(drives.contains(name) ? drives.at(name) : name);
    }
    return !names.empty() ? join(names, " or ") : otherwise ? otherwise : "";
}

std::string device_words::text_of(byte_view nodes)
{
    if (!paths)
        paths.emplace();
    const decoded_path path = paths->decode(with_end(nodes));
    return path.error.empty() ? path.instances.front().device : "damaged path";
}

void device_words::put_volume(const hard_drive_place &place, std::string *words)
{
    // The node stands right behind what stands before it.
    const byte_view both(place.before.empty() ? place.node.data() : place.before.data(),
                         place.before.size() + place.node.size());
    if (!std::equal(both.begin(), both.end(), last_volume.begin(), last_volume.end())) {
        last_words = of_volume(place);
        last_volume.assign(both.begin(), both.end());
    }
    *words += last_words;
}

void device_words::put_device(byte_view nodes, const path_parts &path, std::string *words)
{
    if (const hard_drive_place place = hard_drive_in(nodes); !place.node.empty())
        put_volume(place, words);
    else if (path.media)
        *words += path.media;
    else if (path.is_network())
        *words += network_words(path);
    else if (path.bios)
        *words += legacy_words(path.bios);
    else
        *words += of_drive(nodes, path.device);
}

void device_words::put(byte_view option_path, std::string *words)
{
    const byte_view nodes = first_instance_of(option_path);
    const path_parts path(nodes);
    words->clear();
    put_device(nodes, path, words);
    if (words->empty() && path.file.empty())
        *words = !nodes.empty() ? text_of(nodes) : is_end(option_path) ? "none" : "damaged path";
    if (!path.file.empty())
        words->append(words->empty() ? "" : " ").append(path.file);
    ovra::cursor rest{option_path.subspan(nodes.size())};
    if (const auto *further = rest.next() ? rest.next() : nullptr; further && further->type != UEFI_END)
        *words += " and others";
}

} // namespace tool

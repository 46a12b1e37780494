// SPDX-License-Identifier: MIT
#include "platform/machine/attachment.h"

#include <algorithm>
#include <array>
#include <optional>

#include "platform/machine/debug.h"

namespace machine {

namespace {

constexpr unsigned most_ports = 32; // of a SATA controller
constexpr unsigned most_multiplier_ports = 16;

constexpr unsigned ide_subclass = 0x01;
constexpr unsigned ata_subclass = 0x05;

struct scsi_address {
    unsigned host = 0;
    unsigned channel = 0;
    unsigned target = 0;
    unsigned lun = 0;
};

// "6:0:1:2"
std::optional<scsi_address> parse_scsi_address(std::string_view name)
{
    const auto parts = split(name, ':');
    std::array<unsigned, 4> numbers = {};
    if (parts.size() != numbers.size())
        return std::nullopt;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const auto number = parse_number(parts[i], 10);
        if (!number || *number > UINT32_MAX)
            return std::nullopt;
        numbers[i] = static_cast<unsigned>(*number);
    }
    return scsi_address{numbers[0], numbers[1], numbers[2], numbers[3]};
}

// Linux has the first two bytes of a unit's number as they are sent. Those with 01 in the highest bits are in
// the flat space (SAM-5 4.7.7.3); firmware goes by the number alone.
constexpr unsigned flat_space = 0x4000;
constexpr unsigned unit_of(unsigned lun)
{
    return (lun & 0xffffc000) == flat_space ? lun & ~flat_space : lun;
}
static_assert(unit_of(255) == 255 && unit_of(0x4100) == 256 && unit_of(0x8100) == 0x8100 &&
              unit_of(0xc101) == 0xc101);

using path_components = std::span<const std::string_view>;

// The component that a disk hangs on, before "block"; empty without one.
std::string_view unit_above(path_components below)
{
    const auto block = std::ranges::find(below, "block");
    return block == below.begin() || block == below.end() ? std::string_view() : *(block - 1);
}

path_components::iterator ata_port(path_components below)
{
    return std::ranges::find_if(below, [](std::string_view name) { return is_numbered(name, "ata"); });
}

// The folder with the attributes of an ATA port.
std::string ata_attributes(const std::string &above, path_components below, path_components::iterator port)
{
    std::string path = above;
    for (auto at = below.begin(); at <= port; ++at)
        path += '/' + std::string(*at);
    return path + "/ata_port/" + std::string(*port);
}

// The controller's own port, from 0. Linux counts from 1 (drivers/ata/libata-transport.c), and the number in
// the port's name counts the ports of all hosts.
std::optional<unsigned> port_number(const sysfs &files, const std::string &attributes)
{
    const auto port = files.number(attributes + "/port_no");
    if (!port || *port == 0) {
        debug("%s: no port number, its disk has no path", attributes.c_str());
        return std::nullopt;
    }
    if (*port > most_ports) {
        debug("%s: beyond port %u, its disk has no path", attributes.c_str(), most_ports);
        return std::nullopt;
    }
    return static_cast<unsigned>(*port - 1);
}

attachment place_on_ata(const sysfs &files, unsigned class_code, const std::string &attributes,
                        const scsi_address &address)
{
    const auto number = port_number(files, attributes);
    if (!number)
        return without_place;
    const unsigned kind = subclass(class_code);
    if (kind == ide_subclass || kind == ata_subclass) {
        // Another one would have the name of the next channel's first disk.
        if (address.target >= disks_of_a_channel) {
            debug("%s: drive %u of a channel has no path", attributes.c_str(), address.target);
            return without_place;
        }
        return {place_kind::ide, *number, address.target, 0};
    }
    if (files.number(attributes + "/nr_pmp_links").value_or(0) == 0)
        return {place_kind::sata, 0, *number, 0};
    // With a port multiplier the channel is the multiplier's port: bit 8, and the number from bit 5 on.
    if (address.channel >= most_multiplier_ports) {
        debug("%s: the disk of port %u of a port multiplier has no path", attributes.c_str(),
              address.channel);
        return without_place;
    }
    return {place_kind::sata, 0, 0x100 | address.channel << 5 | *number, 0};
}

// The address of a disk's unit, if a path has room for it.
std::optional<scsi_address> usable_address(const std::string &above, std::string_view unit)
{
    auto address = parse_scsi_address(unit);
    if (address)
        address->lun = unit_of(address->lun);
    if (!address || address->target > largest_identifier || address->lun > largest_identifier) {
        debug("%s: %.*s has no place in a path", above.c_str(), static_cast<int>(unit.size()), unit.data());
        return std::nullopt;
    }
    return address;
}

// The number in "mmcblk0", "dm-3" or "md127"; nothing for "mmcblk0gp0".
std::optional<unsigned> number_in(std::string_view kernel_name)
{
    const std::size_t digits = kernel_name.find_first_of("0123456789");
    if (digits == std::string_view::npos)
        return std::nullopt;
    const auto number = parse_number(kernel_name.substr(digits), 10);
    return number && *number <= largest_identifier ? std::optional(static_cast<unsigned>(*number))
                                                   : std::nullopt;
}

} // namespace

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        if (end != 0)
            parts.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

bool is_scsi_address(std::string_view component)
{
    return parse_scsi_address(component).has_value();
}

attachment place_on_function(const sysfs &files, unsigned class_code, const std::string &above,
                             std::span<const std::string_view> below)
{
    const bool usb =
        std::ranges::any_of(below, [](std::string_view name) { return is_numbered(name, "usb"); });
    const std::string_view unit = unit_above(below);
    if (usb || unit.empty())
        return {};
    const auto port = ata_port(below);
    // A virtio-blk disk is on a function of the same class, but on a host without targets.
    if (port == below.end() &&
        (base_class(class_code) != mass_storage || unit.find(':') == std::string_view::npos))
        return {};
    const auto address = usable_address(above, unit);
    if (!address)
        return without_place;
    if (port != below.end())
        return place_on_ata(files, class_code, ata_attributes(above, below, port), *address);
    return {place_kind::scsi, 0, address->target, address->lun};
}

attachment place_on_bus(const sysfs &files, const bus &on, std::string_view kernel_name,
                        const std::string &above, std::span<const std::string_view> below)
{
    if (on.by == addressing::number) {
        const auto number = number_in(kernel_name);
        return number ? attachment{place_kind::numbered, 0, *number, 0} : without_place;
    }
    const std::string_view unit = unit_above(below);
    if (on.by == addressing::counting || !is_scsi_address(unit))
        return {};
    const auto address = usable_address(above, unit);
    if (!address)
        return without_place;
    const auto port = ata_port(below);
    if (port == below.end())
        return {place_kind::scsi, 0, address->target, address->lun};
    const auto number = port_number(files, ata_attributes(above, below, port));
    return number ? attachment{place_kind::scsi, 0, *number, 0} : without_place;
}

} // namespace machine

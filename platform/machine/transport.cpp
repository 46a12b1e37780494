// SPDX-License-Identifier: MIT
#include "platform/machine/transport.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "platform/machine/attachment.h"
#include "platform/machine/buses.h"

namespace machine {

namespace {

using components = std::vector<std::string_view>;

// PCI class codes (include/linux/pci_ids.h): base class and subclass; of USB also the programming interface.
constexpr std::uint64_t ide_controller = 0x0101;
constexpr std::uint64_t ata_controller = 0x0105;
constexpr std::uint64_t ufs_controller = 0x0109;
constexpr std::uint64_t xhci_controller = 0x0c0330;

constexpr std::uint64_t channels_of_ide = 2;
constexpr std::size_t most_usb_ports = 7; // a root port and six hubs: tiers 2 to 7 of USB 2.0, 4.1.1
constexpr std::size_t size_of_eui64 = 8;

// "0000:00:1f.2"
bool is_function(std::string_view name)
{
    constexpr std::size_t after_domain = 8; // ":00:1f.2"
    if (name.size() <= after_domain)
        return false;
    const std::string_view tail = name.substr(name.size() - after_domain);
    return tail[0] == ':' && tail[3] == ':' && tail[6] == '.';
}

// Pairs of hexadecimal digits, with or without blanks between them, of exactly an EUI-64.
std::vector<std::uint8_t> parse_eui64(std::string text)
{
    std::erase(text, ' ');
    std::vector<std::uint8_t> bytes;
    if (text.size() != 2 * size_of_eui64)
        return {};
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const auto byte = parse_number(std::string_view(text).substr(at, 2), 16);
        if (!byte)
            return {};
        bytes.push_back(static_cast<std::uint8_t>(*byte));
    }
    return bytes;
}

class reader {
public:
    reader(const sysfs &machine_files, const std::string &disk_path)
        : files(machine_files), disk(disk_path), parts(split(disk, '/'))
    {
        const auto last = std::find_if(parts.rbegin(), parts.rend(), is_function);
        if (last != parts.rend()) {
            function = up_to(&*last);
            class_code = files.number(function + "/class").value_or(0);
        }
    }

    transport read()
    {
        locate();
        if (!found.unknown.empty()) {
            found.numbers.clear();
            found.usb_ports.clear();
        }
        if (files.number(disk + "/removable").value_or(0) != 0)
            found.numbers["removable"] = 1;
        return std::move(found);
    }

private:
    void locate()
    {
        const auto block = std::find(parts.begin(), parts.end(), "block");
        const std::string_view unit = block == parts.begin() || block == parts.end() ? "" : *(block - 1);
        if (parts.back().starts_with("nvme"))
            locate_nvme();
        else if (const auto *bus = component("usb"))
            locate_usb(bus, unit);
        else if (std::find(parts.begin(), parts.end(), "mmc_host") != parts.end())
            locate_card();
        else if (is_numbered(unit, "virtio"))
            found.kind = "virtio-blk";
        else if (const auto address = split(unit, ':'); address.size() == 4)
            locate_scsi(address, up_to(&*(block - 1)));
        else
            found.unknown = "how it is attached to its controller is not known";
    }

    // The path up to a component.
    [[nodiscard]] std::string up_to(const std::string_view *part) const
    {
        return disk.substr(0, static_cast<std::size_t>(part->data() + part->size() - disk.data()));
    }

    // The first component that is this name and a number; null without one.
    [[nodiscard]] const std::string_view *component(std::string_view stem) const
    {
        const auto at = std::find_if(parts.begin(), parts.end(),
                                     [stem](std::string_view name) { return is_numbered(name, stem); });
        return at == parts.end() ? nullptr : &*at;
    }

    // The last component that begins with this; null without one.
    [[nodiscard]] const std::string_view *last_with_prefix(std::string_view prefix) const
    {
        const auto at = std::find_if(parts.rbegin(), parts.rend(),
                                     [prefix](std::string_view name) { return name.starts_with(prefix); });
        return at == parts.rend() ? nullptr : &*at;
    }

    void locate_nvme()
    {
        found.kind = "nvme";
        const auto number = files.number(disk + "/nsid");
        if (!number) {
            found.unknown = "sysfs does not tell the number of its namespace";
            return;
        }
        found.numbers["namespace"] = *number;
        found.eui64 = parse_eui64(files.text(disk + "/eui").value_or(""));
        constexpr std::string_view prefix = "eui.";
        // A longer one is the NGUID, which a path has no room for (drivers/nvme/host/core.c).
        if (const auto wwid = files.text(disk + "/wwid");
            found.eui64.empty() && wwid && wwid->starts_with(prefix))
            found.eui64 = parse_eui64(wwid->substr(prefix.size()));
    }

    // "usb1/1-2/1-2.4/1-2.4:1.0/host6/target6:0:0/6:0:0:0"
    void locate_usb(const std::string_view *bus, std::string_view unit)
    {
        found.kind = "usb";
        const auto interface = std::find_if(parts.rbegin(), parts.rend(), [](std::string_view name) {
            return name.find('-') < name.find(':') && name.find(':') < name.find('.', name.find(':'));
        });
        if (interface == parts.rend()) {
            found.unknown = "sysfs does not tell its USB interface";
            return;
        }
        const std::string_view name = *interface;
        const std::size_t colon = name.find(':');
        const components ports = split(name.substr(name.find('-') + 1, colon - name.find('-') - 1), '.');
        const auto number = parse_number(name.substr(name.rfind('.') + 1), 10);
        for (const std::string_view port : ports) {
            const auto value = parse_number(port, 10);
            if (!value || *value == 0 || *value > UINT8_MAX || found.usb_ports.size() == most_usb_ports)
                break;
            found.usb_ports.push_back(static_cast<std::uint8_t>(*value - 1));
        }
        if (found.usb_ports.size() != ports.size() || ports.empty() || !number || *number > UINT8_MAX) {
            found.unknown = "sysfs does not tell its USB port";
            return;
        }
        found.numbers["interface"] = *number;
        locate_root_port(up_to(bus), *bus);
        locate_unit_on_usb(unit);
    }

    // Firmware counts the ports of an xHCI controller over both its root hubs, Linux those of each.
    void locate_root_port(const std::string &hub, std::string_view bus)
    {
        if (class_code != xhci_controller)
            return;
        const std::string number(bus.substr(bus.find_first_of("0123456789")));
        const unsigned port = found.usb_ports.front() + 1U;
        // ACPI knows the controller's own numbers, which are those of firmware (drivers/usb/core/usb-acpi.c).
        const auto described = files.link(hub + "/" + number + "-0:1.0/" + std::string(bus) + "-port" +
                                          std::to_string(port) + "/firmware_node");
        std::optional<std::uint64_t> own = described ? files.number(*described + "/adr") : std::nullopt;
        if (!own || *own == 0)
            own = undescribed_root_port(hub, port);
        if (!own || *own == 0 || *own > UINT8_MAX)
            found.unknown = "sysfs does not tell which port of the USB controller leads to it";
        else
            found.usb_ports.front() = static_cast<std::uint8_t>(*own - 1);
    }

    // The port in the numbers of the controller, where ACPI does not describe it.
    [[nodiscard]] std::optional<std::uint64_t> undescribed_root_port(const std::string &hub,
                                                                     unsigned port) const
    {
        constexpr std::uint64_t superspeed = 5000; // Mbit/s
        const auto is_fast = [&](const std::string &of) {
            return files.number(of + "/speed").value_or(0) >= superspeed;
        };
        std::optional<std::string> other;
        for (const std::string &name : files.names(function)) {
            if (is_numbered(name, "usb") && function + "/" + name != hub)
                other = function + "/" + name;
        }
        if (!other)
            return port;
        // The emulated controller of QEMU begins with the ports of USB 3. Others begin with either.
        constexpr std::uint64_t emulated_vendor = 0x1b36;
        constexpr std::uint64_t emulated_device = 0x000d;
        if (files.number(function + "/vendor") != emulated_vendor ||
            files.number(function + "/device") != emulated_device)
            return std::nullopt;
        if (is_fast(hub))
            return port;
        const auto before = files.number(*other + "/maxchild");
        return before ? std::optional(port + *before) : std::nullopt;
    }

    // Firmware tells the units of a device apart when it has more than one, as card readers have.
    void locate_unit_on_usb(std::string_view unit)
    {
        const components address = split(unit, ':');
        const std::string_view *target = last_with_prefix("target");
        if (address.size() != 4 || target == nullptr)
            return;
        const std::string_view stem = unit.substr(0, unit.rfind(':') + 1);
        const std::vector<std::string> units = files.names(up_to(target));
        const auto count = std::count_if(units.begin(), units.end(),
                                         [stem](const std::string &name) { return name.starts_with(stem); });
        const auto number = parse_number(address[3], 10);
        if (number && *number <= UINT8_MAX && (count > 1 || *number != 0))
            found.numbers["lun"] = *number;
    }

    // ".../mmc_host/mmc0/mmc0:0001/block/mmcblk0"
    void locate_card()
    {
        const auto hosts = std::find(parts.begin(), parts.end(), "mmc_host");
        const auto host = hosts + 1;
        const auto card = host == parts.end() ? host : host + 1;
        if (card == parts.end()) {
            found.unknown = "sysfs does not tell which card it is";
            return;
        }
        const auto type = files.text(up_to(&*card) + "/type");
        if (type == "MMC")
            found.kind = "emmc";
        else if (type == "SD")
            found.kind = "sd";
        else
            found.unknown = "sysfs does not tell whether the card is SD or MMC";
        // Linux makes a host of each slot, in their order (drivers/mmc/host/sdhci-pci-core.c).
        std::vector<std::uint64_t> slots;
        for (const std::string &name : files.names(up_to(&*hosts))) {
            if (is_numbered(name, "mmc"))
                slots.push_back(*parse_number(std::string_view(name).substr(3), 10));
        }
        std::sort(slots.begin(), slots.end());
        const auto own = parse_number(host->substr(std::min<std::size_t>(3, host->size())), 10);
        const auto slot = std::find(slots.begin(), slots.end(), own.value_or(UINT64_MAX));
        if (slot == slots.end())
            found.unknown = "sysfs does not tell the slot of the card";
        else
            found.numbers["slot"] = static_cast<std::uint64_t>(slot - slots.begin());
    }

    // A disk with the address host:channel:target:unit, at its place in sysfs.
    void locate_scsi(const components &address, const std::string &place)
    {
        const auto channel = parse_number(address[1], 10);
        const auto target = parse_number(address[2], 10);
        auto unit = parse_number(address[3], 10);
        if (!channel || !target || !unit) {
            found.unknown = "its SCSI address makes no sense";
            return;
        }
        // A unit of the flat space (SAM-5, 4.7): the upper two of 16 bits are its mark.
        if (*unit >= 0x4000 && *unit < 0x8000)
            *unit -= 0x4000;
        found.numbers["lun"] = *unit;
        if (const auto *end = last_with_prefix("end_device-")) {
            locate_sas(place, *end);
        } else if (const auto *port = component("ata")) {
            locate_ata(up_to(port) + "/ata_port/" + std::string(*port), *channel, *target);
        } else if (last_with_prefix("rport-") != nullptr) {
            found.unknown =
                "it is reached over Fibre Channel, whose addresses sysfs tells otherwise than firmware";
        } else if (last_with_prefix("session") != nullptr) {
            found.unknown = "it is reached over iSCSI, and firmware has a session of its own";
        } else {
            const bool ufs = class_code >> 8 == ufs_controller;
            found.kind = ufs ? "ufs" : "scsi";
            if (!ufs)
                found.numbers["channel"] = *channel;
            found.numbers["target"] = *target;
            const std::uint64_t most = ufs ? UINT8_MAX : largest_identifier;
            if (*target > most || *unit > most)
                found.unknown = "a path has no room for its target or unit";
        }
    }

    void locate_sas(const std::string &place, std::string_view end)
    {
        found.kind = "sas";
        auto address = files.number(place + "/sas_address");
        const std::string name(end);
        if (!address)
            address = files.number(up_to(&end) + "/sas_device/" + name + "/sas_address");
        if (address)
            found.numbers["sas-address"] = *address;
        else
            found.unknown = "sysfs does not tell its SAS address";
    }

    void locate_ata(const std::string &attributes, std::uint64_t channel, std::uint64_t target)
    {
        found.numbers.clear();
        const bool ide = class_code >> 8 == ide_controller || class_code >> 8 == ata_controller;
        found.kind = ide ? "ide" : "sata";
        const auto port = files.number(attributes + "/port_no"); // from 1
        if (!port || *port == 0 || *port > largest_identifier) {
            found.unknown = "sysfs does not tell the port of its controller";
            return;
        }
        found.numbers[ide ? "channel" : "port"] = *port - 1;
        if (!ide) {
            if (files.number(attributes + "/nr_pmp_links").value_or(0) != 0)
                found.numbers["multiplier-port"] = channel;
            if (channel >= largest_identifier)
                found.unknown = "a path has no room for its port";
            return;
        }
        found.numbers["target"] = target;
        if (*port > channels_of_ide || target >= disks_of_a_channel)
            found.unknown = "a path has no room for its channel or drive";
    }

    const sysfs &files;
    const std::string &disk;
    components parts;
    std::string function; // the PCI function that carries the disk; empty without one
    std::uint64_t class_code = 0;
    transport found;
};

} // namespace

transport read_transport(const sysfs &files, const std::string &disk)
{
    return reader(files, disk).read();
}

} // namespace machine

// SPDX-License-Identifier: MIT
#include "platform/machine/disks.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <set>
#include <tuple>

#include "platform/machine/debug.h"

namespace machine {

namespace {

constexpr std::size_t most_disks = 16384;
constexpr std::uint32_t smallest_block = 512;
constexpr std::uint32_t largest_block = 65536;

// What a device path has room for (UEFI 10.3.4).
constexpr unsigned largest_identifier = 0xffff; // of a SCSI target or unit
constexpr unsigned most_ports = 32;             // of a SATA controller
constexpr unsigned most_multiplier_ports = 16;
constexpr unsigned disks_of_a_channel = 2; // of an IDE function

// Disks of a transport with targets that are not addressable by a path have target numbers from here on.
constexpr unsigned first_target_without_place = 0x10000;
static_assert(first_target_without_place > largest_identifier);

// PCI class codes (include/linux/pci_ids.h): the base class, or base class and subclass.
constexpr unsigned base_class(unsigned class_code)
{
    return class_code >> 16;
}
constexpr unsigned subclass(unsigned class_code)
{
    return class_code >> 8 & 0xff;
}
constexpr unsigned mass_storage = 0x01;
constexpr unsigned ide_subclass = 0x01;
constexpr unsigned ata_subclass = 0x05;
constexpr unsigned sd_host = 0x0805;
constexpr unsigned firewire_controller = 0x0c00;
constexpr unsigned usb_controller = 0x0c03;
constexpr unsigned fibre_channel = 0x0c04;

// Functions that count as storage controllers whether or not a disk is on them: pulling the only disk of one
// renumbers no other.
bool is_storage_controller(const pci_function &function)
{
    const unsigned kind = function.class_code >> 8;
    return base_class(function.class_code) == mass_storage || kind == sd_host ||
           kind == firewire_controller || kind == usb_controller || kind == fibre_channel;
}

enum class transport {
    sata,
    ide,
    scsi,
    without_place, // one of these, not addressable by a path
    other
};

constexpr bool has_place(transport kind)
{
    return kind != transport::without_place && kind != transport::other;
}

// Where a disk is attached, from the components of its sysfs path below its function.
struct attachment {
    transport kind = transport::other;
    unsigned channel = 0; // of an IDE function
    unsigned target = 0;
    unsigned lun = 0;
};

constexpr attachment without_place = {transport::without_place, 0, 0, 0};

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

bool is_numbered(std::string_view name, std::string_view stem)
{
    return name.starts_with(stem) && parse_number(name.substr(stem.size()), 10).has_value();
}

class disk_finder {
public:
    disk_finder(const sysfs &machine_files, const std::vector<pci_function> &in_tree, device_tree *to)
        : files(machine_files), functions(in_tree), tree(*to)
    {
        for (std::size_t i = 0; i < functions.size(); ++i)
            by_path.emplace(functions[i].path, i);
    }

    void find()
    {
        for (const std::string &name : files.names("sys/block")) {
            if (found.size() == most_disks) {
                debug("sys/block: only the first %zu disks are looked at", most_disks);
                break;
            }
            find_disk(name);
        }
        // Disks with targets of their own come first and take their names; the others get what is left.
        // Kernel names, in the order of their numbers (sda before sdaa), decide where nothing else does.
        const auto order = [](const found_disk &disk) {
            return std::tuple(disk.function, !has_place(disk.where.kind), disk.entry.kernel_name.size(),
                              std::string_view(disk.entry.kernel_name));
        };
        std::sort(found.begin(), found.end(),
                  [&](const found_disk &a, const found_disk &b) { return order(a) < order(b); });
        number_controllers();
        for (found_disk &disk : found)
            place(&disk);
    }

private:
    struct found_disk {
        std::size_t function = 0;
        attachment where;
        disk entry;
    };

    void find_disk(const std::string &name)
    {
        const auto path = files.link("sys/block/" + name);
        if (!path) {
            debug("sys/block/%s: no link to a device", name.c_str());
            return;
        }
        // The nearest function above the disk. A disk without one is virtual, or not on PCI.
        std::string function_path = *path;
        auto carrier = by_path.end();
        while (carrier == by_path.end() && function_path.find('/') != std::string::npos) {
            function_path.resize(function_path.rfind('/'));
            carrier = by_path.find(function_path);
        }
        if (carrier == by_path.end())
            return;
        if (files.number(*path + "/hidden").value_or(0) != 0)
            return;
        // SCSI peripheral device type (include/scsi/scsi_proto.h): 0 is a disk, 5 a CD.
        const auto device = files.link(*path + "/device");
        if (device && files.number(*device + "/type").value_or(0) != 0)
            return;
        if (is_numbered(name, "sr") || is_numbered(name, "fd"))
            return;
        found_disk disk = {carrier->second, {}, {}};
        disk.entry.kernel_name = name;
        disk.entry.place = *path;
        read_size(*path, &disk.entry);
        const pci_function &function = functions[carrier->second];
        disk.where =
            locate(function, split(std::string_view(*path).substr(function_path.size()), '/'), function_path);
        found.push_back(std::move(disk));
    }

    void read_size(const std::string &path, disk *entry) const
    {
        const auto block_size = files.number(path + "/queue/logical_block_size");
        if (block_size && *block_size >= smallest_block && *block_size <= largest_block &&
            (*block_size & (*block_size - 1)) == 0)
            entry->block_size = static_cast<std::uint32_t>(*block_size);
        else
            debug("%s/queue/logical_block_size: not the size of a block, %" PRIu32 " bytes are taken",
                  path.c_str(), entry->block_size);
        const auto units = files.number(path + "/size");
        if (!units)
            debug("%s/size: no size, 0 is taken", path.c_str());
        // The kernel counts in units of 512 bytes, whatever the block size (block/genhd.c).
        entry->blocks = units.value_or(0) / (entry->block_size / 512);
    }

    attachment locate(const pci_function &function, const std::vector<std::string_view> &components,
                      const std::string &function_path) const
    {
        const bool usb = std::any_of(components.begin(), components.end(),
                                     [](std::string_view name) { return is_numbered(name, "usb"); });
        const auto disk_name = std::find(components.begin(), components.end(), "block");
        if (usb || disk_name == components.begin() || disk_name == components.end())
            return {};
        const std::string_view unit = *(disk_name - 1);
        const auto port = std::find_if(components.begin(), components.end(),
                                       [](std::string_view name) { return is_numbered(name, "ata"); });
        // A virtio-blk disk is on a function of the same class, but on a host without targets.
        if (port == components.end() &&
            (base_class(function.class_code) != mass_storage || unit.find(':') == std::string_view::npos))
            return {};
        const auto address = parse_scsi_address(unit);
        if (!address || address->target > largest_identifier || address->lun > largest_identifier) {
            debug("%s: %.*s has no place in a path", function_path.c_str(), static_cast<int>(unit.size()),
                  unit.data());
            return without_place;
        }
        if (port != components.end())
            return locate_ata(function, function_path + "/" + std::string(*port), *port, *address);
        return {transport::scsi, 0, address->target, address->lun};
    }

    attachment locate_ata(const pci_function &function, const std::string &port_path,
                          std::string_view port_name, const scsi_address &address) const
    {
        const std::string attributes = port_path + "/ata_port/" + std::string(port_name);
        // The controller's own port, from 1 (drivers/ata/libata-transport.c). The number in the name counts
        // the ports of all hosts.
        const auto port = files.number(attributes + "/port_no");
        if (!port || *port == 0) {
            debug("%s: no port number, its disk has no path", attributes.c_str());
            return without_place;
        }
        if (*port > most_ports) {
            debug("%s: beyond port %u, its disk has no path", attributes.c_str(), most_ports);
            return without_place;
        }
        const auto number = static_cast<unsigned>(*port - 1);
        const unsigned kind = subclass(function.class_code);
        if (kind == ide_subclass || kind == ata_subclass) {
            // Another one would have the name of the next channel's first disk.
            if (address.target >= disks_of_a_channel) {
                debug("%s: drive %u of a channel has no path", attributes.c_str(), address.target);
                return without_place;
            }
            return {transport::ide, number, address.target, 0};
        }
        if (files.number(attributes + "/nr_pmp_links").value_or(0) == 0)
            return {transport::sata, 0, number, 0};
        // With a port multiplier the channel is the multiplier's port: bit 8, and the number from bit 5 on.
        if (address.channel >= most_multiplier_ports) {
            debug("%s: the disk of port %u of a port multiplier has no path", attributes.c_str(),
                  address.channel);
            return without_place;
        }
        return {transport::sata, 0, 0x100 | address.channel << 5 | number, 0};
    }

    // Controllers are numbered in the order of their physical paths. Functions of other classes that carry a
    // disk come last.
    void number_controllers()
    {
        unsigned next = 0;
        for (std::size_t i = 0; i < functions.size(); ++i) {
            if (is_storage_controller(functions[i]))
                numbers.emplace(i, next++);
        }
        for (const found_disk &disk : found) {
            if (numbers.emplace(disk.function, next).second)
                ++next;
        }
    }

    // Gives a disk its node and its name.
    void place(found_disk *disk)
    {
        // Two disks must not share a path (SCSI channels) or a name (a port and a target of one function):
        // the later one has no place.
        if (has_place(disk->where.kind) &&
            !take_name(disk->function, target_in_name(disk->where), disk->where.lun)) {
            debug("%s: another disk has the same target, it has no path of its own",
                  disk->entry.kernel_name.c_str());
            disk->where = without_place;
        }
        const std::size_t function_node = functions[disk->function].node;
        const attachment &where = disk->where;
        disk->entry.target = target_in_name(where);
        disk->entry.lun = where.lun;
        switch (where.kind) {
        case transport::sata:
            disk->entry.node = add_node(function_node, "disk", where.target, where.lun);
            break;
        case transport::ide:
            disk->entry.node = add_node(ide_node(disk->function, where.channel), "hdrv", where.target, 0);
            break;
        case transport::scsi:
            disk->entry.node = add_node(function_node, "sd", where.target, where.lun);
            break;
        case transport::without_place:
        case transport::other: {
            const unsigned number = others[disk->function]++;
            disk->entry.node = add_node(function_node, "blkdev", number, 0);
            // By the disk's own kind: its name stays when a disk beside it goes.
            const bool counted = where.kind == transport::other && take_name(disk->function, number, 0);
            disk->entry.target = counted ? number : first_target_without_place + number;
            break;
        }
        }
        disk->entry.controller = numbers.at(disk->function);
        tree.disks.push_back(disk->entry);
    }

    static unsigned target_in_name(const attachment &where)
    {
        return where.kind == transport::ide ? where.channel * disks_of_a_channel + where.target
                                            : where.target;
    }

    bool take_name(std::size_t function, unsigned target, unsigned lun)
    {
        return taken.insert({function, target, lun}).second;
    }

    std::size_t ide_node(std::size_t function, unsigned channel)
    {
        const auto [place, is_new] = channels.try_emplace({function, channel}, 0);
        if (is_new)
            // Decimal, unlike all other numbers in the tree: the core reads this one as decimal.
            place->second = tree.add_node(functions[function].node, "ide", std::to_string(channel));
        return place->second;
    }

    std::size_t add_node(std::size_t parent, const char *name, unsigned target, unsigned lun)
    {
        std::array<char, 32> address;
        std::snprintf(address.data(), address.size(), "%x,%x", target, lun);
        return tree.add_node(parent, name, address.data());
    }

    const sysfs &files;
    const std::vector<pci_function> &functions;
    device_tree &tree;
    std::map<std::string, std::size_t> by_path;
    std::vector<found_disk> found;
    std::map<std::size_t, unsigned> numbers;                     // controllers, by function
    std::set<std::tuple<std::size_t, unsigned, unsigned>> taken; // names: function, target, unit
    std::map<std::size_t, unsigned> others; // number of disks without a path, by function
    std::map<std::pair<std::size_t, unsigned>, std::size_t> channels;
};

} // namespace

void add_disks(const sysfs &files, const std::vector<pci_function> &functions, device_tree *tree)
{
    disk_finder(files, functions, tree).find();
}

} // namespace machine

// SPDX-License-Identifier: MIT
#include "platform/machine/disks.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <set>
#include <tuple>

#include "platform/machine/attachment.h"
#include "platform/machine/buses.h"
#include "platform/machine/debug.h"
#include "platform/machine/nvme.h"

namespace machine {

namespace {

constexpr std::size_t most_disks = 16384;
constexpr std::uint32_t smallest_block = 512;
constexpr std::uint32_t largest_block = 65536;

// Disks of a transport with targets that are not addressable by a path have target numbers from here on.
constexpr unsigned first_target_without_place = 0x10000;
static_assert(first_target_without_place > largest_identifier);

// PCI class codes (include/linux/pci_ids.h): base class and subclass.
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
        // On a bus, which has several controllers, their paths decide before the names: they follow the
        // hardware.
        const auto order = [](const found_disk &disk) {
            return std::tuple(disk.carrier, !has_place(disk.where.kind), disk.controller_path.size(),
                              std::string_view(disk.controller_path), disk.entry.kernel_name.size(),
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
        std::size_t carrier = 0;     // an index in `functions`, or beyond these in all_buses()
        std::string controller_path; // of a disk on a bus that numbers do not tell apart
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
        if (is_never_started_from(name) || files.number(*path + "/hidden").value_or(0) != 0)
            return;
        found_disk disk;
        // The kernel writes "!" for the "/" of a name in a folder below dev (lib/kobject.c).
        disk.entry.kernel_name = name;
        std::ranges::replace(disk.entry.kernel_name, '!', '/');
        if (!is_direct_access(*path))
            return;
        const std::string carried = nvme_path_of(files, *path, by_path);
        const auto function = function_above(by_path, carried);
        if (function != by_path.end())
            put_on_function(*path, carried, function, &disk);
        else if (!put_on_bus(name, *path, &disk))
            return;
        found.push_back(std::move(disk));
    }

    // SCSI peripheral device types (include/scsi/scsi_proto.h). Other disks have another "type", or none.
    bool is_direct_access(const std::string &path) const
    {
        static constexpr std::uint64_t types[] = {0x00, 0x07, 0x0e, 0x14}; // disk, optical memory, RBC, ZBC
        const auto device = files.link(path + "/device");
        if (!device || !is_scsi_address(device->substr(device->rfind('/') + 1)))
            return true;
        const auto type = files.number(*device + "/type");
        return !type || std::ranges::find(types, *type) != std::end(types);
    }

    void put_on_function(const std::string &path, const std::string &carried,
                         functions_by_path::const_iterator function, found_disk *disk) const
    {
        disk->carrier = function->second;
        disk->entry.place = carried;
        read_size(path, &disk->entry);
        disk->where = place_on_function(files, functions[function->second].class_code, function->first,
                                        split(std::string_view(carried).substr(function->first.size()), '/'));
    }

    // False when there is no disk.
    bool put_on_bus(const std::string &name, const std::string &path, found_disk *disk) const
    {
        static constexpr std::string_view devices = "sys/devices";
        const auto components =
            split(std::string_view(path).substr(std::min(devices.size(), path.size())), '/');
        if (!path.starts_with(devices) || components.size() < 2 || components.back() != name)
            return false; // nothing that the kernel shows as a block device
        if (!files.number(path + "/size")) {
            debug("%s: no block device", path.c_str());
            return false;
        }
        const std::size_t number = bus_of(disk->entry.kernel_name, components);
        const bus &on = all_buses()[number];
        disk->entry.place = path;
        read_size(path, &disk->entry);
        // A device that is suspended blocks who reads from it.
        if (on.has_empty_disks &&
            (disk->entry.blocks == 0 || files.number(path + "/dm/suspended").value_or(0) != 0))
            return false;
        read_array(path, &disk->entry);
        disk->carrier = functions.size() + number;
        if (on.by != addressing::number)
            disk->controller_path = path.substr(0, path.rfind('/'));
        disk->where = place_on_bus(files, on, disk->entry.kernel_name, std::string(devices), components);
        return true;
    }

    // What an array of disks (drivers/md) is made of.
    void read_array(const std::string &path, disk *entry) const
    {
        if (auto metadata = files.text(path + "/md/metadata_version")) {
            entry->metadata = std::move(*metadata);
            entry->members = files.names(path + "/slaves");
        }
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

    // Controllers are numbered in the order of their physical paths. Functions of other classes that carry a
    // disk come after these, and buses last.
    void number_controllers()
    {
        unsigned next = 0;
        for (std::size_t i = 0; i < functions.size(); ++i) {
            if (is_storage_controller(functions[i]))
                numbers.emplace(i, next++);
        }
        for (const found_disk &disk : found) {
            if (numbers.emplace(disk.carrier, next).second)
                ++next;
        }
    }

    // Gives a disk its node and its name.
    void place(found_disk *disk)
    {
        // Two disks must not share a path (SCSI channels) or a name (a port and a target of one function):
        // the later one has no place.
        if (has_place(disk->where.kind) &&
            !take_name(disk->carrier, target_in_name(disk->where), disk->where.lun)) {
            debug("%s: another disk has the same target, it has no path of its own",
                  disk->entry.kernel_name.c_str());
            disk->where = without_place;
        }
        disk->entry.target = target_in_name(disk->where);
        disk->entry.lun = disk->where.lun;
        disk->entry.node = has_place(disk->where.kind) ? add_placed(*disk) : add_counted(disk);
        disk->entry.controller = numbers.at(disk->carrier);
        tree.disks.push_back(disk->entry);
    }

    std::size_t add_placed(const found_disk &disk)
    {
        const attachment &where = disk.where;
        const std::size_t carrier = carrier_node(disk.carrier);
        switch (where.kind) {
        case place_kind::sata:
            return add_node(carrier, "disk", where.target, where.lun);
        case place_kind::ide:
            return add_node(ide_node(disk.carrier, where.channel), "hdrv", where.target, 0);
        case place_kind::scsi:
            return add_node(carrier, "sd", where.target, where.lun);
        default:
            return add_node(carrier, "blkdev", where.target, where.lun);
        }
    }

    std::size_t add_counted(found_disk *disk)
    {
        const unsigned number = others[disk->carrier]++;
        // By the disk's own kind: its name stays when a disk beside it goes.
        const bool counted = disk->where.kind == place_kind::other && take_name(disk->carrier, number, 0);
        disk->entry.target = counted ? number : first_target_without_place + number;
        // On a bus, numbers of Linux names are addresses too.
        const bool on_bus = disk->carrier >= functions.size();
        return add_node(carrier_node(disk->carrier), "blkdev", on_bus ? disk->entry.target : number, 0);
    }

    // The node of a function, or of a bus, which is made for its first disk.
    std::size_t carrier_node(std::size_t carrier)
    {
        if (carrier < functions.size())
            return functions[carrier].node;
        const auto [place, is_new] = buses.try_emplace(carrier, 0);
        if (is_new)
            place->second = tree.add_node(0, all_buses()[carrier - functions.size()].name, "0,0");
        return place->second;
    }

    static unsigned target_in_name(const attachment &where)
    {
        return where.kind == place_kind::ide ? where.channel * disks_of_a_channel + where.target
                                             : where.target;
    }

    bool take_name(std::size_t carrier, unsigned target, unsigned lun)
    {
        return taken.insert({carrier, target, lun}).second;
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
    functions_by_path by_path;
    std::map<std::size_t, std::size_t> buses; // their nodes, by carrier
    std::vector<found_disk> found;
    std::map<std::size_t, unsigned> numbers;                     // controllers, by carrier
    std::set<std::tuple<std::size_t, unsigned, unsigned>> taken; // names: carrier, target, unit
    std::map<std::size_t, unsigned> others;                      // number of disks without a path, by carrier
    std::map<std::pair<std::size_t, unsigned>, std::size_t> channels;
};

} // namespace

void add_disks(const sysfs &files, const std::vector<pci_function> &functions, device_tree *tree)
{
    disk_finder(files, functions, tree).find();
}

} // namespace machine

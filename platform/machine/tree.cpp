// SPDX-License-Identifier: MIT
#include "platform/machine/tree.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <set>
#include <tuple>
#include <utility>

#include "platform/machine/debug.h"
#include "platform/machine/disks.h"
#include "platform/machine/sysfs.h"

namespace machine {

namespace {

// Against hostile folders: no machine has bridges nested so deep, or so many functions.
constexpr unsigned deepest_bridge = 32;
constexpr std::size_t most_nodes = 16384;

constexpr char devices[] = "sys/devices";

constexpr char pci_bridge[] = "PNP0A03";
constexpr char pcie_bridge[] = "PNP0A08";

struct bus_number {
    unsigned domain = 0;
    unsigned bus = 0;
    auto operator<=>(const bus_number &) const = default;
};

struct function_number {
    unsigned device = 0;
    unsigned function = 0;
    auto operator<=>(const function_number &) const = default;
};

std::string hex(unsigned value)
{
    std::array<char, 16> text;
    const int length = std::snprintf(text.data(), text.size(), "%x", value);
    return {text.data(), static_cast<std::size_t>(length)};
}

// "pci0000:00"
std::optional<bus_number> parse_host_bridge(const std::string &name)
{
    const std::size_t colon = name.find(':');
    if (!name.starts_with("pci") || colon == std::string::npos)
        return std::nullopt;
    const auto domain = parse_number(std::string_view(name).substr(3, colon - 3), 16);
    const auto bus = parse_number(std::string_view(name).substr(colon + 1), 16);
    if (!domain || !bus || *domain > UINT32_MAX || *bus > 0xff)
        return std::nullopt;
    return bus_number{static_cast<unsigned>(*domain), static_cast<unsigned>(*bus)};
}

// "0000:00:1f.2"
std::optional<function_number> parse_function(const std::string &name)
{
    const std::size_t colon = name.rfind(':');
    const std::size_t dot = name.rfind('.');
    if (colon == std::string::npos || dot == std::string::npos || dot < colon || name.find(':') == colon)
        return std::nullopt;
    const auto device = parse_number(std::string_view(name).substr(colon + 1, dot - colon - 1), 16);
    const auto function = parse_number(std::string_view(name).substr(dot + 1), 16);
    if (!device || !function || *device > 0x1f || *function > 7)
        return std::nullopt;
    return function_number{static_cast<unsigned>(*device), static_cast<unsigned>(*function)};
}

// The bus of a function, from its name.
unsigned bus_of(const std::string &function_name)
{
    const std::size_t colon = function_name.rfind(':');
    const std::size_t before = function_name.rfind(':', colon - 1);
    const auto bus = parse_number(std::string_view(function_name).substr(before + 1, colon - before - 1), 16);
    return bus ? static_cast<unsigned>(*bus & 0xff) : 0;
}

// A folder of sysfs with the numbers in its name, by which it is sorted.
template <typename number>
struct numbered_folder {
    number order;
    std::string name;
    auto operator<=>(const numbered_folder &) const = default;
};

template <typename number>
std::vector<numbered_folder<number>> numbered_folders(const std::vector<std::string> &names,
                                                      std::optional<number> (*parse)(const std::string &))
{
    std::vector<numbered_folder<number>> found;
    for (const std::string &name : names) {
        if (const auto order = parse(name))
            found.push_back({*order, name});
    }
    std::sort(found.begin(), found.end());
    return found;
}

class tree_builder {
public:
    explicit tree_builder(const sysfs &machine_files) : files(machine_files) {}

    void add_host_bridges()
    {
        tree.nodes.emplace_back().name = "hwplat";
        unsigned number = 0;
        for (const auto &[bus, path] : host_bridges()) {
            const std::size_t node = tree.add_node(0, "pci", hex(number++) + ",0");
            add_firmware_identifiers(node, path);
            add_functions(node, path, 0);
        }
    }

    device_tree tree;
    std::vector<pci_function> functions; // in the order of the tree

private:
    using bridges = std::set<std::pair<bus_number, std::string>>;

    // Host bridges by their bus, with their paths. Those that are not directly below sys/devices are below a
    // platform device of a device tree, or a device of a hypervisor's bus. Their functions lead to them.
    bridges host_bridges() const
    {
        bridges found;
        for (const auto &bridge : numbered_folders(files.names(devices), parse_host_bridge))
            found.emplace(bridge.order, devices + ('/' + bridge.name));
        bridges elsewhere;
        const std::string functions_by_name = "sys/bus/pci/devices/";
        for (const std::string &name : files.names("sys/bus/pci/devices"))
            add_bridge_above(files.link(functions_by_name + name).value_or(""), &elsewhere);
        for (const auto &bridge : elsewhere) {
            if (!files.names(bridge.second).empty())
                found.insert(bridge);
        }
        return found;
    }

    // A bridge below another one's function belongs to that function.
    static void add_bridge_above(const std::string &path, bridges *found)
    {
        if (!path.starts_with(devices))
            return;
        for (std::size_t at = path.find('/', std::strlen(devices)); at != std::string::npos;) {
            const std::size_t end = path.find('/', at + 1);
            if (const auto bus = parse_host_bridge(path.substr(at + 1, end - at - 1))) {
                if (is_below_a_device(path.substr(0, end)))
                    found->emplace(*bus, path.substr(0, end));
                return;
            }
            at = end;
        }
    }

    static bool is_below_a_device(const std::string &path)
    {
        return path.find('/', std::strlen(devices) + 1) != std::string::npos;
    }

    void add_firmware_identifiers(std::size_t node, const std::string &path)
    {
        auto &strings = tree.nodes[node].strings;
        const auto firmware_node = files.link(path + "/firmware_node");
        const auto hid = firmware_node ? files.text(*firmware_node + "/hid") : std::nullopt;
        // A bridge without a description by the firmware counts as plain PCI. One below another device is not
        // told of by ACPI, and has no identifier to be found by.
        if (hid || !is_below_a_device(path))
            strings["acpi-hid"] = hid.value_or(pci_bridge);
        if (!hid)
            return;
        if (auto uid = files.text(*firmware_node + "/uid"))
            strings["acpi-uid"] = std::move(*uid);
        // "acpi:PNP0A08:PNP0A03:", the compatible identifiers after the first (drivers/acpi/device_sysfs.c).
        const std::string modalias = files.text(*firmware_node + "/modalias").value_or("");
        const std::string own = "acpi:" + *hid + ":";
        if (modalias.starts_with(own) && modalias.size() > own.size()) {
            const std::size_t end = std::min(modalias.find(':', own.size()), modalias.size());
            strings["acpi-cid"] = modalias.substr(own.size(), end - own.size());
            // Firmware starts only paths that begin like its own, with PNP0A03 on PCIe too.
            if (*hid == pcie_bridge && strings["acpi-cid"] == pci_bridge)
                strings["acpi-hid"] = pci_bridge;
        }
    }

    void add_functions(std::size_t parent, const std::string &path, unsigned depth)
    {
        if (depth == deepest_bridge) {
            debug("%s: nested too deep, what is below it is left out", path.c_str());
            return;
        }
        const auto names = files.names(path);
        for (const auto &folder : numbered_folders(names, parse_function))
            add_function(parent, path + "/" + folder.name, folder.name, folder.order, depth);
        // Buses of another domain that a function carries (drivers/pci/controller/vmd.c) belong to it.
        for (const auto &folder : numbered_folders(names, parse_host_bridge))
            add_functions(parent, path + "/" + folder.name, depth + 1);
    }

    void add_function(std::size_t parent, const std::string &path, const std::string &folder,
                      function_number number, unsigned depth)
    {
        const auto vendor = files.number(path + "/vendor");
        const auto device = files.number(path + "/device");
        const std::uint64_t revision = files.number(path + "/revision").value_or(0);
        const auto class_code = files.number(path + "/class");
        if (!vendor || !device || !class_code || *vendor > 0xffff || *device > 0xffff ||
            *class_code > 0xffffff) {
            debug("%s: no PCI function, its identifiers cannot be read", path.c_str());
            return;
        }
        if (tree.nodes.size() >= most_nodes) {
            debug("%s: left out, there are too many functions", path.c_str());
            return;
        }
        const std::string name =
            "pci" + hex(static_cast<unsigned>(*vendor)) + "," + hex(static_cast<unsigned>(*device));
        const std::string address =
            number.function == 0 ? hex(number.device) : hex(number.device) + "," + hex(number.function);
        const std::size_t node = tree.add_node(parent, name, address);
        auto &integers = tree.nodes[node].integers;
        integers["vendor-id"] = {static_cast<int>(*vendor)};
        integers["device-id"] = {static_cast<int>(*device)};
        integers["revision-id"] = {static_cast<int>(revision & 0xff)};
        integers["class-code"] = {static_cast<int>(*class_code)};
        // As a PCI configuration address: bus in bits 16 to 23, device in 11 to 15, function in 8 to 10.
        integers["reg"] = {
            static_cast<int>(bus_of(folder) << 16 | number.device << 11 | number.function << 8)};
        functions.push_back({path, node, static_cast<unsigned>(*class_code)});
        add_functions(node, path, depth + 1);
    }

    const sysfs &files;
};

// Disks are listed in the order of their names.
auto by_name(const disk &disk)
{
    return std::make_tuple(disk.controller, disk.target, disk.lun);
}

} // namespace

std::string disk::name() const
{
    return "c" + std::to_string(controller) + "t" + std::to_string(target) + "d" + std::to_string(lun);
}

std::size_t device_tree::add_node(std::size_t parent, std::string name, std::string address)
{
    const std::size_t place = nodes.size();
    tree_node &node = nodes.emplace_back();
    node.name = std::move(name);
    node.address = std::move(address);
    node.parent = parent;
    nodes[parent].children.push_back(place);
    return place;
}

std::string device_tree::path_of(std::size_t node) const
{
    if (node == 0)
        return "/";
    std::vector<std::size_t> chain;
    for (std::size_t at = node; at != 0; at = nodes[at].parent)
        chain.push_back(at);
    std::string path;
    for (auto at = chain.rbegin(); at != chain.rend(); ++at)
        path += "/" + nodes[*at].name + "@" + nodes[*at].address.value_or("");
    return path;
}

device_tree read_device_tree(const machine_root &root)
{
    const sysfs files(root.folder.get());
    tree_builder builder(files);
    builder.add_host_bridges();
    add_disks(files, builder.functions, &builder.tree);
    auto &disks = builder.tree.disks;
    std::sort(disks.begin(), disks.end(),
              [](const disk &a, const disk &b) { return by_name(a) < by_name(b); });
    return std::move(builder.tree);
}

} // namespace machine

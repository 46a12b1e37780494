// SPDX-License-Identifier: MIT
#include "tools/machine/fullform.h"

#include <algorithm>

#include <optional>

#include "src/base/nodes.h"
#include "src/base/whole_number.h"
#include "tools/machine/treenodes.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/rawtext.h"

namespace tool {

namespace {

constexpr unsigned raid_controller = 0x0104; // base class and subclass

std::optional<unsigned> number_property(ht_node_t node, const char *name)
{
    int *values = nullptr;
    if (ht_prop_lookup_ints(HT_DEV_ANY, node, name, &values) < 1 || !values)
        return std::nullopt;
    return static_cast<unsigned>(values[0]);
}

// A messaging node that has no keyword of its own.
std::string without_keyword(uint8_t subtype, const bytes &data)
{
    bytes node;
    for (const size_t value :
         {size_t{UEFI_MESSAGING}, size_t{subtype}, sizeof(uefi_device_path_t) + data.size(), size_t{0}})
        node.push_back(static_cast<uint8_t>(value));
    for (const uint8_t byte : data)
        node.push_back(byte);
    return raw_text(node);
}

unsigned narrow(uint64_t value)
{
    return static_cast<unsigned>(value);
}

std::string sata_text(const attachment &of, unsigned without_multiplier)
{
    const auto multiplier = of.number("multiplier-port");
    return format("/Sata(0x%x,0x%x,0x0)", narrow(of.number("port").value_or(0)),
                  multiplier ? narrow(*multiplier) : without_multiplier);
}

void append_number(bytes *to, uint64_t value, size_t size)
{
    for (size_t at = 0; at < size; ++at)
        to->push_back(static_cast<uint8_t>(value >> 8 * at));
}

std::string nvme_text(const attachment &of, const bytes &eui64)
{
    bytes data;
    append_number(&data, of.number("namespace").value_or(0), 4);
    for (size_t at = 0; at < 8; ++at) // without an EUI-64 zeros stand there
        data.push_back(at < eui64.size() ? eui64[at] : uint8_t{0});
    return '/' + without_keyword(23, data);
}

// Not by its keyword: the library writes another GUID there than firmware does.
std::string sas_text(uint64_t address, uint64_t unit)
{
    constexpr EFI_GUID sas = {0xd487ddb4, 0x008b, 0x11d9, {0xaf, 0xdc, 0x00, 0x10, 0x83, 0xff, 0xca, 0x4d}};
    const byte_view guid = ovra::bytes_of(sas);
    bytes data(guid.begin(), guid.end());
    append_number(&data, 0, 4); // reserved
    append_number(&data, address, 8);
    append_number(&data, unit, 8);
    append_number(&data, 0, 4); // no topology, relative target port 0
    return '/' + without_keyword(10, data);
}

// The interface of a hub is its first.
std::string usb_text(const attachment &of)
{
    std::string text;
    for (size_t at = 0; at < of.usb_ports.size(); ++at) {
        const bool last = at + 1 == of.usb_ports.size();
        text += format("/USB(0x%x,0x%x)", of.usb_ports[at],
                       last ? narrow(of.number("interface").value_or(0)) : 0);
    }
    if (const auto unit = of.number("lun"))
        text += format("/Unit(0x%x)", narrow(*unit));
    return text;
}

bool is_known(const std::string &transport)
{
    static constexpr const char *all[] = {"sata", "ide", "scsi", "sas", "nvme",
                                          "usb",  "sd",  "emmc", "ufs", "virtio-blk"};
    return std::find(std::begin(all), std::end(all), transport) != std::end(all);
}

// What follows the function. Firmware's driver of an eMMC has a controller node for each of its areas, 0 for
// that of the user.
std::string behind_function(const attachment &of)
{
    constexpr unsigned no_multiplier = 0xffff;
    const std::string &kind = of.transport;
    const auto value = [&of](const char *name) { return of.number(name).value_or(0); };
    const auto byte = [&value](const char *name) { return static_cast<uint8_t>(value(name)); };
    if (kind == "sata")
        return sata_text(of, no_multiplier);
    if (kind == "ide")
        return format("/Ata(%s,%s,0x0)", value("channel") == 0 ? "Primary" : "Secondary",
                      value("target") == 0 ? "Master" : "Slave");
    if (kind == "scsi")
        return format("/Scsi(0x%x,0x%x)", narrow(value("target")), narrow(value("lun")));
    if (kind == "sas")
        return sas_text(value("sas-address"), value("lun"));
    if (kind == "nvme")
        return nvme_text(of, of.eui64);
    if (kind == "usb")
        return usb_text(of);
    if (kind == "ufs")
        return '/' + without_keyword(25, {byte("target"), byte("lun")});
    if (kind == "sd")
        return '/' + without_keyword(26, {byte("slot")});
    if (kind == "emmc")
        return '/' + without_keyword(29, {byte("slot")}) + "/Ctrl(0x0)";
    return {}; // virtio-blk: the function is the disk
}

// The nodes of a host bridge, with the identifiers that the tree has.
std::string bridge_text(const std::string &identifier, uint32_t number)
{
    if (identifier == "PNP0A03")
        return format("/PciRoot(0x%x)", number);
    if (identifier == "PNP0A08")
        return format("/PcieRoot(0x%x)", number);
    return format("/Acpi(%s,0x%x)", identifier.c_str(), number);
}

} // namespace

hardware::hardware()
{
    const tree_owner root = read_tree();
    for (ht_node_t bridge = ht_child_node(root.get()); bridge; bridge = ht_sibling_node(bridge))
        add(bridge);
}

void hardware::add(ht_node_t node)
{
    device &next = devices[tree_path(node)];
    const auto reg = number_property(node, "reg");
    const auto identifier = string_property(node, "acpi-hid");
    if (reg) {
        next.text = format("/Pci(0x%x,0x%x)", *reg >> 11 & 31, *reg >> 8 & 7);
        next.kind = number_property(node, "class-code").value_or(0) >> 8;
    } else if (identifier) {
        const auto number = string_property(node, "acpi-uid");
        const auto value = ovra::whole_number<uint32_t>(number.value_or("0"));
        next.is_described = number.has_value();
        if (!identifier->starts_with("PNP") || identifier->size() != 7)
            next.problem =
                "its host bridge is described as " + *identifier + ", which is no PCI host bridge's";
        else if (!value)
            next.problem = "its host bridge has " + in_quotes(*number) + " for a number";
        else
            next.text = bridge_text(*identifier, *value);
    } else if (std::string_view(ht_node_name(node)) == "pci") {
        next.problem = "its host bridge has no identifier of the firmware's";
    }
    for (ht_node_t child = ht_child_node(node); child; child = ht_sibling_node(child))
        add(child);
}

hardware::place hardware::place_above(const std::string &path) const
{
    place found;
    for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
        const auto at = devices.find(path.substr(0, end));
        if (at == devices.end() || at->second.text.empty()) {
            if (at != devices.end())
                found.problem = at->second.problem;
            break;
        }
        found.last = found.text.empty() ? "" : at->second.text;
        found.text += at->second.text;
        found.is_described = found.is_described && at->second.is_described;
        found.kind = at->second.kind;
    }
    return found;
}

hardware::place hardware::place_of(const drive &drive) const
{
    place found = place_above(drive.path);
    if (found.problem.empty() && found.last.empty())
        found.problem = "it is below no PCI function";
    if (found.problem.empty() && !drive.attached.place_unknown.empty())
        found.problem = drive.attached.place_unknown;
    if (found.problem.empty() && !is_known(drive.attached.transport))
        found.problem = "how it is attached to its controller is not known";
    return found;
}

std::string hardware::text_of(const drive &drive) const
{
    const place found = place_of(drive);
    if (!found.problem.empty())
        throw failure("the full form of " + both_names(drive.name, drive.kernel_name) +
                          " is not known: " + printable(found.problem),
                      "Without --full the path is the short form, which firmware finds on any controller.");
    return found.text + behind_function(drive.attached);
}

std::vector<std::string> hardware::texts_of(const drive &drive) const
{
    const place found = place_of(drive);
    if (!found.problem.empty())
        return {};
    const attachment &of = drive.attached;
    std::vector<std::string> texts = {found.text + behind_function(of)};
    // The library goes by the class of the controller, writes another number for no port multiplier, and
    // names an IDE function twice. Older firmware has 0 for no multiplier, and no EUI-64.
    if (of.transport == "sata") {
        for (const unsigned direct : {0x8000U, 0U})
            texts.push_back(found.text + sata_text(of, direct));
        if (found.kind == raid_controller)
            texts.push_back(found.text + format("/Scsi(0x%x,0x0)", narrow(of.number("port").value_or(0))));
    } else if (of.transport == "ide") {
        texts.push_back(found.text + found.last + behind_function(of));
    } else if (of.transport == "nvme" && !of.eui64.empty()) {
        texts.push_back(found.text + nvme_text(of, {}));
    }
    return texts;
}

std::string hardware::carrier_of(const drive &drive) const
{
    const place found = place_above(drive.path);
    return found.problem.empty() ? found.text : "";
}

std::vector<std::string> hardware::carriers() const
{
    std::vector<std::string> texts;
    for (const auto &[path, each] : devices) {
        const place found = each.text.empty() ? place() : place_above(path + '/');
        if (found.problem.empty() && !found.text.empty())
            texts.push_back(found.text);
    }
    return texts;
}

std::string hardware::doubt_of(const drive &drive) const
{
    const place found = place_of(drive);
    const std::string &transport = drive.attached.transport;
    if (!found.is_described)
        return "the host bridge has no number of the firmware's, 0 is taken";
    if (found.kind == raid_controller && (transport == "sata" || transport == "scsi"))
        return "the driver of a RAID controller may name its disks otherwise";
    if (drive.attached.number("channel").value_or(0) != 0 && transport == "scsi")
        return "the disk is on another channel of its controller than the first, which a path does not name";
    return {};
}

} // namespace tool

// SPDX-License-Identifier: MIT
#include <algorithm>

#include "src/base/ascii.h"
#include "src/base/ids.h"
#include "src/base/words.h"
#include "tools/paste/reading.h"
#include "tools/text/nodeparse.h"
#include "tools/text/nodevalues.h"

namespace tool {

namespace {

constexpr std::string_view flow_control = "37499a9d-542f-4c89-a026-35da142094e4";

// Nodes whose fields stand one after the other: a number of as many bytes as the digit says, a GUID (g).
struct plain_node {
    std::string_view name;
    uint8_t type;
    uint8_t subtype;
    std::string_view fields;
};

constexpr plain_node plain_nodes[] = {
    {"FvFile", UEFI_MEDIA, 6, "g"},
    {"Fv", UEFI_MEDIA, 7, "g"},
    {"FvVol", UEFI_MEDIA, 7, "g"},
    {"NVDIMM", UEFI_MESSAGING, 32, "g"},
    {"SD", UEFI_MESSAGING, 26, "1"},
    {"eMMC", UEFI_MESSAGING, 29, "1"},
    {"UFS", UEFI_MESSAGING, 25, "11"},
    {"BMC", UEFI_HARDWARE, 6, "18"},
    {"RestService", UEFI_MESSAGING, 33, "11"},
};

bytes plain_bytes(const plain_node &row, const node_fields &fields)
{
    require_count(fields, row.fields.size(), row.fields.size());
    new_node node(row.type, row.subtype);
    for (size_t at = 0; at < row.fields.size(); ++at) {
        const std::string_view value = fields.values[at];
        if (row.fields[at] == 'g') {
            node.append(guid_bytes_of(value));
        } else {
            const auto size = static_cast<size_t>(row.fields[at] - '0');
            node.number(sized_number(value, size), size);
        }
    }
    return node.done();
}

std::optional<bytes> ram_disk(const node_fields &fields)
{
    static constexpr std::string_view guids[] = {
        "77ab535a-45fc-624b-5560-f7b281d1f96e", "3d5abd30-4175-87ce-6d64-d2ade523c4bb",
        "5cea02c9-4d07-69d3-269f-4496fbe096f9", "08018188-42cd-bb48-100f-5387d53ded3d"};
    const auto kind = index_of(
        fields.name, {"VirtualDisk", "VirtualCD", "PersistentVirtualDisk", "PersistentVirtualCD", "RamDisk"});
    if (!kind)
        return std::nullopt;
    const bool says_kind = *kind == std::size(guids);
    require_count(fields, says_kind ? 4 : 3, says_kind ? 4 : 3);
    return new_node(UEFI_MEDIA, 9)
        .number(sized_number(fields.values[0], 8), 8)
        .number(sized_number(fields.values[1], 8), 8)
        .append(guid_bytes_of(says_kind ? fields.values[3] : guids[*kind]))
        .number(sized_number(fields.values[2], 2), 2)
        .done();
}

// The data of ours begins with the node's length, that of others behind it.
std::vector<reading> read_generic(const node_fields &fields)
{
    const auto type =
        index_of(fields.name, {"Path", "HardwarePath", "AcpiPath", "Msg", "MediaPath", "BbsPath"});
    if (!type)
        return {};
    const size_t before_data = *type == 0 ? 2 : 1;
    require_count(fields, before_data, before_data + 1);
    const uint64_t node_type = *type == 0 ? sized_number(fields.values[0], 1) : *type;
    if (node_type == 0 || node_type > UEFI_BIOS)
        return {};
    const auto subtype = static_cast<uint8_t>(sized_number(fields.values[before_data - 1], 1));
    const bytes data = bytes_of_digits(fields.count() > before_data ? fields.values[before_data] : "");
    const bytes node = new_node(static_cast<uint8_t>(node_type), subtype).append(data).done();
    if (fields.is("AcpiPath") || fields.is("MediaPath"))
        return {{of_firmware, node},
                {of_efibootmgr, {}, "efibootmgr leaves out the last bytes of such a node"}};
    return {{of_firmware | of_efibootmgr, node}};
}

// A description may hold anything, also commas and slashes.
std::vector<reading> read_bbs(const node_fields &fields)
{
    const std::string &all = fields.arguments;
    const size_t first = all.find(',');
    const size_t last = all.rfind(',');
    if (first == std::string::npos)
        return {};
    auto type = listed_value("bbs_device_types,unknown", fields.values[0]);
    if (!type && index_of(fields.values[0], {"Harddrive", "Harddisk"})) // in older firmware
        type = 2;
    const bool has_flags = last != first && number_in(all.substr(last + 1)) && last + 1 < all.size();
    const std::string description = all.substr(first + 1, (has_flags ? last : all.size()) - first - 1);
    if (description.find('"') != std::string::npos)
        refuse("strings stand without quotes");
    reading read;
    read.node = new_node(UEFI_BIOS, 1)
                    .number(type ? *type : sized_number(fields.values[0], 2), 2)
                    .number(has_flags ? sized_number(all.substr(last + 1), 2) : 0, 2)
                    .text(description)
                    .number(0, 1)
                    .done();
    if (!has_flags)
        read.assumed = "0 as status flags";
    return {read};
}

uint64_t eisa_of(std::string_view text)
{
    if (text == "0" || text == "@@@0000" || text.empty())
        return 0;
    if (!is_of_kind("eisa", std::string(text)))
        refuse(in_quotes(text) + " is not an identifier such as PNP0A03");
    return ovra::eisa_id(text.substr(0, 3), static_cast<uint16_t>(hexadecimal_of(text.substr(3), 2)));
}

bytes acpi_ex_bytes(std::string_view hid, std::string_view cid, std::string_view uid,
                    const std::vector<std::string_view> &strings)
{
    new_node node(UEFI_ACPI, 2);
    node.number(eisa_of(hid), 4).number(uid.empty() ? 0 : sized_number(uid, 4), 4).number(eisa_of(cid), 4);
    for (const std::string_view string : strings)
        node.text(string).number(0, 1);
    return node.done();
}

std::vector<reading> read_acpi(const node_fields &fields)
{
    const auto &values = fields.values;
    const std::string not_whole =
        "efibootmgr prints it so for a node AcpiEx, whose identifiers it leaves out";
    if (fields.is("Acpi") && fields.count() == 2 && has_prefix(values[0]))
        return {{any_dialect, new_node(UEFI_ACPI, 1)
                                  .number(sized_number(values[0], 4), 4)
                                  .number(sized_number(values[1], 4), 4)
                                  .done()}};
    if ((fields.is("PciRoot") || fields.is("PcieRoot")) && !has_prefix(fields.arguments) &&
        fields.arguments.find('=') == std::string::npos)
        return {{of_efibootmgr, {}, not_whole, {}, number_in(fields.arguments) && !fields.arguments.empty()}};
    if (fields.is("AcpiEx") && fields.count() == 3 && !is_of_kind("eisa", std::string(values[0])))
        return {{of_efibootmgr, {}, not_whole}};
    if (fields.is("AcpiEx") && fields.count() == 6 && fields.arguments.find('=') == std::string::npos)
        return {
            {of_firmware, acpi_ex_bytes(values[0], values[1], values[2], {values[3], values[5], values[4]})}};
    if (fields.is("AcpiExp") && fields.count() == 3)
        return {{of_firmware, acpi_ex_bytes(values[0], values[1], "", {"", values[2], ""}), {}, "0 as UID"}};
    return {};
}

// The class itself follows from the keyword.
std::vector<reading> read_usb_class(const node_fields &fields)
{
    const auto &values = fields.values;
    const auto sub_class =
        index_of(fields.name, {"UsbDeviceFirmwareUpdate", "UsbIrdaBridge", "UsbTestAndMeasurement"});
    if (sub_class && fields.count() == 3)
        return {{any_dialect, new_node(UEFI_MESSAGING, 15)
                                  .number(sized_number(values[0], 2), 2)
                                  .number(sized_number(values[1], 2), 2)
                                  .number(0xfe, 1)
                                  .number(*sub_class + 1, 1)
                                  .number(sized_number(values[2], 1), 1)
                                  .done()}};
    if (fields.is("UsbClass") && fields.count() == 4 && !has_prefix(values[0]))
        return {{of_efibootmgr, {}, "efibootmgr leaves out the class"}};
    if (fields.is("UsbWwid") && fields.arguments.find('"') != std::string::npos)
        return {{any_dialect, {}, "firmware does not show whether the string in quotes ends in a null"}};
    if (fields.is("UsbWwid") && !has_prefix(values[0]))
        return {{of_efibootmgr, {}, "efibootmgr prints its numbers without 0x"}};
    const auto serial = fields.count() == 4 ? to_ucs2(std::string(values[3])) : std::nullopt;
    if (fields.is("UsbWwid") && serial && fields.arguments.find('=') == std::string::npos)
        return {{any_dialect,
                 new_node(UEFI_MESSAGING, 16)
                     .number(sized_number(values[2], 1), 2)
                     .number(sized_number(values[0], 2), 2)
                     .number(sized_number(values[1], 2), 2)
                     .append(stored(*serial))
                     .done(),
                 {},
                 "a null at the end of the serial number"}};
    return {};
}

// Of no rate and no number of bits firmware prints a word, and efibootmgr what is usual.
std::vector<reading> read_uart(const node_fields &fields)
{
    const auto &values = fields.values;
    if (fields.count() != 4)
        return {};
    const auto number = [](std::string_view text, size_t size) {
        return ovra::alike(text, "DEFAULT") ? 0 : sized_number(text, size);
    };
    const auto parity = listed_value("uart_parities", values[2]);
    const auto stop = listed_value("uart_stop_bits", values[3]);
    if (!parity || !stop)
        return {};
    reading read;
    read.node = new_node(UEFI_MESSAGING, 14)
                    .number(0, 4)
                    .number(number(values[0], 8), 8)
                    .number(number(values[1], 1), 1)
                    .number(*parity, 1)
                    .number(*stop, 1)
                    .done();
    reading usual = read;
    usual.by = of_efibootmgr;
    if (values[0] == "115200" || values[1] == "8")
        usual.assumed = "115200 and 8 themselves, which efibootmgr also prints where nothing is said";
    read.by = any_dialect & ~of_efibootmgr;
    return {read, usual};
}

// As a 32-bit map; ours has one byte.
std::vector<reading> read_flow_control(const node_fields &fields)
{
    const auto kind = index_of(fields.arguments, {"None", "Hardware", "XonXoff"});
    if (!kind)
        refuse("it is None, Hardware or XonXoff");
    const dialects by = fields.is("UartFlowCtrl") ? of_firmware : any_dialect;
    return {{by, new_node(UEFI_MESSAGING, 10).append(guid_bytes_of(flow_control)).number(*kind, 4).done()}};
}

} // namespace

std::vector<reading> read_other_node(const node_fields &fields)
{
    for (const plain_node &row : plain_nodes) {
        if (fields.is(row.name))
            return {{any_dialect, plain_bytes(row, fields)}};
    }
    if (const auto node = ram_disk(fields))
        return {{any_dialect, *node}};
    if (fields.is("EDD10"))
        return {{any_dialect, {}, "efibootmgr prints a VenHw node so, with bytes of the node behind it"}};
    if (fields.is("BBS"))
        return read_bbs(fields);
    if (fields.is("Uart"))
        return read_uart(fields);
    if (fields.is("UartFlowCtrl") || fields.is("UartFlowControl"))
        return read_flow_control(fields);
    for (const auto reader : {read_generic, read_acpi, read_usb_class}) {
        std::vector<reading> all = reader(fields);
        if (!all.empty())
            return all;
    }
    return {};
}

} // namespace tool

// SPDX-License-Identifier: MIT
#include "tools/text/nodetext.h"

#include <algorithm>

#include "src/base/nodes.h"
#include "tools/text/nodeparse.h"
#include "tools/text/nodevalues.h"
#include "tools/text/rawtext.h"

namespace tool {

namespace {

// A node's bytes, put together in their order.
class node_bytes {
public:
    explicit node_bytes(ovra::node_kind kind) : data{kind.type, kind.subtype, 0, 0} {}

    node_bytes &number(uint64_t value, int size)
    {
        for (int at = 0; at < size; ++at)
            data.push_back(static_cast<uint8_t>(value >> 8 * at));
        return *this;
    }
    node_bytes &append(byte_view what)
    {
        data.insert(data.end(), what.begin(), what.end());
        return *this;
    }
    node_bytes &string(std::string_view text)
    {
        data.insert(data.end(), text.begin(), text.end());
        data.push_back(0);
        return *this;
    }
    std::string text()
    {
        if (data.size() > UINT16_MAX)
            refuse("it is longer than a node can be");
        data[2] = static_cast<uint8_t>(data.size());
        data[3] = static_cast<uint8_t>(data.size() >> 8);
        return raw_text(data);
    }

private:
    bytes data;
};

// A number that a node has `size` bytes for.
uint64_t sized(parsed_node &node, std::string_view name, int size, uint64_t otherwise)
{
    if (!node.value(name))
        return otherwise;
    const uint64_t value = number_in(*node.value(name)).value_or(UINT64_MAX);
    if (size < 8 && value >> 8 * size != 0)
        refuse(std::string(name) + " is too large: " + *node.value(name));
    return value;
}

void require(parsed_node &node, std::initializer_list<std::string_view> names)
{
    for (const std::string_view name : names) {
        if (!node.value(name))
            refuse(std::string(name) + " is missing");
    }
}

// The library stores LUN in place of HPN.
std::string sata(parsed_node &node)
{
    require(node, {"HPN", "LUN"});
    return node_bytes(ovra::kind_of<uefi_sata_device_path_t>)
        .number(sized(node, "HPN", 2, 0), 2)
        .number(sized(node, "PMPN", 2, 0), 2)
        .number(sized(node, "LUN", 2, 0), 2)
        .text();
}

// The library's Offset has the subtype of a file in a firmware volume.
std::string offset(parsed_node &node)
{
    constexpr ovra::node_kind relative_offset_range = {UEFI_MEDIA, 8, sizeof(uefi_offset_path_t)};
    require(node, {"StartingOffset", "EndingOffset"});
    return node_bytes(relative_offset_range)
        .number(0, 4)
        .number(sized(node, "StartingOffset", 8, 0), 8)
        .number(sized(node, "EndingOffset", 8, 0), 8)
        .text();
}

// The library takes the interface from PID, and counts one byte too many.
std::string usb_wwid(parsed_node &node)
{
    require(node, {"VID", "PID", "InterfaceNumber", "WWID"});
    return node_bytes(ovra::kind_of<uefi_usb_wwid_device_path_t>)
        .number(sized(node, "InterfaceNumber", 1, 0), 2)
        .number(sized(node, "VID", 2, 0), 2)
        .number(sized(node, "PID", 2, 0), 2)
        .append(stored(to_ucs2(*node.value("WWID")).value()))
        .text();
}

// The library takes no Entry.
std::string cdrom(parsed_node &node)
{
    require(node, {"Start", "Size"});
    return node_bytes(ovra::kind_of<uefi_cdrom_path_t>)
        .number(sized(node, "Entry", 4, 0), 4)
        .number(sized(node, "Start", 8, 0), 8)
        .number(sized(node, "Size", 8, 0), 8)
        .text();
}

uint32_t eisa_id(const std::optional<std::string> &text)
{
    if (!text || *text == "0")
        return 0;
    uint32_t vendor = 0;
    for (const char letter : text->substr(0, 3))
        vendor = vendor << 5 | static_cast<uint32_t>(letter - 'A' + 1);
    return vendor | static_cast<uint32_t>(number_in(text->substr(3), 16).value()) << 16;
}

// The library reads UID as an identifier, prints it as a number, and prints the strings in another order than
// it reads them.
std::string acpi_ex(parsed_node &node)
{
    for (const char *name : {"CIDSTR", "UIDSTR"}) {
        if (node[name].value && node[name].by_place)
            refuse("CIDSTR and UIDSTR are not told apart by place; write CIDSTR=... and UIDSTR=...");
    }
    if (!node.value("HID") && !node.value("HIDSTR"))
        refuse("HID is missing");
    return node_bytes(ovra::kind_of<uefi_acpiex_device_path_t>)
        .number(eisa_id(node.value("HID")), 4)
        .number(sized(node, "UID", 4, 0), 4)
        .number(eisa_id(node.value("CID")), 4)
        .string(node.value("HIDSTR").value_or(""))
        .string(node.value("UIDSTR").value_or(""))
        .string(node.value("CIDSTR").value_or(""))
        .text();
}

// The library takes no blank, and has no word for type 0, which it prints as "unknown".
std::string bbs(parsed_node &node)
{
    require(node, {"Type"});
    const auto type = listed_value(node["Type"].kind, *node.value("Type"));
    return node_bytes(ovra::kind_of<uefi_bbs_path_t>)
        .number(type ? *type : sized(node, "Type", 2, 0), 2)
        .number(sized(node, "Flags", 2, 0), 2)
        .string(node.value("Id").value_or(""))
        .text();
}

// As a number the library's Type says how the signature is stored, and not the kind of the table.
void hard_drive(parsed_node &node)
{
    const auto &signature = node.value("Signature");
    if (signature && signature->size() == 8 && std::all_of(signature->begin(), signature->end(), is_digit))
        refuse("Signature has eight digits, as in hexadecimal; 0x" + *signature + " says that it is");
    std::optional<std::string> &type = node["Type"].value;
    if (!type)
        return;
    const std::string meant = meaning(node["Type"].kind, *type);
    if (meant != "1" && meant != "2")
        refuse("Type is MBR or GPT");
    type = meant == "1" ? "MBR" : "GPT";
}

// The library drops SAS or SATA where Location is a number, and makes no sense of a drive bay. Firmware
// writes zeros for what is absent.
void sas(parsed_node &node)
{
    const auto is_zero = [](const std::optional<std::string> &text) {
        return text && number_in(*text) == uint64_t{0};
    };
    std::optional<std::string> &location = node["Location"].value;
    std::optional<std::string> &connect = node["Connect"].value;
    std::optional<std::string> &bay = node["DriveBay"].value;
    if (is_zero(bay))
        bay.reset();
    if (bay)
        refuse("a drive bay would be stored but not shown");
    if (!node.value("SASSATA") || same(*node.value("SASSATA"), "NoTopology")) {
        if (is_zero(location))
            location.reset();
        if (is_zero(connect))
            connect.reset();
        return;
    }
    if (location) {
        const auto number = number_in(*location);
        if (number && *number <= 1)
            location = *number == 0 ? "Internal" : "External";
    }
}

void acpi_adr(const parsed_node &node)
{
    for (const std::string_view value : parts_of(node.arguments, ',')) {
        if (!number_in(value))
            refuse(in_quotes(value) + " is not a number");
    }
}

// What the library packs other than it stands there, and would not be seen in what it then prints.
void check(parsed_node &node)
{
    if (node.is("MAC") && !node.value("IfType"))
        refuse("IfType is missing, which is 1 for Ethernet");
    if (node.is("IPv6") && node.value("GatewayIPAddress"))
        refuse("GatewayIPAddress would be lost");
    if (node.is("AcpiExp") && node.value("CIDSTR"))
        refuse("the string would be lost");
    for (const char *name : {"UsbDeviceFirmwareUpdate", "UsbIrdaBridge", "UsbTestAndMeasurement"}) {
        if (node.is(name) && node.value("SubClass"))
            refuse("SubClass is fixed for this keyword; Protocol is its fourth argument");
    }
    if (node.is("Path") && node.value("type") && !ovra::is_node_type(*number_in(*node.value("type"))))
        refuse("a node of this type could not be read back");
    if (node.is("Uart") && node.value("StopBits") &&
        !listed_value(node["StopBits"].kind, *node.value("StopBits")) &&
        *number_in(*node.value("StopBits")) < 4)
        refuse("StopBits is D, 1, 1.5 or 2");
}

} // namespace

std::string text_to_pack(const std::string &text)
{
    parsed_node node = parse(text);
    if (node.is("Sata"))
        return sata(node);
    if (node.is("Offset"))
        return offset(node);
    if (node.is("UsbWwid"))
        return usb_wwid(node);
    if (node.is("CDROM"))
        return cdrom(node);
    if (node.is("AcpiEx"))
        return acpi_ex(node);
    if (node.is("BBS"))
        return bbs(node);
    if (node.is("AcpiAdr")) {
        acpi_adr(node);
        return text;
    }
    check(node);
    if (node.is("HD"))
        hard_drive(node);
    else if (node.is("IPv4") && node.value("Type")) // the library looks for its words in Protocol
        node["Type"].value = meaning(node["Type"].kind, *node.value("Type"));
    else if (node.is("SAS") || node.is("SasEx"))
        sas(node);
    else
        return with_parentheses(text);
    return text_of(node);
}

bool is_raw(const std::string &text)
{
    const parsed_node node = parse(text);
    return !node.parameters.empty() && node.parameters.back().name == "data";
}

bool says_the_same(const std::string &typed, const std::string &printed)
{
    try {
        parsed_node wanted = parse(typed);
        parsed_node found = parse(printed);
        // Other keywords are those of bytes, or stand for one device; of MAC the type is not printed.
        if (wanted.row != found.row || wanted.is("MAC"))
            return true;
        if (!wanted.row->parameters) {
            const auto meant = [](std::string_view value) { return number_in(value); };
            const auto values = parts_of(wanted.arguments, ',');
            const auto others = parts_of(found.arguments, ',');
            return std::equal(values.begin(), values.end(), others.begin(), others.end(),
                              [meant](auto a, auto b) { return meant(a) == meant(b); });
        }
        return std::all_of(wanted.parameters.begin(), wanted.parameters.end(), [&](const parameter &each) {
            const auto &other = found.value(each.name);
            return !each.value || (other && meaning(each.kind, *each.value) == meaning(each.kind, *other));
        });
    } catch (const unclear_node &) {
        return false;
    }
}

} // namespace tool

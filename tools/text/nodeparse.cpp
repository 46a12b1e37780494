// SPDX-License-Identifier: MIT
#include "tools/text/nodeparse.h"

#include "src/base/ascii.h"
#include "src/base/whole_number.h"
#include "tools/text/nodevalues.h"
#include "tools/text/text.h"

namespace tool {

namespace {

constexpr const char *raw_node = "subtype:number data:bytes";
constexpr const char *usb_class = "VID:number PID:number SubClass:number Protocol:number";
constexpr const char *acpi_uid = "UID:number";
constexpr const char *no_parameters = "";
constexpr const char *whole_text = nullptr;

constexpr keyword keywords[] = {
    {"Path", "type:number subtype:number data:bytes"},
    {"HardwarePath", raw_node},
    {"Pci", "Device:number Function:number"},
    {"pcCard", "Function:number"},
    {"MemoryMapped", "EfiMemoryType:number StartingAddress:number EndingAddress:number"},
    {"VenHw", "GUID:guid Data:bytes"},
    {"Ctrl", "Controller:number"},
    {"AcpiPath", raw_node},
    {"Acpi", "HID:eisa UID:number"},
    {"PciRoot", acpi_uid},
    {"PcieRoot", acpi_uid},
    {"Floppy", acpi_uid},
    {"Keyboard", acpi_uid},
    {"Serial", acpi_uid},
    {"ParallelPort", acpi_uid},
    {"AcpiEx", "HID:eisa CID:eisa UID:number HIDSTR:text CIDSTR:text UIDSTR:text"},
    {"AcpiExp", "HID:eisa CID:eisa CIDSTR:text"},
    {"AcpiAdr", whole_text},
    {"MessagingPath", raw_node},
    {"Ata", "Controller:ata_channels Drive:ata_drives LUN:number"},
    {"Scsi", "PUN:number LUN:number"},
    {"Fibre", "WWN:number LUN:number"},
    {"FibreEx", "WWN:bytes LUN:bytes"},
    {"I1394", "GUID:bytes"},
    {"USB", "Port:number Interface:number"},
    {"I2O", "TID:number"},
    {"Infiniband", "Flags:number GUID:bytes ServiceId:number TargetId:number DeviceId:number"},
    {"VenMsg", "GUID:guid Data:bytes"},
    {"VenPcAnsi", no_parameters},
    {"VenVt100", no_parameters},
    {"VenVt100Plus", no_parameters},
    {"VenUtf8", no_parameters},
    {"UartFlowCtrl", "Value:uart_flow_controls"},
    {"SAS", "Address:number LUN:number RTP:number SASSATA:word Location:Internal|External "
            "Connect:Direct|Expanded DriveBay:number Reserved:number"},
    {"SasEx", "Address:digits LUN:digits RTP:number SASSATA:word Location:Internal|External "
              "Connect:Direct|Expanded DriveBay:number"},
    {"DebugPort", no_parameters},
    {"MAC", "MacAddr:bytes IfType:number"},
    {"IPv4", "RemoteIp:address Protocol:word Type:DHCP|Static LocalIp:address GatewayIPAddress:address "
             "SubnetMask:address"},
    {"IPv6", "RemoteIp:address Protocol:word Type:number LocalIp:address GatewayIPAddress:address"},
    {"Uart", "Baud:number DataBits:number Parity:uart_parities,Default|No,None|Even|Odd|Mark|Space "
             "StopBits:uart_stop_bits"},
    {"UsbClass", "VID:number PID:number Class:number SubClass:number Protocol:number"},
    {"UsbAudio", usb_class},
    {"UsbCDCControl", usb_class},
    {"UsbHID", usb_class},
    {"UsbImage", usb_class},
    {"UsbPrinter", usb_class},
    {"UsbMassStorage", usb_class},
    {"UsbHub", usb_class},
    {"UsbCDCData", usb_class},
    {"UsbSmartCard", usb_class},
    {"UsbVideo", usb_class},
    {"UsbDiagnostic", usb_class},
    {"UsbWireless", usb_class},
    {"UsbDeviceFirmwareUpdate", usb_class},
    {"UsbIrdaBridge", usb_class},
    {"UsbTestAndMeasurement", usb_class},
    {"UsbWwid", "VID:number PID:number InterfaceNumber:number WWID:text"},
    {"Unit", "LUN:number"},
    {"Sata", "HPN:number PMPN:number LUN:number"},
    {"iSCSI", "TargetName:text PortalGroup:number LUN:bytes HeaderDigest:word DataDigest:word "
              "Authentication:word Protocol:word"},
    {"Vlan", "VlanId:number"},
    {"MediaPath", raw_node},
    {"HD", "Partition:number Type:partition_formats,? Signature:guid? Start:number Size:number"},
    {"CDROM", "Entry:number Start:number Size:number"},
    {"VenMedia", "GUID:guid Data:bytes"},
    {"Media", "GUID:guid"},
    {"Offset", "StartingOffset:number EndingOffset:number"},
    {"BbsPath", raw_node},
    {"BBS", "Type:bbs_device_types,unknown Id:text Flags:number"},
};

std::vector<parameter> parameters_of(const keyword &row)
{
    constexpr size_t many = 8;
    std::vector<parameter> all;
    all.reserve(many);
    for (std::string_view rest = row.parameters; !rest.empty();) {
        const std::string_view each = rest.substr(0, rest.find(' '));
        rest.remove_prefix(std::min(each.size() + 1, rest.size()));
        const size_t colon = each.find(':');
        all.push_back({each.substr(0, colon), each.substr(colon + 1), std::nullopt, false});
    }
    return all;
}

void read_field(std::string_view field, size_t place, parsed_node *node)
{
    const size_t equals = field.find('=');
    const bool named = equals != std::string_view::npos;
    const bool any_named = std::any_of(node->parameters.begin(), node->parameters.end(),
                                       [](const auto &each) { return each.value && !each.by_place; });
    parameter *parameter = nullptr;
    if (named) {
        const auto found =
            std::find_if(node->parameters.begin(), node->parameters.end(),
                         [&](const auto &each) { return ovra::alike(each.name, field.substr(0, equals)); });
        if (found == node->parameters.end())
            refuse(in_quotes(field.substr(0, equals)) + " is not a parameter of " +
                   std::string(node->row->name));
        parameter = &*found;
    } else {
        if (place >= node->parameters.size())
            refuse(std::string(node->row->name) + " has too many arguments");
        if (any_named)
            refuse("an argument without a name cannot follow one with a name");
        if (field.empty()) // left to its default
            return;
        parameter = &node->parameters[place];
    }
    if (parameter->value)
        refuse(std::string(parameter->name) + " is given twice");
    parameter->value.emplace(named ? field.substr(equals + 1) : field);
    parameter->by_place = !named;
    if (is_of_kind(parameter->kind, *parameter->value))
        return;
    const bool octal = parameter->value->starts_with('0') && ovra::whole_number<uint64_t>(*parameter->value);
    refuse(std::string(parameter->name) + ": " + in_quotes(*parameter->value) +
           (octal ? " would be read as an octal number" : " cannot be taken as it stands"));
}

void read_arguments(parsed_node *node)
{
    const bool may_have_blanks = node->is("BBS");
    for (const char c : node->arguments) {
        const auto code = static_cast<unsigned char>(c);
        if (code < ' ' || code == 0x7f || (c == ' ' && !may_have_blanks))
            refuse("it has a blank or a control character");
        if (c == '"') // other programs put strings in quotes; here they would become part of the string
            refuse("strings stand without quotes");
    }
    if (!node->row->parameters || node->arguments.empty())
        return;
    size_t place = 0;
    for (const std::string_view field : parts_of(node->arguments, ','))
        read_field(field, place++, node);
}

} // namespace

void refuse(const std::string &why)
{
    throw unclear_node(why);
}

std::string with_parentheses(const std::string &text)
{
    return ovra::alike(text, "DebugPort") ? text + "()" : text;
}

bool is_keyword(std::string_view name)
{
    return std::any_of(std::begin(keywords), std::end(keywords),
                       [name](const keyword &each) { return ovra::alike(each.name, name); });
}

parsed_node parse(const std::string &typed)
{
    const std::string text = with_parentheses(typed);
    const size_t open = text.find('(');
    const size_t close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open)
        refuse("it is not a keyword with parentheses");
    const std::string_view rest = std::string_view(text).substr(close + 1);
    if (rest.starts_with(','))
        refuse("what follows the comma is another instance; a text holds one");
    if (!rest.empty())
        refuse(in_quotes(rest) + " after it belongs to no node");
    const std::string_view name = std::string_view(text).substr(0, open);
    const auto row = std::find_if(std::begin(keywords), std::end(keywords),
                                  [&](const keyword &each) { return ovra::alike(each.name, name); });
    if (row == std::end(keywords))
        refuse(in_quotes(name) + " is not a keyword");
    parsed_node node;
    node.row = row;
    node.arguments = text.substr(open + 1, close - open - 1);
    if (row->parameters)
        node.parameters = parameters_of(*row);
    read_arguments(&node);
    return node;
}

std::string text_of(const parsed_node &node)
{
    std::string text(node.row->name);
    char before = '(';
    for (const parameter &parameter : node.parameters) {
        if (!parameter.value)
            continue;
        ((((text += before) += parameter.name) += '=') += *parameter.value);
        before = ',';
    }
    return text += before == '(' ? "()" : ")";
}

} // namespace tool

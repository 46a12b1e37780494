// SPDX-License-Identifier: MIT
#include "tools/ovra/nodetext.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "src/base/ids.h"
#include "src/base/nodes.h"
#include "src/base/words.h"

namespace tool {

namespace {

// A keyword and its parameters, each as name and kind, separated by blanks. The kinds:
//   number   decimal, or hexadecimal behind 0x
//   digits   a hexadecimal number with or without 0x
//   bytes    pairs of hexadecimal digits
//   guid, eisa, address, text
//   word     a word that the library knows, or a number
//   guid?    a GUID or a number
//   A|B,b|C  words that stand for 0, 1 and 2, or a number; behind a comma another word for the same
//   @list    the words of a list that the library has, or a number; also as the last one of such words
struct keyword {
    const char *name;
    const char *parameters;
};

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
    {"Ata", "Controller:@channel Drive:@drive LUN:number"},
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
    {"UartFlowCtrl", "Value:@flow_control"},
    {"SAS", "Address:number LUN:number RTP:number SASSATA:word Location:Internal|External "
            "Connect:Direct|Expanded DriveBay:number Reserved:number"},
    {"SasEx", "Address:digits LUN:digits RTP:number SASSATA:word Location:Internal|External "
              "Connect:Direct|Expanded DriveBay:number"},
    {"DebugPort", no_parameters},
    {"MAC", "MacAddr:bytes IfType:number"},
    {"IPv4", "RemoteIp:address Protocol:word Type:DHCP|Static LocalIp:address GatewayIPAddress:address "
             "SubnetMask:address"},
    {"IPv6", "RemoteIp:address Protocol:word Type:number LocalIp:address GatewayIPAddress:address"},
    {"Uart", "Baud:number DataBits:number Parity:D,Default|N,No,None|E,Even|O,Odd|M,Mark|S,Space "
             "StopBits:@stop_bits"},
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
    {"HD", "Partition:number Type:?|@partition Signature:guid? Start:number Size:number"},
    {"CDROM", "Entry:number Start:number Size:number"},
    {"VenMedia", "GUID:guid Data:bytes"},
    {"Media", "GUID:guid"},
    {"Offset", "StartingOffset:number EndingOffset:number"},
    {"BbsPath", raw_node},
    {"BBS", "Type:unknown|@boot_device Id:text Flags:number"},
};

struct parameter {
    std::string_view name;
    std::string_view kind;
    std::optional<std::string> value; // nothing: left to its default
    bool by_place = false;
};

struct parsed_node {
    const keyword *row = nullptr;
    std::string arguments;
    std::vector<parameter> parameters;

    bool is(std::string_view name) const { return name == row->name; }

    parameter &operator[](std::string_view name)
    {
        return *std::find_if(parameters.begin(), parameters.end(),
                             [name](const parameter &parameter) { return parameter.name == name; });
    }
    const std::optional<std::string> &value(std::string_view name) { return (*this)[name].value; }
};

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool is_hex_digit(char c)
{
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

constexpr char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lower(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) { return lower(c); });
    return result;
}

bool same(std::string_view a, std::string_view b)
{
    return lower(a) == lower(b);
}

std::vector<std::string_view> parts_of(std::string_view text, char at)
{
    std::vector<std::string_view> parts;
    for (;;) {
        const size_t end = std::min(text.find(at), text.size());
        parts.push_back(text.substr(0, end));
        if (end == text.size())
            return parts;
        text.remove_prefix(end + 1);
    }
}

bool are_hex_digits(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), is_hex_digit);
}

std::optional<uint64_t> number_in(std::string_view text, int base)
{
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

bool is_hexadecimal(std::string_view text)
{
    return text.size() > 2 && text[0] == '0' && lower(text[1]) == 'x';
}

// Nothing for a number that the library takes for another: it reads 010 as 8, and -1 as the largest number.
std::optional<uint64_t> number_in(std::string_view text)
{
    if (is_hexadecimal(text))
        return number_in(text.substr(2), 16);
    const auto value = text.empty() || is_digit(text[0]) ? number_in(text, 10) : std::nullopt;
    return value && text[0] == '0' && *value > 7 ? std::nullopt : value;
}

std::span<const ovra::word> list_of(std::string_view name)
{
    static constexpr struct {
        std::string_view name;
        std::span<const ovra::word> words;
    } lists[] = {{"channel", ovra::ata_channels},
                 {"drive", ovra::ata_drives},
                 {"flow_control", ovra::uart_flow_controls},
                 {"stop_bits", ovra::uart_stop_bits},
                 {"partition", ovra::partition_formats},
                 {"boot_device", ovra::bbs_device_types}};
    for (const auto &list : lists) {
        if (list.name == name)
            return list.words;
    }
    return {};
}

bool is_list(std::string_view kind)
{
    return kind.starts_with('@') || kind.find('|') != std::string_view::npos;
}

std::optional<uint64_t> listed_value(std::string_view list, std::string_view word)
{
    uint64_t value = 0;
    for (const std::string_view words : parts_of(list, '|')) {
        if (words.starts_with('@')) {
            const ovra::word *known = ovra::by_text(list_of(words.substr(1)), word);
            return known ? std::optional<uint64_t>(known->value) : std::nullopt;
        }
        for (const std::string_view each : parts_of(words, ',')) {
            if (same(each, word))
                return value;
        }
        ++value;
    }
    return std::nullopt;
}

bool is_eisa_id(std::string_view text)
{
    return text == "0" ||
           (text.size() == 7 && are_hex_digits(text.substr(3)) &&
            std::all_of(text.begin(), text.begin() + 3, [](char c) { return c >= 'A' && c <= 'Z'; }));
}

bool is_address(std::string_view text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return is_hex_digit(c) || c == '.' || c == ':'; });
}

bool is_word(std::string_view text)
{
    return !text.empty() && !is_digit(text[0]) && std::all_of(text.begin(), text.end(), [](char c) {
        return is_digit(c) || c == '_' || (lower(c) >= 'a' && lower(c) <= 'z');
    });
}

bool is_of_kind(std::string_view kind, const std::string &text)
{
    if (kind == "number")
        return number_in(text).has_value();
    if (kind == "digits")
        return number_in(is_hexadecimal(text) ? std::string_view(text).substr(2) : text, 16).has_value();
    if (kind == "bytes")
        return are_hex_digits(text) && text.size() % 2 == 0;
    if (kind == "guid")
        return ovra::parse_guid(text).has_value();
    if (kind == "guid?")
        return ovra::parse_guid(text) || number_in(text);
    if (kind == "eisa")
        return is_eisa_id(text);
    if (kind == "address")
        return is_address(text);
    if (kind == "word")
        return is_word(text) || number_in(text);
    if (is_list(kind))
        return listed_value(kind, text) || number_in(text);
    return to_ucs2(text).has_value();
}

// What a value says, whichever way it is written.
std::string meaning(std::string_view kind, const std::string &text)
{
    if (is_list(kind)) {
        const auto value = listed_value(kind, text);
        return std::to_string(value ? *value : number_in(text).value_or(UINT64_MAX));
    }
    if (const auto value = kind == "number" || kind == "guid?" ? number_in(text) : std::nullopt)
        return std::to_string(*value);
    if (kind == "eisa") // of which the library prints no letters
        return text == "0" ? "0000" : lower(text.substr(3));
    return kind == "text" ? text : lower(text);
}

[[noreturn]] void refuse(const std::string &why)
{
    throw unclear_node(why);
}

std::vector<parameter> parameters_of(const keyword &row)
{
    std::vector<parameter> all;
    for (const std::string_view each : parts_of(row.parameters, ' ')) {
        if (each.empty())
            continue;
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
                         [&](const auto &each) { return same(each.name, field.substr(0, equals)); });
        if (found == node->parameters.end())
            refuse(in_quotes(field.substr(0, equals)) + " is no parameter of " + node->row->name);
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
    parameter->value = std::string(named ? field.substr(equals + 1) : field);
    parameter->by_place = !named;
    if (is_of_kind(parameter->kind, *parameter->value))
        return;
    const bool octal = parameter->value->starts_with('0') && number_in(*parameter->value, 10);
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

// The library prints one keyword without parentheses, and does not read it so.
std::string with_parentheses(const std::string &text)
{
    return same(text, "DebugPort") ? text + "()" : text;
}

parsed_node parse(const std::string &typed)
{
    const std::string text = with_parentheses(typed);
    const size_t open = text.find('(');
    const size_t close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open)
        refuse("it is no keyword with parentheses");
    const std::string_view rest = std::string_view(text).substr(close + 1);
    if (rest.starts_with(','))
        refuse("what stands behind the comma is another instance of the path, and a text holds one");
    if (!rest.empty())
        refuse(in_quotes(rest) + " behind it belongs to no node");
    const std::string_view name = std::string_view(text).substr(0, open);
    const auto row = std::find_if(std::begin(keywords), std::end(keywords),
                                  [&](const keyword &each) { return same(each.name, name); });
    if (row == std::end(keywords))
        refuse(in_quotes(name) + " is no keyword");
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
    std::vector<std::string> fields;
    for (const parameter &parameter : node.parameters) {
        if (parameter.value)
            fields.push_back(std::string(parameter.name) + '=' + *parameter.value);
    }
    return std::string(node.row->name) + '(' + join(fields, ",") + ')';
}

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
    return ovra::eisa_id(text->substr(0, 3), static_cast<uint16_t>(number_in(text->substr(3), 16).value()));
}

// The library reads UID as an identifier, prints it as a number, and prints the strings in another order than
// it reads them.
std::string acpi_ex(parsed_node &node)
{
    for (const char *name : {"CIDSTR", "UIDSTR"}) {
        if (node[name].value && node[name].by_place)
            refuse("CIDSTR and UIDSTR are not told apart by their places; write CIDSTR=... and UIDSTR=...");
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
    const auto meant = listed_value(node["Type"].kind, *type);
    const uint64_t format = meant ? *meant : number_in(*type).value_or(0);
    const ovra::word *word = format <= UINT16_MAX
                                 ? ovra::by_value(ovra::partition_formats, static_cast<unsigned>(format))
                                 : nullptr;
    if (!word)
        refuse("Type is MBR or GPT");
    type = word->text;
}

// The library drops SAS or SATA where Location is a number, and makes no sense of a drive bay. Firmware
// writes zeros for what is not there.
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
        refuse("a drive bay would be stored and not be told of");
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
            refuse(in_quotes(value) + " is no number");
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

std::string raw_text(byte_view node)
{
    static constexpr const char *names[] = {nullptr,         "HardwarePath", "AcpiPath",
                                            "MessagingPath", "MediaPath",    "BbsPath"};
    const std::string data = hex(node.subspan(2));
    if (node[0] == 0 || node[0] >= std::size(names))
        return format("Path(0x%x,0x%x,%s)", node[0], node[1], data.c_str());
    return format(node[0] == UEFI_MESSAGING ? "%s(%u,%s)" : "%s(0x%x,%s)", names[node[0]], node[1],
                  data.c_str());
}

namespace {

std::string eisa_text(uint32_t id)
{
    if (id == 0)
        return "0";
    std::string text;
    for (unsigned place = 0; place < 3; ++place)
        text += ovra::eisa_letter(id, place);
    return text + format("%04X", ovra::eisa_product(id));
}

std::string acpi_ex_text(const uefi_acpiex_device_path_t &node)
{
    std::string text =
        "AcpiEx(" + eisa_text(node.hid) + ',' + eisa_text(node.cid) + format(",0x%X", node.uid);
    const byte_view strings = ovra::tail(node);
    std::string_view rest(reinterpret_cast<const char *>(strings.data()), strings.size());
    for (const char *name : {"HIDSTR", "UIDSTR", "CIDSTR"}) {
        const size_t end = std::min(rest.find('\0'), rest.size());
        if (end != 0)
            text += std::string(",") + name + '=' + std::string(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return text + ')';
}

} // namespace

std::vector<std::string> fuller_texts(byte_view node)
{
    if (const auto *mac = ovra::as<uefi_macaddr_device_path_t>(node)) {
        const size_t length = mac->iff_type <= 1 ? 6 : sizeof mac->mac_addr;
        return {format("MAC(%s,0x%x)", hex({mac->mac_addr, length}).c_str(), mac->iff_type)};
    }
    if (const auto *acpi = ovra::as<uefi_acpi_device_path_t>(node))
        return {format("Acpi(%s,0x%X)", eisa_text(acpi->hid).c_str(), acpi->uid)};
    if (const auto *acpi = ovra::as<uefi_acpiex_device_path_t>(node))
        return {acpi_ex_text(*acpi)};
    return {};
}

} // namespace tool

// SPDX-License-Identifier: MIT
#include "tools/text/uefitext.h"

#include <algorithm>
#include <cstring>

#include "src/base/guid.h"
#include "src/base/nodes.h"
#include "src/base/words.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

// The fields of a node in their order. What is read beyond the end is zeros. Whether that was, or another
// text would be read back, is remembered.
class fields {
public:
    explicit fields(byte_view node) : rest(node.subspan(sizeof(uefi_device_path_t))) {}

    byte_view take(size_t size)
    {
        if (rest.size() < size) {
            complete = false;
            return {};
        }
        const byte_view taken = rest.first(size);
        rest = rest.subspan(size);
        return taken;
    }
    uint64_t number(size_t size)
    {
        uint64_t value = 0;
        const byte_view taken = take(size);
        for (size_t at = 0; at < taken.size(); ++at)
            value |= static_cast<uint64_t>(taken[at]) << 8 * at;
        return value;
    }
    std::string hex_number(size_t size)
    {
        return format("0x%llX", static_cast<unsigned long long>(number(size)));
    }
    std::string guid()
    {
        const auto read = ovra::guid_of(take(sizeof(EFI_GUID)));
        return read ? std::string(ovra::guid_text(*read, ovra::letters::upper).view()) : std::string();
    }
    // The text up to a terminator, or to the end. One that is shown with escapes would be read as another.
    std::string text(size_t most = SIZE_MAX)
    {
        const byte_view all = take(std::min(most, rest.size()));
        const auto *begin = reinterpret_cast<const char *>(all.data());
        std::string read = all.empty() ? std::string() : std::string(begin, strnlen(begin, all.size()));
        complete = complete && printable(read) == read;
        return read;
    }

    byte_view rest;
    bool complete = true;
};

std::string upper_hex(byte_view data)
{
    std::string text;
    for (const uint8_t byte : data)
        text += format("%02X", byte);
    return text;
}

std::string address(byte_view bytes)
{
    std::string text;
    const bool is_long = bytes.size() == 16;
    for (size_t at = 0; at < bytes.size(); ++at) {
        if (at != 0 && (!is_long || at % 2 == 0))
            text += is_long ? ":" : ".";
        text += format(is_long ? "%02x" : "%u", bytes[at]); // NOLINT: one of the two literals
    }
    return text;
}

std::string protocol(uint64_t number)
{
    constexpr uint64_t tcp = 6; // RFC 1700
    constexpr uint64_t udp = 17;
    if (number == tcp)
        return "TCP";
    return number == udp ? "UDP" : format("0x%llX", static_cast<unsigned long long>(number));
}

// Firmware prints the octets from the last one on; people and sysfs write an EUI-64 as it is in the node.
std::string nvme(fields &of)
{
    const std::string number = of.hex_number(4);
    std::string octets;
    const byte_view in_order = of.take(8);
    for (auto octet = in_order.rbegin(); octet != in_order.rend(); ++octet)
        octets += (octets.empty() ? "" : "-") + format("%02X", *octet);
    return "NVMe(" + number + ',' + octets + ')';
}

std::string ufs(fields &of)
{
    const std::string target = of.hex_number(1);
    return "UFS(" + target + ',' + of.hex_number(1) + ')';
}

std::string sd(fields &of)
{
    return "SD(" + of.hex_number(1) + ')';
}

std::string emmc(fields &of)
{
    return "eMMC(" + of.hex_number(1) + ')';
}

std::string uri(fields &of)
{
    const std::string text = of.text();
    of.complete = of.complete && text.find_first_of("\\ ") == std::string::npos; // in no URI
    return "Uri(" + text + ')';
}

std::string wifi(fields &of)
{
    constexpr size_t longest_ssid = 32;
    const std::string name = of.text(longest_ssid);
    return "Wi-Fi(" + name + ')';
}

// Local address, remote address, two ports, protocol, origin; the rest came with later versions of UEFI.
std::string ipv4_text(fields &of)
{
    const std::string local = address(of.take(4));
    const std::string remote = address(of.take(4));
    of.take(4);
    const std::string with = protocol(of.number(2));
    std::string text =
        "IPv4(" + remote + ',' + with + ',' + (of.number(1) != 0 ? "Static" : "DHCP") + ',' + local;
    if (!of.rest.empty()) {
        text += ',' + address(of.take(4));
        text += ',' + address(of.take(4));
    }
    return text + ')';
}

std::string ipv6_text(fields &of)
{
    static constexpr const char *origins[] = {"Static", "StatelessAutoConfigure", "StatefulAutoConfigure"};
    const std::string local = address(of.take(16));
    const std::string remote = address(of.take(16));
    of.take(4);
    const std::string with = protocol(of.number(2));
    const uint64_t origin = of.number(1);
    std::string text =
        "IPv6(" + remote + ',' + with + ',' +
        (origin < std::size(origins) ? origins[origin] : format("0x%X", static_cast<unsigned>(origin))) +
        ',' + local;
    if (!of.rest.empty()) {
        text += ',' + of.hex_number(1);
        text += ',' + address(of.take(16));
    }
    return text + ')';
}

constexpr char ven_hw[] = "VenHw";
constexpr char ven_msg[] = "VenMsg";
constexpr char ven_media[] = "VenMedia";
constexpr char media_protocol[] = "Media";
constexpr char volume[] = "Fv";
constexpr char volume_file[] = "FvFile";

template <const char *keyword>
std::string vendor(fields &of)
{
    const std::string guid = of.guid();
    const std::string data = upper_hex(of.take(of.rest.size()));
    return keyword + ('(' + guid) + (data.empty() ? "" : ',' + data) + ')';
}

// A vendor's node as the UEFI specification defines it; details of a topology are left to the vendor.
std::string messaging_vendor(fields &of)
{
    constexpr EFI_GUID sas = {0xd487ddb4, 0x008b, 0x11d9, {0xaf, 0xdc, 0x00, 0x10, 0x83, 0xff, 0xca, 0x4d}};
    fields copy = of;
    const auto guid = ovra::guid_of(copy.take(sizeof(EFI_GUID)));
    const std::string reserved = copy.hex_number(4);
    const std::string address = copy.hex_number(8);
    const std::string unit = copy.hex_number(8);
    const uint64_t topology = copy.number(2);
    const std::string port = copy.hex_number(2);
    if (!copy.complete || !ovra::same_guid(*guid, sas) || topology != 0)
        return vendor<ven_msg>(of);
    return "SAS(" + address + ',' + unit + ',' + port + ",NoTopology,0,0,0," + reserved + ')';
}

std::string unit(fields &of)
{
    return "Unit(" + of.hex_number(1) + ')';
}

template <const char *keyword>
std::string only_guid(fields &of)
{
    return keyword + ('(' + of.guid()) + ')';
}

std::string cdrom(fields &of)
{
    const std::string entry = of.hex_number(4);
    const std::string start = of.hex_number(8);
    return "CDROM(" + entry + ',' + start + ',' + of.hex_number(8) + ')';
}

std::string relative_offset(fields &of)
{
    of.take(4);
    const std::string start = of.hex_number(8);
    return "Offset(" + start + ',' + of.hex_number(8) + ')';
}

std::string ram_disk(fields &of)
{
    static constexpr struct {
        const char *guid;
        const char *keyword;
    } kinds[] = {{"77AB535A-45FC-624B-5560-F7B281D1F96E", "VirtualDisk"},
                 {"3D5ABD30-4175-87CE-6D64-D2ADE523C4BB", "VirtualCD"},
                 {"5CEA02C9-4D07-69D3-269F-4496FBE096F9", "PersistentVirtualDisk"},
                 {"08018188-42CD-BB48-100F-5387D53DED3D", "PersistentVirtualCD"}};
    const std::string start = of.hex_number(8);
    const std::string end = of.hex_number(8);
    const std::string guid = of.guid();
    const std::string values = start + ',' + end + ',' + std::to_string(of.number(2));
    for (const auto &kind : kinds) {
        if (guid == kind.guid)
            return std::string(kind.keyword) + '(' + values + ')';
    }
    return "RamDisk(" + values + ',' + guid + ')';
}

std::string bbs(fields &of)
{
    const auto type = static_cast<unsigned>(of.number(2));
    const std::string flags = of.hex_number(2);
    const ovra::word *word = ovra::by_value(ovra::bbs_device_types, type);
    const std::string kind = word ? word->text : format("0x%X", type);
    return "BBS(" + kind + ',' + of.text() + ',' + flags + ')';
}

constexpr struct {
    uint8_t type;
    uint8_t subtype;
    std::string (*text)(fields &);
} kinds[] = {
    {UEFI_HARDWARE, 4, vendor<ven_hw>},
    {UEFI_MESSAGING, 10, messaging_vendor},
    {UEFI_MESSAGING, 12, ipv4_text},
    {UEFI_MESSAGING, 13, ipv6_text},
    {UEFI_MESSAGING, 17, unit},
    {UEFI_MESSAGING, 23, nvme},
    {UEFI_MESSAGING, 24, uri},
    {UEFI_MESSAGING, 25, ufs},
    {UEFI_MESSAGING, 26, sd},
    {UEFI_MESSAGING, 28, wifi},
    {UEFI_MESSAGING, 29, emmc},
    {UEFI_MEDIA, 2, cdrom},
    {UEFI_MEDIA, 3, vendor<ven_media>},
    {UEFI_MEDIA, 5, only_guid<media_protocol>},
    {UEFI_MEDIA, 6, only_guid<volume_file>},
    {UEFI_MEDIA, 7, only_guid<volume>},
    {UEFI_MEDIA, 8, relative_offset},
    {UEFI_MEDIA, 9, ram_disk},
    {UEFI_BIOS, 1, bbs},
};

} // namespace

std::optional<std::string> uefi_text(byte_view node)
{
    if (node.size() < sizeof(uefi_device_path_t))
        return std::nullopt;
    for (const auto &kind : kinds) {
        if (kind.type != node[0] || kind.subtype != node[1])
            continue;
        fields of(node);
        std::string text = kind.text(of);
        return of.complete ? std::optional(std::move(text)) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace tool

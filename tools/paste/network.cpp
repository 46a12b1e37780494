// SPDX-License-Identifier: MIT
#include <arpa/inet.h>

#include <algorithm>

#include "src/base/ascii.h"
#include "src/base/whole_number.h"
#include "tools/paste/reading.h"
#include "tools/text/nodeparse.h"
#include "tools/text/nodevalues.h"

namespace tool {

namespace {

constexpr uint8_t ipv4_node = 12;
constexpr uint8_t ipv6_node = 13;
constexpr size_t ipv4_size = 4;
constexpr size_t ipv6_size = 16;
constexpr unsigned firmware_prefix = 64; // what firmware sets where nobody set another one
constexpr char no_ports[] = "0 as both ports";

bytes address_of(std::string_view text, size_t size)
{
    bytes address(size);
    if (inet_pton(size == ipv4_size ? AF_INET : AF_INET6, std::string(text).c_str(), address.data()) != 1)
        refuse(in_quotes(text) + " is not an address");
    return address;
}

uint64_t protocol_of(std::string_view text)
{
    if (ovra::alike(text, "TCP"))
        return 6;
    if (ovra::alike(text, "UDP"))
        return 17;
    return sized_number(text, 2);
}

// An address and perhaps a port, as an efibootmgr up to 17 prints them: "10.0.2.15:68".
struct end_point {
    bytes address;
    uint64_t port = 0;
};

std::optional<end_point> end_point_of(std::string_view text)
{
    end_point read;
    const size_t colon = text.find(':');
    if (colon != std::string_view::npos) {
        const std::string_view digits = text.substr(colon + 1);
        const auto port = ovra::whole_number<uint16_t>(digits);
        if (!port || (digits.size() > 1 && digits.starts_with('0')))
            return std::nullopt;
        read.port = *port;
    }
    const std::string address(text.substr(0, colon));
    for (const std::string_view each : parts_of(address, '.')) {
        const auto value = ovra::whole_number<uint8_t>(each);
        if (!value || (each.size() > 1 && each.starts_with('0')))
            return std::nullopt;
        read.address.push_back(*value);
    }
    return read.address.size() == ipv4_size ? std::optional(read) : std::nullopt;
}

// The addresses of both ends stand one after the other without anything between.
reading joined_ipv4(const node_fields &fields)
{
    require_count(fields, 3, 3);
    const std::string_view both = fields.values[0];
    constexpr std::string_view arrow = "<->"; // of old versions
    constexpr size_t longest = 64;
    const size_t between = both.find(arrow);
    std::vector<std::pair<end_point, end_point>> splits;
    std::string readings;
    for (size_t at = 1; at < std::min(both.size(), longest); ++at) {
        if (between != std::string_view::npos && at != between)
            continue;
        const auto local = end_point_of(both.substr(0, at));
        const auto remote = end_point_of(both.substr(at == between ? at + arrow.size() : at));
        if (!local || !remote)
            continue;
        splits.emplace_back(*local, *remote);
        readings += (readings.empty() ? "" : " or ") + std::string(both.substr(0, at)) + " and " +
                    std::string(both.substr(at));
    }
    if (splits.empty())
        refuse(in_quotes(both) + " is not two addresses");
    if (splits.size() > 1)
        refuse("its addresses may be " + readings);
    const auto &[local, remote] = splits.front();
    reading read;
    read.node = new_node(3, ipv4_node)
                    .append(local.address)
                    .append(remote.address)
                    .number(local.port, 2)
                    .number(remote.port, 2)
                    .number(hexadecimal_of(fields.values[1], 2), 2)
                    .number(hexadecimal_of(fields.values[2], 1), 1)
                    .number(0, 2 * ipv4_size)
                    .done();
    read.assumed = "gateway and subnet mask 0.0.0.0";
    return read;
}

std::vector<reading> read_ipv4(const node_fields &fields)
{
    const auto &values = fields.values;
    if (std::count(values[0].begin(), values[0].end(), '.') > 3 ||
        (fields.count() == 3 && number_in(values[2])))
        return {joined_ipv4(fields)};
    const auto node = [&](std::string_view local, uint64_t protocol, uint64_t is_static) {
        return new_node(3, ipv4_node)
            .append(address_of(local, ipv4_size))
            .append(address_of(values[0], ipv4_size))
            .number(0, 4)
            .number(protocol, 2)
            .number(is_static, 1);
    };
    if (fields.count() == 1) {
        reading read{of_firmware, node("0.0.0.0", 0, 0).number(0, 2 * ipv4_size).done()};
        read.assumed = "no protocol, DHCP, and 0.0.0.0 as local address, gateway and subnet mask";
        return {read};
    }
    const auto type =
        fields.count() == 4 || fields.count() == 6 ? index_of(values[2], {"DHCP", "Static"}) : std::nullopt;
    if (!type || values[1].empty() || values[3].empty())
        return {};
    // Of nodes of an older layout, without gateway and mask, firmware prints no more.
    reading read = {of_firmware};
    new_node whole = node(values[3], protocol_of(values[1]), *type);
    if (fields.count() == 6) {
        read.by = any_dialect;
        whole.append(address_of(values[4], ipv4_size)).append(address_of(values[5], ipv4_size));
    }
    read.node = whole.done();
    if (values[0] != "0.0.0.0")
        read.assumed = no_ports;
    return {read};
}

std::vector<reading> read_ipv6(const node_fields &fields)
{
    const auto &values = fields.values;
    const bytes none(ipv6_size);
    const auto node = [](const bytes &local, const bytes &remote, uint64_t protocol, uint64_t origin) {
        return new_node(3, ipv6_node)
            .append(local)
            .append(remote)
            .number(0, 4)
            .number(protocol, 2)
            .number(origin, 1);
    };
    reading read;
    if (values[0].starts_with('[')) {
        require_count(fields, 3, 3);
        if (values[0] != "[::]:<->[::]:")
            refuse("efibootmgr leaves out parts of such addresses");
        read.node = node(none, none, hexadecimal_of(values[1], 2), hexadecimal_of(values[2], 1))
                        .number(firmware_prefix, 1)
                        .append(none)
                        .done();
        read.assumed = "a prefix of 64 bits, and :: as gateway";
        return {read};
    }
    const bytes remote = address_of(values[0], ipv6_size);
    if (fields.count() == 1) {
        read.by = of_firmware;
        read.node = node(none, remote, 0, 0).number(firmware_prefix, 1).append(none).done();
        read.assumed =
            "no protocol, a static address, a prefix of 64 bits, and :: as local address and gateway";
        return {read};
    }
    if (fields.count() != 4 && fields.count() != 6)
        return {};
    const auto word = index_of(values[2], {"Static", "StatelessAutoConfigure", "StatefulAutoConfigure"});
    if (!word) // ovra has numbers too, but one layout
        read.by = of_firmware;
    const uint64_t origin = word ? *word : sized_number(values[2], 1);
    new_node built = node(address_of(values[3], ipv6_size), remote, protocol_of(values[1]), origin);
    if (fields.count() == 6)
        built.number(sized_number(values[4], 1), 1).append(address_of(values[5], ipv6_size));
    read.node = built.done();
    if (remote != none)
        read.assumed = no_ports;
    return {read};
}

bytes dns_bytes(const node_fields &fields)
{
    const bool is_v6 = fields.values[0].find(':') != std::string_view::npos;
    new_node node(3, 31);
    node.number(is_v6, 1);
    for (const std::string_view value : fields.values) {
        if (value.starts_with('['))
            refuse("efibootmgr leaves out parts of such addresses");
        bytes address = address_of(value, is_v6 ? ipv6_size : ipv4_size);
        address.resize(ipv6_size);
        node.append(address);
    }
    return node.done();
}

// What stands escaped in a text is not in a URI itself.
bytes uri_bytes(const std::string &uri)
{
    if (std::any_of(uri.begin(), uri.end(),
                    [](char c) { return c == '\\' || static_cast<unsigned char>(c) <= ' '; }))
        refuse("a URI has no backslash, blank or control character");
    return new_node(3, 24).text(uri).done();
}

// Bytes with colons between them, each of one digit or two.
bytes separated(std::string_view text)
{
    bytes all;
    for (const std::string_view each : parts_of(text, ':'))
        all.push_back(static_cast<uint8_t>(hexadecimal_of(each.size() <= 2 ? each : "", 1)));
    return all;
}

// efibootmgr prints the bytes, others the name that they are.
bytes wifi_bytes(const std::string &name)
{
    constexpr size_t size = 32;
    constexpr size_t printed = 3 * size - 1;
    bytes id;
    if (name.size() == printed && std::count(name.begin(), name.end(), ':') == size - 1)
        id = separated(name);
    else
        id.assign(name.begin(), name.end());
    if (id.size() > size)
        refuse("the name of a wireless network has 32 bytes at most");
    id.resize(size);
    return new_node(3, 28).append(id).done();
}

bytes bluetooth_bytes(const node_fields &fields, bool low_energy)
{
    constexpr size_t size = 6;
    require_count(fields, low_energy ? 2 : 1, low_energy ? 2 : 1);
    const std::string_view text = fields.values[0];
    const bytes address = text.find(':') == std::string_view::npos ? bytes_of_digits(text) : separated(text);
    if (address.size() != size)
        refuse("an address has six bytes");
    new_node node(3, low_energy ? 30 : 27);
    node.append(address);
    if (low_energy)
        node.number(sized_number(fields.values[1], 1), 1);
    return node.done();
}

} // namespace

std::vector<reading> read_network_node(const node_fields &fields)
{
    if (fields.is("IPv4"))
        return read_ipv4(fields);
    if (fields.is("IPv6"))
        return read_ipv6(fields);
    if (fields.is("Dns"))
        return {{any_dialect, dns_bytes(fields)}};
    if (fields.is("Uri"))
        return {{any_dialect, uri_bytes(fields.arguments)}};
    if (fields.is("Wi-Fi"))
        return {{any_dialect, wifi_bytes(fields.arguments)}};
    if (fields.is("Bluetooth") || fields.is("BluetoothLE"))
        return {{any_dialect, bluetooth_bytes(fields, fields.is("BluetoothLE"))}};
    return {};
}

} // namespace tool

// SPDX-License-Identifier: MIT
#include "tools/machine/networkpath.h"

#include <algorithm>
#include <cstring>

#include "src/base/ascii.h"
#include "src/base/nodes.h"
#include "tools/machine/pathnodes.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

constexpr size_t mac_size = 6;
constexpr uint8_t ethernet = 1;
constexpr uint8_t uri_subtype = 24; // UEFI 2.10, 10.3.4.23
constexpr size_t uri_limit = 4096;

void add(bytes *path, byte_view node)
{
    path->insert(path->end(), node.begin(), node.end());
}

} // namespace

std::optional<bytes> parse_mac(const std::string &text)
{
    std::string digits = text;
    std::replace(digits.begin(), digits.end(), '-', ':');
    auto address = parse_hex(digits);
    return address && address->size() == mac_size ? address : std::nullopt;
}

bool is_boot_uri(const std::string &text)
{
    const char *host = ovra::behind_prefix(text.c_str(), "http://");
    if (!host)
        host = ovra::behind_prefix(text.c_str(), "https://");
    const auto is_visible = [](char c) { return c > ' ' && c < 0x7f; };
    return host && *host != '\0' && *host != '/' && text.size() <= uri_limit &&
           std::all_of(text.begin(), text.end(), is_visible);
}

bytes network_path(const std::optional<bytes> &mac, const std::optional<std::string> &uri)
{
    bytes nodes;
    if (mac) {
        uefi_macaddr_device_path_t card = {};
        card.type = UEFI_MESSAGING;
        card.subtype = ovra::kind_of<uefi_macaddr_device_path_t>.subtype;
        card.len = sizeof card;
        std::copy(mac->begin(), mac->end(), card.mac_addr);
        card.iff_type = ethernet;
        add(&nodes, ovra::bytes_of(card));
        uefi_ipv4_device_path_t address = {};
        address.type = UEFI_MESSAGING;
        address.subtype = ovra::kind_of<uefi_ipv4_device_path_t>.subtype;
        address.len = sizeof address;
        add(&nodes, ovra::bytes_of(address));
    }
    if (uri) {
        const auto length = static_cast<uint16_t>(sizeof(uefi_device_path_t) + uri->size());
        const uefi_device_path_t header = {UEFI_MESSAGING, uri_subtype, length};
        add(&nodes, ovra::bytes_of(header));
        nodes.insert(nodes.end(), uri->begin(), uri->end());
    }
    return with_end(nodes);
}

} // namespace tool

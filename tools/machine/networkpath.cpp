// SPDX-License-Identifier: MIT
#include "tools/machine/networkpath.h"

#include <algorithm>
#include <cstring>

#include "src/base/ascii.h"
#include "src/base/nodes.h"
#include "tools/machine/pathnodes.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

constexpr size_t mac_size = 6;
constexpr uint8_t ethernet = 1;
constexpr uint8_t uri_subtype = 24; // UEFI 2.10, 10.3.4.23
constexpr size_t uri_limit = 4096;

// Of messaging devices, those that hold disks: ATAPI, SCSI, Fibre Channel, LUN, SATA, iSCSI, FibreEx, SAS,
// NVMe, UFS, SD and eMMC (UEFI 2.10, 10.3.4).
constexpr uint8_t storage_subtypes[] = {1, 2, 3, 17, 18, 19, 21, 22, 23, 25, 26, 29};

void add(bytes *path, byte_view node)
{
    path->insert(path->end(), node.begin(), node.end());
}

void add_card(bytes *path, const bytes &mac)
{
    auto card = ovra::new_record<uefi_macaddr_device_path_t>();
    std::copy(mac.begin(), mac.end(), card.mac_addr);
    card.iff_type = ethernet;
    add(path, ovra::bytes_of(card));
}

void add_address(bytes *path)
{
    add(path, ovra::bytes_of(ovra::new_record<uefi_ipv4_device_path_t>()));
}

void add_uri(bytes *path, const std::string &uri)
{
    const auto length = static_cast<uint16_t>(sizeof(uefi_device_path_t) + uri.size());
    const uefi_device_path_t header = {UEFI_MESSAGING, uri_subtype, length};
    add(path, ovra::bytes_of(header));
    path->insert(path->end(), uri.begin(), uri.end());
}

bool is_other_card(byte_view node, const bytes &mac)
{
    const auto *card = ovra::as<uefi_macaddr_device_path_t>(node);
    return card && (card->iff_type != ethernet || !std::equal(mac.begin(), mac.end(), card->mac_addr));
}

bool is_storage(byte_view node)
{
    const auto *header = reinterpret_cast<const uefi_device_path_t *>(node.data());
    return header->type == UEFI_MEDIA || header->type == UEFI_BIOS ||
           (header->type == UEFI_MESSAGING && std::ranges::count(storage_subtypes, header->subtype) != 0);
}

bool is_address(byte_view node)
{
    return ovra::as<uefi_ipv4_device_path_t>(node) || ovra::as<uefi_ipv6_device_path_t>(node);
}

bool is_uri(byte_view node)
{
    const auto *header = reinterpret_cast<const uefi_device_path_t *>(node.data());
    return header->type == UEFI_MESSAGING && header->subtype == uri_subtype;
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
    return network_path_behind(ovra::bytes_of(ovra::end_entire), mac, uri);
}

bytes network_path_behind(byte_view devices, const std::optional<bytes> &mac,
                          const std::optional<std::string> &uri)
{
    const std::vector<byte_view> nodes = instances_of(devices).front();
    const auto has = [&nodes](const auto &is) { return std::any_of(nodes.begin(), nodes.end(), is); };
    if (has(is_storage))
        throw failure("the device path leads to no network card", "Name the hardware of the card alone.");
    if (mac && has([&mac](byte_view node) { return is_other_card(node, *mac); }))
        throw failure("the device path leads to another network card than --mac",
                      "Name one of both addresses, or the hardware alone.");
    if (has(is_uri))
        throw failure("the device path has a URI already", "Name it by --uri alone.");
    const bool has_card =
        has([](byte_view node) { return ovra::as<uefi_macaddr_device_path_t>(node) != nullptr; });

    bytes path;
    for (const byte_view node : nodes)
        add(&path, node);
    if (mac && !has_card)
        add_card(&path, *mac);
    if (mac && !has(is_address))
        add_address(&path);
    if (uri)
        add_uri(&path, *uri);
    return with_end(path);
}

bool has_uri(byte_view path)
{
    const std::vector<byte_view> nodes = instances_of(path).front();
    return std::any_of(nodes.begin(), nodes.end(), is_uri);
}

} // namespace tool

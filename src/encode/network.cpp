// SPDX-License-Identifier: MIT
#include <arpa/inet.h>
#include <strings.h>

#include "src/dpath/build.h"
#include "src/encode/fields.h"
#include "src/encode/get.h"
#include "src/rt/diag.h"

using namespace ovra;

int encode_mac(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    auto node = new_node<uefi_macaddr_device_path_t>();
    if (!node)
        return fail("unable to allocate macaddr dpath\n");
    uint8_t type = 0;
    if (!get_if_given(args, "IfType", &type))
        return -1;
    const bool ethernet = type <= 1;
    hex_bytes address;
    if (!require_hex(args, "MacAddr", ethernet ? 6 : 1, ethernet ? 6 : sizeof node->mac_addr, &address))
        return -1;
    memcpy(node->mac_addr, address.bytes.get(), address.size);
    node->iff_type = type;
    return hand_over(std::move(node), out);
}

namespace {

constexpr word ip_protocols[] = {{"UDP", 17}, {"TCP", 6}};
constexpr word ip_types[] = {{"Static", 1}, {"DHCP", 0}};

// An address in network byte order, which is how it stands in the node.
template <size_t size>
bool convert_address(const char *text, uint8_t (&out)[size])
{
    static_assert(size == sizeof(in_addr) || size == sizeof(in6_addr));
    return inet_pton(size == sizeof(in_addr) ? AF_INET : AF_INET6, text, out) == 1;
}

// An address that may be absent, which leaves zeros.
template <size_t size>
bool get_address(uefi_arg_list_t *args, const char *name, uint8_t (&out)[size], const char *rejected)
{
    const char *text = ovra_get_arg(args, name);
    return !text || convert_address(text, out) || refuse(rejected);
}

// Protocol and Type, which both kinds of IP read alike.
bool get_protocol_and_type(uefi_arg_list_t *args, uint16_t *protocol, uint8_t *type)
{
    const char *protocol_text = ovra_get_arg(args, "Protocol");
    *protocol = ip_protocols[0].value;
    if (const word *word = protocol_text ? by_text(ip_protocols, protocol_text) : nullptr)
        *protocol = word->value;
    else if (protocol_text && !require(args, "Protocol", protocol))
        return false;

    if (!is_given(args, "Type"))
        return true;
    // Kept: Protocol is compared with the words of Type: Type itself has to be a number.
    // [kept_ipv4_*, kept_ipv6_type_is_no_word]
    if (const word *word = protocol_text ? by_text(ip_types, protocol_text) : nullptr) {
        *type = static_cast<uint8_t>(word->value);
        return true;
    }
    return require(args, "Type", type);
}

} // namespace

int encode_ipv4(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    auto node = new_node<uefi_ipv4_device_path_t>();
    if (!node)
        return fail("unable to allocate ipv4 dpath\n");
    const char *remote = ovra_get_arg(args, "RemoteIP");
    if (!remote)
        return fail("RemoteIp is a required argument\n");
    if (!convert_address(remote, node->remote_addr))
        return fail("unable to encode argument 'RemoteIp'\n");
    uint16_t protocol = 0;
    uint8_t type = 0;
    if (!get_protocol_and_type(args, &protocol, &type))
        return -1;
    node->protocol = protocol;
    node->type_ip_addr = type;
    if (!get_address(args, "LocalIP", node->local_addr, "unable to encode argument 'LocalIP'\n") ||
        !get_address(args, "GatewayIPAddress", node->gateway_addr,
                     "unable to encode argument 'GatewayIPAddress'\n") ||
        !get_address(args, "SubnetMask", node->subnet_addr, "unable to encode argument 'SubnetMask'\n"))
        return -1;
    return hand_over(std::move(node), out);
}

int encode_ipv6(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    auto node = new_node<uefi_ipv6_device_path_t>();
    if (!node)
        return fail("unable to allocate ipv6 dpath\n");
    const char *remote = ovra_get_arg(args, "RemoteIP");
    if (!remote || !convert_address(remote, node->remote_addr))
        return -1;
    uint16_t protocol = 0;
    uint8_t type = 0;
    if (!get_protocol_and_type(args, &protocol, &type))
        return -1;
    node->protocol = protocol;
    node->ip_addr_origin = type;
    // Kept: no argument has the second name: the gateway is always zeros. [kept_ipv6_gateway_*]
    if (!get_address(args, "LocalIP", node->local_addr, "unable to encode argument 'LocalIP'\n") ||
        !get_address(args, "GatewayIPAddres", node->gateway_addr,
                     "unable to encode argument 'GatewayIPAddress'\n"))
        return -1;
    return hand_over(std::move(node), out);
}

namespace {

// Option bits of an iSCSI node (UEFI 10.3.4.19).
constexpr word header_digests[] = {{"CRC32C", 0x0002}, {"NONE", 0}};
constexpr word data_digests[] = {{"CRC32C", 0x0080}, {"NONE", 0}};
constexpr word authentications[] = {{"NONE", 0x0800}, {"CHAP_UNI", 0x1000}, {"CHAP_BI", 0}};
constexpr word protocols[] = {{"TCP", 0}};

// Adds the bits of a word that may be absent; `unknown` is the message with a text that is none.
bool get_option_bits(uefi_arg_list_t *args, const char *name, std::span<const word> words,
                     const char *unknown, uint16_t *options)
{
    const char *text = ovra_get_arg(args, name);
    if (!text)
        return true;
    const word *word = by_text(words, text);
    if (!word) {
        say(unknown, text); // NOLINT: a literal of the caller's
        return false;
    }
    *options = static_cast<uint16_t>(*options | word->value);
    return true;
}

// Kept: iSCSI's limit for a name's ASCII counts bytes of UCS-2, with the terminator.
// [kept_iscsi_target_name_of_111_characters_is_refused]
constexpr size_t target_name_limit = 223;

} // namespace

int encode_iscsi(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    const char *target = ovra_get_arg(args, "TargetName");
    if (!target)
        return fail("TargetName must be present\n");
    const owned<uint16_t> name(convert_utf8_to_leunicode(target));
    if (!name)
        return fail("unable to convert description string to UCS-2\n");
    const size_t size = unicode_strlen(name.get());
    if (size > target_name_limit)
        return fail("TargetName limited is 223 bytes\n");
    // Kept: the name is UCS-2, where UEFI has ASCII. [kept_iscsi_target_name_is_ucs2]
    auto node = new_node<uefi_iscsi_device_path_t>(size);
    if (!node)
        return fail("unable to allocate iscsi dpath\n");
    memcpy(node->node_target_name, name.get(), size);

    uint16_t group_tag = 0;
    if (!is_given(args, "PortalGroup"))
        return fail("PortalGroup is a required argument\n");
    if (!require(args, "PortalGroup", &group_tag))
        return -1;
    node->group_tag = group_tag;
    if (!is_given(args, "LUN"))
        return fail("LUN is a required argument\n");
    if (!require_bytes(args, "LUN", node->lun))
        return -1;
    uint16_t options = 0;
    if (!get_option_bits(args, "HeaderDigest", header_digests, "unrecognized argument for HeaderDigest: %s\n",
                         &options) ||
        !get_option_bits(args, "DataDigest", data_digests, "unrecognized argument for DataDigest: %s\n",
                         &options) ||
        !get_option_bits(args, "Authentication", authentications,
                         "unrecognized argument for Authentication: %s\n", &options) ||
        !get_option_bits(args, "Protocol", protocols, "unrecognized argument for Protocol: %s\n", &options))
        return -1;
    node->options = options;
    return hand_over(std::move(node), out);
}

int encode_vlan(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    using rec = uefi_vlan_device_path_t;
    static constexpr field fields[] = {
        need("VlanId", AT(vlan)).max(4094, "'VlanId' range is 0 to 4094: %d\n"),
    };
    return encode_fields<rec>(args, out, fields, "unable to allocate vlan dpath\n", order::alloc_first);
}

/* SPDX-License-Identifier: MIT */
/*
 * Kinds of device path nodes, by the type of their record, and a cursor over packed nodes that never reads
 * beyond the bytes left.
 */
#ifndef SRC_BASE_NODES_H
#define SRC_BASE_NODES_H

#include <ovra/uefi.h>

#include "src/base/bytes.h"

namespace ovra {

struct node_kind {
    uint8_t type;
    uint8_t subtype;
    uint16_t size; /* bytes; of a record with a tail, those before it */
};

/* Of a record that states no kind, type is 0. */
template <typename record>
inline constexpr node_kind kind_of = {};

#define OVRA_KIND(record, type, subtype, size)                                                               \
    template <>                                                                                              \
    inline constexpr node_kind kind_of<record> = {type, subtype, size}
#define OVRA_NODE(record, type, subtype) OVRA_KIND(record, type, subtype, sizeof(record))
/* One that ends in bytes of any length, which begin with the member `tail`. */
#define OVRA_TAILED_NODE(record, type, subtype, tail) OVRA_KIND(record, type, subtype, offsetof(record, tail))

OVRA_NODE(uefi_pci_device_path_t, UEFI_HARDWARE, 1);
OVRA_NODE(uefi_pccard_device_path_t, UEFI_HARDWARE, 2);
OVRA_NODE(uefi_memmap_device_path_t, UEFI_HARDWARE, 3);
OVRA_TAILED_NODE(uefi_venhw_device_path_t, UEFI_HARDWARE, 4, data);
OVRA_NODE(uefi_ctrl_device_path_t, UEFI_HARDWARE, 5);
OVRA_NODE(uefi_acpi_device_path_t, UEFI_ACPI, 1);
OVRA_TAILED_NODE(uefi_acpiex_device_path_t, UEFI_ACPI, 2, strings);
OVRA_TAILED_NODE(uefi_acpiadr_device_path_t, UEFI_ACPI, 3, adr);
OVRA_NODE(uefi_atapi_device_path_t, UEFI_MESSAGING, 1);
OVRA_NODE(uefi_scsi_device_path_t, UEFI_MESSAGING, 2);
OVRA_NODE(uefi_fibre_device_path_t, UEFI_MESSAGING, 3);
OVRA_NODE(uefi_i1394_device_path_t, UEFI_MESSAGING, 4);
OVRA_NODE(uefi_usb_device_path_t, UEFI_MESSAGING, 5);
OVRA_NODE(uefi_i2o_device_path_t, UEFI_MESSAGING, 6);
OVRA_NODE(uefi_ib_device_path_t, UEFI_MESSAGING, 9);
OVRA_TAILED_NODE(uefi_venmsg_device_path_t, UEFI_MESSAGING, 10, data);
OVRA_NODE(uefi_macaddr_device_path_t, UEFI_MESSAGING, 11);
OVRA_NODE(uefi_ipv4_device_path_t, UEFI_MESSAGING, 12);
OVRA_NODE(uefi_ipv6_device_path_t, UEFI_MESSAGING, 13);
OVRA_NODE(uefi_uart_device_path_t, UEFI_MESSAGING, 14);
OVRA_NODE(uefi_usb_class_device_path_t, UEFI_MESSAGING, 15);
OVRA_TAILED_NODE(uefi_usb_wwid_device_path_t, UEFI_MESSAGING, 16, serial);
OVRA_NODE(uefi_lun_device_path_t, UEFI_MESSAGING, 17);
OVRA_NODE(uefi_sata_device_path_t, UEFI_MESSAGING, 18);
OVRA_TAILED_NODE(uefi_iscsi_device_path_t, UEFI_MESSAGING, 19, node_target_name);
OVRA_NODE(uefi_vlan_device_path_t, UEFI_MESSAGING, 20);
OVRA_NODE(uefi_fibreex_device_path_t, UEFI_MESSAGING, 21);
OVRA_NODE(uefi_sas_ex_device_path_t, UEFI_MESSAGING, 22);
OVRA_NODE(uefi_hard_drive_path_t, UEFI_MEDIA, 1);
OVRA_NODE(uefi_cdrom_path_t, UEFI_MEDIA, 2);
OVRA_TAILED_NODE(uefi_venmedia_path_t, UEFI_MEDIA, 3, data);
OVRA_TAILED_NODE(uefi_file_path_t, UEFI_MEDIA, 4, path_name);
OVRA_NODE(uefi_media_protocol_path_t, UEFI_MEDIA, 5);
OVRA_NODE(uefi_offset_path_t, UEFI_MEDIA, 6);
OVRA_TAILED_NODE(uefi_bbs_path_t, UEFI_BIOS, 1, description);

#undef OVRA_TAILED_NODE
#undef OVRA_NODE
#undef OVRA_KIND

/*
 * Whether nodes of this type have a meaning: those of chapter 10, and END. Kept: so has 0, which UEFI leaves
 * out. [kept_zero_has_a_meaning_too]
 */
constexpr bool is_node_type(uint64_t type)
{
    return type <= UEFI_BIOS || type == UEFI_END;
}

/* A record with the header of its kind and zeros. */
template <typename record>
constexpr record new_record()
{
    constexpr node_kind kind = kind_of<record>;
    static_assert(kind.type != 0, "the record states no kind");
    static_assert(kind.size == sizeof(record), "the record ends in bytes of any length");
    record node = {};
    node.type = kind.type;
    node.subtype = kind.subtype;
    node.len = kind.size;
    return node;
}

/* The END node after the last instance of a path. */
inline constexpr uefi_device_path_t end_entire = {UEFI_END, UEFI_END_ENTIRE, sizeof(uefi_device_path_t)};

/* Walks packed nodes. What stopped it can be asked when next() gives null. */
struct cursor {
    byte_view rest;

    bool at_end() const { return rest.empty(); }

    /* The header of the node that begins here is cut off. */
    bool header_cut_off() const { return rest.size() < sizeof(uefi_device_path_t); }

    /* The node that begins here is cut off: its header, or the length it claims, goes beyond the end. */
    bool cut_off() const { return header_cut_off() || peek()->len > rest.size(); }

    /* The node that begins here; only where its header is not cut off. */
    const uefi_device_path_t *peek() const
    {
        return reinterpret_cast<const uefi_device_path_t *>(rest.data());
    }

    /* The node that begins here, and on to the next; null at the end, or for a node cut off or too short. */
    const uefi_device_path_t *next()
    {
        if (cut_off() || peek()->len < sizeof(uefi_device_path_t))
            return nullptr;
        const uefi_device_path_t *node = peek();
        rest = rest.subspan(node->len);
        return node;
    }
};

/* All bytes of a node that a cursor gave, or that is known to be as long as it says. */
inline byte_view node_bytes(const uefi_device_path_t *node)
{
    return {reinterpret_cast<const uint8_t *>(node), node->len};
}

/* Whether a node says that it is of a record's kind; it may be shorter than the record. */
template <typename record>
constexpr bool is_kind(const uefi_device_path_t *node)
{
    constexpr node_kind kind = kind_of<record>;
    static_assert(kind.type != 0, "the record states no kind");
    return node->type == kind.type && node->subtype == kind.subtype;
}

/* The node as a record of its kind, or null when it is of another kind or shorter than the record. */
template <typename record>
const record *as(const uefi_device_path_t *node)
{
    if (!is_kind<record>(node) || node->len < kind_of<record>.size)
        return nullptr;
    return reinterpret_cast<const record *>(node);
}

/* The same for the first of packed nodes; null also when there is none. */
template <typename record>
const record *as(byte_view packed)
{
    const uefi_device_path_t *node = cursor{packed}.next();
    return node ? as<record>(node) : nullptr;
}

/* The bytes after the fixed part of a record, to the end of its node. */
template <typename record>
byte_view tail(const record &node)
{
    constexpr size_t size = kind_of<record>.size;
    return {reinterpret_cast<const uint8_t *>(&node) + size, node.len - size};
}

inline bool is_end_entire(const uefi_device_path_t *node)
{
    return node->type == UEFI_END && node->subtype == UEFI_END_ENTIRE;
}

} // namespace ovra

#endif

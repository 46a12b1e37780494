/* SPDX-License-Identifier: MIT */
/*
 * The kinds of nodes for C++: what <ovra/uefi.h> states beside each record, asked for by the record's type.
 */
#ifndef SRC_BASE_NODES_H
#define SRC_BASE_NODES_H

#include <ovra/uefi.h>

namespace ovra {

struct node_kind {
    uint8_t type;
    uint8_t subtype;
    uint16_t size; /* bytes; of a record with a tail, those before it */
};

/* Of a record that states no kind, type is 0. */
template <typename record>
inline constexpr node_kind kind_of = {};

#define OVRA_KIND_OF(record)                                                                                 \
    template <>                                                                                              \
    inline constexpr node_kind kind_of<record> = {record##_kind_type, record##_kind_subtype,                 \
                                                  record##_kind_size}

OVRA_KIND_OF(uefi_pci_device_path_t);
OVRA_KIND_OF(uefi_pccard_device_path_t);
OVRA_KIND_OF(uefi_memmap_device_path_t);
OVRA_KIND_OF(uefi_venhw_device_path_t);
OVRA_KIND_OF(uefi_ctrl_device_path_t);
OVRA_KIND_OF(uefi_acpi_device_path_t);
OVRA_KIND_OF(uefi_acpiex_device_path_t);
OVRA_KIND_OF(uefi_acpiadr_device_path_t);
OVRA_KIND_OF(uefi_atapi_device_path_t);
OVRA_KIND_OF(uefi_scsi_device_path_t);
OVRA_KIND_OF(uefi_fibre_device_path_t);
OVRA_KIND_OF(uefi_i1394_device_path_t);
OVRA_KIND_OF(uefi_usb_device_path_t);
OVRA_KIND_OF(uefi_i2o_device_path_t);
OVRA_KIND_OF(uefi_ib_device_path_t);
OVRA_KIND_OF(uefi_venmsg_device_path_t);
OVRA_KIND_OF(uefi_macaddr_device_path_t);
OVRA_KIND_OF(uefi_ipv4_device_path_t);
OVRA_KIND_OF(uefi_ipv6_device_path_t);
OVRA_KIND_OF(uefi_uart_device_path_t);
OVRA_KIND_OF(uefi_usb_class_device_path_t);
OVRA_KIND_OF(uefi_usb_wwid_device_path_t);
OVRA_KIND_OF(uefi_lun_device_path_t);
OVRA_KIND_OF(uefi_sata_device_path_t);
OVRA_KIND_OF(uefi_iscsi_device_path_t);
OVRA_KIND_OF(uefi_vlan_device_path_t);
OVRA_KIND_OF(uefi_fibreex_device_path_t);
OVRA_KIND_OF(uefi_sas_ex_device_path_t);
OVRA_KIND_OF(uefi_hard_drive_path_t);
OVRA_KIND_OF(uefi_cdrom_path_t);
OVRA_KIND_OF(uefi_venmedia_path_t);
OVRA_KIND_OF(uefi_file_path_t);
OVRA_KIND_OF(uefi_media_protocol_path_t);
OVRA_KIND_OF(uefi_offset_path_t);
OVRA_KIND_OF(uefi_bbs_path_t);

#undef OVRA_KIND_OF

} // namespace ovra

#endif

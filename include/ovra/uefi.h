/* SPDX-License-Identifier: MIT */
/*
 * UEFI base types, and the packed record of each device path node kind that the library knows.
 * C99 and C++11, also inside extern "C". Everything is little-endian; records have no padding and may stand
 * at any address. Sources: UEFI Specification 2.10, appendix A (GUIDs), appendix D (status codes), 2.3.1
 * (data types), chapter 8 (runtime services), chapter 10 (device paths).
 */
#ifndef OVRA_UEFI_H
#define OVRA_UEFI_H

#include <stddef.h>
#include <stdint.h>

typedef uint8_t UINT8;
typedef uint16_t UINT16;
typedef uint32_t UINT32;
typedef uint64_t UINT64;
typedef uint64_t UINTN;
typedef uint16_t CHAR16;    /* one UCS-2 unit */
typedef int64_t EFI_STATUS; /* errors have the top bit set */

/* 32 bits wide, as the runtime-service driver passes it (UEFI's own BOOLEAN is one byte). */
typedef enum { B_FALSE = 0, B_TRUE = 1 } BOOLEAN;

#define EFI_ERROR_BIT 0x8000000000000000ULL
#define EFI_ERROR_CODE(n) ((EFI_STATUS)(EFI_ERROR_BIT | (n)))
#define EFI_SUCCESS ((EFI_STATUS)0)
#define EFI_INVALID_PARAMETER EFI_ERROR_CODE(2ULL)
#define EFI_UNSUPPORTED EFI_ERROR_CODE(3ULL)
#define EFI_BUFFER_TOO_SMALL EFI_ERROR_CODE(5ULL)
#define EFI_DEVICE_ERROR EFI_ERROR_CODE(7ULL)
#define EFI_WRITE_PROTECTED EFI_ERROR_CODE(8ULL)
#define EFI_OUT_OF_RESOURCES EFI_ERROR_CODE(9ULL)
#define EFI_VOLUME_FULL EFI_ERROR_CODE(11ULL)
#define EFI_NOT_FOUND EFI_ERROR_CODE(14ULL)
#define EFI_ACCESS_DENIED EFI_ERROR_CODE(15ULL)
#define EFI_TIMEOUT EFI_ERROR_CODE(18ULL)
#define EFI_SECURITY_VIOLATION EFI_ERROR_CODE(26ULL)

/* Variable attributes. No macros: other headers have some of these names, included before or after. */
#ifndef EFI_VARIABLE_NON_VOLATILE
#ifdef __cplusplus
static const UINT32 EFI_VARIABLE_NON_VOLATILE = 0x01;
static const UINT32 EFI_VARIABLE_BOOTSERVICE_ACCESS = 0x02;
static const UINT32 EFI_VARIABLE_RUNTIME_ACCESS = 0x04;
static const UINT32 EFI_VARIABLE_APPEND_WRITE = 0x40;
#else
enum {
    EFI_VARIABLE_NON_VOLATILE = 0x01,
    EFI_VARIABLE_BOOTSERVICE_ACCESS = 0x02,
    EFI_VARIABLE_RUNTIME_ACCESS = 0x04,
    EFI_VARIABLE_APPEND_WRITE = 0x40
};
#endif
#endif

/* Data1 to Data3 are stored little-endian, Data4 in text order. */
typedef struct {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
} EFI_GUID;

typedef struct {
    uint16_t year; /* 1900 to 9999 */
    uint8_t month; /* 1 to 12 */
    uint8_t day;   /* 1 to 31 */
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
    uint8_t pad1;
    uint32_t nanosecond;
    int16_t timezone; /* minutes, local time = UTC - timezone; 0x7FF: not given */
    uint8_t daylight;
    uint8_t pad2;
} EFI_TIME;

typedef struct {
    uint32_t resolution; /* counts per second */
    uint32_t accuracy;   /* error rate, 1e-6 parts per million */
    uint8_t sets_to_zero;
} EFI_TIME_CAPABILITIES;

typedef enum { EFI_RESET_COLD = 0, EFI_RESET_WARM = 1, EFI_RESET_SHUTDOWN = 2 } EFI_RESET_TYPE;

/* EFI_LOAD_OPTION attribute bits (UEFI 3.1.3). */
#define LOAD_OPTION_ACTIVE 0x00000001u
#define LOAD_OPTION_FORCE_RECONNECT 0x00000002u
#define LOAD_OPTION_HIDDEN 0x00000008u

/* Node types (UEFI 10.3.1) and the subtypes of the END node. */
#define UEFI_HARDWARE 1
#define UEFI_ACPI 2
#define UEFI_MESSAGING 3
#define UEFI_MEDIA 4
#define UEFI_BIOS 5
#define UEFI_END 0x7f
#define UEFI_END_INSTANCE 0x01
#define UEFI_END_ENTIRE 0xff

#define OVRA_PACKED __attribute__((packed))

/*
 * OVRA_SIZE checks a record's size, OVRA_OFFSET where a member stands, OVRA_BYTES that the record may stand
 * at any address. OVRA_NODE states the kind of node that a record stands for: type and subtype are written
 * once. OVRA_TAILED_NODE states that of a record which ends in a member of variable length, declared at its
 * largest: `size` is then the length without that member.
 */
#ifdef __cplusplus
#define OVRA_CHECK(name, holds) static_assert(holds, #name)
#else
#define OVRA_CHECK(name, holds) typedef char name[(holds) ? 1 : -1]
#endif
#define OVRA_SIZE(record, size) OVRA_CHECK(record##_size_check, sizeof(record) == (size))
#define OVRA_OFFSET(record, field, offset)                                                                   \
    OVRA_CHECK(record##_##field##_check, offsetof(record, field) == (offset))
#define OVRA_BYTES(record)                                                                                   \
    struct record##_after_a_byte {                                                                           \
        uint8_t byte;                                                                                        \
        record after;                                                                                        \
    };                                                                                                       \
    OVRA_CHECK(record##_packing_check, offsetof(struct record##_after_a_byte, after) == 1)
#define OVRA_KIND(record, type, subtype, size)                                                               \
    OVRA_BYTES(record);                                                                                      \
    enum { record##_kind_type = (type), record##_kind_subtype = (subtype), record##_kind_size = (size) }
#define OVRA_NODE(record, type, subtype, size)                                                               \
    OVRA_SIZE(record, size);                                                                                 \
    OVRA_KIND(record, type, subtype, size)
#define OVRA_TAILED_NODE(record, type, subtype, size, tail)                                                  \
    OVRA_OFFSET(record, tail, size);                                                                         \
    OVRA_KIND(record, type, subtype, size)

OVRA_SIZE(EFI_GUID, 16);
OVRA_SIZE(EFI_TIME, 16);
OVRA_SIZE(EFI_TIME_CAPABILITIES, 12);
OVRA_SIZE(BOOLEAN, 4);
OVRA_SIZE(EFI_RESET_TYPE, 4);

/* The header that every node begins with. `len` is the length of the whole node in bytes. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
} OVRA_PACKED uefi_device_path_t;
OVRA_SIZE(uefi_device_path_t, 4);
OVRA_OFFSET(uefi_device_path_t, type, 0);
OVRA_OFFSET(uefi_device_path_t, subtype, 1);
OVRA_OFFSET(uefi_device_path_t, len, 2);

/* Type 1, hardware (UEFI 10.3.2). */

/* PCI function; both numbers within their bus. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint8_t function_number;
    uint8_t device_number;
} OVRA_PACKED uefi_pci_device_path_t;
OVRA_NODE(uefi_pci_device_path_t, UEFI_HARDWARE, 1, 6);
OVRA_OFFSET(uefi_pci_device_path_t, function_number, 4);
OVRA_OFFSET(uefi_pci_device_path_t, device_number, 5);

/* PC Card. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint8_t function;
} OVRA_PACKED uefi_pccard_device_path_t;
OVRA_NODE(uefi_pccard_device_path_t, UEFI_HARDWARE, 2, 5);

/* A range of memory: its EFI_MEMORY_TYPE, first and last address. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t memory_type;
    uint64_t start;
    uint64_t end;
} OVRA_PACKED uefi_memmap_device_path_t;
OVRA_NODE(uefi_memmap_device_path_t, UEFI_HARDWARE, 3, 24);
OVRA_OFFSET(uefi_memmap_device_path_t, memory_type, 4);
OVRA_OFFSET(uefi_memmap_device_path_t, start, 8);
OVRA_OFFSET(uefi_memmap_device_path_t, end, 16);

/* Vendor-defined; data goes to the end of the node. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    EFI_GUID guid;
    uint8_t data[1];
} OVRA_PACKED uefi_venhw_device_path_t;
OVRA_TAILED_NODE(uefi_venhw_device_path_t, UEFI_HARDWARE, 4, 20, data);
OVRA_OFFSET(uefi_venhw_device_path_t, guid, 4);

/* Controller. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t ctrl_number;
} OVRA_PACKED uefi_ctrl_device_path_t;
OVRA_NODE(uefi_ctrl_device_path_t, UEFI_HARDWARE, 5, 8);

/* Type 2, ACPI (UEFI 10.3.3). Identifiers are compressed EISA identifiers: PNP0A03 is 0x0a0341d0. */

/* ACPI device. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t hid;
    uint32_t uid;
} OVRA_PACKED uefi_acpi_device_path_t;
OVRA_NODE(uefi_acpi_device_path_t, UEFI_ACPI, 1, 12);
OVRA_OFFSET(uefi_acpi_device_path_t, hid, 4);
OVRA_OFFSET(uefi_acpi_device_path_t, uid, 8);

/* Expanded ACPI device. strings: those of HID, UID and CID, each with its terminator. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t hid;
    uint32_t uid;
    uint32_t cid;
    char strings[3];
} OVRA_PACKED uefi_acpiex_device_path_t;
OVRA_TAILED_NODE(uefi_acpiex_device_path_t, UEFI_ACPI, 2, 16, strings);
OVRA_OFFSET(uefi_acpiex_device_path_t, hid, 4);
OVRA_OFFSET(uefi_acpiex_device_path_t, uid, 8);
OVRA_OFFSET(uefi_acpiex_device_path_t, cid, 12);

/* ACPI _ADR: one value or more, to the end of the node. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t adr[1];
} OVRA_PACKED uefi_acpiadr_device_path_t;
OVRA_TAILED_NODE(uefi_acpiadr_device_path_t, UEFI_ACPI, 3, 4, adr);

/* Type 3, messaging (UEFI 10.3.4). */

/* ATAPI: channel 0 primary, 1 secondary; drive 0 master, 1 slave. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint8_t channel;
    uint8_t drive;
    uint16_t lun;
} OVRA_PACKED uefi_atapi_device_path_t;
OVRA_NODE(uefi_atapi_device_path_t, UEFI_MESSAGING, 1, 8);
OVRA_OFFSET(uefi_atapi_device_path_t, channel, 4);
OVRA_OFFSET(uefi_atapi_device_path_t, drive, 5);
OVRA_OFFSET(uefi_atapi_device_path_t, lun, 6);

/* SCSI: target identifier (PUN) and logical unit. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint16_t target;
    uint16_t lun;
} OVRA_PACKED uefi_scsi_device_path_t;
OVRA_NODE(uefi_scsi_device_path_t, UEFI_MESSAGING, 2, 8);
OVRA_OFFSET(uefi_scsi_device_path_t, target, 4);
OVRA_OFFSET(uefi_scsi_device_path_t, lun, 6);

/*
 * Fibre Channel. Kept: no reserved word before the WWN, unlike UEFI; stored paths are laid out so.
 * [kept_fibre_has_no_reserved_word]
 */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint64_t wwn;
    uint64_t lun;
} OVRA_PACKED uefi_fibre_device_path_t;
OVRA_NODE(uefi_fibre_device_path_t, UEFI_MESSAGING, 3, 20);
OVRA_OFFSET(uefi_fibre_device_path_t, wwn, 4);
OVRA_OFFSET(uefi_fibre_device_path_t, lun, 12);

/* IEEE 1394: the GUID as its bytes were given. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t reserved;
    uint8_t guid[8];
} OVRA_PACKED uefi_i1394_device_path_t;
OVRA_NODE(uefi_i1394_device_path_t, UEFI_MESSAGING, 4, 16);
OVRA_OFFSET(uefi_i1394_device_path_t, reserved, 4);
OVRA_OFFSET(uefi_i1394_device_path_t, guid, 8);

/* USB: port of the parent hub, and interface. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint8_t port;
    uint8_t interface;
} OVRA_PACKED uefi_usb_device_path_t;
OVRA_NODE(uefi_usb_device_path_t, UEFI_MESSAGING, 5, 6);
OVRA_OFFSET(uefi_usb_device_path_t, port, 4);
OVRA_OFFSET(uefi_usb_device_path_t, interface, 5);

/* I2O: target identifier (TID). */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t target_id;
} OVRA_PACKED uefi_i2o_device_path_t;
OVRA_NODE(uefi_i2o_device_path_t, UEFI_MESSAGING, 6, 8);

/* InfiniBand. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t flags;
    uint8_t guid[16];
    uint64_t serviceid;
    uint64_t targetid;
    uint64_t deviceid;
} OVRA_PACKED uefi_ib_device_path_t;
OVRA_NODE(uefi_ib_device_path_t, UEFI_MESSAGING, 9, 48);
OVRA_OFFSET(uefi_ib_device_path_t, flags, 4);
OVRA_OFFSET(uefi_ib_device_path_t, guid, 8);
OVRA_OFFSET(uefi_ib_device_path_t, serviceid, 24);
OVRA_OFFSET(uefi_ib_device_path_t, targetid, 32);
OVRA_OFFSET(uefi_ib_device_path_t, deviceid, 40);

/* Vendor-defined; data goes to the end of the node. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    EFI_GUID guid;
    uint8_t data[1];
} OVRA_PACKED uefi_venmsg_device_path_t;
OVRA_TAILED_NODE(uefi_venmsg_device_path_t, UEFI_MESSAGING, 10, 20, data);
OVRA_OFFSET(uefi_venmsg_device_path_t, guid, 4);

/*
 * A vendor-defined node too: UART flow control. Kept: one byte of value, where UEFI has a 32-bit map; stored
 * paths are laid out so. [kept_uartflowctrl_node_of_21_bytes]
 */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    EFI_GUID guid;
    uint8_t value;
} OVRA_PACKED uefi_uartflow_device_path_t;
OVRA_SIZE(uefi_uartflow_device_path_t, 21);
OVRA_OFFSET(uefi_uartflow_device_path_t, guid, 4);
OVRA_OFFSET(uefi_uartflow_device_path_t, value, 20);

/*
 * A vendor-defined node too: SAS. sassata is device and topology information, rtp the relative target port.
 * Kept: the GUID is the bytes d4 87 dd d4 00 8b 11 d9 af dc 00 10 83 ff ca 4d; UEFI has another Data1, and
 * stores it least significant byte first. Stored paths have these bytes.
 * [kept_sas_guid_bytes_stand_as_they_are]
 */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint8_t guid[16];
    uint32_t reserved;
    uint64_t address;
    uint64_t lun;
    uint16_t sassata;
    uint16_t rtp;
} OVRA_PACKED uefi_sas_msg_device_path_t;
OVRA_SIZE(uefi_sas_msg_device_path_t, 44);
OVRA_OFFSET(uefi_sas_msg_device_path_t, guid, 4);
OVRA_OFFSET(uefi_sas_msg_device_path_t, reserved, 20);
OVRA_OFFSET(uefi_sas_msg_device_path_t, address, 24);
OVRA_OFFSET(uefi_sas_msg_device_path_t, lun, 32);
OVRA_OFFSET(uefi_sas_msg_device_path_t, sassata, 40);
OVRA_OFFSET(uefi_sas_msg_device_path_t, rtp, 42);

/* MAC address: the bytes, then zeros; the interface type of RFC 3232. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint8_t mac_addr[32];
    uint8_t iff_type;
} OVRA_PACKED uefi_macaddr_device_path_t;
OVRA_NODE(uefi_macaddr_device_path_t, UEFI_MESSAGING, 11, 37);
OVRA_OFFSET(uefi_macaddr_device_path_t, mac_addr, 4);
OVRA_OFFSET(uefi_macaddr_device_path_t, iff_type, 36);

/* IPv4; addresses in network byte order. type_ip_addr: 1 static, 0 DHCP. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint8_t local_addr[4];
    uint8_t remote_addr[4];
    uint16_t local_port;
    uint16_t remote_port;
    uint16_t protocol;
    uint8_t type_ip_addr;
    uint8_t gateway_addr[4];
    uint8_t subnet_addr[4];
} OVRA_PACKED uefi_ipv4_device_path_t;
OVRA_NODE(uefi_ipv4_device_path_t, UEFI_MESSAGING, 12, 27);
OVRA_OFFSET(uefi_ipv4_device_path_t, local_addr, 4);
OVRA_OFFSET(uefi_ipv4_device_path_t, remote_addr, 8);
OVRA_OFFSET(uefi_ipv4_device_path_t, local_port, 12);
OVRA_OFFSET(uefi_ipv4_device_path_t, remote_port, 14);
OVRA_OFFSET(uefi_ipv4_device_path_t, protocol, 16);
OVRA_OFFSET(uefi_ipv4_device_path_t, type_ip_addr, 18);
OVRA_OFFSET(uefi_ipv4_device_path_t, gateway_addr, 19);
OVRA_OFFSET(uefi_ipv4_device_path_t, subnet_addr, 23);

/* IPv6; addresses in network byte order. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint8_t local_addr[16];
    uint8_t remote_addr[16];
    uint16_t local_port;
    uint16_t remote_port;
    uint16_t protocol;
    uint8_t ip_addr_origin;
    uint8_t prefix_length;
    uint8_t gateway_addr[16];
} OVRA_PACKED uefi_ipv6_device_path_t;
OVRA_NODE(uefi_ipv6_device_path_t, UEFI_MESSAGING, 13, 60);
OVRA_OFFSET(uefi_ipv6_device_path_t, local_addr, 4);
OVRA_OFFSET(uefi_ipv6_device_path_t, remote_addr, 20);
OVRA_OFFSET(uefi_ipv6_device_path_t, local_port, 36);
OVRA_OFFSET(uefi_ipv6_device_path_t, remote_port, 38);
OVRA_OFFSET(uefi_ipv6_device_path_t, protocol, 40);
OVRA_OFFSET(uefi_ipv6_device_path_t, ip_addr_origin, 42);
OVRA_OFFSET(uefi_ipv6_device_path_t, prefix_length, 43);
OVRA_OFFSET(uefi_ipv6_device_path_t, gateway_addr, 44);

/*
 * UART. parity: 0 default, 1 none, 2 even, 3 odd, 4 mark, 5 space; stopbits: 0 default, 1 one, 2 1.5, 3 two.
 */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t reserved;
    uint64_t baud;
    uint8_t databits;
    uint8_t parity;
    uint8_t stopbits;
} OVRA_PACKED uefi_uart_device_path_t;
OVRA_NODE(uefi_uart_device_path_t, UEFI_MESSAGING, 14, 19);
OVRA_OFFSET(uefi_uart_device_path_t, reserved, 4);
OVRA_OFFSET(uefi_uart_device_path_t, baud, 8);
OVRA_OFFSET(uefi_uart_device_path_t, databits, 16);
OVRA_OFFSET(uefi_uart_device_path_t, parity, 17);
OVRA_OFFSET(uefi_uart_device_path_t, stopbits, 18);

/* USB class; all ones match anything. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint16_t vendor_id;
    uint16_t product_id;
    uint8_t dev_class;
    uint8_t dev_sub_class;
    uint8_t protocol;
} OVRA_PACKED uefi_usb_class_device_path_t;
OVRA_NODE(uefi_usb_class_device_path_t, UEFI_MESSAGING, 15, 11);
OVRA_OFFSET(uefi_usb_class_device_path_t, vendor_id, 4);
OVRA_OFFSET(uefi_usb_class_device_path_t, product_id, 6);
OVRA_OFFSET(uefi_usb_class_device_path_t, dev_class, 8);
OVRA_OFFSET(uefi_usb_class_device_path_t, dev_sub_class, 9);
OVRA_OFFSET(uefi_usb_class_device_path_t, protocol, 10);

/* USB device by its serial number, UCS-2 with a terminator. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint16_t if_number;
    uint16_t vendor_id;
    uint16_t product_id;
    uint16_t serial[1];
} OVRA_PACKED uefi_usb_wwid_device_path_t;
OVRA_TAILED_NODE(uefi_usb_wwid_device_path_t, UEFI_MESSAGING, 16, 10, serial);
OVRA_OFFSET(uefi_usb_wwid_device_path_t, if_number, 4);
OVRA_OFFSET(uefi_usb_wwid_device_path_t, vendor_id, 6);
OVRA_OFFSET(uefi_usb_wwid_device_path_t, product_id, 8);

/* Logical unit. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint8_t lun;
} OVRA_PACKED uefi_lun_device_path_t;
OVRA_NODE(uefi_lun_device_path_t, UEFI_MESSAGING, 17, 5);

/* SATA: port of the controller, of the port multiplier (0xffff: none), and logical unit. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint16_t port;
    uint16_t port_mult;
    uint16_t lun;
} OVRA_PACKED uefi_sata_device_path_t;
OVRA_NODE(uefi_sata_device_path_t, UEFI_MESSAGING, 18, 10);
OVRA_OFFSET(uefi_sata_device_path_t, port, 4);
OVRA_OFFSET(uefi_sata_device_path_t, port_mult, 6);
OVRA_OFFSET(uefi_sata_device_path_t, lun, 8);

/*
 * iSCSI. Kept: the target name is UCS-2 with a terminator, where UEFI has ASCII, and the option bit of a
 * CRC32C data digest is 0x0080, where UEFI has 0x0008; stored paths have both.
 * [kept_iscsi_target_name_is_ucs2, kept_iscsi_data_digest_is_0x0080]
 */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint16_t protocol;
    uint16_t options;
    uint8_t lun[8];
    uint16_t group_tag;
    uint16_t node_target_name[1];
} OVRA_PACKED uefi_iscsi_device_path_t;
OVRA_TAILED_NODE(uefi_iscsi_device_path_t, UEFI_MESSAGING, 19, 18, node_target_name);
OVRA_OFFSET(uefi_iscsi_device_path_t, protocol, 4);
OVRA_OFFSET(uefi_iscsi_device_path_t, options, 6);
OVRA_OFFSET(uefi_iscsi_device_path_t, lun, 8);
OVRA_OFFSET(uefi_iscsi_device_path_t, group_tag, 16);

/* VLAN. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint16_t vlan;
} OVRA_PACKED uefi_vlan_device_path_t;
OVRA_NODE(uefi_vlan_device_path_t, UEFI_MESSAGING, 20, 6);

/* Fibre Channel, extended: both identifiers as their bytes were given. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t reserved;
    uint8_t wwn[8];
    uint8_t lun[8];
} OVRA_PACKED uefi_fibreex_device_path_t;
OVRA_NODE(uefi_fibreex_device_path_t, UEFI_MESSAGING, 21, 24);
OVRA_OFFSET(uefi_fibreex_device_path_t, reserved, 4);
OVRA_OFFSET(uefi_fibreex_device_path_t, wwn, 8);
OVRA_OFFSET(uefi_fibreex_device_path_t, lun, 16);

/* SAS, extended: address and lun in big-endian byte order. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint64_t address;
    uint64_t lun;
    uint16_t sassata;
    uint16_t rtp;
} OVRA_PACKED uefi_sas_ex_device_path_t;
OVRA_NODE(uefi_sas_ex_device_path_t, UEFI_MESSAGING, 22, 24);
OVRA_OFFSET(uefi_sas_ex_device_path_t, address, 4);
OVRA_OFFSET(uefi_sas_ex_device_path_t, lun, 12);
OVRA_OFFSET(uefi_sas_ex_device_path_t, sassata, 20);
OVRA_OFFSET(uefi_sas_ex_device_path_t, rtp, 22);

/* Type 4, media (UEFI 10.3.5). */

/*
 * Hard drive. part_number 0 is the whole disk; start and size are in logical blocks. part_sig by sig_type:
 * 0 all zero, 1 a 32-bit MBR disk signature and zeros, 2 a GUID. part_format: 1 MBR, 2 GPT, 0 not set.
 */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t part_number;
    uint64_t part_start;
    uint64_t part_size;
    uint8_t part_sig[16];
    uint8_t part_format;
    uint8_t sig_type;
} OVRA_PACKED uefi_hard_drive_path_t;
OVRA_NODE(uefi_hard_drive_path_t, UEFI_MEDIA, 1, 42);
OVRA_OFFSET(uefi_hard_drive_path_t, part_number, 4);
OVRA_OFFSET(uefi_hard_drive_path_t, part_start, 8);
OVRA_OFFSET(uefi_hard_drive_path_t, part_size, 16);
OVRA_OFFSET(uefi_hard_drive_path_t, part_sig, 24);
OVRA_OFFSET(uefi_hard_drive_path_t, part_format, 40);
OVRA_OFFSET(uefi_hard_drive_path_t, sig_type, 41);

/* CD-ROM boot entry; start and size in blocks. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t boot_entry;
    uint64_t part_start;
    uint64_t part_size;
} OVRA_PACKED uefi_cdrom_path_t;
OVRA_NODE(uefi_cdrom_path_t, UEFI_MEDIA, 2, 24);
OVRA_OFFSET(uefi_cdrom_path_t, boot_entry, 4);
OVRA_OFFSET(uefi_cdrom_path_t, part_start, 8);
OVRA_OFFSET(uefi_cdrom_path_t, part_size, 16);

/* Vendor-defined; data goes to the end of the node. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    EFI_GUID guid;
    uint8_t data[1];
} OVRA_PACKED uefi_venmedia_path_t;
OVRA_TAILED_NODE(uefi_venmedia_path_t, UEFI_MEDIA, 3, 20, data);
OVRA_OFFSET(uefi_venmedia_path_t, guid, 4);

#define UEFI_FILE_PATH_MAX 256 /* units declared; a node is as long as its own string */
/* File path: a UCS-2 string with a terminator. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint16_t path_name[UEFI_FILE_PATH_MAX];
} OVRA_PACKED uefi_file_path_t;
OVRA_TAILED_NODE(uefi_file_path_t, UEFI_MEDIA, 4, 4, path_name);

/* Media protocol. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    EFI_GUID guid;
} OVRA_PACKED uefi_media_protocol_path_t;
OVRA_NODE(uefi_media_protocol_path_t, UEFI_MEDIA, 5, 20);

/*
 * Range of offsets, first and last, relative to the device. Kept: the subtype is 6, where UEFI has 8 and
 * gives 6 to firmware files; stored paths have it. [kept_offset_has_subtype_6]
 */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t reserved;
    uint64_t start;
    uint64_t end;
} OVRA_PACKED uefi_offset_path_t;
OVRA_NODE(uefi_offset_path_t, UEFI_MEDIA, 6, 24);
OVRA_OFFSET(uefi_offset_path_t, reserved, 4);
OVRA_OFFSET(uefi_offset_path_t, start, 8);
OVRA_OFFSET(uefi_offset_path_t, end, 16);

/* Type 5, BIOS boot (UEFI 10.3.6). */

/* Description in ASCII with a terminator. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint16_t device_type;
    uint16_t status_flags;
    char description[1];
} OVRA_PACKED uefi_bbs_path_t;
OVRA_TAILED_NODE(uefi_bbs_path_t, UEFI_BIOS, 1, 8, description);
OVRA_OFFSET(uefi_bbs_path_t, device_type, 4);
OVRA_OFFSET(uefi_bbs_path_t, status_flags, 6);

#endif

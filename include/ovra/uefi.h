/*
 * UEFI base types, and the packed record of each device path node kind that the library knows.
 * C99 and C++. Everything is little-endian; records have no padding and may stand at any address.
 * Sources: UEFI Specification 2.10, appendix A (GUIDs), appendix D (status codes), 2.3.1 (data types),
 * chapter 8 (runtime services), chapter 10 (device paths).
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
#define EFI_NOT_FOUND EFI_ERROR_CODE(14ULL)
#define EFI_ACCESS_DENIED EFI_ERROR_CODE(15ULL)
#define EFI_SECURITY_VIOLATION EFI_ERROR_CODE(26ULL)

/* Variable attributes. */
#define EFI_VARIABLE_NON_VOLATILE 0x01u
#define EFI_VARIABLE_BOOTSERVICE_ACCESS 0x02u
#define EFI_VARIABLE_RUNTIME_ACCESS 0x04u
#define EFI_VARIABLE_APPEND_WRITE 0x40u

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
 * OVRA_SIZE checks a record's size. OVRA_NODE states the kind of node that a record stands for, so that type
 * and subtype are written once; OVRA_TAILED_NODE that of a record which ends in a member of variable length,
 * declared at its largest: `size` is then the length without that member.
 */
#ifdef __cplusplus
namespace ovra {
struct node_kind {
    uint8_t type;
    uint8_t subtype;
    uint16_t size;
};
template <typename record>
inline constexpr node_kind kind_of = {};
} // namespace ovra
#define OVRA_SIZE(record, size) static_assert(sizeof(record) == (size))
#define OVRA_KIND(record, type, subtype, size)                                                               \
    static_assert(alignof(record) == 1);                                                                     \
    template <>                                                                                              \
    inline constexpr ovra::node_kind ovra::kind_of<record> = {type, subtype, size}
#define OVRA_NODE(record, type, subtype, size)                                                               \
    OVRA_SIZE(record, size);                                                                                 \
    OVRA_KIND(record, type, subtype, size)
#define OVRA_TAILED_NODE(record, type, subtype, size, tail)                                                  \
    OVRA_OFFSET(record, tail, size);                                                                         \
    OVRA_KIND(record, type, subtype, size)
#define OVRA_OFFSET(record, field, offset) static_assert(offsetof(record, field) == (offset))
#else
#define OVRA_SIZE(record, size) typedef char record##_size_check[sizeof(record) == (size) ? 1 : -1]
#define OVRA_NODE(record, type, subtype, size) OVRA_SIZE(record, size)
#define OVRA_TAILED_NODE(record, type, subtype, size, tail) OVRA_OFFSET(record, tail, size)
#define OVRA_OFFSET(record, field, offset)                                                                   \
    typedef char record##_##field##_check[offsetof(record, field) == (offset) ? 1 : -1]
#endif

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
OVRA_OFFSET(uefi_device_path_t, len, 2);

/* ACPI device path (UEFI 10.3.3). hid is a compressed EISA identifier: PNP0A03 is 0x0a0341d0. */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint32_t hid;
    uint32_t uid;
} OVRA_PACKED uefi_acpi_device_path_t;
OVRA_NODE(uefi_acpi_device_path_t, UEFI_ACPI, 1, 12);

/* File path (UEFI 10.3.5.4): the header, then a null-terminated UCS-2 string. */
#define UEFI_FILE_PATH_MAX 256 /* units declared; a node is as long as its own string */
typedef struct {
    uint8_t type;
    uint8_t subtype;
    uint16_t len;
    uint16_t path_name[UEFI_FILE_PATH_MAX];
} OVRA_PACKED uefi_file_path_t;
OVRA_TAILED_NODE(uefi_file_path_t, UEFI_MEDIA, 4, 4, path_name);

#endif

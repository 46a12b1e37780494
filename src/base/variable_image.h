/* SPDX-License-Identifier: MIT */
/*
 * Records of the files that keep a stopped machine's variables: a volume of firmware (UEFI PI,
 * volume 3, and EDK II's variable store in it), and the file of U-Boot.
 */
#ifndef SRC_BASE_VARIABLE_IMAGE_H
#define SRC_BASE_VARIABLE_IMAGE_H

#include <cstdint>

#include <ovra/uefi.h>

namespace ovra {

/* A firmware volume begins with this; pairs of numbers that end in zeros follow, up to header_length. */
struct volume_header {
    uint8_t zero_vector[16];
    EFI_GUID file_system;
    uint64_t length; /* bytes, with this header */
    uint32_t signature;
    uint32_t attributes;
    uint16_t header_length;
    uint16_t checksum; /* makes the sum of the header's 16-bit numbers 0 */
    uint16_t extended_header;
    uint8_t reserved;
    uint8_t revision;
};
OVRA_SIZE(volume_header, 56);

inline constexpr uint32_t volume_signature = 0x4856465f; /* "_FVH" */
inline constexpr uint32_t volume_erases_to_ones = 0x800;
inline constexpr EFI_GUID volume_of_variables = {
    0xfff12b8d, 0x7696, 0x4c8b, {0xa9, 0x85, 0x27, 0x47, 0x07, 0x5b, 0x4f, 0x50}};

/* Stands at the volume's header_length; variables follow, each at a multiple of 4 bytes. */
struct variable_store_header {
    EFI_GUID signature; /* says which header each variable has */
    uint32_t size;      /* bytes, with this header */
    uint8_t format;
    uint8_t state;
    uint16_t reserved;
    uint32_t reserved2;
};
OVRA_SIZE(variable_store_header, 28);

inline constexpr EFI_GUID authenticated_store = {
    0xaaf32c78, 0x947b, 0x439a, {0xa1, 0x80, 0x2e, 0x14, 0x4e, 0xc3, 0x77, 0x92}};
inline constexpr EFI_GUID plain_store = {
    0xddcf3616, 0x3275, 0x4164, {0x98, 0xb6, 0xfe, 0x85, 0x70, 0x7f, 0xfe, 0x7d}};
inline constexpr uint8_t store_formatted = 0x5a;
inline constexpr uint8_t store_healthy = 0xfe;

/* Header of a variable; its name with the terminator follows, then its data, without a gap. */
struct plain_variable_header {
    uint16_t start;
    uint8_t state;
    uint8_t reserved;
    uint32_t attributes;
    uint32_t name_size; /* bytes */
    uint32_t data_size;
    EFI_GUID guid;
};
OVRA_SIZE(plain_variable_header, 32);

struct authenticated_variable_header {
    uint16_t start;
    uint8_t state;
    uint8_t reserved;
    uint32_t attributes;
    uint32_t count[2]; /* a 64-bit number that stands at any multiple of 4 */
    EFI_TIME time;
    uint32_t key;
    uint32_t name_size; /* bytes */
    uint32_t data_size;
    EFI_GUID guid;
};
OVRA_SIZE(authenticated_variable_header, 60);

inline constexpr uint16_t variable_start = 0x55aa;
inline constexpr size_t volume_alignment = 4;

/* States of a variable. Flash memory can only clear bits: each step clears one. */
inline constexpr uint8_t variable_header_begun = 0xff;
inline constexpr uint8_t variable_added = 0x3f;
inline constexpr uint8_t variable_in_transition = 0xfe; /* to be deleted once its new value is there */
inline constexpr uint8_t variable_deleted = 0xfd;

/* U-Boot's file. Entries follow, each at a multiple of 8 bytes. */
struct uboot_file_header {
    uint64_t reserved;
    uint64_t magic;
    uint32_t length; /* bytes, with this header */
    uint32_t crc32;  /* of the entries */
};
OVRA_SIZE(uboot_file_header, 24);

/* Its name with the terminator follows, then its data. */
struct uboot_variable_header {
    uint32_t data_size; /* bytes */
    uint32_t attributes;
    uint64_t time;
    EFI_GUID guid;
};
OVRA_SIZE(uboot_variable_header, 32);

inline constexpr uint64_t uboot_magic = 0x0161566966456255; /* "UbEfiVa", version 1 */
inline constexpr size_t uboot_alignment = 8;

/* `size` up to the next multiple of a power of two. */
constexpr size_t aligned(size_t size, size_t alignment)
{
    return (size + alignment - 1) & ~(alignment - 1);
}

/* Bytes that a variable takes; `name_size` in bytes with the terminator. */
constexpr size_t room_in_volume(size_t header_size, size_t name_size, size_t data_size)
{
    return aligned(header_size + name_size + data_size, volume_alignment);
}

constexpr size_t room_in_uboot_file(size_t name_size, size_t data_size)
{
    return aligned(sizeof(uboot_variable_header) + name_size + data_size, uboot_alignment);
}

} // namespace ovra

#endif

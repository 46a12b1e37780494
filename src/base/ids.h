/* SPDX-License-Identifier: MIT */
/* Identifiers that the encoders write and the printer and the disk mapper recognise. */
#ifndef SRC_BASE_IDS_H
#define SRC_BASE_IDS_H

#include <string_view>

#include <ovra/uefi.h>

namespace ovra {

/* A compressed EISA identifier: three letters of 5 bits each, and the product number in the upper half. */
constexpr uint32_t eisa_id(std::string_view vendor, uint16_t product)
{
    uint32_t letters = 0;
    for (const char letter : vendor)
        letters = letters << 5 | (static_cast<uint32_t>(letter - 0x40) & 0x1f);
    return letters | static_cast<uint32_t>(product) << 16;
}

/* The product number of an identifier. */
constexpr uint16_t eisa_product(uint32_t id)
{
    return static_cast<uint16_t>(id >> 16);
}

/* The letter of an identifier's vendor at a place from 0 to 2. */
constexpr char eisa_letter(uint32_t id, unsigned place)
{
    return static_cast<char>(0x40 + (id >> (10 - 5 * place) & 0x1f));
}

inline constexpr uint16_t product_keyboard = 0x0301;
inline constexpr uint16_t product_parallel_port = 0x0401;
inline constexpr uint16_t product_serial = 0x0501;
inline constexpr uint16_t product_floppy = 0x0604;
inline constexpr uint16_t product_pci_root = 0x0a03;
inline constexpr uint16_t product_pcie_root = 0x0a08;

static_assert(eisa_id("PNP", product_pci_root) == 0x0a0341d0);

/* Vendor-defined messaging nodes (UEFI 10.3.4.17 and appendix on terminal types). */
inline constexpr EFI_GUID pc_ansi = {
    0xe0c14753, 0xf9be, 0x11d2, {0x9a, 0x0c, 0x00, 0x90, 0x27, 0x3f, 0xc1, 0x4d}};
inline constexpr EFI_GUID vt100 = {
    0xdfa66065, 0xb419, 0x11d3, {0x9a, 0x2d, 0x00, 0x90, 0x27, 0x3f, 0xc1, 0x4d}};
inline constexpr EFI_GUID vt100_plus = {
    0x7baec70b, 0x57e0, 0x4c76, {0x8e, 0x87, 0x2f, 0x9e, 0x28, 0x08, 0x83, 0x43}};
inline constexpr EFI_GUID vt_utf8 = {
    0xad15a0d6, 0x8bec, 0x4acf, {0xa0, 0x73, 0xd0, 0x1d, 0xe7, 0x7e, 0x2d, 0x88}};
inline constexpr EFI_GUID debug_port = {
    0xeba4e8d2, 0x3858, 0x41ec, {0xa2, 0x81, 0x26, 0x47, 0xba, 0x96, 0x60, 0xd0}};
inline constexpr EFI_GUID uart_flow_control = {
    0x37499a9d, 0x542f, 0x4c89, {0xa0, 0x26, 0x35, 0xda, 0x14, 0x20, 0x94, 0xe4}};

/*
 * Kept: these bytes stand in the node as they are, not in the byte order of a GUID.
 * [kept_sas_guid_bytes_stand_as_they_are]
 */
inline constexpr uint8_t sas_bytes[16] = {0xd4, 0x87, 0xdd, 0xd4, 0x00, 0x8b, 0x11, 0xd9,
                                          0xaf, 0xdc, 0x00, 0x10, 0x83, 0xff, 0xca, 0x4d};

} // namespace ovra

#endif

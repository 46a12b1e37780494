/* SPDX-License-Identifier: MIT */
/* Files of variables, put together byte by byte. */
#ifndef TESTS_SUPPORT_VARIABLE_IMAGES_H
#define TESTS_SUPPORT_VARIABLE_IMAGES_H

#include <cstdint>
#include <string>
#include <string_view>

#include <ovra/uefi.h>

namespace ovra::test::images {

/* The lowest `bytes` bytes of a number, little-endian. */
inline std::string number(std::uint64_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text.push_back(static_cast<char>(value >> (8 * i) & 0xff));
    return text;
}

inline std::string stored(const EFI_GUID &guid)
{
    return {reinterpret_cast<const char *>(&guid), sizeof guid};
}

/* ASCII as UCS-2 with its terminator. */
inline std::string stored_units(std::string_view text)
{
    std::string units;
    for (const char letter : text)
        units += number(static_cast<unsigned char>(letter), 2);
    return units + number(0, 2);
}

inline void pad(std::string *text, std::size_t alignment, char with)
{
    while (text->size() % alignment != 0)
        text->push_back(with);
}

/* States of a variable in a volume. */
enum : std::uint8_t {
    added = 0x3f,
    being_replaced = 0x3e,
    deleted = 0x3d,
    replaced = 0x3c,
    header_only = 0x7f,
    header_begun = 0xff
};

struct entry {
    std::string_view name;
    std::string_view data;
    UINT32 attributes = 7;
    std::uint8_t state = added;
    EFI_GUID guid = {0x8be4df61, 0x93ca, 0x11d2, {0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c}};
};

/* A variable in a volume. One with a signature tells a count, a time and a key. */
inline std::string in_volume(const entry &each, bool authenticated = true)
{
    const std::string name = stored_units(each.name);
    const bool is_signed = (each.attributes & 0x30) != 0;
    std::string text = number(0x55aa, 2) + number(each.state, 1) + number(0, 1) + number(each.attributes, 4);
    if (authenticated)
        text += std::string(24, is_signed ? 't' : '\0') + number(is_signed ? 7 : 0, 4);
    text += number(name.size(), 4) + number(each.data.size(), 4) + stored(each.guid) + name;
    text += each.data;
    pad(&text, 4, '\xff');
    return text;
}

struct volume_shape {
    bool authenticated = true;
    std::size_t store = 0xe000 - 0x48; /* bytes, as in OVMF's small images */
    std::size_t length = 0x20000;      /* of the volume */
};

/* The working block of the firmware, with this queue. */
inline std::string working_block(std::string_view queue = {})
{
    const EFI_GUID signature = {0x9e58292b, 0x7c68, 0x497d, {0xa0, 0xce, 0x65, 0x00, 0xfd, 0x9f, 0x1b, 0x95}};
    std::string text = stored(signature) + number(0x642caf2c, 4) + std::string("\xfe\xff\xff\xff") +
                       number(0xfe0, 8) + std::string(queue);
    text.resize(0x1000, '\xff');
    return text;
}

/* Corrects the checksum of a volume's header. */
inline void settle_checksum(std::string *volume)
{
    volume->replace(50, 2, 2, '\0');
    unsigned sum = 0;
    for (std::size_t at = 0; at < 72; at += 2)
        sum +=
            static_cast<unsigned char>((*volume)[at]) + static_cast<unsigned char>((*volume)[at + 1]) * 256u;
    volume->replace(50, 2, number(0x10000 - (sum & 0xffff), 2));
}

inline std::string volume(std::string_view variables, const volume_shape &shape = {},
                          std::string_view queue = {})
{
    const EFI_GUID of_variables = {
        0xfff12b8d, 0x7696, 0x4c8b, {0xa9, 0x85, 0x27, 0x47, 0x07, 0x5b, 0x4f, 0x50}};
    const EFI_GUID with_signatures = {
        0xaaf32c78, 0x947b, 0x439a, {0xa1, 0x80, 0x2e, 0x14, 0x4e, 0xc3, 0x77, 0x92}};
    const EFI_GUID without = {0xddcf3616, 0x3275, 0x4164, {0x98, 0xb6, 0xfe, 0x85, 0x70, 0x7f, 0xfe, 0x7d}};
    std::string text = std::string(16, '\0') + stored(of_variables) + number(shape.length, 8) + "_FVH" +
                       number(0x4feff, 4) + number(72, 2) + number(0, 2) + number(0, 2) + number(0x200, 2) +
                       number(shape.length / 0x1000, 4) + number(0x1000, 4) + number(0, 8);
    settle_checksum(&text);
    text += stored(shape.authenticated ? with_signatures : without) + number(shape.store, 4) + "\x5a\xfe" +
            number(0, 6);
    text += variables;
    text.resize(72 + shape.store, '\xff');
    pad(&text, 0x1000, '\xff');
    text += working_block(queue);
    text.resize(shape.length, '\xff');
    return text;
}

/* Bit by bit, as the polynomial says. */
inline std::uint32_t checksum(std::string_view text)
{
    std::uint32_t value = 0xffffffff;
    for (const char letter : text) {
        value ^= static_cast<unsigned char>(letter);
        for (int bit = 0; bit < 8; ++bit)
            value = (value >> 1) ^ ((value & 1) != 0 ? 0xedb88320 : 0);
    }
    return ~value;
}

inline std::string in_uboot_file(const entry &each)
{
    std::string text = number(each.data.size(), 4) + number(each.attributes, 4) +
                       number((each.attributes & 0x30) != 0 ? 1700000000 : 0, 8) + stored(each.guid) +
                       stored_units(each.name);
    text += each.data;
    pad(&text, 8, '\0');
    return text;
}

inline std::string uboot_file(std::string_view variables)
{
    return number(0, 8) + "UbEfiVa\1" + number(24 + variables.size(), 4) + number(checksum(variables), 4) +
           std::string(variables);
}

} // namespace ovra::test::images

#endif

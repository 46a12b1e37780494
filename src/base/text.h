/* SPDX-License-Identifier: MIT */
/*
 * Characters in UTF-8, and in UTF-16 as variables hold it. Each function takes one character off the front of
 * a text; its caller decides what to do with what is not a character.
 */
#ifndef SRC_BASE_TEXT_H
#define SRC_BASE_TEXT_H

#include <cstring>
#include <string_view>

#include "src/base/bytes.h"

namespace ovra {

inline constexpr char32_t replacement_character = 0xfffd;

constexpr bool is_high_surrogate(char32_t unit)
{
    return unit >= 0xd800 && unit <= 0xdbff;
}

constexpr bool is_low_surrogate(char32_t unit)
{
    return unit >= 0xdc00 && unit <= 0xdfff;
}

constexpr bool is_surrogate(char32_t unit)
{
    return unit >= 0xd800 && unit <= 0xdfff;
}

/* What a text begins with: a character, or one byte or unit that begins none. */
struct decoded_character {
    char32_t character = replacement_character;
    size_t size = 1; /* bytes of UTF-8, units of UTF-16 */
    bool valid = false;
};

/* The first character of a text that is not empty. What is not UTF-8 in its shortest form is no character. */
constexpr decoded_character first_of_utf8(std::string_view text)
{
    const auto byte = [text](size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return {lead, 1, true};
    struct form {
        unsigned char mask, mark;
        size_t size;
        char32_t least;
    };
    constexpr form forms[] = {{0xe0, 0xc0, 2, 0x80}, {0xf0, 0xe0, 3, 0x800}, {0xf8, 0xf0, 4, 0x10000}};
    for (const form &form : forms) {
        if ((lead & form.mask) != form.mark)
            continue;
        if (text.size() < form.size)
            return {};
        auto character = static_cast<char32_t>(lead & static_cast<unsigned char>(~form.mask));
        for (size_t at = 1; at < form.size; ++at) {
            if ((byte(at) & 0xc0) != 0x80)
                return {};
            character = character << 6 | (byte(at) & 0x3fu);
        }
        if (character < form.least || character > 0x10ffff || is_surrogate(character))
            return {};
        return {character, form.size, true};
    }
    return {};
}

/* Units in bytes that may stand at any address; an odd last byte is none. */
constexpr size_t unit_count(byte_view bytes)
{
    return bytes.size() / sizeof(uint16_t);
}

constexpr uint16_t unit_at(byte_view bytes, size_t index)
{
    return static_cast<uint16_t>(bytes[2 * index] | bytes[2 * index + 1] << 8);
}

/* The first character of UTF-16 text that is not empty. A surrogate without its partner is no character. */
constexpr decoded_character first_of_utf16(byte_view bytes)
{
    const char32_t first = unit_at(bytes, 0);
    if (!is_surrogate(first))
        return {first, 1, true};
    if (is_low_surrogate(first) || unit_count(bytes) < 2)
        return {};
    const char32_t second = unit_at(bytes, 1);
    if (!is_low_surrogate(second))
        return {};
    return {0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00), 2, true};
}

/* Bytes of UCS-2 text up to and with its terminator; empty when there is none. */
constexpr byte_view terminated_units(byte_view bytes)
{
    for (size_t index = 0; index < unit_count(bytes); ++index) {
        if (unit_at(bytes, index) == 0)
            return bytes.first((index + 1) * sizeof(uint16_t));
    }
    return {};
}

/* One character in UTF-8. */
class utf8_character {
public:
    constexpr explicit utf8_character(char32_t character)
    {
        if (character < 0x80) {
            put(character);
            return;
        }
        if (character < 0x800) {
            put(0xc0 | character >> 6);
        } else {
            if (character < 0x10000) {
                put(0xe0 | character >> 12);
            } else {
                put(0xf0 | character >> 18);
                put_tail(character >> 12);
            }
            put_tail(character >> 6);
        }
        put_tail(character);
    }

    constexpr std::string_view view() const { return {bytes, size}; }

private:
    constexpr void put(char32_t byte) { bytes[size++] = static_cast<char>(static_cast<unsigned char>(byte)); }
    constexpr void put_tail(char32_t bits) { put(0x80 | (bits & 0x3f)); }

    char bytes[4] = {};
    size_t size = 0;
};

/* One character in UTF-16. */
class utf16_character {
public:
    constexpr explicit utf16_character(char32_t character)
    {
        if (character > 0xffff) {
            units[size++] = static_cast<uint16_t>(0xd800 + ((character - 0x10000) >> 10));
            character = 0xdc00 + ((character - 0x10000) & 0x3ff);
        }
        units[size++] = static_cast<uint16_t>(character);
    }

    constexpr std::span<const uint16_t> view() const & { return {units, size}; }
    std::span<const uint16_t> view() const && = delete; // a loop would outlive it

private:
    uint16_t units[2] = {};
    size_t size = 0;
};

} // namespace ovra

#endif

/* SPDX-License-Identifier: MIT */
/*
 * Load options as variables hold them (EFI_LOAD_OPTION, UEFI 3.1.3), and the names of those variables.
 */
#ifndef SRC_BASE_LOAD_OPTION_H
#define SRC_BASE_LOAD_OPTION_H

#include <cstring>
#include <optional>
#include <string_view>

#include <ovra/uefi.h>

#include "src/base/bytes.h"
#include "src/base/number.h"
#include "src/base/text.h"

namespace ovra {

/* After it: the description with its terminator, path_length bytes of packed path, the optional data. */
struct load_option_header {
    uint32_t attributes;
    uint16_t path_length;
} OVRA_PACKED;
static_assert(sizeof(load_option_header) == 6 && alignof(load_option_header) == 1);

/* Bytes of a description that the library reads: in UCS-2 with the terminator, and in UTF-8 without it. */
inline constexpr size_t description_limit = 256;

struct load_option_parts {
    uint32_t attributes = 0;
    byte_view description; /* UCS-2 with its terminator */
    byte_view path;        /* packed */
    byte_view optional_data;
};

/* A variable's parts as far as they lie inside it. */
struct stored_load_option : load_option_parts {
    uint16_t path_length = 0; /* as the header says */

    /* The variable ends before the description does: there are no other parts then. */
    bool has_description() const { return !description.empty(); }

    /* All parts are there. */
    bool is_whole() const { return has_description() && path.size() == path_length; }
};

/* Nothing when the variable is shorter than the header. */
inline std::optional<stored_load_option> split_load_option(byte_view variable)
{
    load_option_header header = {};
    if (variable.size() < sizeof header)
        return std::nullopt;
    memcpy(&header, variable.data(), sizeof header);
    stored_load_option option;
    option.attributes = header.attributes;
    option.path_length = header.path_length;
    byte_view rest = variable.subspan(sizeof header);
    option.description = terminated_units(rest);
    rest = rest.subspan(option.description.size());
    if (!option.has_description() || rest.size() < header.path_length)
        return option;
    option.path = rest.first(header.path_length);
    option.optional_data = rest.subspan(header.path_length);
    return option;
}

/* Bytes that an option takes as a variable. */
constexpr size_t stored_size(const load_option_parts &parts)
{
    return sizeof(load_option_header) + parts.description.size() + parts.path.size() +
           parts.optional_data.size();
}

/*
 * Writes an option as it is stored. False, with `out` unchanged, when it is smaller than stored_size. The
 * header holds the lower 16 bits of the path's length.
 */
inline bool write_load_option(const load_option_parts &parts, std::span<uint8_t> out)
{
    if (out.size() < stored_size(parts))
        return false;
    const load_option_header header = {parts.attributes, static_cast<uint16_t>(parts.path.size())};
    uint8_t *to = out.data();
    for (const byte_view part : {bytes_of(header), parts.description, parts.path, parts.optional_data}) {
        if (!part.empty())
            memcpy(to, part.data(), part.size());
        to += part.size();
    }
    return true;
}

/* "Boot" and a number, as the variable of an option is named. */
struct option_name {
    static constexpr size_t length = 8;
    char text[length + 1] = "Boot";

    constexpr explicit option_name(uint16_t number)
    {
        for (unsigned at = 0; at < 4; ++at)
            text[4 + at] = hex_digit(number >> (12 - 4 * at) & 15u, letters::upper);
    }

    constexpr operator const char *() const { return text; }
    constexpr std::string_view view() const { return {text, length}; }
    constexpr std::string_view digits() const { return view().substr(4); }
};

/* The number that four digits give, as in an option's name; nothing for any other text. */
constexpr std::optional<uint16_t> option_digits(std::string_view digits)
{
    if (digits.size() != option_name::length - 4)
        return std::nullopt;
    unsigned number = 0;
    for (const char digit : digits)
        number = number << 4 | (digit_value(digit) & 15);
    const auto value = static_cast<uint16_t>(number);
    return option_name(value).digits() == digits ? std::optional(value) : std::nullopt;
}

/* The number in an option's name; nothing for any other text. */
constexpr std::optional<uint16_t> option_number(std::string_view name)
{
    return name.substr(0, 4) == "Boot" ? option_digits(name.substr(4)) : std::nullopt;
}

} // namespace ovra

#endif

/* SPDX-License-Identifier: MIT */
/*
 * GUIDs and their text, "8be4df61-93ca-11d2-aa0d-00e098032b8c". The first three groups of the text are
 * numbers, stored little-endian; the other bytes are stored in the order of the text (UEFI appendix A).
 */
#ifndef SRC_BASE_GUID_H
#define SRC_BASE_GUID_H

#include <array>
#include <bit>
#include <cstring>
#include <optional>
#include <string_view>

#include <ovra/uefi.h>

#include "src/base/bytes.h"
#include "src/base/number.h"

namespace ovra {

/* EFI_GLOBAL_VARIABLE (UEFI 3.3): the vendor of BootOrder and all that belongs to it. */
inline constexpr EFI_GUID global_variable_guid = {
    0x8be4df61, 0x93ca, 0x11d2, {0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c}};

using guid_bytes = std::array<uint8_t, sizeof(EFI_GUID)>;

/* A GUID's bytes as they are stored. */
constexpr guid_bytes stored_guid(const EFI_GUID &guid)
{
    return std::bit_cast<guid_bytes>(guid);
}

/* The GUID that is stored in `bytes`; nothing unless they are as many as a GUID has. */
inline std::optional<EFI_GUID> guid_of(byte_view bytes)
{
    EFI_GUID guid = {};
    if (bytes.size() != sizeof guid)
        return std::nullopt;
    memcpy(&guid, bytes.data(), sizeof guid);
    return guid;
}

constexpr bool same_guid(const EFI_GUID &a, const EFI_GUID &b)
{
    return stored_guid(a) == stored_guid(b);
}

inline constexpr size_t guid_length = 36;
inline constexpr size_t guid_dashes[] = {8, 13, 18, 23};

/* Where a byte's two digits begin in the text, and where it is stored. */
struct guid_place {
    uint8_t in_text;
    uint8_t in_bytes;
};
inline constexpr guid_place guid_places[] = {{0, 3},   {2, 2},   {4, 1},   {6, 0},  {9, 5},   {11, 4},
                                             {14, 7},  {16, 6},  {19, 8},  {21, 9}, {24, 10}, {26, 11},
                                             {28, 12}, {30, 13}, {32, 14}, {34, 15}};

/* The text of a GUID, terminated. */
class guid_text {
public:
    constexpr guid_text(const EFI_GUID &guid, letters of)
    {
        for (const size_t dash : guid_dashes)
            text[dash] = '-';
        const guid_bytes bytes = stored_guid(guid);
        for (const auto [in_text, in_bytes] : guid_places) {
            text[in_text] = hex_digit(bytes[in_bytes] >> 4, of);
            text[in_text + 1] = hex_digit(bytes[in_bytes] & 15, of);
        }
    }

    constexpr const char *c_str() const { return text; }
    constexpr std::string_view view() const { return {text, guid_length}; }

private:
    char text[guid_length + 1] = {};
};

/* The GUID of a text of exactly this form, in letters of either case; nothing for any other text. */
constexpr std::optional<EFI_GUID> parse_guid(std::string_view text)
{
    if (text.size() != guid_length)
        return std::nullopt;
    for (const size_t dash : guid_dashes) {
        if (text[dash] != '-')
            return std::nullopt;
    }
    guid_bytes bytes = {};
    unsigned digits = 0; // all their bits: of other characters the values have more than four
    for (const auto [in_text, in_bytes] : guid_places) {
        const unsigned high = digit_value(text[in_text]);
        const unsigned low = digit_value(text[in_text + 1]);
        digits |= high | low;
        bytes[in_bytes] = static_cast<uint8_t>(high << 4 | low);
    }
    if (digits > 15)
        return std::nullopt;
    return std::bit_cast<EFI_GUID>(bytes);
}

} // namespace ovra

#endif

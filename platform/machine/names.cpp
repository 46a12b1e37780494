// SPDX-License-Identifier: MIT
#include "platform/machine/names.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdio>

namespace machine {

namespace {

constexpr std::size_t guid_length = 36; // 8-4-4-4-12 digits
constexpr std::string_view guid_shape = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
static_assert(guid_shape.size() == guid_length);

constexpr bool is_high_surrogate(unsigned unit)
{
    return unit >= 0xd800 && unit <= 0xdbff;
}

constexpr bool is_low_surrogate(unsigned unit)
{
    return unit >= 0xdc00 && unit <= 0xdfff;
}

constexpr bool is_lower_hex(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

constexpr unsigned digit_value(char c)
{
    return static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
}

void append_byte(std::string *text, unsigned byte)
{
    text->push_back(static_cast<char>(static_cast<unsigned char>(byte)));
}

void append_utf8(std::string *text, unsigned code)
{
    if (code < 0x80) {
        append_byte(text, code);
        return;
    }
    if (code < 0x800) {
        append_byte(text, 0xc0 | (code >> 6));
    } else {
        if (code < 0x10000) {
            append_byte(text, 0xe0 | (code >> 12));
        } else {
            append_byte(text, 0xf0 | (code >> 18));
            append_byte(text, 0x80 | ((code >> 12) & 0x3f));
        }
        append_byte(text, 0x80 | ((code >> 6) & 0x3f));
    }
    append_byte(text, 0x80 | (code & 0x3f));
}

// Takes one code point off the front; nothing for an unpaired surrogate.
std::optional<unsigned> take_utf16(name_view *rest)
{
    const unsigned first = rest->front();
    *rest = rest->subspan(1);
    if (is_low_surrogate(first))
        return std::nullopt;
    if (!is_high_surrogate(first))
        return first;
    if (rest->empty() || !is_low_surrogate(rest->front()))
        return std::nullopt;
    const unsigned second = rest->front();
    *rest = rest->subspan(1);
    return 0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00);
}

// Takes one code point off the front; nothing unless it is UTF-8 in its shortest form.
std::optional<unsigned> take_utf8(std::string_view *rest)
{
    struct form {
        unsigned mask, lead, least;
    };
    static constexpr std::array<form, 4> forms = {
        {{0x80, 0x00, 0}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}}};

    const unsigned lead = static_cast<unsigned char>(rest->front());
    const auto *match = std::ranges::find_if(forms, [&](const form &f) { return (lead & f.mask) == f.lead; });
    if (match == forms.end())
        return std::nullopt;
    const auto length = static_cast<std::size_t>(match - forms.begin()) + 1;
    if (rest->size() < length)
        return std::nullopt;
    unsigned code = lead & ~match->mask;
    for (char c : rest->substr(1, length - 1)) {
        unsigned byte = static_cast<unsigned char>(c);
        if ((byte & 0xc0) != 0x80)
            return std::nullopt;
        code = (code << 6) | (byte & 0x3f);
    }
    rest->remove_prefix(length);
    if (code < match->least || code > 0x10ffff || is_high_surrogate(code) || is_low_surrogate(code))
        return std::nullopt;
    return code;
}

void append_guid(std::string *text, const EFI_GUID &guid)
{
    std::array<char, guid_length + 1> buffer = {};
    const uint8_t *tail = guid.Data4;
    std::snprintf(buffer.data(), buffer.size(), "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  guid.Data1, guid.Data2, guid.Data3, tail[0], tail[1], tail[2], tail[3], tail[4], tail[5],
                  tail[6], tail[7]);
    text->append(buffer.data());
}

std::optional<EFI_GUID> guid_of(std::string_view text)
{
    const bool shaped = std::ranges::equal(text, guid_shape, [](char c, char expected) {
        return expected == 'x' ? is_lower_hex(c) : c == expected;
    });
    if (!shaped)
        return std::nullopt;
    const auto number = [&](std::size_t at, std::size_t digits) {
        unsigned value = 0;
        for (char c : text.substr(at, digits))
            value = (value << 4) | digit_value(c);
        return value;
    };
    EFI_GUID guid = {
        number(0, 8), static_cast<uint16_t>(number(9, 4)), static_cast<uint16_t>(number(14, 4)), {}};
    static constexpr std::array<std::size_t, 8> tail = {19, 21, 24, 26, 28, 30, 32, 34};
    std::ranges::transform(tail, static_cast<uint8_t *>(guid.Data4),
                           [&](std::size_t at) { return static_cast<uint8_t>(number(at, 2)); });
    return guid;
}

// UTF-8 to units; nothing for any other text.
std::optional<std::vector<CHAR16>> units_of(std::string_view text)
{
    std::vector<CHAR16> units;
    while (!text.empty()) {
        auto code = take_utf8(&text);
        if (!code)
            return std::nullopt;
        if (*code == '!')
            code = '/';
        if (*code < 0x10000) {
            units.push_back(static_cast<CHAR16>(*code));
        } else {
            units.push_back(static_cast<CHAR16>(0xd800 + ((*code - 0x10000) >> 10)));
            units.push_back(static_cast<CHAR16>(0xdc00 + ((*code - 0x10000) & 0x3ff)));
        }
    }
    return units;
}

} // namespace

std::optional<name_view> terminated_name(const CHAR16 *name, UINTN size)
{
    // No file name has more units than NAME_MAX, whatever size the caller claims.
    const name_view within(name,
                           static_cast<std::size_t>(std::min<UINTN>(size / sizeof(CHAR16), NAME_MAX + 1)));
    const auto end = std::ranges::find(within, CHAR16{0});
    if (end == within.end())
        return std::nullopt;
    return within.first(static_cast<std::size_t>(end - within.begin()));
}

std::optional<std::string> file_name_of(name_view name, const EFI_GUID &guid)
{
    if (name.empty() || name.size() > NAME_MAX)
        return std::nullopt;
    std::string text;
    while (!name.empty()) {
        const auto code = take_utf16(&name);
        if (!code || *code == 0)
            return std::nullopt;
        append_utf8(&text, *code == '/' ? '!' : *code);
    }
    text.push_back('-');
    append_guid(&text, guid);
    if (text.size() > NAME_MAX)
        return std::nullopt;
    return text;
}

std::optional<variable_identity> identity_of(std::string_view file_name)
{
    if (file_name.size() < guid_length + 2 || file_name.size() > NAME_MAX)
        return std::nullopt;
    // The name may contain "-" itself; the GUID comes last.
    std::string_view name = file_name.substr(0, file_name.size() - guid_length);
    const auto guid = guid_of(file_name.substr(name.size()));
    if (!guid || name.back() != '-')
        return std::nullopt;
    name.remove_suffix(1);
    auto units = units_of(name);
    if (!units)
        return std::nullopt;
    return variable_identity{std::move(*units), *guid};
}

} // namespace machine

// SPDX-License-Identifier: MIT
#include "tools/exchange/quoted.h"

#include <algorithm>

#include "src/base/text.h"
#include "src/base/whole_number.h"

namespace tool {

namespace {

constexpr size_t short_digits = 4; // of \u
constexpr size_t long_digits = 8;  // of \U
constexpr char32_t first_beyond_units = 0x10000;
constexpr char32_t last_character = 0x10ffff;

bool needs_backslash(char32_t character)
{
    return character == '"' || character == '\\';
}

// Takes what one backslash begins off the text, the backslash itself gone already.
char32_t take_escape(std::string_view *text)
{
    const char kind = text->empty() ? '\0' : text->front();
    if (kind != '\0')
        text->remove_prefix(1);
    if (kind == '"' || kind == '\\')
        return static_cast<unsigned char>(kind);
    const size_t size = kind == 'u' ? short_digits : kind == 'U' ? long_digits : 0;
    const std::string_view digits = text->substr(0, std::min(size, text->size()));
    const auto value = ovra::whole_number<uint32_t>(digits, 16);
    if (size == 0 || digits.size() != size || !value)
        throw unclear_quotes("after a backslash stands \", \\, u and four or U and eight hexadecimal digits");
    if (*value == 0 || *value > last_character || (size == long_digits && ovra::is_surrogate(*value)))
        throw unclear_quotes("no text holds the character \\" + std::string(1, kind) + std::string(digits));
    text->remove_prefix(size);
    return *value;
}

// Hands over the characters between the quotes, surrogates that stand alone among them.
template <typename taker>
void read_quoted(std::string_view text, const taker &take)
{
    if (text.size() < 2 || !text.starts_with('"'))
        throw unclear_quotes("a text in quotes is needed");
    text.remove_prefix(1);
    for (;;) {
        if (text.empty())
            throw unclear_quotes("the quote at the end is missing");
        const auto next = ovra::first_of_utf8(text);
        if (!next.valid)
            throw unclear_quotes("it is no UTF-8");
        text.remove_prefix(next.size);
        if (next.character == '"')
            break;
        take(next.character == '\\' ? take_escape(&text) : next.character);
    }
    if (!text.empty())
        throw unclear_quotes("something follows the quote at the end; one inside has a backslash in front");
}

void append_unit(bytes *to, uint16_t unit)
{
    to->push_back(static_cast<uint8_t>(unit & 0xff));
    to->push_back(static_cast<uint8_t>(unit >> 8));
}

} // namespace

std::string quoted_units(byte_view units)
{
    std::string text = "\"";
    while (units.size() >= sizeof(CHAR16)) {
        const auto next = ovra::first_of_utf16(units);
        const char32_t character = next.valid ? next.character : ovra::unit_at(units, 0);
        const std::string utf8(ovra::utf8_character(character).view());
        units = units.subspan(next.size * sizeof(CHAR16));
        if (needs_backslash(character))
            text += '\\' + utf8;
        else if (next.valid && shows(character))
            text += utf8;
        else
            text += format(character < first_beyond_units ? "\\u%04x" : "\\U%08x",
                           static_cast<unsigned>(character));
    }
    return text + '"';
}

std::string quoted_ascii(byte_view ascii)
{
    std::string text = "\"";
    for (const uint8_t byte : ascii) {
        if (needs_backslash(byte))
            text += '\\';
        text += static_cast<char>(byte);
    }
    return text + '"';
}

bytes unquoted_units(std::string_view text)
{
    bytes units;
    read_quoted(text, [&units](char32_t character) {
        const ovra::utf16_character utf16(character);
        for (const CHAR16 unit : utf16.view())
            append_unit(&units, unit);
    });
    return units;
}

bytes unquoted_ascii(std::string_view text)
{
    bytes ascii;
    read_quoted(text, [&ascii](char32_t character) {
        if (character > 0x7f)
            throw unclear_quotes("a character is not ASCII");
        ascii.push_back(static_cast<uint8_t>(character));
    });
    return ascii;
}

} // namespace tool

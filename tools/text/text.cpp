// SPDX-License-Identifier: MIT
#include "tools/text/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <cwctype>

#include "src/base/text.h"
#include "tools/text/terminal.h"

namespace tool {

namespace {

// Characters that change how the text around them is shown, or show nothing or a blank: those of the Unicode
// Character Database with Default_Ignorable_Code_Point, Bidi_Control, Prepended_Concatenation_Mark or the
// general categories Zs, Zl and Zp, without the blank itself, and the empty pattern of Braille.
bool misleads(char32_t character)
{
    struct range {
        char32_t first, last;
    };
    static constexpr range ranges[] = {
        {0xa0, 0xa0},       {0xad, 0xad},       {0x34f, 0x34f},    {0x600, 0x605},     {0x61c, 0x61c},
        {0x6dd, 0x6dd},     {0x70f, 0x70f},     {0x890, 0x891},    {0x8e2, 0x8e2},     {0x115f, 0x1160},
        {0x1680, 0x1680},   {0x17b4, 0x17b5},   {0x180b, 0x180f},  {0x2000, 0x200f},   {0x2028, 0x202f},
        {0x205f, 0x206f},   {0x2800, 0x2800},   {0x3000, 0x3000},  {0x3164, 0x3164},   {0xfe00, 0xfe0f},
        {0xfeff, 0xfeff},   {0xffa0, 0xffa0},   {0xfff0, 0xfffb},  {0x110bd, 0x110bd}, {0x110cd, 0x110cd},
        {0x1bca0, 0x1bca3}, {0x1d173, 0x1d17a}, {0xe0000, 0xe0fff}};
    return std::any_of(std::begin(ranges), std::end(ranges), [character](const range &range) {
        return character >= range.first && character <= range.last;
    });
}

// The beginning of a text that is ASCII and shows, as nearly all text does, in one column each.
std::string_view plain_beginning(std::string_view text)
{
    const auto is_plain = [](char c) { return c >= 0x20 && c < 0x7f; };
    // Eight at a time: the highest bit of a byte is set in one of the three if it is not plain. What is
    // carried over from another byte only makes a plain one be looked at again.
    constexpr uint64_t ones = 0x0101010101010101;
    size_t at = 0;
    for (uint64_t eight = 0; at + sizeof eight <= text.size(); at += sizeof eight) {
        memcpy(&eight, text.data() + at, sizeof eight);
        if (((eight | (eight - 0x20 * ones) | (eight + ones)) & 0x80 * ones) != 0)
            break;
    }
    return {text.begin(), std::find_if_not(text.begin() + at, text.end(), is_plain)};
}

std::vector<CHAR16> units_of(byte_view data)
{
    std::vector<CHAR16> units;
    for (size_t at = 0; at < ovra::unit_count(data); ++at)
        units.push_back(ovra::unit_at(data, at));
    return units;
}

} // namespace

std::optional<std::vector<CHAR16>> to_ucs2(std::string_view utf8)
{
    std::vector<CHAR16> units;
    units.reserve(utf8.size() + 1);
    while (!utf8.empty()) {
        const auto next = ovra::first_of_utf8(utf8);
        if (!next.valid || next.character == 0 || next.character > 0xffff)
            return std::nullopt;
        units.push_back(static_cast<CHAR16>(next.character));
        utf8.remove_prefix(next.size);
    }
    units.push_back(0);
    return units;
}

bytes stored(std::span<const CHAR16> text)
{
    const byte_view data = ovra::bytes_of_units(text);
    return {data.begin(), data.end()};
}

std::string to_utf8(std::span<const CHAR16> text)
{
    // Nearly all characters are of one byte.
    const auto is_ascii = [](CHAR16 unit) { return unit != 0 && unit < 0x80; };
    const auto plain =
        static_cast<size_t>(std::find_if_not(text.begin(), text.end(), is_ascii) - text.begin());
    std::string utf8(plain, '\0');
    std::transform(text.begin(), text.begin() + static_cast<ptrdiff_t>(plain), utf8.begin(),
                   [](CHAR16 unit) { return static_cast<char>(unit); });
    text = text.subspan(plain);
    while (!text.empty() && text.front() != 0) {
        const auto next = ovra::first_of_utf16(ovra::bytes_of_units(text));
        utf8 += ovra::utf8_character(next.character).view();
        text = text.subspan(next.size);
    }
    return utf8;
}

bool assign_utf8(byte_view units, std::string *utf8)
{
    utf8->resize(ovra::unit_count(units));
    size_t at = 0;
    // Four at a time while they are ASCII: of a unit that is 0 the subtraction sets the highest bit. What it
    // takes from the next unit only makes that be looked at again.
    constexpr uint64_t ones = 0x0001000100010001;
    for (uint64_t four = 0; at + 4 <= utf8->size(); at += 4) {
        memcpy(&four, units.data() + 2 * at, sizeof four);
        if (((four | (four - ones)) & 0xff80 * ones) != 0)
            break;
        four |= four >> 8; // the bytes 0 and 2, 4 and 6 side by side
        const uint64_t two = (four & 0xffff) | (four >> 16 & 0xffff0000);
        memcpy(utf8->data() + at, &two, 4);
    }
    utf8->resize(at);
    for (; at < ovra::unit_count(units); ++at) {
        const uint16_t unit = ovra::unit_at(units, at);
        if (ovra::is_surrogate(unit))
            return false;
        if (unit == 0)
            break;
        *utf8 += ovra::utf8_character(unit).view();
    }
    return true;
}

std::optional<std::string> as_text(byte_view data)
{
    if (data.empty())
        return std::nullopt;
    const byte_view unterminated = data.back() == 0 ? data.first(data.size() - 1) : data;
    const auto is_ascii = [](uint8_t byte) { return byte >= 0x20 && byte < 0x7f; };
    if (!unterminated.empty() && std::all_of(unterminated.begin(), unterminated.end(), is_ascii))
        return std::string(unterminated.begin(), unterminated.end());

    if (data.size() % 2 != 0)
        return std::nullopt;
    std::vector<CHAR16> units = units_of(data);
    const bool terminated = units.back() == 0;
    if (terminated)
        units.pop_back();
    // Nearly any pair of bytes is some character: without a terminator only European letters count as text.
    const auto is_text = [terminated](CHAR16 unit) {
        return (terminated || unit < 0x250) && !ovra::is_surrogate(unit) && shows(unit);
    };
    if (units.empty() || !std::all_of(units.begin(), units.end(), is_text))
        return std::nullopt;
    return to_utf8(units);
}

bool shows(char32_t character)
{
    if (character < 0x80)
        return character >= 0x20 && character != 0x7f;
    return !misleads(character) && std::iswprint(static_cast<wint_t>(character)) != 0;
}

bool shows_here(char32_t character)
{
    return shows(character) && (character < 0x80 || shows_utf8());
}

std::string escaped_character(char32_t character)
{
    return format(character > 0xffff ? "\\U%08x" : "\\u%04x", static_cast<unsigned>(character));
}

std::string printable(std::string_view utf8)
{
    std::string shown;
    for (;;) {
        const std::string_view plain = plain_beginning(utf8);
        shown += plain;
        utf8.remove_prefix(plain.size());
        if (utf8.empty())
            return shown;
        const auto next = ovra::first_of_utf8(utf8);
        if (!next.valid)
            shown += format("\\x%02x", static_cast<unsigned char>(utf8[0]));
        else if (shows_here(next.character))
            shown += utf8.substr(0, next.size);
        else
            shown += escaped_character(next.character);
        utf8.remove_prefix(next.size);
    }
}

bool is_plain(std::string_view utf8)
{
    return plain_beginning(utf8).size() == utf8.size();
}

std::string escaped_in_json(std::string_view document)
{
    std::string escaped;
    for (;;) {
        const std::string_view plain = plain_beginning(document);
        escaped += plain;
        document.remove_prefix(plain.size());
        if (document.empty())
            return escaped;
        const auto next = ovra::first_of_utf8(document);
        if (next.character == '\n' || shows(next.character)) {
            escaped += document.substr(0, next.size);
        } else {
            const ovra::utf16_character utf16(next.character);
            for (const CHAR16 unit : utf16.view())
                escaped += format("\\u%04x", unit);
        }
        document.remove_prefix(next.size);
    }
}

size_t columns(std::string_view utf8)
{
    size_t total = 0;
    for (;;) {
        const size_t plain = plain_beginning(utf8).size();
        total += plain;
        utf8.remove_prefix(plain);
        if (utf8.empty())
            return total;
        const auto next = ovra::first_of_utf8(utf8);
        const int width = wcwidth(static_cast<wchar_t>(next.character));
        total += width < 0 ? 1 : static_cast<size_t>(width);
        utf8.remove_prefix(next.size);
    }
}

std::string in_quotes(std::string_view text)
{
    return '"' + printable(text) + '"';
}

std::string broken(const std::string &line, size_t indent)
{
    constexpr size_t longest_word = 24;
    const std::string next_line = "\n      ";
    if (indent + columns(line) <= line_width || line.find('"') != std::string::npos || line.starts_with(' '))
        return line;
    std::string all;
    size_t column = indent;
    for (size_t begin = 0; begin < line.size();) {
        const size_t end = std::min(line.find(' ', begin), line.size());
        const std::string word = line.substr(begin, end - begin);
        if (word.size() > longest_word || word.find('/') != std::string::npos)
            return line;
        const bool is_first = all.empty();
        if (!is_first && column + 1 + columns(word) > line_width) {
            all += next_line;
            column = next_line.size() - 1;
        } else if (!is_first) {
            all += ' ';
            ++column;
        }
        all += word;
        column += columns(word);
        begin = end + 1;
    }
    return all;
}

std::string join(const std::vector<std::string> &words, std::string_view separator)
{
    std::string text;
    for (const std::string &word : words) {
        if (&word != &words.front())
            text += separator;
        text += word;
    }
    return text;
}

std::string format(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int size = vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string text(size > 0 ? static_cast<size_t>(size) : 0, '\0');
    vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

} // namespace tool

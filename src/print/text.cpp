// SPDX-License-Identifier: MIT
#include "src/print/text.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "src/base/guid.h"
#include "src/print/print.h"

using namespace ovra;

namespace {

// What follows a percent sign, as far as the formats of nodes have it.
struct directive {
    enum class size : uint8_t { plain, byte, eight_bytes };

    size_t least = 0; // digits, with zeros in front
    size of = size::plain;
    char conversion = '\0';
    const char *end = nullptr;
};

directive read_directive(const char *format)
{
    directive read;
    if (*format == '0') {
        for (; is_ascii_digit(*format); ++format)
            read.least = read.least * 10 + digit_value(*format);
    }
    if (format[0] == 'h' && format[1] == 'h') {
        read.of = directive::size::byte;
        format += 2;
    } else if (format[0] == 'l') {
        read.of = directive::size::eight_bytes;
        ++format;
    }
    read.conversion = *format;
    read.end = format + 1;
    return read;
}

uint64_t next_unsigned(const directive &wanted, va_list *arguments)
{
    if (wanted.of == directive::size::eight_bytes)
        return va_arg(*arguments, uint64_t);
    const auto value = va_arg(*arguments, unsigned);
    return wanted.of == directive::size::byte ? static_cast<uint8_t>(value) : value;
}

int64_t next_signed(const directive &wanted, va_list *arguments)
{
    if (wanted.of == directive::size::eight_bytes)
        return va_arg(*arguments, int64_t);
    const auto value = va_arg(*arguments, int);
    return wanted.of == directive::size::byte ? static_cast<int8_t>(value) : value;
}

char *write_signed(int64_t value, size_t least, char *end)
{
    if (value >= 0)
        return write_decimal(static_cast<uint64_t>(value), least, end);
    char *first = write_decimal(0 - static_cast<uint64_t>(value), std::max<size_t>(least, 1) - 1, end);
    *--first = '-';
    return first;
}

// The next argument as a number in front of `end`: its first character; null for what is no number.
char *write_number(const directive &wanted, va_list *arguments, char *end)
{
    switch (wanted.conversion) {
    case 'd':
        return write_signed(next_signed(wanted, arguments), wanted.least, end);
    case 'u':
        return write_decimal(next_unsigned(wanted, arguments), wanted.least, end);
    case 'x':
        return write_hexadecimal(next_unsigned(wanted, arguments), letters::lower, wanted.least, end);
    case 'X':
        return write_hexadecimal(next_unsigned(wanted, arguments), letters::upper, wanted.least, end);
    default:
        return nullptr;
    }
}

} // namespace

bool text::add_known(const char *format, va_list *arguments)
{
    size_t at = length; // pieces are short: their characters are put one by one
    const auto put_one = [&](char c) {
        if (at < limit)
            buffer[at++] = c;
    };
    while (const char c = *format) {
        if (c != '%') {
            put_one(c);
            ++format;
            continue;
        }
        const directive wanted = read_directive(format + 1);
        format = wanted.end;
        if (wanted.conversion == 's' && wanted.least == 0 && wanted.of == directive::size::plain) {
            length = at;
            put(va_arg(*arguments, const char *));
            at = length;
            continue;
        }
        char digits[longest_number + 1]; // and a sign
        char *const end = std::end(digits);
        const char *digit = wanted.least <= longest_number ? write_number(wanted, arguments, end) : nullptr;
        if (!digit)
            return false;
        while (digit != end)
            put_one(*digit++);
    }
    length = at;
    buffer[at] = '\0';
    return true;
}

void text::add(const char *format, ...)
{
    const size_t before = length;
    va_list arguments;
    va_start(arguments, format);
    const bool known = add_known(format, &arguments);
    va_end(arguments);
    if (known)
        return;
    // A directive that no node has needed yet.
    length = before;
    va_start(arguments, format);
    const int wanted = vsnprintf(buffer + length, sizeof buffer - length, format, arguments);
    va_end(arguments);
    if (wanted > 0)
        length += std::min(static_cast<size_t>(wanted), limit - length);
}

void ovra::add_word(text &to, std::span<const word> words, unsigned value)
{
    if (const word *word = by_value(words, value))
        to.put(word->text);
    else
        to.add("%u", value);
}

void device_path_hexdump(const uefi_device_path_t *node, char **hex)
{
    // Kept: the dump begins with the node's own length. [kept_hex_text_begins_with_the_length]
    constexpr size_t skipped = offsetof(uefi_device_path_t, len);
    const size_t count = node->len < skipped ? 0 : node->len - skipped;
    *hex = static_cast<char *>(malloc(2 * count + 1));
    if (*hex)
        *write_hex({reinterpret_cast<const uint8_t *>(node) + skipped, count}, *hex) = '\0';
}

void append_uefi_path(const char *piece, char **to)
{
    const size_t length = *to ? strlen(*to) : 0;
    const size_t size = strlen(piece) + 1;
    auto *grown = static_cast<char *>(realloc(*to, length + size));
    if (!grown)
        return;
    memcpy(grown + length, piece, size);
    *to = grown;
}

void print_guid(const EFI_GUID *guid, char *out)
{
    const guid_text digits(*guid, letters::upper);
    memcpy(out, digits.c_str(), guid_length + 1);
}

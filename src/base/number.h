/* SPDX-License-Identifier: MIT */
/*
 * Numbers in text, read and written as the C library does it in its own locale, "C", whatever locale the
 * program has set and whichever notations a later C library adds.
 */
#ifndef SRC_BASE_NUMBER_H
#define SRC_BASE_NUMBER_H

#include <array>
#include <cerrno>
#include <cstdint>

#include "src/base/ascii.h"

namespace ovra {

/* The digits of a number, after white space, a sign and the prefix of its base. */
struct number_text {
    uint64_t magnitude = 0;    /* UINT64_MAX when it is larger */
    bool negative = false;     /* there was a minus */
    bool any = false;          /* there was a digit; else the rest says nothing */
    bool too_large = false;    /* it does not fit into 64 bits */
    bool bare_prefix = false;  /* "0x" without a digit after it: the number is the 0, and `end` is the x */
    const char *end = nullptr; /* after the last digit */
};

/* By the character; 36 for one that is no digit. */
inline constexpr auto digit_values = [] {
    std::array<uint8_t, 256> values = {};
    values.fill(36);
    for (unsigned digit = 0; digit < 36; ++digit) {
        values[digit < 10 ? '0' + digit : 'a' + digit - 10] = static_cast<uint8_t>(digit);
        values[digit < 10 ? '0' + digit : 'A' + digit - 10] = static_cast<uint8_t>(digit);
    }
    return values;
}();

/* The value of a digit; 36 for any other character. */
constexpr unsigned digit_value(char c)
{
    return digit_values[static_cast<unsigned char>(c)];
}

enum class letters : uint8_t { lower, upper };

/* The hexadecimal digit of a value below 16. */
constexpr char hex_digit(unsigned value, letters of)
{
    return (of == letters::lower ? "0123456789abcdef" : "0123456789ABCDEF")[value & 15];
}

/* `base` is 2 to 36, or 0: 16 after "0x", 8 after another 0, else 10. Base 16 takes "0x" too. */
constexpr number_text read_digits(const char *text, unsigned base)
{
    number_text number;
    while (is_ascii_space(*text))
        ++text;
    if (*text == '-' || *text == '+')
        number.negative = *text++ == '-';
    const bool prefixed = text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && (base == 0 || base == 16);
    if (prefixed && digit_value(text[2]) >= 16) {
        number.any = true;
        number.bare_prefix = true;
        number.end = text + 1;
        return number;
    }
    if (base == 0)
        base = prefixed ? 16 : *text == '0' ? 8 : 10;
    if (prefixed)
        text += 2;
    const char *const first = text;
    for (uint64_t digit; (digit = digit_value(*text)) < base; ++text) {
        number.too_large |= __builtin_mul_overflow(number.magnitude, uint64_t{base}, &number.magnitude);
        number.too_large |= __builtin_add_overflow(number.magnitude, digit, &number.magnitude);
    }
    if (number.too_large)
        number.magnitude = UINT64_MAX;
    number.any = text != first;
    number.end = text;
    return number;
}

/*
 * strtoull. The result is the number, two's complement after a minus; UINT64_MAX with *error ERANGE when it
 * does not fit; 0 with EINVAL for an invalid base; 0 without an error when there is no digit. *end (may be
 * null) is what follows the number, the whole text when there is none.
 */
constexpr uint64_t read_unsigned(const char *text, const char **end, int base, int *error)
{
    *error = 0;
    if (end)
        *end = text;
    if (base < 0 || base == 1 || base > 36) {
        *error = EINVAL;
        return 0;
    }
    const number_text number = read_digits(text, static_cast<unsigned>(base));
    if (!number.any)
        return 0;
    if (end)
        *end = number.end;
    if (number.too_large) {
        *error = ERANGE;
        return UINT64_MAX;
    }
    return number.negative ? 0 - number.magnitude : number.magnitude;
}

/* strtol in base 10, as atoi calls it: 0 without a digit, and the nearest that fits for what does not. */
constexpr int64_t read_decimal(const char *text)
{
    const number_text number = read_digits(text, 10);
    if (number.magnitude > INT64_MAX)
        return number.negative ? INT64_MIN : INT64_MAX;
    const auto value = static_cast<int64_t>(number.magnitude);
    return number.negative ? -value : value;
}

/*
 * What sscanf reads for %u (base 10) and %x (16), before it is cut to the width of its target. False without
 * a number, with *value and *text as they were; else *text follows it.
 */
constexpr bool scan_number(const char **text, unsigned base, uint64_t *value)
{
    const number_text number = read_digits(*text, base);
    if (!number.any)
        return false;
    *value = number.negative && !number.too_large ? 0 - number.magnitude : number.magnitude;
    *text = number.end + number.bare_prefix;
    return true;
}

/* Digits that a number of 64 bits has at most, whether decimal or hexadecimal. */
inline constexpr size_t longest_number = 20;

/* Writes a number in front of `end`, with zeros to at least so many digits, and returns its first. */
constexpr char *write_decimal(uint64_t value, size_t least, char *end)
{
    char *const filled = end - least;
    do {
        *--end = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (end > filled)
        *--end = '0';
    return end;
}
constexpr char *write_hexadecimal(uint64_t value, letters of, size_t least, char *end)
{
    char *const filled = end - least;
    do {
        *--end = hex_digit(static_cast<unsigned>(value), of);
        value >>= 4;
    } while (value != 0);
    while (end > filled)
        *--end = '0';
    return end;
}

} // namespace ovra

#endif

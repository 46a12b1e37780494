/* SPDX-License-Identifier: MIT */
/*
 * Numbers in text, read as the C library reads them in its own locale, "C", whatever locale the program has
 * set and whichever notations a later C library adds.
 */
#ifndef SRC_BASE_NUMBER_H
#define SRC_BASE_NUMBER_H

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

/* The value of a digit; 36 for any other character. */
constexpr unsigned digit_value(char c)
{
    if (is_ascii_digit(c))
        return static_cast<unsigned>(c - '0');
    const char lower = ascii_lower(c);
    return lower >= 'a' && lower <= 'z' ? static_cast<unsigned>(lower - 'a') + 10 : 36;
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
    for (; *text != '\0'; ++text) {
        const unsigned digit = digit_value(*text);
        if (digit >= base)
            break;
        number.any = true;
        number.too_large = number.too_large || number.magnitude > (UINT64_MAX - digit) / base;
        number.magnitude = number.too_large ? UINT64_MAX : number.magnitude * base + digit;
    }
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

} // namespace ovra

#endif

/* SPDX-License-Identifier: MIT */
/*
 * Text as stored formats and their notations have it: ASCII. The C library's own functions ask the caller's
 * locale, in which "I" may be no "i" and other characters may be blanks.
 */
#ifndef SRC_BASE_ASCII_H
#define SRC_BASE_ASCII_H

#include <string_view>

namespace ovra {

constexpr char ascii_lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool is_ascii_digit(char c)
{
    return c >= '0' && c <= '9';
}

/* What C calls white space: blank, tab, line feed, vertical tab, form feed, carriage return. */
constexpr bool is_ascii_space(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/* The text after `prefix`, in either case of A to Z; null when it begins otherwise. */
constexpr const char *behind_prefix(const char *text, const char *prefix)
{
    for (; *prefix; ++text, ++prefix) {
        if (ascii_lower(*text) != ascii_lower(*prefix))
            return nullptr;
    }
    return text;
}

/* Whether two texts are alike but for the case of A to Z. */
constexpr bool alike(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (size_t at = 0; at < a.size(); ++at) {
        if (a[at] != b[at] && ascii_lower(a[at]) != ascii_lower(b[at]))
            return false;
    }
    return true;
}

/* The same without asking for the lengths of texts that mostly differ early. */
constexpr bool alike(const char *a, const char *b)
{
    for (; *a == *b || ascii_lower(*a) == ascii_lower(*b); ++a, ++b) {
        if (*a == '\0')
            return true;
    }
    return false;
}

} // namespace ovra

#endif

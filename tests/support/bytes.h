/* SPDX-License-Identifier: MIT */
/* Byte strings as tests write them: hex digits grouped as the fields are. */
#ifndef TESTS_SUPPORT_BYTES_H
#define TESTS_SUPPORT_BYTES_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ovra::test {

using bytes = std::vector<uint8_t>;

/* "01 01 06 00  07 1f" to bytes; blanks anywhere between digits. Throws on anything else. */
inline bytes from_hex(std::string_view text)
{
    bytes result;
    int high = -1;
    for (const char c : text) {
        if (c == ' ' || c == '\n')
            continue;
        const auto digit = std::string_view("0123456789abcdef").find(static_cast<char>(c | 0x20));
        if (digit == std::string_view::npos)
            throw std::invalid_argument("no hex digit: " + std::string(text));
        if (high < 0) {
            high = static_cast<int>(digit);
        } else {
            result.push_back(static_cast<uint8_t>(high << 4 | static_cast<int>(digit)));
            high = -1;
        }
    }
    if (high >= 0)
        throw std::invalid_argument("odd number of hex digits: " + std::string(text));
    return result;
}

/* Bytes as "01 01 06 00", so that a failed comparison can be read; one begins `width` characters after
 * another. */
inline std::string to_hex(const void *from, size_t size, size_t width = 3)
{
    std::string text(size == 0 ? 0 : (size - 1) * width + 2, ' ');
    // Not by the string's functions, which are slow without optimisation.
    char *to = text.data();
    for (size_t i = 0; i < size; ++i) {
        const uint8_t byte = static_cast<const uint8_t *>(from)[i];
        to[i * width] = "0123456789abcdef"[byte >> 4];
        to[i * width + 1] = "0123456789abcdef"[byte & 15];
    }
    return text;
}

inline std::string to_hex(const bytes &from)
{
    return to_hex(from.data(), from.size());
}

/* The same without blanks. */
inline std::string to_digits(const void *from, size_t size)
{
    return to_hex(from, size, 2);
}

/* The same bytes as one spelling of them: for comparing with a text that groups its digits. */
inline std::string hex(std::string_view text)
{
    return to_hex(from_hex(text));
}

} // namespace ovra::test

#endif

/* SPDX-License-Identifier: MIT */
/* What the printer writes into: one node's text while it is formed, and the growing text of an instance. */
#ifndef SRC_PRINT_TEXT_H
#define SRC_PRINT_TEXT_H

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <span>
#include <string_view>

#include "src/base/words.h"
#include "src/rt/growing.h"

namespace ovra {

/* Two lower-case digits for each byte, at `out`, not terminated. Returns the end of what was written. */
inline char *write_hex(std::span<const uint8_t> bytes, char *out)
{
    static constexpr char digits[] = "0123456789abcdef";
    for (const uint8_t byte : bytes) {
        *out++ = digits[byte >> 4];
        *out++ = digits[byte & 15];
    }
    return out;
}

/* One node's text. Takes no more when it holds 1023 bytes. */
class text {
public:
    /* `follows`: the text of an earlier node stands before this one. */
    explicit text(bool follows) : separator(follows ? "/" : "") { buffer[0] = '\0'; }

    /* What a media node begins with. */
    const char *media_prefix() const { return separator; }

    const char *c_str() const { return buffer; }
    std::string_view view() const { return {buffer, length}; }

    /* As printf does. */
    [[gnu::format(printf, 2, 3)]] void add(const char *format, ...);

    void put(std::string_view piece)
    {
        const size_t taken = std::min(piece.size(), limit - length);
        memcpy(buffer + length, piece.data(), taken);
        length += taken;
        buffer[length] = '\0';
    }

private:
    bool add_known(const char *format, va_list *arguments);

    static constexpr size_t limit = 1023;
    const char *separator;
    size_t length = 0;
    char buffer[limit + 1];
};

/* The word of a value, or the value in decimal. */
void add_word(text &to, std::span<const word> words, unsigned value);

/*
 * A text accumulator that knows its length: a long path is not walked for each of its nodes. Null
 * until the first piece; a piece for which there is no memory is left out.
 */
class accumulator {
public:
    const char *get() const { return block.get(); }

    /* False when it was left out. */
    bool add(std::string_view piece)
    {
        char *to = block.reserve(piece.size() + 1);
        if (!to)
            return false;
        memcpy(to, piece.data(), piece.size());
        to[piece.size()] = '\0'; // which the next piece takes the place of
        block.take(piece.size());
        return true;
    }

private:
    growing_block<char> block;
};

} // namespace ovra

#endif

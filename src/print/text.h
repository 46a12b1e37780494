/* SPDX-License-Identifier: MIT */
/* What the printer writes into: one node's text while it is formed, and the growing text of an instance. */
#ifndef SRC_PRINT_TEXT_H
#define SRC_PRINT_TEXT_H

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "src/base/words.h"
#include "src/rt/owned.h"

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

    [[gnu::format(printf, 2, 3)]] void add(const char *format, ...)
    {
        va_list arguments;
        va_start(arguments, format);
        const int wanted = vsnprintf(buffer + length, sizeof buffer - length, format, arguments);
        va_end(arguments);
        if (wanted > 0)
            length += std::min(static_cast<size_t>(wanted), limit - length);
    }

    void put(std::string_view piece)
    {
        const size_t taken = std::min(piece.size(), limit - length);
        memcpy(buffer + length, piece.data(), taken);
        length += taken;
        buffer[length] = '\0';
    }

private:
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
        if (!block || piece.size() >= size - length) {
            const size_t grown_size = std::max<size_t>(256, 2 * (length + piece.size() + 1));
            auto *grown = static_cast<char *>(realloc(block.get(), grown_size));
            if (!grown)
                return false;
            static_cast<void>(block.release());
            block.reset(grown);
            size = grown_size;
        }
        memcpy(block.get() + length, piece.data(), piece.size());
        length += piece.size();
        block.get()[length] = '\0';
        return true;
    }

private:
    owned<char> block;
    size_t length = 0;
    size_t size = 0;
};

} // namespace ovra

#endif

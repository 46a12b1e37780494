/* SPDX-License-Identifier: MIT */
// Text as people type and read it.
#ifndef OVRA_TOOLS_TEXT_H
#define OVRA_TOOLS_TEXT_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "src/base/guid.h"

namespace tool {

using bytes = std::vector<uint8_t>;
using ovra::byte_view;

// UTF-8 as null-terminated UCS-2. Nothing when it is no UTF-8, or has a character that UCS-2 has not.
std::optional<std::vector<CHAR16>> to_ucs2(std::string_view utf8);

// The bytes of UCS-2 text as a variable holds them.
bytes stored(std::span<const CHAR16> text);

// UCS-2 up to its terminator as UTF-8; what is no character becomes U+FFFD.
std::string to_utf8(std::span<const CHAR16> text);

// The same of units as a variable holds them, into `*utf8`. False for a unit that is half a character: then
// `*utf8` is any text.
bool assign_utf8(byte_view units, std::string *utf8);

// The text that bytes hold, ASCII or UCS-2, when they hold nothing else.
std::optional<std::string> as_text(byte_view data);

// Text from a variable or the command line for a terminal: control characters and bytes that are no UTF-8 as
// escapes: a variable cannot drive the terminal.
std::string printable(std::string_view utf8);

// Whether a character can be shown and does not mislead about the text around it; and whether it can be shown
// where the command writes to.
bool shows(char32_t character);
bool shows_here(char32_t character);

// "\u001b", "\U000e0001"
std::string escaped_character(char32_t character);

// Whether it is ASCII and shows, which is one column for each byte.
bool is_plain(std::string_view utf8);

// A JSON document with the characters escaped that printable() escapes; they stand only in its strings.
std::string escaped_in_json(std::string_view document);

// Columns that printable text takes on a terminal.
size_t columns(std::string_view utf8);

std::string in_quotes(std::string_view text);

inline constexpr size_t line_width = 80; // of a terminal, in columns

// A line that begins after `indent` columns, broken where it goes beyond 80. One with a path, another long
// word or quotes stays whole: it is to be copied, or searched for. So does one that begins with blanks, as a
// mark below another line does.
std::string broken(const std::string &line, size_t indent);

std::string join(const std::vector<std::string> &words, std::string_view separator);

// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string format(const char *format, ...);

} // namespace tool

#endif

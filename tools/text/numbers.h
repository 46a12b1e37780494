/* SPDX-License-Identifier: MIT */
// Numbers and bytes as people type and read them.
#ifndef OVRA_TOOLS_NUMBERS_H
#define OVRA_TOOLS_NUMBERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "src/base/guid.h"
#include "tools/text/text.h"

namespace tool {

std::string hex(byte_view data);

// "8be4df61-93ca-..."
std::string guid_text(const EFI_GUID &guid);

// Pairs of hexadecimal digits; blanks and colons between pairs do not count.
std::optional<bytes> parse_hex(std::string_view text);

// Rows of 16 bytes: offset, hexadecimal, ASCII.
std::vector<std::string> hex_dump(byte_view data);

// A whole number that fits in 32 bits: "0x" hexadecimal, else decimal.
std::optional<uint32_t> parse_number(std::string_view text);

} // namespace tool

#endif

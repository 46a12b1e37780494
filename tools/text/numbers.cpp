// SPDX-License-Identifier: MIT
#include "tools/text/numbers.h"

#include <algorithm>

#include "src/base/load_option.h"
#include "src/base/whole_number.h"

namespace tool {

std::string hex(byte_view data)
{
    std::string text(2 * data.size(), '0');
    char *to = text.data();
    for (const uint8_t byte : data) {
        *to++ = ovra::hex_digit(byte >> 4u, ovra::letters::lower);
        *to++ = ovra::hex_digit(byte & 15u, ovra::letters::lower);
    }
    return text;
}

std::string guid_text(const EFI_GUID &guid)
{
    return std::string(ovra::guid_text(guid, ovra::letters::lower).view());
}

std::optional<bytes> parse_hex(std::string_view text)
{
    const auto separates = [](char c) { return c == ':' || ovra::is_ascii_space(c); };
    bytes data;
    for (size_t at = 0; at < text.size();) {
        if (separates(text[at])) {
            ++at;
            continue;
        }
        const std::string_view pair = text.substr(at, 2);
        const auto byte = ovra::whole_number<uint8_t>(pair, 16);
        if (pair.size() != 2 || !byte)
            return std::nullopt;
        data.push_back(*byte);
        at += 2;
    }
    return data;
}

std::vector<std::string> hex_dump(byte_view data)
{
    constexpr size_t width = 16;
    std::vector<std::string> rows;
    for (size_t offset = 0; offset < data.size(); offset += width) {
        const byte_view row = data.subspan(offset, std::min(width, data.size() - offset));
        std::string text = format("%04zx ", offset);
        std::string ascii;
        for (size_t at = 0; at < width; ++at) {
            if (at % 8 == 0)
                text += ' ';
            text += at < row.size() ? format("%02x ", row[at]) : "   ";
        }
        for (const uint8_t byte : row)
            ascii += byte >= 0x20 && byte < 0x7f ? static_cast<char>(byte) : '.';
        rows.push_back(text.append(1, ' ').append(ascii));
    }
    return rows;
}

std::optional<uint32_t> parse_number(std::string_view text)
{
    if (text.starts_with("0x") || text.starts_with("0X"))
        return ovra::whole_number<uint32_t>(text.substr(2), 16);
    return ovra::whole_number<uint32_t>(text);
}

} // namespace tool

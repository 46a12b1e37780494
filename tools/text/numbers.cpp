// SPDX-License-Identifier: MIT
#include "tools/text/numbers.h"

#include <algorithm>
#include <charconv>

#include "src/base/load_option.h"

namespace tool {

std::string hex(byte_view data)
{
    std::string text;
    for (const uint8_t byte : data) {
        text += ovra::hex_digit(byte >> 4u, ovra::letters::lower);
        text += ovra::hex_digit(byte & 15u, ovra::letters::lower);
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
        uint8_t byte = 0;
        const std::string_view pair = text.substr(at, 2);
        const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
        if (error != std::errc() || end != pair.data() + 2)
            return std::nullopt;
        data.push_back(byte);
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

std::string option_name(uint16_t number)
{
    return ovra::option_name(number).text;
}

std::optional<uint16_t> parse_option(std::string_view text)
{
    const std::string_view prefix = "boot";
    if (text.size() > prefix.size() && ovra::alike(text.substr(0, prefix.size()), prefix))
        text.remove_prefix(prefix.size());
    uint16_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    if (text.empty() || text.size() > 4 || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

std::optional<uint32_t> parse_number(std::string_view text)
{
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

} // namespace tool

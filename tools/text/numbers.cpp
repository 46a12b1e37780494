// SPDX-License-Identifier: MIT
#include "tools/text/numbers.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "src/base/load_option.h"

namespace tool {

std::string hex(byte_view data)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : data) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string guid_text(const EFI_GUID &guid)
{
    return std::string(ovra::guid_text(guid, ovra::letters::lower).view());
}

std::optional<bytes> parse_hex(std::string_view text)
{
    const auto separates = [](char c) {
        return c == ':' || std::isspace(static_cast<unsigned char>(c)) != 0;
    };
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
    const auto same = [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; };
    if (text.size() > prefix.size() &&
        std::equal(prefix.begin(), prefix.end(), text.begin(), [same](char b, char a) { return same(a, b); }))
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

// SPDX-License-Identifier: MIT
#include "tools/text/nodevalues.h"

#include <algorithm>
#include <span>

#include "src/base/guid.h"
#include "src/base/number.h"
#include "src/base/whole_number.h"
#include "src/base/words.h"
#include "tools/text/text.h"

namespace tool {

namespace {

bool is_hex_digit(char c)
{
    return ovra::digit_value(c) < 16;
}

std::string lower(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), ovra::ascii_lower);
    return result;
}

} // namespace

std::vector<std::string_view> parts_of(std::string_view text, char at)
{
    constexpr size_t many = 8;
    std::vector<std::string_view> parts;
    parts.reserve(many);
    for (;;) {
        const size_t end = std::min(text.find(at), text.size());
        parts.push_back(text.substr(0, end));
        if (end == text.size())
            return parts;
        text.remove_prefix(end + 1);
    }
}

namespace {

bool are_hex_digits(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), is_hex_digit);
}

} // namespace

namespace {

bool is_hexadecimal(std::string_view text)
{
    return text.size() > 2 && text[0] == '0' && ovra::ascii_lower(text[1]) == 'x';
}

} // namespace

std::optional<uint64_t> number_in(std::string_view text)
{
    if (is_hexadecimal(text))
        return ovra::whole_number<uint64_t>(text.substr(2), 16);
    const auto value =
        text.empty() || ovra::is_ascii_digit(text[0]) ? ovra::whole_number<uint64_t>(text) : std::nullopt;
    return value && text[0] == '0' && *value > 7 ? std::nullopt : value;
}

namespace {

struct named_list {
    std::string_view name;
    std::span<const ovra::word> words;
};

constexpr named_list library_lists[] = {
    {"ata_channels", ovra::ata_channels},
    {"ata_drives", ovra::ata_drives},
    {"uart_flow_controls", ovra::uart_flow_controls},
    {"uart_parities", ovra::uart_parities},
    {"uart_stop_bits", ovra::uart_stop_bits},
    {"partition_formats", ovra::partition_formats},
    {"bbs_device_types", ovra::bbs_device_types},
};

// The library's list that a kind names; null when it names none.
const named_list *library_list(std::string_view kind)
{
    const std::string_view name = kind.substr(0, kind.find(','));
    const auto found = std::find_if(std::begin(library_lists), std::end(library_lists),
                                    [name](const named_list &list) { return list.name == name; });
    return found == std::end(library_lists) ? nullptr : found;
}

bool is_list(std::string_view kind)
{
    return kind.find('|') != std::string_view::npos || library_list(kind);
}

} // namespace

std::optional<uint64_t> listed_value(std::string_view list, std::string_view word)
{
    if (const named_list *named = library_list(list)) {
        for (const ovra::word &each : named->words) {
            if (ovra::alike(each.text, word))
                return each.value;
        }
        list.remove_prefix(std::min(named->name.size() + 1, list.size()));
        if (list.empty())
            return std::nullopt;
    }
    uint64_t value = 0;
    for (const std::string_view words : parts_of(list, '|')) {
        for (const std::string_view each : parts_of(words, ',')) {
            if (ovra::alike(each, word))
                return value;
        }
        ++value;
    }
    return std::nullopt;
}

namespace {

bool is_eisa_id(std::string_view text)
{
    return text == "0" ||
           (text.size() == 7 && are_hex_digits(text.substr(3)) &&
            std::all_of(text.begin(), text.begin() + 3, [](char c) { return c >= 'A' && c <= 'Z'; }));
}

bool is_address(std::string_view text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return is_hex_digit(c) || c == '.' || c == ':'; });
}

bool is_word(std::string_view text)
{
    return !text.empty() && !ovra::is_ascii_digit(text[0]) &&
           std::all_of(text.begin(), text.end(),
                       [](char c) { return ovra::digit_value(c) < 36 || c == '_'; });
}

} // namespace

bool is_of_kind(std::string_view kind, const std::string &text)
{
    if (kind == "number")
        return number_in(text).has_value();
    if (kind == "digits")
        return ovra::whole_number<uint64_t>(is_hexadecimal(text) ? text.substr(2) : text, 16).has_value();
    if (kind == "bytes")
        return are_hex_digits(text) && text.size() % 2 == 0;
    if (kind == "guid")
        return ovra::parse_guid(text).has_value();
    if (kind == "guid?")
        return ovra::parse_guid(text) || number_in(text);
    if (kind == "eisa")
        return is_eisa_id(text);
    if (kind == "address")
        return is_address(text);
    if (kind == "word")
        return is_word(text) || number_in(text);
    if (is_list(kind))
        return listed_value(kind, text) || number_in(text);
    return to_ucs2(text).has_value();
}

std::string meaning(std::string_view kind, const std::string &text)
{
    if (is_list(kind)) {
        const auto value = listed_value(kind, text);
        return std::to_string(value ? *value : number_in(text).value_or(UINT64_MAX));
    }
    if (const auto value = kind == "number" || kind == "guid?" ? number_in(text) : std::nullopt)
        return std::to_string(*value);
    if (kind == "eisa") // the library prints no letters of it
        return text == "0" ? "0000" : lower(text.substr(3));
    return kind == "text" ? text : lower(text);
}

} // namespace tool

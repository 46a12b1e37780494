// SPDX-License-Identifier: MIT
#include "tools/text/description.h"

#include <algorithm>

#include "src/base/text.h"
#include "src/base/whole_number.h"

namespace tool {

namespace {

// The first character of a text that is not empty; a surrogate counts as one.
ovra::decoded_character first_of_description(std::string_view text)
{
    const auto next = ovra::first_of_utf8(text);
    if (next.valid || text.size() < 3 || text[0] != '\xed')
        return next;
    const auto low_bits = [text](size_t at) {
        return static_cast<char32_t>(static_cast<unsigned char>(text[at]) & 0x3f);
    };
    const char32_t unit = 0xd000 | low_bits(1) << 6 | low_bits(2);
    const bool is_kept = ovra::is_surrogate(unit) && text.substr(0, 3) == ovra::utf8_character(unit).view();
    return is_kept ? ovra::decoded_character{unit, 3, true} : next;
}

template <typename taker>
void for_each_character(std::string_view description, const taker &take)
{
    while (!description.empty()) {
        const auto next = first_of_description(description);
        take(next);
        description.remove_prefix(next.size);
    }
}

// The escape of a character that a text begins with.
struct escape {
    char32_t character = 0;
    size_t size = 0; // 0: there is none
};

escape first_escape(std::string_view text)
{
    if (text.size() < 2 || text[0] != '\\' || (text[1] != 'u' && text[1] != 'U'))
        return {};
    const size_t digits = text[1] == 'u' ? 4 : 8;
    const std::string_view number = text.substr(2, digits);
    const auto value = number.size() == digits ? ovra::whole_number<uint32_t>(number, 16) : std::nullopt;
    if (!value || *value > 0x10ffff)
        return {};
    return {*value, 2 + digits};
}

bool looks_escaped(std::string_view text)
{
    for (size_t at = text.find('\\'); at != std::string_view::npos; at = text.find('\\', at + 1)) {
        if (first_escape(text.substr(at)).size != 0)
            return true;
    }
    return false;
}

bool is_shown(const ovra::decoded_character &next)
{
    return next.valid && !ovra::is_surrogate(next.character) && shows_here(next.character);
}

bool shows_all(std::string_view description)
{
    if (is_plain(description))
        return true;
    bool all = true;
    for_each_character(description, [&](const auto &next) { all = all && is_shown(next); });
    return all;
}

} // namespace

std::string description_of_units(byte_view units)
{
    std::string text;
    text.reserve(ovra::unit_count(units));
    while (units.size() >= sizeof(CHAR16) && ovra::unit_at(units, 0) != 0) {
        const auto next = ovra::first_of_utf16(units);
        const char32_t character = next.valid ? next.character : ovra::unit_at(units, 0);
        if (character < 0x80)
            text += static_cast<char>(character);
        else
            text += ovra::utf8_character(character).view();
        units = units.subspan(next.size * sizeof(CHAR16));
    }
    return text;
}

std::optional<std::vector<CHAR16>> units_of_description(std::string_view description)
{
    std::vector<CHAR16> units;
    units.reserve(description.size() + 1);
    bool valid = true;
    for_each_character(description, [&](const auto &next) {
        valid = valid && next.valid && next.character != 0;
        const ovra::utf16_character utf16(next.character);
        units.insert(units.end(), utf16.view().begin(), utf16.view().end());
    });
    units.push_back(0);
    return valid ? std::optional(std::move(units)) : std::nullopt;
}

bool is_damaged_text(std::string_view description)
{
    if (is_plain(description))
        return false;
    bool damaged = false;
    for_each_character(description,
                       [&](const auto &next) { damaged = damaged || ovra::is_surrogate(next.character); });
    return damaged;
}

std::string shown_description(std::string_view description)
{
    if (shows_all(description) && !looks_escaped(description))
        return std::string(description);
    std::string shown;
    for_each_character(description, [&](const auto &next) {
        if (next.character == '\\')
            shown += "\\\\";
        else if (is_shown(next))
            shown += ovra::utf8_character(next.character).view();
        else
            shown += escaped_character(next.character);
    });
    return shown;
}

std::string quoted_description(std::string_view description)
{
    return '"' + shown_description(description) + '"';
}

std::string typed_description(std::string_view text)
{
    if (!looks_escaped(text))
        return std::string(text);
    std::string read;
    for (std::string_view rest = text; !rest.empty();) {
        if (const escape found = first_escape(rest); found.size != 0) {
            read += ovra::utf8_character(found.character).view();
            rest.remove_prefix(found.size);
            continue;
        }
        const bool is_doubled = rest.starts_with("\\\\");
        read += rest[0];
        rest.remove_prefix(is_doubled ? 2 : 1);
    }
    // Two halves that were typed one behind the other are one character.
    const auto units = units_of_description(read);
    return units ? description_of_units(ovra::bytes_of_units(*units)) : read;
}

std::string description_for_json(std::string_view description)
{
    if (!is_damaged_text(description))
        return std::string(description);
    std::string text;
    for_each_character(description, [&](const auto &next) {
        const bool is_half = ovra::is_surrogate(next.character);
        text += ovra::utf8_character(is_half ? ovra::replacement_character : next.character).view();
    });
    return text;
}

} // namespace tool

// SPDX-License-Identifier: MIT
#include "platform/machine/names.h"

#include <algorithm>
#include <climits>

#include "src/base/guid.h"
#include "src/base/text.h"

namespace machine {

namespace {

// The GUID of its text in lower case, the only one that file names have.
std::optional<EFI_GUID> guid_in(std::string_view text)
{
    auto guid = ovra::parse_guid(text);
    if (guid && ovra::guid_text(*guid, ovra::letters::lower).view() != text)
        return std::nullopt;
    return guid;
}

// UTF-8 to units; nothing for any other text.
std::optional<std::vector<CHAR16>> units_of(std::string_view text)
{
    std::vector<CHAR16> units;
    units.reserve(text.size());
    while (!text.empty()) {
        const auto next = ovra::first_of_utf8(text);
        if (!next.valid)
            return std::nullopt;
        const ovra::utf16_character taken(next.character == '!' ? '/' : next.character);
        units.insert(units.end(), taken.view().begin(), taken.view().end());
        text.remove_prefix(next.size);
    }
    return units;
}

} // namespace

std::optional<name_view> terminated_name(const CHAR16 *name, UINTN size)
{
    // No file name has more units than NAME_MAX, whatever size the caller claims.
    const name_view within(name,
                           static_cast<std::size_t>(std::min<UINTN>(size / sizeof(CHAR16), NAME_MAX + 1)));
    const auto end = std::ranges::find(within, CHAR16{0});
    if (end == within.end())
        return std::nullopt;
    return within.first(static_cast<std::size_t>(end - within.begin()));
}

std::optional<std::string> file_name_of(name_view name, const EFI_GUID &guid)
{
    if (name.empty() || name.size() > NAME_MAX)
        return std::nullopt;
    std::string text;
    text.reserve(name.size() + 1 + ovra::guid_length);
    // ASCII, as nearly all names are
    const auto is_ascii = [](CHAR16 unit) { return unit > 0 && unit < 0x80; };
    const auto plain = static_cast<std::size_t>(std::ranges::find_if_not(name, is_ascii) - name.begin());
    text.resize(plain);
    std::ranges::transform(name.first(plain), text.begin(),
                           [](CHAR16 unit) { return unit == '/' ? '!' : static_cast<char>(unit); });
    name = name.subspan(plain);
    while (!name.empty()) {
        const auto next = ovra::first_of_utf16(ovra::bytes_of_units(name));
        if (!next.valid || next.character == 0)
            return std::nullopt;
        text.append(ovra::utf8_character(next.character == '/' ? '!' : next.character).view());
        name = name.subspan(next.size);
    }
    text.push_back('-');
    // Who reads many variables reads those of boot options.
    constexpr ovra::guid_text global(ovra::global_variable_guid, ovra::letters::lower);
    if (ovra::same_guid(guid, ovra::global_variable_guid))
        text.append(global.view());
    else
        text.append(ovra::guid_text(guid, ovra::letters::lower).view());
    if (text.size() > NAME_MAX)
        return std::nullopt;
    return text;
}

std::optional<variable_identity> identity_of(std::string_view file_name)
{
    if (file_name.size() < ovra::guid_length + 2 || file_name.size() > NAME_MAX)
        return std::nullopt;
    // The name may contain "-" itself; the GUID comes last.
    std::string_view name = file_name.substr(0, file_name.size() - ovra::guid_length);
    const auto guid = guid_in(file_name.substr(name.size()));
    if (!guid || name.back() != '-')
        return std::nullopt;
    name.remove_suffix(1);
    auto units = units_of(name);
    if (!units)
        return std::nullopt;
    return variable_identity{std::move(*units), *guid};
}

} // namespace machine

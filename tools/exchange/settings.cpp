// SPDX-License-Identifier: MIT
#include "tools/exchange/settings.h"

#include <algorithm>
#include <sstream>

#include "src/base/whole_number.h"
#include "tools/exchange/store.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

constexpr std::string_view raw = "hex ";

const option_kind &family_of_setting(const std::string &name)
{
    const auto found = std::find_if(families.begin(), families.end(),
                                    [&name](const option_kind &family) { return name == family.order; });
    return found == families.end() ? families.front() : *found; // BootNext is one of the first
}

void append_number(bytes *to, uint16_t number)
{
    to->push_back(static_cast<uint8_t>(number & 0xff));
    to->push_back(static_cast<uint8_t>(number >> 8));
}

std::optional<bytes> names_of_text(const std::string &name, const std::string &text)
{
    const option_kind &family = family_of_setting(name);
    std::istringstream stream(text);
    bytes value;
    for (std::string word; stream >> word;) {
        if (family_of(word) != &family)
            return std::nullopt;
        append_number(&value,
                      *ovra::whole_number<uint16_t>(std::string_view(word).substr(family.prefix.size()), 16));
    }
    return value;
}

} // namespace

bool is_setting(const std::string &name)
{
    return std::find(settings.begin(), settings.end(), name) != settings.end();
}

std::string setting_text(const std::string &name, byte_view value)
{
    const bool is_order = name.ends_with("Order");
    const bool is_plain = is_order ? value.size() % sizeof(uint16_t) == 0 : value.size() == sizeof(uint16_t);
    if (!is_plain || value.empty())
        return std::string(raw) + hex(value);
    if (name == "Timeout")
        return std::to_string(ovra::unit_at(value, 0));
    return join(ordered_names(family_of_setting(name), value), " ");
}

std::optional<bytes> setting_of(const std::string &name, const std::string &text)
{
    std::optional<bytes> value;
    if (text.starts_with(raw)) {
        value = parse_hex(std::string_view(text).substr(raw.size()));
    } else if (name == "Timeout") {
        if (const auto seconds = ovra::whole_number<uint16_t>(text))
            append_number(&value.emplace(), *seconds);
    } else {
        value = names_of_text(name, text);
        if (value && !name.ends_with("Order") && value->size() != sizeof(uint16_t))
            return std::nullopt;
    }
    return value && !value->empty() ? value : std::nullopt;
}

} // namespace tool

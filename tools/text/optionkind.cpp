// SPDX-License-Identifier: MIT
#include "tools/text/optionkind.h"

#include "src/base/ascii.h"
#include "src/base/load_option.h"
#include "src/base/whole_number.h"
#include "tools/text/text.h"

namespace tool {

std::string option_kind::name(uint16_t number) const
{
    return std::string(prefix) += ovra::option_name(number).digits();
}

std::string option_kind::names(const std::vector<uint16_t> &options) const
{
    std::vector<std::string> all;
    all.reserve(options.size());
    for (const uint16_t number : options)
        all.push_back(name(number));
    return join(all, " ");
}

std::optional<uint16_t> option_kind::number_in(std::string_view name) const
{
    return name.starts_with(prefix) ? ovra::option_digits(name.substr(prefix.size())) : std::nullopt;
}

std::optional<uint16_t> option_kind::typed_number(std::string_view text) const
{
    if (text.size() > prefix.size() && ovra::alike(text.substr(0, prefix.size()), prefix))
        text.remove_prefix(prefix.size());
    return text.size() <= 4 ? ovra::whole_number<uint16_t>(text, 16) : std::nullopt;
}

std::string option_kind::in_advice() const
{
    return is_boot() ? "" : std::string(" --kind ") + word;
}

} // namespace tool

/* SPDX-License-Identifier: MIT */
/* A text that is a number and nothing else. */
#ifndef SRC_BASE_WHOLE_NUMBER_H
#define SRC_BASE_WHOLE_NUMBER_H

#include <charconv>
#include <optional>
#include <string_view>

namespace ovra {

/*
 * The number of a text that is not empty and has nothing else: no white space, no plus, no prefix. A minus
 * only for a type with a sign. Nothing also for what does not fit into the type.
 */
template <typename number>
std::optional<number> whole_number(std::string_view text, int base = 10)
{
    number value = 0;
    const char *const behind = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), behind, value, base);
    return error == std::errc() && end == behind ? std::optional(value) : std::nullopt;
}

} // namespace ovra

#endif

/* SPDX-License-Identifier: MIT */
// The values of a node's text: numbers, bytes, identifiers and words.
#ifndef OVRA_TOOLS_NODEVALUES_H
#define OVRA_TOOLS_NODEVALUES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

std::vector<std::string_view> parts_of(std::string_view text, char at);

// Nothing for a number that the library takes for another: it reads 010 as 8, and -1 as the largest number.
std::optional<uint64_t> number_in(std::string_view text);

// The number that a word of a list stands for. The kinds of values are those of a keyword's parameters.
std::optional<uint64_t> listed_value(std::string_view list, std::string_view word);

bool is_of_kind(std::string_view kind, const std::string &text);

// What a value says, whichever way it is written.
std::string meaning(std::string_view kind, const std::string &text);

} // namespace tool

#endif

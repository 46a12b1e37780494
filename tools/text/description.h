/* SPDX-License-Identifier: MIT */
// Descriptions of load options: whatever a variable holds is shown whole and can be typed again.
#ifndef OVRA_TOOLS_DESCRIPTION_H
#define OVRA_TOOLS_DESCRIPTION_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/text/text.h"

namespace tool {

// UTF-16 up to its terminator as UTF-8. A surrogate without its partner is kept: as the three bytes that
// UTF-8 would have for its number, which are no character.
std::string description_of_units(byte_view units);

// The same way back, null-terminated. Nothing for other text: it is no UTF-8, or it has a null character.
std::optional<std::vector<CHAR16>> units_of_description(std::string_view description);

// Whether it has surrogates without their partners.
bool is_damaged_text(std::string_view description);

// For a terminal: what cannot be shown is \uXXXX or \UXXXXXXXX, and a text with these, or with what looks
// like them, has its backslashes doubled. Any other text stands as it is.
std::string shown_description(std::string_view description);
std::string quoted_description(std::string_view description);

// A description that was typed, with what shown_description() writes read back. Text that is no UTF-8 is left
// as it is.
std::string typed_description(std::string_view text);

// For programs: damage as U+FFFD, which JSON can hold.
std::string description_for_json(std::string_view description);

} // namespace tool

#endif

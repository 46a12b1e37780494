/* SPDX-License-Identifier: MIT */
// Texts of packed nodes beside those that the library prints.
#ifndef OVRA_TOOLS_RAWTEXT_H
#define OVRA_TOOLS_RAWTEXT_H

#include <string>
#include <vector>

#include "tools/text/text.h"

namespace tool {

// The bytes of a node as text, which gives them back whatever they are.
std::string raw_text(byte_view node);

// Texts that say more of a node than the library's does; whether they say all of it is not known.
std::vector<std::string> fuller_texts(byte_view node);

} // namespace tool

#endif

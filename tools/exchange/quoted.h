/* SPDX-License-Identifier: MIT */
// Text of a variable between quotes, which gives the same bytes back whatever they are.
#ifndef OVRA_TOOLS_EXCHANGE_QUOTED_H
#define OVRA_TOOLS_EXCHANGE_QUOTED_H

#include <stdexcept>
#include <string>
#include <string_view>

#include "tools/text/text.h"

namespace tool {

// UTF-16 without its terminator, in quotes: quotes and backslashes have a backslash in front; what cannot be
// seen, and a surrogate without its partner, is \uXXXX or \UXXXXXXXX.
std::string quoted_units(byte_view units);

// ASCII that can be seen, in quotes.
std::string quoted_ascii(byte_view text);

// What stands in quotes as UTF-16 without a terminator. Throws an unclear_quotes.
bytes unquoted_units(std::string_view text);
// The same as ASCII.
bytes unquoted_ascii(std::string_view text);

struct unclear_quotes : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace tool

#endif

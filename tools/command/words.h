/* SPDX-License-Identifier: MIT */
// Words of a command line as CLI11 takes them.
#ifndef OVRA_TOOLS_WORDS_H
#define OVRA_TOOLS_WORDS_H

#include <string>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace tool {

// The option that a word names, with or without "=" and a value, of a verb or of those above it; null for
// another word.
const CLI::Option *option_of(const CLI::App *level, const std::string &word);

bool takes_value(const CLI::Option &option);

} // namespace tool

#endif

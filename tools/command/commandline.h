/* SPDX-License-Identifier: MIT */
// What CLI11 does not do, or does otherwise, with the words of a command line and with help.
#ifndef OVRA_TOOLS_COMMANDLINE_H
#define OVRA_TOOLS_COMMANDLINE_H

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
class FormatterBase;
} // namespace CLI

namespace tool {

// The words of a command line for CLI11 to parse by `app`, which has those verbs that are among them. An
// empty value stays the option's own: CLI11 takes the next word for that of "--desc=". Throws a usage_error
// for a word that is no verb, an option as the value of another, and a value of an option that takes none.
std::vector<std::string> words_to_parse(const CLI::App &app, int argc, const char *const *argv);

// Help within 80 columns: of the command with all verbs, of a verb with the options of every verb below.
std::shared_ptr<CLI::FormatterBase> help_format();

} // namespace tool

#endif

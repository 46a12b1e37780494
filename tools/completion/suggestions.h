/* SPDX-License-Identifier: MIT */
// What may stand at the cursor of a command line, for the completion of shells.
#ifndef OVRA_TOOLS_SUGGESTIONS_H
#define OVRA_TOOLS_SUGGESTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "tools/text/optionkind.h"

namespace CLI {
class App;
}

namespace tool {

struct suggestion {
    std::string word;
    std::string about; // what it is, in a line
};

struct completion {
    std::vector<suggestion> suggestions;
    // "words": nothing else; "files", "folders": also names of these, which the shell knows.
    std::string more = "words";

    // The machine that the line names, of whose options and disks `value` may be one.
    std::optional<std::string> root;
    std::optional<std::string> vars;
    const option_kind *kind = &boot_options;
    std::string value;  // "OPTION", "DISK": what is wanted; empty: nothing of a machine
    std::string before; // what stands before it in its word, as "--disk="
    std::string begun;  // of it
};

// The words of a command line behind the command's name; the last is at the cursor. `app` has the verbs that
// are among the words, `verbs` all.
completion read_words(const CLI::App &app, const std::vector<suggestion> &verbs,
                      const std::vector<std::string> &words);

// Adds what the machine has. Nothing of a machine that cannot be asked.
void add_live_names(const std::string &folder, completion *of);

} // namespace tool

#endif

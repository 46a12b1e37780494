/* SPDX-License-Identifier: MIT */
// What can be asked for with every verb.
#ifndef OVRA_TOOLS_GENERAL_H
#define OVRA_TOOLS_GENERAL_H

#include <optional>
#include <string>

namespace tool {

struct general_options {
    std::optional<std::string> root; // the folder of another machine
    std::optional<std::string> vars; // the file of another machine's variables
    bool json = false;               // print for programs
    bool dry_run = false;            // change nothing, say what would be written

    // Empty for the machine that runs the command.
    std::string folder() const { return root.value_or(std::string()); }
};

} // namespace tool

#endif

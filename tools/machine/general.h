/* SPDX-License-Identifier: MIT */
// What can be asked for with every verb.
#ifndef OVRA_TOOLS_GENERAL_H
#define OVRA_TOOLS_GENERAL_H

namespace tool {

struct general_options {
    bool json = false;    // print for programs
    bool dry_run = false; // change nothing, say what would be written
};

} // namespace tool

#endif

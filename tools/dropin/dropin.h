/* SPDX-License-Identifier: MIT */
// The command as scripts know efibootmgr 17: its options, its lines, its exit statuses. A link of that name
// to the command is all that it takes.
#ifndef OVRA_TOOLS_DROPIN_H
#define OVRA_TOOLS_DROPIN_H

namespace tool::dropin {

// Whether the command was called by that name.
bool is_meant(const char *program);

// Does what the words say, and returns the exit status.
int run(int argc, char **argv);

} // namespace tool::dropin

#endif

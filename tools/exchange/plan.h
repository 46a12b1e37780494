/* SPDX-License-Identifier: MIT */
// In which order variables are written when many change: a machine that stops after any of them still starts.
#ifndef OVRA_TOOLS_EXCHANGE_PLAN_H
#define OVRA_TOOLS_EXCHANGE_PLAN_H

#include <set>
#include <string>
#include <vector>

#include "tools/exchange/store.h"

namespace tool {

struct planned_step {
    std::string name;
    bytes contents;       // none: the variable is deleted
    bool passing = false; // it is undone by a later step
};

// The steps from one state to the other. After each of them the options that BootOrder leads to start all
// that those of the old state start, or all that those of the new state do, whichever of these it is that
// works: new options come first, then BootOrder, then removals, and BootNext comes last. Options that replace
// one another stand under free numbers for a while. `taken` are names that are in use though neither state
// has them. Throws a failure when no number is free.
std::vector<planned_step> plan_steps(const variable_values &before, const variable_values &after,
                                     const std::set<std::string> &taken);

} // namespace tool

#endif

/* SPDX-License-Identifier: MIT */
// What each verb does once the command line is read. Each has a file of its name.
#ifndef OVRA_TOOLS_VERBS_H
#define OVRA_TOOLS_VERBS_H

#include "tools/machine/firmware.h"
#include "tools/ovra/options.h"

namespace tool {

void run_list(firmware &machine, const arguments &args);
void run_show(firmware &machine, const arguments &args);
void run_create(firmware &machine, const arguments &args);
void run_set(firmware &machine, const arguments &args);
void run_remove(firmware &machine, const arguments &args);
void run_order(firmware &machine, const arguments &args);
void run_next(firmware &machine, const arguments &args);
void run_current(firmware &machine, const arguments &args);
void run_vars(firmware &machine, const arguments &args);
void run_time(firmware &machine, const arguments &args);
void run_find(firmware &machine, const arguments &args);

// These work on machines without firmware variables too. `folder` is the machine's, empty for this one.
void run_path(const std::string &folder, const arguments &args);
void run_disks(const std::string &folder, const arguments &args);
void run_tree(const std::string &folder, const arguments &args);

// Opens the firmware itself: where that fails it says how else to restart.
void run_reset(const std::string &folder, const arguments &args);

} // namespace tool

#endif

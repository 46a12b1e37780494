/* SPDX-License-Identifier: MIT */
/* What the files of the boot manager share: option names, and the nodes of an option. */
#ifndef SRC_BOOT_BOOT_H
#define SRC_BOOT_BOOT_H

#include <span>

#include "src/base/load_option.h"
#include "src/dpath/list.h"
#include "src/rt/owned.h"
#include "src/rt/rt.h"

extern "C" {

/* 0 for "Boot" and four digits 0-9 or A-F, else -1. */
int validate_bootopt(const char *name);

} // extern "C"

namespace ovra {

/*
 * The number of an option's name as the boot order's routines read it: "Boot" in any case, then a hexadecimal
 * number cut to 16 bits; what follows is not looked at.
 */
bool parse_option_number(const char *name, uint16_t *number);

/*
 * The nodes of an option's path. 0 or -1; *nodes is null for a path of none. `unreadable` is the message for
 * an option that cannot be read, with the result of reading it (%d).
 */
int read_option_nodes(ovra_hdl_t hdl, char *option, const char *unreadable, node_list *nodes);

} // namespace ovra

#endif

/* SPDX-License-Identifier: MIT */
/* Tracked memory for C++; its other routines are in rt.h. */
#ifndef SRC_RT_MEMLIST_H
#define SRC_RT_MEMLIST_H

#include "src/rt/rt.h"

namespace ovra {

/*
 * memlist_free for one of several blocks that were recorded one after the other. *start is a search hint,
 * starts at 0: releasing a long array does not search the whole list for each entry.
 */
void memlist_free_next(ovra_hdl_t hdl, void *block, size_t *start);

} // namespace ovra

#endif
